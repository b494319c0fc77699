// Tests that would spoil the process they run in: in a forked child.
//
//   runAsUnprivileged([&] { EXPECT_FALSE(vx::fs::mkDir(tmp.path("locked/x"))); });

#pragma once

#include <functional>

namespace vx::test {

/// How a child ended: `exitCode` when it did so itself, else the signal that killed it.
struct ChildEnd {
  bool wasKilled = false;
  int exitCode = 0;
  int signal = 0;
};

/// Runs `body` in a forked child. The child exits with 0, or with 1 when an assertion of `body` has
/// failed, which it prints. It is killed by SIGALRM when it takes longer than 60 seconds.
[[nodiscard]] ChildEnd endOfChild(const std::function<void()>& body);

/// As `endOfChild`; fails the running test unless the child exits with 0.
void runInChild(const std::function<void()>& body);

/// As `runInChild`, without the right to override permissions: where the test runs as root, the
/// child gives up root for good and becomes a user who owns nothing. The umask of a program that
/// calls this is 022 from the beginning.
void runAsUnprivileged(const std::function<void()>& body);

}  // namespace vx::test
