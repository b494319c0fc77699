// SPDX-License-Identifier: MIT
//
// A fresh directory that lies in memory where the system has a place for such, for tests that make
// and remove thousands.

#pragma once

#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"

#include <memory>
#include <optional>

#include <unistd.h>

namespace vx::test {

[[nodiscard]] inline std::unique_ptr<TempDir> tempDirInMemory() {
  constexpr const char* kInMemory = "/dev/shm";
  std::optional<ScopedEnv> place;
  if (::access(kInMemory, W_OK) == 0) {
    place.emplace("TMPDIR", kInMemory);
  }
  return std::make_unique<TempDir>();
}

}  // namespace vx::test
