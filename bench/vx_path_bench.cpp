// SPDX-License-Identifier: MIT
//
// Compares operations on paths with plain C and with other libraries.

#include "core/vx_path.h"

#include "bench/vx_inputs.h"

#include <benchmark/benchmark.h>

#include <QDir>
#include <QFileInfo>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>

#include <absl/strings/str_cat.h>
#include <boost/filesystem.hpp>
#include <limits.h>
#include <llvm/ADT/SmallString.h>
#include <llvm/Support/FileSystem.h>
#include <llvm/Support/Path.h>
#include <stdlib.h>

namespace {

using namespace vx::bench;

// ---- The normal form --------------------------------------------------------------------------

// Makes one pass over the text and writes to the caller's buffer, without an allocation.
std::size_t normalizePlainC(const char* path, char* out) {
  const bool isAbsolute = *path == '/';
  std::size_t length = 0;
  if (isAbsolute) {
    out[length++] = '/';
  }
  std::size_t kept = length;
  const char* rest = path;
  while (*rest != '\0') {
    while (*rest == '/') {
      ++rest;
    }
    const char* const begin = rest;
    while (*rest != '\0' && *rest != '/') {
      ++rest;
    }
    const auto size = static_cast<std::size_t>(rest - begin);
    if (size == 0 || (size == 1 && begin[0] == '.')) {
      continue;
    }
    const bool isParent = size == 2 && begin[0] == '.' && begin[1] == '.';
    if (isParent && length > kept) {
      while (length > kept && out[length - 1] != '/') {
        --length;
      }
      if (length > kept) {
        --length;
      }
      continue;
    }
    if (isParent && isAbsolute) {
      continue;
    }
    if (length != 0 && out[length - 1] != '/') {
      out[length++] = '/';
    }
    for (std::size_t i = 0; i < size; ++i) {
      out[length++] = begin[i];
    }
    if (isParent) {
      kept = length;
    }
  }
  if (length == 0 && *path != '\0') {
    out[length++] = '.';
  }
  out[length] = '\0';
  return length;
}

void normalPlainC(benchmark::State& state, const char* path) {
  char out[PATH_MAX];
  for (auto _ : state) {
    benchmark::DoNotOptimize(path);
    benchmark::DoNotOptimize(normalizePlainC(path, out));
    benchmark::ClobberMemory();
  }
}

void normalVx(benchmark::State& state, const char* path) {
  const vx::String text = path;
  for (auto _ : state) {
    vx::String normal = vx::Path::normalize(text);
    benchmark::DoNotOptimize(normal);
  }
}

void normalStd(benchmark::State& state, const char* path) {
  const std::filesystem::path text = path;
  for (auto _ : state) {
    auto normal = text.lexically_normal();
    benchmark::DoNotOptimize(normal);
  }
}

void normalBoost(benchmark::State& state, const char* path) {
  const boost::filesystem::path text = path;
  for (auto _ : state) {
    auto normal = text.lexically_normal();
    benchmark::DoNotOptimize(normal);
  }
}

void normalLlvm(benchmark::State& state, const char* path) {
  const llvm::StringRef text = path;
  for (auto _ : state) {
    llvm::SmallString<256> normal(text);
    llvm::sys::path::remove_dots(normal, /*remove_dot_dot=*/true);
    benchmark::DoNotOptimize(normal);
  }
}

void normalQt(benchmark::State& state, const char* path) {
  const QString text = QString::fromUtf8(path);
  for (auto _ : state) {
    QString normal = QDir::cleanPath(text);
    benchmark::DoNotOptimize(normal);
  }
}

BENCHMARK_CAPTURE(normalPlainC, mixed, kMixed)->Name("normal form, mixed/plain C");
BENCHMARK_CAPTURE(normalVx, mixed, kMixed)->Name("normal form, mixed/vx");
BENCHMARK_CAPTURE(normalStd, mixed, kMixed)->Name("normal form, mixed/std::filesystem");
BENCHMARK_CAPTURE(normalBoost, mixed, kMixed)->Name("normal form, mixed/Boost");
BENCHMARK_CAPTURE(normalLlvm, mixed, kMixed)->Name("normal form, mixed/LLVM");
BENCHMARK_CAPTURE(normalQt, mixed, kMixed)->Name("normal form, mixed/Qt");
BENCHMARK_CAPTURE(normalPlainC, normal, kNormal)->Name("normal form, already normal/plain C");
BENCHMARK_CAPTURE(normalVx, normal, kNormal)->Name("normal form, already normal/vx");
BENCHMARK_CAPTURE(normalStd, normal, kNormal)->Name("normal form, already normal/std::filesystem");
BENCHMARK_CAPTURE(normalBoost, normal, kNormal)->Name("normal form, already normal/Boost");
BENCHMARK_CAPTURE(normalLlvm, normal, kNormal)->Name("normal form, already normal/LLVM");
BENCHMARK_CAPTURE(normalQt, normal, kNormal)->Name("normal form, already normal/Qt");

// ---- Parts ------------------------------------------------------------------------------------

// Each part is an allocated copy of the result of a backward scan.
char* blockOf(const char* begin, const char* end) {
  const auto length = static_cast<std::size_t>(end - begin);
  auto* const block = static_cast<char*>(std::malloc(length + 1));
  std::memcpy(block, begin, length);
  block[length] = '\0';
  return block;
}

const char* lastOf(const char* begin, const char* end, char wanted) {
  while (end != begin && end[-1] != wanted) {
    --end;
  }
  return end;
}

char* extPlainC(const char* path, const char* end) {
  const char* const name = lastOf(path, end, '/');
  const char* const ext = lastOf(name, end, '.');
  return ext <= name + 1 ? blockOf(end, end) : blockOf(ext - 1, end);
}

char* filePlainC(const char* path, const char* end) {
  return blockOf(lastOf(path, end, '/'), end);
}

char* dirPlainC(const char* path, const char* end) {
  return blockOf(path, lastOf(path, end, '/') - 1);
}

using Part = char* (*)(const char*, const char*);

void partPlainC(benchmark::State& state, Part part) {
  const char* path = kNormal;
  const std::size_t length = std::strlen(path);
  for (auto _ : state) {
    benchmark::DoNotOptimize(path);
    char* const found = part(path, path + length);
    benchmark::DoNotOptimize(found);
    benchmark::ClobberMemory();
    std::free(found);
  }
}
BENCHMARK_CAPTURE(partPlainC, ext, extPlainC)->Name("ext of a path/plain C");
BENCHMARK_CAPTURE(partPlainC, file, filePlainC)->Name("file of a path/plain C");
BENCHMARK_CAPTURE(partPlainC, dir, dirPlainC)->Name("dir of a path/plain C");

template <class Question>
void partVx(benchmark::State& state, Question question) {
  const vx::Path path(kNormal, /*normalizeFirst=*/false);
  const vx::String text = kNormal;
  for (auto _ : state) {
    vx::String found = question(path, text);
    benchmark::DoNotOptimize(found);
    benchmark::ClobberMemory();
  }
}
BENCHMARK_CAPTURE(partVx, ext, [](const vx::Path& path, const vx::String&) {
  return path.ext(/*withDot=*/true);
})->Name("ext of a path/vx");
BENCHMARK_CAPTURE(partVx, file, [](const vx::Path& path, const vx::String&) {
  return path.file(/*withExt=*/true);
})->Name("file of a path/vx");
BENCHMARK_CAPTURE(partVx, dir, [](const vx::Path&, const vx::String& text) {
  return vx::Path::dir(text, /*isDir=*/false);
})->Name("dir of a path/vx");

template <class Path, class Question>
void partOf(benchmark::State& state, Path path, Question question) {
  for (auto _ : state) {
    auto found = question(path);
    benchmark::DoNotOptimize(found);
    benchmark::ClobberMemory();
  }
}
const auto kStdPath = std::filesystem::path(kNormal);
BENCHMARK_CAPTURE(partOf, stdExt, kStdPath, [](const auto& path) { return path.extension(); })
    -> Name("ext of a path/std::filesystem");
BENCHMARK_CAPTURE(partOf, stdFile, kStdPath, [](const auto& path) { return path.filename(); })
    -> Name("file of a path/std::filesystem");
BENCHMARK_CAPTURE(partOf, stdDir, kStdPath, [](const auto& path) { return path.parent_path(); })
    -> Name("dir of a path/std::filesystem");
const auto kBoostPath = boost::filesystem::path(kNormal);
BENCHMARK_CAPTURE(partOf, boostExt, kBoostPath, [](const auto& path) { return path.extension(); })
    -> Name("ext of a path/Boost");
BENCHMARK_CAPTURE(partOf, boostFile, kBoostPath, [](const auto& path) { return path.filename(); })
    -> Name("file of a path/Boost");
BENCHMARK_CAPTURE(partOf, boostDir, kBoostPath, [](const auto& path) { return path.parent_path(); })
    -> Name("dir of a path/Boost");
const auto kLlvmPath = llvm::StringRef(kNormal);
BENCHMARK_CAPTURE(partOf, llvmExt, kLlvmPath, [](llvm::StringRef path) {
  return llvm::sys::path::extension(path).str();
})->Name("ext of a path/LLVM");
BENCHMARK_CAPTURE(partOf, llvmFile, kLlvmPath, [](llvm::StringRef path) {
  return llvm::sys::path::filename(path).str();
})->Name("file of a path/LLVM");
BENCHMARK_CAPTURE(partOf, llvmDir, kLlvmPath, [](llvm::StringRef path) {
  return llvm::sys::path::parent_path(path).str();
})->Name("dir of a path/LLVM");

// ---- Joining ----------------------------------------------------------------------------------

void joinPlainC(benchmark::State& state) {
  std::size_t base = std::strlen(kBase);
  std::size_t name = std::strlen(kName);
  for (auto _ : state) {
    benchmark::DoNotOptimize(base);
    benchmark::DoNotOptimize(name);
    auto* const block = static_cast<char*>(std::malloc(base + 1 + name + 1));
    std::memcpy(block, kBase, base);
    block[base] = '/';
    std::memcpy(block + base + 1, kName, name + 1);
    benchmark::DoNotOptimize(block);
    benchmark::ClobberMemory();
    std::free(block);
  }
}
BENCHMARK(joinPlainC)->Name("join of two/plain C");

void joinVx(benchmark::State& state) {
  const vx::String base = kBase;
  const vx::String name = kName;
  for (auto _ : state) {
    vx::String joined = vx::Path::join(base, name);
    benchmark::DoNotOptimize(joined);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(joinVx)->Name("join of two/vx");

void joinStd(benchmark::State& state) {
  const std::filesystem::path base = kBase;
  const std::filesystem::path name = kName;
  for (auto _ : state) {
    std::filesystem::path joined = base / name;
    benchmark::DoNotOptimize(joined);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(joinStd)->Name("join of two/std::filesystem");

void joinLlvm(benchmark::State& state) {
  for (auto _ : state) {
    llvm::SmallString<128> joined(kBase);
    llvm::sys::path::append(joined, kName);
    std::string result = joined.str().str();
    benchmark::DoNotOptimize(result);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(joinLlvm)->Name("join of two/LLVM");

void joinAbseil(benchmark::State& state) {
  const std::string base = kBase;
  const std::string name = kName;
  for (auto _ : state) {
    std::string joined = absl::StrCat(base, "/", name);
    benchmark::DoNotOptimize(joined);
    benchmark::ClobberMemory();
  }
}
BENCHMARK(joinAbseil)->Name("join of two/Abseil");

// ---- The canonical form -----------------------------------------------------------------------

constexpr const char* kExisting = "/usr/lib/../share/doc/./libc6/copyright";

void canonicalPlainC(benchmark::State& state) {
  for (auto _ : state) {
    char* const canonical = ::realpath(kExisting, nullptr);
    benchmark::DoNotOptimize(canonical);
    std::free(canonical);
  }
}
BENCHMARK(canonicalPlainC)->Name("canonical/plain C");

void canonicalVx(benchmark::State& state) {
  const vx::Path path(kExisting, /*normalizeFirst=*/false);
  for (auto _ : state) {
    vx::String canonical = path.canonical();
    benchmark::DoNotOptimize(canonical);
  }
}
BENCHMARK(canonicalVx)->Name("canonical/vx");

void canonicalStd(benchmark::State& state) {
  const std::filesystem::path path = kExisting;
  for (auto _ : state) {
    auto canonical = std::filesystem::canonical(path);
    benchmark::DoNotOptimize(canonical);
  }
}
BENCHMARK(canonicalStd)->Name("canonical/std::filesystem");

void canonicalQt(benchmark::State& state) {
  const QString path = kExisting;
  for (auto _ : state) {
    QString canonical = QFileInfo(path).canonicalFilePath();
    benchmark::DoNotOptimize(canonical);
  }
}
BENCHMARK(canonicalQt)->Name("canonical/Qt");

void canonicalLlvm(benchmark::State& state) {
  for (auto _ : state) {
    llvm::SmallString<256> canonical;
    const auto failed = llvm::sys::fs::real_path(kExisting, canonical);
    benchmark::DoNotOptimize(failed);
    benchmark::DoNotOptimize(canonical);
  }
}
BENCHMARK(canonicalLlvm)->Name("canonical/LLVM");

}  // namespace

BENCHMARK_MAIN();
