// SPDX-License-Identifier: MIT
//
// Checks of the current error.

#pragma once

#include "core/vx_string.h"

#include <gtest/gtest.h>

#include <string>

namespace vx::test {

/// Returns the system's text for an error, without the library under test.
[[nodiscard]] std::string errnoText(int code);

/// Returns whether the current error of this thread is exactly this record.
[[nodiscard]] testing::AssertionResult currentErrorIs(long long code, const std::string& context,
                                                      const std::string& message);

/// Returns whether the current error is that of a capture of `code` by the operation `context`.
[[nodiscard]] testing::AssertionResult capturedErrorIs(int code, const std::string& context);

/// Sets a current error that no code under test sets, to check that it does not change:
///
///   const ErrorStateSentinel sentinel;
///   EXPECT_FALSE(vx::fs::rmFile("missing"));
///   EXPECT_TRUE(sentinel.isUntouched());
///
/// Restores the current error at the end.
class ErrorStateSentinel {
 public:
  ErrorStateSentinel();
  ErrorStateSentinel(const ErrorStateSentinel&) = delete;
  ErrorStateSentinel& operator=(const ErrorStateSentinel&) = delete;
  ~ErrorStateSentinel();

  [[nodiscard]] testing::AssertionResult isUntouched() const;

 private:
  long long codeBefore_;
  String contextBefore_;
  String messageBefore_;
};

}  // namespace vx::test
