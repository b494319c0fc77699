// SPDX-License-Identifier: MIT
//
// The log: formatted lines at two levels, written to standard error or passed to the application's
// sink.
//
// Logging does not change what the operation that logs does: the current error (vx_error.h) and
// `errno` are the same after it, and an exception that a sink throws is dropped. The only exception
// that a call lets through is std::bad_alloc. With libstdc++, a thread may be cancelled inside a
// sink.
//
// Thread safety: every function may be called from any thread. Lines of different threads never
// mix. Any thread may call `fork`, except from inside a sink, and the child may log and set sinks.

#pragma once

#include "core/vx_string.h"

#include <functional>

namespace vx {

/// The severity of a line.
enum class LogLevel {
  Warning,  ///< something was missing, and a replacement was used
  Error     ///< an operation, or a part of it, failed
};

/// Returns "error" or "warning".
[[nodiscard]] const char* levelName(LogLevel level) noexcept;

/// Receives one line, without a prefix and without a line break at its end.
///
/// The line is not escaped: a file name in it may hold line breaks, escape sequences and invalid
/// UTF-8.
///
/// A sink runs on the thread that logs, one thread at a time, while the log holds a lock. It may
/// call anything in this library, `setLogSink` included; lines that are logged from inside a sink
/// go to standard error. It must not wait for a thread that may log, set a sink or call `fork`, and
/// must not call `fork` itself.
using LogSink = std::function<void(LogLevel level, String line)>;

/// Formats like `printf` and logs one line at level error. The format has no line break at its end.
///
/// Without a sink the line is written to standard error, with "error: " before it and a line break
/// after it:
///
///   logError("Failed to close archive: %s", "a.zip")
///     => error: Failed to close archive: a.zip
///   logError("Failed to close archive: %s", "a\nb\x1b.zip")
///     => error: Failed to close archive: a\nb\x1b.zip
///
/// Control characters are escaped, so that each line is one line: `\n`, `\r` and `\t` as such,
/// other bytes below 0x20 and the byte 0x7f as `\xNN`. A backslash and bytes from 0x80 on are not
/// escaped.
///
/// - A line is written by one `fwrite`, without a lock of this library. If standard error is a pipe
///   that other processes write to as well, lines longer than PIPE_BUF may mix with theirs.
/// - A failure to write is ignored. A pipe without a reader still raises SIGPIPE, which ends the
///   process unless the application handles or ignores it.
/// - If descriptor 2 is closed, the next file that the process opens may get that number, and lines
///   are then written into that file. A program that may be started that way should open /dev/null
///   on the closed descriptors 0 to 2 first.
[[gnu::format(printf, 1, 2)]] void logError(const char* format, ...);

/// Like `logError`, at level warning and with "warning: " before the line.
[[gnu::format(printf, 1, 2)]] void logWarning(const char* format, ...);

/// Passes all further lines to `sink`, or writes them to standard error again if `sink` is empty.
/// Returns the former sink, which is empty for standard error.
///
/// Waits until no other thread is inside the former sink, so that the objects that it refers to may
/// be destroyed afterwards. Set the first sink before other threads call `fork`.
LogSink setLogSink(LogSink sink);

/// Returns a sink that writes to standard error as `logError` and `logWarning` do without a sink,
/// for a sink that forwards its lines:
///
///   setLogSink([forward = standardErrorSink()](LogLevel level, String line) {
///     forward(level, String("[app] ") + line);
///   });
///
/// A sink that forwards to it writes while the log holds its lock: other threads that log wait for
/// the write.
[[nodiscard]] LogSink standardErrorSink();

}  // namespace vx
