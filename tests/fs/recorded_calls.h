// The file-system calls of the library, in order and as texts:
//
//   RecordedCalls calls;
//   EXPECT_TRUE(vx::fs::mkDir("a"));
//   EXPECT_EQ(calls.all(), lines("stat a", "stat a", "mkdir a 0777"));
//
// A program that uses this lists recorded_calls.cpp among its sources and ${RECORDED_CALLS} under
// WRAP. Without a `RecordedCalls` alive its calls go straight to the system.

#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/types.h>

namespace vx::test {

/// Records the calls that are made while it lives, one at a time. The texts are
///
///   stat PATH    mkdir PATH 0777   rmdir PATH   remove PATH   rename FROM TO
///   opendir PATH   readdir   closedir   realpath PATH   getcwd
///
/// and, for the streams of `watchStreamsIn`, "open NAME" and "close NAME".
class RecordedCalls {
 public:
  /// Runs when the call is about to be made. Its result is an `errno` with which the call fails, 0
  /// for a success without any call, or nothing for the real call to be made.
  using Script = std::function<std::optional<int>()>;

  RecordedCalls();
  RecordedCalls(const RecordedCalls&) = delete;
  RecordedCalls& operator=(const RecordedCalls&) = delete;
  ~RecordedCalls();

  /// Every call so far.
  [[nodiscard]] std::vector<std::string> all();

  /// How many calls have a text that begins like this.
  [[nodiscard]] std::size_t count(std::string_view beginning);

  /// Runs `script` each time that `call` is about to be made. The name alone, "mkdir", stands for
  /// every such call that no other script has decided; so in all of these.
  void script(std::string call, Script script);

  /// Runs `action` each time that `call` is about to be made, then makes it.
  void before(std::string call, std::function<void()> action);

  /// Makes `call` fail.
  void fail(std::string call, int error);

  /// Makes the next `call` fail, and that one only.
  void failOnce(std::string call, int error);

  /// Makes `call` report success without making it.
  void pretend(std::string call);

  /// Makes stat find an entry of this mode at `path`.
  void findAt(const std::string& path, mode_t mode);

  /// Makes readdir report this type (DT_DIR and so on) for every entry.
  void reportEntryType(unsigned char type) { entryType_ = type; }

  /// Records the opening and closing of the files right in `directory`, in order with the calls:
  /// those of file streams happen inside the standard library, where no call can be replaced.
  void watchStreamsIn(const std::string& directory);

  // For the replacements of the calls.

  /// What a replacement has to do, see `Script`.
  [[nodiscard]] static std::optional<int> onCall(const std::string& call);

  /// The mode that `findAt` has put at `path`.
  [[nodiscard]] static std::optional<mode_t> foundAt(const std::string& path);

  [[nodiscard]] static std::optional<unsigned char> entryType();

 private:
  std::optional<int> runScripts(const std::string& call);
  void recordStreams();

  std::vector<std::string> calls_;
  std::multimap<std::string, Script> scripts_;
  std::map<std::string, mode_t> modes_;
  std::optional<unsigned char> entryType_;
  int streams_ = -1;
};

}  // namespace vx::test
