// SPDX-License-Identifier: MIT
//
// What a user without the right to it can do.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

namespace vx::test {
namespace {

using std::filesystem::perms;

const std::string kDenied = " [err: " + errnoText(EACCES) + "].";

/// Everybody may change the directory "open". "locked" can be read and searched, not changed.
/// Nobody may read the file "open/secret" or look into "hidden".
class Permissions : public FsTest {
 protected:
  void SetUp() override {
    tmp.write("locked/f.txt", "locked");
    tmp.mkdir("locked/d");
    tmp.write("locked/pack.zip", "old");
    tmp.write("hidden/d/f.txt", "hidden");
    tmp.write("open/src", "new");
    tmp.write("open/secret", "secret");
    tmp.write("open/pack.zip", ZipMaker().file("res/x", "text").bytes());
    std::filesystem::permissions("open", perms::all);
    std::filesystem::permissions("open/src", perms(0666));
    std::filesystem::permissions("open/secret", perms::none);
    std::filesystem::permissions("locked/pack.zip", perms(0444));
    std::filesystem::permissions("locked", perms(0555));
    std::filesystem::permissions("hidden", perms::none);
  }

  void TearDown() override { std::filesystem::permissions("hidden", perms(0755)); }
};

TEST_F(Permissions, KeepTheEntriesOfALockedDirectory) {
  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::mkDir("locked/x/y"));
    EXPECT_TRUE(capturedErrorIs(EACCES, "mkDir"));
    EXPECT_FALSE(fs::rmDir("locked/d"));
    EXPECT_TRUE(capturedErrorIs(EACCES, "rmDir"));
    EXPECT_FALSE(fs::rmFile("locked/f.txt"));
    EXPECT_FALSE(fs::Fremove("locked/f.txt"));
    EXPECT_EQ(fs::Frename("locked/f.txt", "open/f.txt"), -1);
    EXPECT_FALSE(fs::moveFile("locked/f.txt", "open/f.txt"));
    EXPECT_FALSE(fs::moveFile("open/src", "locked/f.txt"));
    EXPECT_FALSE(fs::copyFile("open/src", "locked/f.txt"));
    EXPECT_FALSE(fs::copyFile("open/src", "locked/new"));
    EXPECT_FALSE(fs::writeZip("locked/pack.zip", {"open/src"}, {}));

    EXPECT_EQ(log.all(),
              lines("error: Failed to create dir: locked/x" + kDenied,
                    "error: Failed to remove dir: " + tmp.path("locked/d") + kDenied,
                    "error: File copy failed, could not delete destination file: locked/f.txt",
                    "error: Failed to initialize archive: locked/pack.zip"));
  });

  EXPECT_EQ(tmp.read("locked/f.txt"), "locked");
  EXPECT_EQ(tmp.read("locked/pack.zip"), "old");
  EXPECT_EQ(tmp.read("open/src"), "new");
  EXPECT_TRUE(tmp.exists("locked/d"));
  EXPECT_FALSE(tmp.exists("locked/new"));
}

TEST_F(Permissions, KeepAnArchiveOutOfALockedDirectory) {
  runAsUnprivileged([&] {
    EXPECT_EQ(texts(fs::readZip("open/pack.zip", "locked/out", {})), lines());
    EXPECT_EQ(texts(fs::readZip("open/pack.zip", "locked", {})), lines());

    EXPECT_EQ(log.all(), lines("error: Failed to create dir: locked/out" + kDenied,
                               "error: Failed to create archive output dir: locked/out",
                               "error: Failed to create dir: locked/res" + kDenied,
                               "error: Failed to create archive subdir: locked/res/x"));
  });
}

TEST_F(Permissions, HideTheEntriesOfADirectory) {
  runAsUnprivileged([&] {
    EXPECT_FALSE(fs::exists("hidden/d"));
    EXPECT_FALSE(fs::isDir("hidden/d"));
    EXPECT_FALSE(fs::isFile("hidden/d/f.txt"));
    EXPECT_EQ(texts(fs::listDirs("hidden")), lines());
    EXPECT_EQ(texts(fs::listFiles("hidden", {""})), lines());
    EXPECT_TRUE(fs::rmDir("hidden/d"));
    EXPECT_TRUE(fs::rmFile("hidden/d/f.txt"));
    EXPECT_EQ(fs::resolvePath("f.txt", {"hidden/d"}, {"txt"}), "");
    expectSilence();

    EXPECT_FALSE(fs::mkDir("hidden/d"));
    EXPECT_EQ(log.all(), lines("error: Failed to create dir: hidden/d" + kDenied));
  });
}

TEST_F(Permissions, HideTheContentOfAFile) {
  runAsUnprivileged([&] {
    EXPECT_TRUE(fs::copyFile("open/secret", "open/copy"));
    EXPECT_FALSE(fs::writeZip("open/new.zip", {"open/secret"}, {}));
    EXPECT_EQ(texts(fs::readZip("open/secret", "open", {})), lines());

    EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + tmp.path("open/secret"),
                               "error: Failed to initialize archive: " + tmp.path("open/secret")));
  });

  EXPECT_EQ(tmp.read("open/copy"), "");
  EXPECT_FALSE(tmp.exists("open/new.zip"));
}

}  // namespace
}  // namespace vx::test
