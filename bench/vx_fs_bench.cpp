// SPDX-License-Identifier: MIT
//
// Compares operations on files and directories with plain C that makes the same system calls, and
// with other libraries.

#include "fs/vx_fs.h"

#include "bench/vx_inputs.h"
#include "bench/vx_plain_c.h"
#include "bench/vx_workload.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFile>
#include <QString>
#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <boost/filesystem.hpp>
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace vx::bench;

const vx::test::TempDir& scratch() {
  static const vx::test::TempDir directory = vx::test::TempDir::inMemory();
  return directory;
}

std::string fileOf(std::size_t size) {
  const std::string path = scratch().path("source_" + std::to_string(size));
  if (!std::filesystem::exists(path)) {
    std::mt19937_64 random(size);
    std::ofstream file(path, std::ios::binary);
    std::vector<std::uint64_t> block(8192);
    for (std::size_t written = 0; written < size;) {
      for (auto& word : block) {
        word = random();
      }
      const std::size_t part = std::min(size - written, block.size() * sizeof(std::uint64_t));
      file.write(reinterpret_cast<const char*>(block.data()), static_cast<std::streamsize>(part));
      written += part;
    }
  }
  return path;
}

// ---- Copying a file that replaces another -----------------------------------------------------

bool copyPlainC(const std::string& from, const std::string& to) {
  constexpr std::size_t kBlock = 256 * 1024;
  static const auto buffer = std::make_unique<char[]>(kBlock);
  struct stat status;
  if (::stat(from.c_str(), &status) != 0 || ::stat(to.c_str(), &status) != 0) {
    return false;
  }
  std::remove(to.c_str());
  const int in = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  const int out = ::open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  for (ssize_t got = 0; (got = ::read(in, buffer.get(), kBlock)) > 0;) {
    if (::write(out, buffer.get(), static_cast<std::size_t>(got)) != got) {
      break;
    }
  }
  ::close(out);
  ::close(in);
  return ::stat(to.c_str(), &status) == 0;
}

bool copyVx(const std::string& from, const std::string& to) {
  return vx::fs::copyFile(from.c_str(), to.c_str());
}

bool copyStd(const std::string& from, const std::string& to) {
  return std::filesystem::copy_file(from, to, std::filesystem::copy_options::overwrite_existing);
}

bool copyBoost(const std::string& from, const std::string& to) {
  return boost::filesystem::copy_file(from, to,
                                      boost::filesystem::copy_options::overwrite_existing);
}

bool copyQt(const std::string& from, const std::string& to) {
  QFile::remove(QString::fromStdString(to));
  return QFile::copy(QString::fromStdString(from), QString::fromStdString(to));
}

using Copy = bool (*)(const std::string&, const std::string&);

void copy(benchmark::State& state, Copy copyOne, std::size_t size) {
  const std::string from = fileOf(size);
  const std::string to = scratch().path("copy");
  std::ofstream(to).put('x');
  for (auto _ : state) {
    if (!copyOne(from, to)) {
      state.SkipWithError("the copy failed");
    }
  }
  std::filesystem::remove(to);
}

constexpr std::size_t kKiB = 1024;
constexpr std::size_t kMiB = 1024 * kKiB;

#define COPY(size, name)                                                                         \
  BENCHMARK_CAPTURE(copy, plainC_##size, copyPlainC, size)->Name("copyFile " name "/plain C");   \
  BENCHMARK_CAPTURE(copy, vx_##size, copyVx, size)->Name("copyFile " name "/vx");                \
  BENCHMARK_CAPTURE(copy, std_##size, copyStd, size)->Name("copyFile " name "/std::filesystem"); \
  BENCHMARK_CAPTURE(copy, boost_##size, copyBoost, size)->Name("copyFile " name "/Boost");       \
  BENCHMARK_CAPTURE(copy, qt_##size, copyQt, size)->Name("copyFile " name "/Qt")

constexpr std::size_t kSmall = kKiB;
constexpr std::size_t kMiddle = kMiB;
constexpr std::size_t kLarge = 256 * kMiB;
COPY(kSmall, "1 KiB");
COPY(kMiddle, "1 MiB");
COPY(kLarge, "256 MiB");

// ---- Listing ----------------------------------------------------------------------------------

std::string directoryOf(std::size_t entries) {
  const std::string path = scratch().path("list_" + std::to_string(entries));
  if (!std::filesystem::exists(path)) {
    std::filesystem::create_directory(path);
    for (std::size_t i = 0; i < entries; ++i) {
      std::ofstream(path + "/texture_" + std::to_string(i) + kListedExtensions[i % 4]);
    }
  }
  return path;
}

void listPlainC(benchmark::State& state) {
  const std::string path = directoryOf(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    benchmark::DoNotOptimize(listInC(path));
  }
}
BENCHMARK(listPlainC)->Name("listFiles/plain C")->Arg(10000);

void listVx(benchmark::State& state) {
  const vx::String path = directoryOf(static_cast<std::size_t>(state.range(0))).c_str();
  for (auto _ : state) {
    vx::StringVector found = vx::fs::listFiles(path, {"png"});
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(listVx)->Name("listFiles/vx")->Arg(10000);

template <class Iterator>
void listBy(benchmark::State& state) {
  const std::string path = directoryOf(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state) {
    std::vector<std::string> found;
    for (const auto& entry : Iterator(path)) {
      // The type in the directory entry does not follow links, so each entry needs a stat call, as
      // in the library.
      if (!is_directory(status(entry.path())) && entry.path().extension() == ".png") {
        found.push_back(entry.path().string());
      }
    }
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(listBy<std::filesystem::directory_iterator>)
    ->Name("listFiles/std::filesystem")
    ->Arg(10000);
BENCHMARK(listBy<boost::filesystem::directory_iterator>)->Name("listFiles/Boost")->Arg(10000);

void listQt(benchmark::State& state) {
  const QString path =
      QString::fromStdString(directoryOf(static_cast<std::size_t>(state.range(0))));
  for (auto _ : state) {
    QStringList found = QDir(path).entryList({"*.png"}, QDir::Files, QDir::Unsorted);
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(listQt)->Name("listFiles/Qt")->Arg(10000);

// ---- Resolving --------------------------------------------------------------------------------

std::vector<std::string> searchDirectories() {
  std::vector<std::string> directories;
  for (int i = 0; i < 8; ++i) {
    directories.push_back(scratch().path("search_" + std::to_string(i)));
    std::filesystem::create_directories(directories.back());
  }
  std::filesystem::create_directories(scratch().path("scene"));
  return directories;
}

void resolvePlainC(benchmark::State& state) {
  const std::vector<std::string> directories = searchDirectories();
  const std::string own = scratch().path("scene");
  const std::string reference = own + "/wood.*";
  for (auto _ : state) {
    struct stat status;
    int found = ::stat(reference.c_str(), &status);
    for (const std::string& directory : directories) {
      for (const char* const extension : kImageExtensions) {
        for (const std::string* const place : {&own, &directory}) {
          found += ::stat(place->c_str(), &status);
          char full[4096];
          std::snprintf(full, sizeof full, "%s/wood.%s", place->c_str(), extension);
          found += ::stat(full, &status);
        }
      }
    }
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(resolvePlainC)->Name("resolvePath wildcard miss/plain C");

void resolveVx(benchmark::State& state) {
  vx::StringVector directories;
  for (const std::string& directory : searchDirectories()) {
    directories.push_back(directory.c_str());
  }
  vx::StringVector extensions;
  for (const char* const extension : kImageExtensions) {
    extensions.push_back(extension);
  }
  const vx::String reference = scratch().path("scene/wood.*").c_str();
  for (auto _ : state) {
    vx::String found = vx::fs::resolvePath(reference, directories, extensions);
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(resolveVx)->Name("resolvePath wildcard miss/vx");

void resolveStd(benchmark::State& state) {
  const std::vector<std::string> directories = searchDirectories();
  const std::string reference = scratch().path("scene/wood.*");
  for (auto _ : state) {
    const std::filesystem::path path = reference;
    const std::filesystem::path own =
        std::filesystem::is_directory(path) ? path : path.parent_path();
    bool found = false;
    for (const std::filesystem::path directory : directories) {
      for (const char* const extension : kImageExtensions) {
        for (const std::filesystem::path* const place : {&own, &directory}) {
          if (std::filesystem::is_directory(*place)) {
            const auto candidate = *place / (path.stem().string() + "." + extension);
            const auto status = std::filesystem::status(candidate);
            found = found || (exists(status) && !is_directory(status));
          }
        }
      }
    }
    benchmark::DoNotOptimize(found);
  }
}
BENCHMARK(resolveStd)->Name("resolvePath wildcard miss/std::filesystem");

// ---- Directories ------------------------------------------------------------------------------

bool makePlainC(const std::string& path) {
  struct stat status;
  if (::stat(path.c_str(), &status) == 0) {
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  }
  std::string walked = path;
  for (std::size_t i = 1; i <= path.size(); ++i) {
    if (i == path.size() || path[i] == '/') {
      walked[i] = '\0';
      if (::stat(walked.c_str(), &status) != 0 && ::mkdir(walked.c_str(), 0777) != 0) {
        return false;
      }
      walked[i] = '/';
    }
  }
  return true;
}

bool makeVx(const std::string& path) {
  return vx::fs::mkDir(path.c_str());
}

bool makeStd(const std::string& path) {
  std::filesystem::create_directories(path);
  return true;
}

bool makeBoost(const std::string& path) {
  boost::filesystem::create_directories(path);
  return true;
}

bool makeQt(const std::string& path) {
  return QDir().mkpath(QString::fromStdString(path));
}

using Make = bool (*)(const std::string&);

void makeNew(benchmark::State& state, Make make) {
  const std::string top = scratch().path("new");
  const std::string path = tenLevels(top);
  for (auto _ : state) {
    if (!make(path)) {
      state.SkipWithError("the directories could not be created");
    }
    state.PauseTiming();
    removeLevels(path, top);
    state.ResumeTiming();
  }
}
BENCHMARK_CAPTURE(makeNew, plainC, makePlainC)->Name("mkDir, 10 new levels/plain C");
BENCHMARK_CAPTURE(makeNew, vx, makeVx)->Name("mkDir, 10 new levels/vx");
BENCHMARK_CAPTURE(makeNew, std, makeStd)->Name("mkDir, 10 new levels/std::filesystem");
BENCHMARK_CAPTURE(makeNew, boost, makeBoost)->Name("mkDir, 10 new levels/Boost");
BENCHMARK_CAPTURE(makeNew, qt, makeQt)->Name("mkDir, 10 new levels/Qt");

void makeExisting(benchmark::State& state, Make make) {
  const std::string path = tenLevels(scratch().path("existing"));
  std::filesystem::create_directories(path);
  for (auto _ : state) {
    benchmark::DoNotOptimize(make(path));
  }
}
BENCHMARK_CAPTURE(makeExisting, plainC, makePlainC)->Name("mkDir, all there/plain C");
BENCHMARK_CAPTURE(makeExisting, vx, makeVx)->Name("mkDir, all there/vx");
BENCHMARK_CAPTURE(makeExisting, std, makeStd)->Name("mkDir, all there/std::filesystem");
BENCHMARK_CAPTURE(makeExisting, boost, makeBoost)->Name("mkDir, all there/Boost");
BENCHMARK_CAPTURE(makeExisting, qt, makeQt)->Name("mkDir, all there/Qt");

}  // namespace

BENCHMARK_MAIN();
