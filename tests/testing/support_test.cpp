// Concern: that the helpers of the tests do what the tests rely on, a failure above all.

#include "core/vx_error.h"
#include "core/vx_log.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <system_error>

#include <unistd.h>

namespace {

namespace fs = std::filesystem;

using vx::test::ChildEnd;
using vx::test::currentErrorIs;
using vx::test::endOfChild;
using vx::test::ErrorStateSentinel;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::runAsUnprivileged;
using vx::test::runInChild;
using vx::test::ScopedCurrentDir;
using vx::test::ScopedEnv;
using vx::test::TempDir;

TEST(TempDir, IsFreshEmptyAndCanonical) {
  const TempDir first;
  const TempDir second;

  EXPECT_NE(first.path(), second.path());
  EXPECT_EQ(fs::canonical(first.path()).string(), first.path());
  EXPECT_EQ(first.path("x/y"), first.path() + "/x/y");
  EXPECT_EQ(first.entries(), lines());
}

TEST(TempDir, IsCanonicalBehindALink) {
  const TempDir tmp;
  tmp.mkdir("real");
  const ScopedEnv behindALink("TMPDIR", tmp.link("link", "real"));

  const TempDir inside;

  EXPECT_TRUE(inside.path().starts_with(tmp.path("real/")));
}

TEST(TempDir, ListsWhatIsPutIntoIt) {
  const TempDir tmp;

  EXPECT_EQ(tmp.write("a/b.txt", std::string("x\0y", 3)), tmp.path("a/b.txt"));
  EXPECT_EQ(tmp.mkdir("c/d"), tmp.path("c/d"));
  EXPECT_EQ(tmp.link("c/link", "../a"), tmp.path("c/link"));

  EXPECT_EQ(tmp.entries(), lines("a/", "a/b.txt", "c/", "c/d/", "c/link"));
  EXPECT_EQ(tmp.read("a/b.txt"), std::string("x\0y", 3));
  EXPECT_TRUE(tmp.exists("c/link"));
  EXPECT_FALSE(tmp.exists("missing"));
  EXPECT_THROW(static_cast<void>(tmp.read("missing")), std::runtime_error);
}

TEST(TempDir, GoesWithEverythingInIt) {
  std::string path;
  {
    const TempDir tmp;
    path = tmp.path();
    tmp.write("a/b/c.txt", "text");
    tmp.link("up", "..");
    tmp.link("dangling", "missing");
  }
  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(fs::exists(fs::path(path).parent_path()));
}

TEST(TempDir, GoesWithUnreadableDirectoriesInIt) {
  const TempDir outer;
  fs::permissions(outer.path(), fs::perms::all);

  runAsUnprivileged([&] {
    const ScopedEnv below("TMPDIR", outer.path());
    {
      const TempDir tmp;
      tmp.write("locked/inner/file", "text");
      fs::permissions(tmp.path("locked/inner"), fs::perms::none);
      fs::permissions(tmp.path("locked"), fs::perms::none);
    }
    EXPECT_EQ(outer.entries(), lines());
  });
}

TEST(ScopedEnv, RestoresAVariable) {
  const ScopedEnv outer("VX_TEST_VARIABLE", "outer");
  {
    const ScopedEnv inner("VX_TEST_VARIABLE", "inner");
    EXPECT_STREQ(std::getenv("VX_TEST_VARIABLE"), "inner");
  }
  EXPECT_STREQ(std::getenv("VX_TEST_VARIABLE"), "outer");
  {
    const ScopedEnv inner("VX_TEST_VARIABLE", nullptr);
    EXPECT_EQ(std::getenv("VX_TEST_VARIABLE"), nullptr);
  }
  EXPECT_STREQ(std::getenv("VX_TEST_VARIABLE"), "outer");
}

TEST(ScopedEnv, UnsetsAVariableThatWasNotSet) {
  const ScopedEnv outer("VX_TEST_VARIABLE", nullptr);
  { const ScopedEnv inner("VX_TEST_VARIABLE", "inner"); }

  EXPECT_EQ(std::getenv("VX_TEST_VARIABLE"), nullptr);
}

TEST(ScopedCurrentDir, RestoresTheCurrentDirectory) {
  const TempDir tmp;
  const fs::path before = fs::current_path();
  {
    const ScopedCurrentDir inside(tmp.path());
    EXPECT_EQ(fs::current_path().string(), tmp.path());
    fs::remove(tmp.path());
  }
  EXPECT_EQ(fs::current_path(), before);
}

TEST(ScopedCurrentDir, RefusesADirectoryThatIsMissing) {
  const fs::path before = fs::current_path();

  EXPECT_THROW(ScopedCurrentDir("/no such entry"), std::system_error);

  EXPECT_EQ(fs::current_path(), before);
}

TEST(LogCapture, KeepsTheLinesByLevelAndInOrder) {
  const LogCapture log;

  vx::logError("first");
  vx::logWarning("second");
  vx::logError("third");

  EXPECT_EQ(log.errors(), lines("first", "third"));
  EXPECT_EQ(log.warnings(), lines("second"));
  EXPECT_EQ(log.all(), lines("error: first", "warning: second", "error: third"));
}

TEST(LogCapture, GivesTheLogBackToTheOneBefore) {
  const LogCapture outer;
  {
    const LogCapture inner;
    vx::logError("inner");
    EXPECT_EQ(inner.all(), lines("error: inner"));
  }
  vx::logError("outer");

  EXPECT_EQ(outer.all(), lines("error: outer"));
}

TEST(ErrorStateSentinel, SeesEveryChange) {
  const ErrorStateSentinel sentinel;
  EXPECT_TRUE(sentinel.isUntouched());
  const long long code = vx::os::currentErrorCode();
  const vx::String context = vx::os::currentErrorContext();
  const vx::String message = vx::os::currentErrorMessage();

  vx::os::setCurrentError(code + 1, context, message);
  EXPECT_FALSE(sentinel.isUntouched());
  vx::os::setCurrentError(code, context + "x", message);
  EXPECT_FALSE(sentinel.isUntouched());
  vx::os::setCurrentError(code, context, message + "x");
  EXPECT_FALSE(sentinel.isUntouched());
  vx::os::clearCurrentError();
  EXPECT_FALSE(sentinel.isUntouched());
  vx::os::setCurrentError(code, context, message);
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ErrorStateSentinel, LeavesNoErrorBehind) {
  { const ErrorStateSentinel sentinel; }

  EXPECT_TRUE(currentErrorIs(0, "", ""));
}

TEST(Child, EndsWellWhenItsAssertionsHold) {
  const ChildEnd end = endOfChild([] { EXPECT_TRUE(true); });

  EXPECT_FALSE(end.wasKilled);
  EXPECT_EQ(end.exitCode, 0);
}

TEST(Child, EndsBadlyWhenAnAssertionFailsInIt) {
  EXPECT_EQ(endOfChild([] { ADD_FAILURE() << "on purpose, in a child"; }).exitCode, 1);
  EXPECT_EQ(endOfChild([] { FAIL() << "on purpose, in a child"; }).exitCode, 1);
  EXPECT_EQ(endOfChild([] { throw std::runtime_error("on purpose"); }).exitCode, 1);
}

TEST(Child, TellsWhatEndedIt) {
  const ChildEnd killed = endOfChild([] { ::raise(SIGKILL); });
  const ChildEnd left = endOfChild([] { ::_exit(3); });

  EXPECT_TRUE(killed.wasKilled);
  EXPECT_EQ(killed.signal, SIGKILL);
  EXPECT_FALSE(left.wasKilled);
  EXPECT_EQ(left.exitCode, 3);
}

TEST(Child, FailsTheTestWithABadEnd) {
  EXPECT_NONFATAL_FAILURE(runInChild([] { ::_exit(1); }), "assertions have failed in the child");
  EXPECT_NONFATAL_FAILURE(runInChild([] { ::raise(SIGKILL); }), "killed by signal 9");
  EXPECT_NONFATAL_FAILURE(runAsUnprivileged([] { ::_exit(1); }), "assertions have failed");
}

TEST(Child, LeavesTheParentAsItIs) {
  const fs::path before = fs::current_path();
  int value = 1;

  runInChild([&] {
    value = 2;
    ASSERT_EQ(::chdir("/"), 0);
  });

  EXPECT_EQ(value, 1);
  EXPECT_EQ(fs::current_path(), before);
}

TEST(Child, HasNoRightToOverridePermissionsWhenItIsUnprivileged) {
  const TempDir tmp;
  tmp.write("locked/file", "text");
  fs::permissions(tmp.path("locked"), fs::perms::none);

  runAsUnprivileged([&] {
    EXPECT_NE(::geteuid(), 0U);
    EXPECT_EQ(::access(tmp.path("locked").c_str(), F_OK), 0);
    EXPECT_EQ(::access(tmp.path("locked/file").c_str(), F_OK), -1);
    EXPECT_EQ(::setuid(0), -1);
  });
}

}  // namespace
