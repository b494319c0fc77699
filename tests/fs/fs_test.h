// What the tests of files and directories share.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "tests/support/error_state.h"
#include "tests/support/log_capture.h"
#include "tests/support/scoped_cwd.h"
#include "tests/support/temp_dir.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vx::test {

/// The library's form of a text.
[[nodiscard]] inline String vxText(const std::string& text) {
  return String(std::string_view(text));
}

/// The elements of a list.
[[nodiscard]] inline std::vector<std::string> textsOf(const StringVector& list) {
  std::vector<std::string> texts;
  for (const String& element : list) {
    texts.emplace_back(element.view());
  }
  return texts;
}

/// Runs in a fresh current directory, `tmp`, with the log captured and an error record set that
/// only a capture or a clearing would replace.
class FsTest : public testing::Test {
 protected:
  /// Nothing has been logged and the current error has been left alone.
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

/// Of functions that never report anything: checks that after each test.
class SilentFsTest : public FsTest {
 protected:
  void TearDown() override { expectSilence(); }
};

}  // namespace vx::test
