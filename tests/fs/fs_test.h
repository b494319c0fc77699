// SPDX-License-Identifier: MIT
//
// What the tests of files and directories share.

#pragma once

#include "tests/testing/sandbox.h"

#include <gtest/gtest.h>

#include <sys/stat.h>

namespace vx::test {

/// Runs in a `Sandbox`.
class FsTest : public testing::Test, protected Sandbox {};

/// Of functions that never report anything: checks that after each test.
class SilentFsTest : public FsTest {
 protected:
  void TearDown() override { expectSilence(); }
};

/// Creates one entry of each kind in the current directory, and nothing at "missing".
inline void createOneOfEachKind(const TempDir& tmp) {
  tmp.mkdir("dir");
  tmp.link("link-to-dir", "dir");
  tmp.write("file", "text");
  tmp.link("link-to-file", "file");
  tmp.link("dangling", "missing");
  tmp.link("loop", "loop");
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);
}

}  // namespace vx::test
