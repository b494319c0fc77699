// SPDX-License-Identifier: MIT
//
// The product's directories for each user, and its help page.

#include "core/vx_error.h"
#include "core/vx_string.h"
#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/failures.h"
#include "tests/testing/scoped.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace vx::test {
namespace {

constexpr const char* kStale = "the text before";
constexpr const char* kNoHome = "warning: Failed to find home dir: the sentinel's message";

/// The home directory is "home" in the current directory, and no user directory is chosen.
class ProductDirTest : public FsTest {
 protected:
  ProductDirTest() : home_("HOME", tmp.mkdir("home")) {}

  const std::string kavra_ = tmp.path("home/kavra");

 private:
  ScopedEnv home_;
  ScopedEnv userDir_{"KAVRA_USER_DIR", nullptr};
};

// ---------------------------------------------------------------------------------------------
// getKavraUserDir

class GetKavraUserDir : public ProductDirTest {};

TEST_F(GetKavraUserDir, FindsKavraInTheHomeDirectory) {
  tmp.mkdir("home/kavra");
  for (const bool create : {false, true}) {
    Calls calls;
    String out = kStale;

    EXPECT_TRUE(fs::getKavraUserDir(out, create));

    EXPECT_EQ(text(out), kavra_);
    EXPECT_EQ(calls.all(),
              lines("stat " + tmp.path("home"), "realpath " + tmp.path("home"), "stat " + kavra_));
  }
  expectSilence();
}

TEST_F(GetKavraUserDir, ResolvesTheHomeDirectoryButNotKavra) {
  tmp.mkdir("elsewhere");
  tmp.link("home/kavra", "../elsewhere");
  tmp.link("link", "home");
  const ScopedEnv home("HOME", "./link//");
  String out = kStale;

  EXPECT_TRUE(fs::getKavraUserDir(out, true));

  EXPECT_EQ(text(out), kavra_);
  expectSilence();
}

TEST_F(GetKavraUserDir, QuotesNothingWithoutACurrentError) {
  os::clearCurrentError();
  String out = kStale;

  EXPECT_FALSE(fs::getKavraUserDir(out, false));

  EXPECT_EQ(text(out), kavra_);
  EXPECT_EQ(log.all(), lines("warning: Failed to find kavra user dir: " + kavra_ + " ()."));
}

TEST_F(GetKavraUserDir, FailsWhereAFileIsInItsWay) {
  tmp.write("home/kavra", "text");
  String out = kStale;

  EXPECT_FALSE(fs::getKavraUserDir(out, false));
  EXPECT_FALSE(fs::getKavraUserDir(out, true));

  // mkDir refuses a file without a word.
  EXPECT_EQ(text(out), kavra_);
  EXPECT_EQ(
      log.all(),
      lines("warning: Failed to find kavra user dir: " + kavra_ + " (the sentinel's message).",
            "warning: Failed to create kavra user dir: " + kavra_ + " (the sentinel's message)."));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(tmp.read("home/kavra"), "text");
}

TEST_F(GetKavraUserDir, UsesTheCurrentDirectoryWithoutAHome) {
  const ScopedEnv home("HOME", nullptr);
  String out = kStale;

  EXPECT_TRUE(fs::getKavraUserDir(out, true));

  EXPECT_EQ(text(out), tmp.path("kavra"));
  EXPECT_EQ(log.all(), lines(kNoHome));
  EXPECT_EQ(tmp.entries(), lines("home/", "kavra/"));
}

TEST_F(GetKavraUserDir, LogsNothingOfItsOwnWithoutAnyDirectory) {
  const ScopedEnv home("HOME", nullptr);
  const RemovedCurrentDir removed;
  for (const bool create : {false, true}) {
    const LogCapture own;
    String out = kStale;

    EXPECT_FALSE(fs::getKavraUserDir(out, create));

    EXPECT_EQ(text(out), ".");
    EXPECT_EQ(own.all(), lines(kNoHome));
    EXPECT_TRUE(sentinel.isUntouched());
  }
}

TEST_F(GetKavraUserDir, GivesTheChosenDirectoryExactlyAsRead) {
  tmp.mkdir("home/kavra");
  tmp.mkdir("chosen");
  tmp.link("link", "chosen");
  const std::vector<std::string> entries = tmp.entries();
  const ScopedEnv home("HOME", nullptr);
  for (const std::string& value :
       {tmp.path("chosen"), tmp.path("chosen/.///"), tmp.path("link"), tmp.path("missing/../link"),
        std::string("chosen"), std::string("./chosen/"), std::string(".")}) {
    const ScopedEnv chosen("KAVRA_USER_DIR", value);
    for (const bool create : {false, true}) {
      String out = kStale;

      EXPECT_TRUE(fs::getKavraUserDir(out, create));

      EXPECT_EQ(text(out), value);
    }
  }
  expectSilence();
  EXPECT_EQ(tmp.entries(), entries);
}

TEST_F(GetKavraUserDir, IgnoresAChoiceThatIsNoDirectory) {
  tmp.mkdir("home/kavra");
  tmp.write("file", "");
  tmp.link("dangling", "missing");
  const std::vector<std::string> entries = tmp.entries();
  for (const char* const value : {"", "missing", "missing/", "file", "file/", "dangling"}) {
    const ScopedEnv chosen("KAVRA_USER_DIR", value);
    String out = kStale;

    EXPECT_TRUE(fs::getKavraUserDir(out, true));

    EXPECT_EQ(text(out), kavra_) << value;
  }
  expectSilence();
  EXPECT_EQ(tmp.entries(), entries);
}

TEST_F(GetKavraUserDir, IgnoresADotInARemovedDirectory) {
  const ScopedEnv chosen("KAVRA_USER_DIR", ".");
  const RemovedCurrentDir removed;
  String out = kStale;

  EXPECT_TRUE(fs::getKavraUserDir(out, true));

  EXPECT_EQ(text(out), kavra_);
  EXPECT_EQ(log.all(), lines());
}

TEST_F(GetKavraUserDir, ReportsEachFailingCallThatFinds) {
  forEachFailure([](FailureRun& run) {
    const std::string kavra = run.tmp.mkdir("home/kavra");
    const ScopedEnv home("HOME", "home");
    String out = kStale;

    const bool found = run.act([&] { return fs::getKavraUserDir(out, false); });

    EXPECT_TRUE(run.sentinel.isUntouched());
    if (run.failed("stat home")) {
      const std::string missing = run.tmp.path("kavra");
      EXPECT_FALSE(found);
      EXPECT_EQ(text(out), missing);
      EXPECT_EQ(run.log.all(), lines(kNoHome, "warning: Failed to find kavra user dir: " + missing +
                                                  " (the sentinel's message)."));
      return;
    }
    EXPECT_EQ(text(out), kavra);
    if (run.failed("stat " + kavra)) {
      EXPECT_FALSE(found);
      EXPECT_EQ(run.log.all(), lines("warning: Failed to find kavra user dir: " + kavra +
                                     " (the sentinel's message)."));
      return;
    }
    EXPECT_TRUE(found);
    EXPECT_EQ(run.log.all(), lines());
  });
}

TEST_F(GetKavraUserDir, ReportsEachFailingCallThatCreates) {
  forEachFailure([](FailureRun& run) {
    const std::string kavra = run.tmp.mkdir("home") + "/kavra";
    const ScopedEnv home("HOME", "home");
    String out = kStale;

    const bool made = run.act([&] { return fs::getKavraUserDir(out, true); });

    if (run.failed("stat home")) {
      EXPECT_TRUE(made);
      EXPECT_EQ(text(out), run.tmp.path("kavra"));
      EXPECT_EQ(run.log.all(), lines(kNoHome));
      EXPECT_EQ(run.tmp.entries(), lines("home/", "kavra/"));
      return;
    }
    EXPECT_EQ(text(out), kavra);
    // A parent directory that cannot be examined is created, and turns out to exist.
    const bool isParent = run.failed("stat") && !run.failed("stat " + kavra);
    if (isParent || run.failed("mkdir")) {
      const std::string directory = isParent ? run.failedCall().substr(sizeof "stat") : kavra;
      const std::string reason = isParent ? errnoText(EEXIST) : run.errorText();
      EXPECT_FALSE(made);
      EXPECT_EQ(run.log.all(),
                lines("error: Failed to create dir: " + directory + " [err: " + reason + "].",
                      "warning: Failed to create kavra user dir: " + kavra + " (" + reason + ")."));
      EXPECT_TRUE(capturedErrorIs(isParent ? EEXIST : run.error(), "mkDir"));
      EXPECT_EQ(run.tmp.entries(), lines("home/"));
      return;
    }
    EXPECT_TRUE(made);
    EXPECT_EQ(run.log.all(), lines());
    EXPECT_TRUE(currentErrorIs(0, "mkDir", ""));
    EXPECT_EQ(run.tmp.entries(), lines("home/", "home/kavra/"));
  });
}

// ---------------------------------------------------------------------------------------------
// kavraUserDir

class KavraUserDir : public ProductDirTest {};

TEST_F(KavraUserDir, CreatesItAndThenFindsIt) {
  EXPECT_EQ(text(fs::kavraUserDir(true)), kavra_);
  EXPECT_EQ(text(fs::kavraUserDir(false)), kavra_);

  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("home/", "home/kavra/"));
}

TEST_F(KavraUserDir, IsTheCurrentDirectoryWhenItIsMissing) {
  EXPECT_EQ(text(fs::kavraUserDir(false)), tmp.path());

  EXPECT_EQ(log.all(), lines("warning: Failed to find kavra user dir: " + kavra_ +
                             " (the sentinel's message)."));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(tmp.entries(), lines("home/"));
}

TEST_F(KavraUserDir, IsADotWithoutAnyDirectory) {
  const ScopedEnv home("HOME", nullptr);
  const RemovedCurrentDir removed;

  EXPECT_EQ(fs::kavraUserDir(true), ".");

  EXPECT_EQ(log.all(), lines(kNoHome));
}

TEST_F(KavraUserDir, SurvivesEachFailingCallOfTheFallback) {
  forEachFailure([](FailureRun& run) {
    run.tmp.mkdir("home");
    const ScopedEnv home("HOME", "home");

    const String directory = run.act([] { return fs::kavraUserDir(false); });

    const bool isLost = run.failed("stat .") || (run.failed("getcwd") && run.error() == ENOENT);
    EXPECT_EQ(text(directory), isLost ? "." : run.tmp.path());
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

// ---------------------------------------------------------------------------------------------
// getKavraConfigDir, getKavraOutputDir and getKavraPreviewDir, and their value forms

struct Subdir {
  const char* name;
  bool (*get)(String& out, bool create);
  String (*value)(bool create);
  std::string findLine;  // without its path and reason
  std::string createLine;
};

void PrintTo(const Subdir& subdir, std::ostream* stream) {
  *stream << subdir.name;
}

class GetKavraSubdir : public ProductDirTest, public testing::WithParamInterface<Subdir> {
 protected:
  const Subdir& subdir_ = GetParam();
  const std::string name_ = subdir_.name;
  const std::string path_ = kavra_ + "/" + name_;
};

INSTANTIATE_TEST_SUITE_P(, GetKavraSubdir,
                         testing::Values(Subdir{"config", fs::getKavraConfigDir, fs::kavraConfigDir,
                                                "warning: Failed to find kavra config dir: ",
                                                "warning: Failed to create kavra config dir: "},
                                         Subdir{"output", fs::getKavraOutputDir, fs::kavraOutputDir,
                                                "error: Failed to find kavra output dir: ",
                                                "error: Failed to create kavra output dir: "},
                                         Subdir{"preview", fs::getKavraPreviewDir,
                                                fs::kavraPreviewDir,
                                                "error: Failed to find kavra preview dir: ",
                                                "error: Failed to create kavra preview dir: "}),
                         [](const auto& one) { return std::string(one.param.name); });

TEST_P(GetKavraSubdir, IsFoundInTheUserDirectory) {
  tmp.mkdir("home/kavra/" + name_);
  for (const bool create : {false, true}) {
    Calls calls;
    String out = kStale;

    EXPECT_TRUE(subdir_.get(out, create));

    EXPECT_EQ(text(out), path_);
    EXPECT_EQ(calls.all(), lines("stat " + tmp.path("home"), "realpath " + tmp.path("home"),
                                 "stat " + kavra_, "stat " + path_));
    EXPECT_EQ(text(subdir_.value(create)), path_);
  }
  expectSilence();
}

TEST_P(GetKavraSubdir, IsCreatedByTheValueForm) {
  EXPECT_EQ(text(subdir_.value(true)), path_);

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(tmp.exists("home/kavra/" + name_));
}

TEST_P(GetKavraSubdir, LogsOnlyThatTheUserDirectoryIsMissing) {
  String out = kStale;

  EXPECT_FALSE(subdir_.get(out, false));

  EXPECT_EQ(text(out), kavra_);
  EXPECT_EQ(log.all(), lines("warning: Failed to find kavra user dir: " + kavra_ +
                             " (the sentinel's message)."));
  EXPECT_EQ(text(subdir_.value(false)), tmp.path());
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(tmp.entries(), lines("home/"));
}

TEST_P(GetKavraSubdir, IsOnlyLookedForWithoutCreate) {
  tmp.mkdir("home/kavra");
  const std::string line = subdir_.findLine + path_ + " (the sentinel's message).";
  String out = kStale;

  EXPECT_FALSE(subdir_.get(out, false));
  EXPECT_EQ(text(out), path_);
  EXPECT_EQ(text(subdir_.value(false)), tmp.path());

  EXPECT_EQ(log.all(), lines(line, line));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(tmp.entries(), lines("home/", "home/kavra/"));
}

TEST_P(GetKavraSubdir, FailsWhereAFileIsInItsWay) {
  tmp.write("home/kavra/" + name_, "text");
  String out = kStale;

  EXPECT_FALSE(subdir_.get(out, false));
  EXPECT_FALSE(subdir_.get(out, true));

  EXPECT_EQ(text(out), path_);
  EXPECT_EQ(log.all(), lines(subdir_.findLine + path_ + " (the sentinel's message).",
                             subdir_.createLine + path_ + " (the sentinel's message)."));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_P(GetKavraSubdir, IsTheCurrentDirectoryWhenItCannotBeCreated) {
  tmp.link("home/kavra/" + name_, "missing");

  EXPECT_EQ(text(subdir_.value(true)), tmp.path());

  EXPECT_EQ(log.all(), lines("error: Failed to create dir: " + path_ + " [err: File exists].",
                             subdir_.createLine + path_ + " (File exists)."));
  EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
}

TEST_P(GetKavraSubdir, LogsNothingOfItsOwnWithoutAnyDirectory) {
  const ScopedEnv home("HOME", nullptr);
  const RemovedCurrentDir removed;
  String out = kStale;

  EXPECT_FALSE(subdir_.get(out, true));

  EXPECT_EQ(text(out), ".");
  EXPECT_EQ(log.all(), lines(kNoHome));
  EXPECT_EQ(subdir_.value(true), ".");
}

TEST_P(GetKavraSubdir, IsInTheNormalFormOfTheChosenDirectory) {
  tmp.mkdir("chosen");
  tmp.link("link", "chosen");
  struct Row {
    std::string chosen;
    std::string expected;
  };
  const Row rows[] = {
      {tmp.path("chosen/"), tmp.path("chosen/") + name_},
      {tmp.path("/./chosen/.//"), tmp.path("chosen/") + name_},
      {tmp.path("missing/../chosen"), tmp.path("chosen/") + name_},
      {tmp.path("link"), tmp.path("link/") + name_},
      {"./chosen", "chosen/" + name_},
      {".", name_},
  };
  for (const Row& row : rows) {
    const ScopedEnv chosen("KAVRA_USER_DIR", row.chosen);
    String out = kStale;

    EXPECT_TRUE(subdir_.get(out, true));

    EXPECT_EQ(text(out), row.expected);
  }
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(tmp.exists("chosen/" + name_));
  EXPECT_FALSE(tmp.exists("home/kavra"));
}

TEST_P(GetKavraSubdir, ReportsEachFailingCallThatFinds) {
  const Subdir& subdir = GetParam();
  forEachFailure([&](FailureRun& run) {
    const std::string path = "user/" + std::string(subdir.name);
    const std::string kavra = run.tmp.mkdir("home") + "/kavra";
    run.tmp.mkdir(path);
    const ScopedEnv home("HOME", "home");
    const ScopedEnv chosen("KAVRA_USER_DIR", "user");

    const String directory = run.act([&] { return subdir.value(false); });

    EXPECT_TRUE(run.sentinel.isUntouched());
    EXPECT_EQ(text(directory), run.failedAny() ? run.tmp.path() : path);
    if (run.failed("stat user")) {
      EXPECT_EQ(run.log.all(), lines("warning: Failed to find kavra user dir: " + kavra +
                                     " (the sentinel's message)."));
    } else if (run.failedAny()) {
      EXPECT_EQ(run.log.all(), lines(subdir.findLine + path + " (the sentinel's message)."));
    } else {
      EXPECT_EQ(run.log.all(), lines());
    }
  });
}

TEST_P(GetKavraSubdir, ReportsEachFailingCallThatCreates) {
  const Subdir& subdir = GetParam();
  forEachFailure([&](FailureRun& run) {
    const std::string name = subdir.name;
    const std::string path = "user/" + name;
    run.tmp.mkdir("home");
    run.tmp.mkdir("user");
    const ScopedEnv home("HOME", "home");
    const ScopedEnv chosen("KAVRA_USER_DIR", "user");
    String out = kStale;

    const bool made = run.act([&] { return subdir.get(out, true); });

    // A chosen directory that cannot be examined is ignored.
    if (run.failed("stat user", 1)) {
      EXPECT_TRUE(made);
      EXPECT_EQ(text(out), run.tmp.path("home/kavra/" + name));
      EXPECT_EQ(run.log.all(), lines());
      EXPECT_EQ(run.tmp.entries(),
                lines("home/", "home/kavra/", "home/kavra/" + name + "/", "user/"));
      return;
    }
    EXPECT_EQ(text(out), path);
    const bool isParent = run.failed("stat user", 2);
    if (isParent || run.failed("mkdir")) {
      const std::string directory = isParent ? "user" : path;
      const std::string reason = isParent ? errnoText(EEXIST) : run.errorText();
      EXPECT_FALSE(made);
      EXPECT_EQ(run.log.all(),
                lines("error: Failed to create dir: " + directory + " [err: " + reason + "].",
                      subdir.createLine + path + " (" + reason + ")."));
      EXPECT_TRUE(capturedErrorIs(isParent ? EEXIST : run.error(), "mkDir"));
      EXPECT_EQ(run.tmp.entries(), lines("home/", "user/"));
      return;
    }
    EXPECT_TRUE(made);
    EXPECT_EQ(run.log.all(), lines());
    EXPECT_TRUE(currentErrorIs(0, "mkDir", ""));
    EXPECT_EQ(run.tmp.entries(), lines("home/", "user/", path + "/"));
  });
}

// ---------------------------------------------------------------------------------------------
// kavraNodeHelpPath

class KavraNodeHelpPath : public ProductDirTest {};

TEST_F(KavraNodeHelpPath, IsInTheUserDirectory) {
  tmp.write("home/kavra/nodehelp.html", "text");

  EXPECT_EQ(text(fs::kavraNodeHelpPath(false)), tmp.path("home/kavra/nodehelp.html"));
  EXPECT_EQ(text(fs::kavraNodeHelpPath(true)), "file://" + tmp.path("home/kavra/nodehelp.html"));

  expectSilence();
  EXPECT_EQ(tmp.read("home/kavra/nodehelp.html"), "text");
}

TEST_F(KavraNodeHelpPath, CreatesTheUserDirectoryAndNoPage) {
  for (const bool asUrl : {false, true}) {
    EXPECT_NE(fs::kavraNodeHelpPath(asUrl), "");

    EXPECT_EQ(tmp.entries(), lines("home/", "home/kavra/"));
    std::filesystem::remove(kavra_);
  }
  EXPECT_EQ(log.all(), lines());
}

TEST_F(KavraNodeHelpPath, IsJoinedToTheChosenDirectory) {
  struct Row {
    std::string chosen;
    std::string path;
    std::string url;
  };
  const Row rows[] = {
      {"a b%20#?&\"\xc3\xa4\xff", "a b%20#?&\"\xc3\xa4\xff/nodehelp.html",
       "file://a b%20#?&\"\xc3\xa4\xff/nodehelp.html"},
      {"./chosen/.//", "./chosen/./nodehelp.html", "file://./chosen/./nodehelp.html"},
      {"C:\\Users\\u", "C:\\Users\\u/nodehelp.html", "file://C:/Users/u/nodehelp.html"},
      {"C:\\Users\\u\\", "C:\\Users\\u\\/nodehelp.html", "file://C:/Users/u//nodehelp.html"},
  };
  for (const Row& row : rows) {
    tmp.mkdir(row.chosen);
    const ScopedEnv chosen("KAVRA_USER_DIR", row.chosen);

    EXPECT_EQ(text(fs::kavraNodeHelpPath(false)), row.path);
    EXPECT_EQ(text(fs::kavraNodeHelpPath(true)), row.url);
  }
  expectSilence();
}

TEST_F(KavraNodeHelpPath, IsInTheCurrentDirectoryWithoutAUserDirectory) {
  tmp.write("home/kavra", "text");
  const std::string line =
      "warning: Failed to create kavra user dir: " + kavra_ + " (the sentinel's message).";

  EXPECT_EQ(text(fs::kavraNodeHelpPath(false)), tmp.path("nodehelp.html"));
  EXPECT_EQ(text(fs::kavraNodeHelpPath(true)), "file://" + tmp.path("nodehelp.html"));

  EXPECT_EQ(log.all(), lines(line, line));
}

TEST_F(KavraNodeHelpPath, IsRelativeWithoutAnyDirectory) {
  const ScopedEnv home("HOME", nullptr);
  const RemovedCurrentDir removed;

  EXPECT_EQ(fs::kavraNodeHelpPath(false), "./nodehelp.html");
  EXPECT_EQ(fs::kavraNodeHelpPath(true), "file://./nodehelp.html");
}

}  // namespace
}  // namespace vx::test
