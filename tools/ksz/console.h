// SPDX-License-Identifier: MIT
//
// Console output of ksz: names, progress and messages.

#pragma once

#include "core/vx_string.h"

#include <string>

#include <unistd.h>

namespace ksz {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitSignalBase = 128;

/// Converts `value` to the library's string type.
[[nodiscard]] vx::String text(const std::string& value);

/// Returns `text` with every control character replaced by "?", because names may contain line
/// breaks and escape sequences.
[[nodiscard]] std::string printable(vx::String text);

/// Writes "ksz: `reason`: `name`" to standard error.
void complain(const char* reason, vx::String name);

/// As `complain`. @return `kExitFailure`.
[[nodiscard]] int fail(const char* reason, vx::String name);

/// Opens /dev/null for each of the three standard streams that is closed, so that no file takes its
/// descriptor.
void openClosedStreams();

/// Flushes standard output.
/// @return `status`, or `kExitFailure` if standard output could not be written.
[[nodiscard]] int finishOutput(int status);

/// Shows progress on standard error: a bar on a terminal, otherwise a line for each report.
class Progress {
 public:
  explicit Progress(bool quiet) : quiet_(quiet) {}

  void show(double fraction, vx::String file) const;

  /// Erases the bar, so that a message can be written to its line.
  void erase() const;

  void complete(vx::String file) const;

 private:
  const bool quiet_;
  const bool onTerminal_ = isatty(STDERR_FILENO) != 0;
};

/// Forwards the library's messages to standard error during its lifetime and counts them, because
/// some calls report a skipped file only in the log.
class Messages {
 public:
  Messages();

  /// Replaces the path `from` with `to` in every message.
  Messages(vx::String from, vx::String to);

  /// Also erases the bar of `progress` before each message. `progress` must outlive this object.
  Messages(const Progress& progress, vx::String from, vx::String to);

  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;
  ~Messages();

  [[nodiscard]] bool none() const { return count_ == 0; }

 private:
  int count_ = 0;
};

}  // namespace ksz
