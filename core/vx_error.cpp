// SPDX-License-Identifier: MIT

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

/// Whether the record of this thread has been destroyed. The flag itself is trivially destructible,
/// so it can be read until the thread ends.
thread_local bool recordIsGone = false;

struct RecordOfThread {
  ErrorRecord record;

  ~RecordOfThread() { recordIsGone = true; }
};

thread_local RecordOfThread recordOfThread;

ErrorRecord& current() {
  if (!recordIsGone) {
    return recordOfThread.record;
  }
  // Never destroyed, because destructors that run later, such as those of static objects, use it.
  thread_local ErrorRecord& lastRecord = *new ErrorRecord;
  return lastRecord;
}

// strerror_r has two forms: one returns a status and writes the text to the buffer, the other
// returns the text.
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
  current() = {code, std::move(context), std::move(message)};
}

void captureCurrentError(String operation) {
  const int code = errno;
  setCurrentError(code, std::move(operation), code == 0 ? String() : systemText(code));
}

void clearCurrentError() {
  current() = {};
  errno = 0;
}

long long currentErrorCode() noexcept {
  return current().code;
}

String currentErrorContext() noexcept {
  return current().context;
}

String currentErrorMessage() noexcept {
  return current().message;
}

}  // namespace vx::os
