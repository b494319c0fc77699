// SPDX-License-Identifier: MIT
//
// Disks that are full, that fill up during a call, that are read-only, or that hold a file from
// beyond all dates.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/isolation.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <functional>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace vx::test {
namespace {

class Disk : public FsTest {
 protected:
  void SetUp() override {
    if (!canMount()) {
      GTEST_SKIP() << kCannotMount;
    }
  }

  /// Runs `body` in a child where a disk of 64 KiB is mounted on the directory "disk".
  void runWithDisk(const std::function<void()>& body) const {
    tmp.mkdir("disk");
    runWithOwnMounts([&] {
      mountMemory(tmp.path("disk"), "size=64k");
      body();
    });
  }
};

TEST_F(Disk, FillsUpWhileWriteZipAddsAFile) {
  runWithDisk([&] {
    tmp.write("small.ksa", "small");
    tmp.write("big.png", noise(200'000));
    tmp.write("disk/pack.zip", "old");

    EXPECT_FALSE(fs::writeZip("disk/pack.zip", {"small.ksa", "big.png"}, {}));

    EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + tmp.path("big.png")));
    EXPECT_TRUE(sentinel.isUntouched());
    EXPECT_EQ(tmp.entries(), lines("big.png", "disk/", "small.ksa"));
  });
}

TEST_F(Disk, IsFullWhenWriteZipFinalizesTheArchive) {
  runWithDisk([&] {
    tmp.write("small.ksa", "small");
    std::ofstream filler("disk/filler", std::ios::binary);
    while (filler.write(noise(4096).data(), 4096)) {
      filler.flush();
    }

    EXPECT_FALSE(fs::writeZip("disk/pack.zip", {"small.ksa"}, {}));

    EXPECT_EQ(log.all(), lines("error: Failed to finalize archive: disk/pack.zip"));
    EXPECT_TRUE(sentinel.isUntouched());
    EXPECT_EQ(tmp.entries(), lines("disk/", "disk/filler", "small.ksa"));
  });
}

TEST_F(Disk, FillsUpWhileReadZipExtractsAFile) {
  runWithDisk([&] {
    const std::string big = noise(200'000);
    tmp.write("pack.zip",
              ZipMaker().file("a.ksa", "first").file("b.ksa", big).file("c.ksa", "last").bytes());

    const StringVector extracted = fs::readZip("pack.zip", "disk", {});

    // The part of the file that fits remains, so there is no room for the next file.
    EXPECT_EQ(texts(extracted), lines("disk/a.ksa"));
    EXPECT_EQ(log.all(), lines("error: Failed to extract file disk/b.ksa from archive.",
                               "error: Failed to extract file disk/c.ksa from archive."));
    EXPECT_EQ(tmp.read("disk/a.ksa"), "first");
    EXPECT_TRUE(big.starts_with(tmp.read("disk/b.ksa")));
    EXPECT_EQ(tmp.read("disk/c.ksa"), "");
  });
}

TEST_F(Disk, FillsUpWhileCopyFileCopies) {
  runWithDisk([&] {
    const std::string content = noise(200'000);
    tmp.write("src", content);

    EXPECT_TRUE(fs::copyFile("src", "disk/dst"));

    const std::string copy = tmp.read("disk/dst");
    EXPECT_GT(copy.size(), 0U);
    EXPECT_LT(copy.size(), content.size());
    EXPECT_TRUE(content.starts_with(copy));
    expectSilence();
  });
}

TEST_F(Disk, HasNoRoomForAnotherDirectory) {
  runWithDisk([&] {
    mountMemory(tmp.mkdir("few"), "size=64k,nr_inodes=2");
    ASSERT_TRUE(fs::mkDir("few/a"));

    EXPECT_FALSE(fs::mkDir("few/b/c"));

    EXPECT_EQ(log.all(),
              lines("error: Failed to create dir: few/b [err: " + errnoText(ENOSPC) + "]."));
    EXPECT_TRUE(capturedErrorIs(ENOSPC, "mkDir"));
  });
}

TEST_F(Disk, KeepsWhatItHoldsWhenReadOnly) {
  runWithDisk([&] {
    tmp.write("src", "new");
    tmp.write("disk/f.txt", "old");
    tmp.mkdir("disk/d");
    const std::string archive = ZipMaker().file("res/x", "text").bytes();
    tmp.write("disk/pack.zip", archive);
    makeReadOnly(tmp.path("disk"));
    const std::string readOnly = " [err: " + errnoText(EROFS) + "].";

    EXPECT_FALSE(fs::mkDir("disk/d/x"));
    EXPECT_FALSE(fs::rmDir("disk/d"));
    EXPECT_FALSE(fs::rmFile("disk/f.txt"));
    EXPECT_FALSE(fs::copyFile("src", "disk/f.txt"));
    EXPECT_FALSE(fs::copyFile("src", "disk/new"));
    EXPECT_FALSE(fs::moveFile("disk/f.txt", "disk/d/f.txt"));
    EXPECT_FALSE(fs::writeZip("disk/pack.zip", {"src"}, {}));
    EXPECT_EQ(texts(fs::readZip("disk/pack.zip", "disk/d", {})), lines());

    EXPECT_EQ(log.all(),
              lines("error: Failed to create dir: disk/d/x" + readOnly,
                    "error: Failed to remove dir: " + tmp.path("disk/d") + readOnly,
                    "error: File copy failed, could not delete destination file: disk/f.txt",
                    "error: Failed to initialize archive: disk/pack.zip",
                    "error: Failed to create dir: disk/d/res" + readOnly,
                    "error: Failed to create archive subdir: disk/d/res/x"));
    EXPECT_EQ(tmp.entries(), lines("disk/", "disk/d/", "disk/f.txt", "disk/pack.zip", "src"));
    EXPECT_EQ(tmp.read("disk/f.txt"), "old");
    EXPECT_EQ(tmp.read("disk/pack.zip"), archive);
  });
}

// Some file systems keep times that no calendar reaches. The pinned archive library gives such a
// file its first date.
TEST_F(Disk, HoldsAFileBeyondAllDatesThatWriteZipTakes) {
#ifndef VX_PINNED_MINIZ
  GTEST_SKIP() << "only the pinned copy of miniz takes a time without a date";
#endif
  if (sizeof(time_t) < sizeof(std::int64_t)) {
    GTEST_SKIP() << "no time of 32 bits is beyond all dates";
  }
  runWithDisk([&] {
    const std::string source = tmp.write("disk/f", "text");
    constexpr auto kBeyondAllDates = static_cast<time_t>(100'000'000'000'000'000);
    const std::array<timespec, 2> times = {timespec{kBeyondAllDates, 0},
                                           timespec{kBeyondAllDates, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, source.c_str(), times.data(), 0), 0);
    struct stat status {};
    ASSERT_EQ(::stat(source.c_str(), &status), 0);
    ASSERT_EQ(status.st_mtime, kBeyondAllDates);

    EXPECT_TRUE(fs::writeZip("pack.zip", {"disk/f"}, {}));

    EXPECT_EQ(texts(fs::readZip("pack.zip", "out", {})), lines("out/res/f"));
    EXPECT_EQ(log.all(), lines());
  });
}

}  // namespace
}  // namespace vx::test
