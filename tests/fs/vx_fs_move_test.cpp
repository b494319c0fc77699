// moveFile: its five calls, what they leave when one of them fails, and when the process ends
// between two of them.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/child.h"
#include "tests/testing/own_mounts.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

class MoveFile : public SilentFsTest {};

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

// ---------------------------------------------------------------------------------------------
// Success

TEST_F(MoveFile, ReplacesTheDestinationAndLeavesNoBackup) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("d.txt"));
  EXPECT_EQ(tmp.read("d.txt"), "new");
}

TEST_F(MoveFile, MovesToAMissingDestination) {
  tmp.write("s", "new");

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("d.txt"));
  EXPECT_EQ(tmp.read("d.txt"), "new");
}

TEST_F(MoveFile, MovesBetweenDirectories) {
  tmp.write("a/s", "new");
  tmp.write("b/d", "old");

  EXPECT_TRUE(fs::moveFile(vxText(tmp.path("a/s")), "b/d"));

  EXPECT_EQ(tmp.entries(), lines("a/", "b/", "b/d"));
  EXPECT_EQ(tmp.read("b/d"), "new");
}

TEST_F(MoveFile, SetsTheDestinationAsideThenRenamesTheSource) {
  tmp.write("s", "new");
  tmp.write("out/report.txt", "old");
  RecordedCalls calls;

  EXPECT_TRUE(fs::moveFile(".//s", "./out//report.txt"));

  // The test takes the normal form, every other call the text as written.
  EXPECT_EQ(calls.all(), lines("stat s",                                      //
                               "remove ./out//report.bak",                    //
                               "rename ./out//report.txt ./out//report.bak",  //
                               "rename .//s ./out//report.txt",               //
                               "remove ./out//report.bak"));
}

TEST_F(MoveFile, MakesTheSameCallsWithoutADestination) {
  tmp.write("s", "new");
  RecordedCalls calls;

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(calls.all(), lines("stat s", "remove d.bak", "rename d.txt d.bak", "rename s d.txt",
                               "remove d.bak"));
}

TEST_F(MoveFile, NamesTheBackupByTheDestinationsExtension) {
  struct Row {
    const char* dst;
    const char* backup;
  };
  constexpr Row kRows[] = {
      {"report", "report.bak"},  {"report.tar.gz", "report.tar.bak"}, {".profile", ".profile.bak"},
      {"report.", "report.bak"}, {"v1.0/report", "v1.0/report.bak"},
  };
  tmp.mkdir("v1.0");
  for (const Row& row : kRows) {
    tmp.write("s", "new");
    tmp.write(row.dst, "old");
    RecordedCalls calls;
    std::string setAside;
    calls.before(std::string("rename s ") + row.dst, [&] { setAside = tmp.read(row.backup); });

    EXPECT_TRUE(fs::moveFile("s", row.dst)) << row.dst;

    EXPECT_EQ(setAside, "old") << row.dst;
    EXPECT_EQ(tmp.read(row.dst), "new");
    EXPECT_FALSE(tmp.exists(row.backup));
  }
}

TEST_F(MoveFile, MovesTheFileItself) {
  tmp.write("s", "text");
  ASSERT_EQ(::chmod("s", 0751), 0);
  constexpr timespec kLongAgo[] = {{1'000'000, 0}, {1'000'000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, "s", kLongAgo, 0), 0);
  const ino_t inode = statusOf("s").st_ino;

  EXPECT_TRUE(fs::moveFile("s", "d"));

  EXPECT_EQ(statusOf("d").st_ino, inode);
  EXPECT_EQ(statusOf("d").st_mode & 07777U, 0751U);
  EXPECT_EQ(statusOf("d").st_mtim.tv_sec, kLongAgo[1].tv_sec);
}

TEST_F(MoveFile, MovesALinkToAFileAsALink) {
  tmp.write("f", "text");
  tmp.link("link", "f");

  EXPECT_TRUE(fs::moveFile("link", "d"));

  EXPECT_TRUE(S_ISLNK(statusOf("d").st_mode));
  EXPECT_EQ(tmp.entries(), lines("d", "f"));
}

TEST_F(MoveFile, ReplacesALinkAndNotTheFileBehindIt) {
  tmp.write("s", "new");
  tmp.write("f", "old");
  tmp.link("d", "f");

  EXPECT_TRUE(fs::moveFile("s", "d"));

  EXPECT_TRUE(S_ISREG(statusOf("d").st_mode));
  EXPECT_EQ(tmp.entries(), lines("d", "f"));
  EXPECT_EQ(tmp.read("f"), "old");
}

TEST_F(MoveFile, MovesAFifo) {
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);

  EXPECT_TRUE(fs::moveFile("fifo", "d"));

  EXPECT_TRUE(S_ISFIFO(statusOf("d").st_mode));
}

TEST_F(MoveFile, SetsADirectoryAtTheDestinationAside) {
  tmp.write("s", "new");
  tmp.mkdir("empty");
  tmp.write("t", "new");
  tmp.write("full/f", "text");

  EXPECT_TRUE(fs::moveFile("s", "empty"));
  EXPECT_TRUE(fs::moveFile("t", "full"));

  // What cannot be removed stays under the backup name.
  EXPECT_EQ(tmp.entries(), lines("empty", "full", "full.bak/", "full.bak/f"));
}

TEST_F(MoveFile, LeavesTheCallersTextsAlone) {
  tmp.write("s", "text");
  const String src = ".//s";
  const String dst = ".//d";

  EXPECT_TRUE(fs::moveFile(src, dst));

  EXPECT_EQ(src, ".//s");
  EXPECT_EQ(dst, ".//d");
}

// ---------------------------------------------------------------------------------------------
// What bears the backup name

TEST_F(MoveFile, RemovesAFileThatBearsTheBackupName) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");
  tmp.write("d.bak", "wanted by somebody");

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("d.txt"));
}

TEST_F(MoveFile, RemovesAFileThatBearsTheBackupNameEvenWithoutADestination) {
  tmp.write("s", "new");
  tmp.write("d.bak", "wanted by somebody");

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("d.txt"));
  EXPECT_EQ(tmp.read("d.txt"), "new");
}

TEST_F(MoveFile, RemovesAFileThatBearsTheBackupNameEvenWhenItFails) {
  tmp.write("s", "new");
  tmp.write("d.bak", "wanted by somebody");

  EXPECT_FALSE(fs::moveFile("missing/../s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("s"));
}

TEST_F(MoveFile, RemovesAnEmptyDirectoryThatBearsTheBackupName) {
  tmp.write("s", "new");
  tmp.mkdir("d.bak");

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("d.txt"));
}

TEST_F(MoveFile, RenamesOverTheDestinationWhenTheBackupNameIsTaken) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");
  tmp.write("d.bak/f", "in the way");

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("d.bak/", "d.bak/f", "d.txt"));
  EXPECT_EQ(tmp.read("d.txt"), "new");
}

TEST_F(MoveFile, LosesTheSourceThatBearsTheBackupName) {
  tmp.write("a.bak", "new");
  tmp.write("a.txt", "old");

  EXPECT_TRUE(fs::moveFile("a.bak", "a.txt"));

  EXPECT_EQ(tmp.entries(), lines("a.txt"));
  EXPECT_EQ(tmp.read("a.txt"), "old");
}

TEST_F(MoveFile, LosesTheSourceThatBearsTheBackupNameOfAMissingDestination) {
  tmp.write("a.bak", "new");

  EXPECT_FALSE(fs::moveFile("a.bak", "a.txt"));

  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(MoveFile, LosesBothFilesWhenTheDestinationIsItsOwnBackup) {
  tmp.write("s", "new");
  tmp.write("d.bak", "old");
  RecordedCalls calls;

  EXPECT_TRUE(fs::moveFile("s", "d.bak"));

  EXPECT_EQ(calls.all(), lines("stat s", "remove d.bak", "rename d.bak d.bak", "rename s d.bak",
                               "remove d.bak"));
  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(MoveFile, KnowsABackupByItsExactExtension) {
  tmp.write("s", "new");
  tmp.write("d.BAK", "old");

  EXPECT_TRUE(fs::moveFile("s", "d.BAK"));

  EXPECT_EQ(tmp.entries(), lines("d.BAK"));
  EXPECT_EQ(tmp.read("d.BAK"), "new");
}

// ---------------------------------------------------------------------------------------------
// Failure

TEST_F(MoveFile, NeedsAFileForASource) {
  tmp.write("d.txt", "old");
  tmp.write("d.bak", "backup");
  tmp.mkdir("dir");
  tmp.link("dangling", "missing");
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);
  RecordedCalls calls;

  for (const char* const src : {"", "missing", ".//dir/", "dangling", "socket"}) {
    EXPECT_FALSE(fs::moveFile(src, "d.txt")) << src;
  }

  EXPECT_EQ(calls.all(), lines("stat missing", "stat dir", "stat dangling", "stat socket"));
  EXPECT_EQ(tmp.read("d.txt"), "old");
  EXPECT_EQ(tmp.read("d.bak"), "backup");
}

TEST_F(MoveFile, RestoresTheDestinationWhenTheSourceCannotBeRenamed) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");
  const ino_t inode = statusOf("d.txt").st_ino;
  RecordedCalls calls;

  // Only the normal form names the source.
  EXPECT_FALSE(fs::moveFile("missing/../s", "d.txt"));

  EXPECT_EQ(calls.all(), lines("stat s", "remove d.bak", "rename d.txt d.bak",
                               "rename missing/../s d.txt", "rename d.bak d.txt"));
  EXPECT_EQ(tmp.entries(), lines("d.txt", "s"));
  EXPECT_EQ(tmp.read("d.txt"), "old");
  EXPECT_EQ(statusOf("d.txt").st_ino, inode);
  EXPECT_EQ(tmp.read("s"), "new");
}

TEST_F(MoveFile, LeavesAFileMovedOntoItselfInPlace) {
  tmp.write("a.txt", "text");
  RecordedCalls calls;

  EXPECT_FALSE(fs::moveFile("a.txt", "a.txt"));

  EXPECT_EQ(calls.all(), lines("stat a.txt", "remove a.bak", "rename a.txt a.bak",
                               "rename a.txt a.txt", "rename a.bak a.txt"));
  EXPECT_EQ(tmp.entries(), lines("a.txt"));
  EXPECT_EQ(tmp.read("a.txt"), "text");
}

TEST_F(MoveFile, TakesNamesThatDifferInCaseForDifferentFiles) {
  tmp.write("a.txt", "new");
  tmp.write("A.txt", "old");

  EXPECT_TRUE(fs::moveFile("a.txt", "A.txt"));

  EXPECT_EQ(tmp.entries(), lines("A.txt"));
  EXPECT_EQ(tmp.read("A.txt"), "new");
}

TEST_F(MoveFile, DoesNotCreateDirectories) {
  tmp.write("s", "text");

  EXPECT_FALSE(fs::moveFile("s", "missing/d"));

  EXPECT_EQ(tmp.entries(), lines("s"));
}

TEST_F(MoveFile, NeedsADestination) {
  tmp.write("s", "text");

  EXPECT_FALSE(fs::moveFile("s", ""));

  EXPECT_EQ(tmp.entries(), lines("s"));
}

TEST_F(MoveFile, DoesNotCrossDevices) {
  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  tmp.write("s", "new");
  tmp.mkdir("mounted");

  runWithOwnMounts([&] {
    mountMemory("mounted", "size=64k");
    tmp.write("mounted/d.txt", "old");

    EXPECT_FALSE(fs::moveFile("s", "mounted/d.txt"));
    EXPECT_FALSE(fs::moveFile("s", "mounted/missing.txt"));

    EXPECT_EQ(tmp.entries(), lines("mounted/", "mounted/d.txt", "s"));
    EXPECT_EQ(tmp.read("mounted/d.txt"), "old");
    EXPECT_EQ(tmp.read("s"), "new");
    expectSilence();
  });
}

TEST_F(MoveFile, TriesNothingElseWhenTheRenameFails) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");
  for (const int code : {EXDEV, EACCES, EROFS, ENOSPC, EIO}) {
    RecordedCalls calls;
    calls.fail("rename s d.txt", code);
    calls.watchStreamsIn(tmp.path());

    EXPECT_FALSE(fs::moveFile("s", "d.txt")) << errnoText(code);

    EXPECT_EQ(calls.all(), lines("stat s", "remove d.bak", "rename d.txt d.bak", "rename s d.txt",
                                 "rename d.bak d.txt"));
    EXPECT_EQ(tmp.entries(), lines("d.txt", "s"));
    EXPECT_EQ(tmp.read("d.txt"), "old");
  }
}

TEST_F(MoveFile, GoesOnWhenTheDestinationCannotBeSetAside) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");
  RecordedCalls calls;
  calls.fail("remove d.bak", EIO);
  calls.fail("rename d.txt d.bak", EIO);

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("d.txt"));
  EXPECT_EQ(tmp.read("d.txt"), "new");
}

TEST_F(MoveFile, SucceedsWhenTheBackupCannotBeRemoved) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");
  RecordedCalls calls;
  calls.fail("remove d.bak", EIO);

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.read("d.txt"), "new");
  EXPECT_EQ(tmp.read("d.bak"), "old");
}

TEST_F(MoveFile, LeavesTheBackupWhenItCannotBeRestored) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");
  RecordedCalls calls;
  calls.fail("rename s d.txt", EIO);
  calls.fail("rename d.bak d.txt", EIO);

  EXPECT_FALSE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("d.bak", "s"));
  EXPECT_EQ(tmp.read("d.bak"), "old");
}

TEST_F(MoveFile, NeedsTheRightToWriteBesideTheDestination) {
  tmp.write("open/s", "new");
  ASSERT_EQ(::chmod("open", 0777), 0);
  tmp.write("locked/d.txt", "old");
  tmp.write("locked/d.bak", "backup");
  ASSERT_EQ(::chmod("locked", 0555), 0);

  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::moveFile("open/s", "locked/d.txt"));

    expectSilence();
  });

  EXPECT_EQ(tmp.read("open/s"), "new");
  EXPECT_EQ(tmp.read("locked/d.txt"), "old");
  EXPECT_EQ(tmp.read("locked/d.bak"), "backup");
}

TEST_F(MoveFile, NeedsTheRightToWriteBesideTheSource) {
  tmp.write("locked/s", "new");
  ASSERT_EQ(::chmod("locked", 0555), 0);
  tmp.write("open/d.txt", "old");
  ASSERT_EQ(::chmod("open", 0777), 0);

  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::moveFile("locked/s", "open/d.txt"));

    expectSilence();
  });

  EXPECT_EQ(tmp.entries(), lines("locked/", "locked/s", "open/", "open/d.txt"));
  EXPECT_EQ(tmp.read("open/d.txt"), "old");
}

// ---------------------------------------------------------------------------------------------
// A process that ends in between

class MoveFileKilled : public MoveFile {
 protected:
  /// Moves s onto d.txt in a child that is killed when it is about to make `call` for the `nth`
  /// time.
  void moveUntil(const std::string& call, int nth = 1) {
    tmp.write("s", "new");
    tmp.write("d.txt", "old");
    const ChildEnd end = endOfChild([&] {
      RecordedCalls calls;
      calls.before(call, [&, made = 0]() mutable {
        if (++made == nth) {
          ::raise(SIGKILL);
        }
      });
      (void)fs::moveFile("s", "d.txt");
    });
    EXPECT_TRUE(end.wasKilled());
    EXPECT_EQ(end.signal, SIGKILL);
  }
};

TEST_F(MoveFileKilled, BeforeTheFirstRenameLeavesBothFiles) {
  moveUntil("rename d.txt d.bak");

  EXPECT_EQ(tmp.entries(), lines("d.txt", "s"));
  EXPECT_EQ(tmp.read("d.txt"), "old");
}

TEST_F(MoveFileKilled, BetweenTheRenamesLeavesTheOldFileUnderTheBackupName) {
  moveUntil("rename s d.txt");

  EXPECT_EQ(tmp.entries(), lines("d.bak", "s"));
  EXPECT_EQ(tmp.read("d.bak"), "old");
  EXPECT_EQ(tmp.read("s"), "new");
}

TEST_F(MoveFileKilled, AfterTheRenamesLeavesTheOldFileUnderTheBackupName) {
  moveUntil("remove d.bak", 2);

  EXPECT_EQ(tmp.entries(), lines("d.bak", "d.txt"));
  EXPECT_EQ(tmp.read("d.bak"), "old");
  EXPECT_EQ(tmp.read("d.txt"), "new");
}

}  // namespace
}  // namespace vx::test
