// The dialogs as a user meets them: the dialog library, the real zenity, a virtual screen and keys.

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/screen.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <unistd.h>

using vx::String;
using vx::StringVector;
using vx::fs::browseDir;
using vx::fs::browseFile;
using vx::fs::browseFiles;
using vx::fs::saveFile;
using vx::test::isUsed;
using vx::test::Keys;
using vx::test::lines;
using vx::test::ScopedEnv;
using vx::test::TempDir;
using vx::test::texts;
using vx::test::vxText;

namespace {

constexpr unsigned kTimeLimitSeconds = 90;

const Keys kAccept = {.keys = {"Return"}, .windowsAfter = 0};
const Keys kCancel = {.keys = {"Escape"}, .windowsAfter = 0};

std::string missingPrograms() {
  std::string missing;
  for (const std::string program : {"Xvfb", "xdotool", "zenity"}) {
    if (std::system(("command -v " + program + " >/dev/null").c_str()) != 0) {
      missing += " " + program;
    }
  }
  return missing;
}

class DisplayedDialog : public testing::Test {
 protected:
  void SetUp() override {
    const std::string missing = missingPrograms();
    if (!missing.empty()) {
      GTEST_SKIP() << "not installed:" << missing;
    }
    ASSERT_NE(std::freopen("/dev/null", "r", stdin), nullptr);
    std::filesystem::permissions(tmp().mkdir("run"), std::filesystem::perms::owner_all);
    ::alarm(kTimeLimitSeconds);
  }
  void TearDown() override { ::alarm(0); }

  [[nodiscard]] const TempDir& tmp() const noexcept { return tmp_; }

 private:
  TempDir tmp_;
  // Settings, services and recent files of whoever runs the tests stay out of it.
  ScopedEnv home_{"HOME", tmp().mkdir("home")};
  ScopedEnv runtime_{"XDG_RUNTIME_DIR", tmp().mkdir("run")};
  ScopedEnv config_{"XDG_CONFIG_HOME", nullptr};
  ScopedEnv data_{"XDG_DATA_HOME", nullptr};
  ScopedEnv bus_{"DBUS_SESSION_BUS_ADDRESS", nullptr};
  ScopedEnv accessibility_{"NO_AT_BRIDGE", "1"};
  ScopedEnv settings_{"GSETTINGS_BACKEND", "memory"};
  ScopedEnv files_{"GIO_USE_VFS", "local"};
  ScopedEnv portal_{"GTK_USE_PORTAL", "0"};
  ScopedEnv locale_{"LC_ALL", "C.UTF-8"};
  // No dialog on a real screen.
  ScopedEnv wayland_{"WAYLAND_DISPLAY", nullptr};
  ScopedEnv backend_{"GDK_BACKEND", "x11"};
  // The dialog library: zenity in a window of its own.
  ScopedEnv desktop_{"XDG_SESSION_DESKTOP", nullptr};
  ScopedEnv remote_{"SSH_TTY", "none"};
};

}  // namespace

TEST_F(DisplayedDialog, PicksTheFileThatIsSelected) {
  tmp().write("files/a.png", "");
  const std::string file = tmp().write("files/b.png", "");
  tmp().write("files/c.png", "");
  String chosen;

  ASSERT_TRUE(isUsed([&] { chosen = browseFile("Pick one", vxText(file), "Images", {"png"}); },
                     "Pick one", {kAccept}));

  EXPECT_EQ(chosen.view(), file);
}

TEST_F(DisplayedDialog, PicksEveryFileThatTheFiltersLetThrough) {
  const std::string a = tmp().write("files/a glow.png", "");
  const std::string b = tmp().write("files/b.jpg", "");
  const std::string c = tmp().write("files/dämmerung.png", "");
  tmp().write("files/notes.txt", "");
  const String folder = vxText(tmp().path("files/"));
  StringVector chosen;

  ASSERT_TRUE(isUsed(
      [&] {
        chosen = browseFiles("Pick some", folder, "Images", {"png", ".jpg"});
      },
      "Pick some", {Keys{.keys = {"ctrl+a", "alt+o"}, .windowsAfter = 0}}));

  EXPECT_EQ(texts(chosen), lines(a, b, c));
}

TEST_F(DisplayedDialog, PicksAFolder) {
  const std::string folder = tmp().mkdir("files/Bilder 2");
  String chosen;

  ASSERT_TRUE(isUsed([&] { chosen = browseDir("Pick a folder", vxText(folder + "/")); },
                     "Pick a folder", {kAccept}));

  EXPECT_EQ(chosen.view(), folder);
}

TEST_F(DisplayedDialog, ChoosesANameToSaveTo) {
  tmp().mkdir("files");
  const std::string file = tmp().path("files/new.png");
  String chosen;

  ASSERT_TRUE(isUsed([&] { chosen = saveFile("Save as", vxText(file), "Images", {"png"}); },
                     "Save as", {kAccept}));

  EXPECT_EQ(chosen.view(), file);
  EXPECT_FALSE(tmp().exists("files/new.png"));
}

TEST_F(DisplayedDialog, AsksBeforeItChoosesAFileToSaveOver) {
  const std::string file = tmp().write("files/old.png", "text");
  String chosen;

  ASSERT_TRUE(isUsed(
      [&] { chosen = saveFile("Save as", vxText(file), "Images", {"png"}); }, "Save as",
      {Keys{.keys = {"Return"}, .windowsAfter = 2}, Keys{.keys = {"alt+r"}, .windowsAfter = 0}}));

  EXPECT_EQ(chosen.view(), file);
  EXPECT_EQ(tmp().read("files/old.png"), "text");
}

TEST_F(DisplayedDialog, ChoosesNothingWhenSavingOverAFileIsDeclined) {
  const std::string file = tmp().write("files/old.png", "text");
  String chosen = "unchanged";

  ASSERT_TRUE(isUsed([&] { chosen = saveFile("Save as", vxText(file), "Images", {"png"}); },
                     "Save as",
                     {Keys{.keys = {"Return"}, .windowsAfter = 2},
                      Keys{.keys = {"Escape"}, .windowsAfter = 1}, kCancel}));

  EXPECT_EQ(chosen, "");
}

TEST_F(DisplayedDialog, CancelledPicksNoFile) {
  const std::string file = tmp().write("files/a.png", "");
  String chosen = "unchanged";

  ASSERT_TRUE(isUsed([&] { chosen = browseFile("Pick one", vxText(file), "Images", {"png"}); },
                     "Pick one", {kCancel}));

  EXPECT_EQ(chosen, "");
}

TEST_F(DisplayedDialog, CancelledPicksNoFiles) {
  const std::string file = tmp().write("files/a.png", "");
  StringVector chosen = {"unchanged"};

  ASSERT_TRUE(isUsed([&] { chosen = browseFiles("Pick some", vxText(file), "Images", {"png"}); },
                     "Pick some", {kCancel}));

  EXPECT_EQ(texts(chosen), lines());
}

TEST_F(DisplayedDialog, CancelledPicksNoFolder) {
  const std::string folder = tmp().mkdir("files");
  String chosen = "unchanged";

  ASSERT_TRUE(isUsed([&] { chosen = browseDir("Pick a folder", vxText(folder + "/")); },
                     "Pick a folder", {kCancel}));

  EXPECT_EQ(chosen, "");
}
