// SPDX-License-Identifier: MIT
//
// Measures how time grows with the input size. Each case is named "work/size".

#include "bench/vx_inputs.h"
#include "bench/vx_plain_c.h"
#include "bench/vx_workload.h"
#include "core/vx_path.h"
#include "fs/vx_fs.h"

#include <benchmark/benchmark.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <utility>

namespace {

using vx::bench::kMiB;
using vx::bench::removeLevels;
using vx::bench::Workload;

std::size_t sizeOf(const benchmark::State& state) {
  return static_cast<std::size_t>(state.range(0));
}

// ---- Length of a path -------------------------------------------------------------------------

/// Repeats `piece` up to this length.
std::string repeated(const std::string& piece, std::size_t length) {
  std::string made;
  while (made.size() < length) {
    made += piece;
  }
  made.resize(length);
  return made;
}

vx::String mixedPath(std::size_t length) {
  return vx::String(std::string_view(repeated("/textures//wood/./oak/../x", length)));
}

vx::String normalPath(std::size_t length) {
  return vx::String(std::string_view(repeated("/textures/wood/oak", length - 1) + "x"));
}

/// The second half is a file name without an extension, so that the search for a dot has to scan
/// all of it.
vx::String pathOfHalves(std::size_t length) {
  return vx::String(std::string_view(repeated("/wood", length / 2) + "/" +
                                     repeated("grain", length - length / 2 - 1)));
}

using MakePath = vx::String (*)(std::size_t length);
using OfPath = void (*)(const vx::String& path);

template <class Value>
void keep(const Value& value) {
  benchmark::DoNotOptimize(&value);
  benchmark::ClobberMemory();
}

void onPath(benchmark::State& state, MakePath make, OfPath act) {
  const vx::String path = make(sizeOf(state));
  for (auto _ : state) {
    act(path);
  }
}

void normalize(const vx::String& path) {
  keep(vx::Path::normalize(path));
}

void joinWithName(const vx::String& path) {
  keep(vx::Path::join(path, "grain.png"));
}

void askForExt(const vx::String& path) {
  keep(vx::Path::ext(path, /*withDot=*/true));
}

void askForFile(const vx::String& path) {
  keep(vx::Path(path, /*normalizeFirst=*/false).file(/*withExt=*/true));
}

void askForDir(const vx::String& path) {
  keep(vx::Path::dir(path, /*isDir=*/false));
}

void askForComponents(const vx::String& path) {
  keep(vx::Path(path, /*normalizeFirst=*/false).components());
}

void pathSizes(benchmark::internal::Benchmark* bench) {
  bench->Arg(10)->Arg(40)->Arg(100)->Arg(400)->Arg(1000)->Arg(4000);
}

#define PATH(name, make, act) \
  BENCHMARK_CAPTURE(onPath, act##make, make, act)->Name("path: " name)->Apply(pathSizes)

PATH("normal form, mixed", mixedPath, normalize);
PATH("normal form, already normal", normalPath, normalize);
PATH("components", normalPath, askForComponents);
PATH("join with a name", normalPath, joinWithName);
PATH("dir", pathOfHalves, askForDir);
PATH("file", pathOfHalves, askForFile);
PATH("ext, none there", pathOfHalves, askForExt);

// ---- Entries of a directory -------------------------------------------------------------------

const std::string& directoryOf(std::size_t entries) {
  static const vx::test::TempDir scratch = vx::test::TempDir::inMemory();
  static std::map<std::size_t, std::string> made;
  std::string& path = made[entries];
  if (path.empty()) {
    path = scratch.path(std::to_string(entries));
    std::filesystem::create_directory(path);
    for (std::size_t i = 0; i < entries; ++i) {
      std::ofstream(path + "/texture_" + std::to_string(i) + vx::bench::kListedExtensions[i % 4]);
    }
  }
  return path;
}

void listFiles(benchmark::State& state) {
  const vx::String path = directoryOf(sizeOf(state)).c_str();
  for (auto _ : state) {
    keep(vx::fs::listFiles(path, {"png"}));
  }
}
/// For sizes that take seconds.
void runOnce(benchmark::internal::Benchmark* bench) {
  bench->Iterations(1)->Repetitions(3);
}

void entryCounts(benchmark::internal::Benchmark* bench) {
  bench->RangeMultiplier(10)->Range(10, 100000);
}

BENCHMARK(listFiles)->Name("entries: listFiles")->Apply(entryCounts);
BENCHMARK(listFiles)->Name("entries: listFiles")->Arg(1000000)->Apply(runOnce);

void listPlainC(benchmark::State& state) {
  const std::string& path = directoryOf(sizeOf(state));
  for (auto _ : state) {
    benchmark::DoNotOptimize(vx::bench::listInC(path));
  }
}
constexpr const char* kListingInC = "entries: the same system calls in C";
BENCHMARK(listPlainC)->Name(kListingInC)->Apply(entryCounts);
BENCHMARK(listPlainC)->Name(kListingInC)->Arg(1000000)->Apply(runOnce);

// ---- Levels of directories --------------------------------------------------------------------

constexpr std::int64_t kMostLevels = 1950;  // a level has two bytes, PATH_MAX is 4096

void makeLevels(benchmark::State& state) {
  const auto scratch = vx::test::TempDir::inMemory();
  const std::string top = scratch.path("d");
  const std::string path = top + repeated("/d", 2 * (sizeOf(state) - 1));
  for (auto _ : state) {
    if (!vx::fs::mkDir(path.c_str())) {
      state.SkipWithError("the directories could not be created");
    }
    state.PauseTiming();
    removeLevels(path, top);
    state.ResumeTiming();
  }
}
BENCHMARK(makeLevels)->Name("levels: mkDir")->Arg(10)->Arg(100)->Arg(500)->Arg(kMostLevels);

// ---- Archives ---------------------------------------------------------------------------------

const Workload& workload(std::size_t files, std::size_t size) {
  static std::map<std::pair<std::size_t, std::size_t>, std::unique_ptr<Workload>> made;
  auto& slot = made[{files, size}];
  if (slot == nullptr) {
    slot = std::make_unique<Workload>(vx::bench::fillWithText, files, size);
    slot->makeArchive();
  }
  return *slot;
}

void write(benchmark::State& state, const Workload& work) {
  for (auto _ : state) {
    if (!vx::fs::writeZip(work.written().c_str(), work.list(), {})) {
      state.SkipWithError("the archive could not be written");
    }
    state.PauseTiming();
    std::filesystem::remove(work.written());
    state.ResumeTiming();
  }
}

void read(benchmark::State& state, const Workload& work) {
  for (auto _ : state) {
    if (vx::fs::readZip(work.archive().c_str(), work.out().c_str(), {}).size() !=
        work.list().size()) {
      state.SkipWithError("the archive could not be read");
    }
    state.PauseTiming();
    std::filesystem::remove_all(work.out());
    state.ResumeTiming();
  }
}

void writeFiles(benchmark::State& state) {
  write(state, workload(sizeOf(state), vx::bench::kSmallFile));
}

void readFiles(benchmark::State& state) {
  read(state, workload(sizeOf(state), vx::bench::kSmallFile));
}

BENCHMARK(writeFiles)->Name("files: writeZip")->Apply(entryCounts);
BENCHMARK(readFiles)->Name("files: readZip")->Apply(entryCounts);
BENCHMARK(writeFiles)->Name("files: writeZip")->Arg(500000)->Apply(runOnce);
BENCHMARK(readFiles)->Name("files: readZip")->Arg(500000)->Apply(runOnce);

void writeMebibytes(benchmark::State& state) {
  write(state, workload(1, sizeOf(state) * kMiB));
}

void readMebibytes(benchmark::State& state) {
  read(state, workload(1, sizeOf(state) * kMiB));
}

BENCHMARK(writeMebibytes)->Name("MiB: writeZip")->RangeMultiplier(4)->Range(1, 1024);
BENCHMARK(readMebibytes)->Name("MiB: readZip")->RangeMultiplier(4)->Range(1, 1024);
BENCHMARK(writeMebibytes)->Name("large MiB: writeZip")->Arg(4096);
BENCHMARK(readMebibytes)->Name("large MiB: readZip")->Arg(4096);

}  // namespace

BENCHMARK_MAIN();
