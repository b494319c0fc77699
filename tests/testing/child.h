// SPDX-License-Identifier: MIT
//
// Child processes: for functions that would change the test's own process, and other programs.
//
//   runAsUnprivileged([&] { EXPECT_FALSE(vx::fs::mkDir("locked/x")); });
//   EXPECT_EQ(runProgram({"unzip", "-t", "a.zip"}).exitCode, 0);

#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vx::test {

/// How a child ended.
struct ChildEnd {
  int exitCode = 0;   ///< -1 when a signal ended it; 127 when the program cannot be run
  int signal = 0;     ///< SIGALRM when it took longer than the time limit
  std::string out{};  ///< what a program has written to standard output
  std::string err{};  ///< and to standard error

  [[nodiscard]] bool wasKilled() const noexcept { return signal != 0; }
};

/// Runs `body` in a forked child. The child exits with 0, or with 1 if an assertion of `body` has
/// failed; it prints the failure.
[[nodiscard]] ChildEnd endOfChild(const std::function<void()>& body);

/// As `endOfChild`; fails the running test unless the child exits with 0.
void runInChild(const std::function<void()>& body);

/// As `runInChild`, without the right to override permissions: if the test runs as root, the child
/// becomes a user who owns nothing, and cannot become root again. The umask of a program that calls
/// this is 022 from the beginning.
void runAsUnprivileged(const std::function<void()>& body);

/// Runs another program in the current directory; the first word is looked up in PATH. Its input is
/// empty, and its outputs are no terminals.
[[nodiscard]] ChildEnd runProgram(const std::vector<std::string>& command,
                                  unsigned timeLimitSeconds = 60);

/// As `runProgram`, with input and both outputs on a terminal of its own; `out` is what it shows.
[[nodiscard]] ChildEnd runOnTerminal(const std::vector<std::string>& command,
                                     unsigned short columns = 80);

}  // namespace vx::test
