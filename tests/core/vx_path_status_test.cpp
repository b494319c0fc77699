// Concern: what is at a path, and how many system calls the answer takes. The program counts the
// calls of `stat` and `getcwd`, and can script their results.

#include "core/vx_path.h"
#include "tests/testing/child.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/own_mounts.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

std::vector<std::string> asked;  // the arguments of the calls of stat, in order
mode_t scriptedMode = 0;         // what stat answers when it is not 0
nlink_t scriptedLinks = 1;       // the link count that goes with it
int calledGetcwd = 0;
int scriptedGetcwdError = 0;  // with which getcwd fails when it is not 0

}  // namespace

extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker's --wrap asks for
int __real_stat(const char* path, struct stat* status);
char* __real_getcwd(char* buffer, std::size_t size);

int __wrap_stat(const char* path, struct stat* status) {
  asked.emplace_back(path);
  if (scriptedMode == 0) {
    return __real_stat(path, status);
  }
  *status = {};
  status->st_mode = scriptedMode;
  status->st_nlink = scriptedLinks;
  return 0;
}

char* __wrap_getcwd(char* buffer, std::size_t size) {
  ++calledGetcwd;
  if (scriptedGetcwdError == 0) {
    return __real_getcwd(buffer, size);
  }
  errno = scriptedGetcwdError;
  return nullptr;
}
// NOLINTEND(bugprone-reserved-identifier)
}

namespace {

using vx::Path;
using vx::String;
using vx::test::canMount;
using vx::test::kCannotMount;
using vx::test::lines;
using vx::test::mountMemory;
using vx::test::mountOverlay;
using vx::test::runAsUnprivileged;
using vx::test::runInChild;
using vx::test::runWithOwnMounts;
using vx::test::ScopedCurrentDir;
using vx::test::TempDir;

class PathStatusTest : public testing::Test {
 protected:
  void SetUp() override { reset(); }
  void TearDown() override { reset(); }

  static void reset() {
    asked.clear();
    scriptedMode = 0;
    scriptedLinks = 1;
    calledGetcwd = 0;
    scriptedGetcwdError = 0;
  }

  /// The calls of stat that one act makes.
  template <class Act>
  [[nodiscard]] static std::vector<std::string> askedBy(Act act) {
    asked.clear();
    static_cast<void>(act());
    return asked;
  }

  TempDir tmp;
  ScopedCurrentDir inside{tmp.path()};
};

enum class Kind { None, Directory, File };

void expectKind(const char* written, bool normalizeFirst, Kind kind) {
  const Path path(written, normalizeFirst);
  EXPECT_EQ(path.isDir(), kind == Kind::Directory);
  EXPECT_EQ(path.isFile(), kind == Kind::File);
  EXPECT_EQ(path.exists(), kind != Kind::None);
  EXPECT_EQ(Path::isDir(written, normalizeFirst), kind == Kind::Directory);
  EXPECT_EQ(Path::isFile(written, normalizeFirst), kind == Kind::File);
}

void bindSocket(const char* name) {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM, 0);
  ASSERT_NE(socket, -1);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::strncpy(address.sun_path, name, sizeof address.sun_path - 1);
  const int status = ::bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
  ::close(socket);
  ASSERT_EQ(status, 0);
}

// ---- Kinds -------------------------------------------------------------------------------------

TEST_F(PathStatusTest, TellsDirectoriesFilesAndNothing) {
  tmp.mkdir("dir/sub");
  tmp.write("file", "text");
  tmp.write("empty", "");
  tmp.link("to-dir", "dir");
  tmp.link("to-file", "file");
  tmp.link("to-link", "to-dir");
  tmp.link("dangling", "missing");
  tmp.link("loop", "loop");
  tmp.write("name\nwith line break", "text");
  tmp.write("\xFF not UTF-8", "text");
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  ASSERT_NO_FATAL_FAILURE(bindSocket("socket"));
  const std::string overlong(256, 'x');
  struct Row {
    const char* name;
    const char* path;
    Kind written;
    Kind normalised;
  };
  const Row rows[] = {
      {"the empty path", "", Kind::None, Kind::None},
      {"the root", "/", Kind::Directory, Kind::Directory},
      {"the current directory", ".", Kind::Directory, Kind::Directory},
      {"its parent", "..", Kind::Directory, Kind::Directory},
      {"a directory", "dir", Kind::Directory, Kind::Directory},
      {"a directory with a slash", "dir/", Kind::Directory, Kind::Directory},
      {"a directory below", "dir/sub", Kind::Directory, Kind::Directory},
      {"a file", "file", Kind::File, Kind::File},
      {"an empty file", "empty", Kind::File, Kind::File},
      {"a file with a line break in its name", "name\nwith line break", Kind::File, Kind::File},
      {"a file whose name is not UTF-8", "\xFF not UTF-8", Kind::File, Kind::File},
      {"a file with a slash", "file/", Kind::None, Kind::File},
      {"a file and a dot", "file/.", Kind::None, Kind::File},
      {"a file in the middle", "file/x", Kind::None, Kind::None},
      {"nothing", "missing", Kind::None, Kind::None},
      {"a parent of nothing", "missing/../dir", Kind::None, Kind::Directory},
      {"nothing that folds away", "missing/..", Kind::None, Kind::Directory},
      {"a link to a directory", "to-dir", Kind::Directory, Kind::Directory},
      {"a link to a file", "to-file", Kind::File, Kind::File},
      {"a link to a link", "to-link", Kind::Directory, Kind::Directory},
      {"below a link", "to-dir/sub", Kind::Directory, Kind::Directory},
      {"the parent of what a link leads to", "to-dir/sub/../../file", Kind::File, Kind::File},
      {"a dangling link", "dangling", Kind::None, Kind::None},
      {"a link to itself", "loop", Kind::None, Kind::None},
      {"a FIFO", "fifo", Kind::File, Kind::File},
      {"a socket", "socket", Kind::Directory, Kind::Directory},
      {"a character device", "/dev/null", Kind::File, Kind::File},
      {"an overlong name", overlong.c_str(), Kind::None, Kind::None},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    expectKind(row.path, false, row.written);
    expectKind(row.path, true, row.normalised);
  }
}

TEST_F(PathStatusTest, AsksAboutTheTargetOfALinkBeforeTheParentOnlyAsWritten) {
  tmp.mkdir("deep/dir");
  tmp.write("deep/beside", "text");
  tmp.link("to-dir", "deep/dir");

  expectKind("to-dir/../beside", false, Kind::File);
  expectKind("to-dir/../beside", true, Kind::None);
}

TEST_F(PathStatusTest, DecidesByTheDirectoryBitAlone) {
  struct Row {
    const char* name;
    mode_t type;
    Kind kind;
  };
  const Row rows[] = {
      {"directory", S_IFDIR, Kind::Directory},   {"block device", S_IFBLK, Kind::Directory},
      {"socket", S_IFSOCK, Kind::Directory},     {"regular file", S_IFREG, Kind::File},
      {"character device", S_IFCHR, Kind::File}, {"FIFO", S_IFIFO, Kind::File},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    for (const mode_t permissions : {0U, 07777U}) {
      scriptedMode = row.type | permissions;
      expectKind("anything", true, row.kind);
      expectKind("anything", false, row.kind);
    }
  }
}

TEST_F(PathStatusTest, FindsNothingWhereItMayNotLook) {
  tmp.mkdir("locked/dir");
  tmp.write("locked/file", "text");
  std::filesystem::permissions(tmp.path("locked"), std::filesystem::perms::none);

  runAsUnprivileged([] {
    expectKind("locked", true, Kind::Directory);
    expectKind("locked/dir", true, Kind::None);
    expectKind("locked/file", true, Kind::None);
  });
}

// ---- Removed directories -----------------------------------------------------------------------

TEST_F(PathStatusTest, FindsNothingInPlaceOfARemovedCurrentDirectory) {
  const std::string gone = tmp.mkdir("gone");
  tmp.mkdir("dir");
  const std::string other = tmp.path("dir");

  runInChild([&] {
    ASSERT_EQ(::chdir(gone.c_str()), 0);
    expectKind(".", true, Kind::Directory);
    ASSERT_EQ(::rmdir(gone.c_str()), 0);

    for (const char* const spelling : {".", "./", "./.", "././/", "/proc/self/cwd"}) {
      SCOPED_TRACE(spelling);
      expectKind(spelling, false, Kind::None);
      expectKind(spelling, true, Kind::None);
    }
    expectKind("./x/..", true, Kind::None);
    expectKind("", true, Kind::None);
    EXPECT_EQ(Path(".", true).dir(), "");
    expectKind("..", true, Kind::Directory);
    expectKind(other.c_str(), true, Kind::Directory);
  });
}

TEST_F(PathStatusTest, FindsNoDirectoryWithoutLinks) {
  scriptedLinks = 0;
  for (const char* const path : {"dir", "dir/", ".", "..", "/dir/sub"}) {
    SCOPED_TRACE(path);
    scriptedMode = S_IFDIR | 0755;
    expectKind(path, false, Kind::None);
    expectKind(path, true, Kind::None);
  }
}

TEST_F(PathStatusTest, FindsAFileWithoutLinks) {
  scriptedMode = S_IFREG | 0644;
  scriptedLinks = 0;

  expectKind("file", false, Kind::File);
  expectKind("file", true, Kind::File);
}

TEST_F(PathStatusTest, FindsNoCurrentDirectoryWhoseNameIsGone) {
  tmp.mkdir("dir");
  scriptedGetcwdError = ENOENT;

  for (const char* const path : {".", "./", "././/.", "dir/..", "dir/../"}) {
    SCOPED_TRACE(path);
    expectKind(path, false, Kind::None);
    expectKind(path, true, Kind::None);
  }
  for (const char* const path : {"dir", "dir/.", "..", "../", "dir/../dir", "/", "/."}) {
    SCOPED_TRACE(path);
    expectKind(path, false, Kind::Directory);
    expectKind(path, true, Kind::Directory);
  }
}

TEST_F(PathStatusTest, FindsACurrentDirectoryWhoseNameCannotBeRead) {
  for (const int error : {EACCES, ENAMETOOLONG, ENOMEM}) {
    SCOPED_TRACE(error);
    scriptedGetcwdError = error;
    for (const char* const path : {".", "./"}) {
      expectKind(path, false, Kind::Directory);
      expectKind(path, true, Kind::Directory);
    }
  }
}

TEST_F(PathStatusTest, FindsNoRemovedDirectoryOfALowerLayer) {
  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  tmp.mkdir("layers");

  runWithOwnMounts([&] {
    mountMemory(tmp.path("layers"), "size=1m");
    for (const char* const dir : {"lower/gone", "upper", "work", "merged"}) {
      tmp.mkdir(std::string("layers/") + dir);
    }
    ASSERT_EQ(::chdir("layers"), 0);
    if (!mountOverlay("lower", "upper", "work", "merged")) {
      std::puts("this kernel has no overlay file system");
      return;
    }
    ASSERT_EQ(::chdir("merged/gone"), 0);
    expectKind(".", true, Kind::Directory);
    ASSERT_EQ(::rmdir("../gone"), 0);

    expectKind(".", true, Kind::None);
    expectKind("./", false, Kind::None);
  });
}

// ---- What is asked of the system ---------------------------------------------------------------

TEST_F(PathStatusTest, IsAskedOfTheSystemOnce) {
  tmp.mkdir("dir");
  tmp.write("file", "text");

  for (const char* const path : {"dir", "file", "missing", "file/x", "/", ".", ".."}) {
    SCOPED_TRACE(path);
    for (const bool flag : {false, true}) {
      EXPECT_EQ(askedBy([&] { return Path(path, flag).isDir(); }), lines(path));
      EXPECT_EQ(askedBy([&] { return Path(path, flag).isFile(); }), lines(path));
      EXPECT_EQ(askedBy([&] { return Path(path, flag).exists(); }), lines(path));
      EXPECT_EQ(askedBy([&] { return Path(path, flag).dir(); }), lines(path));
      EXPECT_EQ(askedBy([&] { return Path::isDir(path, flag); }), lines(path));
      EXPECT_EQ(askedBy([&] { return Path::isFile(path, flag); }), lines(path));
    }
  }
}

TEST_F(PathStatusTest, NeedsTheCurrentDirectoryForADotOnly) {
  tmp.mkdir("dir");
  tmp.write("file", "text");

  for (const char* const path : {"dir", "dir/", "dir/.", "file", "missing", "/", ".."}) {
    static_cast<void>(Path(path, false).isDir());
    static_cast<void>(Path(path, false).isFile());
    static_cast<void>(Path(path, false).exists());
  }
  EXPECT_EQ(calledGetcwd, 0);

  EXPECT_TRUE(Path(".", false).isDir());
  EXPECT_EQ(calledGetcwd, 1);
}

TEST_F(PathStatusTest, IsAskedAboutTheNormalFormWhenToldToNormalise) {
  const char* const written = "./a//b/../";

  EXPECT_EQ(askedBy([&] { return Path(written, true).isDir(); }), lines("a"));
  EXPECT_EQ(askedBy([&] { return Path(written, false).isDir(); }), lines(written));
  EXPECT_EQ(askedBy([&] { return Path(written, true).isFile(); }), lines("a"));
  EXPECT_EQ(askedBy([&] { return Path(written, false).isFile(); }), lines(written));
  EXPECT_EQ(askedBy([&] { return Path(written, true).exists(); }), lines("a"));
  EXPECT_EQ(askedBy([&] { return Path(written, false).exists(); }), lines(written));
  EXPECT_EQ(askedBy([&] { return Path::isDir(written, true); }), lines("a"));
  EXPECT_EQ(askedBy([&] { return Path::isDir(written, false); }), lines(written));
  EXPECT_EQ(askedBy([&] { return Path::isFile(written, true); }), lines("a"));
  EXPECT_EQ(askedBy([&] { return Path::isFile(written, false); }), lines(written));
}

TEST_F(PathStatusTest, OfTheEmptyPathIsNotAsked) {
  for (const bool flag : {false, true}) {
    EXPECT_EQ(askedBy([&] { return Path("", flag).isDir(); }), lines());
    EXPECT_EQ(askedBy([&] { return Path("", flag).isFile(); }), lines());
    EXPECT_EQ(askedBy([&] { return Path("", flag).exists(); }), lines());
    EXPECT_EQ(askedBy([&] { return Path("", flag).dir(); }), lines());
    EXPECT_EQ(askedBy([&] { return Path::isDir("", flag); }), lines());
    EXPECT_EQ(askedBy([&] { return Path::isFile("", flag); }), lines());
  }
}

TEST_F(PathStatusTest, IsNotAskedForQuestionsAboutTheText) {
  const char* const path = "./a//b.c/../d.e";
  asked.clear();

  for (const bool flag : {false, true}) {
    const Path made(path, flag);
    EXPECT_EQ(made.normalized(), "a/d.e");
    EXPECT_EQ(made.file(true), "d.e");
    EXPECT_EQ(made.ext(true), ".e");
    EXPECT_FALSE(made.components().empty());
    EXPECT_TRUE(made.isRel());
  }
  EXPECT_EQ(Path::normalize(path), "a/d.e");
  EXPECT_EQ(Path::dir(path, true), "a/d.e");
  EXPECT_EQ(Path::dir(path, false), "./a//b.c/..");
  EXPECT_EQ(Path::changeExt(path, ".x"), "./a//b.c/../d.x");
  EXPECT_EQ(Path::join("a", path), "a/./a//b.c/../d.e");

  EXPECT_EQ(asked, lines());
}

// ---- The directory that a path denotes ---------------------------------------------------------

TEST_F(PathStatusTest, DecidesWhatThePathDenotes) {
  tmp.mkdir("here/dir/sub");
  tmp.write("here/dir/file", "text");
  tmp.link("here/to-dir", "dir");
  tmp.link("here/dangling", "missing");
  const ScopedCurrentDir here(tmp.path("here"));  // whose parent is the test's own, too
  struct Row {
    const char* name;
    const char* path;
    const char* written;
    const char* normalised;
  };
  const Row rows[] = {
      {"the empty path", "", "", ""},
      {"the root", "/", "/", "/"},
      {"the current directory", ".", ".", "."},
      {"its parent", "..", "..", ".."},
      {"a directory", "dir", "dir", "dir"},
      {"a directory below", "dir/sub", "dir/sub", "dir/sub"},
      {"a directory with a slash", "dir/sub/", "dir/sub/", "dir/sub"},
      {"a link to a directory", "to-dir", "to-dir", "to-dir"},
      {"a parent of a directory", "dir/sub/..", "dir/sub/..", "dir"},
      {"a file", "dir/file", "dir", "dir"},
      {"a file through a link", "to-dir/file", "to-dir", "to-dir"},
      {"a dangling link", "dangling", "", ""},
      {"nothing", "a", "", ""},
      {"nothing below something", "dir/a", "dir", "dir"},
      {"nothing below nothing", "a/b", "a", "a"},
      {"nothing below the root", "/missing-entry", "/", "/"},
      {"nothing with a slash", "a/b/", "a", "a"},
      {"nothing behind a dot", "./wood.*", ".", ""},
      {"nothing behind parents", "../missing/../missing-entry", "../missing/..", ".."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(Path(row.path, false).dir(), row.written);
    EXPECT_EQ(Path(row.path, true).dir(), row.normalised);
  }
}

// ---- The cost of the canonical form ------------------------------------------------------------

TEST_F(PathStatusTest, IsNotNeededForTheCanonicalFormOfWhatExists) {
  tmp.mkdir("dir");

  EXPECT_EQ(askedBy([] { return Path("dir", true).canonical(); }), lines());
  EXPECT_EQ(askedBy([] { return Path("", true).canonical(); }), lines());
}

TEST_F(PathStatusTest, NeedsNoCurrentDirectoryForACanonicalForm) {
  tmp.mkdir("dir");
  tmp.link("dangling", "nowhere");

  for (const char* const path : {"", ".", "dir", "missing", "dir/missing/x", "dangling/x", "/x"}) {
    static_cast<void>(Path(path, false).canonical());
  }

  EXPECT_EQ(calledGetcwd, 0);
}

std::string levels(std::size_t count) {
  std::string path = "x";
  for (std::size_t i = 1; i < count; ++i) {
    path += "/x";
  }
  return path;
}

// The levels are halved, not tried one after the other from either end.

TEST_F(PathStatusTest, IsNeededFewTimesForTheCanonicalFormOfManyMissingLevels) {
  const String path(levels(1000).c_str());

  EXPECT_LE(askedBy([&] { return Path(path, true).canonical(); }).size(), 10U);
}

TEST_F(PathStatusTest, IsNeededFewTimesForTheCanonicalFormBelowManyExistingLevels) {
  tmp.mkdir(levels(100));
  const String path((levels(100) + "/missing").c_str());

  EXPECT_LE(askedBy([&] { return Path(path, true).canonical(); }).size(), 7U);
}

}  // namespace
