// SPDX-License-Identifier: MIT
//
// Input files for the benchmarks, on the RAM disk if there is one.

#pragma once

#include "bench/vx_inputs.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tests/testing/temp_dir.h"

#include <algorithm>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include <unistd.h>

namespace vx::bench {

/// Removes the empty directories from `path` up to `top`.
inline void removeLevels(const std::string& path, const std::string& top) {
  for (std::string level = path; level.size() >= top.size();
       level.resize(level.find_last_of('/'))) {
    ::rmdir(level.c_str());
  }
}

inline constexpr std::size_t kSmallFile = 200;
inline constexpr std::size_t kMiB = 1024 * 1024;

/// Writes a block of text repeatedly. The block is larger than the compressor's window, so that the
/// repetitions do not compress better than other text.
inline void fillWithText(std::ostream& file, std::mt19937& random, std::size_t size) {
  const std::string block = text(random, std::min(size, kMiB));
  for (std::size_t written = 0; written < size; written += block.size()) {
    file.write(block.data(), static_cast<std::streamsize>(std::min(block.size(), size - written)));
  }
}

/// A directory of input files, and the paths for archives and extracted files.
class Workload {
 public:
  using Fill = void (*)(std::ostream& file, std::mt19937& random, std::size_t size);

  Workload(Fill fill, std::size_t count, std::size_t size) {
    std::filesystem::create_directory(in());
    std::mt19937 random(12345);
    for (std::size_t i = 0; i < count; ++i) {
      files_.push_back(in() + "/file_" + std::to_string(i) + ".bin");
      std::ofstream file(files_.back(), std::ios::binary);
      fill(file, random, size);
    }
    for (const std::string& file : files_) {
      list_.push_back(file.c_str());
    }
  }

  void makeArchive() const { fs::writeZip(archive().c_str(), list_, {}); }

  [[nodiscard]] const std::vector<std::string>& files() const { return files_; }
  [[nodiscard]] StringVector list() const { return list_; }
  [[nodiscard]] std::string archive() const { return scratch_.path("given.zip"); }
  [[nodiscard]] std::string written() const { return scratch_.path("written.zip"); }
  [[nodiscard]] std::string out() const { return scratch_.path("out"); }
  [[nodiscard]] std::string in() const { return scratch_.path("in"); }

  static std::string entryName(const std::string& file) {
    return "res" + file.substr(file.rfind('/'));
  }

 private:
  test::TempDir scratch_ = test::TempDir::inMemory();
  std::vector<std::string> files_;
  StringVector list_;
};

}  // namespace vx::bench
