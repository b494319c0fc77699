// Disks that are full, that become full in the middle, that cannot be written or that hold what
// others cannot.

#include "fs/vx_fs.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/own_mounts.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gmock/gmock.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <random>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace vx::test {
namespace {

/// Bytes that no compression makes smaller.
std::string noise(std::size_t length) {
  std::mt19937 generator(42);
  std::string bytes(length, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(generator());
  }
  return bytes;
}

/// A disk of 64 KiB, mounted on the directory "disk".
class SmallDisk : public testing::Test {
 protected:
  void SetUp() override {
    if (!canMount()) {
      GTEST_SKIP() << kCannotMount;
    }
  }

  void runOnSmallDisk(const std::function<void()>& body) const {
    tmp_.mkdir("disk");
    runWithOwnMounts([&] {
      mountMemory(tmp_.path("disk"), "size=64k");
      body();
    });
  }

  /// Takes all room that is left.
  void fill() const {
    std::ofstream stream(tmp_.path("disk/filler"), std::ios::binary);
    for (const std::string block(4096, 'f'); stream.write(block.data(), 4096);) {
      stream.flush();
    }
  }

  const TempDir tmp_;
};

TEST_F(SmallDisk, FillsWhileWriteZipAddsAFile) {
  runOnSmallDisk([&] {
    const std::string small = tmp_.write("small.ksa", "small");
    const std::string big = tmp_.write("big.png", noise(200'000));
    tmp_.write("disk/pack.zip", "old");
    const LogCapture log;
    const ErrorStateSentinel sentinel;

    EXPECT_FALSE(
        fs::writeZip(String(tmp_.path("disk/pack.zip")), {String(small), String(big)}, {}));

    EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + big));
    EXPECT_TRUE(sentinel.isUntouched());
    EXPECT_FALSE(tmp_.exists("disk/pack.zip"));
  });
}

TEST_F(SmallDisk, IsFullWhenWriteZipWritesTheDirectoryOfTheArchive) {
  runOnSmallDisk([&] {
    const std::string small = tmp_.write("small.ksa", "small");
    const std::string archive = tmp_.path("disk/pack.zip");
    fill();
    const LogCapture log;

    EXPECT_FALSE(fs::writeZip(String(archive), {String(small)}, {}));

    EXPECT_EQ(log.all(), lines("error: Failed to finalize archive: " + archive));
    EXPECT_FALSE(tmp_.exists("disk/pack.zip"));
  });
}

TEST_F(SmallDisk, FillsWhileReadZipExtractsAFile) {
  runOnSmallDisk([&] {
    const std::string archive = tmp_.path("pack.zip");
    ASSERT_TRUE(fs::writeZip(
        String(archive),
        {String(tmp_.write("a.ksa", "first")), String(tmp_.write("big.ksa", noise(200'000))),
         String(tmp_.write("c.ksa", "last"))},
        {}));
    const LogCapture log;

    const StringVector extracted = fs::readZip(String(archive), String(tmp_.path("disk")), {});

    // What was extracted stays, and so does what is there of the file that did not fit; it takes
    // the room of the one behind it.
    EXPECT_EQ(std::string(extracted.join(", ").view()), tmp_.path("disk/a.ksa"));
    EXPECT_EQ(log.all(),
              lines("error: Failed to extract file " + tmp_.path("disk/big.ksa") + " from archive.",
                    "error: Failed to extract file " + tmp_.path("disk/c.ksa") + " from archive."));
    EXPECT_EQ(tmp_.read("disk/a.ksa"), "first");
    EXPECT_TRUE(noise(200'000).starts_with(tmp_.read("disk/big.ksa")));
    EXPECT_EQ(tmp_.read("disk/c.ksa"), "");
  });
}

TEST_F(SmallDisk, FillsWhileCopyFileCopies) {
  runOnSmallDisk([&] {
    const std::string source = tmp_.write("src", noise(200'000));
    const LogCapture log;
    const ErrorStateSentinel sentinel;

    EXPECT_TRUE(fs::copyFile(String(source), String(tmp_.path("disk/dst"))));

    const std::string copy = tmp_.read("disk/dst");
    EXPECT_LT(copy.size(), 200'000U);
    EXPECT_GT(copy.size(), 0U);
    EXPECT_TRUE(noise(200'000).starts_with(copy));
    EXPECT_EQ(log.all(), lines());
    EXPECT_TRUE(sentinel.isUntouched());
  });
}

TEST_F(SmallDisk, WithoutRoomForOneMoreEntryTakesNoDirectory) {
  runOnSmallDisk([&] {
    // The room for entries is limited as well.
    mountMemory(tmp_.mkdir("few"), "size=64k,nr_inodes=2");
    ASSERT_TRUE(fs::mkDir(String(tmp_.path("few/a"))));
    const LogCapture log;

    EXPECT_FALSE(fs::mkDir(String(tmp_.path("few/b/c"))));

    EXPECT_EQ(log.all(), lines("error: Failed to create dir: " + tmp_.path("few/b") +
                               " [err: " + errnoText(ENOSPC) + "]."));
    EXPECT_TRUE(capturedErrorIs(ENOSPC, "mkDir"));
  });
}

TEST_F(SmallDisk, ThatIsReadOnlyKeepsWhatItHolds) {
  runOnSmallDisk([&] {
    const std::string source = tmp_.write("src", "new");
    const std::string file = tmp_.write("disk/f.txt", "old");
    const std::string directory = tmp_.mkdir("disk/d");
    const std::string archive = tmp_.path("disk/pack.zip");
    ASSERT_TRUE(fs::writeZip(String(archive), {String(source)}, {}));
    const std::string bytes = tmp_.read("disk/pack.zip");
    makeReadOnly(tmp_.path("disk"));
    const std::string readOnly = errnoText(EROFS);
    const LogCapture log;

    EXPECT_FALSE(fs::mkDir(String(directory + "/x")));
    EXPECT_FALSE(fs::rmDir(String(directory)));
    EXPECT_FALSE(fs::rmFile(String(file)));
    EXPECT_FALSE(fs::copyFile(String(source), String(file)));
    EXPECT_FALSE(fs::copyFile(String(source), String(directory + "/new")));
    EXPECT_FALSE(fs::moveFile(String(file), String(directory + "/f.txt")));
    EXPECT_FALSE(fs::writeZip(String(archive), {String(source)}, {}));
    EXPECT_TRUE(fs::readZip(String(archive), String(directory), {}).empty());

    EXPECT_EQ(log.all(),
              lines("error: Failed to create dir: " + directory + "/x [err: " + readOnly + "].",
                    "error: Failed to remove dir: " + directory + " [err: " + readOnly + "].",
                    "error: File copy failed, could not delete destination file: " + file,
                    "error: Failed to initialize archive: " + archive,
                    "error: Failed to create dir: " + directory + "/res [err: " + readOnly + "].",
                    "error: Failed to create archive subdir: " + directory + "/res/src"));
    EXPECT_EQ(tmp_.read("disk/f.txt"), "old");
    EXPECT_EQ(tmp_.read("disk/pack.zip"), bytes);
    EXPECT_EQ(texts(fs::listDirs(String(tmp_.path("disk")))), lines(directory));
  });
}

// Some file systems keep times that no calendar reaches. The pinned archive library gives such a
// file its first date.
TEST_F(SmallDisk, WithAFileBeyondAllDatesIsPackedAllTheSame) {
  if (sizeof(time_t) < sizeof(std::int64_t)) {
    GTEST_SKIP() << "where times have 32 bits none is beyond all dates";
  }
  runOnSmallDisk([&] {
    const std::string source = tmp_.write("disk/f", "text");
    const std::string archive = tmp_.path("pack.zip");
    constexpr auto kBeyondAllDates = static_cast<time_t>(100'000'000'000'000'000);
    const std::array<timespec, 2> times = {timespec{kBeyondAllDates, 0},
                                           timespec{kBeyondAllDates, 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, source.c_str(), times.data(), 0), 0);
    struct stat status {};
    ASSERT_EQ(::stat(source.c_str(), &status), 0);
    ASSERT_EQ(status.st_mtime, kBeyondAllDates);
    const LogCapture log;

    EXPECT_TRUE(fs::writeZip(String(archive), {String(source)}, {}));

    EXPECT_EQ(log.all(), lines());
    EXPECT_EQ(texts(fs::readZip(String(archive), String(tmp_.path("out")), {})),
              lines(tmp_.path("out/res/f")));
  });
}

}  // namespace
}  // namespace vx::test
