// Concern: where the product's directories are looked for, when they are made, and what is said,
// at which level and how often, when there are none.

#include "core/vx_string.h"
#include "fs/vx_fs.h"
#include "tests/fs/recorded_calls.h"
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
#include <ostream>
#include <string>
#include <system_error>
#include <type_traits>
#include <vector>

namespace {

using vx::String;
using vx::test::capturedErrorIs;
using vx::test::errnoText;
using vx::test::ErrorStateSentinel;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::RecordedCalls;
using vx::test::runAsUnprivileged;
using vx::test::ScopedCurrentDir;
using vx::test::ScopedEnv;
using vx::test::TempDir;
using vx::test::text;

static_assert(std::is_same_v<decltype(&vx::fs::kavraNodeHelpPath), String (*)(bool)>);

constexpr const char* kStale = "the text before";
constexpr const char* kSentinelText = "the sentinel's message";

/// One of the product's directories, with both forms that look for it.
struct ProductDir {
  const char* name;
  const char* level;
  const char* subdir;  // in the user directory; empty for that itself
  bool (*get)(String& out, bool create);
  String (*value)(bool create);

  /// Its path, where `userDir` is the user directory.
  [[nodiscard]] std::string in(const std::string& userDir) const {
    return *subdir == '\0' ? userDir : userDir + '/' + subdir;
  }

  /// The line that tells of its failure.
  [[nodiscard]] std::string failure(const std::string& verb, const std::string& path,
                                    const std::string& why) const {
    return std::string(level) + ": Failed to " + verb + " kavra " + name + " dir: " + path + " (" +
           why + ").";
  }

  friend std::ostream& operator<<(std::ostream& out, const ProductDir& dir) {
    return out << dir.name;
  }
};

const ProductDir kUser = {"user", "warning", "", vx::fs::getKavraUserDir, vx::fs::kavraUserDir};
const ProductDir kConfig = {"config", "warning", "config", vx::fs::getKavraConfigDir,
                            vx::fs::kavraConfigDir};
const ProductDir kOutput = {"output", "error", "output", vx::fs::getKavraOutputDir,
                            vx::fs::kavraOutputDir};
const ProductDir kPreview = {"preview", "error", "preview", vx::fs::getKavraPreviewDir,
                             vx::fs::kavraPreviewDir};

/// A fresh account: an empty home directory, no user directory chosen, and a current directory
/// apart from both.
class Account {
 public:
  Account() : inside_(tmp.mkdir("work")), home_("HOME", tmp.mkdir("home")) {}

  TempDir tmp;

  /// Where the user directory belongs.
  [[nodiscard]] std::string userDir() const { return tmp.path("home/kavra"); }

 private:
  ScopedCurrentDir inside_;
  ScopedEnv home_;
  ScopedEnv chosen_{"KAVRA_USER_DIR", nullptr};
};

std::string mkDirFailure(const std::string& path, int code) {
  return "error: Failed to create dir: " + path + " [err: " + errnoText(code) + "].";
}

class EveryProductDir : public testing::TestWithParam<ProductDir> {};
class EverySubdir : public testing::TestWithParam<ProductDir> {};

const auto nameOf = [](const auto& suite) { return std::string(suite.param.name); };

INSTANTIATE_TEST_SUITE_P(, EveryProductDir, testing::Values(kUser, kConfig, kOutput, kPreview),
                         nameOf);
INSTANTIATE_TEST_SUITE_P(, EverySubdir, testing::Values(kConfig, kOutput, kPreview), nameOf);

// ---- What is there ---------------------------------------------------------------------------

TEST_P(EveryProductDir, IsFoundInTheHomeDirectory) {
  for (const bool create : {false, true}) {
    const Account account;
    const std::string expected = GetParam().in(account.userDir());
    std::filesystem::create_directories(expected);
    const auto before = account.tmp.entries();
    const ErrorStateSentinel sentinel;
    const LogCapture log;
    String out = kStale;

    EXPECT_TRUE(GetParam().get(out, create));

    EXPECT_EQ(text(out), expected);
    EXPECT_EQ(text(GetParam().value(create)), expected);
    EXPECT_EQ(log.all(), lines());
    EXPECT_TRUE(sentinel.isUntouched());
    EXPECT_EQ(account.tmp.entries(), before);
  }
}

TEST_P(EveryProductDir, IsAskedForOnceWhereItIsThere) {
  for (const bool create : {false, true}) {
    const Account account;
    const std::string expected = GetParam().in(account.userDir());
    std::filesystem::create_directories(expected);
    const std::string home = account.tmp.path("home");
    std::vector<std::string> asked = {"stat " + home, "realpath " + home,
                                      "stat " + account.userDir()};
    if (expected != account.userDir()) {
      asked.push_back("stat " + expected);
    }
    RecordedCalls calls;
    String out;

    EXPECT_TRUE(GetParam().get(out, create));

    EXPECT_EQ(calls.all(), asked);
  }
}

TEST_P(EveryProductDir, IsFoundInTheCanonicalHomeDirectory) {
  const Account account;
  const std::string expected = GetParam().in(account.userDir());
  std::filesystem::create_directories(expected);
  account.tmp.link("link", "home");
  const ScopedEnv home("HOME", ".././link//");
  const LogCapture log;
  String out;

  EXPECT_TRUE(GetParam().get(out, false));

  EXPECT_EQ(text(out), expected);
  EXPECT_EQ(log.all(), lines());
}

TEST_P(EveryProductDir, IsFoundThroughALinkThatIsNotResolved) {
  const Account account;
  const std::string expected = GetParam().in(account.userDir());
  account.tmp.mkdir("elsewhere");
  std::filesystem::create_directories(std::filesystem::path(expected).parent_path());
  std::filesystem::create_symlink(account.tmp.path("elsewhere"), expected);
  const LogCapture log;
  String out;

  EXPECT_TRUE(GetParam().get(out, true));

  EXPECT_EQ(text(out), expected);
  EXPECT_EQ(log.all(), lines());
}

// ---- What is missing -------------------------------------------------------------------------

TEST_P(EveryProductDir, IsMadeOnAFreshAccount) {
  const Account account;
  const std::string expected = GetParam().in(account.userDir());
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_TRUE(GetParam().get(out, true));

  EXPECT_EQ(text(out), expected);
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(capturedErrorIs(0, "mkDir"));
  std::vector<std::string> made = lines("home/", "home/kavra/");
  if (GetParam().subdir[0] != '\0') {
    made.push_back("home/kavra/" + std::string(GetParam().subdir) + '/');
  }
  made.emplace_back("work/");
  EXPECT_EQ(account.tmp.entries(), made);
}

TEST_P(EveryProductDir, IsMadeOnAFreshAccountByTheValueForm) {
  const Account account;
  const std::string expected = GetParam().in(account.userDir());
  const LogCapture log;

  EXPECT_EQ(text(GetParam().value(true)), expected);

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(std::filesystem::is_directory(expected));
}

TEST_P(EveryProductDir, IsNotMadeUnlessAskedFor) {
  const Account account;
  const auto before = account.tmp.entries();
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_FALSE(GetParam().get(out, false));

  // Without a user directory its own line is the only one.
  EXPECT_EQ(text(out), account.userDir());
  EXPECT_EQ(log.all(), lines(kUser.failure("find", account.userDir(), kSentinelText)));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(account.tmp.entries(), before);
}

TEST_P(EveryProductDir, IsTheCurrentDirectoryForTheValueFormWhereItIsMissing) {
  const Account account;
  const auto before = account.tmp.entries();
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(GetParam().value(false)), account.tmp.path("work"));

  EXPECT_EQ(log.all(), lines(kUser.failure("find", account.userDir(), kSentinelText)));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(account.tmp.entries(), before);
}

TEST_P(EveryProductDir, QuotesNothingWhereThereIsNoCurrentError) {
  const Account account;
  const LogCapture log;
  String out;

  EXPECT_FALSE(GetParam().get(out, false));

  EXPECT_EQ(log.all(), lines(kUser.failure("find", account.userDir(), "")));
}

TEST_P(EverySubdir, IsNotMadeInAUserDirectoryUnlessAskedFor) {
  const Account account;
  account.tmp.mkdir("home/kavra");
  const auto before = account.tmp.entries();
  const std::string missing = GetParam().in(account.userDir());
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_FALSE(GetParam().get(out, false));

  EXPECT_EQ(text(out), missing);
  EXPECT_EQ(log.all(), lines(GetParam().failure("find", missing, kSentinelText)));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(account.tmp.entries(), before);
}

TEST_P(EverySubdir, IsTheCurrentDirectoryForTheValueFormWhereOnlyItIsMissing) {
  const Account account;
  account.tmp.mkdir("home/kavra");
  const std::string missing = GetParam().in(account.userDir());
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(GetParam().value(false)), account.tmp.path("work"));

  EXPECT_EQ(log.all(), lines(GetParam().failure("find", missing, kSentinelText)));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_P(EverySubdir, IsMadeInAUserDirectoryThatIsThere) {
  const Account account;
  account.tmp.mkdir("home/kavra");
  const std::string expected = GetParam().in(account.userDir());
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_TRUE(GetParam().get(out, true));

  EXPECT_EQ(text(out), expected);
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(capturedErrorIs(0, "mkDir"));
  EXPECT_TRUE(std::filesystem::is_directory(expected));
}

// ---- What is in the way ----------------------------------------------------------------------

TEST_P(EveryProductDir, FailsWithTheUserDirectoryWhereAFileIsInItsWay) {
  for (const bool create : {false, true}) {
    const Account account;
    account.tmp.write("home/kavra", "in the way");
    const auto before = account.tmp.entries();
    const ErrorStateSentinel sentinel;
    const LogCapture log;
    String out = kStale;

    EXPECT_FALSE(GetParam().get(out, create));

    EXPECT_EQ(text(out), account.userDir());
    // Nothing is tried where a file is, so the quoted error is the one before.
    EXPECT_EQ(log.all(),
              lines(kUser.failure(create ? "create" : "find", account.userDir(), kSentinelText)));
    EXPECT_TRUE(sentinel.isUntouched());
    EXPECT_EQ(account.tmp.entries(), before);
    EXPECT_EQ(account.tmp.read("home/kavra"), "in the way");
  }
}

TEST_P(EverySubdir, FailsWhereAFileIsInItsWay) {
  for (const bool create : {false, true}) {
    const Account account;
    const std::string blocked = GetParam().in(account.userDir());
    account.tmp.write("home/kavra/" + std::string(GetParam().subdir), "in the way");
    const ErrorStateSentinel sentinel;
    const LogCapture log;
    String out = kStale;

    EXPECT_FALSE(GetParam().get(out, create));

    EXPECT_EQ(text(out), blocked);
    EXPECT_EQ(log.all(),
              lines(GetParam().failure(create ? "create" : "find", blocked, kSentinelText)));
    EXPECT_TRUE(sentinel.isUntouched());
  }
}

TEST_P(EveryProductDir, FailsWithTheUserDirectoryWhereALinkThatLeadsNowhereIsInItsWay) {
  const Account account;
  account.tmp.link("home/kavra", "nowhere");
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_FALSE(GetParam().get(out, true));

  EXPECT_EQ(text(out), account.userDir());
  EXPECT_EQ(log.all(), lines(mkDirFailure(account.userDir(), EEXIST),
                             kUser.failure("create", account.userDir(), errnoText(EEXIST))));
  EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
}

TEST_P(EverySubdir, FailsWhereALinkThatLeadsNowhereIsInItsWay) {
  const Account account;
  const std::string blocked =
      account.tmp.link("home/kavra/" + std::string(GetParam().subdir), "nowhere");
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out = kStale;

  EXPECT_FALSE(GetParam().get(out, true));

  EXPECT_EQ(text(out), blocked);
  EXPECT_EQ(log.all(), lines(mkDirFailure(blocked, EEXIST),
                             GetParam().failure("create", blocked, errnoText(EEXIST))));
  EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
}

TEST_P(EveryProductDir, FailsWithTheUserDirectoryWhereTheHomeDirectoryMayNotBeWritten) {
  const Account account;
  const auto before = account.tmp.entries();

  runAsUnprivileged([&] {
    // Where root has not made the directory, its owner may write it none the less.
    std::error_code ignored;
    std::filesystem::permissions(account.tmp.path("home"), std::filesystem::perms(0555), ignored);
    const ErrorStateSentinel sentinel;
    const LogCapture log;
    String out = kStale;

    EXPECT_FALSE(GetParam().get(out, true));

    EXPECT_EQ(text(out), account.userDir());
    EXPECT_EQ(log.all(), lines(mkDirFailure(account.userDir(), EACCES),
                               kUser.failure("create", account.userDir(), errnoText(EACCES))));
    EXPECT_TRUE(capturedErrorIs(EACCES, "mkDir"));
  });

  EXPECT_EQ(account.tmp.entries(), before);
}

TEST_P(EverySubdir, FailsWhereTheUserDirectoryMayNotBeWritten) {
  const Account account;
  account.tmp.mkdir("home/kavra");
  const std::string blocked = GetParam().in(account.userDir());

  runAsUnprivileged([&] {
    std::error_code ignored;
    std::filesystem::permissions(account.userDir(), std::filesystem::perms(0555), ignored);
    {
      const ErrorStateSentinel sentinel;
      const LogCapture log;
      String out = kStale;
      EXPECT_FALSE(GetParam().get(out, true));
      EXPECT_EQ(text(out), blocked);
      EXPECT_EQ(log.all(), lines(mkDirFailure(blocked, EACCES),
                                 GetParam().failure("create", blocked, errnoText(EACCES))));
      EXPECT_TRUE(capturedErrorIs(EACCES, "mkDir"));
    }
    const LogCapture log;
    EXPECT_EQ(text(GetParam().value(true)), account.tmp.path("work"));
    EXPECT_EQ(log.all(), lines(mkDirFailure(blocked, EACCES),
                               GetParam().failure("create", blocked, errnoText(EACCES))));
  });
}

// ---- Without a home --------------------------------------------------------------------------

TEST_P(EveryProductDir, IsLookedForInTheCurrentDirectoryWhereHomeNamesNone) {
  const Account account;
  const ScopedEnv home("HOME", nullptr);
  const std::string expected = GetParam().in(account.tmp.path("work/kavra"));
  const LogCapture log;
  String out = kStale;

  EXPECT_TRUE(GetParam().get(out, true));

  EXPECT_EQ(text(out), expected);
  EXPECT_EQ(log.all(), lines("warning: Failed to find home dir: "));
  EXPECT_TRUE(std::filesystem::is_directory(expected));
}

TEST_P(EveryProductDir, FailsWithTheLineOfTheHomeDirectoryAloneWhereThereIsNoneAtAll) {
  for (const bool create : {false, true}) {
    const Account account;
    const ScopedEnv home("HOME", nullptr);
    const ScopedCurrentDir inside(account.tmp.mkdir("removed"));
    std::filesystem::remove(account.tmp.path("removed"));
    const ErrorStateSentinel sentinel;
    const LogCapture log;
    String out = kStale;

    EXPECT_FALSE(GetParam().get(out, create));

    EXPECT_EQ(text(out), ".");
    EXPECT_EQ(log.all(), lines("warning: Failed to find home dir: the sentinel's message"));
    EXPECT_TRUE(sentinel.isUntouched());
  }
}

TEST_P(EveryProductDir, IsADotForTheValueFormWhereThereIsNoDirectoryAtAll) {
  const Account account;
  const ScopedEnv home("HOME", nullptr);
  const ScopedCurrentDir inside(account.tmp.mkdir("removed"));
  std::filesystem::remove(account.tmp.path("removed"));
  const LogCapture log;

  EXPECT_EQ(text(GetParam().value(true)), ".");

  EXPECT_EQ(log.all(), lines("warning: Failed to find home dir: "));
}

// ---- The chosen user directory ---------------------------------------------------------------

/// Spellings of the directory "chosen" beside the current directory "work", and how the paths below
/// it begin.
struct Spelling {
  const char* text;
  const char* normal;

  friend std::ostream& operator<<(std::ostream& out, const Spelling& spelling) {
    return out << spelling.text;
  }
};

class ChosenUserDir : public testing::TestWithParam<Spelling> {};

INSTANTIATE_TEST_SUITE_P(
    , ChosenUserDir,
    testing::Values(Spelling{"TMP/chosen", "TMP/chosen"}, Spelling{"TMP/chosen/", "TMP/chosen"},
                    Spelling{"TMP//chosen/.///", "TMP/chosen"}, Spelling{"TMP/link", "TMP/link"},
                    Spelling{"TMP/missing/../chosen", "TMP/chosen"},
                    Spelling{"../chosen", "../chosen"}, Spelling{"./../chosen/", "../chosen"}));

std::string placed(std::string spelling, const TempDir& tmp) {
  if (spelling.starts_with("TMP")) {
    spelling.replace(0, 3, tmp.path());
  }
  return spelling;
}

TEST_P(ChosenUserDir, IsTheUserDirectoryExactlyAsRead) {
  for (const bool create : {false, true}) {
    const Account account;
    account.tmp.mkdir("chosen");
    account.tmp.link("link", "chosen");
    const auto before = account.tmp.entries();
    const std::string spelling = placed(GetParam().text, account.tmp);
    const ScopedEnv chosen("KAVRA_USER_DIR", spelling);
    const ErrorStateSentinel sentinel;
    const LogCapture log;
    String out = kStale;

    EXPECT_TRUE(vx::fs::getKavraUserDir(out, create));

    EXPECT_EQ(text(out), spelling);
    EXPECT_EQ(text(vx::fs::kavraUserDir(create)), spelling);
    EXPECT_EQ(log.all(), lines());
    EXPECT_TRUE(sentinel.isUntouched());
    EXPECT_EQ(account.tmp.entries(), before);
  }
}

TEST_P(ChosenUserDir, HoldsTheSubdirectoriesInNormalForm) {
  for (const ProductDir& dir : {kConfig, kOutput, kPreview}) {
    const Account account;
    account.tmp.mkdir("chosen");
    account.tmp.link("link", "chosen");
    const std::string expected = placed(GetParam().normal, account.tmp) + '/' + dir.subdir;
    const ScopedEnv chosen("KAVRA_USER_DIR", placed(GetParam().text, account.tmp));
    const LogCapture log;
    String out;

    EXPECT_TRUE(dir.get(out, true));

    EXPECT_EQ(text(out), expected);
    EXPECT_EQ(log.all(), lines());
    EXPECT_TRUE(account.tmp.exists("chosen/" + std::string(dir.subdir)));
    EXPECT_FALSE(account.tmp.exists("home/kavra"));
  }
}

TEST_P(EverySubdir, IsJustItsNameInAChosenUserDirectoryThatIsTheCurrentOne) {
  const Account account;
  const ScopedEnv chosen("KAVRA_USER_DIR", ".");
  const LogCapture log;
  String out;

  EXPECT_TRUE(GetParam().get(out, true));

  EXPECT_EQ(text(out), GetParam().subdir);
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(account.tmp.exists("work/" + std::string(GetParam().subdir)));
}

TEST_P(EverySubdir, NamesThePathInAChosenUserDirectoryWhereItIsMissing) {
  const Account account;
  const std::string chosen = account.tmp.mkdir("chosen");
  const ScopedEnv variable("KAVRA_USER_DIR", chosen + "//");
  const std::string missing = GetParam().in(chosen);
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out;

  EXPECT_FALSE(GetParam().get(out, false));

  EXPECT_EQ(text(out), missing);
  EXPECT_EQ(log.all(), lines(GetParam().failure("find", missing, kSentinelText)));
}

TEST(ChosenUserDirectory, NeedsNoHomeDirectory) {
  const Account account;
  const std::string chosen = account.tmp.mkdir("chosen");
  const ScopedEnv variable("KAVRA_USER_DIR", chosen);
  const ScopedEnv home("HOME", nullptr);
  const LogCapture log;
  String out;

  EXPECT_TRUE(vx::fs::getKavraUserDir(out, false));

  EXPECT_EQ(text(out), chosen);
  EXPECT_EQ(log.all(), lines());
}

TEST(ChosenUserDirectory, ComesBeforeTheOneInTheHomeDirectory) {
  const Account account;
  account.tmp.mkdir("home/kavra");
  const std::string chosen = account.tmp.mkdir("chosen");
  const ScopedEnv variable("KAVRA_USER_DIR", chosen);
  String out;

  EXPECT_TRUE(vx::fs::getKavraUserDir(out, false));

  EXPECT_EQ(text(out), chosen);
}

TEST(ChosenUserDirectory, IsReadInEachCall) {
  const Account account;
  account.tmp.mkdir("home/kavra");
  String out;
  {
    const ScopedEnv variable("KAVRA_USER_DIR", account.tmp.mkdir("chosen"));
    EXPECT_TRUE(vx::fs::getKavraUserDir(out, false));
    EXPECT_EQ(text(out), account.tmp.path("chosen"));
  }

  EXPECT_TRUE(vx::fs::getKavraUserDir(out, false));

  EXPECT_EQ(text(out), account.userDir());
}

/// Values of KAVRA_USER_DIR that name no directory, seen from the current directory.
class NoChosenUserDir : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(, NoChosenUserDir,
                         testing::Values("", "missing", "missing/", "file", "file/", "dangling"));

TEST_P(NoChosenUserDir, IsIgnoredWithoutAWordAndNotMade) {
  for (const ProductDir& dir : {kUser, kConfig, kOutput, kPreview}) {
    const Account account;
    account.tmp.write("work/file", "");
    account.tmp.link("work/dangling", "nowhere");
    const std::string expected = dir.in(account.userDir());
    const ScopedEnv chosen("KAVRA_USER_DIR", GetParam());
    const LogCapture log;
    String out;

    EXPECT_TRUE(dir.get(out, true));

    EXPECT_EQ(text(out), expected);
    EXPECT_EQ(log.all(), lines());
    EXPECT_FALSE(account.tmp.exists("work/missing"));
    EXPECT_FALSE(account.tmp.exists("work/nowhere"));
  }
}

TEST_P(NoChosenUserDir, IsNotNamedWhereTheOneInTheHomeDirectoryIsMissing) {
  const Account account;
  account.tmp.write("work/file", "");
  account.tmp.link("work/dangling", "nowhere");
  const ScopedEnv chosen("KAVRA_USER_DIR", GetParam());
  const ErrorStateSentinel sentinel;
  const LogCapture log;
  String out;

  EXPECT_FALSE(vx::fs::getKavraUserDir(out, false));

  EXPECT_EQ(text(out), account.userDir());
  EXPECT_EQ(log.all(), lines(kUser.failure("find", account.userDir(), kSentinelText)));
}

TEST(ChosenUserDirectory, IsIgnoredWhereItIsADotInARemovedCurrentDirectory) {
  const Account account;
  const ScopedEnv chosen("KAVRA_USER_DIR", ".");
  const ScopedCurrentDir inside(account.tmp.mkdir("removed"));
  std::filesystem::remove(account.tmp.path("removed"));
  const LogCapture log;
  String out;

  EXPECT_TRUE(vx::fs::getKavraUserDir(out, true));

  EXPECT_EQ(text(out), account.userDir());
  EXPECT_EQ(log.all(), lines());
}

// ---- The help page ---------------------------------------------------------------------------

TEST(NodeHelpPath, IsInTheUserDirectory) {
  const Account account;
  account.tmp.mkdir("home/kavra");
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::kavraNodeHelpPath(false)), account.userDir() + "/nodehelp.html");
  EXPECT_EQ(text(vx::fs::kavraNodeHelpPath(true)),
            "file://" + account.userDir() + "/nodehelp.html");

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(NodeHelpPath, BeginsWithThreeSlashesAsAnAddress) {
  const Account account;

  EXPECT_TRUE(vx::fs::kavraNodeHelpPath(true).startsWith("file:///", /*ignoreCase=*/false));
}

class NodeHelpPathOfEitherKind : public testing::TestWithParam<bool> {};

INSTANTIATE_TEST_SUITE_P(, NodeHelpPathOfEitherKind, testing::Bool());

TEST_P(NodeHelpPathOfEitherKind, MakesTheUserDirectoryAndNoPage) {
  const Account account;
  const LogCapture log;

  static_cast<void>(vx::fs::kavraNodeHelpPath(GetParam()));

  EXPECT_EQ(account.tmp.entries(), lines("home/", "home/kavra/", "work/"));
  EXPECT_EQ(log.all(), lines());
}

TEST_P(NodeHelpPathOfEitherKind, IsInTheCurrentDirectoryWhereThereIsNoUserDirectory) {
  const Account account;
  account.tmp.write("home/kavra", "in the way");
  const std::string prefix = GetParam() ? "file://" : "";
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::kavraNodeHelpPath(GetParam())),
            prefix + account.tmp.path("work/nodehelp.html"));

  EXPECT_EQ(log.all(), lines(kUser.failure("create", account.userDir(), kSentinelText)));
}

TEST_P(NodeHelpPathOfEitherKind, IsRelativeWhereThereIsNoDirectoryAtAll) {
  const Account account;
  const ScopedEnv home("HOME", nullptr);
  const ScopedCurrentDir inside(account.tmp.mkdir("removed"));
  std::filesystem::remove(account.tmp.path("removed"));
  const std::string prefix = GetParam() ? "file://" : "";
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::kavraNodeHelpPath(GetParam())), prefix + "./nodehelp.html");
}

TEST_P(NodeHelpPathOfEitherKind, IsThereWhetherOrNotThePageIs) {
  const Account account;
  account.tmp.write("home/kavra/nodehelp.html", "the page");
  const std::string prefix = GetParam() ? "file://" : "";

  EXPECT_EQ(text(vx::fs::kavraNodeHelpPath(GetParam())),
            prefix + account.userDir() + "/nodehelp.html");

  EXPECT_EQ(account.tmp.read("home/kavra/nodehelp.html"), "the page");
}

TEST_P(NodeHelpPathOfEitherKind, EncodesNothing) {
  const Account account;
  const std::string chosen = account.tmp.mkdir("a b%20#?&\"\xc3\xa4\xff");
  const ScopedEnv variable("KAVRA_USER_DIR", chosen);
  const std::string prefix = GetParam() ? "file://" : "";

  EXPECT_EQ(text(vx::fs::kavraNodeHelpPath(GetParam())), prefix + chosen + "/nodehelp.html");
}

TEST_P(NodeHelpPathOfEitherKind, HasOneSlashBehindAChosenUserDirectoryAndIsNotNormalised) {
  const Account account;
  const std::string chosen = account.tmp.mkdir("chosen") + "/.//";
  const ScopedEnv variable("KAVRA_USER_DIR", chosen);
  const std::string prefix = GetParam() ? "file://" : "";

  EXPECT_EQ(text(vx::fs::kavraNodeHelpPath(GetParam())),
            prefix + account.tmp.path("chosen/./nodehelp.html"));
}

TEST(NodeHelpPath, TurnsEveryBackslashOfTheAddressIntoASlash) {
  const Account account;
  account.tmp.mkdir("work/C:\\Users\\u\\");
  const ScopedEnv chosen("KAVRA_USER_DIR", "C:\\Users\\u\\");

  EXPECT_EQ(text(vx::fs::kavraNodeHelpPath(true)), "file://C:/Users/u//nodehelp.html");
}

TEST(NodeHelpPath, KeepsTheBackslashesOfThePath) {
  const Account account;
  account.tmp.mkdir("work/C:\\Users\\u");
  const ScopedEnv chosen("KAVRA_USER_DIR", "C:\\Users\\u");

  EXPECT_EQ(text(vx::fs::kavraNodeHelpPath(false)), "C:\\Users\\u/nodehelp.html");
}

}  // namespace
