// Concern: the exact bytes of a line, where it goes, and that lines of threads never mix.

#include "core/vx_log.h"

#include "core/vx_error.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <atomic>
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
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

using namespace std::string_literals;

using vx::logError;
using vx::LogLevel;
using vx::LogSink;
using vx::logWarning;
using vx::setLogSink;
using vx::String;
using vx::test::ChildEnd;
using vx::test::endOfChild;
using vx::test::ErrorStateSentinel;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::runInChild;
using vx::test::TempDir;
using vx::test::text;

static_assert(std::is_same_v<LogSink, std::function<void(LogLevel, String)>>);
static_assert(std::is_same_v<decltype(setLogSink(LogSink())), LogSink>);

// ---- Where standard error goes in a test -------------------------------------------------------

/// Puts another descriptor in the place of standard error for the length of a scope.
class RedirectedStandardError {
 public:
  explicit RedirectedStandardError(int target) : before_(::dup(STDERR_FILENO)) {
    std::fflush(stderr);
    ::dup2(target, STDERR_FILENO);
  }
  RedirectedStandardError(const RedirectedStandardError&) = delete;
  RedirectedStandardError& operator=(const RedirectedStandardError&) = delete;
  ~RedirectedStandardError() {
    std::fflush(stderr);
    ::dup2(before_, STDERR_FILENO);
    ::close(before_);
  }

 private:
  int before_;
};

/// What an act writes to standard error.
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

/// The writes that an act makes to standard error, one by one: a socket of this kind keeps the
/// bytes of each call together.
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

// ---- Lines on standard error -------------------------------------------------------------------

TEST(Log, WritesAnErrorAsOneLine) {
  EXPECT_EQ(standardErrorOf([] { logError("Failed to close archive: %s", "a.zip"); }),
            "error: Failed to close archive: a.zip\n");
}

TEST(Log, WritesAWarningAsOneLine) {
  EXPECT_EQ(standardErrorOf([] { logWarning("Failed to find home dir: %s", "/x"); }),
            "warning: Failed to find home dir: /x\n");
}

TEST(Log, KeepsTheOrderOfItsLines) {
  EXPECT_EQ(standardErrorOf([] {
              logWarning("first");
              logError("second");
              logWarning("third");
            }),
            "warning: first\nerror: second\nwarning: third\n");
}

TEST(Log, FormatsAsPrintfDoes) {
  const String name("w\xC3\xB6od.png\xFF");

  EXPECT_EQ(standardErrorOf([&] {
              logError("%s|%s", name.buf(), String().buf());
              logError("Failed to extract filename %llu from archive.", 18446744073709551615ULL);
              logWarning("100%% %d %c %5.1f", -1, 'x', 0.25);
            }),
            "error: w\xC3\xB6od.png\xFF|\n"
            "error: Failed to extract filename 18446744073709551615 from archive.\n"
            "warning: 100% -1 x   0.2\n");
}

TEST(Log, KeepsNulBytesWithinALine) {
  EXPECT_EQ(standardErrorOf([] { logError("a%cb", '\0'); }), "error: a\0b\n"s);
}

TEST(Log, DoesNotReadFormatsInArguments) {
  EXPECT_EQ(standardErrorOf([] { logError("%s", "100%s%n"); }), "error: 100%s%n\n");
}

TEST(Log, WritesEmptyLines) {
  EXPECT_EQ(standardErrorOf([] { logError("%s", ""); }), "error: \n");
  EXPECT_EQ(standardErrorOf([] { logWarning("%s", ""); }), "warning: \n");
}

TEST(Log, WritesLinesOfEveryLengthWhole) {
  for (const std::size_t length :
       {1U,   63U,   64U,   254U,  255U,  256U,  257U,    510U,    511U,    512U,
        513U, 1023U, 1024U, 4095U, 4096U, 4097U, 65'535U, 65'536U, 65'537U, 1'000'000U}) {
    SCOPED_TRACE(length);
    const std::string content = std::string(length - 1, 'x') + '$';

    EXPECT_EQ(standardErrorOf([&] { logError("%s", content.c_str()); }),
              "error: " + content + "\n");
    EXPECT_EQ(standardErrorOf([&] { logWarning("%s", content.c_str()); }),
              "warning: " + content + "\n");
  }
}

TEST(Log, WritesAnEmptyLineForWhatCannotBeFormatted) {
  const wchar_t unencodable[] = {static_cast<wchar_t>(0xD800), 0};

  EXPECT_EQ(standardErrorOf([&] { logError("%ls", unencodable); }), "error: \n");
}

TEST(Log, WritesALineInOneCall) {
  const std::string longLine(100'000, 'x');

  const std::vector<std::string> writes = writesOf([&] {
    logError("short %s", "line");
    logWarning("%s", longLine.c_str());
    logError("last");
  });

  EXPECT_EQ(writes, lines("error: short line\n", "warning: " + longLine + "\n", "error: last\n"));
}

TEST(Log, WritesNothingToStandardOutput) {
  const TempDir tmp;
  const int file = ::open(tmp.path("stdout").c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
  const int before = ::dup(STDOUT_FILENO);
  std::fflush(stdout);
  ::dup2(file, STDOUT_FILENO);
  ::close(file);

  const std::string written = standardErrorOf([] { logError("a line"); });

  std::fflush(stdout);
  ::dup2(before, STDOUT_FILENO);
  ::close(before);
  EXPECT_EQ(written, "error: a line\n");
  EXPECT_EQ(tmp.read("stdout"), "");
}

TEST(Log, SwallowsTheFailureOfAClosedStandardError) {
  runInChild([] {
    ::close(STDERR_FILENO);

    logError("lost");
    logWarning("lost too");
  });
}

TEST(Log, SwallowsTheFailureOfAFullDevice) {
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

TEST(Log, LeavesTheErrorStateAlone) {
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(standardErrorOf([] { logError("a line"); }), "error: a line\n");
  EXPECT_TRUE(sentinel.isUntouched());

  const LogCapture log;
  logWarning("%s", vx::os::currentErrorMessage().buf());
  EXPECT_TRUE(sentinel.isUntouched());
}

struct LogsWhenItGoes {
  ~LogsWhenItGoes() { logError("the last line"); }
};

TEST(Log, MayBeUsedByTheDestructorOfAStaticObject) {
  constexpr int kSeen = 7;

  const ChildEnd end = endOfChild([] {
    static const LogsWhenItGoes older;  // than the log, in a process that has not logged before
    setLogSink([](LogLevel, String line) { ::_exit(line == "the last line" ? kSeen : 1); });
    std::exit(0);
  });

  EXPECT_EQ(end.exitCode, kSeen);
}

TEST(Log, NeverMixesTheLinesOfThreads) {
  constexpr int kThreads = 8;
  constexpr int kLines = 200;

  const std::string written = standardErrorOf([] {
    std::vector<std::thread> threads;
    for (int thread = 0; thread < kThreads; ++thread) {
      threads.emplace_back([thread] {
        const std::string filling(static_cast<std::size_t>(1 + 700 * thread),
                                  static_cast<char>('a' + thread));
        for (int line = 0; line < kLines; ++line) {
          logError("%d %s", line, filling.c_str());
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
  });

  std::map<std::string, int> nextOf;  // by what fills the lines of a thread
  std::istringstream all(written);
  for (std::string line; std::getline(all, line);) {
    const std::size_t filling = line.rfind(' ') + 1;
    int& next = nextOf[line.substr(filling)];
    ASSERT_EQ(line.substr(0, filling), "error: " + std::to_string(next) + ' ');
    ++next;
  }
  EXPECT_EQ(nextOf.size(), static_cast<std::size_t>(kThreads));
  for (const auto& [filling, count] : nextOf) {
    EXPECT_EQ(count, kLines);
    EXPECT_EQ(filling,
              std::string(1 + 700 * static_cast<std::size_t>(filling[0] - 'a'), filling[0]));
  }
}

// ---- Sinks -------------------------------------------------------------------------------------

/// The lines of a sink, level and text.
using Seen = std::vector<std::pair<LogLevel, std::string>>;

LogSink keeping(Seen& seen) {
  return [&seen](LogLevel level, String line) { seen.emplace_back(level, text(line)); };
}

class LogSinkTest : public testing::Test {
 protected:
  ~LogSinkTest() override { setLogSink(LogSink()); }
};

TEST_F(LogSinkTest, TakesTheLevelAndTheLineWithoutPrefixOrLineBreak) {
  Seen seen;
  setLogSink(keeping(seen));

  const std::string written = standardErrorOf([] {
    logError("Failed to close archive: %s", "a.zip");
    logWarning("Failed to find home dir: %s", "/x");
    logError("%s", "");
  });

  EXPECT_EQ(seen, (Seen{{LogLevel::Error, "Failed to close archive: a.zip"},
                        {LogLevel::Warning, "Failed to find home dir: /x"},
                        {LogLevel::Error, ""}}));
  EXPECT_EQ(written, "");
}

TEST_F(LogSinkTest, TakesLongLinesWhole) {
  Seen seen;
  setLogSink(keeping(seen));

  for (const std::size_t length : {511U, 512U, 513U, 70'000U}) {
    const std::string content(length, 'x');
    seen.clear();
    logError("%s", content.c_str());
    EXPECT_EQ(seen, (Seen{{LogLevel::Error, content}}));
  }
}

TEST_F(LogSinkTest, RunsOnTheThreadThatLogs) {
  std::thread::id ranOn;
  setLogSink([&](LogLevel, String) { ranOn = std::this_thread::get_id(); });
  std::thread::id loggedOn;

  std::thread([&] {
    loggedOn = std::this_thread::get_id();
    logError("a line");
  }).join();

  EXPECT_EQ(ranOn, loggedOn);
}

TEST_F(LogSinkTest, IsReplacedAndHandedBack) {
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

TEST_F(LogSinkTest, GivesWayToStandardErrorWhenItIsEmpty) {
  Seen seen;
  setLogSink(keeping(seen));

  const LogSink former = setLogSink(LogSink());

  EXPECT_TRUE(former);
  EXPECT_EQ(standardErrorOf([] { logError("a line"); }), "error: a line\n");
  EXPECT_EQ(seen, Seen());
  EXPECT_FALSE(setLogSink(LogSink()));
}

TEST_F(LogSinkTest, GivesWayToStandardErrorForANullPointerToo) {
  Seen seen;
  setLogSink(keeping(seen));

  setLogSink(nullptr);

  EXPECT_EQ(standardErrorOf([] { logWarning("a line"); }), "warning: a line\n");
  EXPECT_EQ(seen, Seen());
}

TEST_F(LogSinkTest, ComesBackWhenTheFormerOneIsSetAgain) {
  Seen first;
  setLogSink(keeping(first));

  LogSink former = setLogSink([](LogLevel, String) {});
  logError("to the other");
  setLogSink(std::move(former));
  logError("to the first");

  EXPECT_EQ(first, (Seen{{LogLevel::Error, "to the first"}}));
}

TEST_F(LogSinkTest, MayPassLinesOnToTheFormerOne) {
  Seen seen;
  setLogSink(keeping(seen));
  auto former = std::make_shared<LogSink>();
  *former = setLogSink([former](LogLevel level, String line) { (*former)(level, line + "!"); });

  logError("a line");

  EXPECT_EQ(seen, (Seen{{LogLevel::Error, "a line!"}}));
}

TEST_F(LogSinkTest, MayChangeTheLineThatItIsGiven) {
  Seen seen;
  setLogSink([&seen](LogLevel level, String line) {
    line << " changed";
    seen.emplace_back(level, text(line));
  });

  logError("first");
  logError("second");

  EXPECT_EQ(seen, (Seen{{LogLevel::Error, "first changed"}, {LogLevel::Error, "second changed"}}));
}

TEST_F(LogSinkTest, MayLog) {
  Seen seen;
  setLogSink([&seen](LogLevel level, String line) {
    seen.emplace_back(level, text(line));
    if (level == LogLevel::Error) {
      logWarning("because of: %s", line.buf());
    }
  });

  logError("a line");

  EXPECT_EQ(seen, (Seen{{LogLevel::Error, "a line"}, {LogLevel::Warning, "because of: a line"}}));
}

TEST_F(LogSinkTest, MayReplaceItself) {
  Seen first;
  Seen second;
  // What the sink holds shows that it lives until it has run to its end.
  auto held = std::make_shared<std::string>("held");
  const std::weak_ptr<std::string> watch = held;
  setLogSink([&, held = std::move(held)](LogLevel level, String line) {
    setLogSink(keeping(second));
    first.emplace_back(level, text(line) + ' ' + *held);
  });

  logError("first line");
  logError("second line");

  EXPECT_EQ(first, (Seen{{LogLevel::Error, "first line held"}}));
  EXPECT_EQ(second, (Seen{{LogLevel::Error, "second line"}}));
  EXPECT_TRUE(watch.expired());
}

TEST_F(LogSinkTest, MayMakeWayForStandardError) {
  setLogSink([](LogLevel, String) {
    setLogSink(LogSink());
    logWarning("from the sink");
  });

  EXPECT_EQ(standardErrorOf([] {
              logError("to the sink");
              logError("behind the sink");
            }),
            "warning: from the sink\nerror: behind the sink\n");
}

TEST_F(LogSinkTest, PassesItsExceptionOnAndKeepsWorking) {
  Seen seen;
  setLogSink([&seen](LogLevel level, String line) {
    if (line == "refused") {
      throw std::runtime_error("no more lines");
    }
    seen.emplace_back(level, text(line));
  });

  EXPECT_THROW(logError("refused"), std::runtime_error);
  std::thread([] { logError("taken"); }).join();

  EXPECT_EQ(seen, (Seen{{LogLevel::Error, "taken"}}));
}

TEST_F(LogSinkTest, IsCalledByOneThreadAtATime) {
  constexpr int kThreads = 4;
  constexpr int kLines = 500;
  std::atomic<int> inside = 0;
  int most = 0;
  int taken = 0;
  setLogSink([&](LogLevel, String) {
    most = std::max(most, ++inside);
    ++taken;
    std::this_thread::yield();
    --inside;
  });

  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i) {
    threads.emplace_back([] {
      for (int line = 0; line < kLines; ++line) {
        logWarning("line %d", line);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_EQ(most, 1);
  EXPECT_EQ(taken, kThreads * kLines);
}

TEST_F(LogSinkTest, IsLeftByEveryThreadOnceItIsHandedBack) {
  std::promise<void> entered;
  std::atomic<bool> isBeingReplaced = false;
  std::atomic<bool> hasLeft = false;
  setLogSink([&](LogLevel, String) {
    entered.set_value();
    while (!isBeingReplaced) {
      std::this_thread::yield();
    }
    for (int i = 0; i < 1000; ++i) {
      std::this_thread::yield();
    }
    hasLeft = true;
  });
  std::thread logging([] { logError("a line"); });
  entered.get_future().wait();

  isBeingReplaced = true;
  setLogSink(LogSink());

  EXPECT_TRUE(hasLeft);
  logging.join();
}

TEST_F(LogSinkTest, MayBeReplacedWhileOtherThreadsLog) {
  constexpr int kLines = 2000;
  std::atomic<int> taken = 0;
  const LogSink counting = [&taken](LogLevel, String) { ++taken; };
  setLogSink(counting);

  std::thread logging([] {
    for (int line = 0; line < kLines; ++line) {
      logError("line %d", line);
    }
  });
  for (int round = 0; round < 500; ++round) {
    EXPECT_TRUE(setLogSink(counting));
  }
  logging.join();

  EXPECT_EQ(taken, kLines);
}

}  // namespace
