// SPDX-License-Identifier: MIT
//
// copyFile and moveFile. What limits, full disks and kills leave behind is tested in integration/.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/child.h"
#include "tests/testing/failures.h"
#include "tests/testing/memory_use.h"
#include "tests/testing/scoped.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace vx::test {
namespace {

/// Returns bytes without a period that the size of a buffer could hide.
std::string manyBytes(std::size_t count) {
  std::string bytes(count, '\0');
  std::uint32_t state = 1;
  for (char& byte : bytes) {
    state = state * 1664525U + 1013904223U;
    byte = static_cast<char>(state >> 24);
  }
  return bytes;
}

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  return status;
}

/// Expects `copyOrMove` to refuse each source that is no file after the tests of the source alone.
void expectToNeedAFile(bool (*copyOrMove)(String, String), const TempDir& tmp) {
  createOneOfEachKind(tmp);
  tmp.write("d.txt", "old");
  tmp.write("d.bak", "backup");
  Calls calls;

  for (const char* const src :
       {"", "missing", ".//dir/", "link-to-dir", "dangling", "loop", "socket", "file/x"}) {
    EXPECT_FALSE(copyOrMove(src, "d.txt")) << src;
  }

  EXPECT_EQ(calls.all(), lines("stat missing", "stat dir", "stat link-to-dir", "stat dangling",
                               "stat loop", "stat socket", "stat file/x"));
  EXPECT_EQ(tmp.read("d.txt"), "old");
  EXPECT_EQ(tmp.read("d.bak"), "backup");
}

// ---------------------------------------------------------------------------------------------
// copyFile

class CopyFile : public FsTest {
 protected:
  /// The calls except those that move bytes, which the C++ library chooses. It may add a letter to
  /// the mode of a stream.
  static std::vector<std::string> callsExceptData(const Calls& calls) {
    std::vector<std::string> result;
    for (std::string& call : calls.all()) {
      if (selects("fread", call) || selects("fwrite", call) || selects("fflush", call) ||
          selects("fseeko", call)) {
        continue;
      }
      if (selects("fopen", call) && call.ends_with("be")) {
        call.pop_back();
      }
      result.push_back(std::move(call));
    }
    return result;
  }
};

TEST_F(CopyFile, EmptiesAFileThatIsCopiedByALinkToIt) {
  tmp.write("f", "text");
  tmp.link("link", "f");

  EXPECT_TRUE(fs::copyFile("link", "f"));

  EXPECT_EQ(tmp.read("f"), "");
}

TEST_F(CopyFile, CopiesFilesOfAnySize) {
  for (const std::size_t size : {0U, 1U, 8191U, 8192U, 131071U, 131072U, 131073U, (1U << 20) + 1}) {
    const std::string bytes = manyBytes(size);
    tmp.write("s", bytes);

    EXPECT_TRUE(fs::copyFile("s", vxText(tmp.path("d")))) << size;

    EXPECT_TRUE(tmp.read("d") == bytes) << size;
    EXPECT_TRUE(tmp.read("s") == bytes) << size;
  }
  expectSilence();
}

TEST_F(CopyFile, CopiesWhatIsNoDirectory) {
  createOneOfEachKind(tmp);

  EXPECT_TRUE(fs::copyFile("link-to-file", "a"));
  EXPECT_TRUE(fs::copyFile("/dev/null", "b"));

  EXPECT_TRUE(S_ISREG(statusOf("a").st_mode));
  EXPECT_EQ(tmp.read("a"), "text");
  EXPECT_EQ(tmp.read("b"), "");
}

TEST_F(CopyFile, CopiesNeitherModeNorTime) {
  constexpr time_t kLongAgo = 1'000'000;
  constexpr timespec kTimes[] = {{kLongAgo, 0}, {kLongAgo, 0}};
  tmp.write("s", "text");
  ASSERT_EQ(::chmod("s", 0751), 0);
  ASSERT_EQ(::utimensat(AT_FDCWD, "s", kTimes, 0), 0);
  tmp.write("d", "old");
  ASSERT_EQ(::chmod("d", 0700), 0);
  const ScopedUmask mask(027);

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_EQ(statusOf("d").st_mode & 07777U, 0640U);
  EXPECT_GT(statusOf("d").st_mtime, kLongAgo);
}

TEST_F(CopyFile, ReplacesALinkToAFileAndAFifo) {
  createOneOfEachKind(tmp);
  tmp.write("s", "new");

  EXPECT_TRUE(fs::copyFile("s", "link-to-file"));
  EXPECT_TRUE(fs::copyFile("s", "fifo"));

  EXPECT_TRUE(S_ISREG(statusOf("link-to-file").st_mode));
  EXPECT_EQ(tmp.read("link-to-file"), "new");
  EXPECT_EQ(tmp.read("file"), "text");
  EXPECT_TRUE(S_ISREG(statusOf("fifo").st_mode));
  EXPECT_EQ(tmp.read("fifo"), "new");
}

TEST_F(CopyFile, WritesThroughADanglingLink) {
  tmp.write("s", "text");
  tmp.link("d", "f");

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_TRUE(S_ISLNK(statusOf("d").st_mode));
  EXPECT_EQ(tmp.read("f"), "text");
}

TEST_F(CopyFile, RemovesOpensAndClosesInOrder) {
  tmp.write("s", "new");
  tmp.write("d", "old");
  const String src = "./s";
  const String dst = ".//d";
  Calls calls;
  calls.onCall("fclose", [&] { calls.note("d: " + tmp.read("d")); });

  EXPECT_TRUE(fs::copyFile(src, dst));

  // The tests take the normal form, every other call the path as written. The destination is
  // closed first, which writes what is buffered.
  EXPECT_EQ(callsExceptData(calls),
            lines("stat s", "stat d", "remove .//d", "fopen ./s rb", "fopen .//d wb",  //
                  "fclose", "d: new", "fclose", "d: new", "stat d"));
  EXPECT_EQ(src, "./s");
  EXPECT_EQ(dst, ".//d");
}

TEST_F(CopyFile, OverwritesAFileThatReappears) {
  tmp.write("s", "new");
  tmp.write("d", "much longer than the source");
  Calls calls;
  calls.succeed("remove d");

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_EQ(tmp.read("d"), "new");
}

TEST_F(CopyFile, HoldsNoFileInMemory) {
  constexpr long kSize = 64L << 20;
  constexpr long kAllowedKibibytes = 16L << 10;
  std::filesystem::resize_file(tmp.write("s", ""), kSize);

  runInChild([&] {
    const long before = peakKibibytes();

    EXPECT_TRUE(fs::copyFile("s", "d"));

    EXPECT_LT(peakKibibytes() - before, kAllowedKibibytes);
  });

  EXPECT_EQ(statusOf("d").st_size, kSize);
}

TEST_F(CopyFile, MovesLargeBlocksAtATime) {
  constexpr std::size_t kSize = 8U << 20;
#ifdef _LIBCPP_VERSION
  constexpr std::size_t kBlock = 4096;  // the buffer of its output stream
#else
  constexpr std::size_t kBlock = 128U << 10;
#endif
  constexpr std::size_t kMost = kSize / kBlock + 2;  // the last ones may be smaller
  std::filesystem::resize_file(tmp.write("s", ""), kSize);
  Calls calls;

  EXPECT_TRUE(fs::copyFile("s", "d"));

  const std::size_t reads = calls.count("read") + calls.count("fread");
  const std::size_t writes = calls.count("write") + calls.count("writev") + calls.count("fwrite");
  EXPECT_GT(reads, 0U);
  EXPECT_LE(reads, kMost);
  EXPECT_GT(writes, 0U);
  EXPECT_LE(writes, kMost);
}

// A file onto itself

TEST_F(CopyFile, RefusesPathsThatAreEqualIgnoringCase) {
  struct Row {
    const char* src;
    const char* dst;
    const char* examined;
  };
  constexpr Row kRows[] = {
      {"a.txt", "a.txt", "stat a.txt"},
      {"a.txt", "A.TXT", "stat A.TXT"},
      {"dir/f", "DIR/f", "stat DIR/f"},
      {"./gone/..//a", "./gone/..//a", "stat a"},
      {"./100%s%n//x", "./100%S%N//x", "stat 100%S%N/x"},
  };
  for (const Row& row : kRows) {
    for (const bool isFile : {true, false}) {
      const Sandbox own;
      Calls calls;
      calls.answer("stat", isFile ? S_IFREG : S_IFDIR);

      // The message names the source, the result is about the destination.
      EXPECT_EQ(fs::copyFile(row.src, row.dst), isFile);

      EXPECT_EQ(calls.all(), lines(row.examined));
      EXPECT_EQ(own.log.all(),
                lines("warning: Cannot copy '" + std::string(row.src) + "' to itself."));
      EXPECT_TRUE(own.sentinel.isUntouched());
    }
  }
}

TEST_F(CopyFile, RefusesTheSamePathEvenIfNothingIsThere) {
  EXPECT_FALSE(fs::copyFile("missing", "MISSING"));
  EXPECT_FALSE(fs::copyFile("", ""));

  EXPECT_EQ(log.all(), lines("warning: Cannot copy 'missing' to itself.",
                             "warning: Cannot copy '' to itself."));
  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(CopyFile, IgnoresTheCaseOfAsciiLettersOnly) {
  Calls calls;
  calls.fail("stat", ENOENT);

  EXPECT_FALSE(fs::copyFile("\xc3\xa4", "\xc3\x84"));  // a and A with two dots

  EXPECT_EQ(calls.all(), lines("stat \xc3\xa4"));
  expectSilence();
}

TEST_F(CopyFile, EmptiesAFileThatIsSpelledInTwoWays) {
  tmp.write("a.txt", "text");
  Calls calls;

  EXPECT_TRUE(fs::copyFile("./a.txt", "a.txt"));

  EXPECT_EQ(callsExceptData(calls),
            lines("stat a.txt", "stat a.txt", "remove a.txt",  //
                  "fopen ./a.txt rb", "fopen a.txt wb", "fclose", "stat a.txt"));
  EXPECT_EQ(tmp.entries(), lines("a.txt"));
  EXPECT_EQ(tmp.read("a.txt"), "");
  expectSilence();
}

TEST_F(CopyFile, ReplacesLinksToTheSourceByCopies) {
  tmp.write("f", "text");
  tmp.link("link", "f");
  std::filesystem::create_hard_link("f", "hard-link");

  EXPECT_TRUE(fs::copyFile("f", "link"));
  EXPECT_TRUE(fs::copyFile("f", "hard-link"));

  EXPECT_TRUE(S_ISREG(statusOf("link").st_mode));
  EXPECT_EQ(tmp.read("link"), "text");
  EXPECT_NE(statusOf("hard-link").st_ino, statusOf("f").st_ino);
  EXPECT_EQ(tmp.read("hard-link"), "text");
  EXPECT_EQ(tmp.read("f"), "text");
}

// Sources and destinations

TEST_F(CopyFile, NeedsAFileAsTheSource) {
  expectToNeedAFile(fs::copyFile, tmp);

  expectSilence();
}

TEST_F(CopyFile, LeavesAnEmptyFileIfTheSourceCannotBeOpened) {
  tmp.write("s", "new");
  tmp.write("d", "old");

  EXPECT_TRUE(fs::copyFile("missing/../s", "d"));
  EXPECT_TRUE(fs::copyFile("s/", "e"));

  EXPECT_EQ(tmp.entries(), lines("d", "e", "s"));
  EXPECT_EQ(tmp.read("d"), "");
  EXPECT_EQ(tmp.read("e"), "");
  expectSilence();
}

TEST_F(CopyFile, RefusesADestinationThatCannotBeAFile) {
  createOneOfEachKind(tmp);
  tmp.write("full/f", "text");
  const std::vector<std::string> entries = tmp.entries();
  Calls calls;

  // No directory is created, and the path is opened as written.
  for (const char* const dst :
       {"", "dir", "full", "link-to-dir", "socket", "loop", "missing/d", "missing/../d"}) {
    EXPECT_FALSE(fs::copyFile("file", dst)) << dst;
  }

  EXPECT_EQ(calls.count("remove"), 0U);
  EXPECT_EQ(tmp.entries(), entries);
  expectSilence();
}

TEST_F(CopyFile, ReportsADestinationThatCannotBeRemoved) {
  tmp.write("s", "new");
  tmp.write("100%s%n", "old");

  // Only the normal form names the destination.
  EXPECT_FALSE(fs::copyFile("s", "missing/../100%s%n"));

  EXPECT_EQ(log.all(), lines("error: File copy failed, could not delete destination file: "
                             "missing/../100%s%n"));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(tmp.read("100%s%n"), "old");
}

TEST_F(CopyFile, ReportsOnlyAFailingRemoval) {
  const std::string content = manyBytes(140'000);
  forEachFailure([&](FailureRun& run) {
    run.tmp.write("src", content);
    run.tmp.write("dst", "old");

    const bool copied = run.act([] { return fs::copyFile("src", "dst"); });

    EXPECT_TRUE(run.sentinel.isUntouched());
    if (run.failed("remove dst")) {
      EXPECT_FALSE(copied);
      EXPECT_EQ(run.log.all(),
                lines("error: File copy failed, could not delete destination file: dst"));
      EXPECT_EQ(run.tmp.read("dst"), "old");
      return;
    }
    EXPECT_EQ(run.log.all(), lines());
    if (run.failed("stat src")) {
      EXPECT_FALSE(copied);
      EXPECT_EQ(run.tmp.read("dst"), "old");
      return;
    }
    if (run.failed("fopen dst")) {
      EXPECT_FALSE(copied);
      EXPECT_EQ(run.tmp.entries(), lines("src"));
      return;
    }
    // The last test decides about the result, whatever the copy contains.
    EXPECT_EQ(copied, !run.failed("stat dst", 2));
    if (run.failed("fopen src")) {
      EXPECT_EQ(run.tmp.read("dst"), "");
      return;
    }
    const bool isData = run.failed("read") || run.failed("fread") || run.failed("write") ||
                        run.failed("writev") || run.failed("fwrite");
    if (isData && run.error() != EINTR) {
      EXPECT_TRUE(content.starts_with(run.tmp.read("dst")));
      return;
    }
#ifdef _LIBCPP_VERSION
    if (isData) {
      return;  // it does not take up what a signal has interrupted
    }
#endif
    EXPECT_TRUE(run.tmp.read("dst") == content);
  });
}

// ---------------------------------------------------------------------------------------------
// moveFile, which never reports anything

class MoveFile : public SilentFsTest {};

TEST_F(MoveFile, SetsTheDestinationAsideUnderTheBackupName) {
  tmp.write("s", "new");
  tmp.write("out/report.txt", "old");
  const String src = ".//s";
  const String dst = "./out//report.txt";
  Calls calls;

  EXPECT_TRUE(fs::moveFile(src, dst));

  // The test takes the normal form, every other call the path as written.
  EXPECT_EQ(calls.all(), lines("stat s",                                      //
                               "remove ./out//report.bak",                    //
                               "rename ./out//report.txt ./out//report.bak",  //
                               "rename .//s ./out//report.txt",               //
                               "remove ./out//report.bak"));
  EXPECT_EQ(tmp.entries(), lines("out/", "out/report.txt"));
  EXPECT_EQ(tmp.read("out/report.txt"), "new");
  EXPECT_EQ(src, ".//s");
  EXPECT_EQ(dst, "./out//report.txt");
}

TEST_F(MoveFile, ReplacesTheExtensionByThatOfABackup) {
  struct Row {
    const char* dst;
    const char* rename;
  };
  constexpr Row kRows[] = {
      {"report", "rename report report.bak"},
      {"report.", "rename report. report.bak"},
      {"report.tar.gz", "rename report.tar.gz report.tar.bak"},
      {".profile", "rename .profile .profile.bak"},
      {"v1.0/report", "rename v1.0/report v1.0/report.bak"},
      {"d.BAK", "rename d.BAK d.bak"},
      {"d.bak", "rename d.bak d.bak"},
  };
  tmp.write("s", "new");
  for (const Row& row : kRows) {
    Calls calls;
    calls.succeed("remove");
    calls.succeed("rename");

    EXPECT_TRUE(fs::moveFile("s", row.dst)) << row.dst;

    EXPECT_EQ(calls.all("rename"), lines(row.rename, "rename s " + std::string(row.dst)));
  }
}

TEST_F(MoveFile, MovesAndReplacesLinksThemselves) {
  createOneOfEachKind(tmp);

  EXPECT_TRUE(fs::moveFile("link-to-file", "link-to-dir"));
  EXPECT_TRUE(fs::moveFile("fifo", "dangling"));

  EXPECT_TRUE(S_ISLNK(statusOf("link-to-dir").st_mode));
  EXPECT_TRUE(S_ISFIFO(statusOf("dangling").st_mode));
  EXPECT_EQ(tmp.entries(), lines("dangling", "dir/", "file", "link-to-dir", "loop", "socket"));
}

TEST_F(MoveFile, SetsADirectoryAtTheDestinationAside) {
  tmp.write("s", "new");
  tmp.mkdir("empty");
  tmp.write("t", "new");
  tmp.write("full/f", "text");

  EXPECT_TRUE(fs::moveFile("s", "empty"));
  EXPECT_TRUE(fs::moveFile("t", "full"));

  // A directory that cannot be removed remains under the backup name.
  EXPECT_EQ(tmp.entries(), lines("empty", "full", "full.bak/", "full.bak/f"));
}

// What has the backup name already

TEST_F(MoveFile, RemovesWhatHasTheBackupName) {
  tmp.write("s", "new");
  tmp.write("a.txt", "old");
  tmp.write("a.bak", "wanted by somebody");
  tmp.write("t", "new");
  tmp.write("b.bak", "wanted by somebody");
  tmp.write("u", "new");
  tmp.mkdir("c.bak");

  EXPECT_TRUE(fs::moveFile("s", "a.txt"));
  EXPECT_TRUE(fs::moveFile("t", "b.txt"));
  EXPECT_TRUE(fs::moveFile("u", "c.txt"));

  EXPECT_EQ(tmp.entries(), lines("a.txt", "b.txt", "c.txt"));
  EXPECT_EQ(tmp.read("a.txt"), "new");
}

TEST_F(MoveFile, RemovesWhatHasTheBackupNameEvenIfItFails) {
  tmp.write("s", "new");
  tmp.write("d.bak", "wanted by somebody");

  EXPECT_FALSE(fs::moveFile("missing/../s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("s"));
}

TEST_F(MoveFile, OverwritesTheDestinationIfTheBackupNameIsTaken) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");
  tmp.write("d.bak/f", "in the way");

  EXPECT_TRUE(fs::moveFile("s", "d.txt"));

  EXPECT_EQ(tmp.entries(), lines("d.bak/", "d.bak/f", "d.txt"));
  EXPECT_EQ(tmp.read("d.txt"), "new");
}

TEST_F(MoveFile, LosesASourceThatHasTheBackupName) {
  tmp.write("a.bak", "new");
  tmp.write("a.txt", "old");
  tmp.write("b.bak", "new");

  EXPECT_TRUE(fs::moveFile("a.bak", "a.txt"));
  EXPECT_FALSE(fs::moveFile("b.bak", "b.txt"));

  EXPECT_EQ(tmp.entries(), lines("a.txt"));
  EXPECT_EQ(tmp.read("a.txt"), "old");
}

TEST_F(MoveFile, LosesBothFilesIfTheDestinationIsItsOwnBackup) {
  tmp.write("s", "new");
  tmp.write("d.bak", "old");
  Calls calls;

  EXPECT_TRUE(fs::moveFile("s", "d.bak"));

  EXPECT_EQ(calls.all(), lines("stat s", "remove d.bak", "rename d.bak d.bak", "rename s d.bak",
                               "remove d.bak"));
  EXPECT_EQ(tmp.entries(), lines());
}

// Failures

TEST_F(MoveFile, NeedsAFileAsTheSource) {
  expectToNeedAFile(fs::moveFile, tmp);
}

TEST_F(MoveFile, RestoresTheDestinationIfTheRenameFails) {
  tmp.write("s", "new");
  tmp.write("d.txt", "old");
  const ino_t inode = statusOf("d.txt").st_ino;
  Calls calls;

  // Only the normal form names the source.
  EXPECT_FALSE(fs::moveFile("missing/../s", "d.txt"));

  EXPECT_EQ(calls.all(), lines("stat s", "remove d.bak", "rename d.txt d.bak",
                               "rename missing/../s d.txt", "rename d.bak d.txt"));
  EXPECT_EQ(tmp.entries(), lines("d.txt", "s"));
  EXPECT_EQ(tmp.read("d.txt"), "old");
  EXPECT_EQ(statusOf("d.txt").st_ino, inode);
  EXPECT_EQ(tmp.read("s"), "new");
}

TEST_F(MoveFile, PutsADirectoryFromTheBackupNameInPlace) {
  tmp.write("s", "new");
  tmp.write("a.bak/f", "text");
  tmp.write("b.bak/f", "text");
  tmp.mkdir("b.d");
  tmp.write("c.bak/f", "text");
  tmp.write("c.txt", "old");
  tmp.write("d.bak/f", "text");
  tmp.write("d.d/g", "text");

  for (const char* const dst : {"a.txt", "b.d", "c.txt", "d.d"}) {
    EXPECT_FALSE(fs::moveFile("missing/../s", dst)) << dst;
  }

  // Only where nothing or an empty directory is in its way.
  EXPECT_EQ(tmp.entries(), lines("a.txt/", "a.txt/f", "b.d/", "b.d/f",  //
                                 "c.bak/", "c.bak/f", "c.txt",          //
                                 "d.bak/", "d.bak/f", "d.d/", "d.d/g", "s"));
}

TEST_F(MoveFile, LeavesAFileMovedOntoItselfInPlace) {
  tmp.write("a.txt", "text");
  Calls calls;

  EXPECT_FALSE(fs::moveFile("a.txt", "a.txt"));

  EXPECT_EQ(calls.all(), lines("stat a.txt", "remove a.bak", "rename a.txt a.bak",
                               "rename a.txt a.txt", "rename a.bak a.txt"));
  EXPECT_EQ(tmp.entries(), lines("a.txt"));
  EXPECT_EQ(tmp.read("a.txt"), "text");
}

TEST_F(MoveFile, NeedsADestinationInADirectory) {
  tmp.write("s", "text");

  EXPECT_FALSE(fs::moveFile("s", "missing/d"));
  EXPECT_FALSE(fs::moveFile("s", ""));

  EXPECT_EQ(tmp.entries(), lines("s"));
}

TEST_F(MoveFile, FailsOnlyIfTheSourceIsNotFoundOrRenamed) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("s", "new");
    run.tmp.write("d.txt", "old");
    run.tmp.write("d.bak", "stale");

    const bool moved = run.act([] { return fs::moveFile("s", "d.txt"); });

    run.expectSilence();
    if (run.failed("stat s")) {
      EXPECT_FALSE(moved);
      EXPECT_EQ(run.tmp.entries(), lines("d.bak", "d.txt", "s"));
      EXPECT_EQ(run.tmp.read("d.bak"), "stale");
      EXPECT_EQ(run.tmp.read("d.txt"), "old");
      return;
    }
    if (run.failed("rename s d.txt")) {
      EXPECT_FALSE(moved);
      EXPECT_EQ(run.tmp.entries(), lines("d.txt", "s"));
      EXPECT_EQ(run.tmp.read("d.txt"), "old");
      EXPECT_EQ(run.tmp.read("s"), "new");
      return;
    }
    EXPECT_TRUE(moved);
    EXPECT_EQ(run.tmp.read("d.txt"), "new");
    if (run.failed("remove d.bak", 2)) {
      EXPECT_EQ(run.tmp.entries(), lines("d.bak", "d.txt"));
      EXPECT_EQ(run.tmp.read("d.bak"), "old");
      return;
    }
    EXPECT_EQ(run.tmp.entries(), lines("d.txt"));
  });
}

TEST_F(MoveFile, LeavesABackupThatCannotBeRestored) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("s", "new");
    run.tmp.write("d.txt", "old");
    run.calls.fail("rename s d.txt", EXDEV);

    EXPECT_FALSE(run.act([] { return fs::moveFile("s", "d.txt"); }));

    run.expectSilence();
    const char* const place = run.failed("rename d.bak d.txt") ? "d.bak" : "d.txt";
    EXPECT_EQ(run.tmp.entries(), lines(place, "s"));
    EXPECT_EQ(run.tmp.read(place), "old");
    EXPECT_EQ(run.tmp.read("s"), "new");
  });
}

}  // namespace
}  // namespace vx::test
