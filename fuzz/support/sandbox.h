// SPDX-License-Identifier: MIT
//
// A directory of its own for a fuzzer that works on files.

#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace vx::fuzz {

/// Lies in memory where the system has such a place, and goes with everything in it when the
/// process ends of its own accord.
///
/// The working directory in it lies a few levels deep, so that a file that lands above it is seen.
class Sandbox {
 public:
  Sandbox();
  Sandbox(const Sandbox&) = delete;
  Sandbox& operator=(const Sandbox&) = delete;
  ~Sandbox();

  /// The working directory: canonical, without a trailing separator.
  [[nodiscard]] const std::string& path() const noexcept { return work_; }

  /// Empties the working directory.
  void empty() const;

  /// Ends the process unless the working directory is all that lies in the directories above it.
  void expectNothingOutside() const;

 private:
  std::filesystem::path root_;
  std::string work_;
};

/// Creates or replaces the file, whose directory must be there. Throws when that fails.
void writeFile(const std::filesystem::path& file, std::string_view content);

/// The bytes of the file. Throws when it cannot be read.
[[nodiscard]] std::string readFile(const std::filesystem::path& file);

}  // namespace vx::fuzz
