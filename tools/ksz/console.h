// SPDX-License-Identifier: MIT
//
// What the commands of ksz show: names, progress and messages.

#pragma once

#include "core/vx_string.h"

#include <string>

#include <unistd.h>

namespace ksz {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitSignalBase = 128;

/// `value` in the library's type.
[[nodiscard]] vx::String text(const std::string& value);

/// `text` with "?" in place of every control character: a name may contain line breaks and escape
/// sequences.
[[nodiscard]] std::string printable(vx::String text);

/// Writes "ksz: `reason`: `name`" to standard error.
void complain(const char* reason, vx::String name);

/// As `complain`. @return `kExitFailure`.
[[nodiscard]] int fail(const char* reason, vx::String name);

/// Opens /dev/null for each of the three standard streams that is closed, so that no file takes its
/// descriptor.
void openClosedStreams();

/// Writes out what is buffered. @return `status`, or `kExitFailure` when standard output could not
/// be
///   written.
[[nodiscard]] int finishOutput(int status);

/// Shows progress on standard error: a bar that is redrawn on a terminal, one line for each report
/// elsewhere.
class Progress {
 public:
  explicit Progress(bool quiet) : quiet_(quiet) {}

  void show(double fraction, vx::String file) const;

  /// Removes the bar, so that a message can be written in its line.
  void erase() const;

  void complete(vx::String file) const;

 private:
  const bool quiet_;
  const bool onTerminal_ = isatty(STDERR_FILENO) != 0;
};

/// Passes the library's messages on to standard error while it exists, and counts them: some calls
/// report a file that was left out only in the log.
class Messages {
 public:
  Messages();

  /// Replaces the path `from` by `to` in every message.
  Messages(vx::String from, vx::String to);

  /// Erases the bar of `progress`, which must live as long, before each message.
  Messages(const Progress& progress, vx::String from, vx::String to);

  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;
  ~Messages();

  [[nodiscard]] bool none() const { return count_ == 0; }

 private:
  int count_ = 0;
};

}  // namespace ksz
