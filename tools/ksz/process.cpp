// SPDX-License-Identifier: MIT

#include "tools/ksz/process.h"

#include "tools/ksz/console.h"

#include <cstdio>
#include <cstdlib>

#include <sys/wait.h>
#include <unistd.h>

#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace ksz {
namespace {

bool isIgnored(int signal) {
  struct sigaction action = {};
  return sigaction(signal, nullptr, &action) != 0 || action.sa_handler == SIG_IGN;
}

/// Returns SIGCHLD and every signal that terminates a process by default, except for those in
/// `blocked` and ignored ones, such as SIGHUP under nohup.
sigset_t endingSignals(const sigset_t& blocked) {
  sigset_t signals;
  sigfillset(&signals);
  for (const int signal :
       {SIGKILL, SIGSTOP, SIGTSTP, SIGTTIN, SIGTTOU, SIGCONT, SIGURG, SIGWINCH}) {
    sigdelset(&signals, signal);
  }
#ifdef SIGINFO
  sigdelset(&signals, SIGINFO);
#endif
  for (int signal = 1; signal < NSIG; ++signal) {
    const bool leave = sigismember(&blocked, signal) == 1 || isIgnored(signal);
    if (signal != SIGCHLD && leave) {
      sigdelset(&signals, signal);
    }
  }
  return signals;
}

/// Makes the kernel kill this child when its parent dies, if the kernel supports it.
void endWithParent() {
#ifdef __linux__
  prctl(PR_SET_PDEATHSIG, SIGKILL);
#endif
}

}  // namespace

HeldSignals::HeldSignals() {
  std::signal(SIGCHLD, SIG_DFL);  // an ignored SIGCHLD would discard the child's exit status
  pthread_sigmask(SIG_SETMASK, nullptr, &before_);
  held_ = endingSignals(before_);
  pthread_sigmask(SIG_BLOCK, &held_, nullptr);
}

HeldSignals::~HeldSignals() {
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
}

WorkEnd HeldSignals::run(const std::function<int()>& work) const {
  std::fflush(nullptr);  // otherwise the child would write buffered output again
  const pid_t child = fork();
  if (child == -1) {
    std::perror("ksz: cannot start a process");
    return {.status = kExitFailure};
  }
  if (child == 0) {
    this->work(work);
  }
  return waitFor(child);
}

void HeldSignals::work(const std::function<int()>& work) const {
  endWithParent();
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  const int status = work();
  std::fflush(nullptr);
  _exit(status);
}

WorkEnd HeldSignals::waitFor(pid_t child) const {
  int status = 0;
  int signal = SIGCHLD;
  while (sigwait(&held_, &signal) == 0 && signal == SIGCHLD) {
    if (waitpid(child, &status, WNOHANG) == child) {  // a stopped child sends SIGCHLD too
      return WIFSIGNALED(status) ? WorkEnd{.signal = WTERMSIG(status)}
                                 : WorkEnd{.status = WEXITSTATUS(status)};
    }
  }
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  return {.signal = signal};
}

void HeldSignals::endBy(int signal) const {
  std::signal(signal, SIG_DFL);
  std::raise(signal);
  pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  std::_Exit(kExitSignalBase + signal);
}

}  // namespace ksz
