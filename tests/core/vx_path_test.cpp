// SPDX-License-Identifier: MIT
//
// Path: its text, then what it names in the file system.

#include "core/vx_path.h"

#include "tests/testing/calls.h"
#include "tests/testing/child.h"
#include "tests/testing/failures.h"
#include "tests/testing/isolation.h"
#include "tests/testing/sandbox.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstddef>
#include <filesystem>
#include <iomanip>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

static_assert(!std::is_polymorphic_v<Path>);
static_assert(sizeof(Path) == sizeof(String));
static_assert(std::is_copy_constructible_v<Path> && std::is_copy_assignable_v<Path>);
static_assert(!std::is_convertible_v<String, Path>);
static_assert(!std::is_convertible_v<const char*, Path>);

// Path("dir", "file") would take "file" as true.
template <class Flag>
concept IsFlagOfPath = requires(Path path, String text, Flag flag) {
  Path(text, flag);
  path.file(flag);
  path.ext(flag);
  Path::dir(text, flag);
  Path::ext(text, flag);
  Path::isDir(text, flag);
  Path::isFile(text, flag);
};
static_assert(IsFlagOfPath<bool>);
static_assert(!std::is_constructible_v<Path, String, const char*>);
static_assert(!std::is_constructible_v<Path, String, const char (&)[5]>);
template <class Flag>
struct TextsAreNoFlags {
  static_assert(!requires(Flag flag) { Path::dir("a/b", flag); });
  static_assert(!requires(Flag flag) { Path::ext("a/b", flag); });
  static_assert(!requires(Flag flag) { Path::isDir("a/b", flag); });
  static_assert(!requires(Flag flag) { Path::isFile("a/b", flag); });
};
template struct TextsAreNoFlags<const char*>;

using Names = std::vector<std::string>;

/// Every text of up to seven of the characters 'a', '.' and '/', and some others.
Names oddPaths() {
  Names paths = {""};
  for (std::size_t i = 0; paths[i].size() < 7; ++i) {
    for (const char next : {'a', '.', '/'}) {
      paths.push_back(paths[i] + next);
    }
  }
  for (const char* const odd :
       {"wood.tar.gz", ".profile.bak", " / ", "\\a\\b.c", "C:\\a.b", "a\nb/c\n.d", "~/a",
        "\xC3\xA4/\xFF.\xE4", "/very/../long/./path//name.ext/", "./wood.*"}) {
    paths.emplace_back(odd);
  }
  paths.push_back(std::string(5000, 'a').append("/../").append(300, '.'));
  return paths;
}

template <class Law>
void expectOfEveryPath(Law law) {
  for (const std::string& path : oddPaths()) {
    SCOPED_TRACE("path: \"" + path + '"');
    law(vxText(path));
    if (testing::Test::HasFailure()) {
      return;
    }
  }
}

// ---------------------------------------------------------------------------------------------
// The constructor, comparison and printing

TEST(Path, TakesTheNormalFormOrTheTextAsWritten) {
  const char* const written = "wood.png/x.y/..";
  const Path normal(written, true);
  const Path asWritten(written, false);

  EXPECT_EQ(normal.file(true), "wood.png");
  EXPECT_EQ(normal.file(false), "wood");
  EXPECT_EQ(normal.ext(true), ".png");
  EXPECT_EQ(normal.ext(false), "png");
  EXPECT_EQ(texts(normal.components()), lines("wood.png"));
  EXPECT_EQ(asWritten.file(true), "..");
  EXPECT_EQ(asWritten.file(false), "..");
  EXPECT_EQ(asWritten.ext(true), "");
  EXPECT_EQ(texts(asWritten.components()), lines("wood.png", "x.y", ".."));
}

TEST(Path, LeavesTheCallersTextAlone) {
  const String text("a//b.c");

  EXPECT_EQ(Path(text, true).normalized(), "a/b.c");
  EXPECT_EQ(Path::normalize(text), "a/b.c");
  EXPECT_EQ(Path::changeExt(text, ".x"), "a//b.x");
  EXPECT_EQ(Path::join(text, text), "a//b.c/a//b.c");

  EXPECT_EQ(text, "a//b.c");
}

TEST(Path_Equality, ComparesTheTextAsTaken) {
  EXPECT_EQ(Path("a//b", true), Path("a/b", false));
  EXPECT_NE(Path("a//b", false), Path("a/b", false));
  EXPECT_NE(Path("a/B", false), Path("a/b", false));
}

TEST(Path_Print, WritesTheTextAsTaken) {
  std::ostringstream stream;

  stream << Path("a//b", false) << std::setw(4) << Path("./c", true);

  EXPECT_EQ(stream.str(), "a//b   c");
  EXPECT_EQ(format_as(Path("a//b", false)), "a//b");
}

// ---------------------------------------------------------------------------------------------
// normalized and normalize

TEST(Path_Normalized, FollowsItsRules) {
  using std::string_literals::operator""s;
  struct Row {
    std::string path;
    std::string normal;
  };
  const Row rows[] = {
      {"", ""},
      {"/", "/"},
      {"a", "a"},
      {"//a", "/a"},
      {"a//b///c", "a/b/c"},
      {"a/b/", "a/b"},
      {"/a//", "/a"},
      {".", "."},
      {"a/./b", "a/b"},
      {"/.", "/"},
      {"a/b/../c", "a/c"},
      {"a/..", "."},
      {"/../a", "/a"},
      {"/../../a/../..", "/"},
      {"..", ".."},
      {"../../a", "../../a"},
      {"a/b/../../../../c", "../../c"},
      {"../a/../b", "../b"},
      {"/app/Contents/MacOS/sub/../../../", "/app"},
      {"a/.../b", "a/.../b"},
      {"..a/../.b", ".b"},
      {"\xC3\xA4//\xFF", "\xC3\xA4/\xFF"},
      {"a\0b//c/.."s, "a\0b"s},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    const String path = vxText(row.path);
    EXPECT_EQ(text(Path::normalize(path)), row.normal);
    EXPECT_EQ(text(Path(path, true).normalized()), row.normal);
    EXPECT_EQ(text(Path(path, false).normalized()), row.normal);
  }
}

TEST(Path_Normalized, AgreesWithTheStandardLibrary) {
  expectOfEveryPath([](const String& path) {
    std::string_view written = path.view();
    while (written.starts_with("//")) {  // a root of its own there
      written.remove_prefix(1);
    }
    const std::filesystem::path within = std::filesystem::path(written) / "x";
    const std::string normal = within.lexically_normal().parent_path().string();

    EXPECT_EQ(text(Path::normalize(path)), normal.empty() && !path.isEmpty() ? "." : normal);
  });
}

TEST(Path_Normalized, IsTheSameHandleForANormalPath) {
  expectOfEveryPath([](const String& path) {
    const String normal = Path::normalize(path);

    EXPECT_EQ(static_cast<const void*>(normal.buf()) == path.buf(), normal == path);
  });
}

TEST(Path_Normalized, TakesVeryLongPaths) {
  std::string path;
  for (int i = 0; i < 5000; ++i) {
    path += "name/../";
  }

  EXPECT_EQ(Path::normalize(vxText(path + "last/")), "last");
  EXPECT_EQ(Path::normalize(vxText(path)), ".");
}

// ---------------------------------------------------------------------------------------------
// components

TEST(Path_Components, AreTheNamesInOrder) {
  struct Row {
    const char* path;
    Names normal;
    Names written;
  };
  const Row rows[] = {
      {"", {}, {}},
      {"/", {}, {}},
      {"/./.", {}, {}},
      {"/a/b/c", {"a", "b", "c"}, {"a", "b", "c"}},
      {"//a///b", {"a", "b"}, {"a", "b"}},
      {"./a/./b/.", {"a", "b"}, {"a", "b"}},
      {"../a", {"..", "a"}, {"..", "a"}},
      {"a/../b", {"b"}, {"a", "..", "b"}},
      {"/../a", {"a"}, {"..", "a"}},
      {"a/..", {}, {"a", ".."}},
      {".a/...", {".a", "..."}, {".a", "..."}},
      {" /a b", {" ", "a b"}, {" ", "a b"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(texts(Path(row.path, true).components()), row.normal);
    EXPECT_EQ(texts(Path(row.path, false).components()), row.written);
  }
}

// ---------------------------------------------------------------------------------------------
// file and ext

TEST(Path_File, IsAStemAndAnExtension) {
  struct Row {
    const char* path;
    const char* file;
    const char* stem;
    const char* dotted;
    const char* bare;
  };
  const Row rows[] = {
      {"a/wood.png", "wood.png", "wood", ".png", "png"},
      {"wood.png", "wood.png", "wood", ".png", "png"},
      {"a/wood.t.png", "wood.t.png", "wood.t", ".png", "png"},
      {"wood.", "wood.", "wood", ".", ""},
      {"wood..", "wood..", "wood.", ".", ""},
      {"a.b/wood", "wood", "wood", "", ""},
      {"a/.profile", ".profile", ".profile", "", ""},
      {".profile.bak", ".profile.bak", ".profile", ".bak", "bak"},
      {"..a", "..a", ".", ".a", "a"},
      {"...", "...", "..", ".", ""},
      {"a/b/", "b", "b", "", ""},
      {"a/b.c//", "b.c", "b", ".c", "c"},
      {".", ".", ".", "", ""},
      {"..", "..", "..", "", ""},
      {"../", "..", "..", "", ""},
      {"/", "", "", "", ""},
      {"", "", "", "", ""},
      {"a b/c d.e f", "c d.e f", "c d", ".e f", "e f"},
      {"a/\xC3\xA4.\xFF", "\xC3\xA4.\xFF", "\xC3\xA4", ".\xFF", "\xFF"},
      {"wood.png/x/..", "..", "..", "", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    const Path path(row.path, false);
    EXPECT_EQ(text(path.file(true)), row.file);
    EXPECT_EQ(text(path.file(false)), row.stem);
    EXPECT_EQ(text(path.ext(true)), row.dotted);
    EXPECT_EQ(text(path.ext(false)), row.bare);
    EXPECT_EQ(text(Path::ext(row.path, true)), row.dotted);
    EXPECT_EQ(text(Path::ext(row.path, false)), row.bare);
  }
}

TEST(Path_File, IsInTheDirectoryThatDirReturns) {
  expectOfEveryPath([](const String& path) {
    const String together = Path::join(Path::dir(path, false), Path(path, false).file(true));

    EXPECT_EQ(text(Path::normalize(together)), text(Path::normalize(path)));
  });
}

// ---------------------------------------------------------------------------------------------
// changeExt

TEST(Path_ChangeExt, ReplacesOnlyTheExtension) {
  struct Row {
    const char* path;
    const char* newExt;
    const char* changed;
  };
  const Row rows[] = {
      {"a/b.txt", ".bak", "a/b.bak"},
      {"a/b", ".bak", "a/b.bak"},
      {"b.tar.gz", ".x", "b.tar.x"},
      {"b.txt", "", "b"},
      {"b.", ".x", "b.x"},
      {".profile", ".x", ".profile.x"},
      {"a.b/c", ".x", "a.b/c.x"},
      {"./a/../b.txt", ".x", "./a/../b.x"},
      {"...", ".x", "...x"},
      {"b.txt", ".tar.gz", "b.tar.gz"},
      {"\xC3\xA4.\xFF", ".\xFE", "\xC3\xA4.\xFE"},
      // Without a dot
      {"report.txt", "bak", "report.bak"},
      {"b", "bak", "b.bak"},
      {"b.", "x", "b.x"},
      {"b.txt", "tar.gz", "b.tar.gz"},
      // Trailing separators
      {"out/report.txt/", ".bak", "out/report.bak"},
      {"a//b.txt//", ".x", "a//b.x"},
      {"b/", "", "b"},
      // No file name
      {"", ".x", ""},
      {"/", ".x", "/"},
      {"//", ".x", "//"},
      {".", ".x", "."},
      {"..", ".x", ".."},
      {"a/.", ".x", "a/."},
      {"a.b/..", ".x", "a.b/.."},
      {"../", "", "../"},
      {"a.b/.//", "x", "a.b/.//"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(text(Path::changeExt(row.path, row.newExt)), row.changed);
  }
}

// ---------------------------------------------------------------------------------------------
// The static dir

TEST(Path_StaticDir, IsTheParentAsWrittenOrTheNormalForm) {
  struct Row {
    const char* path;
    const char* parent;
    const char* itself;
  };
  const Row rows[] = {
      {"a/b", "a", "a/b"},    {"a", "", "a"},       {"/a", "/", "/a"},
      {"/a/b", "/a", "/a/b"}, {"./a", ".", "a"},    {"../a/../b", "../a/..", "../b"},
      {"a//", "", "a"},       {"a//b", "a", "a/b"}, {"//a", "/", "/a"},
      {"/", "/", "/"},        {"//", "/", "/"},     {".", "", "."},
      {"..", "", ".."},       {"a/..", "a", "."},   {"", "", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(text(Path::dir(row.path, false)), row.parent);
    EXPECT_EQ(text(Path::dir(row.path, true)), row.itself);
  }
}

// ---------------------------------------------------------------------------------------------
// join

TEST(Path_Join, PutsOneSeparatorBetweenParts) {
  struct Row {
    StringVector parts;
    const char* joined;
  };
  const Row rows[] = {
      {{}, ""},
      {{"a"}, "a"},
      {{"/a//"}, "/a//"},
      {{"a", "b"}, "a/b"},
      {{"a/", "b"}, "a/b"},
      {{"a", "/b"}, "a/b"},
      {{"a//", "//b"}, "a/b"},
      {{"/", "b"}, "/b"},
      {{"//", "b"}, "/b"},
      {{"//a", "b"}, "//a/b"},
      {{"a", "b/"}, "a/b/"},
      {{"./a", "../b"}, "./a/../b"},
      {{"a//b/.", "c//d"}, "a//b/./c//d"},
      // Empty parts
      {{"a", ""}, "a"},
      {{"a/", ""}, "a/"},
      {{"", "b"}, "b"},
      {{"", "/b"}, "/b"},
      {{"a", "", "b"}, "a/b"},
      {{"", "", ""}, ""},
      // Parts made only of separators
      {{"foo", "//"}, "foo"},
      {{"foo/", "/"}, "foo/"},
      {{"a", "/", "b"}, "a/b"},
      {{"a", "/", ""}, "a"},
      {{"", "/"}, "/"},
      {{"/", "/"}, "/"},
      {{"/", "/", "b"}, "/b"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.joined);
    EXPECT_EQ(text(Path::join(row.parts)), row.joined);
    if (row.parts.size() == 2) {
      const String first = row.parts[0];
      const String second = row.parts[1];
      EXPECT_EQ(text(Path::join<String, const char*>(first, second.buf())), row.joined);
      EXPECT_EQ(text(Path::join<const char*, String>(first.buf(), second)), row.joined);
      EXPECT_EQ(text(Path::join<String, String>(first, second)), row.joined);
    }
  }
}

TEST(Path_Join, TakesStringsAndTextsInAnyMixture) {
  const String dir("/dir");
  char name[] = "name";
  char* const listed = name;
  const char* const null = nullptr;

  EXPECT_EQ((Path::join<String, char*>(dir, listed)), "/dir/name");
  EXPECT_EQ(Path::join(dir, listed), "/dir/name");
  EXPECT_EQ(Path::join("res", dir, listed, "last"), "res/dir/name/last");
  EXPECT_EQ(Path::join(dir), "/dir");
  EXPECT_EQ(Path::join("a", "b\0c"), "a/b");
  EXPECT_EQ(Path::join("a", null), "a");
  EXPECT_EQ(Path::join(null, "/b"), "/b");
}

// ---------------------------------------------------------------------------------------------
// isRel

TEST(Path_IsRel, IsFalseOnlyForPathsThatStartAtTheRoot) {
  for (const char* const path :
       {"", "a", "a/b", ".", "..", "./a", "~/a", "\\a", " /a", "C:/", "a/../.."}) {
    SCOPED_TRACE(path);
    EXPECT_TRUE(Path(path, true).isRel());
    EXPECT_TRUE(Path(path, false).isRel());
  }
  for (const char* const path : {"/", "//", "/a", "/..", "//a"}) {
    SCOPED_TRACE(path);
    EXPECT_FALSE(Path(path, true).isRel());
    EXPECT_FALSE(Path(path, false).isRel());
  }
}

// ---------------------------------------------------------------------------------------------
// Functions that access the file system. They log nothing and do not change the current error.

class PathTest : public testing::Test, protected Sandbox {
 protected:
  void TearDown() override { expectSilence(); }
};

class Path_Text : public PathTest {};

TEST_F(Path_Text, IsAllThatTheseFunctionsAccess) {
  const char* const written = "./a//b.c/../d.e";
  Calls calls;

  for (const bool normalizeFirst : {false, true}) {
    const Path path(written, normalizeFirst);
    EXPECT_EQ(path.normalized(), "a/d.e");
    EXPECT_EQ(path.file(true), "d.e");
    EXPECT_EQ(path.ext(true), ".e");
    EXPECT_FALSE(path.components().empty());
    EXPECT_TRUE(path.isRel());
  }
  EXPECT_EQ(Path::normalize(written), "a/d.e");
  EXPECT_EQ(Path::dir(written, true), "a/d.e");
  EXPECT_EQ(Path::dir(written, false), "./a//b.c/..");
  EXPECT_EQ(Path::ext(written, false), "e");
  EXPECT_EQ(Path::changeExt(written, ".x"), "./a//b.c/../d.x");
  EXPECT_EQ(Path::join("a", written), "a/./a//b.c/../d.e");

  EXPECT_EQ(calls.all(), lines());
}

// ---------------------------------------------------------------------------------------------
// isDir, isFile and exists

/// Returns the kind of the entry according to all five queries.
std::string kindOf(const std::string& written, bool normalizeFirst) {
  const Path path(vxText(written), normalizeFirst);
  const bool isDir = path.isDir();
  const bool isFile = path.isFile();
  EXPECT_FALSE(isDir && isFile);
  EXPECT_EQ(path.exists(), isDir || isFile);
  EXPECT_EQ(Path::isDir(vxText(written), normalizeFirst), isDir);
  EXPECT_EQ(Path::isFile(vxText(written), normalizeFirst), isFile);
  return isDir ? "directory" : isFile ? "file" : "nothing";
}

class Path_IsDir : public PathTest {};

TEST_F(Path_IsDir, IsFalseForFilesAndMissingEntries) {
  tmp.mkdir("dir/sub");
  tmp.write("file", "text");
  tmp.link("to-dir", "dir");
  tmp.link("to-file", "file");
  tmp.link("to-link", "to-dir");
  tmp.link("to-sub", "dir/sub");
  tmp.link("dangling", "missing");
  tmp.link("loop", "loop");
  tmp.write("line\nbreak \xFF", "text");
  ASSERT_EQ(::mkfifo("fifo", 0600), 0);
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);
  struct Row {
    std::string path;
    const char* written;
    const char* normal;
  };
  const Row rows[] = {
      {"", "nothing", "nothing"},
      {"/", "directory", "directory"},
      {".", "directory", "directory"},
      {"..", "directory", "directory"},
      {"dir", "directory", "directory"},
      {"dir/sub", "directory", "directory"},
      {"file", "file", "file"},
      {"line\nbreak \xFF", "file", "file"},
      {"file/", "nothing", "file"},
      {"file/x", "nothing", "nothing"},
      {"missing", "nothing", "nothing"},
      {"missing/../dir", "nothing", "directory"},
      {"to-dir", "directory", "directory"},
      {"to-file", "file", "file"},
      {"to-link", "directory", "directory"},
      {"to-sub/../../file", "file", "nothing"},
      {"dangling", "nothing", "nothing"},
      {"loop", "nothing", "nothing"},
      {"fifo", "file", "file"},
      {"/dev/null", "file", "file"},
      {"socket", "directory", "directory"},
      {std::string(256, 'x'), "nothing", "nothing"},
      {std::string("dir\0x", 5), "directory", "directory"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(kindOf(row.path, false), row.written);
    EXPECT_EQ(kindOf(row.path, true), row.normal);
  }
}

TEST_F(Path_IsDir, TestsTheDirectoryBitAlone) {
  struct Row {
    mode_t type;
    const char* kind;
  };
  for (const Row& row :
       {Row{S_IFDIR, "directory"}, Row{S_IFBLK, "directory"}, Row{S_IFSOCK, "directory"},
        Row{S_IFREG, "file"}, Row{S_IFCHR, "file"}, Row{S_IFIFO, "file"}}) {
    for (const mode_t permissions : {0U, 07777U}) {
      SCOPED_TRACE(row.type | permissions);
      Calls calls;
      calls.answer("stat", row.type | permissions);

      EXPECT_EQ(kindOf("anything", false), row.kind);
    }
  }
}

TEST_F(Path_IsDir, MakesOneStatCallForAnyQuery) {
  struct Row {
    const char* path;
    bool normalizeFirst;
    const char* asked;
  };
  tmp.mkdir("dir");
  tmp.write("file", "text");
  for (const Row& row :
       {Row{"dir", true, "stat dir"}, Row{"file", true, "stat file"},
        Row{"missing", true, "stat missing"}, Row{"/", true, "stat /"}, Row{"..", true, "stat .."},
        Row{"./dir//b/../", true, "stat dir"}, Row{"./dir//b/../", false, "stat ./dir//b/../"}}) {
    SCOPED_TRACE(row.path);
    const Path path(row.path, row.normalizeFirst);
    Calls calls;

    (void)path.isDir();
    (void)path.isFile();
    (void)path.exists();
    (void)path.dir();
    (void)Path::isDir(row.path, row.normalizeFirst);
    (void)Path::isFile(row.path, row.normalizeFirst);

    EXPECT_EQ(calls.all(), Names(6, row.asked));
  }
}

TEST_F(Path_IsDir, NeedsNoCallForTheEmptyPath) {
  Calls calls;

  EXPECT_EQ(kindOf("", false), "nothing");
  EXPECT_EQ(kindOf("", true), "nothing");
  EXPECT_EQ(Path("", true).dir(), "");

  EXPECT_EQ(calls.all(), lines());
}

TEST_F(Path_IsDir, NeedsPermissionToSearch) {
  tmp.mkdir("locked/dir");
  tmp.write("locked/file", "text");
  ASSERT_EQ(::chmod("locked", 0), 0);

  runAsUnprivileged([] {
    EXPECT_EQ(kindOf("locked", true), "directory");
    EXPECT_EQ(kindOf("locked/dir", true), "nothing");
    EXPECT_EQ(kindOf("locked/file", true), "nothing");
  });
}

TEST_F(Path_IsDir, IsFalseForARemovedDirectory) {
  const std::string other = tmp.mkdir("other");
  tmp.mkdir("gone");

  runInChild([&] {
    const int open = ::open("gone", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    const std::string descriptor = "/proc/self/fd/" + std::to_string(open);
    ASSERT_EQ(::chdir("gone"), 0);
    EXPECT_EQ(kindOf(descriptor, true), "directory");
    ASSERT_EQ(::rmdir(tmp.path("gone").c_str()), 0);

    for (const std::string& path : {std::string("."), std::string("./"), std::string("././/"),
                                    std::string("/proc/self/cwd"), descriptor}) {
      EXPECT_EQ(kindOf(path, false), "nothing") << path;
      EXPECT_EQ(kindOf(path, true), "nothing") << path;
    }
    EXPECT_EQ(kindOf("./x/..", true), "nothing");
    EXPECT_EQ(Path(".", true).dir(), "");
    EXPECT_EQ(kindOf("..", true), "directory");
    EXPECT_EQ(kindOf(other, true), "directory");
    expectSilence();
  });
}

TEST_F(Path_IsDir, TakesARemovedFileForAFile) {
  tmp.write("file", "text");
  const int open = ::open("file", O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::unlink("file"), 0);

  EXPECT_EQ(kindOf("/proc/self/fd/" + std::to_string(open), true), "file");

  ::close(open);
}

TEST_F(Path_IsDir, IsFalseWhereGetcwdFindsNoCurrentDirectory) {
  tmp.mkdir("dir");
  Calls calls;
  calls.fail("getcwd", ENOENT);

  for (const char* const path : {".", "./", "././/.", "dir/..", "dir/../"}) {
    EXPECT_EQ(kindOf(path, false), "nothing") << path;
    EXPECT_EQ(kindOf(path, true), "nothing") << path;
  }
  for (const char* const path : {"dir", "dir/.", "..", "../", "dir/../dir", "/", "/."}) {
    EXPECT_EQ(kindOf(path, false), "directory") << path;
    EXPECT_EQ(kindOf(path, true), "directory") << path;
  }
}

TEST_F(Path_IsDir, IsFalseForARemovedDirectoryOfALowerLayer) {
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
      return;
    }
    tmp.write("has-overlay", "");
    ASSERT_EQ(::chdir("merged/gone"), 0);
    EXPECT_EQ(kindOf(".", true), "directory");
    ASSERT_EQ(::rmdir("../gone"), 0);

    EXPECT_EQ(kindOf(".", true), "nothing");
    EXPECT_EQ(kindOf("./", false), "nothing");
  });

  if (!tmp.exists("has-overlay")) {
    GTEST_SKIP() << "this kernel has no overlay file system";
  }
}

TEST_F(Path_IsDir, IsFalseWhenStatFails) {
  forEachFailure([](FailureRun& run) {
    const bool isDir = run.act([] { return Path(".", false).isDir(); });

    // Of the errors of getcwd only this one says that the directory has been removed.
    EXPECT_EQ(isDir, !run.failed("stat .") && !(run.failed("getcwd") && run.error() == ENOENT));
    run.expectSilence();
  });
}

class Path_IsFile : public PathTest {};

TEST_F(Path_IsFile, IsFalseWhenStatFails) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("file", "text");

    const bool isFile = run.act([] { return Path("file", false).isFile(); });

    EXPECT_EQ(isFile, !run.failed("stat file"));
    run.expectSilence();
  });
}

// ---------------------------------------------------------------------------------------------
// dir

class Path_Dir : public PathTest {};

TEST_F(Path_Dir, IsTheDirectoryItselfOrTheParent) {
  tmp.mkdir("here/dir/sub");
  tmp.write("here/dir/file", "text");
  tmp.link("here/to-dir", "dir");
  tmp.link("here/dangling", "missing");
  const ScopedCurrentDir here("here");  // so that nobody else creates entries in its parent
  struct Row {
    const char* path;
    const char* written;
    const char* normal;
  };
  const Row rows[] = {
      {"", "", ""},
      {"/", "/", "/"},
      {".", ".", "."},
      {"..", "..", ".."},
      {"dir", "dir", "dir"},
      {"dir/sub/", "dir/sub/", "dir/sub"},
      {"to-dir", "to-dir", "to-dir"},
      {"dir/sub/..", "dir/sub/..", "dir"},
      {"dir/file", "dir", "dir"},
      {"to-dir/file", "to-dir", "to-dir"},
      {"dangling", "", ""},
      {"missing", "", ""},
      {"dir/missing", "dir", "dir"},
      {"missing/x", "missing", "missing"},
      {"/missing-entry", "/", "/"},
      {"missing/x/", "missing", "missing"},
      {"./wood.*", ".", ""},
      {"../missing/../missing-entry", "../missing/..", ".."},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(text(Path(row.path, false).dir()), row.written);
    EXPECT_EQ(text(Path(row.path, true).dir()), row.normal);
  }
}

TEST_F(Path_Dir, IsTheParentWhenStatFails) {
  forEachFailure([](FailureRun& run) {
    run.tmp.mkdir("a/b");

    const bool isItself = run.act([] { return Path("a/b", true).dir() == "a/b"; });

    EXPECT_EQ(isItself, !run.failed("stat a/b"));
    run.expectSilence();
  });
}

// ---------------------------------------------------------------------------------------------
// canonical

std::string canonical(const std::string& path, bool normalizeFirst) {
  return text(Path(vxText(path), normalizeFirst).canonical());
}

class Path_Canonical : public PathTest {
 protected:
  Path_Canonical() {
    tmp.mkdir("dir/sub");
    tmp.write("file", "text");
    tmp.link("d", "dir");
    tmp.link("to-sub", "dir/sub");
    tmp.link("to-file", tmp.path("file"));
    tmp.link("far", "to-sub");
    tmp.link("dir/up", "../file");
    tmp.link("dangling", "missing/target");
    tmp.link("loop", "loop");
    tmp.link("ping", "pong");
    tmp.link("pong", "ping");
  }
};

TEST_F(Path_Canonical, ResolvesWhatExistsAndAppendsTheRest) {
  struct Row {
    const char* path;
    const char* written;  // below the current directory
    const char* normal;
  };
  const Row rows[] = {
      {"", "", ""},
      {"/.", "", ""},
      {"/./dir//sub/../sub/.", "/dir/sub", "/dir/sub"},
      {"/file", "/file", "/file"},
      {"/new", "/new", "/new"},
      {"/./new/", "/new", "/new"},
      {"/dir/sub/x/y/z", "/dir/sub/x/y/z", "/dir/sub/x/y/z"},
      {"/dir/x//./y/../z/", "/dir/x/z", "/dir/x/z"},
      {"/dir/x/y/../..", "/dir", "/dir"},
      {"/dir/sub/x/../../../file", "/file", "/file"},
      // Links
      {"/d", "/dir", "/dir"},
      {"/d/sub", "/dir/sub", "/dir/sub"},
      {"/d/x/y", "/dir/x/y", "/dir/x/y"},
      {"/to-file", "/file", "/file"},
      {"/far/x", "/dir/sub/x", "/dir/sub/x"},
      {"/d/up", "/file", "/file"},
      // The parent of a link: the normal form names another entry.
      {"/to-sub/../x", "/dir/x", "/x"},
      {"/to-sub/../up", "/file", "/up"},
      {"/to-sub/x/../../y", "/dir/y", "/y"},
      // Links that cannot be resolved
      {"/dangling", "/dangling", "/dangling"},
      {"/dangling/x", "/dangling/x", "/dangling/x"},
      {"/loop/x/y", "/loop/x/y", "/loop/x/y"},
      {"/ping/x", "/ping/x", "/ping/x"},
      // A file where a directory is expected
      {"/file/x/y", "/file/x/y", "/file/x/y"},
      {"/file/", "/file", "/file"},
      {"/file/../dir", "/dir", "/dir"},
      {"/to-file/x", "/file/x", "/file/x"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    const std::string relative = std::string(row.path).substr(*row.path == '\0' ? 0 : 1);
    EXPECT_EQ(canonical(relative, false), tmp.path() + row.written);
    EXPECT_EQ(canonical(relative, true), tmp.path() + row.normal);
    EXPECT_EQ(canonical(tmp.path() + row.path, false), tmp.path() + row.written);
    EXPECT_EQ(canonical(tmp.path() + row.path, true), tmp.path() + row.normal);
  }
}

TEST_F(Path_Canonical, ResolvesAtTheRoot) {
  EXPECT_EQ(canonical("/", true), "/");
  EXPECT_EQ(canonical("///", false), "/");
  EXPECT_EQ(canonical("/..", false), "/");
  EXPECT_EQ(canonical("/no such entry", true), "/no such entry");
  EXPECT_EQ(canonical("/no such entry/x/../y/", false), "/no such entry/y");
  EXPECT_EQ(canonical("/no such entry/../..", false), "/");
}

TEST_F(Path_Canonical, StartsWithOneSlash) {
  tmp.link("double", "/" + tmp.path("dir"));

  EXPECT_EQ(canonical("//", false), "/");
  EXPECT_EQ(canonical("/" + tmp.path("d"), false), tmp.path("dir"));
  EXPECT_EQ(canonical("/" + tmp.path("d/new"), false), tmp.path("dir/new"));
  EXPECT_EQ(canonical("double/sub", true), tmp.path("dir/sub"));
  EXPECT_EQ(canonical("double/new", true), tmp.path("dir/new"));
  // POSIX allows realpath to keep two slashes.
  Calls calls;
  calls.answer("realpath //", "//");
  EXPECT_EQ(canonical("//", false), "/");
  calls.answer("realpath //usr", "//usr");
  EXPECT_EQ(canonical("//usr", false), "/usr");
}

TEST_F(Path_Canonical, StartsAtTheCurrentDirectory) {
  const ScopedCurrentDir throughALink("to-sub");

  EXPECT_EQ(canonical("", true), tmp.path("dir/sub"));
  EXPECT_EQ(canonical("x", true), tmp.path("dir/sub/x"));
  EXPECT_EQ(canonical("..", true), tmp.path("dir"));
  EXPECT_EQ(canonical("../../file", true), tmp.path("file"));
  EXPECT_EQ(canonical("../../new/x", true), tmp.path("new/x"));
}

TEST_F(Path_Canonical, CreatesNothing) {
  const Names before = tmp.entries();

  EXPECT_EQ(canonical("new/x/y", true), tmp.path("new/x/y"));
  EXPECT_EQ(canonical("dangling", true), tmp.path("dangling"));

  EXPECT_EQ(tmp.entries(), before);
}

TEST_F(Path_Canonical, NeedsNoStatCallForAnExistingPath) {
  Calls calls;

  EXPECT_EQ(canonical("dir", true), tmp.path("dir"));
  EXPECT_EQ(canonical("", true), tmp.path());

  EXPECT_EQ(calls.all(), lines("realpath dir", "realpath ."));
}

TEST_F(Path_Canonical, FindsTheExistingPrefixInFewCalls) {
  std::string levels = "x";
  for (int i = 1; i < 1000; ++i) {
    levels += "/x";
  }
  {
    Calls calls;
    EXPECT_EQ(canonical(levels, true), tmp.path(levels));
    EXPECT_LE(calls.count("stat"), 10U);
    EXPECT_EQ(calls.count("getcwd"), 0U);
  }
  tmp.mkdir(levels.substr(0, 199));
  {
    Calls calls;
    EXPECT_EQ(canonical(levels.substr(0, 199) + "/missing", true),
              tmp.path(levels.substr(0, 199) + "/missing"));
    EXPECT_LE(calls.count("stat"), 7U);
  }
}

TEST_F(Path_Canonical, AppendsWhatIsTooLongForTheSystem) {
  const std::string longName(256, 'x');
  std::string missing;
  while (missing.size() <= PATH_MAX) {
    missing += "/ten chars";
  }

  EXPECT_EQ(canonical(longName, true), tmp.path(longName));
  EXPECT_EQ(canonical("d/" + longName + "/y", true), tmp.path("dir/" + longName + "/y"));
  EXPECT_EQ(canonical("d/" + longName + "/../y", false), tmp.path("dir/y"));
  EXPECT_EQ(canonical("d" + missing, true), tmp.path("dir" + missing));
  EXPECT_EQ(canonical(tmp.path("d") + missing, true), tmp.path("dir" + missing));
  EXPECT_EQ(canonical(missing, true), missing);
}

TEST_F(Path_Canonical, ShortensAPathThatIsLongOnlyAsWritten) {
  std::string detour = "to-sub";
  while (detour.size() <= PATH_MAX) {
    detour += "/../sub";
  }

  EXPECT_EQ(canonical(detour + "/x", false), tmp.path("dir/sub/x"));
}

TEST_F(Path_Canonical, AppendsWhatIsInADirectoryItMayNotSearch) {
  tmp.mkdir("locked/inner");
  tmp.link("locked/link", "inner");
  tmp.link("to-locked", "locked");
  ASSERT_EQ(::chmod("locked", 0), 0);

  runAsUnprivileged([&] {
    EXPECT_EQ(canonical("to-locked", true), tmp.path("locked"));
    EXPECT_EQ(canonical("to-locked/inner/x", true), tmp.path("locked/inner/x"));
    EXPECT_EQ(canonical("to-locked/link", true), tmp.path("locked/link"));
  });
}

TEST_F(Path_Canonical, IsRelativeInARemovedCurrentDirectory) {
  const RemovedCurrentDir removed;

  for (const bool normalizeFirst : {false, true}) {
    EXPECT_EQ(canonical("", normalizeFirst), ".");
    EXPECT_EQ(canonical("./", normalizeFirst), ".");
    EXPECT_EQ(canonical("./x//y/../z/", normalizeFirst), "x/z");
    EXPECT_EQ(canonical("../x", normalizeFirst), "../x");
    EXPECT_EQ(canonical(tmp.path("to-sub/x"), normalizeFirst), tmp.path("dir/sub/x"));
  }
}

TEST_F(Path_Canonical, IsAbsoluteInAVeryDeepCurrentDirectory) {
  const std::string level(200, 'x');

  runInChild([&] {
    std::string deep = tmp.path();
    while (deep.size() <= PATH_MAX) {
      ASSERT_EQ(::mkdir(level.c_str(), 0755), 0);
      ASSERT_EQ(::chdir(level.c_str()), 0);
      deep += '/' + level;
    }
    ASSERT_EQ(::mkdir("dir", 0755), 0);
    ASSERT_EQ(::symlink("dir", "link"), 0);

#ifdef __GLIBC__
    const std::string current = deep;
    const std::string prefix = deep + '/';
#else
    // The path is too long for getcwd of the other C libraries, so the results are relative.
    const std::string current = ".";
    const std::string prefix;
#endif
    EXPECT_EQ(canonical("", true), current);
    EXPECT_EQ(canonical(".", false), current);
    EXPECT_EQ(canonical("./dir//", false), prefix + "dir");
    EXPECT_EQ(canonical("dir/new", true), prefix + "dir/new");
    EXPECT_EQ(canonical("new/x/../y", false), prefix + "new/y");
    // The path is too long for the link to be resolved.
    EXPECT_EQ(canonical("link", true), prefix + "link");
    EXPECT_EQ(canonical("link/new", true), prefix + "link/new");
    EXPECT_EQ(canonical(tmp.path("to-sub"), true), tmp.path("dir/sub"));
  });
}

TEST_F(Path_Canonical, IsAbsoluteUnderADirectoryItMayNotSearch) {
  tmp.mkdir("locked/inside/dir");
  tmp.link("locked/inside/link", "dir");
  const ScopedCurrentDir inside("locked/inside");
  ASSERT_EQ(::chmod(tmp.path("locked").c_str(), 0), 0);

#ifdef __GLIBC__
  const std::string link = tmp.path("locked/inside/link");
#else
  // musl's realpath examines the link by its relative path.
  const std::string link = tmp.path("locked/inside/dir");
#endif
  runAsUnprivileged([&] {
    EXPECT_EQ(canonical("", true), tmp.path("locked/inside"));
    EXPECT_EQ(canonical("dir/../dir/", false), tmp.path("locked/inside/dir"));
    EXPECT_EQ(canonical("dir/new", true), tmp.path("locked/inside/dir/new"));
    EXPECT_EQ(canonical("link", true), link);
    EXPECT_EQ(canonical("link/new", true), link + "/new");
  });
}

TEST_F(Path_Canonical, ResolvesNoLinkThatItCannotExamine) {
  forEachFailure([](FailureRun& run) {
    run.tmp.mkdir("dir");
    run.tmp.link("link", "dir");

    const String found = run.act([] { return Path("link/new", true).canonical(); });

    const bool resolved = !run.failed("stat link") && !run.failed("realpath link");
    EXPECT_EQ(text(found), run.tmp.path(resolved ? "dir/new" : "link/new"));
    run.expectSilence();
  });
}

TEST_F(Path_Canonical, IsRelativeOnlyWhenGetcwdFailsToo) {
  forEachFailure([](FailureRun& run) {
    run.tmp.mkdir("dir");
    run.calls.fail("realpath", EACCES);

    const String found = run.act([] { return Path("./dir/new", false).canonical(); });

    EXPECT_EQ(text(found), run.failed("getcwd") ? "dir/new" : run.tmp.path("dir/new"));
    run.expectSilence();
  });
}

}  // namespace
}  // namespace vx::test
