// SPDX-License-Identifier: MIT
//
// The bytes of a line, where it is written, what a sink may do, threads and `fork`.

#include "core/vx_log.h"

#include "core/vx_error.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pthread.h>
#include <sys/socket.h>
#include <unistd.h>

namespace vx::test {
namespace {

/// Replaces standard error by another descriptor for a scope.
class RedirectedStandardError {
 public:
  explicit RedirectedStandardError(int target) : before_(::dup(STDERR_FILENO)) {
    ::dup2(target, STDERR_FILENO);
  }
  RedirectedStandardError(const RedirectedStandardError&) = delete;
  RedirectedStandardError& operator=(const RedirectedStandardError&) = delete;
  ~RedirectedStandardError() {
    ::dup2(before_, STDERR_FILENO);
    ::close(before_);
  }

 private:
  int before_;
};

/// Returns what `act` writes to standard error.
template <class Act>
std::string standardErrorOf(Act act) {
  const TempDir tmp;
  const int file = ::open(tmp.path("stderr").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  {
    const RedirectedStandardError redirected(file);
    act();
  }
  ::close(file);
  return tmp.read("stderr");
}

/// Returns the writes that `act` makes to standard error. A socket of this kind keeps the bytes of
/// each write together.
template <class Act>
std::vector<std::string> writesOf(Act act) {
  int ends[2] = {};
  EXPECT_EQ(::socketpair(AF_UNIX, SOCK_SEQPACKET, 0, ends), 0);
  {
    const RedirectedStandardError redirected(ends[0]);
    act();
  }
  std::vector<std::string> writes;
  std::vector<char> buffer(1 << 20);
  for (;;) {
    const ssize_t length = ::recv(ends[1], buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (length <= 0) {
      break;
    }
    writes.emplace_back(buffer.data(), static_cast<std::size_t>(length));
  }
  ::close(ends[0]);
  ::close(ends[1]);
  return writes;
}

/// Forks 200 children while four threads log, and expects each child to log a line and to end.
void forkWhileThreadsLog() {
  std::atomic<bool> isDone = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&isDone] {
      while (!isDone) {
        logWarning("a line of the parent");
        std::this_thread::yield();
      }
    });
  }
  for (int i = 0; i < 200 && !testing::Test::HasFailure(); ++i) {
    runInChild([] { logError("a line of the child"); });
  }
  isDone = true;
  for (std::thread& thread : threads) {
    thread.join();
  }
}

/// The lines of a sink, level and text.
using Seen = std::vector<std::pair<LogLevel, std::string>>;

LogSink keeping(Seen& seen) {
  return [&seen](LogLevel level, String line) { seen.emplace_back(level, text(line)); };
}

// ---- LevelName ---------------------------------------------------------------------------------

TEST(LevelName, NamesEachLevel) {
  EXPECT_STREQ(vx::levelName(LogLevel::Error), "error");
  EXPECT_STREQ(vx::levelName(LogLevel::Warning), "warning");
}

// ---- LogError, LogWarning ----------------------------------------------------------------------

TEST(LogError, WritesOneFormattedLineAsLogWarningDoes) {
  EXPECT_EQ(standardErrorOf([] {
              logWarning("Failed to find home dir: %s", "/x");
              logError("Failed to extract filename %llu from archive.", 18446744073709551615ULL);
              logError("100%% %d %c %5.1f|%s|", -1, 'x', 0.25, "%s%n");
              logError("%s", "");
            }),
            "warning: Failed to find home dir: /x\n"
            "error: Failed to extract filename 18446744073709551615 from archive.\n"
            "error: 100% -1 x   0.2|%s%n|\n"
            "error: \n");
}

TEST(LogError, EscapesOnlyControlCharacters) {
  EXPECT_EQ(standardErrorOf([] {
              logError("%s", "a\nerror: forged\r\n");
              logError("%s", "\x1b[2J\tx");
              logError("%c|%s", '\0', "\x01\x10\x1f\x7f");
              logError("%s", " C:\\new ~ w\xC3\xB6od \x80\xFF");
            }),
            "error: a\\nerror: forged\\r\\n\n"
            "error: \\x1b[2J\\tx\n"
            "error: \\x00|\\x01\\x10\\x1f\\x7f\n"
            "error:  C:\\new ~ w\xC3\xB6od \x80\xFF\n");
}

TEST(LogError, WritesEachLineInOneCall) {
  for (const std::size_t length : {511U, 512U, 513U, 100'000U}) {
    SCOPED_TRACE(length);
    const std::string content = std::string(length - 1, 'x') + '$';

    EXPECT_EQ(writesOf([&] {
                logError("%s", content.c_str());
                logWarning("last");
              }),
              lines("error: " + content + "\n", "warning: last\n"));
  }
}

TEST(LogError, WritesAnEmptyLineIfFormattingFails) {
  const wchar_t unencodable[] = {static_cast<wchar_t>(0xD800), 0};

  EXPECT_EQ(standardErrorOf([&] { logError("%ls", unencodable); }), "error: \n");
}

TEST(LogError, IgnoresAClosedDescriptor) {
  runInChild([] {
    const ErrorStateSentinel sentinel;
    ::close(STDERR_FILENO);
    errno = ENOENT;

    logError("lost");

    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(sentinel.isUntouched());
  });
}

TEST(LogError, IgnoresAFullDevice) {
  const int full = ::open("/dev/full", O_WRONLY | O_CLOEXEC);
  if (full == -1) {
    GTEST_SKIP() << "there is no /dev/full here";
  }
  {
    const RedirectedStandardError redirected(full);
    logError("lost");
  }
  ::close(full);

  EXPECT_EQ(standardErrorOf([] { logError("written"); }), "error: written\n");
}

TEST(LogError, RaisesSigpipeWithoutAReader) {
  const ChildEnd end = endOfChild([] {
    int ends[2] = {};
    ASSERT_EQ(::pipe(ends), 0);
    ::close(ends[0]);
    ::dup2(ends[1], STDERR_FILENO);
    std::signal(SIGPIPE, SIG_DFL);

    logError("lost");
  });

  EXPECT_EQ(end.signal, SIGPIPE);
}

TEST(LogError, NeverMixesTheLinesOfThreads) {
  const std::string longText(5000, 'x');

  const std::string written = standardErrorOf([&] {
    std::vector<std::thread> threads;
    for (const std::string& content : {std::string("a"), std::string(700, 'b'), longText}) {
      threads.emplace_back([content] {
        for (int i = 0; i < 200; ++i) {
          logError("%s", content.c_str());
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  });

  std::map<std::string, int> counts;
  std::istringstream all(written);
  for (std::string line; std::getline(all, line);) {
    ++counts[line];
  }
  EXPECT_EQ(counts, (std::map<std::string, int>{{"error: a", 200},
                                                {"error: " + std::string(700, 'b'), 200},
                                                {"error: " + longText, 200}}));
}

TEST(LogError, MayBeCalledInAChildOfFork) {
  const int null = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
  const RedirectedStandardError redirected(null);
  ::close(null);

  forkWhileThreadsLog();
}

struct LogsWhenDestroyed {
  ~LogsWhenDestroyed() { logError("the last line"); }
};

TEST(LogError, MayBeCalledByAStaticObjectsDestructor) {
  EXPECT_EQ(standardErrorOf([] {
              static_cast<void>(endOfChild([] {
                static const LogsWhenDestroyed late;
                std::exit(0);
              }));
            }),
            "error: the last line\n");
}

// ---- SetLogSink --------------------------------------------------------------------------------

class SetLogSink : public testing::Test {
 protected:
  ~SetLogSink() override { setLogSink(LogSink()); }
};

TEST_F(SetLogSink, PassesLevelAndUnescapedLineToTheSink) {
  Seen seen;
  setLogSink(keeping(seen));

  const std::string written = standardErrorOf([] {
    logError("Failed to close archive: %s", "a\n\x1b.zip");
    logWarning("Failed to find home dir: %s", "/x");
    logError("%s", "");
  });

  EXPECT_EQ(seen, (Seen{{LogLevel::Error, "Failed to close archive: a\n\x1b.zip"},
                        {LogLevel::Warning, "Failed to find home dir: /x"},
                        {LogLevel::Error, ""}}));
  EXPECT_EQ(written, "");
}

TEST_F(SetLogSink, ReturnsTheFormerSink) {
  Seen first;
  Seen second;
  EXPECT_FALSE(setLogSink(keeping(first)));

  const LogSink former = setLogSink(keeping(second));
  logError("to the second");
  ASSERT_TRUE(former);
  former(LogLevel::Warning, "to the first");

  EXPECT_EQ(first, (Seen{{LogLevel::Warning, "to the first"}}));
  EXPECT_EQ(second, (Seen{{LogLevel::Error, "to the second"}}));
}

TEST_F(SetLogSink, RestoresStandardErrorIfEmpty) {
  for (const LogSink& empty : {LogSink(), LogSink(nullptr)}) {
    Seen seen;
    setLogSink(keeping(seen));

    EXPECT_TRUE(setLogSink(empty));

    EXPECT_EQ(standardErrorOf([] { logError("a line"); }), "error: a line\n");
    EXPECT_EQ(seen, Seen());
    EXPECT_FALSE(setLogSink(empty));
  }
}

TEST_F(SetLogSink, RunsTheSinkOnTheThreadThatLogs) {
  std::thread::id ranOn;
  setLogSink([&](LogLevel, String) { ranOn = std::this_thread::get_id(); });
  std::thread::id loggedOn;

  std::thread([&] {
    loggedOn = std::this_thread::get_id();
    logError("a line");
  }).join();

  EXPECT_EQ(ranOn, loggedOn);
}

TEST_F(SetLogSink, KeepsErrorStateIfTheSinkReturnsOrThrows) {
  for (const bool throws : {false, true}) {
    const ErrorStateSentinel sentinel;
    setLogSink([throws](LogLevel, String) {
      errno = EACCES;
      vx::os::captureCurrentError("the sink's operation");
      if (throws) {
        throw std::runtime_error("disk full");
      }
    });
    errno = ENOENT;

    logError("a line");

    EXPECT_EQ(errno, ENOENT);
    EXPECT_TRUE(sentinel.isUntouched());
  }
}

TEST_F(SetLogSink, DropsExceptionsOfTheSink) {
  Seen seen;
  setLogSink([&seen](LogLevel level, String line) {
    seen.emplace_back(level, text(line));
    if (line == "first") {
      throw std::runtime_error("disk full");
    }
    throw 42;
  });

  EXPECT_NO_THROW(logError("first"));
  EXPECT_NO_THROW(logWarning("second"));
  std::thread([] { logError("of another thread"); }).join();

  EXPECT_EQ(seen, (Seen{{LogLevel::Error, "first"},
                        {LogLevel::Warning, "second"},
                        {LogLevel::Error, "of another thread"}}));
}

TEST_F(SetLogSink, LetsAThreadBeCancelledInsideTheSink) {
#ifndef __GLIBCXX__
  GTEST_SKIP() << "only libstdc++ lets a cancelled thread unwind through C++ code";
#endif
  runInChild([] {
    Seen seen;
    setLogSink([&seen](LogLevel level, String line) {
      seen.emplace_back(level, text(line));
      ::pthread_testcancel();
    });
    const auto logAsCancelled = [](void*) -> void* {
      ::pthread_cancel(::pthread_self());
      logError("of the cancelled thread");
      return nullptr;
    };
    pthread_t thread{};
    ASSERT_EQ(::pthread_create(&thread, nullptr, logAsCancelled, nullptr), 0);
    void* result = nullptr;
    ::pthread_join(thread, &result);

    logError("afterwards");

    EXPECT_EQ(result, PTHREAD_CANCELED);
    EXPECT_EQ(seen, (Seen{{LogLevel::Error, "of the cancelled thread"},
                          {LogLevel::Error, "afterwards"}}));
  });
}

TEST_F(SetLogSink, WritesLinesOfTheSinkToStandardError) {
  Seen seen;
  setLogSink([&seen](LogLevel level, String line) {
    seen.emplace_back(level, text(line));
    logWarning("because of: %s", line.buf());
  });

  const std::string written = standardErrorOf([] {
    logError("first");
    logError("second");
  });

  EXPECT_EQ(seen, (Seen{{LogLevel::Error, "first"}, {LogLevel::Error, "second"}}));
  EXPECT_EQ(written, "warning: because of: first\nwarning: because of: second\n");
}

TEST_F(SetLogSink, LetsTheSinkReplaceAndRemoveItself) {
  Seen first;
  Seen second;
  // The captured object shows that the sink is not destroyed before it returns.
  auto held = std::make_shared<std::string>("held");
  const std::weak_ptr<std::string> watch = held;
  setLogSink([&, held = std::move(held)](LogLevel level, String line) {
    setLogSink([&second](LogLevel secondLevel, String secondLine) {
      second.emplace_back(secondLevel, text(secondLine));
      setLogSink(LogSink());
    });
    first.emplace_back(level, text(line) + ' ' + *held);
  });

  const std::string written = standardErrorOf([] {
    logError("first line");
    logError("second line");
    logError("third line");
  });

  EXPECT_EQ(first, (Seen{{LogLevel::Error, "first line held"}}));
  EXPECT_EQ(second, (Seen{{LogLevel::Error, "second line"}}));
  EXPECT_EQ(written, "error: third line\n");
  EXPECT_TRUE(watch.expired());
}

TEST_F(SetLogSink, WaitsForThreadsInsideTheFormerSink) {
  std::promise<void> entered;
  std::atomic<bool> isBeingReplaced = false;
  std::atomic<bool> hasLeft = false;
  setLogSink([&](LogLevel, String) {
    entered.set_value();
    while (!isBeingReplaced) {
      std::this_thread::yield();
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    hasLeft = true;
  });
  std::thread logging([] { logError("a line"); });
  entered.get_future().wait();

  isBeingReplaced = true;
  setLogSink(LogSink());

  EXPECT_TRUE(hasLeft);
  logging.join();
}

TEST_F(SetLogSink, KeepsALineThatWaitsForARemovedSink) {
  std::thread waiting;
  setLogSink([&waiting](LogLevel, String) {
    waiting = std::thread([] { logError("waits"); });
    // Time for the thread to wait for this sink. A slower thread finds none, with the same result.
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    setLogSink(LogSink());
  });

  const std::string written = standardErrorOf([&waiting] {
    logError("goes to the sink");
    waiting.join();
  });

  EXPECT_EQ(written, "error: waits\n");
}

TEST_F(SetLogSink, WorksInAChildOfFork) {
  std::atomic<int> taken = 0;
  setLogSink([&taken](LogLevel, String) {
    std::this_thread::yield();  // to another thread, which forks while this one is inside
    ++taken;
  });

  forkWhileThreadsLog();

  runInChild([&taken] {
    taken = 0;
    logError("to the parent's sink");
    EXPECT_EQ(taken, 1);
    EXPECT_TRUE(setLogSink(LogSink()));
    EXPECT_EQ(standardErrorOf([] { logError("a line"); }), "error: a line\n");
  });
}

TEST_F(SetLogSink, IsInEffectInAStaticObjectsDestructor) {
  constexpr int kSeen = 7;

  const ChildEnd end = endOfChild([] {
    static const LogsWhenDestroyed older;  // than the sink
    setLogSink([](LogLevel, String line) { ::_exit(line == "the last line" ? kSeen : 1); });
    std::exit(0);
  });

  EXPECT_EQ(end.exitCode, kSeen);
}

// ---- StandardErrorSink -------------------------------------------------------------------------

TEST(StandardErrorSink, WritesWhatIsForwardedToIt) {
  setLogSink([forward = vx::standardErrorSink()](LogLevel level, String line) {
    forward(level, String("[app] ") + line);
  });

  const std::string written = standardErrorOf([] {
    logError("%s", "a\nb");
    logWarning("%s", "c");
  });
  setLogSink(LogSink());

  EXPECT_EQ(written, "error: [app] a\\nb\nwarning: [app] c\n");
}

}  // namespace
}  // namespace vx::test
