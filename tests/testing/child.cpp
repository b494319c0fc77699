// SPDX-License-Identifier: MIT

#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <exception>
#include <memory>
#include <system_error>

#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <pty.h>
#include <sys/ioctl.h>
#endif

namespace vx::test {
namespace {

constexpr unsigned kTimeLimitSeconds = 60;
constexpr int kCannotRun = 127;
constexpr unsigned kNobody = 65534;

/// What another user may do with a test's files does not depend on who runs the tests.
[[maybe_unused]] const mode_t inheritedUmask = ::umask(022);

int failedAssertions() {
  const testing::TestInfo* const test = testing::UnitTest::GetInstance()->current_test_info();
  int failed = 0;
  for (int i = 0; test != nullptr && i < test->result()->total_part_count(); ++i) {
    failed += test->result()->GetTestPartResult(i).failed() ? 1 : 0;
  }
  return failed;
}

[[noreturn]] void runAndExit(const std::function<void()>& body) {
  ::alarm(kTimeLimitSeconds);
  const int failedBefore = failedAssertions();
  try {
    body();
  } catch (const std::exception& exception) {
    ADD_FAILURE() << "thrown in the child: " << exception.what();
  }
  const bool hasFailed = failedAssertions() > failedBefore;
  std::fflush(nullptr);
  // Not exit: the rest of the program, from fixtures to leak reports, belongs to the parent.
  ::_exit(hasFailed ? 1 : 0);
}

ChildEnd waitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "waitpid");
    }
  }
  if (WIFSIGNALED(status)) {
    return {.exitCode = -1, .signal = WTERMSIG(status)};
  }
  return {.exitCode = WEXITSTATUS(status)};
}

void dropRoot() {
  if (::geteuid() != 0) {
    return;
  }
  ASSERT_EQ(::setgroups(0, nullptr), 0);
  ASSERT_EQ(::setgid(kNobody), 0);
  ASSERT_EQ(::setuid(kNobody), 0);
}

pid_t forkChild() {
  std::fflush(nullptr);  // what is still buffered would come out twice
  const pid_t child = ::fork();
  if (child == -1) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  return child;
}

[[noreturn]] void become(std::vector<std::string> command, unsigned timeLimitSeconds) {
  std::vector<char*> words;
  for (std::string& word : command) {
    words.push_back(word.data());
  }
  words.push_back(nullptr);
  ::alarm(timeLimitSeconds);
  ::execvp(words[0], words.data());
  ::_exit(kCannotRun);
}

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> chunk{};
  ssize_t count = 0;
  // A terminal whose other side has gone gives an error in place of the end.
  while ((count = ::read(descriptor, chunk.data(), chunk.size())) > 0) {
    text.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return text;
}

}  // namespace

ChildEnd endOfChild(const std::function<void()>& body) {
  const pid_t child = forkChild();
  if (child == 0) {
    runAndExit(body);
  }
  return waitFor(child);
}

void runInChild(const std::function<void()>& body) {
  const ChildEnd end = endOfChild(body);
  EXPECT_EQ(end.exitCode, 0) << (end.wasKilled() ? "the child was killed by signal " +
                                                       std::to_string(end.signal)
                                                 : "assertions have failed in the child");
}

void runAsUnprivileged(const std::function<void()>& body) {
  runInChild([&body] {
    dropRoot();
    if (testing::Test::HasFatalFailure()) {
      return;
    }
    body();
  });
}

ChildEnd runProgram(const std::vector<std::string>& command, unsigned timeLimitSeconds) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> out(std::tmpfile(), &std::fclose);
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> err(std::tmpfile(), &std::fclose);
  if (out == nullptr || err == nullptr) {
    throw std::system_error(errno, std::generic_category(), "tmpfile");
  }
  const pid_t child = forkChild();
  if (child == 0) {
    ::dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
    ::dup2(::fileno(out.get()), STDOUT_FILENO);
    ::dup2(::fileno(err.get()), STDERR_FILENO);
    become(command, timeLimitSeconds);
  }
  ChildEnd end = waitFor(child);
  std::rewind(out.get());
  std::rewind(err.get());
  end.out = readAll(::fileno(out.get()));
  end.err = readAll(::fileno(err.get()));
  return end;
}

#ifdef __linux__
ChildEnd runOnTerminal(const std::vector<std::string>& command, unsigned short columns) {
  std::fflush(nullptr);
  const winsize size = {.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
  int terminal = -1;
  const pid_t child = ::forkpty(&terminal, nullptr, nullptr, &size);
  if (child == -1) {
    throw std::system_error(errno, std::generic_category(), "forkpty");
  }
  if (child == 0) {
    become(command, kTimeLimitSeconds);
  }
  const std::string shown = readAll(terminal);
  ChildEnd end = waitFor(child);
  ::close(terminal);
  end.out = shown;
  return end;
}
#endif

}  // namespace vx::test
