// SPDX-License-Identifier: MIT

#include "tests/testing/screen.h"

#include "tests/testing/scoped_env.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <optional>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vx::test {
namespace {

using std::chrono::milliseconds;
using Clock = std::chrono::steady_clock;

constexpr int kScreenStartMs = 10'000;
constexpr milliseconds kTimeLimit{20'000};
constexpr milliseconds kBetweenLooks{100};
/// A key after a click on the window, a key after another: what a dialog takes to notice.
constexpr milliseconds kBetweenKeys{200};
/// A dialog reads its folder after its window has appeared.
constexpr milliseconds kAfterOpening{500};
constexpr milliseconds kForAnEffect{2'000};

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

}  // namespace

bool isUsed(const std::function<void()>& show, const std::string& title,
            const std::vector<Keys>& use) {
  if (isUsedOnAScreen(show, title, use)) {
    return true;
  }
  std::printf("RETRY: once more, on another screen\n");
  return isUsedOnAScreen(show, title, use);
}

}  // namespace vx::test
