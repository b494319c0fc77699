// SPDX-License-Identifier: MIT
//
// getCurrentDir, getHomeDir and getTempDir, and their value forms.

#include "core/vx_error.h"
#include "core/vx_string.h"
#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/failures.h"
#include "tests/testing/isolation.h"
#include "tests/testing/scoped.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace vx::test {
namespace {

constexpr const char* kStale = "the text before";

// The lines quote the current error.
constexpr const char* kNoHome = "warning: Failed to find home dir: the sentinel's message";
constexpr const char* kNoTemp =
    "warning: Failed to find temp dir, using current dir (the sentinel's message).";
constexpr const char* kNoDirectory =
    "error: Failed to find both temp and current directories (the sentinel's message).";

/// Entries that are no directory: "file", "link-to-file", "dangling" and "loop".
void createOtherKinds(const TempDir& tmp) {
  tmp.write("file", "");
  tmp.link("link-to-file", "file");
  tmp.link("dangling", "missing");
  tmp.link("loop", "loop");
}

/// Whether the failure makes the current directory look removed. Of getcwd only ENOENT does.
bool losesCurrentDir(const FailureRun& run) {
  return run.failed("stat .") || (run.failed("getcwd") && run.error() == ENOENT);
}

/// Expects `get` to give the canonical form of the directory that the environment names.
void expectCanonicalForm(bool (*get)(String& out), const char* variable, const TempDir& tmp) {
  tmp.mkdir("d");
  tmp.link("link", "d");
  tmp.link("links/up", "../link");
  for (const std::string& value :
       {tmp.path("d"), tmp.path("d///"), tmp.path("/./d"), tmp.path("missing/../d"),
        tmp.path("links/up"), std::string("d"), std::string("./link/")}) {
    const ScopedEnv scoped(variable, value);
    String out = kStale;

    EXPECT_TRUE(get(out)) << value;

    EXPECT_EQ(text(out), tmp.path("d")) << value;
  }
}

// ---------------------------------------------------------------------------------------------
// getCurrentDir

class GetCurrentDir : public SilentFsTest {};

TEST_F(GetCurrentDir, GivesTheCanonicalPath) {
  tmp.mkdir("d");
  const ScopedCurrentDir inside(tmp.link("link", "d"));
  const ScopedEnv shell("PWD", tmp.path("link"));
  String out = kStale;

  EXPECT_TRUE(fs::getCurrentDir(out));

  EXPECT_EQ(text(out), tmp.path("d"));
}

TEST_F(GetCurrentDir, AsksTheSystemEachTime) {
  String out;
  EXPECT_TRUE(fs::getCurrentDir(out));
  EXPECT_EQ(text(out), tmp.path());
  const ScopedCurrentDir inside(tmp.mkdir("d"));
  Calls calls;

  EXPECT_TRUE(fs::getCurrentDir(out));

  EXPECT_EQ(text(out), tmp.path("d"));
  EXPECT_EQ(calls.all(), lines("stat .", "getcwd", "realpath ."));
}

TEST_F(GetCurrentDir, FailsWhereItWasRemoved) {
  const RemovedCurrentDir removed;
  String out = kStale;

  EXPECT_FALSE(fs::getCurrentDir(out));

  EXPECT_EQ(text(out), ".");
}

TEST_F(GetCurrentDir, GivesADotWhenItsPathCannotBeRead) {
  Calls calls;
  calls.fail("getcwd", EACCES);
  calls.fail("realpath", EACCES);
  String out = kStale;

  EXPECT_TRUE(fs::getCurrentDir(out));

  EXPECT_EQ(text(out), ".");
}

TEST_F(GetCurrentDir, ReportsEachFailingCall) {
  forEachFailure([](FailureRun& run) {
    String out = kStale;

    const bool found = run.act([&] { return fs::getCurrentDir(out); });

    EXPECT_EQ(found, !losesCurrentDir(run));
    EXPECT_EQ(text(out), losesCurrentDir(run) ? "." : run.tmp.path());
    run.expectSilence();
  });
}

// ---------------------------------------------------------------------------------------------
// currentDir

class CurrentDir : public SilentFsTest {};

TEST_F(CurrentDir, IsADotWhenACallFails) {
  forEachFailure([](FailureRun& run) {
    const String directory = run.act([] { return fs::currentDir(); });

    EXPECT_EQ(text(directory), losesCurrentDir(run) ? "." : run.tmp.path());
    run.expectSilence();
  });
}

TEST_F(CurrentDir, AsksOnce) {
  Calls calls;
  calls.failNth("getcwd", 1, ENOENT);

  EXPECT_EQ(fs::currentDir(), ".");

  EXPECT_EQ(calls.all(), lines("stat .", "getcwd"));
}

// ---------------------------------------------------------------------------------------------
// getHomeDir

class GetHomeDir : public FsTest {};

TEST_F(GetHomeDir, GivesTheCanonicalFormOfHome) {
  expectCanonicalForm(fs::getHomeDir, "HOME", tmp);

  expectSilence();
}

TEST_F(GetHomeDir, TakesADotForTheCurrentDirectory) {
  const ScopedEnv home("HOME", ".");
  String out = kStale;

  EXPECT_TRUE(fs::getHomeDir(out));

  EXPECT_EQ(text(out), tmp.path());
  expectSilence();
}

TEST_F(GetHomeDir, GivesTheCurrentDirectoryWithoutAHome) {
  tmp.mkdir("home");
  createOtherKinds(tmp);
  for (const char* const value :
       {static_cast<const char*>(nullptr), "", "missing", "missing/", "file", "file/", "file/x",
        "link-to-file", "dangling", "loop", " home", "/dev/null", "~", "$HOME"}) {
    SCOPED_TRACE(value == nullptr ? "unset" : value);
    const LogCapture own;
    const ScopedEnv home("HOME", value);
    String out = kStale;

    EXPECT_TRUE(fs::getHomeDir(out));

    EXPECT_EQ(text(out), tmp.path());
    EXPECT_EQ(own.all(), lines(kNoHome));
    EXPECT_TRUE(sentinel.isUntouched());
  }
}

TEST_F(GetHomeDir, QuotesNothingWithoutACurrentError) {
  os::clearCurrentError();
  const ScopedEnv home("HOME", nullptr);
  String out;

  EXPECT_TRUE(fs::getHomeDir(out));

  EXPECT_EQ(log.all(), lines("warning: Failed to find home dir: "));
}

TEST_F(GetHomeDir, FailsWithoutHomeAndCurrentDirectory) {
  const RemovedCurrentDir removed;
  for (const char* const value : {static_cast<const char*>(nullptr), "."}) {
    const LogCapture own;
    const ScopedEnv home("HOME", value);
    String out = kStale;

    EXPECT_FALSE(fs::getHomeDir(out));

    EXPECT_EQ(text(out), ".");
    EXPECT_EQ(own.all(), lines(kNoHome));
    EXPECT_TRUE(sentinel.isUntouched());
  }
}

TEST_F(GetHomeDir, ReportsEachFailingCall) {
  forEachFailure([](FailureRun& run) {
    run.tmp.mkdir("home");
    const ScopedEnv home("HOME", "home");
    String out = kStale;

    const bool found = run.act([&] { return fs::getHomeDir(out); });

    const bool isLost = run.failed("stat home");
    EXPECT_TRUE(found);
    EXPECT_EQ(text(out), isLost ? run.tmp.path() : run.tmp.path("home"));
    EXPECT_EQ(run.log.all(), isLost ? lines(kNoHome) : lines());
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

TEST_F(GetHomeDir, ReportsEachFailingCallWithoutAHome) {
  forEachFailure([](FailureRun& run) {
    const ScopedEnv home("HOME", "home");
    String out = kStale;

    const bool found = run.act([&] { return fs::getHomeDir(out); });

    EXPECT_EQ(found, !losesCurrentDir(run));
    EXPECT_EQ(text(out), losesCurrentDir(run) ? "." : run.tmp.path());
    EXPECT_EQ(run.log.all(), lines(kNoHome));
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

// ---------------------------------------------------------------------------------------------
// homeDir

class HomeDir : public FsTest {};

TEST_F(HomeDir, IsTheDirectoryNamedByHomeAtTheTime) {
  {
    const ScopedEnv home("HOME", tmp.mkdir("first") + "/");
    EXPECT_EQ(text(fs::homeDir()), tmp.path("first"));
  }
  const ScopedEnv home("HOME", tmp.mkdir("second"));
  Calls calls;

  EXPECT_EQ(text(fs::homeDir()), tmp.path("second"));

  EXPECT_EQ(calls.all(), lines("stat " + tmp.path("second"), "realpath " + tmp.path("second")));
  expectSilence();
}

TEST_F(HomeDir, AsksOnceForTheCurrentDirectoryItFinds) {
  const ScopedEnv home("HOME", nullptr);
  Calls calls;

  EXPECT_EQ(text(fs::homeDir()), tmp.path());

  EXPECT_EQ(calls.all(), lines("stat .", "getcwd", "realpath ."));
}

TEST_F(HomeDir, AsksAgainForALostCurrentDirectory) {
  const ScopedEnv home("HOME", nullptr);
  const RemovedCurrentDir removed;
  Calls calls;

  EXPECT_EQ(fs::homeDir(), ".");

  EXPECT_EQ(calls.count("stat ."), 2U);
  EXPECT_EQ(log.all(), lines(kNoHome));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_F(HomeDir, FindsTheCurrentDirectoryDespiteOneFailure) {
  forEachFailure([](FailureRun& run) {
    const ScopedEnv home("HOME", "home");

    const String directory = run.act([] { return fs::homeDir(); });

    EXPECT_EQ(text(directory), run.tmp.path());
    EXPECT_EQ(run.log.all(), lines(kNoHome));
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

// ---------------------------------------------------------------------------------------------
// getTempDir

class GetTempDir : public FsTest {
 protected:
  // Either may be a link.
  static inline const std::string kVarTmp = std::filesystem::canonical("/var/tmp").string();
  static inline const std::string kTmp = std::filesystem::canonical("/tmp").string();
};

TEST_F(GetTempDir, GivesTheCanonicalFormOfTmpdir) {
  expectCanonicalForm(fs::getTempDir, "TMPDIR", tmp);

  expectSilence();
}

TEST_F(GetTempDir, GivesVarTmpWithoutTmpdir) {
  createOtherKinds(tmp);
  for (const char* const value : {static_cast<const char*>(nullptr), "", "missing", "file", "file/",
                                  "link-to-file", "dangling", "loop"}) {
    const ScopedEnv variable("TMPDIR", value);
    String out = kStale;

    EXPECT_TRUE(fs::getTempDir(out));

    EXPECT_EQ(text(out), kVarTmp) << (value == nullptr ? "unset" : value);
  }
  expectSilence();
}

TEST_F(GetTempDir, GivesTmpWithoutVarTmp) {
  const ScopedEnv variable("TMPDIR", "missing");
  String out = kStale;
  {
    Calls calls;
    calls.answer("stat /var/tmp", S_IFREG);

    EXPECT_TRUE(fs::getTempDir(out));

    EXPECT_EQ(text(out), kTmp);
    EXPECT_EQ(calls.all(), lines("stat missing", "stat /var/tmp", "realpath /tmp", "stat " + kTmp,
                                 "realpath " + kTmp));
  }
  expectSilence();
}

TEST_F(GetTempDir, GivesTmpWhenEverythingIsMissing) {
  const RemovedCurrentDir removed;
  const ScopedEnv variable("TMPDIR", "missing");
  String out = kStale;
  Calls calls;
  calls.fail("stat", ENOENT);

  EXPECT_TRUE(fs::getTempDir(out));

  EXPECT_EQ(text(out), kTmp);
  EXPECT_EQ(log.all(), lines(kNoDirectory));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_F(GetTempDir, ResolvesTheLinksOfEachFallback) {
  if (!canChangeRoot()) {
    GTEST_SKIP() << kCannotChangeRoot;
  }
  tmp.mkdir("dir");
  tmp.write("file", "");
  struct Row {
    const char* link;
    const char* target;
    const char* directory;
    std::vector<std::string> logged;
  };
  const Row rows[] = {
      {"/var/tmp", "/dir", "/dir", {}},
      {"/tmp", "/dir", "/dir", {}},
      {"/tmp", "/file", "/file", {kNoDirectory}},
  };
  for (const Row& row : rows) {
    runInRoot(tmp.path(), [&] {
      const ScopedEnv variable("TMPDIR", nullptr);
      std::filesystem::create_directory("/var");
      std::filesystem::create_directory("/removed");
      std::filesystem::create_symlink(row.target, row.link);
      const ScopedCurrentDir inside("/removed");
      std::filesystem::remove("/removed");
      String out = kStale;

      EXPECT_TRUE(fs::getTempDir(out));

      EXPECT_EQ(text(out), row.directory);
      EXPECT_EQ(log.all(), row.logged);
      std::filesystem::remove(row.link);
    });
  }
}

TEST_F(GetTempDir, ReportsEachFailingCall) {
  forEachFailure([](FailureRun& run) {
    run.tmp.mkdir("t");
    const ScopedEnv variable("TMPDIR", "t");
    String out = kStale;

    EXPECT_TRUE(run.act([&] { return fs::getTempDir(out); }));

    const bool isLost = run.failed("stat " + run.tmp.path("t"));
    EXPECT_EQ(run.log.all(), isLost ? lines(kNoTemp) : lines());
    EXPECT_TRUE(run.sentinel.isUntouched());
    if (run.failed("stat t", 1)) {
      EXPECT_EQ(text(out), kVarTmp);
    } else if (run.failed("stat t", 2)) {
      EXPECT_EQ(text(out), kTmp);  // "t" is examined a second time, in place of "/var/tmp"
    } else {
      EXPECT_EQ(text(out), isLost ? run.tmp.path() : run.tmp.path("t"));
    }
  });
}

TEST_F(GetTempDir, ReportsEachFailingCallOfTheLastFallback) {
  forEachFailure([](FailureRun& run) {
    const ScopedEnv variable("TMPDIR", "missing");
    run.calls.fail("stat /var/tmp", ENOENT);
    run.calls.fail("stat " + kTmp, ENOENT);
    String out = kStale;

    EXPECT_TRUE(run.act([&] { return fs::getTempDir(out); }));

    EXPECT_EQ(text(out), losesCurrentDir(run) ? kTmp : run.tmp.path());
    EXPECT_EQ(run.log.all(), lines(losesCurrentDir(run) ? kNoDirectory : kNoTemp));
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

// ---------------------------------------------------------------------------------------------
// tempDir

class TempDirValue : public FsTest {};

TEST_F(TempDirValue, IsVarTmpWithoutTmpdir) {
  const ScopedEnv variable("TMPDIR", nullptr);

  EXPECT_EQ(text(fs::tempDir()), std::filesystem::canonical("/var/tmp").string());

  expectSilence();
}

TEST_F(TempDirValue, IsTheDirectoryNamedByTmpdirAtTheTime) {
  {
    const ScopedEnv variable("TMPDIR", tmp.mkdir("first"));
    EXPECT_EQ(text(fs::tempDir()), tmp.path("first"));
  }
  const ScopedEnv variable("TMPDIR", tmp.mkdir("second") + "/");

  EXPECT_EQ(text(fs::tempDir()), tmp.path("second"));

  expectSilence();
}

}  // namespace
}  // namespace vx::test
