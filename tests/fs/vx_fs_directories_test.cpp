// mkDir. Beyond its results these pin the order of its steps: which level is tested and created
// when, and the bracket of the error state around each creation.

#include "core/vx_error.h"
#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/changed_root.h"
#include "tests/testing/child.h"
#include "tests/testing/own_mounts.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <sstream>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

class MkDir : public FsTest {
 protected:
  /// One line names the level and the system's text, and the record is that of the call.
  void expectFailure(const std::string& level, int code) const {
    EXPECT_EQ(log.all(),
              lines("error: Failed to create dir: " + level + " [err: " + errnoText(code) + "]."));
    EXPECT_TRUE(capturedErrorIs(code, "mkDir"));
  }
};

std::string modeOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
  std::ostringstream digits;
  digits << std::oct << (status.st_mode & 07777);
  return digits.str();
}

/// Sets the mask of permissions for the length of a scope.
class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : before_(::umask(mask)) {}
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;
  ~ScopedUmask() { ::umask(before_); }

 private:
  mode_t before_;
};

// ---------------------------------------------------------------------------------------------
// Nothing to create

TEST_F(MkDir, RefusesTheEmptyPathInSilence) {
  RecordedCalls calls;

  EXPECT_FALSE(fs::mkDir(""));

  EXPECT_EQ(calls.all(), lines());
  expectSilence();
}

TEST_F(MkDir, LeavesAnExistingDirectoryAlone) {
  tmp.write("d/f", "text");
  RecordedCalls calls;

  EXPECT_TRUE(fs::mkDir(".//d/"));

  // One question whether anything is there, one whether it is a directory.
  EXPECT_EQ(calls.all(), lines("stat d", "stat d"));
  expectSilence();
  EXPECT_EQ(tmp.entries(), lines("d/", "d/f"));
}

TEST_F(MkDir, FindsTheRootAndTheCurrentDirectory) {
  EXPECT_TRUE(fs::mkDir("/"));
  EXPECT_TRUE(fs::mkDir("."));
  EXPECT_TRUE(fs::mkDir(".."));
  EXPECT_TRUE(fs::mkDir("x/.."));

  expectSilence();
  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(MkDir, FindsADirectoryBehindALink) {
  tmp.mkdir("d");
  tmp.link("link", "d");

  EXPECT_TRUE(fs::mkDir("link"));

  expectSilence();
}

TEST_F(MkDir, RefusesAFileInSilence) {
  tmp.write("f", "text");
  tmp.link("link", "f");
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  RecordedCalls calls;

  EXPECT_FALSE(fs::mkDir("f"));
  EXPECT_FALSE(fs::mkDir("link"));
  EXPECT_FALSE(fs::mkDir("fifo"));
  EXPECT_FALSE(fs::mkDir("/dev/null"));

  EXPECT_EQ(calls.count("mkdir"), 0U);
  expectSilence();
  EXPECT_EQ(tmp.read("f"), "text");
}

TEST_F(MkDir, TakesASocketForADirectory) {
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);

  EXPECT_TRUE(fs::mkDir("socket"));

  expectSilence();
}

TEST_F(MkDir, FindsADirectoryThatAppearsAfterItsFirstQuestion) {
  tmp.mkdir("d");
  RecordedCalls calls;
  calls.script("stat d", [asked = 0]() mutable -> std::optional<int> {
    return ++asked == 1 ? std::optional(ENOENT) : std::nullopt;
  });

  EXPECT_TRUE(fs::mkDir("d"));

  EXPECT_EQ(calls.all(), lines("stat d", "stat d"));
  expectSilence();
}

// ---------------------------------------------------------------------------------------------
// Paths without a level. The root and the current directory always exist, so that the first
// question has to be made to fail.

TEST_F(MkDir, CannotSplitTheRoot) {
  RecordedCalls calls;
  calls.fail("stat /", ENOENT);

  EXPECT_FALSE(fs::mkDir("//./"));

  EXPECT_EQ(calls.all(), lines("stat /"));
  EXPECT_EQ(log.all(), lines("error: Cannot split path for mkDir: /."));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_F(MkDir, CannotSplitTheCurrentDirectory) {
  RecordedCalls calls;
  calls.fail("stat .", ENOENT);

  EXPECT_FALSE(fs::mkDir("a/.."));

  EXPECT_EQ(calls.all(), lines("stat ."));
  EXPECT_EQ(log.all(), lines("error: Cannot split path for mkDir: .."));
  EXPECT_TRUE(sentinel.isUntouched());
}

// ---------------------------------------------------------------------------------------------
// The walk

TEST_F(MkDir, CreatesEveryMissingLevel) {
  EXPECT_TRUE(fs::mkDir("a/b/c"));

  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("a/", "a/b/", "a/b/c/"));
}

TEST_F(MkDir, TestsEachLevelBeforeItCreatesIt) {
  RecordedCalls calls;

  EXPECT_TRUE(fs::mkDir("a/b/c"));

  EXPECT_EQ(calls.all(), lines("stat a/b/c",                  //
                               "stat a", "mkdir a 0777",      //
                               "stat a/b", "mkdir a/b 0777",  //
                               "stat a/b/c", "mkdir a/b/c 0777"));
}

TEST_F(MkDir, OnlyTestsTheLevelsThatExist) {
  tmp.mkdir("a/b");
  RecordedCalls calls;

  EXPECT_TRUE(fs::mkDir("a/b/c"));

  EXPECT_EQ(calls.all(),
            lines("stat a/b/c", "stat a", "stat a/b", "stat a/b/c", "mkdir a/b/c 0777"));
}

TEST_F(MkDir, WalksAnAbsolutePathFromTheRoot) {
  RecordedCalls calls;
  calls.pretend("mkdir");  // so that nothing is created in the root

  EXPECT_TRUE(fs::mkDir("//vx missing//a/"));

  EXPECT_EQ(calls.all(), lines("stat /vx missing/a",                          //
                               "stat /vx missing", "mkdir /vx missing 0777",  //
                               "stat /vx missing/a", "mkdir /vx missing/a 0777"));
}

TEST_F(MkDir, CreatesAnAbsolutePath) {
  EXPECT_TRUE(fs::mkDir(vxText(tmp.path("a/b"))));

  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("a/", "a/b/"));
}

TEST_F(MkDir, WalksAPathThatBeginsWithABackslashFromTheRoot) {
  RecordedCalls calls;
  calls.pretend("mkdir");  // so that nothing is created in the root

  EXPECT_TRUE(fs::mkDir("\\a/b"));

  EXPECT_EQ(calls.all(), lines("stat \\a/b",                    //
                               "stat /\\a", "mkdir /\\a 0777",  //
                               "stat /\\a/b", "mkdir /\\a/b 0777"));
}

TEST_F(MkDir, KeepsTheBackslashInTheNameOfTheFirstLevel) {
  if (!canChangeRoot()) {
    GTEST_SKIP() << kCannotChangeRoot;
  }
  tmp.mkdir("inside");

  runInRoot(tmp.path(), [&] {
    ASSERT_EQ(::chdir("/inside"), 0);

    EXPECT_TRUE(fs::mkDir("\\a/b"));

    EXPECT_EQ(log.all(), lines());
  });

  EXPECT_EQ(tmp.entries(), lines("\\a/", "\\a/b/", "inside/"));
}

TEST_F(MkDir, LooksForTheBackslashInTheTextAsWritten) {
  RecordedCalls calls;
  calls.pretend("mkdir");  // so that nothing is created in the root

  EXPECT_TRUE(fs::mkDir("\\x/../vx missing"));

  EXPECT_EQ(calls.all(), lines("stat vx missing", "stat /vx missing", "mkdir /vx missing 0777"));
}

TEST_F(MkDir, TakesABackslashElsewhereForPartOfAName) {
  EXPECT_TRUE(fs::mkDir("./\\a"));
  EXPECT_TRUE(fs::mkDir("b\\c"));

  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("\\a/", "b\\c/"));
}

TEST_F(MkDir, TakesThePathInItsNormalForm) {
  EXPECT_TRUE(fs::mkDir(".//a/./gone/..//b/"));

  EXPECT_EQ(tmp.entries(), lines("a/", "a/b/"));
}

TEST_F(MkDir, ClimbsToTheParent) {
  tmp.mkdir("d");
  const ScopedCurrentDir inside("d");
  RecordedCalls calls;

  EXPECT_TRUE(fs::mkDir("../e"));

  EXPECT_EQ(calls.all(), lines("stat ../e", "stat ..", "stat ../e", "mkdir ../e 0777"));
  EXPECT_EQ(tmp.entries(), lines("d/", "e/"));
}

TEST_F(MkDir, PassesThroughALinkToADirectory) {
  tmp.mkdir("d");
  tmp.link("link", "d");

  EXPECT_TRUE(fs::mkDir("link/x"));

  EXPECT_EQ(tmp.entries(), lines("d/", "d/x/", "link"));
}

TEST_F(MkDir, TakesNamesAsBytes) {
  EXPECT_TRUE(fs::mkDir("a b/line\nbreak/\xff\xfe"));

  EXPECT_EQ(tmp.entries(), lines("a b/", "a b/line\nbreak/", "a b/line\nbreak/\xff\xfe/"));
}

TEST_F(MkDir, GivesEveryPermissionThatTheUmaskLeaves) {
  {
    const ScopedUmask mask(027);
    EXPECT_TRUE(fs::mkDir("masked/below"));
  }
  {
    const ScopedUmask mask(0);
    EXPECT_TRUE(fs::mkDir("open/below"));
  }

  EXPECT_EQ(modeOf("masked"), "750");
  EXPECT_EQ(modeOf("masked/below"), "750");
  EXPECT_EQ(modeOf("open"), "777");
  EXPECT_EQ(modeOf("open/below"), "777");
}

TEST_F(MkDir, LeavesTheCallersTextAlone) {
  const String path = "a//b/";

  EXPECT_TRUE(fs::mkDir(path));

  EXPECT_EQ(path, "a//b/");
}

// ---------------------------------------------------------------------------------------------
// The error state

TEST_F(MkDir, LeavesARecordOfTheSuccess) {
  errno = EIO;

  EXPECT_TRUE(fs::mkDir("a"));

  EXPECT_TRUE(currentErrorIs(0, "mkDir", ""));
  EXPECT_EQ(log.all(), lines());
}

TEST_F(MkDir, ClearsTheErrorStateRightBeforeEachCreation) {
  RecordedCalls calls;
  int created = 0;
  const auto expectCleared = [&] {
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(currentErrorIs(0, "", ""));
    ++created;
  };
  calls.before("mkdir a 0777", expectCleared);
  calls.before("mkdir a/b 0777", expectCleared);
  calls.before("stat a", [&] { EXPECT_TRUE(sentinel.isUntouched()); });
  calls.before("stat a/b", [&, asked = 0]() mutable {
    // First of all as the whole path, then as the second level, after the first has been recorded.
    EXPECT_TRUE(++asked == 1 ? sentinel.isUntouched() : currentErrorIs(0, "mkDir", ""));
  });

  EXPECT_TRUE(fs::mkDir("a/b"));

  EXPECT_EQ(created, 2);
}

TEST_F(MkDir, KeepsTheRecordOfTheLastLevelThatWasTried) {
  EXPECT_FALSE(fs::mkDir(vxText("a/" + std::string(300, 'n') + "/c")));

  EXPECT_TRUE(capturedErrorIs(ENAMETOOLONG, "mkDir"));
}

TEST_F(MkDir, RecordsTheErrorOfTheCallWhateverErrnoWasBefore) {
  tmp.write("f", "text");
  errno = EIO;

  EXPECT_FALSE(fs::mkDir("f/x"));

  expectFailure("f", EEXIST);
}

// ---------------------------------------------------------------------------------------------
// Failures

TEST_F(MkDir, NamesTheLevelThatIsAFile) {
  tmp.write("x", "text");
  RecordedCalls calls;

  EXPECT_FALSE(fs::mkDir(vxText(tmp.path("x/y/z"))));

  expectFailure(tmp.path("x"), EEXIST);
  EXPECT_EQ(calls.count("mkdir"), 1U);
  EXPECT_EQ(tmp.entries(), lines("x"));
  EXPECT_EQ(tmp.read("x"), "text");
}

TEST_F(MkDir, NamesTheLevelAsItWalkedThere) {
  tmp.write("d/f", "text");

  EXPECT_FALSE(fs::mkDir("./d//f/x/"));

  expectFailure("d/f", EEXIST);
}

TEST_F(MkDir, PrintsTheNameOfALevelAsItIs) {
  tmp.write("100%s%n", "text");

  EXPECT_FALSE(fs::mkDir("100%s%n/x"));

  expectFailure("100%s%n", EEXIST);
}

TEST_F(MkDir, TakesADanglingLinkForAnEntryInTheWay) {
  tmp.link("dangling", "missing");

  EXPECT_FALSE(fs::mkDir("dangling"));

  expectFailure("dangling", EEXIST);
  EXPECT_EQ(tmp.entries(), lines("dangling"));
}

TEST_F(MkDir, TakesALinkLoopForAnEntryInTheWay) {
  tmp.link("loop", "loop");

  EXPECT_FALSE(fs::mkDir("loop/x"));

  expectFailure("loop", EEXIST);
}

TEST_F(MkDir, CannotEnterASocketThatItTakesForADirectory) {
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);

  EXPECT_FALSE(fs::mkDir("socket/x"));

  expectFailure("socket/x", ENOTDIR);
}

TEST_F(MkDir, KeepsTheLevelsThatItMadeBeforeAFailure) {
  const std::string tooLong = "a/b/" + std::string(300, 'n');
  RecordedCalls calls;

  EXPECT_FALSE(fs::mkDir(vxText(tooLong + "/d")));

  expectFailure(tooLong, ENAMETOOLONG);
  EXPECT_EQ(tmp.entries(), lines("a/", "a/b/"));
  EXPECT_EQ(calls.all().back(), "mkdir " + tooLong + " 0777");
}

TEST_F(MkDir, TakesALevelThatAnotherProcessCreatesMeanwhileForAFailure) {
  RecordedCalls calls;
  calls.before("mkdir a 0777", [&] { tmp.mkdir("a"); });

  EXPECT_FALSE(fs::mkDir("a/b"));

  expectFailure("a", EEXIST);
  EXPECT_EQ(calls.all(), lines("stat a/b", "stat a", "mkdir a 0777"));
  EXPECT_EQ(tmp.entries(), lines("a/"));
}

TEST_F(MkDir, NeedsTheRightToWrite) {
  tmp.mkdir("locked");
  ASSERT_EQ(::chmod("locked", 0555), 0);

  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::mkDir("locked/x/y"));

    expectFailure("locked/x", EACCES);
  });

  EXPECT_EQ(tmp.entries(), lines("locked/"));
}

TEST_F(MkDir, TriesToCreateALevelThatItMayNotSee) {
  tmp.mkdir("locked/d");
  ASSERT_EQ(::chmod("locked", 0600), 0);

  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::mkDir("locked/d"));

    expectFailure("locked/d", EACCES);
  });
}

TEST_F(MkDir, ReportsAFileSystemThatIsReadOnly) {
  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  tmp.mkdir("mounted");

  runWithOwnMounts([&] {
    mountMemory("mounted", "size=64k");
    EXPECT_TRUE(fs::mkDir("mounted/before"));
    makeReadOnly("mounted");

    EXPECT_FALSE(fs::mkDir("mounted/before/after"));

    expectFailure("mounted/before/after", EROFS);
  });
}

TEST_F(MkDir, ReportsWhateverTheSystemAnswers) {
  for (const int code : {EROFS, ENOSPC, EMLINK, EDQUOT, EIO}) {
    const LogCapture own;
    RecordedCalls calls;
    calls.fail("mkdir a 0777", code);

    EXPECT_FALSE(fs::mkDir("a/b"));

    EXPECT_EQ(own.all(), lines("error: Failed to create dir: a [err: " + errnoText(code) + "]."));
    EXPECT_TRUE(capturedErrorIs(code, "mkDir"));
  }
}

TEST_F(MkDir, FailsInACurrentDirectoryThatHasBeenRemoved) {
  tmp.mkdir("d");

  runInChild([&] {
    const ScopedCurrentDir inside("d");
    ASSERT_EQ(::rmdir(tmp.path("d").c_str()), 0);

    EXPECT_FALSE(fs::mkDir("a/b"));

    expectFailure("a", ENOENT);
  });
}

TEST_F(MkDir, CannotSplitTheRemovedCurrentDirectoryItself) {
  tmp.mkdir("d");

  runInChild([&] {
    const ScopedCurrentDir inside("d");
    ASSERT_EQ(::rmdir(tmp.path("d").c_str()), 0);
    const LogCapture own;

    EXPECT_FALSE(fs::mkDir("./"));

    EXPECT_EQ(own.all(), lines("error: Cannot split path for mkDir: .."));
  });
}

}  // namespace
}  // namespace vx::test
