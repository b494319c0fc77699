// What the tests of files and directories share.

#pragma once

#include "tests/testing/sandbox.h"

#include <gtest/gtest.h>

namespace vx::test {

/// Runs in a `Sandbox`.
class FsTest : public testing::Test, protected Sandbox {};

/// Of functions that never report anything: checks that after each test.
class SilentFsTest : public FsTest {
 protected:
  void TearDown() override { expectSilence(); }
};

}  // namespace vx::test
