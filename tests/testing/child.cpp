#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdio>
#include <exception>
#include <system_error>

#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vx::test {
namespace {

constexpr unsigned kTimeLimitSeconds = 60;
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
  ChildEnd end;
  if (WIFSIGNALED(status)) {
    end.wasKilled = true;
    end.signal = WTERMSIG(status);
  } else {
    end.exitCode = WEXITSTATUS(status);
  }
  return end;
}

void dropRoot() {
  if (::geteuid() != 0) {
    return;
  }
  ASSERT_EQ(::setgroups(0, nullptr), 0);
  ASSERT_EQ(::setresgid(kNobody, kNobody, kNobody), 0);
  ASSERT_EQ(::setresuid(kNobody, kNobody, kNobody), 0);
}

}  // namespace

ChildEnd endOfChild(const std::function<void()>& body) {
  std::fflush(nullptr);  // what is still buffered would come out twice
  const pid_t child = ::fork();
  if (child == -1) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (child == 0) {
    runAndExit(body);
  }
  return waitFor(child);
}

void runInChild(const std::function<void()>& body) {
  const ChildEnd end = endOfChild(body);
  EXPECT_FALSE(end.wasKilled) << "the child was killed by signal " << end.signal;
  EXPECT_EQ(end.exitCode, 0) << "assertions have failed in the child";
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

}  // namespace vx::test
