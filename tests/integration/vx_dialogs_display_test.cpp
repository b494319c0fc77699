// SPDX-License-Identifier: MIT
//
// The dialogs as a user meets them: the dialog library, the real zenity, a virtual screen and keys.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/child.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/screen.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include <unistd.h>

namespace vx::test {
namespace {

constexpr unsigned kTimeLimitSeconds = 90;

const Keys kAccept = {.keys = {"Return"}, .windowsAfter = 0};
const Keys kCancel = {.keys = {"Escape"}, .windowsAfter = 0};
/// Accepts the name of an existing file, which opens the question whether to overwrite it.
const Keys kAcceptExisting = {.keys = {"Return"}, .windowsAfter = 2};

class Display : public SilentFsTest {
 protected:
  void SetUp() override {
    for (const std::string program : {"Xvfb", "xdotool", "zenity"}) {
      if (runProgram({"sh", "-c", "command -v " + program}).exitCode != 0) {
        GTEST_SKIP() << program << " is not installed";
      }
    }
    ASSERT_NE(std::freopen("/dev/null", "r", stdin), nullptr);
    std::filesystem::permissions(own.mkdir("run"), std::filesystem::perms::owner_all);
    ::alarm(kTimeLimitSeconds);
  }
  ~Display() override { ::alarm(0); }

  // Settings, services and recent files of whoever runs the tests stay out of it.
  const TempDir own;
  const ScopedEnv home{"HOME", own.mkdir("home")};
  const ScopedEnv runtime{"XDG_RUNTIME_DIR", own.path("run")};
  const ScopedEnv config{"XDG_CONFIG_HOME", nullptr};
  const ScopedEnv data{"XDG_DATA_HOME", nullptr};
  const ScopedEnv bus{"DBUS_SESSION_BUS_ADDRESS", nullptr};
  const ScopedEnv accessibility{"NO_AT_BRIDGE", "1"};
  const ScopedEnv settings{"GSETTINGS_BACKEND", "memory"};
  const ScopedEnv files{"GIO_USE_VFS", "local"};
  const ScopedEnv portal{"GTK_USE_PORTAL", "0"};
  const ScopedEnv locale{"LC_ALL", "C.UTF-8"};
  // No dialog on a real screen.
  const ScopedEnv wayland{"WAYLAND_DISPLAY", nullptr};
  const ScopedEnv backend{"GDK_BACKEND", "x11"};
  // The dialog library: zenity in a window of its own.
  const ScopedEnv desktop{"XDG_SESSION_DESKTOP", nullptr};
  const ScopedEnv remote{"SSH_TTY", "none"};
};

TEST_F(Display, PicksTheSelectedFile) {
  tmp.write("a.png", "");
  const std::string file = tmp.write("b.png", "");
  tmp.write("c.png", "");
  String chosen;

  ASSERT_TRUE(isUsed([&] { chosen = fs::browseFile("Pick one", vxText(file), "Images", {"png"}); },
                     "Pick one", {kAccept}));

  EXPECT_EQ(text(chosen), file);
}

TEST_F(Display, PicksEveryFileThatTheFiltersAllow) {
  const std::string a = tmp.write("a glow.png", "");
  const std::string b = tmp.write("b.jpg", "");
  const std::string c = tmp.write("dämmerung.png", "");
  tmp.write("notes.txt", "");
  const String directory = vxText(tmp.path() + "/");
  const StringVector filters = {"png", ".jpg"};
  StringVector chosen;

  ASSERT_TRUE(isUsed([&] { chosen = fs::browseFiles("Pick some", directory, "Images", filters); },
                     "Pick some", {Keys{.keys = {"ctrl+a", "alt+o"}, .windowsAfter = 0}}));

  EXPECT_EQ(texts(chosen), lines(a, b, c));
}

TEST_F(Display, PicksADirectory) {
  const std::string directory = tmp.mkdir("Bilder 2");
  String chosen;

  ASSERT_TRUE(isUsed([&] { chosen = fs::browseDir("Pick a folder", vxText(directory + "/")); },
                     "Pick a folder", {kAccept}));

  EXPECT_EQ(text(chosen), directory);
}

TEST_F(Display, ChoosesANewName) {
  const std::string file = tmp.path("new.png");
  String chosen;

  ASSERT_TRUE(isUsed([&] { chosen = fs::saveFile("Save as", vxText(file), "Images", {"png"}); },
                     "Save as", {kAccept}));

  EXPECT_EQ(text(chosen), file);
  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(Display, AsksBeforeItChoosesAnExistingFile) {
  const std::string file = tmp.write("old.png", "text");
  String chosen;

  ASSERT_TRUE(isUsed([&] { chosen = fs::saveFile("Save as", vxText(file), "Images", {"png"}); },
                     "Save as", {kAcceptExisting, Keys{.keys = {"alt+r"}, .windowsAfter = 0}}));

  EXPECT_EQ(text(chosen), file);
  EXPECT_EQ(tmp.read("old.png"), "text");
}

TEST_F(Display, ChoosesNothingWhenOverwritingIsDeclined) {
  const std::string file = tmp.write("old.png", "text");
  String chosen = "unchanged";

  ASSERT_TRUE(isUsed([&] { chosen = fs::saveFile("Save as", vxText(file), "Images", {"png"}); },
                     "Save as",
                     {kAcceptExisting, Keys{.keys = {"Escape"}, .windowsAfter = 1}, kCancel}));

  EXPECT_EQ(chosen, "");
}

TEST_F(Display, ReturnsNothingWhenCancelled) {
  const String file = vxText(tmp.write("a.png", ""));
  String chosen = "unchanged";
  StringVector several = {"unchanged"};
  String directory = "unchanged";

  ASSERT_TRUE(isUsed([&] { chosen = fs::browseFile("Pick one", file, "Images", {"png"}); },
                     "Pick one", {kCancel}));
  ASSERT_TRUE(isUsed([&] { several = fs::browseFiles("Pick some", file, "Images", {"png"}); },
                     "Pick some", {kCancel}));
  ASSERT_TRUE(isUsed([&] { directory = fs::browseDir("Pick a folder", vxText(tmp.path() + "/")); },
                     "Pick a folder", {kCancel}));

  EXPECT_EQ(chosen, "");
  EXPECT_EQ(texts(several), lines());
  EXPECT_EQ(directory, "");
}

}  // namespace
}  // namespace vx::test
