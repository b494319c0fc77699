// The dialogs with kdialog, replaced by a script, and texts that only the pinned copy of the dialog
// library takes.

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace {

using vx::fs::browseDir;
using vx::fs::browseFile;
using vx::fs::browseFiles;
using vx::fs::saveFile;
using vx::test::lines;
using vx::test::ScopedCurrentDir;
using vx::test::ScopedEnv;
using vx::test::TempDir;
using vx::test::texts;
using vx::test::vxText;

constexpr unsigned kTimeLimitSeconds = 30;

/// Notes its arguments in the file $DIALOG_ARGUMENTS and prints the file $DIALOG_ANSWER.
constexpr const char* kScript =
    "#!/bin/sh\n"
    "printf '%s\\n' \"$@\" >\"$DIALOG_ARGUMENTS\"\n"
    "cat \"$DIALOG_ANSWER\"\n";

class KdialogDialog : public testing::Test {
 protected:
  void SetUp() override {
#ifndef VX_PINNED_TINYFILEDIALOGS
    GTEST_SKIP() << "only the pinned copy of tinyfiledialogs does this";
#endif
    ASSERT_NE(std::freopen("/dev/null", "r", stdin), nullptr);
    std::filesystem::permissions(tmp.write("bin/kdialog", kScript),
                                 std::filesystem::perms::owner_all);
    tmp.write("answer", "");
    ::alarm(kTimeLimitSeconds);
  }
  ~KdialogDialog() override {
    ::alarm(0);
  }

  void answer(const std::string& line) const {
    tmp.write("answer", line + "\n");
  }

  /// A path of more bytes than the dialog library's own buffers have.
  [[nodiscard]] std::string longPath() const {
    constexpr std::size_t kLength = 1500;
    std::string path = tmp.path("long");
    while (path.size() < kLength) {
      path += "/" + std::string(200, 'd');
    }
    std::filesystem::create_directories(path);
    return path;
  }

  TempDir tmp;
  ScopedEnv search{"PATH", tmp.path("bin") + ":/usr/bin:/bin"};
  ScopedEnv display{"DISPLAY", ":0"};
  ScopedEnv remote{"SSH_TTY", "none"};
  ScopedEnv desktop{"XDG_SESSION_DESKTOP", "KDE"};
  ScopedEnv argumentsFile{"DIALOG_ARGUMENTS", tmp.path("arguments")};
  ScopedEnv answerFile{"DIALOG_ANSWER", tmp.path("answer")};
  ScopedCurrentDir current{tmp.path()};
};

TEST_F(KdialogDialog, RunsNoCommandNamedByTheLastAnswer) {
  const std::string chosen = tmp.write("out/x;touch PWNED;/wood.png", "");
  const std::string directory = tmp.mkdir("out/x;touch PWNED;/d");

  answer(chosen);
  ASSERT_EQ(browseFile("", vxText(tmp.path() + "/"), "", {}).view(), chosen);
  static_cast<void>(browseFile("", "", "", {}));
  static_cast<void>(browseFiles("", "relative", "", {}));
  ASSERT_EQ(saveFile("", vxText(tmp.path() + "/"), "", {}).view(), chosen);
  static_cast<void>(saveFile("", "", "", {}));
  answer(directory);
  ASSERT_EQ(browseDir("", vxText(tmp.path() + "/")).view(), directory);
  static_cast<void>(browseDir("", ""));

  EXPECT_FALSE(tmp.exists("PWNED"));
}

TEST_F(KdialogDialog, OpensInTheCurrentDirectoryByDefault) {
  static_cast<void>(browseFile("", "", "", {}));

  EXPECT_EQ(tmp.read("arguments"), "--getopenfilename\n" + tmp.path() + "/\n");
}

TEST_F(KdialogDialog, ReturnsALongPath) {
  const std::string directory = longPath();
  const std::string file = tmp.write(directory.substr(tmp.path().size() + 1) + "/wood.png", "");

  answer(file);
  EXPECT_EQ(browseFile("", "/", "", {}).view(), file);
  EXPECT_EQ(saveFile("", "/", "", {}).view(), file);
  answer(directory);
  EXPECT_EQ(browseDir("", "/").view(), directory);
  answer(file + "\n" + file);
  EXPECT_EQ(texts(browseFiles("", "/", "", {})), lines(file, file));
}

TEST_F(KdialogDialog, ShowsALongTitle) {
  const std::string title(8'000, 't');

  static_cast<void>(browseFile(vxText(title), "/", "", {}));

  EXPECT_EQ(tmp.read("arguments"), "--getopenfilename\n/\n--title\n" + title + "\n");
}

}  // namespace
