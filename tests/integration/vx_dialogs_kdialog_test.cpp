// SPDX-License-Identifier: MIT
//
// The dialogs with kdialog, and texts that only the pinned copy of the dialog library takes.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/dialog_program.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include <unistd.h>

namespace vx::test {
namespace {

constexpr unsigned kTimeLimitSeconds = 30;

class Kdialog : public SilentFsTest {
 protected:
  void SetUp() override {
#ifndef VX_PINNED_TINYFILEDIALOGS
    GTEST_SKIP() << "only the pinned copy of tinyfiledialogs does this";
#endif
    ASSERT_NE(std::freopen("/dev/null", "r", stdin), nullptr);
    ::alarm(kTimeLimitSeconds);
  }
  ~Kdialog() override {
    ::alarm(0);
  }

  const DialogProgram kdialog{"kdialog", "KDE"};
};

TEST_F(Kdialog, RunsNoCommandNamedByTheLastAnswer) {
  const std::string file = tmp.write("out/x;touch PWNED;/wood.png", "");
  const std::string directory = tmp.mkdir("out/x;touch PWNED;/d");

  kdialog.answer(file);
  EXPECT_EQ(text(fs::browseFile("", vxText(tmp.path() + "/"), "", {})), file);
  EXPECT_EQ(text(fs::browseFile("", "", "", {})), file);
  EXPECT_EQ(texts(fs::browseFiles("", "relative", "", {})), lines(file));
  EXPECT_EQ(text(fs::saveFile("", vxText(tmp.path() + "/"), "", {})), file);
  EXPECT_EQ(text(fs::saveFile("", "", "", {})), file);
  kdialog.answer(directory);
  EXPECT_EQ(text(fs::browseDir("", vxText(tmp.path() + "/"))), directory);
  EXPECT_EQ(text(fs::browseDir("", "")), directory);

  EXPECT_FALSE(tmp.exists("PWNED"));
}

TEST_F(Kdialog, OpensTheCurrentDirectoryByDefault) {
  EXPECT_EQ(fs::browseFile("", "", "", {}), "");

  EXPECT_EQ(kdialog.arguments(), lines("--getopenfilename", tmp.path() + "/"));
}

// The dialog library has buffers of 1,024 bytes.
TEST_F(Kdialog, ReturnsALongPath) {
  std::string relative = "long";
  while (relative.size() < 1500) {
    relative += "/" + std::string(200, 'd');
  }
  const std::string file = tmp.write(relative + "/wood.png", "");

  kdialog.answer(file);
  EXPECT_EQ(text(fs::browseFile("", "/", "", {})), file);
  EXPECT_EQ(text(fs::saveFile("", "/", "", {})), file);
  kdialog.answer(tmp.path(relative));
  EXPECT_EQ(text(fs::browseDir("", "/")), tmp.path(relative));
  kdialog.answer(file + "\n" + file);
  EXPECT_EQ(texts(fs::browseFiles("", "/", "", {})), lines(file, file));
}

TEST_F(Kdialog, ShowsALongTitle) {
  const std::string title(8'000, 't');

  EXPECT_EQ(fs::browseFile(vxText(title), "/", "", {}), "");

  EXPECT_EQ(kdialog.arguments(), lines("--getopenfilename", "/", "--title", title));
}

}  // namespace
}  // namespace vx::test
