#include "core/vx_error.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

namespace vx::os {
namespace {

struct ErrorRecord {
  long long code = 0;
  String context;
  String message;
};

thread_local ErrorRecord currentError;

// The two forms of strerror_r, told apart by what they return: one a status, with the text in the
// buffer, the other the text itself.
[[maybe_unused]] const char* resultText(int status, const char* buffer) {
  return status == 0 ? buffer : "";
}
[[maybe_unused]] const char* resultText(const char* text, const char* /*buffer*/) {
  return text;
}

String systemText(int code) {
  std::array<char, 256> buffer{};
  return String(resultText(::strerror_r(code, buffer.data(), buffer.size()), buffer.data()));
}

}  // namespace

void setCurrentError(long long code, String context, String message) {
  currentError = {code, std::move(context), std::move(message)};
}

void captureCurrentError(String operation) {
  const int code = errno;
  setCurrentError(code, std::move(operation), code == 0 ? String() : systemText(code));
}

void clearCurrentError() {
  currentError = {};
  errno = 0;
}

long long currentErrorCode() noexcept {
  return currentError.code;
}

String currentErrorContext() noexcept {
  return currentError.context;
}

String currentErrorMessage() noexcept {
  return currentError.message;
}

}  // namespace vx::os
