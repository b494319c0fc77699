// What a user may do who has not the right to.

#include "fs/vx_fs.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <string>

#include <sys/stat.h>

namespace vx::test {
namespace {

const std::string kDenied = errnoText(EACCES);

void setMode(const std::string& path, mode_t mode) {
  ASSERT_EQ(::chmod(path.c_str(), mode), 0);
}

/// The directory "locked", which may be read and searched but not changed. The directory "open" may
/// be changed by everybody.
class LockedDirectory : public testing::Test {
 protected:
  void SetUp() override {
    setMode(tmp_.mkdir("open"), 0777);
    tmp_.mkdir("locked/d");
    tmp_.write("locked/f.txt", "locked");
    setMode(tmp_.write("open/src", "new"), 0666);
    setMode(tmp_.path("locked"), 0555);
  }

  const TempDir tmp_;
};

TEST_F(LockedDirectory, TakesNoDirectory) {
  runAsUnprivileged([&] {
    const LogCapture log;
    EXPECT_FALSE(fs::mkDir(String(tmp_.path("locked/x/y"))));
    EXPECT_EQ(log.all(), lines("error: Failed to create dir: " + tmp_.path("locked/x") +
                               " [err: " + kDenied + "]."));
    EXPECT_TRUE(capturedErrorIs(EACCES, "mkDir"));
  });
}

TEST_F(LockedDirectory, KeepsItsDirectories) {
  runAsUnprivileged([&] {
    const LogCapture log;
    EXPECT_FALSE(fs::rmDir(String(tmp_.path("locked/d"))));
    EXPECT_EQ(log.all(), lines("error: Failed to remove dir: " + tmp_.path("locked/d") +
                               " [err: " + kDenied + "]."));
    EXPECT_TRUE(capturedErrorIs(EACCES, "rmDir"));
  });
}

TEST_F(LockedDirectory, KeepsItsFiles) {
  runAsUnprivileged([&] {
    const LogCapture log;
    const ErrorStateSentinel sentinel;
    const String file = String(tmp_.path("locked/f.txt"));

    EXPECT_FALSE(fs::rmFile(file));
    EXPECT_FALSE(fs::Fremove(file));
    EXPECT_EQ(fs::Frename(file, String(tmp_.path("open/f.txt"))), -1);
    EXPECT_FALSE(fs::moveFile(file, String(tmp_.path("open/f.txt"))));
    EXPECT_FALSE(fs::moveFile(String(tmp_.path("open/src")), file));
    EXPECT_EQ(log.all(), lines());

    EXPECT_FALSE(fs::copyFile(String(tmp_.path("open/src")), file));
    EXPECT_EQ(log.all(), lines("error: File copy failed, could not delete destination file: " +
                               tmp_.path("locked/f.txt")));
    EXPECT_TRUE(sentinel.isUntouched());
  });

  EXPECT_EQ(tmp_.read("locked/f.txt"), "locked");
  EXPECT_EQ(tmp_.read("open/src"), "new");
}

TEST_F(LockedDirectory, TakesNoCopy) {
  runAsUnprivileged([&] {
    const LogCapture log;
    EXPECT_FALSE(fs::copyFile(String(tmp_.path("open/src")), String(tmp_.path("locked/new"))));
    EXPECT_EQ(log.all(), lines());
  });

  EXPECT_FALSE(tmp_.exists("locked/new"));
}

TEST_F(LockedDirectory, TakesNoArchiveAndKeepsTheOldOne) {
  setMode(tmp_.path("locked"), 0755);
  const std::string archive = tmp_.write("locked/pack.zip", "old");
  setMode(archive, 0444);
  setMode(tmp_.path("locked"), 0555);

  runAsUnprivileged([&] {
    const LogCapture log;
    EXPECT_FALSE(fs::writeZip(String(archive), {String(tmp_.path("open/src"))}, {}));
    EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive));
  });

  EXPECT_EQ(tmp_.read("locked/pack.zip"), "old");
}

TEST_F(LockedDirectory, TakesNothingOutOfAnArchive) {
  const std::string archive = tmp_.path("open/pack.zip");
  ASSERT_TRUE(fs::writeZip(String(archive), {String(tmp_.path("open/src"))}, {}));

  runAsUnprivileged([&] {
    const LogCapture log;

    EXPECT_TRUE(fs::readZip(String(archive), String(tmp_.path("locked/out")), {}).empty());
    EXPECT_TRUE(fs::readZip(String(archive), String(tmp_.path("locked")), {}).empty());

    EXPECT_EQ(
        log.all(),
        lines(
            "error: Failed to create dir: " + tmp_.path("locked/out") + " [err: " + kDenied + "].",
            "error: Failed to create archive output dir: " + tmp_.path("locked/out"),
            "error: Failed to create dir: " + tmp_.path("locked/res") + " [err: " + kDenied + "].",
            "error: Failed to create archive subdir: " + tmp_.path("locked/res/src")));
  });
}

TEST_F(LockedDirectory, AsHomeHoldsNoUserDir) {
  const ScopedEnv home("HOME", tmp_.path("locked"));
  const ScopedEnv userDir("KAVRA_USER_DIR", nullptr);
  const std::string wanted = tmp_.path("locked/kavra");

  runAsUnprivileged([&] {
    const LogCapture log;
    String out;

    EXPECT_FALSE(fs::getKavraUserDir(out, /*create=*/true));

    EXPECT_EQ(out, String(wanted));
    EXPECT_EQ(log.all(),
              lines("error: Failed to create dir: " + wanted + " [err: " + kDenied + "].",
                    "warning: Failed to create kavra user dir: " + wanted + " (" + kDenied + ")."));
  });
}

/// The directory "hidden", whose entries nobody else may look at, and the file "open/secret", which
/// nobody else may read.
class HiddenThings : public testing::Test {
 protected:
  void SetUp() override {
    tmp_.write("hidden/d/f.txt", "hidden");
    setMode(tmp_.mkdir("open"), 0777);
    setMode(tmp_.write("open/secret", "secret"), 0000);
    setMode(tmp_.path("hidden"), 0000);
  }

  void TearDown() override { setMode(tmp_.path("hidden"), 0755); }

  const TempDir tmp_;
};

TEST_F(HiddenThings, DoNotExist) {
  runAsUnprivileged([&] {
    const LogCapture log;
    const ErrorStateSentinel sentinel;
    EXPECT_FALSE(fs::exists(String(tmp_.path("hidden/d"))));
    EXPECT_FALSE(fs::isDir(String(tmp_.path("hidden/d"))));
    EXPECT_FALSE(fs::isFile(String(tmp_.path("hidden/d/f.txt"))));
    EXPECT_TRUE(fs::listDirs(String(tmp_.path("hidden"))).empty());
    EXPECT_TRUE(fs::listFiles(String(tmp_.path("hidden")), {""}).empty());
    EXPECT_TRUE(fs::rmDir(String(tmp_.path("hidden/d"))));
    EXPECT_TRUE(fs::rmFile(String(tmp_.path("hidden/d/f.txt"))));
    EXPECT_TRUE(fs::resolvePath("f.txt", {String(tmp_.path("hidden/d"))}, {"txt"}).isEmpty());
    EXPECT_EQ(log.all(), lines());
    EXPECT_TRUE(sentinel.isUntouched());
  });
}

TEST_F(HiddenThings, AreInTheWayOfADirectory) {
  runAsUnprivileged([&] {
    const LogCapture log;
    EXPECT_FALSE(fs::mkDir(String(tmp_.path("hidden/d"))));
    EXPECT_EQ(log.all(), lines("error: Failed to create dir: " + tmp_.path("hidden/d") +
                               " [err: " + kDenied + "]."));
  });
}

TEST_F(HiddenThings, AreCopiedAsAnEmptyFile) {
  runAsUnprivileged([&] {
    const LogCapture log;
    EXPECT_TRUE(fs::copyFile(String(tmp_.path("open/secret")), String(tmp_.path("open/copy"))));
    EXPECT_EQ(log.all(), lines());
  });

  EXPECT_EQ(tmp_.read("open/copy"), "");
}

TEST_F(HiddenThings, AreNotPacked) {
  runAsUnprivileged([&] {
    const LogCapture log;
    EXPECT_FALSE(
        fs::writeZip(String(tmp_.path("open/pack.zip")), {String(tmp_.path("open/secret"))}, {}));
    EXPECT_EQ(log.all(),
              lines("error: Failed to add file to archive: " + tmp_.path("open/secret")));
  });

  EXPECT_FALSE(tmp_.exists("open/pack.zip"));
}

TEST_F(HiddenThings, AreNotUnpacked) {
  runAsUnprivileged([&] {
    const LogCapture log;
    EXPECT_TRUE(
        fs::readZip(String(tmp_.path("open/secret")), String(tmp_.path("open")), {}).empty());
    EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + tmp_.path("open/secret")));
  });
}

}  // namespace
}  // namespace vx::test
