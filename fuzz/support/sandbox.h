// SPDX-License-Identifier: MIT
//
// A temporary directory for fuzzers that work on files.

#pragma once

#include "tests/testing/temp_dir.h"

#include <string>

namespace vx::fuzz {

/// A working directory several levels below an empty directory on the RAM disk, so that files
/// created in its parent directories are detected.
class Sandbox {
 public:
  Sandbox();

  /// The working directory: canonical, without a trailing separator.
  [[nodiscard]] const std::string& path() const noexcept { return work_; }

  /// Empties the working directory.
  void empty() const;

  /// Aborts if the parent directories contain anything other than the working directory.
  void expectNothingOutside() const;

 private:
  test::TempDir root_ = test::TempDir::inMemory();
  std::string work_;
};

}  // namespace vx::fuzz
