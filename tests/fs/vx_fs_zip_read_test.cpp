// SPDX-License-Identifier: MIT
//
// readZip.

#include "core/vx_error.h"
#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/calls.h"
#include "tests/testing/child.h"
#include "tests/testing/failures.h"
#include "tests/testing/scoped.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace vx::test {
namespace {

const std::string kTooLong(256, 'n');

class ReadZip : public FsTest {
 protected:
  /// Extracts an archive of these entries, "pack.zip", into "out".
  [[nodiscard]] std::vector<std::string> extract(const ZipMaker& zip) const {
    tmp.write("pack.zip", zip.bytes());
    return texts(fs::readZip("pack.zip", "out"));
  }
};

// ---------------------------------------------------------------------------------------------
// Before the first entry

TEST_F(ReadZip, RefusesWhatIsNoFile) {
  struct Row {
    std::string archive;
    std::string named;
  };
  const Row rows[] = {
      {"gone/./x/..//pack.zip", "gone/pack.zip"},
      {tmp.path("./gone"), tmp.path("gone")},
      {"100%s%n", "100%s%n"},
      {"dir/", "dir"},
      {"dangling", "dangling"},
      {"", ""},
  };
  tmp.mkdir("dir");
  tmp.link("dangling", "gone");
  for (const Row& row : rows) {
    const LogCapture own;

    EXPECT_EQ(texts(fs::readZip(vxText(row.archive), "out")), lines());

    EXPECT_EQ(own.all(), lines("error: Cannot expand non-existent archive: " + row.named));
  }
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(tmp.entries(), lines("dangling", "dir/"));
}

TEST_F(ReadZip, NeedsAnOutputDirectory) {
  tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());
  tmp.write("file", "text");

  EXPECT_EQ(texts(fs::readZip("pack.zip", "./file")), lines());
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(texts(fs::readZip("pack.zip", "file//x/")), lines());
  EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));

  EXPECT_EQ(log.all(), lines("error: Failed to create archive output dir: ./file",
                             "error: Failed to create dir: file [err: " + errnoText(EEXIST) + "].",
                             "error: Failed to create archive output dir: file//x/"));
  EXPECT_EQ(tmp.entries(), lines("file", "pack.zip"));
}

TEST_F(ReadZip, RefusesAFileThatIsNoArchive) {
  const std::string whole = ZipMaker().file("a", "text").file("b", "text").bytes();
  const std::string contents[] = {"", "no archive, but long enough to be one",
                                  whole.substr(0, whole.size() - 1)};
  tmp.link("link", "file");
  for (const std::string& content : contents) {
    const std::string archive = tmp.write("file", content);
    const LogCapture own;

    EXPECT_EQ(texts(fs::readZip("link", "out/x")), lines());

    EXPECT_EQ(own.all(), lines("error: Failed to initialize archive: " + archive));
  }
  EXPECT_EQ(tmp.entries(), lines("file", "link", "out/", "out/x/"));
}

// ---------------------------------------------------------------------------------------------
// The output directory

TEST_F(ReadZip, ExtractsNextToTheArchiveByDefault) {
  tmp.write("dir/pack.zip", ZipMaker().file("a", "text").file("s.ksx", "scene").bytes());
  tmp.link("here/link.zip", "../dir/pack.zip");
  const std::string scene = tmp.path("dir/pack.ksx");

  EXPECT_EQ(texts(fs::readZip("x/../dir//pack.zip", "")), lines("dir/a", scene));
  EXPECT_EQ(texts(fs::readZip(vxText(tmp.path("dir/pack.zip")), "")),
            lines(tmp.path("dir/a"), scene));
  // The scene is next to the archive itself, all else next to the link.
  EXPECT_EQ(texts(fs::readZip("here/link.zip", "")), lines("here/a", scene));

  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/a", "dir/pack.ksx", "dir/pack.zip", "here/", "here/a",
                                 "here/link.zip"));
  expectSilence();
}

TEST_F(ReadZip, ExtractsNextToAnArchiveWithoutDirectory) {
  tmp.write("dir/pack.zip", ZipMaker().file("a", "text").bytes());
  tmp.link("dir/link.zip", "other/pack.zip");
  tmp.write("dir/other/pack.zip", ZipMaker().file("b", "text").bytes());
  const ScopedCurrentDir inside("dir");

  EXPECT_EQ(texts(fs::readZip("pack.zip", "")), lines(tmp.path("dir/a")));
  EXPECT_EQ(texts(fs::readZip("link.zip", "")), lines(tmp.path("dir/other/b")));

  expectSilence();
}

TEST_F(ReadZip, ListsPathsAsTheOutputDirectoryIsWritten) {
  struct Row {
    std::string outDir;
    std::string listed;
  };
  const Row rows[] = {
      {".", "./d/a"},
      {"new/out", "new/out/d/a"},
      {"out//", "out/d/a"},
      {"x/.././out", "x/.././out/d/a"},
      {tmp.path("out"), tmp.path("out/d/a")},
  };
  tmp.write("pack.zip", ZipMaker().file("d/a", "text").bytes());
  tmp.mkdir("x");
  for (const Row& row : rows) {
    EXPECT_EQ(texts(fs::readZip("pack.zip", vxText(row.outDir))), lines(row.listed));
  }

  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("d/", "d/a", "new/", "new/out/", "new/out/d/", "new/out/d/a",
                                 "out/", "out/d/", "out/d/a", "pack.zip", "x/"));
}

// ---------------------------------------------------------------------------------------------
// Files and directories

TEST_F(ReadZip, ExtractsFilesInTheOrderOfTheArchive) {
  const std::string binary("\0\r\n\xFF", 4);
  const std::string prose = "deflated " + std::string(1000, 'x');

  EXPECT_EQ(extract(ZipMaker()
                        .file("stored", binary)
                        .add({.name = "deflated",
                              .content = prose,
                              .method = kDeflated,
                              .data = deflated(prose)})
                        .file("empty", "")
                        .add({.name = "deflated empty", .content = "", .method = kDeflated})
                        .file("a", "text")),
            lines("out/stored", "out/deflated", "out/empty", "out/deflated empty", "out/a"));

  EXPECT_EQ(tmp.read("out/stored"), binary);
  EXPECT_EQ(tmp.read("out/deflated"), prose);
  EXPECT_EQ(tmp.read("out/empty"), "");
  EXPECT_EQ(tmp.read("out/deflated empty"), "");
  EXPECT_EQ(tmp.read("out/a"), "text");
  EXPECT_EQ(log.all(), lines());
}

TEST_F(ReadZip, FindsNothingInAnEmptyArchive) {
  EXPECT_EQ(extract(ZipMaker()), lines());

  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("out/", "pack.zip"));
}

TEST_F(ReadZip, CreatesDirectoriesAndListsNone) {
  EXPECT_EQ(
      extract(ZipMaker()
                  .directory("d/")
                  .directory("e/f/")
                  .directory("d/")
                  .add({.name = "by attribute", .content = "x", .attributes = kDosDirectoryBit})
                  .file("a/b/c.txt", "text")),
      lines("out/a/b/c.txt"));

  EXPECT_EQ(tmp.entries(), lines("out/", "out/a/", "out/a/b/", "out/a/b/c.txt", "out/by attribute/",
                                 "out/d/", "out/e/", "out/e/f/", "pack.zip"));
  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(capturedErrorIs(0, "mkDir"));
}

TEST_F(ReadZip, LeavesTheErrorAloneIfNothingIsCreated) {
  tmp.mkdir("out/d");

  EXPECT_EQ(extract(ZipMaker()
                        .directory("d/")
                        .file("d/a", "text")
                        .add({.name = "bad", .content = "text", .crc = 1})
                        .file("../x", "text")),
            lines("out/d/a"));

  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_F(ReadZip, RewritesAFileInPlace) {
  tmp.write("out/a", "a longer text that was there before");
  std::filesystem::create_hard_link("out/a", "other name");
  ASSERT_EQ(::chmod("out/a", 0600), 0);

  EXPECT_EQ(extract(ZipMaker().file("a", "new")), lines("out/a"));

  EXPECT_EQ(tmp.read("out/a"), "new");
  EXPECT_EQ(tmp.read("other name"), "new");
  EXPECT_EQ(std::filesystem::status("out/a").permissions(), std::filesystem::perms(0600));
}

TEST_F(ReadZip, ListsAPathAsOftenAsItIsWritten) {
  EXPECT_EQ(extract(ZipMaker().file("a", "the first").file("b", "other").file("a", "last")),
            lines("out/a", "out/b", "out/a"));

  EXPECT_EQ(tmp.read("out/a"), "last");
}

TEST_F(ReadZip, WritesALinksTargetToAFile) {
  EXPECT_EQ(extract(ZipMaker()
                        .add({.name = "d", .content = "..", .attributes = kUnixLink})
                        .file("d/x", "escaped")
                        .file("a", "text")),
            lines("out/d", "out/a"));

  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status("out/d")));
  EXPECT_EQ(tmp.read("out/d"), "..");
  EXPECT_EQ(log.all(), lines("error: Failed to create archive subdir: out/d/x"));
  EXPECT_EQ(tmp.entries(), lines("out/", "out/a", "out/d", "pack.zip"));
}

TEST_F(ReadZip, FollowsLinksInTheOutputDirectory) {
  tmp.mkdir("elsewhere");
  tmp.write("file", "before");
  tmp.link("out/d", "../elsewhere");
  tmp.link("out/f", "../file");

  EXPECT_EQ(extract(ZipMaker().file("d/a", "text").file("f", "text")), lines("out/d/a", "out/f"));

  EXPECT_EQ(tmp.read("elsewhere/a"), "text");
  EXPECT_EQ(tmp.read("file"), "text");
}

TEST_F(ReadZip, CreatesTheNormalizedDirectoryOfAFile) {
  tmp.mkdir("other/sub");
  tmp.mkdir("other/x");
  tmp.mkdir("out");
  tmp.link("out/link", "../other/sub");

  EXPECT_EQ(extract(ZipMaker().file("link/../x/file", "text")), lines("out/link/../x/file"));

  EXPECT_TRUE(tmp.exists("out/x"));
  EXPECT_EQ(tmp.read("other/x/file"), "text");
}

TEST_F(ReadZip, GivesAFileTheTimeOfItsEntryAndTheUsualMode) {
  const ScopedTimeZone utc("UTC0");
  const ScopedUmask mask(027);

  EXPECT_EQ(extract(ZipMaker().add({.name = "a",
                                    .content = "text",
                                    .time = (4U << 11U) | (5U << 5U) | (6U / 2U),
                                    .date = ((2020U - 1980U) << 9U) | (2U << 5U) | 3U,
                                    .attributes = 0104755U << 16U})),
            lines("out/a"));

  struct stat status {};
  ASSERT_EQ(::stat("out/a", &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
  EXPECT_EQ(status.st_mtime, 1'580'702'706);  // 2020-02-03 04:05:06
}

TEST_F(ReadZip, NeverReportsProgress) {
  tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());
  int reports = 0;

  EXPECT_EQ(texts(fs::readZip("pack.zip", "out", [&](const fs::ZipProgress&) { ++reports; })),
            lines("out/a"));

  EXPECT_EQ(reports, 0);
}

// ---------------------------------------------------------------------------------------------
// Names

TEST_F(ReadZip, TakesNamesAsBytes) {
  for (const std::string& name : std::vector<std::string>{
           " a name with spaces ", "line\nbreak\r", "\xC3\xA4.png", "\xFF\xFE\x80", "back\\slash",
           "%s%n%d", "-rf", "*?[a]", "\x01\x7F", std::string(255, 'n')}) {
    EXPECT_EQ(extract(ZipMaker().file(name, "text")), lines("out/" + name));

    EXPECT_EQ(tmp.read("out/" + name), "text");
  }
  EXPECT_EQ(log.all(), lines());
}

TEST_F(ReadZip, ExtractsOtherNamesInTheOutputDirectory) {
  struct Row {
    const char* name;
    const char* listed;
    const char* file;
  };
  const Row rows[] = {
      {"/etc/absolute", "a/out/etc/absolute", "a/out/etc/absolute"},
      {"//x", "a/out/x", "a/out/x"},
      {"./x", "a/out/./x", "a/out/x"},
      {"d//x", "a/out/d//x", "a/out/d/x"},
      {"d/../x", "a/out/d/../x", "a/out/x"},
      {"d/../d/.././/x", "a/out/d/../d/.././/x", "a/out/x"},
      {"...", "a/out/...", "a/out/..."},
      {"..x", "a/out/..x", "a/out/..x"},
      {"x..", "a/out/x..", "a/out/x.."},
      {"..d/x", "a/out/..d/x", "a/out/..d/x"},
      {"..\\x", "a/out/..\\x", "a/out/..\\x"},
      {"C:/x", "a/out/C:/x", "a/out/C:/x"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Sandbox own;
    own.tmp.mkdir("a/out/d");
    own.tmp.write("pack.zip", ZipMaker().file(row.name, "text").bytes());

    EXPECT_EQ(texts(fs::readZip("pack.zip", "a/out")), lines(row.listed));

    EXPECT_EQ(own.tmp.read(row.file), "text");
    EXPECT_EQ(own.log.all(), lines());
  }
}

TEST_F(ReadZip, RefusesNamesThatLeadOut) {
  tmp.write("a/x", "before");
  for (const std::string& name :
       std::vector<std::string>{"..", "../x", "../x/y", "../../x", "../../../../x", "/../x",
                                "///../x", "./../x", "b/../../x", "missing/../../x",
                                "b/.//..//./../x", "b/../..", "../out/x", "../../pack.zip"}) {
    SCOPED_TRACE(name);
    const LogCapture own;
    tmp.write("pack.zip", ZipMaker().file(name, "escaped").directory(name + "/").bytes());

    EXPECT_EQ(texts(fs::readZip("pack.zip", "a/out")), lines());

    EXPECT_EQ(own.all(), lines("warning: Unaupported file in archive: " + name,
                               "warning: Unaupported file in archive: " + name + "/"));
    EXPECT_EQ(tmp.entries(), lines("a/", "a/out/", "a/x", "pack.zip"));
    EXPECT_EQ(tmp.read("a/x"), "before");
  }
}

TEST_F(ReadZip, CannotReplaceTheOutputDirectory) {
  tmp.write("pack.zip", ZipMaker()
                            .file("", "text")
                            .file(".", "text")
                            .file("d/..", "text")
                            .file("missing/../x", "text")
                            .directory("/")
                            .directory("./")
                            .directory("d/../")
                            .file("a", "text")
                            .bytes());

  EXPECT_EQ(texts(fs::readZip("pack.zip", "./out")), lines("./out/a"));

  // Parent directories are created in the normal form of the path, so "missing" is not.
  EXPECT_EQ(log.all(), lines("error: Failed to extract file ./out from archive.",
                             "error: Failed to extract file ./out/. from archive.",
                             "error: Failed to extract file ./out/d/.. from archive.",
                             "error: Failed to extract file ./out/missing/../x from archive."));
  EXPECT_EQ(tmp.entries(), lines("out/", "out/a", "out/d/", "pack.zip"));
}

TEST_F(ReadZip, TakesANameUpToItsFirstNul) {
  const std::string nul(1, '\0');

  EXPECT_EQ(extract(ZipMaker()
                        .file("kept" + nul + "/../../x", "text")
                        .file("../x" + nul + "s.ksx", "escaped")
                        .file("s.ksx" + nul + ".png", "scene")),
            lines("out/kept", tmp.path("pack.ksx")));

  EXPECT_EQ(log.all(), lines("warning: Unaupported file in archive: ../x"));
  EXPECT_EQ(tmp.entries(), lines("out/", "out/kept", "pack.ksx", "pack.zip"));
}

// ---------------------------------------------------------------------------------------------
// Scenes

TEST_F(ReadZip, ExtractsAScenePastTheOutputDirectory) {
  for (const char* const name :
       {"scene.ksx", "SCENE.KSX", "scene.kSx", "res/deep/scene.ksx", ".ksx", "...ksx",
        "../scene.ksx", "a/../../../../scene.ksx", "/etc/scene.ksx"}) {
    SCOPED_TRACE(name);
    const Sandbox own;
    own.tmp.write("dir/pack.zip", ZipMaker().file(name, "scene").bytes());
    const std::string scene = own.tmp.write("dir/pack.ksx", "a scene that was there before");

    EXPECT_EQ(texts(fs::readZip("dir/pack.zip", "out")), lines(scene));

    EXPECT_EQ(own.tmp.read("dir/pack.ksx"), "scene");
    EXPECT_EQ(own.tmp.entries(), lines("dir/", "dir/pack.ksx", "dir/pack.zip", "out/"));
    EXPECT_EQ(own.log.all(), lines());
  }
}

TEST_F(ReadZip, TakesNoOtherNameForAScene) {
  EXPECT_EQ(extract(ZipMaker()
                        .file("look.ksa", "1")
                        .file("scene.ksxx", "2")
                        .file("ksx", "3")
                        .file("a.ksx.b", "4")
                        .directory("s.ksx/")),
            lines("out/look.ksa", "out/scene.ksxx", "out/ksx", "out/a.ksx.b"));

  EXPECT_EQ(tmp.entries(), lines("out/", "out/a.ksx.b", "out/ksx", "out/look.ksa", "out/s.ksx/",
                                 "out/scene.ksxx", "pack.zip"));
}

TEST_F(ReadZip, ChangesTheExtensionOfTheArchiveForAScene) {
  for (const char* const archive : {"a.b.zip", "bare", ".zip"}) {
    tmp.write(archive, ZipMaker().file("s.ksx", "scene").bytes());
  }

  EXPECT_EQ(texts(fs::readZip("a.b.zip", "out")), lines(tmp.path("a.b.ksx")));
  EXPECT_EQ(texts(fs::readZip("bare", "out")), lines(tmp.path("bare.ksx")));
  EXPECT_EQ(texts(fs::readZip(".zip", "out")), lines(tmp.path(".zip.ksx")));
}

TEST_F(ReadZip, NamesASceneByItsPlaceUnlessUnsupported) {
  EXPECT_EQ(extract(ZipMaker()
                        .add({.name = "../s.ksx", .content = "x", .flags = kEncryptedFlag})
                        .add({.name = "s.ksx", .content = "x", .crc = 1})
                        .add({.name = "s.ksx", .content = "", .attributes = kDosDirectoryBit})),
            lines());

  EXPECT_EQ(log.all(),
            lines("warning: Unaupported file in archive: ../s.ksx",
                  "error: Failed to extract file " + tmp.path("pack.ksx") + " from archive.",
                  "error: Failed to create archive subdir: " + tmp.path("pack.ksx")));
}

TEST_F(ReadZip, KeepsTheLastOfSeveralScenesAndListsEach) {
  EXPECT_EQ(extract(ZipMaker()
                        .file("a.ksx", "the first, which is longer")
                        .file("res/c.KSX", "last")
                        .file("b", "text")),
            lines(tmp.path("pack.ksx"), tmp.path("pack.ksx"), "out/b"));

  EXPECT_EQ(tmp.read("pack.ksx"), "last");
}

TEST_F(ReadZip, CreatesADirectoryNamedLikeASceneNextToIt) {
  EXPECT_EQ(extract(ZipMaker()
                        .add({.name = "s.ksx", .content = "", .attributes = kDosDirectoryBit})
                        .file("s.ksx", "scene")),
            lines());

  EXPECT_EQ(log.all(),
            lines("error: Failed to extract file " + tmp.path("pack.ksx") + " from archive."));
  EXPECT_EQ(tmp.entries(), lines("out/", "pack.ksx/", "pack.zip"));
}

TEST_F(ReadZip, TakesAnEmptyNameBelowASceneForAScene) {
  tmp.write("pack.zip", ZipMaker().file("", "scene").bytes());

  EXPECT_EQ(texts(fs::readZip("pack.zip", "out.ksx")), lines(tmp.path("pack.ksx")));

  EXPECT_EQ(tmp.read("pack.ksx"), "scene");
}

// ---------------------------------------------------------------------------------------------
// Entries that are not extracted

TEST_F(ReadZip, WarnsOfAnUnsupportedEntryByItsRawName) {
  const ZipEntry entries[] = {
      {.name = "d/f", .content = "x", .flags = kEncryptedFlag},
      {.name = "d/f", .content = "x", .flags = kStrongEncryptionFlag},
      {.name = "d/f", .content = "x", .flags = kPatchDataFlag},
      {.name = "//d/./f%s%n", .content = "x", .method = kBzip2},
      {.name = "d/f", .content = "x", .method = 0xFFFF},
      {.name = "d/", .content = "", .flags = kEncryptedFlag},
      {.name = "was there", .content = "x", .method = kBzip2},
  };
  tmp.write("out/was there", "before");
  for (const ZipEntry& entry : entries) {
    const LogCapture own;

    EXPECT_EQ(extract(ZipMaker().file("a", "text").add(entry).file("b", "text")),
              lines("out/a", "out/b"));

    EXPECT_EQ(own.all(), lines("warning: Unaupported file in archive: " + entry.name));
    EXPECT_EQ(tmp.entries(), lines("out/", "out/a", "out/b", "out/was there", "pack.zip"));
  }
  EXPECT_EQ(tmp.read("out/was there"), "before");
}

TEST_F(ReadZip, LogsEachFailureAndGoesOn) {
  tmp.write("out/x", "in the way");
  tmp.write("out/wrong checksum", "a longer text that was there before");

  EXPECT_EQ(extract(ZipMaker()
                        .add({.name = "wrong checksum", .content = "text", .crc = 1})
                        .add({.name = "damaged data",
                              .content = "text",
                              .method = kDeflated,
                              .data = "\xFF no deflated data"})
                        .add({.name = "damaged header", .content = "text", .localSignature = 0})
                        .add({.name = "secret", .content = "text", .flags = kEncryptedFlag})
                        .directory("x/")
                        .file("x/y", "text")
                        .file("x/y/z", "text")
                        .file(kTooLong, "text")
                        .file("d/" + kTooLong + "/f", "text")
                        .directory(kTooLong + "/")
                        .file("a", "text")),
            lines("out/a"));

  const std::string tooLong = " [err: " + errnoText(ENAMETOOLONG) + "].";
  EXPECT_EQ(log.all(), lines("error: Failed to extract file out/wrong checksum from archive.",
                             "error: Failed to extract file out/damaged data from archive.",
                             "error: Failed to extract file out/damaged header from archive.",
                             "warning: Unaupported file in archive: secret",
                             "error: Failed to create archive subdir: out/x/",
                             "error: Failed to create archive subdir: out/x/y",
                             "error: Failed to create dir: out/x [err: " + errnoText(EEXIST) + "].",
                             "error: Failed to create archive subdir: out/x/y/z",
                             "error: Failed to extract file out/" + kTooLong + " from archive.",
                             "error: Failed to create dir: out/d/" + kTooLong + tooLong,
                             "error: Failed to create archive subdir: out/d/" + kTooLong + "/f",
                             "error: Failed to create dir: out/" + kTooLong + tooLong,
                             "error: Failed to create archive subdir: out/" + kTooLong + "/"));
  EXPECT_TRUE(capturedErrorIs(ENAMETOOLONG, "mkDir"));
  // What had come out of a file remains.
  EXPECT_EQ(tmp.read("out/wrong checksum"), "text");
  EXPECT_EQ(tmp.read("out/x"), "in the way");
}

TEST_F(ReadZip, ReplacesNothingButRegularFiles) {
  tmp.write("out/dir/inside", "text");
  tmp.link("out/loop", "loop");
  tmp.link("out/device", "/dev/null");
  ASSERT_EQ(::mkfifo("out/fifo", 0600), 0);
  ASSERT_EQ(::mknod("out/socket", S_IFSOCK | 0600, 0), 0);

  // In a child, which ends if it waits for a reader of the FIFO.
  runInChild([&] {
    EXPECT_EQ(extract(ZipMaker()
                          .file("dir", "text")
                          .file("loop", "text")
                          .file("device", "text")
                          .file("fifo", "text")
                          .file("socket", "text")
                          .file("a", "text")),
              lines("out/a"));

    EXPECT_EQ(log.all(), lines("error: Failed to extract file out/dir from archive.",
                               "error: Failed to extract file out/loop from archive.",
                               "error: Failed to extract file out/device from archive.",
                               "error: Failed to extract file out/fifo from archive.",
                               "error: Failed to extract file out/socket from archive."));
    EXPECT_TRUE(sentinel.isUntouched());
  });
}

TEST_F(ReadZip, NeverReplacesTheArchive) {
  struct Row {
    const char* outDir;
    const char* name;
    std::string destination;
  };
  const Row rows[] = {
      {"dir", "pack.zip", "dir/pack.zip"},
      {"dir", "./pack.zip", "dir/./pack.zip"},
      {"dir", "d/..//pack.zip", "dir/d/..//pack.zip"},
      {".", "dir/pack.zip", "./dir/pack.zip"},
      {"link-to-dir", "pack.zip", "link-to-dir/pack.zip"},
      {".", "link-to-dir/pack.zip", "./link-to-dir/pack.zip"},
      {"out", "link", "out/link"},
      {"out", "link-to-link", "out/link-to-link"},
      {"out", "hard-link", "out/hard-link"},
  };
  tmp.mkdir("dir/d");
  tmp.link("link-to-dir", "dir");
  tmp.link("out/link", "../dir/pack.zip");
  tmp.link("out/link-to-link", "link");
  tmp.write("dir/pack.zip", "");
  std::filesystem::create_hard_link("dir/pack.zip", "out/hard-link");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.destination);
    const LogCapture own;
    const std::string bytes = ZipMaker().file(row.name, "no archive").file("a", "text").bytes();
    tmp.write("dir/pack.zip", bytes);

    EXPECT_EQ(texts(fs::readZip("dir/pack.zip", row.outDir)),
              lines(std::string(row.outDir) + "/a"));

    EXPECT_EQ(own.all(),
              lines("error: Failed to extract file " + row.destination + " from archive."));
    EXPECT_EQ(tmp.read("dir/pack.zip"), bytes);
  }
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_F(ReadZip, NeverReplacesTheArchiveByItsScene) {
  const std::string bytes = ZipMaker().file("scene.KSX", "scene").file("a", "text").bytes();
  tmp.write("pack.ksx", bytes);
  tmp.write("dir/pack.zip", bytes);
  tmp.link("dir/pack.ksx", "pack.zip");

  EXPECT_EQ(texts(fs::readZip("pack.ksx", "out")), lines("out/a"));
  EXPECT_EQ(texts(fs::readZip("dir/pack.zip", "out")), lines("out/a"));

  EXPECT_EQ(log.all(),
            lines("error: Failed to extract file " + tmp.path("pack.ksx") + " from archive.",
                  "error: Failed to extract file " + tmp.path("dir/pack.ksx") + " from archive."));
  EXPECT_EQ(tmp.read("pack.ksx"), bytes);
  EXPECT_EQ(tmp.read("dir/pack.zip"), bytes);
}

TEST_F(ReadZip, ReplacesACopyOfTheArchive) {
  const std::string bytes = ZipMaker().file("pack.zip", "text").bytes();
  tmp.write("out/pack.zip", bytes);

  EXPECT_EQ(extract(ZipMaker().file("pack.zip", "text")), lines("out/pack.zip"));

  EXPECT_EQ(tmp.read("out/pack.zip"), "text");
  EXPECT_EQ(tmp.read("pack.zip"), bytes);
}

// ---------------------------------------------------------------------------------------------
// Calls and their failures

/// The calls to miniz.
std::vector<std::string> minizCalls(const Calls& calls) {
  std::vector<std::string> texts = calls.all();
  std::erase_if(texts, [](const std::string& text) { return !text.starts_with("mz_"); });
  return texts;
}

TEST_F(ReadZip, AsksForTheCountAndNameBeforeEachEntry) {
  tmp.write("pack.zip", ZipMaker()
                            .directory("d/")
                            .file("d/file", "text")
                            .add({.name = "secret", .content = "x", .flags = kEncryptedFlag})
                            .file("../x", "x")
                            .file("s.ksx", "scene")
                            .bytes());
  tmp.link("link.zip", "pack.zip");
  Calls calls;

  fs::readZip("link.zip", "out");

  EXPECT_EQ(minizCalls(calls),
            lines("mz_zip_zero_struct", "mz_zip_reader_init_file " + tmp.path("pack.zip") + " 0",
                  "mz_zip_reader_get_num_files",  //
                  "mz_zip_reader_get_filename 0 null 0", "mz_zip_reader_get_filename 0 buffer 3",
                  "mz_zip_reader_is_file_supported 0", "mz_zip_reader_is_file_a_directory 0",
                  "mz_zip_reader_get_num_files",  //
                  "mz_zip_reader_get_filename 1 null 0", "mz_zip_reader_get_filename 1 buffer 7",
                  "mz_zip_reader_is_file_supported 1", "mz_zip_reader_is_file_a_directory 1",
                  "mz_zip_reader_extract_to_file 1 out/d/file 0",
                  "mz_zip_reader_get_num_files",  //
                  "mz_zip_reader_get_filename 2 null 0", "mz_zip_reader_get_filename 2 buffer 7",
                  "mz_zip_reader_is_file_supported 2",
                  "mz_zip_reader_get_num_files",  //
                  "mz_zip_reader_get_filename 3 null 0", "mz_zip_reader_get_filename 3 buffer 5",
                  "mz_zip_reader_is_file_supported 3",
                  "mz_zip_reader_get_num_files",  //
                  "mz_zip_reader_get_filename 4 null 0", "mz_zip_reader_get_filename 4 buffer 6",
                  "mz_zip_reader_is_file_supported 4", "mz_zip_reader_is_file_a_directory 4",
                  "mz_zip_reader_extract_to_file 4 " + tmp.path("pack.ksx") + " 0",
                  "mz_zip_reader_get_num_files", "mz_zip_reader_end"));
}

TEST_F(ReadZip, TestsAnExistingDirectoryOnceForEachFile) {
  tmp.write("pack.zip", ZipMaker().file("d/a", "1").file("d/b", "2").file("d/c", "3").bytes());
  tmp.mkdir("out/d");
  Calls calls;

  fs::readZip("pack.zip", "out");

  EXPECT_EQ(calls.count("stat out/d"), 3U);
  EXPECT_EQ(calls.count("mkdir"), 0U);
}

TEST_F(ReadZip, GoesOnAfterANameOfAnotherSize) {
  for (const int size : {0, 1, 3}) {
    const LogCapture own;
    Calls calls;
    calls.answer("mz_zip_reader_get_filename 1 buffer", size);

    EXPECT_EQ(extract(ZipMaker().file("a", "1").file("b", "2").file("c", "3")),
              lines("out/a", "out/c"));

    EXPECT_EQ(own.all(), lines("error: Failed to extract filename 1 from archive."));
    EXPECT_EQ(calls.count("mz_zip_reader_is_file_supported 1"), 0U);
  }
}

TEST_F(ReadZip, HasAZeroedBufferForANameOfAnySize) {
  for (const int size : {0, 65'536}) {
    const LogCapture own;
    Calls calls;
    calls.answer("mz_zip_reader_get_filename 0", size);

    EXPECT_EQ(extract(ZipMaker().file("a", "1").file("b", "2")), lines("out/b"));

    EXPECT_EQ(calls.count("mz_zip_reader_get_filename 0 buffer " + std::to_string(size)), 1U);
    EXPECT_EQ(own.all(), lines("error: Failed to create archive subdir: out"));
  }
}

TEST_F(ReadZip, ReportsEachFailingCall) {
  forEachFailure([](FailureRun& run) {
    struct Row {
      bool applies;
      std::vector<std::string> extracted;
      std::vector<std::string> log;
    };
    run.tmp.write("pack.zip",
                  ZipMaker().directory("d/").file("d/a", "text").file("s.ksx", "scene").bytes());
    const std::string archive = run.tmp.path("pack.zip");
    const std::string scene = run.tmp.path("pack.ksx");

    const StringVector extracted = run.act([] { return fs::readZip("pack.zip", "out"); });

    // A directory that cannot be examined counts as missing, a file only when it is not found.
    const std::string reason = " [err: " + run.errorText() + "].";
    const bool isFound = run.error() != ENOENT;
    const Row rows[] = {
        {run.failed("stat pack.zip"), {}, {"error: Cannot expand non-existent archive: pack.zip"}},
        {run.failed("mkdir out 0777"),
         {},
         {"error: Failed to create dir: out" + reason,
          "error: Failed to create archive output dir: out"}},
        {run.failed("mz_zip_reader_init_file"),
         {},
         {"error: Failed to initialize archive: " + archive}},
        {run.failed("mz_zip_reader_get_num_files", 1), {}, {}},
        {run.failed("mz_zip_reader_get_num_files", 2), {}, {}},
        {run.failed("mz_zip_reader_get_num_files", 3), {"out/d/a"}, {}},
        // The directory, which the next entry creates too
        {run.failed("mz_zip_reader_get_filename 0"),
         {"out/d/a", scene},
         {"error: Failed to extract filename 0 from archive."}},
        {run.failed("mz_zip_reader_is_file_supported 0"),
         {"out/d/a", scene},
         {"warning: Unaupported file in archive: d/"}},
        {run.failed("mz_zip_reader_is_file_a_directory 0"),
         {"out/d/a", scene},
         {"error: Failed to extract file out/d/ from archive."}},
        {run.failed("stat out", 3),
         {"out/d/a", scene},
         {"error: Failed to create dir: out [err: " + errnoText(EEXIST) + "].",
          "error: Failed to create archive subdir: out/d/"}},
        {run.failed("mkdir out/d"),
         {"out/d/a", scene},
         {"error: Failed to create dir: out/d" + reason,
          "error: Failed to create archive subdir: out/d/"}},
        // The file
        {run.failed("mz_zip_reader_get_filename 1"),
         {scene},
         {"error: Failed to extract filename 1 from archive."}},
        {run.failed("mz_zip_reader_is_file_supported 1"),
         {scene},
         {"warning: Unaupported file in archive: d/a"}},
        {run.failed("stat out/d", 4), {scene}, {"error: Failed to create archive subdir: out/d/a"}},
        {(run.failed("stat out/d/a") && isFound) || run.failed("mz_zip_reader_extract_to_file 1"),
         {scene},
         {"error: Failed to extract file out/d/a from archive."}},
        // The scene
        {run.failed("mz_zip_reader_get_filename 2"),
         {"out/d/a"},
         {"error: Failed to extract filename 2 from archive."}},
        {run.failed("mz_zip_reader_is_file_supported 2"),
         {"out/d/a"},
         {"warning: Unaupported file in archive: s.ksx"}},
        {run.failed("stat " + run.tmp.path(), 2),
         {"out/d/a"},
         {"error: Failed to create archive subdir: " + scene}},
        {(run.failed("stat " + scene) && isFound) || run.failed("mz_zip_reader_extract_to_file 2"),
         {"out/d/a"},
         {"error: Failed to extract file " + scene + " from archive."}},
        {run.failed("mz_zip_reader_end"),
         {"out/d/a", scene},
         {"error: Failed to close archive: " + archive}},
        {true, {"out/d/a", scene}, {}},
    };
    const Row& expected =
        *std::find_if(std::begin(rows), std::end(rows), [](const Row& row) { return row.applies; });
    EXPECT_EQ(texts(extracted), expected.extracted);
    EXPECT_EQ(run.log.all(), expected.log);
    for (const std::string& path : texts(extracted)) {
      EXPECT_EQ(run.tmp.read(path == scene ? "pack.ksx" : path), path == scene ? "scene" : "text");
    }
    if (run.failed("stat pack.zip")) {
      EXPECT_TRUE(run.sentinel.isUntouched());
    } else if (run.failed("mkdir out 0777")) {
      EXPECT_TRUE(capturedErrorIs(run.error(), "mkDir"));
    } else {
      EXPECT_EQ(text(os::currentErrorContext()), "mkDir");
    }
  });
}

TEST_F(ReadZip, NeverReplacesTheArchiveWhateverFails) {
  forEachFailure([](FailureRun& run) {
    const std::string bytes = ZipMaker().file("pack.zip", "no archive").bytes();
    run.tmp.write("pack.zip", bytes);

    const StringVector extracted = run.act([] { return fs::readZip("./pack.zip", ""); });

    // A system that denies that the archive is there is believed.
    if (run.failed("stat " + run.tmp.path("pack.zip"), 2) && run.error() == ENOENT) {
      return;
    }
    EXPECT_EQ(texts(extracted), lines());
    EXPECT_EQ(run.tmp.read("pack.zip"), bytes);
  });
}

TEST_F(ReadZip, KeepsAFileThatMayBeTheArchive) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("pack.zip", ZipMaker().file("a.txt", "new").bytes());
    run.tmp.write("a.txt", "old");

    const StringVector extracted = run.act([] { return fs::readZip("pack.zip", ""); });

    const std::string file = run.tmp.path("a.txt");
    if (run.failed("stat " + run.tmp.path("pack.zip")) ||
        (run.failed("stat " + file) && run.error() != ENOENT)) {
      EXPECT_EQ(texts(extracted), lines());
      EXPECT_EQ(run.log.all(), lines("error: Failed to extract file " + file + " from archive."));
      EXPECT_EQ(run.tmp.read("a.txt"), "old");
    }
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

TEST_F(ReadZip, LeaksNothingWhenAllCallsFail) {
  forEachLastingFailure([](FailureRun& run) {
    run.tmp.write("pack.zip",
                  ZipMaker().directory("d/").file("d/a", "text").file("s.ksx", "scene").bytes());

    run.act([] { return fs::readZip("pack.zip", "out"); });
  });
}

}  // namespace
}  // namespace vx::test
