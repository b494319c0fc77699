// Concern: what the current error holds after each way to set it, and that it is each thread's own.

#include "core/vx_error.h"

#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <future>
#include <limits>
#include <string>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

// The library must not ask the call whose text all threads share: here it has no text to give.
// NOLINTNEXTLINE(bugprone-reserved-identifier): the name that the linker's --wrap asks for
extern "C" char* __wrap_strerror(int /*code*/) {
  static char sharedByAllThreads[] = "the text of another thread's error";
  return sharedByAllThreads;
}

namespace {

using vx::String;
using vx::os::captureCurrentError;
using vx::os::clearCurrentError;
using vx::os::currentErrorCode;
using vx::os::currentErrorContext;
using vx::os::currentErrorMessage;
using vx::os::setCurrentError;
using vx::test::capturedErrorIs;
using vx::test::ChildEnd;
using vx::test::currentErrorIs;
using vx::test::endOfChild;
using vx::test::errnoText;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::TempDir;

static_assert(std::is_same_v<decltype(currentErrorCode()), long long>);
static_assert(std::is_same_v<decltype(currentErrorMessage()), String>);
static_assert(std::is_same_v<decltype(currentErrorContext()), String>);
static_assert(noexcept(currentErrorMessage()));

class CurrentError : public testing::Test {
 protected:
  void SetUp() override { clearCurrentError(); }
  void TearDown() override { clearCurrentError(); }
};

// ---- Set and cleared ---------------------------------------------------------------------------

TEST(CurrentErrorOfAThread, IsNoneAtFirst) {
  std::thread([] {
    EXPECT_TRUE(currentErrorIs(0, "", ""));
    EXPECT_STREQ(currentErrorMessage().buf(), "");
  }).join();
}

TEST_F(CurrentError, IsTheRecordThatWasSet) {
  setCurrentError(0, "vx::Path::exePath()", "Could not get the path");

  EXPECT_TRUE(currentErrorIs(0, "vx::Path::exePath()", "Could not get the path"));
}

TEST_F(CurrentError, HoldsCodesOf64Bits) {
  for (const long long code : {1LL, -1LL, 0x1'0000'0000LL, std::numeric_limits<long long>::max(),
                               std::numeric_limits<long long>::min()}) {
    setCurrentError(code, "context", "message");

    EXPECT_TRUE(currentErrorIs(code, "context", "message"));
  }
}

TEST_F(CurrentError, IsReplacedAsAWhole) {
  setCurrentError(7, "first context", "first message");

  setCurrentError(0, "", "second message");
  EXPECT_TRUE(currentErrorIs(0, "", "second message"));

  setCurrentError(0, "third context", "");
  EXPECT_TRUE(currentErrorIs(0, "third context", ""));
}

TEST_F(CurrentError, PersistsWhenItIsRead) {
  setCurrentError(7, "context", "message");

  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(currentErrorCode(), 7);
    EXPECT_EQ(currentErrorContext(), "context");
    EXPECT_EQ(currentErrorMessage(), "message");
  }
}

TEST_F(CurrentError, KeepsItsTextsWhenTheHandlesThatWereGivenChange) {
  String context("context");
  String message("message");
  setCurrentError(7, context, message);

  context << "!";
  message << "!";

  EXPECT_TRUE(currentErrorIs(7, "context", "message"));
}

TEST_F(CurrentError, GivesTextsThatOutliveIt) {
  setCurrentError(7, "context", "message");
  const String context = currentErrorContext();
  const String message = currentErrorMessage();

  clearCurrentError();

  EXPECT_EQ(context, "context");
  EXPECT_EQ(message, "message");
}

TEST_F(CurrentError, IsNoneWhenItIsCleared) {
  setCurrentError(7, "context", "message");

  clearCurrentError();

  EXPECT_TRUE(currentErrorIs(0, "", ""));
}

TEST_F(CurrentError, TakesErrnoWithItWhenItIsCleared) {
  errno = EACCES;

  clearCurrentError();

  EXPECT_EQ(errno, 0);
}

// ---- Captured ----------------------------------------------------------------------------------

TEST_F(CurrentError, IsTheErrorOfTheSystemWhenItIsCaptured) {
  for (const int code : {EPERM, ENOENT, EEXIST, ENOTDIR, EACCES, ENAMETOOLONG, ELOOP}) {
    const String operation("mkDir");
    errno = code;

    captureCurrentError(operation);

    EXPECT_TRUE(currentErrorIs(code, "mkDir", errnoText(code)));
    EXPECT_FALSE(currentErrorMessage().isEmpty());
  }
}

TEST_F(CurrentError, NamesACodeThatTheSystemDoesNotKnow) {
  // Beyond 4095 some standard libraries, which the expectation asks, no longer ask the system.
  constexpr int kUnknown = 4'000;
  const String operation("mkDir");
  errno = kUnknown;

  captureCurrentError(operation);

  EXPECT_TRUE(currentErrorIs(kUnknown, "mkDir", errnoText(kUnknown)));
}

TEST_F(CurrentError, KeepsTheOperationAsItIsNamed) {
  for (const char* const name : {"mkDir", "rmDir", "vx::os::something()", "", "\xC3\xA4 b"}) {
    const String operation(name);
    errno = ENOENT;

    captureCurrentError(operation);

    EXPECT_TRUE(currentErrorIs(ENOENT, name, errnoText(ENOENT)));
  }
}

TEST_F(CurrentError, HasNoMessageWhenNothingFailedSinceItWasCleared) {
  setCurrentError(7, "context", "message");
  clearCurrentError();

  captureCurrentError("mkDir");

  EXPECT_TRUE(currentErrorIs(0, "mkDir", ""));
}

TEST_F(CurrentError, IsReplacedAsAWholeByACapture) {
  setCurrentError(-7, "a context", "a message that is longer than the text of the system");
  const String operation("rmDir");
  errno = ENOTEMPTY;

  captureCurrentError(operation);

  EXPECT_TRUE(currentErrorIs(ENOTEMPTY, "rmDir", errnoText(ENOTEMPTY)));
}

TEST_F(CurrentError, DoesNotFollowErrnoAfterTheCapture) {
  const String operation("mkDir");
  errno = EEXIST;
  captureCurrentError(operation);

  errno = EACCES;

  EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
}

TEST_F(CurrentError, IsThatOfTheCallInTheBracket) {
  const TempDir tmp;
  const std::string blocker = tmp.write("file", "text");
  const String operation = String("mkDir").fromLast(':', false);

  clearCurrentError();
  const int status = ::mkdir(blocker.c_str(), 0777);
  captureCurrentError(operation);

  EXPECT_EQ(status, -1);
  EXPECT_TRUE(currentErrorIs(EEXIST, "mkDir", errnoText(EEXIST)));
}

TEST_F(CurrentError, IsNoErrorUnderTheNameOfACallThatSucceeded) {
  const TempDir tmp;
  const std::string path = tmp.path("new");
  const String operation("mkDir");
  errno = EACCES;  // of some earlier call

  clearCurrentError();
  const int status = ::mkdir(path.c_str(), 0777);
  captureCurrentError(operation);

  EXPECT_EQ(status, 0);
  EXPECT_TRUE(currentErrorIs(0, "mkDir", ""));
}

// ---- Threads -----------------------------------------------------------------------------------

TEST_F(CurrentError, IsEachThreadsOwn) {
  std::promise<void> mainHasSet;
  std::promise<void> otherHasSet;
  std::thread other([&] {
    mainHasSet.get_future().wait();
    EXPECT_TRUE(currentErrorIs(0, "", ""));
    setCurrentError(2, "other context", "other message");
    otherHasSet.set_value();
  });

  setCurrentError(1, "main context", "main message");
  mainHasSet.set_value();
  otherHasSet.get_future().wait();

  EXPECT_TRUE(currentErrorIs(1, "main context", "main message"));
  other.join();
  EXPECT_TRUE(currentErrorIs(1, "main context", "main message"));
}

TEST_F(CurrentError, IsClearedForItsOwnThreadOnly) {
  setCurrentError(1, "main context", "main message");

  std::thread([] { clearCurrentError(); }).join();

  EXPECT_TRUE(currentErrorIs(1, "main context", "main message"));
}

TEST_F(CurrentError, IsCapturedOnSeveralThreadsAtOnce) {
  std::vector<std::thread> threads;
  for (const int code : {ENOENT, EEXIST, EACCES, ENOTDIR}) {
    threads.emplace_back([code] {
      const String operation("mkDir");
      for (int round = 0; round < 2000; ++round) {
        clearCurrentError();
        errno = code;
        captureCurrentError(operation);
        ASSERT_TRUE(capturedErrorIs(code, "mkDir"));
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

TEST_F(CurrentError, IsHandedToAnotherThreadByItsTexts) {
  setCurrentError(1, "context", "message");

  std::thread([context = currentErrorContext(), message = currentErrorMessage()]() mutable {
    setCurrentError(2, std::move(context), std::move(message));
    EXPECT_TRUE(currentErrorIs(2, "context", "message"));
  }).join();

  EXPECT_TRUE(currentErrorIs(1, "context", "message"));
}

// ---- When all is over --------------------------------------------------------------------------

constexpr int kFoundRight = 7;

/// In its destructor uses the current error, several times, and ends the process.
struct UsesTheErrorWhenItGoes {
  ~UsesTheErrorWhenItGoes() {
    bool isRight = currentErrorIs(0, "", "");
    for (const int code : {ENOENT, EEXIST}) {
      const String operation("the operation of an object that goes");
      errno = code;
      captureCurrentError(operation);
      isRight = isRight && capturedErrorIs(code, "the operation of an object that goes");
    }
    clearCurrentError();
    isRight = isRight && currentErrorIs(0, "", "");
    ::_exit(isRight ? kFoundRight : 1);
  }
};

TEST_F(CurrentError, MayBeUsedByTheDestructorOfAStaticObject) {
  const ChildEnd end = endOfChild([] {
    static const UsesTheErrorWhenItGoes late;
    setCurrentError(5, "a context of the main thread", "a message of the main thread");
    std::exit(0);
  });

  EXPECT_EQ(end.exitCode, kFoundRight);
}

TEST_F(CurrentError, MayBeUsedByTheDestructorOfAnotherObjectOfTheThread) {
  const ChildEnd end = endOfChild([] {
    std::thread([] {
      thread_local const UsesTheErrorWhenItGoes older;  // than the record of this thread
      setCurrentError(5, "a context of the thread", "a message of the thread");
    }).join();
  });

  EXPECT_EQ(end.exitCode, kFoundRight);
}

// ---- Nothing else happens ----------------------------------------------------------------------

TEST_F(CurrentError, IsNeverLogged) {
  const LogCapture log;
  const String operation("mkDir");

  setCurrentError(7, "context", "message");
  errno = EEXIST;
  captureCurrentError(operation);
  EXPECT_EQ(currentErrorMessage(), errnoText(EEXIST).c_str());
  clearCurrentError();

  EXPECT_EQ(log.all(), lines());
}

}  // namespace
