// SPDX-License-Identifier: MIT

#include "core/vx_log.h"

#include "core/vx_error.h"
#include "core/vx_ref_counted.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include <cxxabi.h>
#include <pthread.h>

namespace vx {
namespace {

// ---- The sink ----------------------------------------------------------------------------------

/// The number of locks of the sink's mutex that this thread holds; positive inside a sink.
thread_local int locksOfThread = 0;

/// A recursive mutex, because a sink may set another sink. Unlike a std::recursive_mutex, it may be
/// unlocked in the child of `fork`.
class SinkMutex {
 public:
  void lock() {
    if (locksOfThread == 0) {
      mutex_.lock();
    }
    ++locksOfThread;
  }

  void unlock() noexcept {
    if (--locksOfThread == 0) {
      mutex_.unlock();
    }
  }

 private:
  std::mutex mutex_;
};

class SharedSink final : public RefCounted {
 public:
  explicit SharedSink(LogSink given) : call(std::move(given)) {}

  const LogSink call;

 private:
  void destroy() noexcept override { delete this; }
};

/// A shared sink, or none. A std::shared_ptr would make a shared library export template
/// instantiations.
class SinkHandle final : public RefersTo<SharedSink> {
 public:
  SinkHandle() = default;
  explicit SinkHandle(LogSink sink) : RefersTo(sink ? new SharedSink(std::move(sink)) : nullptr) {}

  [[nodiscard]] const SharedSink* get() const noexcept { return implementation(); }
};

struct SinkSlot {
  SinkMutex mutex;
  SinkHandle sink;
};

/// Whether a sink is set. Without a sink, logging does not lock the mutex.
constinit std::atomic<bool> isSinkSet = false;

SinkSlot& sinkSlot();

void lockForFork() {
  sinkSlot().mutex.lock();
}

void unlockAfterFork() {
  sinkSlot().mutex.unlock();
}

SinkSlot& createSlot() {
  // Registered with the first sink, not at load time. `fork` calls prepare handlers in the reverse
  // order of registration, so this mutex is locked before those of older handlers. A sink that
  // locks such a mutex does so in the same order.
  //
  // The handlers must not be called after this code has been unloaded. glibc removes the handlers
  // of a library that it unloads. musl does not unload libraries, and macOS does not unload those
  // with thread-local variables.
  static_cast<void>(::pthread_atfork(lockForFork, unlockAfterFork, unlockAfterFork));
  return *new SinkSlot;
}

SinkSlot& sinkSlot() {
  // Never destroyed, because the destructors of static objects may log.
  static SinkSlot& slot = createSlot();
  return slot;
}

/// Restores the current error at the end of a scope.
class ErrorStateGuard {
 public:
  ErrorStateGuard() = default;
  ErrorStateGuard(const ErrorStateGuard&) = delete;
  ErrorStateGuard& operator=(const ErrorStateGuard&) = delete;
  ~ErrorStateGuard() { os::setCurrentError(code_, std::move(context_), std::move(message_)); }

 private:
  long long code_ = os::currentErrorCode();
  String context_ = os::currentErrorContext();
  String message_ = os::currentErrorMessage();
};

// Cancelling a thread throws no object, so the reference that is caught below is null. The
// reference is not used.
__attribute__((no_sanitize("null"))) void callSink(const LogSink& sink, LogLevel level,
                                                   String line) {
  try {
    sink(level, std::move(line));
#ifdef __GLIBCXX__
  } catch (const abi::__forced_unwind&) {
    throw;  // the thread is being cancelled
#endif
  } catch (...) {
    return;  // a sink that fails does not affect the operation that logs
  }
}

/// Passes the line to the sink. Returns false if there is none.
bool writeToSink(LogLevel level, String line) {
  SinkSlot& slot = sinkSlot();
  const std::lock_guard<SinkMutex> lock(slot.mutex);
  const ErrorStateGuard guard;
  // Holds a reference, so that a sink that sets another one is not destroyed while it runs.
  const SinkHandle sink = slot.sink;
  if (sink.get() == nullptr) {
    return false;
  }
  callSink(sink.get()->call, level, std::move(line));
  return true;
}

// ---- Standard error ----------------------------------------------------------------------------

void appendEscaped(std::string& to, char byte) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  const auto value = static_cast<unsigned char>(byte);
  if (value >= 0x20 && value != 0x7f) {
    to += byte;
  } else if (byte == '\n') {
    to += "\\n";
  } else if (byte == '\r') {
    to += "\\r";
  } else if (byte == '\t') {
    to += "\\t";
  } else {
    to += "\\x";
    to += kDigits[value / 16];
    to += kDigits[value % 16];
  }
}

void writeToStandardError(LogLevel level, String line) {
  std::string whole(levelName(level));
  whole.reserve(whole.size() + line.length() + 3);
  whole += ": ";
  for (const char byte : line.view()) {
    appendEscaped(whole, byte);
  }
  whole += '\n';
  // One call, so that lines of different threads, and short lines of different processes, are not
  // mixed.
  std::fwrite(whole.data(), 1, whole.size(), stderr);
}

// ---- Lines -------------------------------------------------------------------------------------

[[gnu::format(printf, 1, 0)]] String formatted(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  std::array<char, 512> small{};
  const int length = std::vsnprintf(small.data(), small.size(), format, arguments);
  String line;
  if (length >= 0 && static_cast<std::size_t>(length) < small.size()) {
    line = String(std::string_view(small.data(), static_cast<std::size_t>(length)));
  } else if (length >= 0) {
    const auto large = std::make_unique<char[]>(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(large.get(), static_cast<std::size_t>(length) + 1, format, again);
    line = String(std::string_view(large.get(), static_cast<std::size_t>(length)));
  }
  va_end(again);
  return line;
}

[[gnu::format(printf, 2, 0)]] void logLine(LogLevel level, const char* format,
                                           std::va_list arguments) {
  const int errnoBefore = errno;
  const String line = formatted(format, arguments);
  const bool mayUseSink = isSinkSet && locksOfThread == 0;
  if (!mayUseSink || !writeToSink(level, line)) {
    writeToStandardError(level, line);
  }
  errno = errnoBefore;
}

}  // namespace

const char* levelName(LogLevel level) noexcept {
  return level == LogLevel::Error ? "error" : "warning";
}

void logError(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  logLine(LogLevel::Error, format, arguments);
  va_end(arguments);
}

void logWarning(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  logLine(LogLevel::Warning, format, arguments);
  va_end(arguments);
}

LogSink setLogSink(LogSink sink) {
  SinkHandle exchanged(std::move(sink));
  {
    SinkSlot& slot = sinkSlot();
    const std::lock_guard<SinkMutex> lock(slot.mutex);
    std::swap(slot.sink, exchanged);
    isSinkSet = slot.sink.get() != nullptr;
  }
  return exchanged.get() != nullptr ? exchanged.get()->call : LogSink();
}

LogSink standardErrorSink() {
  return [](LogLevel level, String line) { writeToStandardError(level, std::move(line)); };
}

}  // namespace vx
