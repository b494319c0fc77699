// Concern: archives beyond the limits of the format's first version: more entries, larger files and
// longer archives than its fields can count.
//
// These take minutes and gigabytes, so they run only where the environment variable VX_SOAK is set.
// The disk that they need is that of the temporary directory (TMPDIR), and is given back.

#include "fs/vx_fs.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"
#include "tests/testing/zip_maker.h"
#include "tests/testing/zip_program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace {

using testing::IsEmpty;
using vx::StringVector;
using vx::fs::readZip;
using vx::fs::writeZip;
using vx::fs::ZipProgress;
using vx::test::canRun;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::noise;
using vx::test::runProgram;
using vx::test::TempDir;
using vx::test::texts;

constexpr std::uintmax_t kMebibyte = std::uintmax_t{1024} * 1024;
constexpr std::uintmax_t kGibibyte = 1024 * kMebibyte;

/// Whether the two files have the same bytes.
bool haveSameBytes(const std::string& one, const std::string& other) {
  if (std::filesystem::file_size(one) != std::filesystem::file_size(other)) {
    return false;
  }
  std::ifstream left(one, std::ios::binary);
  std::ifstream right(other, std::ios::binary);
  std::vector<char> leftChunk(kMebibyte);
  std::vector<char> rightChunk(kMebibyte);
  do {
    left.read(leftChunk.data(), static_cast<std::streamsize>(leftChunk.size()));
    right.read(rightChunk.data(), static_cast<std::streamsize>(rightChunk.size()));
    const auto end = leftChunk.begin() + left.gcount();
    if (left.gcount() != right.gcount() ||
        !std::equal(leftChunk.begin(), end, rightChunk.begin())) {
      return false;
    }
  } while (left && right);
  return true;
}

class LargeZip : public testing::Test {
 protected:
  void SetUp() override {
    if (std::getenv("VX_SOAK") == nullptr) {
      GTEST_SKIP() << "takes minutes and gigabytes: set VX_SOAK to run it";
    }
    if (!canRun({"unzip", "-v"})) {
      GTEST_SKIP() << "unzip is needed";
    }
  }

  [[nodiscard]] std::uintmax_t room() const { return std::filesystem::space(tmp.path()).available; }

  [[nodiscard]] std::string archive() const { return tmp.path("pack.zip"); }
  [[nodiscard]] std::string out(const std::string& name) const { return tmp.path("out/" + name); }

  std::vector<std::string> expand() {
    return texts(readZip(archive().c_str(), tmp.path("out").c_str(), {}));
  }

  /// Writes a file that no compression makes smaller: its repeats are too far apart.
  [[nodiscard]] std::string writeNoise(const std::string& name, std::uintmax_t size) const {
    const std::string path = tmp.write(name, "");
    const std::string block = noise(kMebibyte);
    std::ofstream file(path, std::ios::binary);
    for (std::uintmax_t i = 0; i < size / kMebibyte; ++i) {
      file << block;
    }
    return path;
  }

  /// Expects unzip to find no fault with the archive.
  void expectUnzipToPass() const {
    const vx::test::ProgramEnd end = runProgram(tmp.path(), {"unzip", "-tq", archive()});
    EXPECT_EQ(end.exitCode, 0) << end.output;
  }

  TempDir tmp;
  LogCapture log;
};

// ---- Many entries -------------------------------------------------------------------------------

class ManyEntries : public LargeZip, public testing::WithParamInterface<int> {};

TEST_P(ManyEntries, AreWrittenAndReadInOrder) {
  // Links, since the many files would take a block of the disk each.
  tmp.write("empty", "");
  tmp.write("full", "text");
  StringVector files;
  std::vector<std::string> expected;
  for (int i = 0; i < GetParam(); ++i) {
    const std::string name = std::to_string(i);
    files.push_back(tmp.link("in/" + name, i % 100 == 0 ? "../full" : "../empty").c_str());
    expected.push_back(out("res/" + name));
  }
  std::vector<double> reports;

  ASSERT_TRUE(writeZip(archive().c_str(), files,
                       [&](const ZipProgress& report) { reports.push_back(report.progress); }));
  const std::vector<std::string> listed = expand();

  ASSERT_EQ(listed.size(), expected.size());
  EXPECT_TRUE(listed == expected);
  EXPECT_THAT(log.all(), IsEmpty());
  for (int i = 0; i < GetParam(); ++i) {
    ASSERT_EQ(tmp.read("out/res/" + std::to_string(i)), i % 100 == 0 ? "text" : "");
  }
  ASSERT_EQ(reports.size(), expected.size());
  EXPECT_EQ(reports.back(), static_cast<double>(GetParam() - 1) / static_cast<double>(GetParam()));
  expectUnzipToPass();
}

// The most entries that the first version of the format counts are 65,535.
INSTANTIATE_TEST_SUITE_P(Of, ManyEntries, testing::Values(65'535, 65'536, 70'000));

// ---- Long files and archives --------------------------------------------------------------------

TEST_F(LargeZip, HoldsAFileOfFiveGibibytes) {
  constexpr std::uintmax_t kSize = 5 * kGibibyte;
  if (room() < kSize + 3 * kGibibyte) {
    GTEST_SKIP() << "the temporary directory has no room for a file of 5 GiB";
  }
  const std::string source = tmp.write("sparse", "the beginning");
  std::filesystem::resize_file(source, kSize);
  {
    std::fstream file(source, std::ios::in | std::ios::out | std::ios::binary);
    file.seekp(static_cast<std::streamoff>(4 * kGibibyte - 8)) << "across 4 GiB";
    file.seekp(static_cast<std::streamoff>(kSize - 7)) << "the end";
  }
  const std::string small = tmp.write("small.ksa", "text");

  ASSERT_TRUE(writeZip(archive().c_str(), {small.c_str(), source.c_str(), small.c_str()}, {}));
  expectUnzipToPass();
  EXPECT_EQ(expand(), lines(out("small.ksa"), out("res/sparse"), out("small.ksa")));

  EXPECT_TRUE(haveSameBytes(out("res/sparse"), source));
  EXPECT_EQ(tmp.read("out/small.ksa"), "text");
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(LargeZip, EndsWithAFileAcrossFourGibibytes) {
#ifndef VX_PINNED_MINIZ
  GTEST_SKIP() << "only the pinned copy of miniz finalizes such an archive";
#endif
  constexpr std::uintmax_t kSize = 2200 * kMebibyte;
  if (room() < 4 * kSize + kGibibyte) {
    GTEST_SKIP() << "the temporary directory has no room for 9.6 GiB";
  }
  const std::string first = writeNoise("first", kSize);
  const std::string second = tmp.link("second", "first");

  ASSERT_TRUE(writeZip(archive().c_str(), {first.c_str(), second.c_str()}, {}));

  EXPECT_GT(std::filesystem::file_size(archive()), 4 * kGibibyte);
  expectUnzipToPass();
  const vx::test::ProgramEnd python = runProgram(
      tmp.path(), {"python3", "-c",
                   "import sys, zipfile\n"
                   "z = zipfile.ZipFile('pack.zip')\n"
                   "sys.exit(z.testzip() or z.namelist() != ['res/first', 'res/second'])"});
  EXPECT_EQ(python.exitCode, 0) << python.output;
  EXPECT_EQ(expand(), lines(out("res/first"), out("res/second")));
  EXPECT_TRUE(haveSameBytes(out("res/second"), first));
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(LargeZip, GrowsBeyondFourGibibytes) {
  constexpr std::uintmax_t kSourceSize = 512 * kMebibyte;
  constexpr int kCount = 9;
  if (room() < (2 * kCount + 1) * kSourceSize + 3 * kGibibyte) {
    GTEST_SKIP() << "the temporary directory has no room for 9.5 GiB";
  }
  const std::string source = writeNoise("source", kSourceSize);
  StringVector files;
  std::vector<std::string> expected;
  for (int i = 0; i < kCount; ++i) {
    const std::string name = "part " + std::to_string(i);
    files.push_back(tmp.link(name, "source").c_str());
    expected.push_back(out("res/" + name));
  }
  files.push_back(tmp.write("last.ksx", "scene").c_str());
  files.push_back(tmp.write("last.ksa", "look").c_str());
  expected.push_back(tmp.path("pack.ksx"));
  expected.push_back(out("last.ksa"));

  ASSERT_TRUE(writeZip(archive().c_str(), files, {}));
  EXPECT_GT(std::filesystem::file_size(archive()), 4 * kGibibyte);
  expectUnzipToPass();
  EXPECT_EQ(expand(), expected);

  for (int i = 0; i < kCount; ++i) {
    EXPECT_TRUE(haveSameBytes(out("res/part " + std::to_string(i)), source)) << i;
  }
  EXPECT_EQ(tmp.read("pack.ksx"), "scene");
  EXPECT_EQ(tmp.read("out/last.ksa"), "look");
  EXPECT_THAT(log.all(), IsEmpty());
}

}  // namespace
