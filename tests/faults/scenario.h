// Lets every call that a function makes fail once, and checks each time what the function says,
// what it reports and what it leaves behind.
//
//   checkEveryFailure({
//       .call = calling([] { return vx::fs::mkDir("a"); }),
//       .clean = {.result = "true", .error = "0 mkDir: ", .disk = {"a/"}},
//       .rules = {{"mkdir a", {.result = "false",
//                              .log = {"error: Failed to create dir: a [err: {text}]."},
//                              .error = "{code} mkDir: {text}"}},
//                 ...}});
//
// The function runs in a fresh directory, which is the current one. A rule gives, for the failure
// of one call, the outcome that the public header promises. Every call that the function makes must
// have its rule, and every rule its call.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "tests/faults/fail_calls.h"
#include "tests/testing/temp_dir.h"

#include <cerrno>
#include <functional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace vx::test {

/// Everything that can be seen of a call. In the texts, "{tmp}" stands for the directory in which
/// it runs, "{code}" and "{text}" for the error that was injected, as number and in the system's
/// words, "{path}" for the first path in the call that failed, "{first}" and "{second}" for the
/// entries of the directory "d" in the order in which the system delivers them, "{exe}" for the
/// path of the running program and "{exedir}" for its directory.
struct Outcome {
  /// The result, as `shown`; a "*" stands for any text.
  std::string result = {};
  /// The lines that were logged, their level before them.
  std::vector<std::string> log = {};
  /// The current error as "CODE CONTEXT: MESSAGE", or "untouched".
  std::string error = "untouched";
  /// What lies in the directory, sorted: "dir/", "file: content", "link -> target",
  /// "archive.zip: {entry: content, ...}", a long content that is a beginning of `sequence` as its
  /// length. A "*" stands for any text.
  std::vector<std::string> disk = {};
  /// Names of files that may lie in the directory too, with any content.
  std::vector<std::string> maybe = {};
  /// Whether the archive is left open, with its memory and its file: a leak by design.
  bool leavesArchiveOpen = false;
};

/// What comes of the failure of a call.
struct Rule {
  /// The call as `WatchedCall::text`, "{tmp}" included; "#2" behind it takes the second one only,
  /// "*" at its end any rest.
  ///
  /// A call that the archive library makes has a rule as "fread#1 within mz_zip_end". Without one
  /// it counts as the failure of the library's call, or as none when that has coped with it.
  std::string call;
  Outcome outcome;
  /// The codes for which the rule holds; all of them when it is empty.
  std::vector<int> codes = {};
};

/// Runs the function under the watch, and shows its result when the watch has ended.
using ScenarioCall = std::function<std::string(CallWatch& watch)>;

struct Scenario {
  std::function<void(const TempDir& tmp)> arrange = {};
  ScenarioCall call;
  Outcome clean;
  std::vector<Rule> rules = {};
  /// Calls that fail every time, for what is done after a failure.
  std::vector<std::string> always = {};
  /// The calls of a clean run in order, where their order is promised; not checked when empty.
  std::vector<std::string> calls = {};
};

[[nodiscard]] std::string shown(bool value);
[[nodiscard]] std::string shown(long long value);
[[nodiscard]] std::string shown(const String& value);
[[nodiscard]] std::string shown(const StringVector& value);

/// The result of a form that fills an argument: "true, /home".
[[nodiscard]] std::string shown(const std::pair<bool, String>& value);

/// The scenario's call for a function and its arguments.
template <class Function>
[[nodiscard]] ScenarioCall calling(Function function) {
  return [function](CallWatch& watch) {
    const auto result = function();
    watch.stop();
    return shown(result);
  };
}

/// `length` bytes of which each stretch differs from every other.
[[nodiscard]] std::string sequence(std::size_t length);

/// The codes that are injected, but for those given.
[[nodiscard]] std::vector<int> allCodesBut(const std::vector<int>& without);

/// Runs the scenario without a fault, then once for every call and code. Then, for every call, with
/// all calls failing from that one on: whatever comes of that, nothing may be left open or
/// allocated.
void checkEveryFailure(const Scenario& scenario);

/// Runs the scenario without a fault only. Its rules are not looked at.
void checkCleanRun(const Scenario& scenario);

}  // namespace vx::test
