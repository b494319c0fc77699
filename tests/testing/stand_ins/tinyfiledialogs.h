// A dialog library without a screen: it notes what it is asked to show and answers as it is told.
//
//   ScriptedDialogs dialogs("/tmp/a.png|/tmp/b.png");
//   EXPECT_EQ(vx::fs::browseFile("Pick", "", "", {}), "/tmp/a.png");
//   EXPECT_EQ(dialogs.calls(), lines("open", "title <Pick>", "path <>", ...));
//
// Link tinyfiledialogs.cpp into the test program: its definitions take the place of the library's.

#pragma once

#include <array>
#include <functional>
#include <string>
#include <vector>

/// The library's switch, defined here as where the library has it.
extern "C" int tinyfd_winUtf8;

namespace vx::test {

/// The dialogs of one test; one at a time. Without one, every dialog is cancelled.
class ScriptedDialogs {
 public:
  /// Answers every dialog with `answer`; a null pointer cancels.
  explicit ScriptedDialogs(const char* answer);
  ScriptedDialogs(const ScriptedDialogs&) = delete;
  ScriptedDialogs& operator=(const ScriptedDialogs&) = delete;
  ~ScriptedDialogs();

  /// Answers the dialogs that follow with `answer`, in the memory that held the answer before.
  void answer(const char* answer);

  /// Runs while a dialog is open, before its arguments are read.
  std::function<void()> whileOpen;

  /// Every call since the start: its kind ("open", "save", "folder"), then a line for each
  /// argument, in order, texts in angle brackets:
  ///
  ///   "open", "title <T>", "path <P>", "count 2", "pattern <*.png>", "pattern <*>",
  ///   "description <D>", "multiple 0"
  ///
  /// A null pointer in place of a text is "null", in place of the array "patterns null".
  [[nodiscard]] const std::vector<std::string>& calls() const noexcept { return calls_; }

 private:
  friend class DialogLibrary;

  std::vector<std::string> calls_;
  bool isCancelled_ = true;
  std::array<char, 1024> answer_ = {};
};

}  // namespace vx::test
