// SPDX-License-Identifier: MIT
//
// A current directory for the length of a scope.

#pragma once

#include "tests/testing/temp_dir.h"

#include <filesystem>
#include <string>

namespace vx::test {

/// Makes `path` the current directory; the one before comes back at the end, whatever became of
/// `path` meanwhile. Throws when `path` cannot be entered.
class ScopedCurrentDir {
 public:
  explicit ScopedCurrentDir(const std::string& path);
  ScopedCurrentDir(const ScopedCurrentDir&) = delete;
  ScopedCurrentDir& operator=(const ScopedCurrentDir&) = delete;
  ~ScopedCurrentDir();

 private:
  int before_;
};

/// Makes a directory the current one that has been removed.
class RemovedCurrentDir {
 public:
  RemovedCurrentDir() { std::filesystem::remove(tmp_.path("removed")); }

 private:
  TempDir tmp_;
  ScopedCurrentDir inside_{tmp_.mkdir("removed")};
};

}  // namespace vx::test
