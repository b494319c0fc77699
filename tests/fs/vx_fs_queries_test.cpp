// Status queries: isDir, isFile, exists.

#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

enum class Kind { None, Directory, File };

/// What the three queries say together; fails where they contradict each other.
Kind kindOf(const std::string& path) {
  const bool isDir = fs::isDir(vxText(path));
  const bool isFile = fs::isFile(vxText(path));
  EXPECT_FALSE(isDir && isFile) << path;
  EXPECT_EQ(fs::exists(vxText(path)), isDir || isFile) << path;
  if (isDir) {
    return Kind::Directory;
  }
  return isFile ? Kind::File : Kind::None;
}

class Queries : public SilentFsTest {};

// ---------------------------------------------------------------------------------------------
// What counts as what

TEST_F(Queries, DirectoryIsADirectory) {
  tmp.mkdir("d");

  EXPECT_EQ(kindOf("d"), Kind::Directory);
  EXPECT_EQ(kindOf("."), Kind::Directory);
  EXPECT_EQ(kindOf(".."), Kind::Directory);
  EXPECT_EQ(kindOf("/"), Kind::Directory);
  EXPECT_EQ(kindOf(tmp.path("d")), Kind::Directory);
}

TEST_F(Queries, RegularFileIsAFile) {
  tmp.write("f", "");

  EXPECT_EQ(kindOf("f"), Kind::File);
  EXPECT_EQ(kindOf(tmp.path("f")), Kind::File);
}

TEST_F(Queries, FileBeyondFourGibibytesIsAFile) {
  std::filesystem::resize_file(tmp.write("d/f.bin", ""), 5LL << 30);

  EXPECT_EQ(kindOf("d/f.bin"), Kind::File);
  EXPECT_EQ(texts(fs::listFiles("d", {"bin"})), lines("d/f.bin"));
  EXPECT_TRUE(fs::moveFile("d/f.bin", "g"));
  EXPECT_EQ(kindOf("g"), Kind::File);
  EXPECT_TRUE(fs::rmFile("g"));
  EXPECT_EQ(tmp.entries(), lines("d/"));
}

TEST_F(Queries, MissingEntryIsNeither) {
  EXPECT_EQ(kindOf("missing"), Kind::None);
  EXPECT_EQ(kindOf("missing/deeper"), Kind::None);
}

TEST_F(Queries, EmptyPathIsNeither) {
  EXPECT_EQ(kindOf(""), Kind::None);
}

TEST_F(Queries, LinksAreFollowed) {
  tmp.mkdir("d");
  tmp.write("f", "text");
  tmp.link("to_d", "d");
  tmp.link("to_f", "f");
  tmp.link("to_link", "to_d");

  EXPECT_EQ(kindOf("to_d"), Kind::Directory);
  EXPECT_EQ(kindOf("to_f"), Kind::File);
  EXPECT_EQ(kindOf("to_link"), Kind::Directory);
}

TEST_F(Queries, DanglingLinkIsNeither) {
  tmp.link("dangling", "missing");

  EXPECT_EQ(kindOf("dangling"), Kind::None);
}

TEST_F(Queries, LinkLoopIsNeither) {
  tmp.link("loop", "loop");

  EXPECT_EQ(kindOf("loop"), Kind::None);
  EXPECT_EQ(kindOf("loop/x"), Kind::None);
}

TEST_F(Queries, FifoIsAFile) {
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);

  EXPECT_EQ(kindOf("fifo"), Kind::File);
}

TEST_F(Queries, CharacterDeviceIsAFile) {
  EXPECT_EQ(kindOf("/dev/null"), Kind::File);
}

TEST_F(Queries, SocketIsADirectory) {
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);

  EXPECT_EQ(kindOf("socket"), Kind::Directory);
}

TEST_F(Queries, DirectoryBitAloneDecides) {
  struct Row {
    mode_t type;
    Kind kind;
  };
  constexpr Row kRows[] = {
      {S_IFDIR, Kind::Directory},  {S_IFBLK, Kind::Directory},
      {S_IFSOCK, Kind::Directory}, {S_IFREG, Kind::File},
      {S_IFCHR, Kind::File},       {S_IFIFO, Kind::File},
      {S_IFLNK, Kind::File},       {0, Kind::File},
  };
  for (const Row& row : kRows) {
    for (const mode_t permissions : {0U, 0644U, 07777U}) {
      RecordedCalls calls;
      calls.findAt("entry", row.type | permissions);

      EXPECT_EQ(kindOf("entry"), row.kind) << std::oct << (row.type | permissions);
    }
  }
}

TEST_F(Queries, EntryThatCannotBeExaminedIsNeither) {
  tmp.write("f", "text");

  EXPECT_EQ(kindOf("f/below"), Kind::None);
  EXPECT_EQ(kindOf(std::string(300, 'n')), Kind::None);
  EXPECT_EQ(kindOf(std::string(5000, 'n')), Kind::None);
}

TEST_F(Queries, EntryBehindALockedDirectoryIsNeither) {
  tmp.mkdir("locked/d");
  tmp.write("locked/f", "text");
  ASSERT_EQ(::chmod("locked", 0600), 0);

  runAsUnprivileged([&] {
    EXPECT_EQ(kindOf("locked"), Kind::Directory);
    EXPECT_EQ(kindOf("locked/d"), Kind::None);
    EXPECT_EQ(kindOf("locked/f"), Kind::None);
    expectSilence();
  });
}

TEST_F(Queries, FileThatMayNotBeReadIsAFile) {
  tmp.write("f", "text");
  ASSERT_EQ(::chmod("f", 0), 0);

  runAsUnprivileged([&] { EXPECT_EQ(kindOf("f"), Kind::File); });
}

TEST_F(Queries, RemovedCurrentDirectoryIsWhatTheSystemSaysItIs) {
  tmp.mkdir("d");

  runInChild([&] {
    const ScopedCurrentDir inside("d");
    ASSERT_EQ(::rmdir(tmp.path("d").c_str()), 0);
    struct stat status {};
    const bool isFound = ::stat(".", &status) == 0;

    EXPECT_EQ(fs::isDir("."), isFound);
    EXPECT_FALSE(fs::isFile("."));
    EXPECT_EQ(fs::exists("."), isFound);
    // The one question that the two answer differently.
    EXPECT_FALSE(Path::isDir(".", /*normalizeFirst=*/true));
    expectSilence();
  });
}

TEST_F(Queries, NamesAreBytes) {
  const std::string name = "a b\n\\\xff\xfe";
  tmp.write(name, "text");

  EXPECT_EQ(kindOf(name), Kind::File);
}

// ---------------------------------------------------------------------------------------------
// The normal form

TEST_F(Queries, AnswerAsForTheNormalForm) {
  tmp.mkdir("d");
  tmp.write("d/f", "text");

  EXPECT_EQ(kindOf("d/"), Kind::Directory);
  EXPECT_EQ(kindOf("./d//."), Kind::Directory);
  EXPECT_EQ(kindOf("d/f/"), Kind::File);
  EXPECT_EQ(kindOf("d/./f"), Kind::File);
  EXPECT_EQ(kindOf("missing/../d/f"), Kind::File);
  EXPECT_EQ(kindOf("d/f/.."), Kind::Directory);
}

TEST_F(Queries, ParentOfALinkIsTheDirectoryThatHoldsTheLink) {
  tmp.mkdir("far/away");
  tmp.link("link", "far/away");
  tmp.write("f", "text");

  EXPECT_EQ(kindOf("link/../f"), Kind::File);
}

TEST_F(Queries, BackslashIsNoSeparator) {
  tmp.write("d/f", "text");

  EXPECT_EQ(kindOf("d\\f"), Kind::None);
}

TEST_F(Queries, LeaveTheCallersTextAlone) {
  const String path = "d//./";

  (void)fs::isDir(path);
  (void)fs::isFile(path);
  (void)fs::exists(path);

  EXPECT_EQ(path, "d//./");
}

// ---------------------------------------------------------------------------------------------
// The calls

TEST_F(Queries, EmptyPathAsksNothing) {
  RecordedCalls calls;

  EXPECT_FALSE(fs::isDir(""));
  EXPECT_FALSE(fs::isFile(""));
  EXPECT_FALSE(fs::exists(""));

  EXPECT_EQ(calls.all(), lines());
}

TEST_F(Queries, IsDirAsksOnceForTheNormalForm) {
  tmp.mkdir("d");
  RecordedCalls calls;

  EXPECT_TRUE(fs::isDir("x/.././d//"));
  EXPECT_FALSE(fs::isDir("./missing/"));

  EXPECT_EQ(calls.all(), lines("stat d", "stat missing"));
}

TEST_F(Queries, IsFileAsksOnceForTheNormalForm) {
  tmp.write("f", "text");
  RecordedCalls calls;

  EXPECT_TRUE(fs::isFile("x/.././f//"));
  EXPECT_FALSE(fs::isFile("./missing/"));

  EXPECT_EQ(calls.all(), lines("stat f", "stat missing"));
}

TEST_F(Queries, ExistsAsksOnceForADirectory) {
  tmp.mkdir("d");
  RecordedCalls calls;

  EXPECT_TRUE(fs::exists(".//d/"));

  EXPECT_EQ(calls.all(), lines("stat d"));
}

TEST_F(Queries, ExistsAsksTwiceForAnythingElse) {
  tmp.write("f", "text");
  RecordedCalls calls;

  EXPECT_TRUE(fs::exists(".//f/"));
  EXPECT_FALSE(fs::exists("missing"));

  EXPECT_EQ(calls.all(), lines("stat f", "stat f", "stat missing", "stat missing"));
}

TEST_F(Queries, ExistsFindsAFileThatAppearsBetweenItsTwoQuestions) {
  tmp.write("f", "text");
  RecordedCalls calls;
  calls.script("stat f", [asked = 0]() mutable -> std::optional<int> {
    return ++asked == 1 ? std::optional(ENOENT) : std::nullopt;
  });

  EXPECT_TRUE(fs::exists("f"));
}

TEST_F(Queries, ExistsMissesADirectoryThatAppearsBetweenItsTwoQuestions) {
  tmp.mkdir("d");
  RecordedCalls calls;
  calls.script("stat d", [asked = 0]() mutable -> std::optional<int> {
    return ++asked == 1 ? std::optional(ENOENT) : std::nullopt;
  });

  EXPECT_FALSE(fs::exists("d"));
}

TEST_F(Queries, AnyFailureOfTheSystemMeansNeither) {
  tmp.mkdir("entry");
  for (const int error : {EACCES, EIO, ELOOP, ENAMETOOLONG, ENOMEM, ENOTDIR, EOVERFLOW}) {
    RecordedCalls calls;
    calls.fail("stat entry", error);

    EXPECT_EQ(kindOf("entry"), Kind::None) << errnoText(error);
  }
}

TEST_F(Queries, PathsAgree) {
  tmp.mkdir("d");
  tmp.write("f", "text");
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);
  tmp.link("dangling", "missing");

  for (const char* const path :
       {"d", "f", "fifo", "socket", "dangling", "missing", "", "f/", "/"}) {
    EXPECT_EQ(fs::isDir(path), Path::isDir(path, /*normalizeFirst=*/true)) << path;
    EXPECT_EQ(fs::isFile(path), Path::isFile(path, /*normalizeFirst=*/true)) << path;
    EXPECT_EQ(fs::exists(path), Path(path, /*normalizeFirst=*/true).exists()) << path;
  }
}

}  // namespace
}  // namespace vx::test
