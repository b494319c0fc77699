// SPDX-License-Identifier: MIT
//
// The log: formatted lines at two levels, written to standard error or passed to the application's
// sink.
//
// Logging does not affect the operation that logs: the current error (vx_error.h) and `errno` are
// preserved, and an exception that a sink throws is discarded. The functions throw only
// std::bad_alloc. Cancelling a thread inside a sink (pthread_cancel) is safe only with libstdc++.
//
// Thread safety: all functions are thread-safe, and lines of different threads are never mixed. Any
// thread may call `fork`, except from inside a sink, and the child may log and set sinks.

#pragma once

#include "core/vx_string.h"

#include <functional>

namespace vx {

/// The severity of a line.
enum class LogLevel {
  Warning,  ///< something was skipped, or a fallback was used
  Error     ///< an operation, or a part of it, failed
};

/// Returns "error" or "warning".
[[nodiscard]] const char* levelName(LogLevel level) noexcept;

/// Receives one line, without a prefix and without a line break at its end.
///
/// The line is not escaped: a file name in it may contain line breaks, escape sequences and invalid
/// UTF-8.
///
/// A sink runs on the thread that logs, on one thread at a time, with the log's lock held. It may
/// call any function of this library, including `setLogSink`. Lines that are logged from inside a
/// sink are written to standard error. A sink must not call `fork`, nor wait for a thread that may
/// log, set a sink or call `fork`.
using LogSink = std::function<void(LogLevel level, String line)>;

/// Formats a line like `printf` and logs it at level error. Do not end the format with a line
/// break.
///
/// Without a sink the line is written to standard error, with "error: " before it and a line break
/// after it:
///
///   logError("Failed to close archive: %s", "a.zip")
///     => error: Failed to close archive: a.zip
///   logError("Failed to close archive: %s", "a\nb\x1b.zip")
///     => error: Failed to close archive: a\nb\x1b.zip
///
/// Control characters are escaped, so that each line remains a single line: line breaks, carriage
/// returns and tabs as `\n`, `\r` and `\t`, other bytes below 0x20 and the byte 0x7f as `\xNN`. A
/// backslash and bytes from 0x80 on are not escaped.
///
/// - A line is written by one `fwrite`, without a lock of this library. If standard error is a pipe
///   that other processes write to as well, lines longer than PIPE_BUF may be mixed with theirs.
/// - Write errors are ignored. A pipe without a reader still raises SIGPIPE, which ends the process
///   unless the application handles or ignores it.
/// - If descriptor 2 is closed, the next file that the process opens may get that number, and lines
///   are then written into that file. A program that may be started with closed descriptors should
///   first open /dev/null on those among 0 to 2.
[[gnu::format(printf, 1, 2)]] void logError(const char* format, ...);

/// Same as `logError`, at level warning and with "warning: " before the line.
[[gnu::format(printf, 1, 2)]] void logWarning(const char* format, ...);

/// Passes all further lines to `sink`, or writes them to standard error if `sink` is empty. Returns
/// the previous sink, or an empty one if there was none.
///
/// Waits until no other thread is inside the previous sink, so that objects to which it refers may
/// be destroyed afterwards. Set the first sink before other threads call `fork`.
LogSink setLogSink(LogSink sink);

/// Returns a sink that writes to standard error, as `logError` and `logWarning` do without a sink.
/// Another sink can forward its lines to it:
///
///   setLogSink([forward = standardErrorSink()](LogLevel level, String line) {
///     forward(level, String("[app] ") + line);
///   });
///
/// Such a sink writes while the log holds its lock, so other threads that log wait for the write.
[[nodiscard]] LogSink standardErrorSink();

}  // namespace vx
