// SPDX-License-Identifier: MIT

#include "tests/testing/failures.h"

#include "tests/testing/scoped.h"

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <filesystem>
#include <set>
#include <vector>

#include <unistd.h>

namespace vx::test {
namespace {

constexpr int kErrors[] = {EACCES, ENOSPC, EIO,          EMFILE, ENOENT,
                           EEXIST, ELOOP,  ENAMETOOLONG, EINTR,  EROFS};

std::set<std::string> openFiles() {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;  // the listing's own descriptor is gone when it is looked at
    const auto target = std::filesystem::read_symlink(entry.path(), ignored);
    if (!ignored && !target.string().starts_with("/proc/")) {
      files.insert(entry.path().filename().string() + " " + target.string());
    }
  }
  return files;
}

/// Runs the body once. @return the calls that `act` has made.
std::vector<Call> runOnce(const FailureBody& body, const FailureRun::Plan& plan) {
  const std::set<std::string> filesBefore = openFiles();
  std::optional<LiveBlocks> blocks;
  std::vector<Call> calls;
  {
    FailureRun run(plan, blocks);
    body(run);
    calls = run.calls.records();
  }
  if (!blocks) {
    ADD_FAILURE() << "the body does not act";
    return {};
  }
  EXPECT_EQ(blocks->count(), 0U) << "blocks of memory are left behind";
  EXPECT_EQ(openFiles(), filesBefore) << "a descriptor is left open, or one too many was closed";
  return calls;
}

void runEach(const FailureBody& body, bool lasts) {
  // Without it the C library looks for the zone at every question, and allocates its name; a call
  // may need it only after another has failed.
  const ScopedTimeZone utc("UTC0");
  std::optional<ScopedEnv> inMemory;
  if (::access("/dev/shm", W_OK) == 0) {
    inMemory.emplace("TMPDIR", "/dev/shm");
  }
  // What the C library allocates once and for all does not count: the first run is repeated.
  {
    std::optional<LiveBlocks> blocks;
    FailureRun run({}, blocks);
    body(run);
  }
  const std::vector<Call> calls = runOnce(body, {});
  for (std::size_t i = 0; i < calls.size() && !testing::Test::HasFailure(); ++i) {
    if (calls[i].isAnswered) {
      continue;
    }
    std::vector<int> errors(std::begin(kErrors), std::end(kErrors));
    if (lasts || !calls[i].takesErrno) {
      errors = {calls[i].takesErrno ? EIO : ENOMEM};
    }
    for (const int error : errors) {
      SCOPED_TRACE("call " + std::to_string(i + 1) + ", " + calls[i].text +
                   (calls[i].within.empty() ? "" : " within " + calls[i].within) +
                   (lasts ? ", and all later ones fail: " : ", fails: ") + errnoText(error));
      const std::vector<Call> made = runOnce(body, {i + 1, error, lasts});
      EXPECT_GT(made.size(), i) << "the call is not made this time";
      if (testing::Test::HasFailure()) {
        break;  // the other errors would say the same
      }
    }
  }
}

}  // namespace

bool FailureRun::failed(std::string_view selector) const {
  if (plan_.number == 0 || plan_.number > calls.records().size()) {
    return false;
  }
  const Call& call = calls.records()[plan_.number - 1];
  if (call.within.empty()) {
    return selects(selector, call.text);
  }
  return call.withinFailed && selects(selector, call.within);
}

bool FailureRun::failed(std::string_view text, int nth) const {
  const auto& records = calls.records();
  return failed(text) && records[plan_.number - 1].within.empty() &&
         std::count_if(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(plan_.number),
                       [&](const Call& call) {
                         return call.within.empty() && selects(text, call.text);
                       }) == nth;
}

std::string FailureRun::failedCall() const {
  const bool isMade = plan_.number != 0 && plan_.number <= calls.records().size();
  return isMade ? calls.records()[plan_.number - 1].text : std::string();
}

void FailureRun::begin() {
  calls.onCall("", [this]() -> std::optional<int> {
    const std::size_t number = calls.records().size();
    const bool fails =
        number == plan_.number || (plan_.lasts && plan_.number != 0 && number > plan_.number);
    return fails ? std::optional(plan_.error) : std::nullopt;
  });
  outside_.reset();
  blocks_.emplace();
}

void FailureRun::end() {
  blocks_->stop();
  outside_.emplace();
}

void forEachFailure(const FailureBody& body) {
  runEach(body, /*lasts=*/false);
}

void forEachLastingFailure(const FailureBody& body) {
  runEach(body, /*lasts=*/true);
}

}  // namespace vx::test
