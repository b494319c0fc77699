// SPDX-License-Identifier: MIT
//
// The dialogs as a user meets them: the dialog library, the real zenity, a virtual screen and keys.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/child.h"
#include "tests/testing/scoped.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vx::test {
namespace {

// ---- A virtual screen and the keys pressed on it ---------------------------------------------

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kScreenStartMs = 10'000;
constexpr milliseconds kTimeLimit{20'000};
constexpr unsigned kTimeLimitSeconds = 90;
constexpr milliseconds kBetweenLooks{100};
/// A key after a click on the window, a key after another: what a dialog takes to notice.
constexpr milliseconds kBetweenKeys{200};
/// A dialog reads its folder after its window has appeared.
constexpr milliseconds kAfterOpening{500};
constexpr milliseconds kForAnEffect{2'000};

/// Keys that are pressed one after the other, as xdotool names them, again and again until as many
/// of the dialog program's windows are open as they should leave. Pressing them once more than
/// needed must do no harm: a key that comes before the dialog is ready is lost.
struct Keys {
  std::vector<std::string> keys;
  int windowsAfter = 0;
};

/// What a shell command prints, without its last line break; nothing when it fails. `runProgram`
/// would flush all streams, and wait for the one from which the dialog library reads.
std::optional<std::string> output(const std::string& command) {
  FILE* const pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) {
    return std::nullopt;
  }
  std::string text;
  std::array<char, 256> buffer = {};
  while (std::fgets(buffer.data(), buffer.size(), pipe) != nullptr) {
    text += buffer.data();
  }
  if (::pclose(pipe) != 0) {
    return std::nullopt;
  }
  if (text.ends_with('\n')) {
    text.pop_back();
  }
  return text;
}

std::optional<std::string> xdotool(const std::string& arguments) {
  return output("timeout 5 xdotool " + arguments + " 2>/dev/null </dev/null");
}

/// The X server of one test.
class Screen {
 public:
  Screen() {
    std::array<int, 2> ends = {-1, -1};
    if (::pipe(ends.data()) != 0) {
      return;
    }
    server_ = ::fork();
    if (server_ == 0) {
      serve(ends[1]);
    }
    ::close(ends[1]);
    number_ = readNumber(ends[0]);
    ::close(ends[0]);
  }
  Screen(const Screen&) = delete;
  Screen& operator=(const Screen&) = delete;
  ~Screen() {
    if (server_ > 0) {
      takeAway();
      ::waitpid(server_, nullptr, 0);
    }
  }

  [[nodiscard]] bool stands() const noexcept { return !number_.empty(); }
  [[nodiscard]] std::string display() const { return ":" + number_; }

  /// Ends the server, and with it every program that shows something there.
  void takeAway() const noexcept { ::kill(server_, SIGTERM); }

 private:
  /// The server picks a number that is free and writes it to `numberEnd`.
  [[noreturn]] static void serve(int numberEnd) {
    ::prctl(PR_SET_PDEATHSIG, SIGTERM);
    const int silence = ::open("/dev/null", O_RDWR);
    ::dup2(silence, STDIN_FILENO);
    ::dup2(silence, STDOUT_FILENO);
    ::dup2(silence, STDERR_FILENO);
    const std::string number = std::to_string(numberEnd);
    // Higher than most, or the buttons of a dialog are cut off. A server that resets itself when
    // its last client goes, such as a look for a window, may turn away the dialog that comes then.
    ::execlp("Xvfb", "Xvfb", "-displayfd", number.c_str(), "-screen", "0", "1280x1024x24",
             "-nolisten", "tcp", "-noreset", nullptr);
    ::_exit(127);
  }

  /// A line of digits; nothing when none comes in time.
  static std::string readNumber(int end) {
    std::string number;
    pollfd ready = {.fd = end, .events = POLLIN, .revents = 0};
    char byte = 0;
    while (::poll(&ready, 1, kScreenStartMs) == 1 && ::read(end, &byte, 1) == 1) {
      if (byte == '\n') {
        return number;
      }
      number += byte;
    }
    return {};
  }

  pid_t server_ = -1;
  std::string number_;
};

/// Who sits before the screen, until the dialog is over.
class User {
 public:
  User(std::string title, const std::atomic<bool>& isOver)
      : title_(std::move(title)), isOver_(isOver) {}

  bool uses(const std::vector<Keys>& use) {
    const std::string wanted = "search --onlyvisible --name '^" + title_ + "$'";
    if (!waitUntil([&] { return window_ = xdotool(wanted), window_.has_value(); }, kTimeLimit)) {
      return fails("no window with the title " + title_);
    }
    std::this_thread::sleep_for(kAfterOpening);
    return std::all_of(use.begin(), use.end(), [&](const Keys& keys) { return presses(keys); });
  }

 private:
  bool presses(const Keys& keys) {
    const auto hasEffect = [&] { return openWindows() == keys.windowsAfter; };
    while (!isOver_ && Clock::now() < deadline_) {
      press(keys.keys);
      if (waitUntil(hasEffect, kForAnEffect)) {
        return true;
      }
    }
    return hasEffect() || fails("no effect of " + keys.keys.back());
  }

  void press(const std::vector<std::string>& keys) const {
    // Without a window manager the keys go nowhere until a window has been given the focus.
    xdotool("windowfocus --sync " + *window_);
    for (const std::string& key : keys) {
      std::this_thread::sleep_for(kBetweenKeys);
      xdotool("key " + key);
    }
  }

  /// The dialog program's windows on the screen.
  static int openWindows() {
    const std::string windows =
        xdotool("search --onlyvisible --class '^Zenity$'").value_or(std::string());
    return windows.empty() ? 0
                           : 1 + static_cast<int>(std::count(windows.begin(), windows.end(), '\n'));
  }

  template <class Condition>
  [[nodiscard]] bool waitUntil(Condition holds, milliseconds limit) const {
    const auto end = std::min(Clock::now() + limit, deadline_);
    while (true) {
      const bool isLastLook = isOver_ || Clock::now() >= end;
      if (holds()) {
        return true;
      }
      if (isLastLook) {
        return false;
      }
      std::this_thread::sleep_for(kBetweenLooks);
    }
  }

  static bool fails(const std::string& reason) {
    std::printf("the dialog was not used: %s\n", reason.c_str());
    return false;
  }

  const std::string title_;
  const std::atomic<bool>& isOver_;
  const Clock::time_point deadline_ = Clock::now() + kTimeLimit;
  std::optional<std::string> window_;
};

bool isUsedOnAScreen(const std::function<void()>& show, const std::string& title,
                     const std::vector<Keys>& use) {
  const Screen screen;
  if (!screen.stands()) {
    std::printf("Xvfb did not start\n");
    return false;
  }
  const ScopedEnv display("DISPLAY", screen.display());
  std::atomic<bool> isOver = false;
  bool isDone = false;
  std::thread user([&] {
    isDone = User(title, isOver).uses(use);
    if (!isDone) {
      screen.takeAway();
    }
  });
  show();
  isOver = true;
  user.join();
  return isDone;
}

/// Runs `show` on the calling thread, which opens a zenity dialog of exactly that title, while
/// another presses the keys. Where the dialog does not come up or the keys have no effect, the
/// screen is taken away, which ends the dialog, and it all begins once more on another screen; it
/// says so on standard output.
///
/// DISPLAY names the screen meanwhile.
///
/// @return whether the last key has closed the dialog.
bool isUsed(const std::function<void()>& show, const std::string& title,
            const std::vector<Keys>& use) {
  if (isUsedOnAScreen(show, title, use)) {
    return true;
  }
  std::printf("RETRY: once more, on another screen\n");
  return isUsedOnAScreen(show, title, use);
}

// ---- The dialogs ------------------------------------------------------------------------------

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

  // Keeps the settings, services and recent files of the user out of the test.
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
