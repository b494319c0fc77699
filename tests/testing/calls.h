// SPDX-License-Identifier: MIT
//
// Records the calls that the code under test makes, and answers them as a test specifies.
//
//   Calls calls;
//   calls.fail("mkdir a/b", EACCES);
//   EXPECT_FALSE(vx::fs::mkDir("a/b"));
//   EXPECT_EQ(calls.all("mkdir"), lines("mkdir a 0777", "mkdir a/b 0777"));
//
// A test program gets it by the keyword CALLS of `vx_test`. It replaces functions at link time, so
// the library contains no hook for it.

#pragma once

#include <array>
#include <cerrno>
#include <cstddef>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace vx::test {

/// A recorded call.
struct Call {
  std::string text{};         ///< the name and the arguments, "rename a b"
  std::string within{};       ///< the miniz call during which it was made, if any
  bool withinFailed = false;  ///< whether that miniz call returned a failure
  bool takesErrno = true;     ///< whether a failure of the call sets `errno`
  bool isDetail = false;      ///< made by an underlying library, see `Calls::all`
  bool isAnswered = false;    ///< by the test
};

/// The result of a call that is not made.
struct Answer {
  bool fails = false;
  int error = 0;        ///< for `errno`, unless 0
  long long value = 0;  ///< the result, or the value of `Calls::answer`
  std::string text{};
};

/// Observes the calls of this thread during its lifetime. There is one object at a time.
///
/// Records the calls of
///
///   stat PATH   mkdir PATH 0777   rmdir PATH   remove PATH   rename FROM TO   utime PATH
///   opendir PATH   readdir   closedir   realpath PATH   readlink PATH   getcwd
///   fopen PATH MODE   freopen PATH MODE   fclose   fseeko OFFSET WHENCE   ftello
///   fread SIZE COUNT   fwrite SIZE COUNT   fflush   read   write   writev
///   localtime_r   mktime   strerror CODE
///   malloc   calloc   realloc      as miniz calls them
///   mz_zip_... ARGUMENTS           without the archive, a null pointer as "null"
///   tinyfd_... <TEXT> NUMBER ...   texts in angle brackets, a null pointer as "null"
///
/// Dialogs are not shown: without an answer they are cancelled. A null path is "null". The 64-bit
/// forms (stat64, fopen64, ...) count as the plain calls. Calls of `TempDir` and of the actions
/// given here are unobserved.
///
/// A selector is the beginning of a call's text, up to the end of a word: "mkdir", "mkdir a" and
/// "mkdir a 0777" select the same call, "mkdir a" does not select "mkdir a/b 0777". The empty
/// selector selects every call. Of several actions for a call, the first that answers it applies.
class Calls {
 public:
  Calls();
  Calls(const Calls&) = delete;
  Calls& operator=(const Calls&) = delete;
  ~Calls();

  /// Returns the texts of the calls, in order, except the details of the underlying libraries:
  /// calls within a miniz call or by the heap, and read, write and writev by file streams.
  [[nodiscard]] std::vector<std::string> all() const;

  /// Returns the selected calls, including those details.
  [[nodiscard]] std::vector<std::string> all(std::string_view selector) const;
  [[nodiscard]] std::size_t count(std::string_view selector) const;
  [[nodiscard]] const std::vector<Call>& records() const noexcept { return records_; }

  /// Makes every selected call fail. Calls that set no `errno` ignore the error; with the error 0,
  /// readdir reports the end of the directory. Calls that release something (fclose, closedir,
  /// mz_zip_end, ...) release it before they fail.
  void fail(std::string selector, int error = EIO);

  /// Makes the n-th selected call fail, counted from 1.
  void failNth(std::string selector, int nth, int error = EIO);

  /// Makes the selected calls report success without being made. They set `errno` unless `error` is
  /// 0.
  void succeed(std::string selector, int error = 0);

  /// Makes the selected calls return `value` without being made. For stat it is the mode of the
  /// entry, for readdir the type (DT_DIR, ...) of the entry, which is still read.
  void answer(std::string selector, long long value);

  /// As above for the text that a dialog, readlink or strerror returns; at most 4,095 bytes.
  void answer(std::string selector, std::string text);

  /// Kills the process instead of making the n-th selected call.
  void kill(std::string selector, int nth = 1);

  /// Runs `action` before each selected call. An action may return a `std::optional<int>`: an
  /// `errno` with which the call fails, 0 if it succeeds without being made, and nothing if it is
  /// to be made.
  template <class Action>
  void onCall(std::string selector, Action action) {
    if constexpr (std::is_void_v<std::invoke_result_t<Action&>>) {
      add(std::move(selector), [action = std::move(action)]() mutable -> std::optional<Answer> {
        action();
        return std::nullopt;
      });
    } else {
      add(std::move(selector), [action = std::move(action)]() mutable -> std::optional<Answer> {
        const std::optional<int> error = action();
        return error ? std::optional(Answer{.fails = *error != 0, .error = *error}) : std::nullopt;
      });
    }
  }

  /// Adds a line, such as a logged one, to the recorded calls.
  void note(std::string line);

  /// Ends the archive that the last call to miniz left open. Returns whether there was one.
  bool endArchiveLeftOpen();

 private:
  friend class Turn;
  using Decide = std::function<std::optional<Answer>()>;

  struct Rule {
    std::string selector;
    Decide decide;
  };

  void add(std::string selector, Decide decide);
  std::optional<Answer> decide(const std::string& text);

  std::vector<Call> records_;
  std::deque<Rule> rules_;
  std::string within_;
  std::array<char, 4096> text_{};  // of the last answer
};

/// Returns whether `selector` selects a call with this text.
[[nodiscard]] bool selects(std::string_view selector, std::string_view text);

}  // namespace vx::test
