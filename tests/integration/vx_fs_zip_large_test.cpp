// SPDX-License-Identifier: MIT
//
// Archives beyond the limits of the format's first version: more entries, larger files and longer
// archives than its fields can count.
//
// These take minutes and gigabytes, so they run only where the environment variable VX_SOAK is set.
// They need room in the temporary directory (TMPDIR).

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <ios>
#include <string>
#include <vector>

namespace vx::test {
namespace {

constexpr std::uintmax_t kMebibyte = std::uintmax_t{1024} * 1024;
constexpr std::uintmax_t kGibibyte = 1024 * kMebibyte;
constexpr unsigned kManySeconds = 1800;

class LargeZip : public FsTest {
 protected:
  void SetUp() override {
    if (std::getenv("VX_SOAK") == nullptr) {
      GTEST_SKIP() << "takes minutes and gigabytes: set VX_SOAK to run it";
    }
    if (runProgram({"unzip", "-v"}).exitCode != 0) {
      GTEST_SKIP() << "unzip is needed";
    }
  }

  [[nodiscard]] static bool hasRoomFor(std::uintmax_t size) {
    return std::filesystem::space(".").available >= size;
  }

  /// Writes a file that no compression makes smaller: its repeats are too far apart.
  static void writeNoise(const std::string& path, std::uintmax_t size) {
    const std::string block = noise(kMebibyte);
    std::ofstream file(path, std::ios::binary);
    for (std::uintmax_t i = 0; i < size / kMebibyte; ++i) {
      file << block;
    }
  }

  static void expectSuccess(const std::vector<std::string>& command) {
    const ChildEnd end = runProgram(command, kManySeconds);
    EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
  }
};

constexpr const char* kNoRoom = "the temporary directory has no room for it";

class LargeZip_Entries : public LargeZip, public testing::WithParamInterface<int> {};

TEST_P(LargeZip_Entries, AreWrittenAndReadInOrder) {
  // Links, since each file would take a block of the disk.
  tmp.write("empty", "");
  tmp.write("full", "text");
  StringVector files;
  std::vector<std::string> expected;
  for (int i = 0; i < GetParam(); ++i) {
    const std::string name = std::to_string(i);
    tmp.link("in/" + name, i % 100 == 0 ? "../full" : "../empty");
    files.push_back(vxText("in/" + name));
    expected.push_back("out/res/" + name);
  }
  std::vector<double> reports;

  EXPECT_TRUE(fs::writeZip("pack.zip", files, [&](const fs::ZipProgress& report) {
    reports.push_back(report.progress);
  }));

  ASSERT_EQ(reports.size(), expected.size());
  EXPECT_EQ(reports.back(), static_cast<double>(GetParam() - 1) / static_cast<double>(GetParam()));
  expectSuccess({"unzip", "-tq", "pack.zip"});
  EXPECT_TRUE(texts(fs::readZip("pack.zip", "out")) == expected);
  for (int i = 0; i < GetParam(); ++i) {
    ASSERT_EQ(tmp.read("out/res/" + std::to_string(i)), i % 100 == 0 ? "text" : "");
  }
  EXPECT_EQ(log.all(), lines());
}

// The first version of the format counts up to 65,535 entries.
INSTANTIATE_TEST_SUITE_P(Of, LargeZip_Entries, testing::Values(65'535, 65'536, 70'000));

TEST_F(LargeZip, HoldsAFileOfFiveGibibytes) {
  constexpr std::uintmax_t kSize = 5 * kGibibyte;
  if (!hasRoomFor(kSize + 3 * kGibibyte)) {
    GTEST_SKIP() << kNoRoom;
  }
  tmp.write("small.ksa", "text");
  tmp.write("sparse", "the beginning");
  std::filesystem::resize_file("sparse", kSize);
  {
    std::fstream file("sparse", std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(4 * kGibibyte - 8)) << "across 4 GiB";
    file.seekp(static_cast<std::streamoff>(kSize - 7)) << "the end";
  }

  EXPECT_TRUE(fs::writeZip("pack.zip", {"small.ksa", "sparse", "small.ksa"}));

  expectSuccess({"unzip", "-tq", "pack.zip"});
  EXPECT_EQ(texts(fs::readZip("pack.zip", "out")),
            lines("out/small.ksa", "out/res/sparse", "out/small.ksa"));
  expectSuccess({"cmp", "sparse", "out/res/sparse"});
  EXPECT_EQ(tmp.read("out/small.ksa"), "text");
  EXPECT_EQ(log.all(), lines());
}

TEST_F(LargeZip, EndsWithAFileAcrossFourGibibytes) {
#ifndef VX_PINNED_MINIZ
  GTEST_SKIP() << "only the pinned copy of miniz finalizes such an archive";
#endif
  constexpr std::uintmax_t kSize = 2200 * kMebibyte;
  if (!hasRoomFor(5 * kSize)) {
    GTEST_SKIP() << kNoRoom;
  }
  writeNoise("first", kSize);
  tmp.link("second", "first");

  EXPECT_TRUE(fs::writeZip("pack.zip", {"first", "second"}));

  EXPECT_GT(std::filesystem::file_size("pack.zip"), 4 * kGibibyte);
  expectSuccess({"unzip", "-tq", "pack.zip"});
  expectSuccess({"python3", "-c",
                 "import sys, zipfile\n"
                 "z = zipfile.ZipFile('pack.zip')\n"
                 "sys.exit(z.testzip() or z.namelist() != ['res/first', 'res/second'])"});
  EXPECT_EQ(texts(fs::readZip("pack.zip", "out")), lines("out/res/first", "out/res/second"));
  expectSuccess({"cmp", "first", "out/res/second"});
  EXPECT_EQ(log.all(), lines());
}

TEST_F(LargeZip, GrowsBeyondFourGibibytes) {
  constexpr std::uintmax_t kSize = 512 * kMebibyte;
  if (!hasRoomFor(25 * kSize)) {
    GTEST_SKIP() << kNoRoom;
  }
  writeNoise("1", kSize);
  for (const char* const name : {"2", "3", "4", "5", "6", "7", "8", "9"}) {
    tmp.link(name, "1");
  }
  tmp.write("last.ksx", "scene");
  tmp.write("last.ksa", "look");

  EXPECT_TRUE(fs::writeZip("pack.zip",
                           {"1", "2", "3", "4", "5", "6", "7", "8", "9", "last.ksx", "last.ksa"}));

  EXPECT_GT(std::filesystem::file_size("pack.zip"), 4 * kGibibyte);
  expectSuccess({"unzip", "-tq", "pack.zip"});
  EXPECT_EQ(texts(fs::readZip("pack.zip", "out")),
            lines("out/res/1", "out/res/2", "out/res/3", "out/res/4", "out/res/5", "out/res/6",
                  "out/res/7", "out/res/8", "out/res/9", tmp.path("pack.ksx"), "out/last.ksa"));
  for (const char* const name : {"1", "2", "3", "4", "5", "6", "7", "8", "9"}) {
    expectSuccess({"cmp", "1", std::string("out/res/") + name});
  }
  EXPECT_EQ(tmp.read("pack.ksx"), "scene");
  EXPECT_EQ(tmp.read("out/last.ksa"), "look");
  EXPECT_EQ(log.all(), lines());
}

}  // namespace
}  // namespace vx::test
