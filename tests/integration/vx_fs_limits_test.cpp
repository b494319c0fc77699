// What the functions do when the process may write no longer files or open no further ones.

#include "fs/vx_fs.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gmock/gmock.h>

#include <csignal>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>

namespace vx::test {
namespace {

/// A text of which no two stretches are alike, so that compression leaves much of it.
std::string numbers(int count) {
  std::string all;
  for (int i = 0; i < count; ++i) {
    all += std::to_string(i * 7919) + '\n';
  }
  return all;
}

// ---- The size of files -------------------------------------------------------------------------

void limitFileSize(rlim_t bytes) {
  // The signal would end the process before the call can fail.
  ASSERT_NE(std::signal(SIGXFSZ, SIG_IGN), SIG_ERR);
  const rlimit limit = {bytes, bytes};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
}

TEST(FileSizeLimit, CutsACopyShort) {
  const TempDir tmp;
  const std::string content = numbers(20'000);
  const std::string source = tmp.write("src", content);

  runInChild([&] {
    limitFileSize(10'000);
    const LogCapture log;
    const ErrorStateSentinel sentinel;

    EXPECT_TRUE(fs::copyFile(String(source), String(tmp.path("dst"))));

    EXPECT_EQ(log.all(), lines());
    EXPECT_TRUE(sentinel.isUntouched());
  });

  EXPECT_EQ(tmp.read("dst"), content.substr(0, 10'000));
}

TEST(FileSizeLimit, CutsTheCopyOfAFileBeyondFourGibibytesShort) {
  const TempDir tmp;
  const std::string source = tmp.write("src", "begin");
  std::filesystem::resize_file(source, 5LL << 30);

  runInChild([&] {
    limitFileSize(10'000);

    EXPECT_TRUE(fs::copyFile(String(source), String(tmp.path("dst"))));
  });

  EXPECT_EQ(tmp.read("dst"), "begin" + std::string(9'995, '\0'));
}

TEST(FileSizeLimit, EndsTheWritingOfAnArchive) {
  const TempDir tmp;
  const std::string source = tmp.write("src.ksa", numbers(20'000));
  tmp.write("pack.zip", "old");

  runInChild([&] {
    limitFileSize(10'000);
    const LogCapture log;

    EXPECT_FALSE(fs::writeZip(String(tmp.path("pack.zip")), {String(source)}, {}));

    EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + source));
  });

  EXPECT_EQ(tmp.entries(), lines("src.ksa"));
}

TEST(FileSizeLimit, SkipsTheEntriesThatAreTooLong) {
  const TempDir tmp;
  const std::string content = numbers(20'000);
  const std::string archive = tmp.path("pack.zip");
  ASSERT_TRUE(fs::writeZip(
      String(archive),
      {String(tmp.write("long.ksa", content)), String(tmp.write("short.ksa", "short"))}, {}));

  runInChild([&] {
    limitFileSize(10'000);
    const LogCapture log;

    const StringVector extracted = fs::readZip(String(archive), String(tmp.path("out")), {});

    EXPECT_EQ(texts(extracted), lines(tmp.path("out/short.ksa")));
    EXPECT_EQ(log.all(), lines("error: Failed to extract file " + tmp.path("out/long.ksa") +
                               " from archive."));
  });

  EXPECT_EQ(tmp.read("out/short.ksa"), "short");
  EXPECT_TRUE(content.starts_with(tmp.read("out/long.ksa")));
}

// ---- The number of open files ------------------------------------------------------------------

/// Leaves room for that many more descriptors.
void leaveDescriptors(int spare) {
  // The lowest free ones first, until there are no gaps.
  std::vector<int> taken;
  for (int i = 0; i < 64; ++i) {
    taken.push_back(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    ASSERT_NE(taken.back(), -1);
  }
  const int limit = taken.back() + 1 + spare;
  const rlimit limits = {static_cast<rlim_t>(limit), static_cast<rlim_t>(limit)};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limits), 0);
}

class DescriptorLimit : public testing::Test {
 protected:
  void SetUp() override {
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the checks of undefined behaviour need a descriptor of their own";
#endif
  }
};

TEST_F(DescriptorLimit, WithNoneLeftACopyRemovesTheDestinationAndMakesNone) {
  const TempDir tmp;
  const std::string source = tmp.write("src", "new");
  const std::string destination = tmp.write("dst", "old");

  runInChild([&] {
    leaveDescriptors(0);
    const LogCapture log;
    EXPECT_FALSE(fs::copyFile(String(source), String(destination)));
    EXPECT_EQ(log.all(), lines());
  });

  EXPECT_EQ(tmp.entries(), lines("src"));
}

TEST_F(DescriptorLimit, WithOneLeftACopyCannotOpenTheDestination) {
  const TempDir tmp;
  const std::string source = tmp.write("src", "new");

  runInChild([&] {
    leaveDescriptors(1);
    EXPECT_FALSE(fs::copyFile(String(source), String(tmp.path("dst"))));
  });

  EXPECT_EQ(tmp.entries(), lines("src"));
}

TEST_F(DescriptorLimit, WithNoneLeftNothingIsListed) {
  const TempDir tmp;
  tmp.mkdir("d/sub");
  tmp.write("d/f.txt", "text");

  runInChild([&] {
    leaveDescriptors(0);
    const LogCapture log;
    const ErrorStateSentinel sentinel;
    EXPECT_TRUE(fs::listDirs(String(tmp.path("d"))).empty());
    EXPECT_TRUE(fs::listFiles(String(tmp.path("d")), {"txt"}).empty());
    EXPECT_EQ(log.all(), lines());
    EXPECT_TRUE(sentinel.isUntouched());
  });
}

TEST_F(DescriptorLimit, WithNoneLeftAnArchiveCannotBeOpened) {
  const TempDir tmp;
  const std::string archive = tmp.path("pack.zip");
  ASSERT_TRUE(fs::writeZip(String(archive), {String(tmp.write("src", "new"))}, {}));

  runInChild([&] {
    leaveDescriptors(0);
    const LogCapture log;
    EXPECT_TRUE(fs::readZip(String(archive), String(tmp.path("out")), {}).empty());
    EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive));
  });

  EXPECT_EQ(tmp.entries(), lines("out/", "pack.zip", "src"));
}

TEST_F(DescriptorLimit, WithOneLeftNoEntryCanBeExtracted) {
  const TempDir tmp;
  const std::string archive = tmp.path("pack.zip");
  ASSERT_TRUE(fs::writeZip(String(archive),
                           {String(tmp.write("a.ksa", "a")), String(tmp.write("b.ksa", "b"))}, {}));

  runInChild([&] {
    leaveDescriptors(1);
    const LogCapture log;
    EXPECT_TRUE(fs::readZip(String(archive), String(tmp.path("out")), {}).empty());
    EXPECT_EQ(log.all(),
              lines("error: Failed to extract file " + tmp.path("out/a.ksa") + " from archive.",
                    "error: Failed to extract file " + tmp.path("out/b.ksa") + " from archive."));
  });

  EXPECT_EQ(tmp.entries(), lines("a.ksa", "b.ksa", "out/", "pack.zip"));
}

TEST_F(DescriptorLimit, WithNoneLeftAnArchiveCannotBeWrittenAndTheOldOneGoes) {
  const TempDir tmp;
  const std::string source = tmp.write("src", "new");
  const std::string archive = tmp.write("pack.zip", "old");

  runInChild([&] {
    leaveDescriptors(0);
    const LogCapture log;
    EXPECT_FALSE(fs::writeZip(String(archive), {String(source)}, {}));
    EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive));
  });

  EXPECT_EQ(tmp.entries(), lines("src"));
}

TEST_F(DescriptorLimit, WithOneLeftNoFileCanBeAdded) {
  const TempDir tmp;
  const std::string source = tmp.write("src", "new");
  const std::string archive = tmp.path("pack.zip");

  runInChild([&] {
    leaveDescriptors(1);
    const LogCapture log;
    EXPECT_FALSE(fs::writeZip(String(archive), {String(source)}, {}));
    EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + source));
  });

  EXPECT_EQ(tmp.entries(), lines("src"));
}

TEST_F(DescriptorLimit, WithNoneLeftWhateverOpensNothingWorks) {
  const TempDir tmp;
  tmp.write("src", "text");

  runInChild([&] {
    const String executable = fs::exePath();
    leaveDescriptors(0);
    EXPECT_TRUE(fs::mkDir(String(tmp.path("a/b"))));
    EXPECT_TRUE(fs::rmDir(String(tmp.path("a/b"))));
    EXPECT_TRUE(fs::moveFile(String(tmp.path("src")), String(tmp.path("dst.txt"))));
    EXPECT_TRUE(fs::isFile(String(tmp.path("dst.txt"))));
    EXPECT_EQ(fs::resolvePath("dst.txt", {String(tmp.path())}, {}), String(tmp.path("dst.txt")));
    EXPECT_EQ(fs::exePath(), executable);
    String current;
    EXPECT_TRUE(fs::getCurrentDir(current));
    EXPECT_FALSE(current.isEmpty());
  });

  EXPECT_EQ(tmp.entries(), lines("a/", "dst.txt"));
}

}  // namespace
}  // namespace vx::test
