// SPDX-License-Identifier: MIT
//
// The environment of a test of files and directories.

#pragma once

#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

namespace vx::test {

/// A fresh current directory, `tmp`, with the log captured and a current error that is replaced
/// only by a captured or cleared one.
struct Sandbox {
  /// Expects that nothing has been logged and the current error has not changed.
  void expectSilence() const {
    EXPECT_EQ(log.all(), lines());
    EXPECT_TRUE(sentinel.isUntouched());
  }

  // The initializers run in this order: the directory is left before it is removed.
  TempDir tmp;
  ScopedCurrentDir cwd{tmp.path()};
  LogCapture log;
  ErrorStateSentinel sentinel;
};

}  // namespace vx::test
