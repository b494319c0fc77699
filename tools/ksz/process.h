// SPDX-License-Identifier: MIT
//
// Runs work in a child process, so that the program can clean up after a signal or a crash.

#pragma once

#include <csignal>
#include <functional>

#include <sys/types.h>

namespace ksz {

/// The result of the work: an exit status, or the signal that terminated it.
struct WorkEnd {
  int status = 0;
  int signal = 0;

  [[nodiscard]] bool isSuccess() const { return status == 0 && signal == 0; }
};

/// Blocks every signal that would terminate the process. The process must be single-threaded.
class HeldSignals {
 public:
  HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  ~HeldSignals();

  /// Runs `work` in a child process that exits with the result of `work`. Kills the child if this
  /// process receives a blocked signal.
  [[nodiscard]] WorkEnd run(const std::function<int()>& work) const;

  /// Terminates the process by `signal`, so that a shell reports it.
  [[noreturn]] void endBy(int signal) const;

 private:
  [[noreturn]] void work(const std::function<int()>& work) const;
  [[nodiscard]] WorkEnd waitFor(pid_t child) const;

  sigset_t before_ = {};
  sigset_t held_ = {};
};

}  // namespace ksz
