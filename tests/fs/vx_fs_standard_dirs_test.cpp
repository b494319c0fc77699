// Concern: the chains of fall-backs of the current, home and temporary directories, link by link:
// which candidate is taken, what is said about those that are not, and how often each is asked for.

#include "core/vx_string.h"
#include "fs/vx_fs.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/changed_root.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <type_traits>
#include <vector>

#include <unistd.h>

namespace {

using vx::String;
using vx::test::canChangeRoot;
using vx::test::ErrorStateSentinel;
using vx::test::kCannotChangeRoot;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::RecordedCalls;
using vx::test::runAsUnprivileged;
using vx::test::runInRoot;
using vx::test::ScopedCurrentDir;
using vx::test::ScopedEnv;
using vx::test::TempDir;
using vx::test::text;

static_assert(std::is_same_v<decltype(&vx::fs::getCurrentDir), bool (*)(String&)>);
static_assert(std::is_same_v<decltype(&vx::fs::getHomeDir), bool (*)(String&)>);
static_assert(std::is_same_v<decltype(&vx::fs::getTempDir), bool (*)(String&)>);
static_assert(std::is_same_v<decltype(&vx::fs::currentDir), String (*)()>);
static_assert(std::is_same_v<decltype(&vx::fs::homeDir), String (*)()>);
static_assert(std::is_same_v<decltype(&vx::fs::tempDir), String (*)()>);

constexpr const char* kStale = "the text before";

// What the lines quote of the sentinel's record.
constexpr const char* kNoHome = "warning: Failed to find home dir: the sentinel's message";
constexpr const char* kNoTemp =
    "warning: Failed to find temp dir, using current dir (the sentinel's message).";
constexpr const char* kNeither =
    "error: Failed to find both temp and current directories (the sentinel's message).";

/// Removes the directory under the feet of the process for the length of a scope.
class RemovedCurrentDir {
 public:
  RemovedCurrentDir() : inside_(tmp_.mkdir("removed")) {
    std::filesystem::remove(tmp_.path("removed"));
  }

 private:
  TempDir tmp_;
  ScopedCurrentDir inside_;
};

// ---- The current directory ---------------------------------------------------------------------

TEST(GetCurrentDir, IsTheCurrentDirectory) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.mkdir("work"));
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_TRUE(vx::fs::getCurrentDir(out));

  EXPECT_EQ(text(out), tmp.path("work"));
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(GetCurrentDir, IsWhereALinkLeads) {
  const TempDir tmp;
  tmp.mkdir("work");
  const ScopedCurrentDir inside(tmp.link("link", "work"));
  const ScopedEnv shellsOpinion("PWD", tmp.path("link"));
  String out;

  EXPECT_TRUE(vx::fs::getCurrentDir(out));

  EXPECT_EQ(text(out), tmp.path("work"));
}

TEST(GetCurrentDir, IsADotWhereItHasBeenRemoved) {
  const RemovedCurrentDir removed;
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_FALSE(vx::fs::getCurrentDir(out));

  EXPECT_EQ(text(out), ".");
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(GetCurrentDir, IsADotWhereItsNameCannotBeRead) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  const LogCapture log;
  RecordedCalls calls;
  calls.fail("getcwd", EACCES);
  calls.fail("realpath .", EACCES);
  String out = kStale;

  EXPECT_TRUE(vx::fs::getCurrentDir(out));

  EXPECT_EQ(text(out), ".");
  EXPECT_EQ(log.all(), lines());
}

TEST(GetCurrentDir, IsAskedAnewInEachCall) {
  const TempDir tmp;
  String out;
  {
    const ScopedCurrentDir inside(tmp.mkdir("first"));
    EXPECT_TRUE(vx::fs::getCurrentDir(out));
    EXPECT_EQ(text(out), tmp.path("first"));
  }
  const ScopedCurrentDir inside(tmp.mkdir("second"));

  EXPECT_TRUE(vx::fs::getCurrentDir(out));

  EXPECT_EQ(text(out), tmp.path("second"));
}

TEST(GetCurrentDir, ChangesNoOtherHandleToTheTextBefore) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  const String before = kStale;
  String out = before;

  EXPECT_TRUE(vx::fs::getCurrentDir(out));

  EXPECT_EQ(text(before), kStale);
}

TEST(CurrentDir, IsTheCurrentDirectory) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::currentDir()), tmp.path());

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(CurrentDir, IsADotWhereItHasBeenRemoved) {
  const RemovedCurrentDir removed;
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::currentDir()), ".");

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(CurrentDir, IsAskedForOnce) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  RecordedCalls calls;
  calls.failOnce("getcwd", ENOENT);

  EXPECT_EQ(text(vx::fs::currentDir()), ".");

  EXPECT_EQ(calls.all(), lines("stat .", "getcwd"));
}

// ---- The home directory ------------------------------------------------------------------------

TEST(GetHomeDir, IsTheDirectoryNamedByHome) {
  const TempDir tmp;
  const ScopedEnv home("HOME", tmp.mkdir("home"));
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_TRUE(vx::fs::getHomeDir(out));

  EXPECT_EQ(text(out), tmp.path("home"));
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

/// Spellings of the directory "home" beside the current directory "room".
class SpellingOfHome : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(, SpellingOfHome,
                         testing::Values("TMP/home/", "TMP/home///", "TMP//./home", "TMP/link",
                                         "TMP/link/", "TMP/links/up", "TMP/missing/../home",
                                         "../home", "../link/", "../room/../home/."));

TEST_P(SpellingOfHome, GivesItsCanonicalForm) {
  const TempDir tmp;
  tmp.mkdir("home");
  tmp.link("link", "home");
  tmp.link("links/up", "../link");
  const ScopedCurrentDir inside(tmp.mkdir("room"));
  std::string spelling = GetParam();
  if (spelling.starts_with("TMP")) {
    spelling.replace(0, 3, tmp.path());
  }
  const ScopedEnv home("HOME", spelling);
  const LogCapture log;
  String out;

  EXPECT_TRUE(vx::fs::getHomeDir(out));

  EXPECT_EQ(text(out), tmp.path("home"));
  EXPECT_EQ(log.all(), lines());
}

TEST(GetHomeDir, TakesADotForTheCurrentDirectoryWithoutAWarning) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  const ScopedEnv home("HOME", ".");
  const LogCapture log;
  String out;

  EXPECT_TRUE(vx::fs::getHomeDir(out));

  EXPECT_EQ(text(out), tmp.path());
  EXPECT_EQ(log.all(), lines());
}

/// Values of HOME that name no directory; null where it is not set.
class NoHome : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(, NoHome,
                         testing::Values(nullptr, "", "missing", "missing/", "file", "file/",
                                         "file/x", "dangling", "loop", "link to file", " home",
                                         "/dev/null", "~", "$HOME"));

TEST_P(NoHome, GivesTheCurrentDirectoryWithAWarning) {
  const TempDir tmp;
  tmp.mkdir("home");
  tmp.write("file", "");
  tmp.link("dangling", "nowhere");
  tmp.link("loop", "loop");
  tmp.link("link to file", "file");
  const ScopedCurrentDir inside(tmp.path());
  const ScopedEnv home("HOME", GetParam());
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_TRUE(vx::fs::getHomeDir(out));

  EXPECT_EQ(text(out), tmp.path());
  EXPECT_EQ(log.all(), lines(kNoHome));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(GetHomeDir, QuotesNothingWhereThereIsNoCurrentError) {
  const ScopedEnv home("HOME", nullptr);
  const LogCapture log;
  String out;

  EXPECT_TRUE(vx::fs::getHomeDir(out));

  EXPECT_EQ(log.all(), lines("warning: Failed to find home dir: "));
}

TEST(GetHomeDir, IsADotWhereTheCurrentDirectoryHasBeenRemovedToo) {
  const RemovedCurrentDir removed;
  const ScopedEnv home("HOME", nullptr);
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_FALSE(vx::fs::getHomeDir(out));

  EXPECT_EQ(text(out), ".");
  EXPECT_EQ(log.all(), lines(kNoHome));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(GetHomeDir, DoesNotTakeADotForTheRemovedCurrentDirectory) {
  const RemovedCurrentDir removed;
  const ScopedEnv home("HOME", ".");
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_FALSE(vx::fs::getHomeDir(out));

  EXPECT_EQ(text(out), ".");
  EXPECT_EQ(log.all(), lines(kNoHome));
}

TEST(GetHomeDir, DoesNotNeedTheCurrentDirectory) {
  const TempDir tmp;
  const RemovedCurrentDir removed;
  const ScopedEnv home("HOME", tmp.path());
  const LogCapture log;
  String out;

  EXPECT_TRUE(vx::fs::getHomeDir(out));

  EXPECT_EQ(text(out), tmp.path());
  EXPECT_EQ(log.all(), lines());
}

TEST(GetHomeDir, TakesADirectoryThatMayNotBeExaminedForNone) {
  const TempDir tmp;
  const ScopedEnv home("HOME", tmp.mkdir("locked/home"));
  std::filesystem::permissions(tmp.path("locked"), std::filesystem::perms::none);

  runAsUnprivileged([&] {
    const ScopedCurrentDir inside("/");
    const ErrorStateSentinel sentinel;
    const LogCapture log;
    String out = kStale;

    EXPECT_TRUE(vx::fs::getHomeDir(out));

    EXPECT_EQ(text(out), "/");
    EXPECT_EQ(log.all(), lines(kNoHome));
    EXPECT_TRUE(sentinel.isUntouched());
  });
}

TEST(GetHomeDir, ReadsTheEnvironmentInEachCall) {
  const TempDir tmp;
  String out;
  {
    const ScopedEnv home("HOME", tmp.mkdir("first"));
    EXPECT_TRUE(vx::fs::getHomeDir(out));
    EXPECT_EQ(text(out), tmp.path("first"));
  }
  const ScopedEnv home("HOME", tmp.mkdir("second"));

  EXPECT_TRUE(vx::fs::getHomeDir(out));

  EXPECT_EQ(text(out), tmp.path("second"));
}

TEST(HomeDir, IsTheDirectoryNamedByHome) {
  const TempDir tmp;
  const ScopedEnv home("HOME", tmp.path() + '/');
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::homeDir()), tmp.path());

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(HomeDir, IsTheCurrentDirectoryWhereHomeNamesNone) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  const ScopedEnv home("HOME", tmp.write("file", ""));
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::homeDir()), tmp.path());

  EXPECT_EQ(log.all(), lines(kNoHome));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(HomeDir, IsADotWhereTheCurrentDirectoryHasBeenRemovedToo) {
  const RemovedCurrentDir removed;
  const ScopedEnv home("HOME", nullptr);
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::homeDir()), ".");

  EXPECT_EQ(log.all(), lines(kNoHome));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(HomeDir, AsksForTheCurrentDirectoryASecondTime) {
  const RemovedCurrentDir removed;
  const ScopedEnv home("HOME", nullptr);
  const LogCapture log;
  RecordedCalls calls;

  EXPECT_EQ(text(vx::fs::homeDir()), ".");

  EXPECT_EQ(calls.count("stat ."), 2U);
}

TEST(HomeDir, TakesTheCurrentDirectoryThatOnlyTheSecondQuestionFinds) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  const ScopedEnv home("HOME", nullptr);
  const LogCapture log;
  RecordedCalls calls;
  calls.failOnce("getcwd", ENOENT);

  EXPECT_EQ(text(vx::fs::homeDir()), tmp.path());

  EXPECT_EQ(log.warnings().size(), 1U);
}

TEST(HomeDir, AsksForTheCurrentDirectoryOnceWhereItIsFound) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  const ScopedEnv home("HOME", nullptr);
  const LogCapture log;
  RecordedCalls calls;

  EXPECT_EQ(text(vx::fs::homeDir()), tmp.path());

  EXPECT_EQ(calls.all(), lines("stat .", "getcwd", "realpath ."));
}

// ---- The temporary directory -------------------------------------------------------------------

TEST(GetTempDir, IsTheDirectoryNamedByTmpdir) {
  const TempDir tmp;
  const ScopedEnv named("TMPDIR", tmp.mkdir("scratch"));
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_TRUE(vx::fs::getTempDir(out));

  EXPECT_EQ(text(out), tmp.path("scratch"));
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

/// Spellings of the directory "scratch" beside the current directory "work".
class SpellingOfTmpdir : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(, SpellingOfTmpdir,
                         testing::Values("TMP/scratch/", "TMP//./scratch//", "TMP/link",
                                         "TMP/link/", "TMP/links/up", "TMP/missing/../scratch",
                                         "../scratch", "../link/"));

TEST_P(SpellingOfTmpdir, GivesItsCanonicalForm) {
  const TempDir tmp;
  tmp.mkdir("scratch");
  tmp.link("link", "scratch");
  tmp.link("links/up", "../link");
  const ScopedCurrentDir inside(tmp.mkdir("work"));
  std::string spelling = GetParam();
  if (spelling.starts_with("TMP")) {
    spelling.replace(0, 3, tmp.path());
  }
  const ScopedEnv named("TMPDIR", spelling);
  const LogCapture log;
  String out;

  EXPECT_TRUE(vx::fs::getTempDir(out));

  EXPECT_EQ(text(out), tmp.path("scratch"));
  EXPECT_EQ(log.all(), lines());
}

/// Values of TMPDIR that name no directory; null where it is not set.
class NoTmpdir : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(, NoTmpdir,
                         testing::Values(nullptr, "", "missing", "file", "file/", "dangling",
                                         "loop"));

TEST_P(NoTmpdir, GivesVarTmpWithoutAWord) {
  const TempDir tmp;
  tmp.write("file", "");
  tmp.link("dangling", "nowhere");
  tmp.link("loop", "loop");
  const ScopedCurrentDir inside(tmp.path());
  const ScopedEnv named("TMPDIR", GetParam());
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_TRUE(vx::fs::getTempDir(out));

  EXPECT_EQ(text(out), std::filesystem::canonical("/var/tmp").string());
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(GetTempDir, AsksForVarTmpAndThenForTmp) {
  const ScopedEnv named("TMPDIR", "/no such dir");
  RecordedCalls calls;
  calls.fail("stat /var/tmp", ENOENT);
  String out;

  EXPECT_TRUE(vx::fs::getTempDir(out));

  const std::string canonical = std::filesystem::canonical("/tmp").string();
  EXPECT_EQ(text(out), canonical);
  EXPECT_EQ(calls.all(), lines("stat /no such dir", "stat /var/tmp", "realpath /tmp",
                               "stat " + canonical, "realpath " + canonical));
}

TEST(GetTempDir, ReadsTheEnvironmentInEachCall) {
  const TempDir tmp;
  String out;
  {
    const ScopedEnv named("TMPDIR", tmp.mkdir("first"));
    EXPECT_TRUE(vx::fs::getTempDir(out));
    EXPECT_EQ(text(out), tmp.path("first"));
  }
  const ScopedEnv named("TMPDIR", tmp.mkdir("second"));

  EXPECT_TRUE(vx::fs::getTempDir(out));

  EXPECT_EQ(text(out), tmp.path("second"));
}

TEST(TempDir, IsTheDirectoryNamedByTmpdir) {
  const TempDir tmp;
  tmp.mkdir("scratch");
  const ScopedEnv named("TMPDIR", tmp.link("link", "scratch"));
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::tempDir()), tmp.path("scratch"));

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

/// The fall-backs, in a root of which the test says what there is.
class TempDirInAnotherRoot : public testing::Test {
 protected:
  void SetUp() override {
    if (!canChangeRoot()) {
      GTEST_SKIP() << kCannotChangeRoot;
    }
  }

  /// Expects of both forms that they answer `directory` and log `logged`, in a process that has
  /// `root` as its root and `current` as its current directory, or has none when that is empty.
  void expectBoth(const std::string& current, const std::string& directory,
                  const std::vector<std::string>& logged) const {
    runInRoot(root.path(), [&] {
      const ScopedEnv named("TMPDIR", "/missing");
      const std::string place = current.empty() ? "/removed" : current;
      std::filesystem::create_directories(place);
      ASSERT_EQ(::chdir(place.c_str()), 0);
      if (current.empty()) {
        std::filesystem::remove(place);
      }
      const ErrorStateSentinel sentinel;
      {
        const LogCapture log;
        String out = kStale;
        EXPECT_TRUE(vx::fs::getTempDir(out));
        EXPECT_EQ(text(out), directory);
        EXPECT_EQ(log.all(), logged);
      }
      const LogCapture log;
      EXPECT_EQ(text(vx::fs::tempDir()), directory);
      EXPECT_EQ(log.all(), logged);
      EXPECT_TRUE(sentinel.isUntouched());
    });
  }

  TempDir root;
};

TEST_F(TempDirInAnotherRoot, IsVarTmpBeforeTmp) {
  root.mkdir("var/tmp");
  root.mkdir("tmp");

  expectBoth("/place", "/var/tmp", lines());
}

TEST_F(TempDirInAnotherRoot, IsWhereVarTmpLeads) {
  root.mkdir("scratch");
  root.link("var/tmp", "../scratch");
  root.mkdir("tmp");

  expectBoth("/place", "/scratch", lines());
}

TEST_F(TempDirInAnotherRoot, IsTmpWhereVarTmpIsMissing) {
  root.mkdir("tmp");

  expectBoth("/place", "/tmp", lines());
}

TEST_F(TempDirInAnotherRoot, IsTmpWhereVarTmpIsAFile) {
  root.write("var/tmp", "");
  root.mkdir("tmp");

  expectBoth("/place", "/tmp", lines());
}

TEST_F(TempDirInAnotherRoot, IsWhereTmpLeads) {
  root.mkdir("scratch");
  root.link("tmp", "scratch");

  expectBoth("/place", "/scratch", lines());
}

TEST_F(TempDirInAnotherRoot, IsTheCurrentDirectoryWithAWarningWhereBothAreMissing) {
  expectBoth("/place", "/place", lines(kNoTemp));
}

TEST_F(TempDirInAnotherRoot, IsTheCurrentDirectoryWithAWarningWhereBothAreFiles) {
  root.write("var/tmp", "");
  root.write("tmp", "");

  expectBoth("/place", "/place", lines(kNoTemp));
}

TEST_F(TempDirInAnotherRoot, IsTmpWithAnErrorWhereTheCurrentDirectoryHasBeenRemovedToo) {
  expectBoth("", "/tmp", lines(kNeither));
}

TEST_F(TempDirInAnotherRoot, IsTmpWithAnErrorAlthoughThatIsAFile) {
  root.write("tmp", "");

  expectBoth("", "/tmp", lines(kNeither));
}

TEST_F(TempDirInAnotherRoot, IsTheCanonicalFormOfTmpWithAnErrorWhereThatLeadsToAFile) {
  root.write("scratch", "");
  root.link("tmp", "scratch");

  expectBoth("", "/scratch", lines(kNeither));
}

TEST_F(TempDirInAnotherRoot, DoesNotNeedTheCurrentDirectory) {
  root.mkdir("var/tmp");

  expectBoth("", "/var/tmp", lines());
}

}  // namespace
