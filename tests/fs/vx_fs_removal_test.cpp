// rmDir and rmFile.

#include "core/vx_error.h"
#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/child.h"
#include "tests/testing/own_mounts.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

// ---------------------------------------------------------------------------------------------
// rmDir

class RmDir : public FsTest {
 protected:
  /// One line names the directory and the system's text, and the record is that of the call.
  void expectFailure(const std::string& canonical, int code) const {
    EXPECT_EQ(log.all(), lines("error: Failed to remove dir: " + canonical +
                               " [err: " + errnoText(code) + "]."));
    EXPECT_TRUE(capturedErrorIs(code, "rmDir"));
  }

  void expectFileLeftAlone(const std::string& normalized) const {
    EXPECT_EQ(log.all(), lines("error: rmDir called for file: " + normalized + "."));
    EXPECT_TRUE(sentinel.isUntouched());
  }
};

TEST_F(RmDir, RefusesTheEmptyPathInSilence) {
  RecordedCalls calls;

  EXPECT_FALSE(fs::rmDir(""));

  EXPECT_EQ(calls.all(), lines());
  expectSilence();
}

TEST_F(RmDir, RefusesAFile) {
  tmp.write("f", "text");
  RecordedCalls calls;

  EXPECT_FALSE(fs::rmDir("f"));

  EXPECT_EQ(calls.all(), lines("stat f"));
  expectFileLeftAlone("f");
  EXPECT_EQ(tmp.read("f"), "text");
}

TEST_F(RmDir, NamesTheFileByItsNormalForm) {
  tmp.write("d/f", "text");

  EXPECT_FALSE(fs::rmDir("./d//x/../f/"));

  expectFileLeftAlone("d/f");
}

TEST_F(RmDir, PrintsTheNameOfTheFileAsItIs) {
  tmp.write("100%s%n", "text");

  EXPECT_FALSE(fs::rmDir("100%s%n"));

  expectFileLeftAlone("100%s%n");
}

TEST_F(RmDir, TakesEverythingThatIsNoDirectoryForAFile) {
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);

  EXPECT_FALSE(fs::rmDir("fifo"));

  expectFileLeftAlone("fifo");
  EXPECT_EQ(tmp.entries(), lines("fifo"));
}

TEST_F(RmDir, RefusesALinkToAFile) {
  tmp.write("f", "text");
  tmp.link("link", "f");

  EXPECT_FALSE(fs::rmDir("link"));

  expectFileLeftAlone("link");
  EXPECT_EQ(tmp.entries(), lines("f", "link"));
}

TEST_F(RmDir, HasNothingToDoWhereNothingIs) {
  RecordedCalls calls;

  EXPECT_TRUE(fs::rmDir("./missing/"));

  EXPECT_EQ(calls.all(), lines("stat missing", "stat missing"));
  expectSilence();
}

TEST_F(RmDir, HasNothingToDoWhereNothingCanBeFound) {
  tmp.write("f", "text");
  tmp.link("dangling", "missing");
  tmp.link("loop", "loop");

  EXPECT_TRUE(fs::rmDir("f/below"));
  EXPECT_TRUE(fs::rmDir("dangling"));
  EXPECT_TRUE(fs::rmDir("loop"));
  EXPECT_TRUE(fs::rmDir(vxText(std::string(300, 'n'))));

  expectSilence();
  EXPECT_EQ(tmp.entries(), lines("dangling", "f", "loop"));
}

TEST_F(RmDir, HasNothingToDoBehindALockedDirectory) {
  tmp.mkdir("locked/d");
  ASSERT_EQ(::chmod("locked", 0600), 0);

  runAsUnprivileged([&] {
    EXPECT_TRUE(fs::rmDir("locked/d"));

    expectSilence();
  });

  ASSERT_EQ(::chmod("locked", 0755), 0);
  EXPECT_EQ(tmp.entries(), lines("locked/", "locked/d/"));
}

TEST_F(RmDir, RemovesAnEmptyDirectory) {
  tmp.mkdir("a/b");

  EXPECT_TRUE(fs::rmDir("a/b"));

  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("a/"));
}

TEST_F(RmDir, AsksForAFileThenForADirectoryAndRemovesTheCanonicalPath) {
  tmp.mkdir("d");
  RecordedCalls calls;

  EXPECT_TRUE(fs::rmDir("x/.././d/"));

  EXPECT_EQ(calls.all(), lines("stat d", "stat d", "realpath d", "rmdir " + tmp.path("d")));
}

TEST_F(RmDir, LeavesARecordOfTheSuccess) {
  tmp.mkdir("d");
  errno = EIO;

  EXPECT_TRUE(fs::rmDir("d"));

  EXPECT_TRUE(currentErrorIs(0, "rmDir", ""));
  EXPECT_EQ(log.all(), lines());
}

TEST_F(RmDir, ClearsTheErrorStateRightBeforeTheRemoval) {
  tmp.mkdir("d");
  RecordedCalls calls;
  bool wasCalled = false;
  calls.before("stat d", [&] { EXPECT_TRUE(sentinel.isUntouched()); });
  calls.before("rmdir " + tmp.path("d"), [&] {
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(currentErrorIs(0, "", ""));
    wasCalled = true;
  });

  EXPECT_TRUE(fs::rmDir("d"));

  EXPECT_TRUE(wasCalled);
}

TEST_F(RmDir, KeepsADirectoryThatHoldsAFile) {
  tmp.write("d/f", "text");

  EXPECT_FALSE(fs::rmDir("d"));

  expectFailure(tmp.path("d"), ENOTEMPTY);
  EXPECT_EQ(tmp.entries(), lines("d/", "d/f"));
  EXPECT_EQ(tmp.read("d/f"), "text");
}

TEST_F(RmDir, KeepsADirectoryThatHoldsAHiddenFile) {
  tmp.write("d/.hidden", "");

  EXPECT_FALSE(fs::rmDir("d"));

  expectFailure(tmp.path("d"), ENOTEMPTY);
  EXPECT_EQ(tmp.entries(), lines("d/", "d/.hidden"));
}

TEST_F(RmDir, KeepsADirectoryThatHoldsAnEmptyOne) {
  tmp.mkdir("d/below");

  EXPECT_FALSE(fs::rmDir("d"));

  expectFailure(tmp.path("d"), ENOTEMPTY);
  EXPECT_EQ(tmp.entries(), lines("d/", "d/below/"));
}

TEST_F(RmDir, RemovesTheDirectoryBehindALink) {
  tmp.mkdir("d");
  tmp.link("link", "d");

  EXPECT_TRUE(fs::rmDir("link"));

  EXPECT_EQ(tmp.entries(), lines("link"));
}

TEST_F(RmDir, NamesTheDirectoryBehindALink) {
  tmp.write("d/f", "text");
  tmp.link("link", "d");

  EXPECT_FALSE(fs::rmDir("link"));

  expectFailure(tmp.path("d"), ENOTEMPTY);
}

TEST_F(RmDir, NamesTheDirectoryThatTheLinkLeadsToWhenItLogs) {
  tmp.mkdir("d");
  tmp.mkdir("e");
  tmp.link("link", "d");
  RecordedCalls calls;
  calls.script("rmdir " + tmp.path("d"), [&] {
    std::filesystem::remove("link");
    tmp.link("link", "e");
    return EBUSY;
  });

  EXPECT_FALSE(fs::rmDir("link"));

  expectFailure(tmp.path("e"), EBUSY);
}

TEST_F(RmDir, RecordsTheErrorOfTheCallNotThatOfFindingTheCanonicalPath) {
  tmp.mkdir("d");
  tmp.link("link", "d");
  RecordedCalls calls;
  calls.script("rmdir " + tmp.path("d"), [&] {
    std::filesystem::remove("d");  // so that the path of the message ends in a dangling link
    return EBUSY;
  });

  EXPECT_FALSE(fs::rmDir("link"));

  expectFailure(tmp.path("link"), EBUSY);
}

TEST_F(RmDir, RemovesTheCurrentDirectory) {
  tmp.mkdir("d");

  runInChild([&] {
    const ScopedCurrentDir inside("d");

    EXPECT_TRUE(fs::rmDir("."));

    EXPECT_TRUE(currentErrorIs(0, "rmDir", ""));
  });

  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(RmDir, HasNothingToDoForACurrentDirectoryThatHasBeenRemoved) {
  tmp.mkdir("d");

  runInChild([&] {
    const ScopedCurrentDir inside("d");
    ASSERT_EQ(::rmdir(tmp.path("d").c_str()), 0);
    RecordedCalls calls;

    EXPECT_TRUE(fs::rmDir("."));

    EXPECT_EQ(calls.count("rmdir"), 0U);
    expectSilence();
  });
}

TEST_F(RmDir, CannotRemoveADirectoryThatIsBusy) {
  EXPECT_FALSE(fs::rmDir("/"));

  expectFailure("/", EBUSY);
}

TEST_F(RmDir, CannotRemoveADirectoryOnWhichAFileSystemIsMounted) {
  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  tmp.mkdir("mounted");

  runWithOwnMounts([&] {
    mountMemory("mounted", "size=64k");

    EXPECT_FALSE(fs::rmDir("mounted"));

    expectFailure(tmp.path("mounted"), EBUSY);
  });
}

TEST_F(RmDir, ReportsAFileSystemThatIsReadOnly) {
  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  tmp.mkdir("mounted");

  runWithOwnMounts([&] {
    mountMemory("mounted", "size=64k");
    tmp.mkdir("mounted/d");
    makeReadOnly("mounted");

    EXPECT_FALSE(fs::rmDir("mounted/d"));

    expectFailure(tmp.path("mounted/d"), EROFS);
  });
}

TEST_F(RmDir, NeedsTheRightToWrite) {
  tmp.mkdir("locked/d");
  ASSERT_EQ(::chmod("locked", 0555), 0);

  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::rmDir("locked/d"));

    expectFailure(tmp.path("locked/d"), EACCES);
  });

  EXPECT_EQ(tmp.entries(), lines("locked/", "locked/d/"));
}

TEST_F(RmDir, TakesASocketForADirectoryThatCannotBeRemoved) {
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);

  EXPECT_FALSE(fs::rmDir("socket"));

  expectFailure(tmp.path("socket"), ENOTDIR);
  EXPECT_EQ(tmp.entries(), lines("socket"));
}

TEST_F(RmDir, ReportsWhateverTheSystemAnswers) {
  tmp.mkdir("d");
  for (const int code : {EROFS, EPERM, EIO}) {
    const LogCapture own;
    RecordedCalls calls;
    calls.fail("rmdir " + tmp.path("d"), code);

    EXPECT_FALSE(fs::rmDir("d"));

    EXPECT_EQ(own.all(), lines("error: Failed to remove dir: " + tmp.path("d") +
                               " [err: " + errnoText(code) + "]."));
    EXPECT_TRUE(capturedErrorIs(code, "rmDir"));
    EXPECT_EQ(calls.count("rmdir"), 1U);
  }
}

TEST_F(RmDir, LeavesTheCallersTextAlone) {
  tmp.mkdir("d");
  const String path = ".//d/";

  EXPECT_TRUE(fs::rmDir(path));

  EXPECT_EQ(path, ".//d/");
}

// ---------------------------------------------------------------------------------------------
// rmFile

class RmFile : public SilentFsTest {};

TEST_F(RmFile, RemovesAFile) {
  tmp.write("f", "text");
  tmp.write("g", "text");

  EXPECT_TRUE(fs::rmFile("f"));

  EXPECT_EQ(tmp.entries(), lines("g"));
}

TEST_F(RmFile, RemovesEverythingThatIsNoDirectory) {
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);

  EXPECT_TRUE(fs::rmFile("fifo"));

  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(RmFile, RemovesALinkAndNotTheFileBehindIt) {
  tmp.write("f", "text");
  tmp.link("link", "f");

  EXPECT_TRUE(fs::rmFile("link"));

  EXPECT_EQ(tmp.entries(), lines("f"));
}

TEST_F(RmFile, HasNothingToDoForTheEmptyPath) {
  RecordedCalls calls;

  EXPECT_TRUE(fs::rmFile(""));

  EXPECT_EQ(calls.all(), lines());
}

TEST_F(RmFile, HasNothingToDoWhereNothingIs) {
  RecordedCalls calls;

  EXPECT_TRUE(fs::rmFile("./missing/"));

  EXPECT_EQ(calls.all(), lines("stat missing"));
}

TEST_F(RmFile, LeavesADirectoryInPlace) {
  tmp.mkdir("d");
  tmp.link("link", "d");
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);
  RecordedCalls calls;

  EXPECT_TRUE(fs::rmFile("d"));
  EXPECT_TRUE(fs::rmFile("link"));
  EXPECT_TRUE(fs::rmFile("socket"));

  EXPECT_EQ(calls.count("remove"), 0U);
  EXPECT_EQ(tmp.entries(), lines("d/", "link", "socket"));
}

TEST_F(RmFile, LeavesWhatCannotBeFound) {
  tmp.link("dangling", "missing");
  tmp.link("loop", "loop");

  EXPECT_TRUE(fs::rmFile("dangling"));
  EXPECT_TRUE(fs::rmFile("loop"));

  EXPECT_EQ(tmp.entries(), lines("dangling", "loop"));
}

TEST_F(RmFile, TestsTheNormalFormAndRemovesTheTextAsWritten) {
  tmp.write("d/f", "text");
  RecordedCalls calls;

  EXPECT_TRUE(fs::rmFile("./d//f"));

  EXPECT_EQ(calls.all(), lines("stat d/f", "remove ./d//f"));
}

TEST_F(RmFile, FailsWhereOnlyTheNormalFormNamesTheFile) {
  tmp.write("f", "text");

  EXPECT_FALSE(fs::rmFile("missing/../f"));
  EXPECT_FALSE(fs::rmFile("f/"));

  EXPECT_EQ(tmp.read("f"), "text");
}

TEST_F(RmFile, NeedsTheRightToWrite) {
  tmp.write("locked/f", "text");
  ASSERT_EQ(::chmod("locked", 0555), 0);

  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::rmFile("locked/f"));

    expectSilence();
  });

  EXPECT_EQ(tmp.read("locked/f"), "text");
}

TEST_F(RmFile, PassesEveryOtherFailureOn) {
  tmp.write("f", "text");
  for (const int code : {EROFS, EBUSY, EIO}) {
    RecordedCalls calls;
    calls.fail("remove f", code);

    EXPECT_FALSE(fs::rmFile("f")) << errnoText(code);

    EXPECT_EQ(calls.all(), lines("stat f", "remove f"));
  }
}

}  // namespace
}  // namespace vx::test
