// SPDX-License-Identifier: MIT
//
// The current error as tests look at it.

#pragma once

#include "core/vx_string.h"

#include <gtest/gtest.h>

#include <string>

namespace vx::test {

/// The system's text for an error, asked without the library's help.
[[nodiscard]] std::string errnoText(int code);

/// Whether the current error of this thread is exactly this record.
[[nodiscard]] testing::AssertionResult currentErrorIs(long long code, const std::string& context,
                                                      const std::string& message);

/// Whether the current error is what a capture of `code` under the name `context` leaves.
[[nodiscard]] testing::AssertionResult capturedErrorIs(int code, const std::string& context);

/// Sets a current error that no code under test would set, to show that it is left alone:
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
