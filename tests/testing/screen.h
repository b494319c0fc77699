// SPDX-License-Identifier: MIT
//
// A screen that nobody sees, and somebody who types on it.
//
//   String chosen;
//   EXPECT_TRUE(isUsed([&] { chosen = browseFile("Pick", ...); }, "Pick", {{{"Return"}, 0}}));
//
// Needs the programs Xvfb and xdotool. Link screen.cpp into the test program.

#pragma once

#include <functional>
#include <string>
#include <vector>

namespace vx::test {

/// Keys that are pressed one after the other, as xdotool names them, again and again until as many
/// of the dialog program's windows are open as they should leave. Pressing them once more than
/// needed must do no harm: a key that comes before the dialog is ready is lost.
struct Keys {
  std::vector<std::string> keys;
  int windowsAfter = 0;
};

/// Runs `show` on the calling thread, which opens a zenity dialog of exactly that title, while
/// another presses the keys. Where the dialog does not come up or the keys have no effect, the
/// screen is taken away, which ends the dialog, and it all begins once more on another screen; it
/// says so on standard output.
///
/// DISPLAY names the screen meanwhile.
///
/// @return whether the last key has closed the dialog.
[[nodiscard]] bool isUsed(const std::function<void()>& show, const std::string& title,
                          const std::vector<Keys>& use);

}  // namespace vx::test
