// copyFile. Its result says only that a file stands at the destination, so most tests look at what
// the copy leaves there, and at the order in which files are tested, removed, opened and closed.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/child.h"
#include "tests/testing/own_mounts.h"
#include "tests/testing/peak_memory.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

class CopyFile : public FsTest {};

/// Bytes without a period that a buffer's size could hide.
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

// ---------------------------------------------------------------------------------------------
// What is copied

TEST_F(CopyFile, CopiesEveryByte) {
  const std::string bytes("line\r\nline\n\0\xff\x1a end", 18);
  tmp.write("s", bytes);

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_EQ(tmp.read("d"), bytes);
  EXPECT_EQ(tmp.read("s"), bytes);
  expectSilence();
}

TEST_F(CopyFile, CopiesFilesOfAnySize) {
  for (const std::size_t size : {1U, 8191U, 8192U, 131071U, 131072U, 131073U, (1U << 20) + 1}) {
    const std::string bytes = manyBytes(size);
    tmp.write("s", bytes);

    EXPECT_TRUE(fs::copyFile("s", "d"));

    EXPECT_TRUE(tmp.read("d") == bytes) << size;
  }
}

TEST_F(CopyFile, CopiesAnEmptyFile) {
  tmp.write("s", "");

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_EQ(tmp.entries(), lines("d", "s"));
  EXPECT_EQ(tmp.read("d"), "");
  expectSilence();
}

TEST_F(CopyFile, ReplacesTheWholeOfALongerFile) {
  tmp.write("s", "short");
  tmp.write("d", "much longer than the source");

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_EQ(tmp.read("d"), "short");
  expectSilence();
}

TEST_F(CopyFile, CopiesBetweenDirectories) {
  tmp.write("a/s", "text");
  tmp.mkdir("b");

  EXPECT_TRUE(fs::copyFile(vxText(tmp.path("a/s")), "b/d"));

  EXPECT_EQ(tmp.read("b/d"), "text");
}

TEST_F(CopyFile, CopiesTheFileBehindALink) {
  tmp.write("s", "text");
  tmp.link("link", "s");

  EXPECT_TRUE(fs::copyFile("link", "d"));

  EXPECT_TRUE(S_ISREG(statusOf("d").st_mode));
  EXPECT_EQ(tmp.read("d"), "text");
}

TEST_F(CopyFile, CopiesFromACharacterDevice) {
  EXPECT_TRUE(fs::copyFile("/dev/null", "d"));

  EXPECT_EQ(tmp.read("d"), "");
  expectSilence();
}

TEST_F(CopyFile, CopiesNoModeAndNoTimes) {
  tmp.write("s", "text");
  ASSERT_EQ(::chmod("s", 0751), 0);
  constexpr timespec kLongAgo[] = {{1'000'000, 0}, {1'000'000, 0}};
  ASSERT_EQ(::utimensat(AT_FDCWD, "s", kLongAgo, 0), 0);
  const mode_t before = ::umask(027);

  EXPECT_TRUE(fs::copyFile("s", "d"));

  ::umask(before);
  EXPECT_EQ(statusOf("d").st_mode & 07777U, 0640U);
  EXPECT_GT(statusOf("d").st_mtim.tv_sec, kLongAgo[1].tv_sec);
}

TEST_F(CopyFile, DoesNotTakeOverTheModeOfTheFileThatItReplaces) {
  tmp.write("s", "text");
  tmp.write("d", "old");
  ASSERT_EQ(::chmod("d", 0700), 0);
  const mode_t before = ::umask(022);

  EXPECT_TRUE(fs::copyFile("s", "d"));

  ::umask(before);
  EXPECT_EQ(statusOf("d").st_mode & 07777U, 0644U);
}

TEST_F(CopyFile, ReplacesALinkAndNotTheFileBehindIt) {
  tmp.write("s", "new");
  tmp.write("f", "old");
  tmp.link("d", "f");

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_TRUE(S_ISREG(statusOf("d").st_mode));
  EXPECT_EQ(tmp.read("d"), "new");
  EXPECT_EQ(tmp.read("f"), "old");
}

TEST_F(CopyFile, WritesThroughADanglingLink) {
  tmp.write("s", "text");
  tmp.link("d", "f");

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_TRUE(S_ISLNK(statusOf("d").st_mode));
  EXPECT_EQ(tmp.read("f"), "text");
}

TEST_F(CopyFile, ReplacesAFifo) {
  tmp.write("s", "text");
  ASSERT_EQ(::mkfifo("d", 0600), 0);

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_TRUE(S_ISREG(statusOf("d").st_mode));
  EXPECT_EQ(tmp.read("d"), "text");
}

TEST_F(CopyFile, HoldsNoFileInMemory) {
  constexpr long kSize = 64L << 20;
  constexpr long kAllowedKibibytes = 16L << 10;
  tmp.write("s", "");
  ASSERT_EQ(::truncate("s", kSize), 0);

  runInChild([&] {
    const long before = peakKibibytes();

    EXPECT_TRUE(fs::copyFile("s", "d"));

    EXPECT_LT(peakKibibytes() - before, kAllowedKibibytes);
  });

  EXPECT_EQ(statusOf("d").st_size, kSize);
}

/// How often this process has read and written so far, as the system counts it.
struct Transfers {
  long reads = 0;
  long writes = 0;
};

Transfers transfersSoFar() {
  Transfers transfers;
  std::ifstream counts("/proc/self/io");
  std::string name;
  for (long count = 0; counts >> name >> count;) {
    if (name == "syscr:") {
      transfers.reads = count;
    }
    if (name == "syscw:") {
      transfers.writes = count;
    }
  }
  return transfers;
}

TEST_F(CopyFile, MovesLargeBlocksAtATime) {
  constexpr long kSize = 8L << 20;
#ifdef _LIBCPP_VERSION
  constexpr long kBlock = 4096;  // what its output stream holds, which it fills byte by byte
#else
  constexpr long kBlock = 128L << 10;
#endif
  // The first and the last one may be smaller, and the counts themselves are read.
  constexpr long kMost = kSize / kBlock + 8;
  tmp.write("s", "");
  ASSERT_EQ(::truncate("s", kSize), 0);
  if (transfersSoFar().reads == 0) {
    GTEST_SKIP() << "this system does not count what a process reads and writes";
  }

  runInChild([&] {
    const Transfers before = transfersSoFar();

    EXPECT_TRUE(fs::copyFile("s", "d"));

    const Transfers after = transfersSoFar();
    EXPECT_LE(after.reads - before.reads, kMost);
    EXPECT_LE(after.writes - before.writes, kMost);
    EXPECT_GT(after.writes, before.writes);
  });
}

TEST_F(CopyFile, LeavesTheCallersTextsAlone) {
  tmp.write("s", "text");
  const String src = ".//s";
  const String dst = ".//d";

  EXPECT_TRUE(fs::copyFile(src, dst));

  EXPECT_EQ(src, ".//s");
  EXPECT_EQ(dst, ".//d");
}

// ---------------------------------------------------------------------------------------------
// The order

TEST_F(CopyFile, RemovesOpensAndClosesInOrder) {
  tmp.write("s", "new");
  tmp.write("d", "old");
  RecordedCalls calls;
  calls.watchStreamsIn(tmp.path());

  EXPECT_TRUE(fs::copyFile("./s", ".//d"));

  // Tests take the normal form, the removal the text as written.
  EXPECT_EQ(calls.all(), lines("stat s", "stat d", "remove .//d",  //
                               "open s", "open d", "close d", "close s", "stat d"));
}

TEST_F(CopyFile, RemovesNothingWhereNothingIs) {
  tmp.write("s", "new");
  RecordedCalls calls;
  calls.watchStreamsIn(tmp.path());

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_EQ(calls.all(),
            lines("stat s", "stat d", "open s", "open d", "close d", "close s", "stat d"));
}

TEST_F(CopyFile, LeavesNothingOfAFileThatTakesThePlaceOfTheOneRemoved) {
  tmp.write("s", "new");
  tmp.write("d", "much longer than the source");
  RecordedCalls calls;
  calls.pretend("remove d");

  EXPECT_TRUE(fs::copyFile("s", "d"));

  EXPECT_EQ(tmp.read("d"), "new");
}

TEST_F(CopyFile, AnswersByALookAtTheDestinationAfterwards) {
  tmp.write("s", "text");
  RecordedCalls calls;
  calls.fail("stat d", EIO);

  EXPECT_FALSE(fs::copyFile("s", "d"));

  EXPECT_EQ(tmp.read("d"), "text");
  expectSilence();
}

// ---------------------------------------------------------------------------------------------
// A file onto itself

TEST_F(CopyFile, RefusesToCopyAFileOntoItself) {
  tmp.write("a.txt", "text");
  RecordedCalls calls;

  EXPECT_TRUE(fs::copyFile("a.txt", "a.txt"));

  EXPECT_EQ(log.all(), lines("warning: Cannot copy 'a.txt' to itself."));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(calls.all(), lines("stat a.txt"));
  EXPECT_EQ(tmp.read("a.txt"), "text");
}

TEST_F(CopyFile, FindsTheFileThatItWouldCopyOntoItselfByItsNormalForm) {
  tmp.write("a.txt", "text");

  EXPECT_TRUE(fs::copyFile("gone/../a.txt", "gone/../a.txt"));

  EXPECT_EQ(log.all(), lines("warning: Cannot copy 'gone/../a.txt' to itself."));
}

TEST_F(CopyFile, TakesTextsThatDifferInCaseForTheSameFile) {
  tmp.write("a.txt", "lower");
  tmp.write("A.TXT", "upper");
  RecordedCalls calls;

  EXPECT_TRUE(fs::copyFile("a.txt", "A.TXT"));

  // The message names the source, the answer is about the destination.
  EXPECT_EQ(log.all(), lines("warning: Cannot copy 'a.txt' to itself."));
  EXPECT_EQ(calls.all(), lines("stat A.TXT"));
  EXPECT_EQ(tmp.read("a.txt"), "lower");
  EXPECT_EQ(tmp.read("A.TXT"), "upper");
}

TEST_F(CopyFile, DoesNotCopyToAMissingFileWhoseNameDiffersInCase) {
  tmp.write("a.txt", "text");

  EXPECT_FALSE(fs::copyFile("a.txt", "A.txt"));

  EXPECT_EQ(log.all(), lines("warning: Cannot copy 'a.txt' to itself."));
  EXPECT_EQ(tmp.entries(), lines("a.txt"));
}

TEST_F(CopyFile, TakesDirectoriesThatDifferInCaseForTheSame) {
  tmp.write("dir/f", "text");
  tmp.mkdir("DIR");

  EXPECT_FALSE(fs::copyFile("dir/f", "DIR/f"));

  EXPECT_EQ(log.all(), lines("warning: Cannot copy 'dir/f' to itself."));
  EXPECT_EQ(tmp.entries(), lines("DIR/", "dir/", "dir/f"));
}

TEST_F(CopyFile, ComparesTheTextsBeforeAnythingElse) {
  EXPECT_FALSE(fs::copyFile("missing", "MISSING"));
  EXPECT_FALSE(fs::copyFile("", ""));

  EXPECT_EQ(log.all(), lines("warning: Cannot copy 'missing' to itself.",
                             "warning: Cannot copy '' to itself."));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_F(CopyFile, WarnsWithTheTextAsWritten) {
  EXPECT_FALSE(fs::copyFile("./100%s%n//x", "./100%S%N//x"));

  EXPECT_EQ(log.all(), lines("warning: Cannot copy './100%s%n//x' to itself."));
}

TEST_F(CopyFile, KnowsTheLetterCaseOfAsciiOnly) {
  tmp.write("\xc3\xa4", "text");  // a and A with two dots

  EXPECT_TRUE(fs::copyFile("\xc3\xa4", "\xc3\x84"));

  expectSilence();
  EXPECT_EQ(tmp.read("\xc3\x84"), "text");
}

TEST_F(CopyFile, EmptiesAFileThatIsSpelledInTwoWays) {
  tmp.write("a.txt", "text");
  RecordedCalls calls;
  calls.watchStreamsIn(tmp.path());

  EXPECT_TRUE(fs::copyFile("./a.txt", "a.txt"));

  EXPECT_EQ(calls.all(), lines("stat a.txt", "stat a.txt", "remove a.txt",  //
                               "open a.txt", "close a.txt", "stat a.txt"));
  EXPECT_EQ(tmp.entries(), lines("a.txt"));
  EXPECT_EQ(tmp.read("a.txt"), "");
  expectSilence();
}

TEST_F(CopyFile, EmptiesTheFileThatTheSourceLinksTo) {
  tmp.write("f", "text");
  tmp.link("link", "f");

  EXPECT_TRUE(fs::copyFile("link", "f"));

  EXPECT_EQ(tmp.read("f"), "");
  expectSilence();
}

TEST_F(CopyFile, ReplacesALinkToTheSourceByACopy) {
  tmp.write("f", "text");
  tmp.link("link", "f");

  EXPECT_TRUE(fs::copyFile("f", "link"));

  EXPECT_TRUE(S_ISREG(statusOf("link").st_mode));
  EXPECT_EQ(tmp.read("link"), "text");
  EXPECT_EQ(tmp.read("f"), "text");
}

TEST_F(CopyFile, ReplacesAnotherNameOfTheSourceByACopy) {
  tmp.write("f", "text");
  std::filesystem::create_hard_link("f", "g");

  EXPECT_TRUE(fs::copyFile("f", "g"));

  EXPECT_NE(statusOf("f").st_ino, statusOf("g").st_ino);
  EXPECT_EQ(tmp.read("g"), "text");
  EXPECT_EQ(tmp.read("f"), "text");
}

// ---------------------------------------------------------------------------------------------
// Sources

TEST_F(CopyFile, NeedsAFileForASource) {
  tmp.write("d", "old");
  tmp.mkdir("dir");
  tmp.link("to_dir", "dir");
  tmp.link("dangling", "missing");
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);
  RecordedCalls calls;

  for (const char* const src : {"", "missing", "dir", "to_dir", "dangling", "socket", "d/below"}) {
    EXPECT_FALSE(fs::copyFile(src, "d")) << src;
  }

  EXPECT_EQ(calls.all(), lines("stat missing", "stat dir", "stat to_dir", "stat dangling",
                               "stat socket", "stat d/below"));
  EXPECT_EQ(tmp.read("d"), "old");
  expectSilence();
}

TEST_F(CopyFile, LeavesAnEmptyFileForASourceThatCannotBeOpened) {
  tmp.write("s", "new");
  tmp.write("d", "old");

  // Only the normal form names the source.
  EXPECT_TRUE(fs::copyFile("missing/../s", "d"));

  EXPECT_EQ(tmp.entries(), lines("d", "s"));
  EXPECT_EQ(tmp.read("d"), "");
  expectSilence();
}

TEST_F(CopyFile, LeavesAnEmptyFileForASourceThatMayNotBeRead) {
  tmp.write("s", "new");
  ASSERT_EQ(::chmod("s", 0), 0);
  tmp.write("open/d", "old");
  ASSERT_EQ(::chmod("open", 0777), 0);

  runAsUnprivileged([&] {
    EXPECT_TRUE(fs::copyFile("s", "open/d"));
    EXPECT_TRUE(fs::copyFile("s", "open/created"));

    expectSilence();
  });

  EXPECT_EQ(tmp.read("open/d"), "");
  EXPECT_EQ(tmp.read("open/created"), "");
}

TEST_F(CopyFile, LeavesAnEmptyFileForASourceThatFailsToRead) {
  // A file of which the first page can never be read.
  EXPECT_TRUE(fs::copyFile("/proc/self/mem", "d"));

  EXPECT_EQ(tmp.read("d"), "");
  expectSilence();
}

// ---------------------------------------------------------------------------------------------
// Destinations

TEST_F(CopyFile, DoesNotCreateDirectories) {
  tmp.write("s", "text");

  EXPECT_FALSE(fs::copyFile("s", "missing/d"));

  EXPECT_EQ(tmp.entries(), lines("s"));
  expectSilence();
}

TEST_F(CopyFile, CannotCreateADestinationThatOnlyItsNormalFormNames) {
  tmp.write("s", "text");

  EXPECT_FALSE(fs::copyFile("s", "missing/../d"));

  EXPECT_EQ(tmp.entries(), lines("s"));
  expectSilence();
}

TEST_F(CopyFile, LeavesADirectoryAtTheDestinationAlone) {
  tmp.write("s", "text");
  tmp.mkdir("empty");
  tmp.write("full/f", "text");
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);
  RecordedCalls calls;

  EXPECT_FALSE(fs::copyFile("s", "empty"));
  EXPECT_FALSE(fs::copyFile("s", "full"));
  EXPECT_FALSE(fs::copyFile("s", "socket"));

  EXPECT_EQ(calls.count("remove"), 0U);
  EXPECT_EQ(tmp.entries(), lines("empty/", "full/", "full/f", "s", "socket"));
  expectSilence();
}

TEST_F(CopyFile, NeedsADestination) {
  tmp.write("s", "text");
  RecordedCalls calls;

  EXPECT_FALSE(fs::copyFile("s", ""));

  EXPECT_EQ(calls.all(), lines("stat s"));
  EXPECT_EQ(tmp.entries(), lines("s"));
  expectSilence();
}

TEST_F(CopyFile, NeedsTheRightToWrite) {
  tmp.write("s", "text");
  tmp.mkdir("locked");
  ASSERT_EQ(::chmod("locked", 0555), 0);

  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::copyFile("s", "locked/d"));

    expectSilence();
  });

  EXPECT_EQ(tmp.entries(), lines("locked/", "s"));
}

TEST_F(CopyFile, ReportsADestinationThatMayNotBeRemoved) {
  tmp.write("s", "new");
  tmp.write("locked/d", "old");
  ASSERT_EQ(::chmod("locked/d", 0666), 0);
  ASSERT_EQ(::chmod("locked", 0555), 0);

  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::copyFile("s", "./locked//d"));

    EXPECT_EQ(log.all(),
              lines("error: File copy failed, could not delete destination file: ./locked//d"));
    EXPECT_TRUE(sentinel.isUntouched());
  });

  EXPECT_EQ(tmp.read("locked/d"), "old");
}

TEST_F(CopyFile, ReportsADestinationThatOnlyItsNormalFormNames) {
  tmp.write("s", "new");
  tmp.write("d", "old");

  EXPECT_FALSE(fs::copyFile("s", "missing/../d"));

  EXPECT_EQ(log.all(),
            lines("error: File copy failed, could not delete destination file: missing/../d"));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(tmp.read("d"), "old");
}

TEST_F(CopyFile, OpensNothingWhenTheDestinationCannotBeRemoved) {
  tmp.write("s", "new");
  tmp.write("100%s%n", "old");
  RecordedCalls calls;
  calls.fail("remove 100%s%n", EROFS);
  calls.watchStreamsIn(tmp.path());

  EXPECT_FALSE(fs::copyFile("s", "100%s%n"));

  EXPECT_EQ(calls.all(), lines("stat s", "stat 100%s%n", "remove 100%s%n"));
  EXPECT_EQ(log.all(),
            lines("error: File copy failed, could not delete destination file: 100%s%n"));
  EXPECT_EQ(tmp.read("100%s%n"), "old");
}

TEST_F(CopyFile, LeavesAShortFileOnAFullDisk) {
  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  const std::string bytes = manyBytes(1U << 20);
  tmp.write("s", bytes);
  tmp.mkdir("small");

  runWithOwnMounts([&] {
    mountMemory("small", "size=64k");

    EXPECT_TRUE(fs::copyFile("s", "small/d"));

    const std::string copied = tmp.read("small/d");
    EXPECT_GT(copied.size(), 0U);
    EXPECT_LE(copied.size(), 65536U);
    EXPECT_TRUE(bytes.starts_with(copied));
    expectSilence();
  });
}

TEST_F(CopyFile, LeavesAShortFileWhenAWriteFails) {
  constexpr rlim_t kMostBytes = 10'000;
  const std::string bytes = manyBytes(100'000);
  tmp.write("s", bytes);

  runInChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{kMostBytes, kMostBytes};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);

    EXPECT_TRUE(fs::copyFile("s", "d"));

    expectSilence();
  });

  EXPECT_EQ(tmp.read("d"), bytes.substr(0, kMostBytes));
}

TEST_F(CopyFile, LeavesNoStreamOpen) {
  tmp.write("s", "text");
  const auto openDescriptors = [] {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
  };
  const auto before = openDescriptors();

  EXPECT_TRUE(fs::copyFile("s", "d"));
  EXPECT_FALSE(fs::copyFile("s", "missing/d"));
  EXPECT_TRUE(fs::copyFile("missing/../s", "e"));

  EXPECT_EQ(openDescriptors(), before);
}

}  // namespace
}  // namespace vx::test
