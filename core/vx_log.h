// The library's log: formatted lines at two levels, written to standard error or to a sink of the
// application's own.
//
// Thread safety: any thread may call anything here. Lines of different threads are never mixed; a
// sink is called by one thread at a time.

#pragma once

#include "core/vx_string.h"

#include <functional>

namespace vx {

/// How bad what a line tells is.
enum class LogLevel {
  Warning,  ///< something was missing, and something else took its place
  Error     ///< something asked for was not done
};

/// Takes one line, without prefix or line break. It runs on the thread that logs and may itself
/// log or set another sink. An exception that it throws passes through the call that logged.
using LogSink = std::function<void(LogLevel level, String line)>;

/// Formats like `printf` and writes one whole line, "error: " before it.
///
/// Failures to write are swallowed. The format holds no line break at its end; the log ends the
/// line.
[[gnu::format(printf, 1, 2)]] void logError(const char* format, ...);

/// As `logError`, with "warning: " before the line.
[[gnu::format(printf, 1, 2)]] void logWarning(const char* format, ...);

/// Sends all further lines to `sink`, or to standard error again when it is empty, and returns the
/// sink before it (empty for standard error).
///
/// No other thread is inside the returned sink any more when this returns, so that what it refers
/// to may be destroyed.
LogSink setLogSink(LogSink sink);

}  // namespace vx
