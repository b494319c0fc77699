// SPDX-License-Identifier: MIT
//
// The platform operation of macOS, whose header is a stand-in.

#include "fs/internal/vx_fs_platform.h"

#include <gtest/gtest.h>

#include <cstdint>

#include <mach-o/dyld.h>

namespace vx::test {
namespace {

const char* givenBuffer = nullptr;
const std::uint32_t* givenSize = nullptr;

TEST(ExecutablePath, PassesItsArgumentsAndTheResultOn) {
  char buffer = 'x';
  std::uint32_t size = 17;

  EXPECT_EQ(fs::platform::executablePath(&buffer, &size), 42);

  EXPECT_EQ(givenBuffer, &buffer);
  EXPECT_EQ(givenSize, &size);
  EXPECT_EQ(buffer, 'y');
  EXPECT_EQ(size, 18U);
}

}  // namespace
}  // namespace vx::test

int _NSGetExecutablePath(char* buf, uint32_t* bufsize) {
  vx::test::givenBuffer = buf;
  vx::test::givenSize = bufsize;
  *buf = 'y';
  *bufsize = 18;
  return 42;
}
