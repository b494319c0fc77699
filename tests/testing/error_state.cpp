// SPDX-License-Identifier: MIT

#include "tests/testing/error_state.h"

#include "core/vx_error.h"

#include <system_error>

namespace vx::test {
namespace {

constexpr long long kSentinelCode = -471'100'000'042;
constexpr const char* kSentinelContext = "the sentinel's context";
constexpr const char* kSentinelMessage = "the sentinel's message";

}  // namespace

std::string errnoText(int code) {
  return std::generic_category().message(code);
}

testing::AssertionResult currentErrorIs(long long code, const std::string& context,
                                        const std::string& message) {
  const long long foundCode = os::currentErrorCode();
  const std::string foundContext(os::currentErrorContext().view());
  const std::string foundMessage(os::currentErrorMessage().view());
  if (foundCode == code && foundContext == context && foundMessage == message) {
    return testing::AssertionSuccess();
  }
  return testing::AssertionFailure()
         << "the current error is (" << foundCode << ", \"" << foundContext << "\", \""
         << foundMessage << "\"), expected (" << code << ", \"" << context << "\", \"" << message
         << "\")";
}

testing::AssertionResult capturedErrorIs(int code, const std::string& context) {
  return currentErrorIs(code, context, code == 0 ? std::string() : errnoText(code));
}

ErrorStateSentinel::ErrorStateSentinel()
    : codeBefore_(os::currentErrorCode()),
      contextBefore_(os::currentErrorContext()),
      messageBefore_(os::currentErrorMessage()) {
  os::setCurrentError(kSentinelCode, kSentinelContext, kSentinelMessage);
}

ErrorStateSentinel::~ErrorStateSentinel() {
  os::setCurrentError(codeBefore_, contextBefore_, messageBefore_);
}

testing::AssertionResult ErrorStateSentinel::isUntouched() const {
  return currentErrorIs(kSentinelCode, kSentinelContext, kSentinelMessage);
}

}  // namespace vx::test
