// What the commands of ksz show: names, progress and messages.

#pragma once

#include "core/vx_string.h"

#include <string>

#include <unistd.h>

namespace ksz {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitSignalBase = 128;

/// `text` fit to be shown: a name may hold line breaks and escape sequences.
[[nodiscard]] std::string printable(vx::String text);

/// Writes "ksz: `reason`: `name`" to standard error. @return `kExitFailure`.
[[nodiscard]] int fail(const char* reason, vx::String name);

/// Shows how far the work is: a bar that is redrawn on a terminal, one line a report elsewhere.
class Progress {
 public:
  void show(double fraction, vx::String file) const;

  /// Gives the line that the bar stands on to whoever writes next.
  void erase() const;

  void complete(vx::String file) const;

 private:
  const bool onTerminal_ = isatty(STDOUT_FILENO) != 0;
};

/// Passes the library's messages on to standard error while it lives, and counts them: a call that
/// succeeds may have left something out, and only the log says so.
class Messages {
 public:
  Messages();

  /// Keeps the messages clear of the bar of `progress`, which must live as long.
  explicit Messages(const Progress& progress);

  Messages(const Messages&) = delete;
  Messages& operator=(const Messages&) = delete;
  ~Messages();

  [[nodiscard]] bool none() const { return count_ == 0; }

 private:
  int count_ = 0;
};

}  // namespace ksz
