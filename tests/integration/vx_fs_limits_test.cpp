// SPDX-License-Identifier: MIT
//
// Processes that may write no longer files or open no further ones.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>

namespace vx::test {
namespace {

// ---------------------------------------------------------------------------------------------
// The size of files

class FileSizeLimit : public FsTest {
 protected:
  /// Runs `body` in a child that may write files of 10,000 bytes.
  static void runLimited(const std::function<void()>& body) {
    runInChild([&] {
      // The signal would end the process before the call can fail.
      ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
      const rlimit limit = {10'000, 10'000};
      ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
      body();
    });
  }
};

TEST_F(FileSizeLimit, CutsTheCopyOfFiveGibibytesShort) {
  std::filesystem::resize_file(tmp.write("src", "begin"), 5LL << 30);

  runLimited([&] {
    EXPECT_TRUE(fs::copyFile("src", "dst"));
    expectSilence();
  });

  EXPECT_EQ(tmp.read("dst"), "begin" + std::string(9'995, '\0'));
}

TEST_F(FileSizeLimit, SkipsLongEntriesOfAnArchive) {
  const std::string content = noise(100'000);
  tmp.write("pack.zip", ZipMaker().file("long.ksa", content).file("short.ksa", "short").bytes());

  runLimited([&] {
    EXPECT_EQ(texts(fs::readZip("pack.zip", "out", {})), lines("out/short.ksa"));
    EXPECT_EQ(log.all(), lines("error: Failed to extract file out/long.ksa from archive."));
  });

  EXPECT_EQ(tmp.read("out/short.ksa"), "short");
  EXPECT_TRUE(content.starts_with(tmp.read("out/long.ksa")));
}

// ---------------------------------------------------------------------------------------------
// The number of open files

class DescriptorLimit : public FsTest {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the checks of undefined behaviour need a descriptor of their own";
#endif
    tmp.write("src", "new");
  }

  /// Runs `body` in a child that can open that many more files.
  static void runLimited(int spare, const std::function<void()>& body) {
    runInChild([&] {
      // The lowest free ones first, until there are no gaps.
      std::vector<int> taken;
      for (int i = 0; i < 64; ++i) {
        taken.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
        ASSERT_NE(taken.back(), -1);
      }
      const auto limit = static_cast<rlim_t>(taken.back() + 1 + spare);
      const rlimit limits = {limit, limit};
      ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limits), 0);
      body();
    });
  }
};

TEST_F(DescriptorLimit, OfNoneOpensNoFile) {
  tmp.mkdir("d/sub");
  tmp.write("d/f.txt", "text");
  tmp.write("dst", "old");
  tmp.write("in.zip", ZipMaker().file("a", "text").bytes());
  tmp.write("pack.zip", "old");

  runLimited(0, [&] {
    EXPECT_FALSE(fs::copyFile("src", "dst"));
    EXPECT_EQ(texts(fs::listDirs("d")), lines());
    EXPECT_EQ(texts(fs::listFiles("d", {"txt"})), lines());
    expectSilence();
    EXPECT_EQ(texts(fs::readZip("in.zip", "out", {})), lines());
    EXPECT_FALSE(fs::writeZip("pack.zip", {"src"}, {}));
    EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + tmp.path("in.zip"),
                               "error: Failed to initialize archive: pack.zip"));
  });

  EXPECT_EQ(tmp.entries(), lines("d/", "d/f.txt", "d/sub/", "in.zip", "out/", "src"));
}

TEST_F(DescriptorLimit, OfOneOpensNoSecondFile) {
  tmp.write("in.zip", ZipMaker().file("a", "text").file("b", "text").bytes());

  runLimited(1, [&] {
    EXPECT_FALSE(fs::copyFile("src", "dst"));
    expectSilence();
    EXPECT_EQ(texts(fs::readZip("in.zip", "out", {})), lines());
    EXPECT_FALSE(fs::writeZip("pack.zip", {"src"}, {}));
    EXPECT_EQ(log.all(), lines("error: Failed to extract file out/a from archive.",
                               "error: Failed to extract file out/b from archive.",
                               "error: Failed to add file to archive: " + tmp.path("src")));
  });

  EXPECT_EQ(tmp.entries(), lines("in.zip", "out/", "src"));
}

TEST_F(DescriptorLimit, OfNoneDoesNotMatterToTheOthers) {
  runLimited(0, [&] {
    EXPECT_TRUE(fs::mkDir("a/b"));
    EXPECT_TRUE(fs::rmDir("a/b"));
    EXPECT_TRUE(fs::moveFile("src", "dst.txt"));
    EXPECT_TRUE(fs::isFile("dst.txt"));
    EXPECT_EQ(text(fs::resolvePath("dst.txt", {"."}, {})), tmp.path("dst.txt"));
    EXPECT_TRUE(fs::isFile(fs::exePath()));
    EXPECT_EQ(text(fs::currentDir()), tmp.path());
    EXPECT_EQ(log.all(), lines());
  });

  EXPECT_EQ(tmp.entries(), lines("a/", "dst.txt"));
}

}  // namespace
}  // namespace vx::test
