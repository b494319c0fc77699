// SPDX-License-Identifier: MIT
//
// Makes each call of a function fail once.
//
//   forEachFailure([](FailureRun& run) {
//     run.tmp.mkdir("a");
//
//     const bool made = run.act([] { return vx::fs::mkDir("a/b"); });
//
//     EXPECT_EQ(made, !run.failed("mkdir"));
//   });
//
// The body runs once without a failure, then for every call that `act` makes, with every error that
// the call may report. It states the expected outcome in plain code. After each run the loop checks
// that `act` has left no descriptor open and no block of memory allocated.
//
// A test program gets it by the keyword CALLS of `vx_test`.

#pragma once

#include "tests/testing/calls.h"
#include "tests/testing/memory_use.h"
#include "tests/testing/sandbox.h"
#include "tests/testing/unobserved.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace vx::test {

/// One run, in its own sandbox.
class FailureRun : public Sandbox {
 public:
  /// Which call fails: its number from 1, or 0 for none.
  struct Plan {
    std::size_t number = 0;
    int error = 0;
    bool lasts = false;  ///< whether the calls after it fail too
  };

  FailureRun(const Plan& plan, std::optional<LiveBlocks>& blocks) : plan_(plan), blocks_(blocks) {}

  /// Runs the function under test. Call it once; only calls within it are observed and fail.
  template <class Function>
  auto act(Function function) {
    begin();
    struct End {
      ~End() { run->end(); }
      FailureRun* run;
    } const end{this};
    return function();
  }

  /// Returns whether the call that failed is selected (see `Calls`). A call within miniz counts as
  /// the miniz call if that reported the failure, and as none if it did not.
  [[nodiscard]] bool failed(std::string_view selector) const;

  /// As above, for the n-th call with exactly this text.
  [[nodiscard]] bool failed(std::string_view text, int nth) const;

  /// Returns whether any call failed, in the same sense.
  [[nodiscard]] bool failedAny() const { return failed(""); }

  /// Returns the call that failed, also if miniz made it; empty in the run without a failure.
  [[nodiscard]] std::string failedCall() const;

  /// Return the `errno` of the failed call and the system's text for it.
  [[nodiscard]] int error() const noexcept { return plan_.error; }
  [[nodiscard]] std::string errorText() const { return errnoText(plan_.error); }

  /// The calls of `act`. Answers that the body sets here apply too; the calls that they answer are
  /// not made to fail.
  Calls calls;

 private:
  void begin();
  void end();

  Plan plan_;
  std::optional<LiveBlocks>& blocks_;
  std::optional<Unobserved> outside_{std::in_place};  // `act`
};

using FailureBody = std::function<void(FailureRun& run)>;

void forEachFailure(const FailureBody& body);

/// As `forEachFailure`, but all later calls fail too. The body need not check the outcome; the loop
/// checks that nothing leaks.
void forEachLastingFailure(const FailureBody& body);

}  // namespace vx::test
