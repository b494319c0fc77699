// The calls that the module makes to the system, to the C library and to the libraries beneath it:
// watched one by one, and one of them made to fail.
//
//   CallWatch watch({.call = 2, .code = ENOSPC});  // the second call fails
//   const bool result = vx::fs::mkDir("a/b");
//   watch.stop();
//   EXPECT_EQ(watch.calls()[1].text, "stat a");
//
// It works at link time: a program that links this defines the system's functions itself and passes
// each call on to the next definition, which also catches the calls of the C++ library's file
// streams. The calls to the archive and the dialog library, and those of the archive library to the
// heap, are redirected by the linker (--wrap). The library under test has no part in it.

#pragma once

#include "tests/testing/live_blocks.h"

#include <cstddef>
#include <string>
#include <vector>

namespace vx::test {

struct WatchedCall {
  std::string text;           ///< the name and the texts among the arguments, "rename a b"
  std::string within;         ///< the call to the archive library in which it was made, if in one
  bool withinFailed = false;  ///< whether that call has reported a failure
  bool takesErrno = true;     ///< whether the call fails with a code of the caller's choice
};

/// What goes wrong, and when.
struct Fault {
  std::size_t call = 0;   ///< the number of the call, from 1; 0 for none
  int code = 0;           ///< what the call leaves in `errno`, where it leaves a code at all
  bool persists = false;  ///< whether all calls after it fail as well
  bool kills = false;     ///< whether the process is killed in place of the call
  /// Calls, as `WatchedCall::text`, that fail every time, and are not counted.
  std::vector<std::string> always = {};
};

/// Watches from its construction until `stop`. One at a time, on one thread.
///
/// A call that fails does nothing but set `errno`, except for those that give something back
/// whatever their result: they give it back and then fail.
class CallWatch {
 public:
  explicit CallWatch(Fault fault = {});
  CallWatch(const CallWatch&) = delete;
  CallWatch& operator=(const CallWatch&) = delete;
  ~CallWatch();

  void stop() noexcept;

  [[nodiscard]] const std::vector<WatchedCall>& calls() const noexcept { return calls_; }

  /// The blocks of memory that were allocated while watching and are still there.
  [[nodiscard]] std::size_t liveBlocks() const noexcept { return blocks_.count(); }

  /// What a dialog answers; while nothing is set, it is cancelled.
  void answerDialogs(const std::string& answer);

  /// What every symbolic link says that is read.
  void answerLinks(const std::string& target);

 private:
  friend class Turn;
  friend class ArchiveTurn;
  friend struct Answers;

  std::vector<WatchedCall> calls_;
  Fault fault_;
  std::string dialogAnswer_;
  std::string linkTarget_;
  LiveBlocks blocks_;
};

/// Ends the archive that the last call to the archive library's writer was about, where the module
/// has left it open, with the library's own function. Returns whether there was one.
bool endAbandonedArchive();

}  // namespace vx::test
