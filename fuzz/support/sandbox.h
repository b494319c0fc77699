// SPDX-License-Identifier: MIT
//
// A directory of its own for a fuzzer that works on files.

#pragma once

#include "tests/testing/temp_dir.h"

#include <string>

namespace vx::fuzz {

/// A working directory some levels below a fresh directory in memory, so that a file that is
/// created above it is found.
class Sandbox {
 public:
  Sandbox();

  /// The working directory: canonical, without a trailing separator.
  [[nodiscard]] const std::string& path() const noexcept { return work_; }

  /// Empties the working directory.
  void empty() const;

  /// Ends the process unless the working directory is all that is in its parent directories.
  void expectNothingOutside() const;

 private:
  test::TempDir root_ = test::TempDir::inMemory();
  std::string work_;
};

}  // namespace vx::fuzz
