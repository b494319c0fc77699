// SPDX-License-Identifier: MIT
//
// listDirs and listFiles, which never report anything.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/failures.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <dirent.h>
#include <sys/stat.h>

namespace vx::test {
namespace {

using testing::Each;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;
using testing::UnorderedElementsAre;
using testing::UnorderedElementsAreArray;

using Names = std::vector<std::string>;

Names listedDirs(const std::string& dir) {
  return texts(fs::listDirs(vxText(dir)));
}

Names listedFiles(const std::string& dir, StringVector exts) {
  return texts(fs::listFiles(vxText(dir), exts));
}

/// The names in a directory but "." and "..", in the system's order.
Names namesIn(const char* dir) {
  Names names;
  DIR* const directory = ::opendir(dir);
  EXPECT_NE(directory, nullptr);
  while (const dirent* const entry = ::readdir(directory)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  ::closedir(directory);
  return names;
}

// ---------------------------------------------------------------------------------------------
// What both have in common

class ListDirsAndFiles : public SilentFsTest {
 protected:
  static void expectNothingListed(const std::string& dir) {
    EXPECT_THAT(listedDirs(dir), IsEmpty()) << dir;
    EXPECT_THAT(listedFiles(dir, {"png", ""}), IsEmpty()) << dir;
  }
};

TEST_F(ListDirsAndFiles, OpenOnlyDirectories) {
  tmp.write("f", "text");
  tmp.link("dangling", "gone");
  Calls calls;

  for (const char* const dir : {"", "missing", "f", "dangling", "f/below"}) {
    expectNothingListed(dir);
  }

  EXPECT_EQ(calls.count("opendir"), 0U);
  EXPECT_EQ(calls.all().front(), "stat missing");  // nothing is asked about the empty path
}

TEST_F(ListDirsAndFiles, TestTheNormalFormAndOpenThePathAsGiven) {
  tmp.write("d/a.png", "");
  {
    Calls calls;
    expectNothingListed("missing/../d");
    EXPECT_EQ(calls.all(), lines("stat d", "opendir missing/../d",  //
                                 "stat d", "opendir missing/../d"));
  }
  Calls calls;
  EXPECT_EQ(listedFiles(".//d/", {"png"}), lines(".//d/a.png"));
  EXPECT_EQ(calls.all("stat"), lines("stat d", "stat d/a.png"));
  EXPECT_EQ(calls.all("opendir"), lines("opendir .//d/"));
}

TEST_F(ListDirsAndFiles, JoinThePathAsGivenAndTheName) {
  tmp.write("data/photo.png", "");
  tmp.write("data/sub/deeper/photo.png", "");
  tmp.link("link", "data");
  struct Row {
    std::string dir;
    std::string listedDir;
    std::string listedFile;
  };
  const Row rows[] = {
      {"data", "data/sub", "data/photo.png"},
      {"data//", "data/sub", "data/photo.png"},
      {".//data", ".//data/sub", ".//data/photo.png"},
      {"data/.", "data/./sub", "data/./photo.png"},
      {"data/../data", "data/../data/sub", "data/../data/photo.png"},
      {"link", "link/sub", "link/photo.png"},
      {tmp.path("data"), tmp.path("data/sub"), tmp.path("data/photo.png")},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(listedDirs(row.dir), lines(row.listedDir));
    EXPECT_EQ(listedFiles(row.dir, {"png"}), lines(row.listedFile));
  }
  const ScopedCurrentDir inside("data");
  EXPECT_EQ(listedDirs("."), lines("./sub"));
  EXPECT_EQ(listedFiles("./", {"png"}), lines("./photo.png"));
}

TEST_F(ListDirsAndFiles, PutOneSeparatorAfterTheRoot) {
  const Names found = listedDirs("/");

  EXPECT_THAT(found, Not(IsEmpty()));
  EXPECT_THAT(found, Each(Not(StartsWith("//"))));
}

TEST_F(ListDirsAndFiles, KeepTheOrderOfTheSystem) {
  for (int i = 0; i < 300; ++i) {
    tmp.write("d/" + std::to_string(i) + ".png", "");
    tmp.mkdir("d/" + std::to_string(i));
  }
  Names dirs;
  Names files;
  for (const std::string& name : namesIn("d")) {
    (name.ends_with(".png") ? files : dirs).push_back("d/" + name);
  }

  EXPECT_EQ(listedDirs("d"), dirs);
  EXPECT_EQ(listedFiles("d", {"png"}), files);
}

TEST_F(ListDirsAndFiles, MakeOneStatCallForEachEntry) {
  tmp.mkdir("d/a");
  tmp.write("d/a.png", "");
  tmp.write("d/b.png", "");
  const auto expectCalls = [](const Calls& calls) {
    EXPECT_EQ(calls.count("stat"), 4U);     // the directory, too
    EXPECT_EQ(calls.count("readdir"), 6U);  // "." and "..", and the end
    EXPECT_EQ(calls.count("opendir"), 1U);
    EXPECT_EQ(calls.count("closedir"), 1U);
  };
  {
    const Calls calls;
    (void)fs::listDirs("d");
    expectCalls(calls);
  }
  for (const StringVector& exts : {StringVector(), {"png"}, {"png", "jpg", ""}}) {
    const Calls calls;
    (void)fs::listFiles("d", exts);
    expectCalls(calls);
  }
}

TEST_F(ListDirsAndFiles, IgnoreTheTypeThatReaddirReports) {
  tmp.mkdir("d/a.png");
  tmp.write("d/b.png", "");
  for (const auto type : {DT_UNKNOWN, DT_DIR, DT_REG, DT_LNK}) {
    Calls calls;
    calls.answer("readdir", type);

    EXPECT_EQ(listedDirs("d"), lines("d/a.png"));
    EXPECT_EQ(listedFiles("d", {"png"}), lines("d/b.png"));
  }
}

TEST_F(ListDirsAndFiles, FollowLinks) {
  tmp.mkdir("e");
  tmp.write("f", "text");
  tmp.link("d/dir.png", "../e");
  tmp.link("d/file.png", "../f");
  tmp.link("d/dangling.png", "missing");
  tmp.link("d/loop.png", "loop.png");

  EXPECT_EQ(listedDirs("d"), lines("d/dir.png"));
  EXPECT_THAT(listedFiles("d", {"png"}),
              UnorderedElementsAre("d/file.png", "d/dangling.png", "d/loop.png"));
}

TEST_F(ListDirsAndFiles, TakeASocketForADirectory) {
  tmp.mkdir("d");
  ASSERT_EQ(::mknod("d/socket.png", S_IFSOCK | 0600, 0), 0);
  ASSERT_EQ(::mkfifo("d/fifo.png", 0600), 0);

  EXPECT_EQ(listedDirs("d"), lines("d/socket.png"));
  EXPECT_EQ(listedFiles("d", {"png"}), lines("d/fifo.png"));
  expectNothingListed("d/socket.png");
}

TEST_F(ListDirsAndFiles, SkipOnlyTheDotEntries) {
  for (const char* const name : {"d/...", "d/..a", "d/.a", "d/. "}) {
    tmp.mkdir(name);
  }
  tmp.write("d/.hidden.png", "");
  tmp.write("d/..png", "");

  EXPECT_THAT(listedDirs("d"), UnorderedElementsAre("d/...", "d/..a", "d/.a", "d/. "));
  EXPECT_THAT(listedFiles("d", {"png"}), UnorderedElementsAre("d/.hidden.png", "d/..png"));
  tmp.mkdir("empty");
  expectNothingListed("empty");
}

TEST_F(ListDirsAndFiles, TakeNamesAsBytes) {
  tmp.mkdir("d/a b\n\\\xff");
  tmp.write("d/\xfe line\nbreak.png", "");

  EXPECT_EQ(listedDirs("d"), lines("d/a b\n\\\xff"));
  EXPECT_EQ(listedFiles("d", {"png"}), lines("d/\xfe line\nbreak.png"));
}

TEST_F(ListDirsAndFiles, EndEarlyWhenReaddirFails) {
  for (const bool ofDirs : {true, false}) {
    forEachFailure([ofDirs](FailureRun& run) {
      run.tmp.mkdir("d/a.png");
      run.tmp.write("d/b.png", "");

      const Names found = texts(
          run.act([ofDirs] { return ofDirs ? fs::listDirs("d") : fs::listFiles("d", {"png"}); }));

      run.expectSilence();
      if (run.failed("stat d") || run.failed("opendir")) {
        EXPECT_EQ(found, lines());
        return;
      }
      EXPECT_EQ(run.calls.all().back(), "closedir");
      const std::string wanted = ofDirs ? "d/a.png" : "d/b.png";
      if (run.failed("readdir")) {
        // What has been read before is listed.
        EXPECT_EQ(found, Names(run.calls.count("stat " + wanted), wanted));
        EXPECT_TRUE(run.failed("readdir", static_cast<int>(run.calls.count("readdir"))));
        return;
      }
      // A directory that cannot be examined is listed as a file.
      if (run.failed("stat d/a.png")) {
        EXPECT_THAT(found, UnorderedElementsAreArray(ofDirs ? lines() : lines("d/a.png", wanted)));
        return;
      }
      EXPECT_EQ(found, lines(wanted));
    });
  }
}

// ---------------------------------------------------------------------------------------------
// listFiles

class ListFiles : public SilentFsTest {};

TEST_F(ListFiles, ComparesTheLastExtensionWithEachFilter) {
  struct Row {
    const char* name;
    StringVector exts;
    Names listed;
  };
  const Row rows[] = {
      {"photo.png", {"png"}, {"d/photo.png"}},
      {"photo.png", {".png"}, {"d/photo.png"}},
      {"photo.png", {"PNG"}, {"d/photo.png"}},
      {"photo.png", {".PnG"}, {"d/photo.png"}},
      {"PHOTO.PNG", {"png"}, {"d/PHOTO.PNG"}},
      {"PHOTO.PNG", {".png"}, {"d/PHOTO.PNG"}},
      {"photo.png", {}, {}},
      {"photo.png", {"jpg", "pn", "ng", "pngx", "..png", "*.png"}, {}},
      {"photo.png", {" png", "png ", "photo.png", "o.png", "", "."}, {}},
      // Once for each filter
      {"photo.png", {"png", ".PNG"}, {"d/photo.png", "d/photo.png"}},
      {"photo.png", {"png", "jpg", "png"}, {"d/photo.png", "d/photo.png"}},
      {"a.tar.gz", {"gz"}, {"d/a.tar.gz"}},
      {"a.tar.gz", {"tar", "tar.gz", ".tar.gz"}, {}},
      {"photo.png/", {"png", ".png"}, {}},
      // No extension, an empty one, a hidden file
      {"README", {""}, {"d/README"}},
      {"README", {".", "README"}, {}},
      {"wood.", {""}, {"d/wood."}},
      {"wood.", {"."}, {"d/wood."}},
      {".profile", {""}, {"d/.profile"}},
      {".png", {"png", ".png"}, {}},
      // Only the case of ASCII letters is ignored: a and A with two dots differ.
      {"f.\xc3\xa4", {"\xc3\xa4"}, {"d/f.\xc3\xa4"}},
      {"f.\xc3\xa4", {"\xc3\x84"}, {}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Sandbox own;
    const std::string path = std::string("d/") + row.name;
    path.ends_with('/') ? own.tmp.mkdir(path) : own.tmp.write(path, "");

    EXPECT_EQ(listedFiles("d", row.exts), row.listed);
  }
}

TEST_F(ListFiles, IgnoresTheExtensionOfTheDirectory) {
  tmp.write("d.png/file", "");

  EXPECT_THAT(listedFiles("d.png", {"png"}), IsEmpty());
}

TEST_F(ListFiles, ListsEachFileSeveralTimesInARow) {
  tmp.write("d/a.png", "");
  tmp.write("d/b.png", "");

  const Names found = listedFiles("d", {"png", ".PNG"});

  EXPECT_THAT(found, UnorderedElementsAre("d/a.png", "d/a.png", "d/b.png", "d/b.png"));
  EXPECT_EQ(found[0], found[1]);
}

}  // namespace
}  // namespace vx::test
