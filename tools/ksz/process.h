// SPDX-License-Identifier: MIT
//
// Work in a child process, so that the program can clean up however the work ends.

#pragma once

#include <csignal>
#include <functional>

#include <sys/types.h>

namespace ksz {

/// How the work ended: with an exit status, or with the signal that stopped it.
struct WorkEnd {
  int status = 0;
  int signal = 0;

  [[nodiscard]] bool isSuccess() const { return status == 0 && signal == 0; }
};

/// Delays every signal that would end the process while it lives. Only one thread may run.
class HeldSignals {
 public:
  HeldSignals();
  HeldSignals(const HeldSignals&) = delete;
  HeldSignals& operator=(const HeldSignals&) = delete;
  ~HeldSignals();

  /// Runs `work` in a child process, whose exit status is the result of `work`. Kills the child
  /// when a signal asks this process to end.
  [[nodiscard]] WorkEnd run(const std::function<int()>& work) const;

  /// Ends the process by `signal`, so that a shell sees what stopped it.
  [[noreturn]] void endBy(int signal) const;

 private:
  [[noreturn]] void work(const std::function<int()>& work) const;
  [[nodiscard]] WorkEnd waitFor(pid_t child) const;

  sigset_t before_ = {};
  sigset_t held_ = {};
};

}  // namespace ksz
