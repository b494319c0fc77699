// SPDX-License-Identifier: MIT
//
// The current error after each call, on each thread, and in destructors.

#include "core/vx_error.h"

#include "tests/testing/child.h"
#include "tests/testing/error_state.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>

#include <unistd.h>

namespace vx::test {
namespace {

using os::captureCurrentError;
using os::clearCurrentError;
using os::currentErrorContext;
using os::currentErrorMessage;
using os::setCurrentError;

class CurrentError : public testing::Test {
 protected:
  void SetUp() override { clearCurrentError(); }
  void TearDown() override { clearCurrentError(); }
};

using SetCurrentError = CurrentError;
using CaptureCurrentError = CurrentError;
using ClearCurrentError = CurrentError;

// ---- SetCurrentError ---------------------------------------------------------------------------

TEST_F(SetCurrentError, ReplacesTheWholeRecord) {
  setCurrentError(7, "first context", "first message");
  EXPECT_TRUE(currentErrorIs(7, "first context", "first message"));

  setCurrentError(0, "vx::Path::exePath()", "");
  EXPECT_TRUE(currentErrorIs(0, "vx::Path::exePath()", ""));

  setCurrentError(0, "", "third message");
  EXPECT_TRUE(currentErrorIs(0, "", "third message"));

  constexpr long long k64Bits = std::numeric_limits<long long>::min() + 1;
  setCurrentError(k64Bits, "", "");
  EXPECT_TRUE(currentErrorIs(k64Bits, "", ""));
}

// ---- CaptureCurrentError -----------------------------------------------------------------------

TEST_F(CaptureCurrentError, RecordsErrnoWithTheSystemsText) {
  for (const int code : {ENOENT, EEXIST, ENAMETOOLONG, /*unknown to the system*/ 4000}) {
    const String operation("mkDir");
    setCurrentError(-7, "a context", "a message that is longer than the text of the system");
    errno = code;

    captureCurrentError(operation);
    errno = EACCES;

    EXPECT_TRUE(currentErrorIs(code, "mkDir", errnoText(code)));
  }
}

TEST_F(CaptureCurrentError, HasNoMessageIfErrnoIs0) {
  const String operation("mkDir");
  setCurrentError(7, "context", "message");
  errno = 0;

  captureCurrentError(operation);

  EXPECT_TRUE(currentErrorIs(0, "mkDir", ""));
}

// ---- ClearCurrentError -------------------------------------------------------------------------

TEST_F(ClearCurrentError, ResetsTheRecordAndErrno) {
  setCurrentError(7, "context", "message");
  errno = EACCES;

  clearCurrentError();

  EXPECT_EQ(errno, 0);
  EXPECT_TRUE(currentErrorIs(0, "", ""));
}

// ---- All of them -------------------------------------------------------------------------------

TEST_F(CurrentError, RemainsAfterItIsRead) {
  setCurrentError(7, "context", "message");
  errno = EACCES;

  EXPECT_TRUE(currentErrorIs(7, "context", "message"));

  EXPECT_EQ(errno, EACCES);
  EXPECT_TRUE(currentErrorIs(7, "context", "message"));
}

TEST_F(CurrentError, IsNoneOnANewThread) {
  setCurrentError(1, "main context", "main message");

  std::thread([] {
    EXPECT_TRUE(currentErrorIs(0, "", ""));
    setCurrentError(2, "other context", "other message");
    EXPECT_TRUE(currentErrorIs(2, "other context", "other message"));
    clearCurrentError();
  }).join();

  EXPECT_TRUE(currentErrorIs(1, "main context", "main message"));
}

constexpr int kFoundRight = 7;

/// Uses the current error in its destructor and ends the process.
struct UsesTheErrorWhenDestroyed {
  const bool& isRecordGone;

  ~UsesTheErrorWhenDestroyed() {
    bool isRight = isRecordGone ? currentErrorIs(0, "", "") : currentErrorIs(5, "set", "before");
    for (const int code : {ENOENT, EEXIST}) {
      const String operation("an operation of a destructor");
      errno = code;
      captureCurrentError(operation);
      isRight = isRight && capturedErrorIs(code, "an operation of a destructor");
    }
    clearCurrentError();
    isRight = isRight && currentErrorIs(0, "", "");
    ::_exit(isRight ? kFoundRight : 1);
  }
};

TEST_F(CurrentError, MayBeUsedByAStaticObjectsDestructor) {
  const ChildEnd end = endOfChild([] {
    // C++ libraries differ in whether they destroy all thread-local objects of the main thread
    // first.
    static bool areThreadLocalsGone = false;
    static const UsesTheErrorWhenDestroyed late{areThreadLocalsGone};
    thread_local const struct Probe {
      ~Probe() { areThreadLocalsGone = true; }
    } probe;
    setCurrentError(5, "set", "before");
    std::exit(0);
  });

  EXPECT_EQ(end.exitCode, kFoundRight);
}

TEST_F(CurrentError, MayBeUsedByAThreadLocalDestructor) {
  const ChildEnd end = endOfChild([] {
    std::thread([] {
      static const bool isRecordGone = true;
      // Older than the record of this thread, thus destroyed after it.
      thread_local const UsesTheErrorWhenDestroyed older{isRecordGone};
      setCurrentError(5, "set", "before");
    }).join();
  });

  EXPECT_EQ(end.exitCode, kFoundRight);
}

}  // namespace
}  // namespace vx::test
