// Names and paths at the edges of what the system takes: files in the way, loops of links, names
// that are too long by one, paths that are too long, trees of 2,000 levels.

#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gmock/gmock.h>
#include <miniz.h>

#include <cerrno>
#include <climits>
#include <ostream>
#include <string>
#include <vector>

#include <unistd.h>

namespace vx::test {
namespace {

/// An archive of one entry, written by the archive library.
void writeArchive(const std::string& path, const std::string& entry) {
  mz_zip_archive zip;
  mz_zip_zero_struct(&zip);
  ASSERT_NE(mz_zip_writer_init_file(&zip, path.c_str(), 0), MZ_FALSE);
  ASSERT_NE(mz_zip_writer_add_mem(&zip, entry.c_str(), "text", 4, MZ_NO_COMPRESSION), MZ_FALSE);
  ASSERT_NE(mz_zip_writer_finalize_archive(&zip), MZ_FALSE);
  ASSERT_NE(mz_zip_writer_end(&zip), MZ_FALSE);
}

/// A directory in which "bad" is something that nothing can lie in.
struct Obstacle {
  const char* name;
  bool exists;  ///< whether it is something itself
  void (*place)(const TempDir& tmp);
};

void PrintTo(const Obstacle& obstacle, std::ostream* stream) {
  *stream << obstacle.name;
}

class BehindAnObstacle : public testing::TestWithParam<Obstacle> {
 protected:
  void SetUp() override {
    GetParam().place(tmp_);
    tmp_.write("src", "new");
  }

  const TempDir tmp_;
  const std::string exists_ = errnoText(EEXIST);
};

TEST_P(BehindAnObstacle, NothingExists) {
  const LogCapture log;
  const ErrorStateSentinel sentinel;
  const String inside = String(tmp_.path("bad/x"));

  EXPECT_FALSE(fs::exists(inside));
  EXPECT_FALSE(fs::isDir(inside));
  EXPECT_FALSE(fs::isFile(inside));
  EXPECT_TRUE(fs::rmDir(inside));
  EXPECT_TRUE(fs::rmFile(inside));
  EXPECT_TRUE(fs::listDirs(inside).empty());
  EXPECT_TRUE(fs::listFiles(inside, {""}).empty());
  EXPECT_FALSE(fs::copyFile(inside, String(tmp_.path("copy"))));
  EXPECT_FALSE(fs::moveFile(inside, String(tmp_.path("moved"))));
  EXPECT_TRUE(fs::resolvePath("x", {String(tmp_.path("bad"))}, {"x"}).isEmpty());

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_P(BehindAnObstacle, NothingCanBeMade) {
  const std::string archive = tmp_.path("bad/pack.zip");
  const LogCapture log;

  EXPECT_FALSE(fs::mkDir(String(tmp_.path("bad/x"))));
  EXPECT_FALSE(fs::copyFile(String(tmp_.path("src")), String(tmp_.path("bad/x"))));
  EXPECT_FALSE(fs::moveFile(String(tmp_.path("src")), String(tmp_.path("bad/x"))));
  EXPECT_FALSE(fs::writeZip(String(archive), {}, {}));

  EXPECT_EQ(log.all(),
            lines("error: Failed to create dir: " + tmp_.path("bad") + " [err: " + exists_ + "].",
                  "error: Failed to initialize archive: " + archive));
  EXPECT_EQ(tmp_.read("src"), "new");
}

TEST_P(BehindAnObstacle, NothingIsExtracted) {
  writeArchive(tmp_.path("pack.zip"), "bad/x");
  const LogCapture log;

  EXPECT_TRUE(fs::readZip(String(tmp_.path("pack.zip")), String(tmp_.path()), {}).empty());

  // Of something that exists but is no directory, nothing is said.
  std::vector<std::string> expected;
  if (!GetParam().exists) {
    expected.push_back("error: Failed to create dir: " + tmp_.path("bad") + " [err: " + exists_ +
                       "].");
  }
  expected.push_back("error: Failed to create archive subdir: " + tmp_.path("bad/x"));
  EXPECT_EQ(log.all(), expected);
}

INSTANTIATE_TEST_SUITE_P(
    Of, BehindAnObstacle,
    testing::Values(
        Obstacle{"AFile", true, [](const TempDir& tmp) { tmp.write("bad", "a file"); }},
        Obstacle{"ALinkToItself", false, [](const TempDir& tmp) { tmp.link("bad", "bad"); }},
        Obstacle{"TwoLinksToEachOther", false,
                 [](const TempDir& tmp) {
                   tmp.link("bad", "other");
                   tmp.link("other", "bad");
                 }},
        Obstacle{"ADanglingLink", false, [](const TempDir& tmp) { tmp.link("bad", "missing"); }}),
    [](const testing::TestParamInfo<Obstacle>& one) { return std::string(one.param.name); });

// ---- Names of 255 bytes and of one more ---------------------------------------------------------

class NameOf : public testing::Test {
 protected:
  const TempDir tmp_;
  const std::string longest_ = std::string(NAME_MAX, 'n');
  const std::string tooLong_ = std::string(NAME_MAX + 1, 'n');
  const std::string code_ = errnoText(ENAMETOOLONG);
};

TEST_F(NameOf, MaximalLengthIsTakenEverywhere) {
  const ScopedCurrentDir inside(tmp_.path());
  const std::string file = std::string(NAME_MAX - 4, 'f') + ".txt";
  tmp_.write("src", "text");
  const LogCapture log;

  EXPECT_TRUE(fs::mkDir(String("d/" + longest_)));
  EXPECT_TRUE(fs::isDir(String("d/" + longest_)));
  EXPECT_EQ(texts(fs::listDirs("d")), lines("d/" + longest_));
  EXPECT_TRUE(fs::rmDir(String("d/" + longest_)));
  EXPECT_TRUE(fs::copyFile("src", String("d/" + file)));
  EXPECT_EQ(texts(fs::listFiles("d", {"txt"})), lines("d/" + file));
  EXPECT_TRUE(fs::writeZip("pack.zip", {String("d/" + file)}, {}));
  EXPECT_EQ(fs::readZip("pack.zip", "out", {}).front(), String("out/res/" + file));
  EXPECT_TRUE(fs::moveFile("src", String("d/" + file)));
  EXPECT_TRUE(fs::rmFile(String("d/" + file)));

  EXPECT_EQ(log.all(), lines());
}

TEST_F(NameOf, OneByteMoreNamesNothing) {
  const ScopedCurrentDir inside(tmp_.path());
  tmp_.write("src", "text");
  const LogCapture log;
  const ErrorStateSentinel sentinel;

  EXPECT_FALSE(fs::exists(String(tooLong_)));
  EXPECT_TRUE(fs::rmDir(String(tooLong_)));
  EXPECT_TRUE(fs::rmFile(String(tooLong_)));
  EXPECT_TRUE(fs::listDirs(String(tooLong_)).empty());
  EXPECT_FALSE(fs::copyFile("src", String(tooLong_)));
  EXPECT_FALSE(fs::moveFile("src", String(tooLong_)));
  EXPECT_TRUE(fs::resolvePath(String(tooLong_), {"."}, {"txt"}).isEmpty());

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(tmp_.entries(), lines("src"));
}

TEST_F(NameOf, OneByteMoreIsNoDirectory) {
  const ScopedCurrentDir inside(tmp_.path());
  const LogCapture log;

  EXPECT_FALSE(fs::mkDir(String("a/" + tooLong_ + "/b")));

  EXPECT_EQ(log.all(),
            lines("error: Failed to create dir: a/" + tooLong_ + " [err: " + code_ + "]."));
  EXPECT_TRUE(capturedErrorIs(ENAMETOOLONG, "mkDir"));
  EXPECT_EQ(tmp_.entries(), lines("a/"));
}

TEST_F(NameOf, OneByteMoreIsNoArchiveAndNoEntry) {
  const ScopedCurrentDir inside(tmp_.path());
  writeArchive(tmp_.path("pack.zip"), tooLong_);
  const LogCapture log;

  EXPECT_FALSE(fs::writeZip(String(tooLong_), {}, {}));
  EXPECT_TRUE(fs::readZip("pack.zip", "out", {}).empty());

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + tooLong_,
                             "error: Failed to extract file out/" + tooLong_ + " from archive."));
  EXPECT_EQ(tmp_.entries(), lines("out/", "pack.zip"));
}

// A backup's name can be too long though the destination's is not. The old file is then replaced
// without one.
TEST_F(NameOf, ABackupThatIsTooLongIsDoneWithout) {
  const ScopedCurrentDir inside(tmp_.path());
  tmp_.write("src", "new");
  tmp_.write(longest_, "old");

  EXPECT_TRUE(fs::moveFile("src", String(longest_)));

  EXPECT_EQ(tmp_.entries(), lines(longest_));
  EXPECT_EQ(tmp_.read(longest_), "new");
}

// ---- Paths beyond the longest that the system takes --------------------------------------------

/// So many levels of 200 bytes each, relative.
std::string levels(int count) {
  std::string path;
  for (int i = 0; i < count; ++i) {
    path += std::string(200, static_cast<char>('a' + i)) + '/';
  }
  path.pop_back();
  return path;
}

TEST(PathBeyondTheLongest, NamesNothing) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  tmp.write("src", "text");
  const String path = String(levels(21));
  const LogCapture log;
  const ErrorStateSentinel sentinel;

  EXPECT_FALSE(fs::exists(path));
  EXPECT_TRUE(fs::rmDir(path));
  EXPECT_TRUE(fs::rmFile(path));
  EXPECT_TRUE(fs::listDirs(path).empty());
  EXPECT_FALSE(fs::copyFile("src", path));
  EXPECT_FALSE(fs::moveFile("src", path));
  EXPECT_EQ(fs::Fopen(path, "wb"), nullptr);
  EXPECT_EQ(Path(path, /*normalizeFirst=*/true).canonical(), String(tmp.path() + '/' + levels(21)));

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(PathBeyondTheLongest, IsMadeUpToTheLevelThatCannotBeNamedAnyMore) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  const LogCapture log;

  EXPECT_FALSE(fs::mkDir(String(levels(21))));

  // 20 levels and what is between them are 4019 bytes, 21 are 4220.
  EXPECT_EQ(log.all(), lines("error: Failed to create dir: " + levels(21) +
                             " [err: " + errnoText(ENAMETOOLONG) + "]."));
  EXPECT_TRUE(fs::isDir(String(levels(20))));
  EXPECT_TRUE(capturedErrorIs(ENAMETOOLONG, "mkDir"));
}

/// Enters the levels one by one, and makes them.
void enterDeep(int count) {
  for (int i = 0; i < count; ++i) {
    const std::string level(200, static_cast<char>('a' + i));
    ASSERT_TRUE(fs::mkDir(String(level)));
    ASSERT_EQ(::chdir(level.c_str()), 0);
  }
}

TEST(PathBeyondTheLongest, IsNoHindranceAsTheCurrentDir) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "the sanitizers' own realpath knows no paths beyond the longest";
#endif
  const TempDir tmp;
  runInChild([&] {
    ASSERT_EQ(::chdir(tmp.path().c_str()), 0);
    enterDeep(25);
    const LogCapture log;

    String out;
    EXPECT_TRUE(fs::getCurrentDir(out));
    EXPECT_EQ(out, String(tmp.path() + '/' + levels(25)));
    EXPECT_FALSE(fs::isDir(out));  // since it cannot be asked for by that name
    EXPECT_TRUE(fs::mkDir("x/y"));
    EXPECT_TRUE(fs::isDir("x/y"));
    EXPECT_EQ(texts(fs::listDirs("x")), lines("x/y"));
    EXPECT_TRUE(fs::rmDir("x/y"));
    EXPECT_EQ(log.all(), lines());
  });
}

// ---- Deep trees --------------------------------------------------------------------------------

TEST(TreeOf2000Levels, IsMadeUsedAndRemovedLevelByLevel) {
  constexpr std::size_t kLevels = 2000;
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  std::string deep;
  for (std::size_t i = 0; i < kLevels; ++i) {
    deep += "d/";
  }
  deep.pop_back();
  tmp.write("src.ksa", "text");
  const LogCapture log;

  ASSERT_TRUE(fs::mkDir(String(deep)));
  EXPECT_TRUE(fs::isDir(String(deep)));
  EXPECT_TRUE(fs::copyFile("src.ksa", String(deep + "/f.ksa")));
  EXPECT_TRUE(fs::moveFile("src.ksa", String(deep + "/f.ksa")));
  EXPECT_TRUE(fs::writeZip("pack.zip", {String(deep + "/f.ksa")}, {}));
  EXPECT_EQ(fs::readZip("pack.zip", String(deep), {}).front(), String(deep + "/f.ksa"));
  EXPECT_EQ(fs::resolvePath("f.ksa", {String(deep)}, {}),
            String(tmp.path() + '/' + deep + "/f.ksa"));
  EXPECT_TRUE(fs::rmFile(String(deep + "/f.ksa")));

  // From the inside, level by level: no tool of the test's own would get so deep.
  ASSERT_EQ(::chdir(deep.c_str()), 0);
  for (std::size_t level = 0; level < kLevels; ++level) {
    ASSERT_EQ(::chdir(".."), 0);
    ASSERT_TRUE(level % 100 == 0 ? fs::rmDir("d") : ::rmdir("d") == 0) << level;
  }
  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("pack.zip"));
}

}  // namespace
}  // namespace vx::test
