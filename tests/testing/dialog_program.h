// SPDX-License-Identifier: MIT
//
// A stand-in for the program that shows the dialogs, so that no screen is needed.
//
//   const DialogProgram zenity;
//   zenity.answer("/tmp/a.png");
//   EXPECT_EQ(text(vx::fs::browseFile("Pick", "", "", {})), "/tmp/a.png");
//   EXPECT_EQ(zenity.arguments(), lines("--file-selection", "--title=Pick"));

#pragma once

#include "tests/testing/scoped.h"
#include "tests/testing/temp_dir.h"

#include <string>
#include <vector>

namespace vx::test {

/// Is first in PATH during its lifetime, and makes the dialog library choose it. The library looks
/// for its programs once, so a process can use one kind of program only.
class DialogProgram {
 public:
  explicit DialogProgram(const std::string& name = "zenity", const char* desktop = nullptr);

  /// Sets what the program prints at the next dialogs. Before the first call, it cancels them.
  void answer(const std::string& line) const { tmp_.write("answer", line + "\n"); }

  /// Returns the command line of the last dialog; empty if no dialog was opened.
  [[nodiscard]] std::vector<std::string> arguments() const;

 private:
  TempDir tmp_;
  ScopedEnv path_;
  ScopedEnv display_{"DISPLAY", ":0"};
  ScopedEnv remote_{"SSH_TTY", "none"};  // a dialog of its own, not one attached to a window
  ScopedEnv desktop_;
  ScopedEnv arguments_{"DIALOG_ARGUMENTS", tmp_.path("arguments")};
  ScopedEnv answer_{"DIALOG_ANSWER", tmp_.path("answer")};
};

}  // namespace vx::test
