// SPDX-License-Identifier: MIT
//
// Names and paths at the edges of what the system takes: what is no directory in the way, names of
// the greatest length and of one byte more, paths that are too long, trees of 2,000 levels.

#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <string>

#include <unistd.h>

namespace vx::test {
namespace {

/// Neither the questions nor the removals, copies and moves find anything at `path`.
void expectNothingAt(const String& path) {
  EXPECT_FALSE(fs::exists(path));
  EXPECT_FALSE(fs::isDir(path));
  EXPECT_FALSE(fs::isFile(path));
  EXPECT_TRUE(fs::rmDir(path));
  EXPECT_TRUE(fs::rmFile(path));
  EXPECT_EQ(texts(fs::listDirs(path)), lines());
  EXPECT_EQ(texts(fs::listFiles(path, {""})), lines());
  EXPECT_FALSE(fs::copyFile(path, "copy"));
  EXPECT_FALSE(fs::moveFile(path, "moved"));
}

// ---------------------------------------------------------------------------------------------
// A parent that is no directory

/// In a directory each: "file", links that lead nowhere, and the file "src".
class ParentThatIsNoDirectory : public FsTest {
 protected:
  void SetUp() override {
    tmp.write("src", "new");
    tmp.write("file", "text");
    tmp.link("dangling", "missing");
    tmp.link("loop", "loop");
    tmp.link("one", "other");
    tmp.link("other", "one");
  }
};

TEST_F(ParentThatIsNoDirectory, HoldsNothing) {
  for (const std::string parent : {"file", "dangling", "loop", "one"}) {
    SCOPED_TRACE(parent);

    expectNothingAt(vxText(parent + "/x"));
    EXPECT_EQ(fs::resolvePath("x", {vxText(parent)}, {"x"}), "");
  }

  expectSilence();
}

TEST_F(ParentThatIsNoDirectory, TakesNothing) {
  for (const std::string parent : {"file", "dangling", "loop", "one"}) {
    SCOPED_TRACE(parent);
    const LogCapture logged;

    EXPECT_FALSE(fs::mkDir(vxText(parent + "/x")));
    EXPECT_FALSE(fs::copyFile("src", vxText(parent + "/x")));
    EXPECT_FALSE(fs::moveFile("src", vxText(parent + "/x")));
    EXPECT_FALSE(fs::writeZip(vxText(parent + "/pack.zip"), {}, {}));

    EXPECT_EQ(logged.all(),
              lines("error: Failed to create dir: " + parent + " [err: " + errnoText(EEXIST) + "].",
                    "error: Failed to initialize archive: " + parent + "/pack.zip"));
  }

  EXPECT_EQ(tmp.entries(), lines("dangling", "file", "loop", "one", "other", "src"));
}

TEST_F(ParentThatIsNoDirectory, TakesNoEntryOfAnArchive) {
  tmp.write("pack.zip", ZipMaker().file("file/x", "").file("loop/x", "").file("one/x", "").bytes());
  const std::string reason = " [err: " + errnoText(EEXIST) + "].";

  EXPECT_EQ(texts(fs::readZip("pack.zip", ".", {})), lines());

  // mkDir logs nothing about an existing file.
  EXPECT_EQ(log.all(), lines("error: Failed to create archive subdir: ./file/x",
                             "error: Failed to create dir: loop" + reason,
                             "error: Failed to create archive subdir: ./loop/x",
                             "error: Failed to create dir: one" + reason,
                             "error: Failed to create archive subdir: ./one/x"));
}

// ---------------------------------------------------------------------------------------------
// Names of 255 bytes and of one more

const std::string kLongest(NAME_MAX, 'n');
const std::string kTooLong(NAME_MAX + 1, 'n');

class LongestName : public FsTest {};

TEST_F(LongestName, IsTakenEverywhere) {
  const std::string file = std::string(NAME_MAX - 4, 'f') + ".txt";
  tmp.write("src", "text");

  EXPECT_TRUE(fs::mkDir(vxText("d/" + kLongest)));
  EXPECT_TRUE(fs::isDir(vxText("d/" + kLongest)));
  EXPECT_EQ(texts(fs::listDirs("d")), lines("d/" + kLongest));
  EXPECT_TRUE(fs::rmDir(vxText("d/" + kLongest)));
  EXPECT_TRUE(fs::copyFile("src", vxText("d/" + file)));
  EXPECT_EQ(texts(fs::listFiles("d", {"txt"})), lines("d/" + file));
  EXPECT_TRUE(fs::writeZip("pack.zip", {vxText("d/" + file)}, {}));
  EXPECT_EQ(texts(fs::readZip("pack.zip", "out", {})), lines("out/res/" + file));
  EXPECT_TRUE(fs::moveFile("src", vxText("d/" + file)));
  EXPECT_TRUE(fs::rmFile(vxText("d/" + file)));

  EXPECT_EQ(log.all(), lines());
}

// The name of the backup would be too long.
TEST_F(LongestName, IsReplacedByAMoveWithoutABackup) {
  tmp.write("src", "new");
  tmp.write(kLongest, "old");

  EXPECT_TRUE(fs::moveFile("src", vxText(kLongest)));

  EXPECT_EQ(tmp.entries(), lines(kLongest));
  EXPECT_EQ(tmp.read(kLongest), "new");
}

class NameThatIsTooLong : public FsTest {};

TEST_F(NameThatIsTooLong, NamesNothing) {
  tmp.write("src", "text");

  expectNothingAt(vxText(kTooLong));
  EXPECT_FALSE(fs::copyFile("src", vxText(kTooLong)));
  EXPECT_FALSE(fs::moveFile("src", vxText(kTooLong)));
  EXPECT_EQ(fs::resolvePath(vxText(kTooLong), {"."}, {"txt"}), "");

  expectSilence();
  EXPECT_EQ(tmp.entries(), lines("src"));
}

TEST_F(NameThatIsTooLong, IsNotCreated) {
  tmp.write("pack.zip", ZipMaker().file(kTooLong, "text").bytes());

  EXPECT_FALSE(fs::mkDir(vxText("a/" + kTooLong + "/b")));
  EXPECT_TRUE(capturedErrorIs(ENAMETOOLONG, "mkDir"));
  EXPECT_FALSE(fs::writeZip(vxText(kTooLong), {}, {}));
  EXPECT_EQ(texts(fs::readZip("pack.zip", "out", {})), lines());

  EXPECT_EQ(log.all(), lines("error: Failed to create dir: a/" + kTooLong +
                                 " [err: " + errnoText(ENAMETOOLONG) + "].",
                             "error: Failed to initialize archive: " + kTooLong,
                             "error: Failed to extract file out/" + kTooLong + " from archive."));
  EXPECT_EQ(tmp.entries(), lines("a/", "out/", "pack.zip"));
}

// ---------------------------------------------------------------------------------------------
// Paths of more than 4,095 bytes, and deep trees

/// A relative path of that many levels, of 200 bytes each: 20 are short enough, 21 are not.
std::string levels(int count) {
  std::string path;
  for (int i = 0; i < count; ++i) {
    path += (i == 0 ? "" : "/") + std::string(200, static_cast<char>('a' + i));
  }
  return path;
}

class PathThatIsTooLong : public FsTest {};

TEST_F(PathThatIsTooLong, NamesNothing) {
  tmp.write("src", "text");
  const String path = vxText(levels(21));

  expectNothingAt(path);
  EXPECT_FALSE(fs::copyFile("src", path));
  EXPECT_FALSE(fs::moveFile("src", path));
  EXPECT_EQ(fs::Fopen(path, "wb"), nullptr);
  EXPECT_EQ(text(Path(path, /*normalizeFirst=*/true).canonical()), tmp.path() + "/" + levels(21));

  expectSilence();
}

TEST_F(PathThatIsTooLong, IsCreatedAsFarAsPossible) {
  EXPECT_FALSE(fs::mkDir(vxText(levels(21))));

  EXPECT_EQ(log.all(), lines("error: Failed to create dir: " + levels(21) +
                             " [err: " + errnoText(ENAMETOOLONG) + "]."));
  EXPECT_TRUE(capturedErrorIs(ENAMETOOLONG, "mkDir"));
  EXPECT_TRUE(fs::isDir(vxText(levels(20))));
}

TEST_F(PathThatIsTooLong, MayLeadToTheCurrentDirectory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || !defined(__GLIBC__)
  GTEST_SKIP() << "the realpath of musl and of the sanitizers fails for paths that are too long";
#endif
  runInChild([&] {
    for (int i = 0; i < 25; ++i) {
      const std::string level(200, static_cast<char>('a' + i));
      ASSERT_TRUE(fs::mkDir(vxText(level)));
      ASSERT_EQ(::chdir(level.c_str()), 0);
    }

    String current;
    EXPECT_TRUE(fs::getCurrentDir(current));
    EXPECT_EQ(text(current), tmp.path() + "/" + levels(25));
    EXPECT_FALSE(fs::isDir(current));
    EXPECT_TRUE(fs::mkDir("x/y"));
    EXPECT_TRUE(fs::isDir("x/y"));
    EXPECT_EQ(texts(fs::listDirs("x")), lines("x/y"));
    EXPECT_EQ(log.all(), lines());

    // It removes the absolute path.
    EXPECT_FALSE(fs::rmDir("x/y"));
    EXPECT_EQ(log.all(), lines("error: Failed to remove dir: " + tmp.path() + "/" + levels(25) +
                               "/x/y [err: " + errnoText(ENAMETOOLONG) + "]."));
  });
}

class DeepTree : public FsTest {};

TEST_F(DeepTree, IsUsedAt2000Levels) {
  constexpr int kLevels = 2000;
  std::string deep = "d";
  for (int i = 1; i < kLevels; ++i) {
    deep += "/d";
  }
  const String file = vxText(deep + "/f.ksa");
  tmp.write("src.ksa", "text");

  ASSERT_TRUE(fs::mkDir(vxText(deep)));
  EXPECT_TRUE(fs::isDir(vxText(deep)));
  EXPECT_TRUE(fs::copyFile("src.ksa", file));
  EXPECT_TRUE(fs::moveFile("src.ksa", file));
  EXPECT_TRUE(fs::writeZip("pack.zip", {file}, {}));
  EXPECT_EQ(texts(fs::readZip("pack.zip", vxText(deep), {})), lines(deep + "/f.ksa"));
  EXPECT_EQ(text(fs::resolvePath("f.ksa", {vxText(deep)}, {})), tmp.path() + "/" + deep + "/f.ksa");
  EXPECT_TRUE(fs::rmFile(file));
  EXPECT_TRUE(fs::rmDir(vxText(deep)));

  EXPECT_EQ(log.all(), lines());
}

}  // namespace
}  // namespace vx::test
