// SPDX-License-Identifier: MIT
//
// Eight threads at once: each with all functions on files of its own, with a current error each,
// one log, and shared strings and lists. The thread sanitizer checks as much as the assertions.

#include "core/vx_error.h"
#include "core/vx_log.h"
#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tests/testing/sandbox.h"
#include "tests/testing/scoped.h"

#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <barrier>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace vx::test {
namespace {

constexpr int kThreads = 8;
constexpr int kRounds = 20;

// Without this variable the C library looks for the zone again at every question, behind a lock
// that the thread sanitizer does not know of.
constexpr const char* kTimeZone = "TZ";

/// Runs `body` with the number of the thread on all threads at once, and waits for all.
template <class Body>
void onAllThreads(Body body) {
  std::barrier together(kThreads);
  std::vector<std::thread> threads;
  threads.reserve(kThreads);
  for (int number = 0; number < kThreads; ++number) {
    threads.emplace_back([&together, &body, number] {
      together.arrive_and_wait();
      body(number);
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
}

/// The lines of each thread, in order, with their level.
class LinesByThread {
 public:
  LinesByThread() {
    before_ = setLogSink([this](LogLevel level, const String& line) {
      const std::lock_guard lock(mutex_);
      lines_[std::this_thread::get_id()].push_back(
          (level == LogLevel::Error ? "error: " : "warning: ") + text(line));
    });
  }
  LinesByThread(const LinesByThread&) = delete;
  LinesByThread& operator=(const LinesByThread&) = delete;
  ~LinesByThread() { setLogSink(std::move(before_)); }

  /// What the calling thread has logged since it was last asked.
  std::vector<std::string> takeOwn() {
    const std::lock_guard lock(mutex_);
    return std::exchange(lines_[std::this_thread::get_id()], {});
  }

 private:
  std::mutex mutex_;
  std::map<std::thread::id, std::vector<std::string>> lines_;
  LogSink before_;
};

// ---------------------------------------------------------------------------------------------
// All functions, on files of their own

/// Calls every function once on the files of the directory `name`, and checks each result, line and
/// current error.
void useEverything(const TempDir& tmp, const std::string& name, LinesByThread& log) {
  const auto path = [&](const std::string& relative) { return vxText(name + "/" + relative); };
  const std::string full = tmp.path(name);

  // Directories
  EXPECT_TRUE(fs::mkDir(path("d/e")));
  EXPECT_TRUE(capturedErrorIs(0, "mkDir"));
  EXPECT_TRUE(fs::isDir(path("d/e")));
  EXPECT_TRUE(fs::exists(path("d")));
  EXPECT_FALSE(fs::rmDir(path("d")));
  EXPECT_TRUE(capturedErrorIs(ENOTEMPTY, "rmDir"));
  EXPECT_EQ(log.takeOwn(), lines("error: Failed to remove dir: " + full +
                                 "/d [err: " + errnoText(ENOTEMPTY) + "]."));
  const std::string tooLong(NAME_MAX + 1, 'n');
  EXPECT_FALSE(fs::mkDir(path(tooLong)));
  EXPECT_TRUE(capturedErrorIs(ENAMETOOLONG, "mkDir"));
  EXPECT_EQ(log.takeOwn(), lines("error: Failed to create dir: " + name + "/" + tooLong +
                                 " [err: " + errnoText(ENAMETOOLONG) + "]."));

  // Streams
  FILE* stream = fs::Fopen(path("f.txt"), "w+b");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fs::Fwrite(name.data(), 1, name.size(), stream), name.size());
  EXPECT_EQ(fs::Fflush(stream), 0);
  EXPECT_EQ(fs::Fseek(stream, 0, SEEK_SET), 0);
  std::array<char, 8> buffer{};
  EXPECT_EQ(fs::Fread(buffer.data(), 1, buffer.size(), stream), name.size());
  EXPECT_EQ(fs::Ftell(stream), static_cast<long long>(name.size()));
  stream = fs::Freopen(path("f.txt"), "rb", stream);
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fs::Fclose(stream), 0);
  EXPECT_EQ(fs::Frename(path("f.txt"), path("g.txt")), 0);
  EXPECT_TRUE(fs::isFile(path("g.txt")));

  // Copies and moves
  EXPECT_TRUE(fs::copyFile(path("g.txt"), path("d/copy.txt")));
  EXPECT_TRUE(fs::moveFile(path("g.txt"), path("d/moved.txt")));
  EXPECT_EQ(tmp.read(name + "/d/copy.txt"), name);
  EXPECT_EQ(tmp.read(name + "/d/moved.txt"), name);
  EXPECT_FALSE(fs::copyFile(path("missing"), path("MISSING")));
  EXPECT_EQ(log.takeOwn(), lines("warning: Cannot copy '" + name + "/missing' to itself."));

  // Archives
  std::vector<std::string> reported;
  EXPECT_TRUE(
      fs::writeZip(path("pack.zip"), {path("d/copy.txt"), path("missing")},
                   [&](const fs::ZipProgress& report) { reported.push_back(text(report.file)); }));
  EXPECT_EQ(reported, lines("res/copy.txt"));
  EXPECT_EQ(log.takeOwn(),
            lines("error: Cannot add non-existent file to archive: " + name + "/missing"));
  EXPECT_EQ(texts(fs::readZip(path("pack.zip"), path("out"), {})),
            lines(name + "/out/res/copy.txt"));
  EXPECT_TRUE(capturedErrorIs(0, "mkDir"));
  EXPECT_TRUE(fs::writeKsz(path("pack.ksz"), {path("d/moved.txt")}, {}));
  EXPECT_TRUE(fs::readKsz(path("pack.ksz"), {}));
  EXPECT_EQ(tmp.read(name + "/res/moved.txt"), name);

  // Lists and locations
  os::setCurrentError(7, vxText(name), "kept");
  EXPECT_EQ(texts(fs::listDirs(path("d"))), lines(name + "/d/e"));
  EXPECT_THAT(texts(fs::listFiles(path("d"), {"txt"})),
              testing::UnorderedElementsAre(name + "/d/copy.txt", name + "/d/moved.txt"));
  EXPECT_TRUE(fs::isFile(fs::exePath()));
  EXPECT_TRUE(fs::isDir(fs::exeDir()));
  EXPECT_EQ(fs::appDir(), fs::exeDir());
  EXPECT_EQ(fs::resDir(), fs::exeDir());
  EXPECT_EQ(text(fs::currentDir()), tmp.path());
  EXPECT_EQ(text(fs::homeDir()), tmp.path());
  EXPECT_EQ(text(fs::tempDir()), tmp.path());
  EXPECT_EQ(text(fs::kavraUserDir(/*create=*/false)), tmp.path("kavra"));
  EXPECT_EQ(text(fs::kavraConfigDir(/*create=*/true)), tmp.path("kavra/config"));
  EXPECT_EQ(text(fs::kavraNodeHelpPath(/*asUrl=*/false)), tmp.path("kavra/nodehelp.html"));
  String out;
  EXPECT_FALSE(fs::getKavraOutputDir(out, /*create=*/false));
  EXPECT_FALSE(fs::getKavraPreviewDir(out, /*create=*/false));
  EXPECT_EQ(
      log.takeOwn(),
      lines("error: Failed to find kavra output dir: " + tmp.path("kavra/output") + " (kept).",
            "error: Failed to find kavra preview dir: " + tmp.path("kavra/preview") + " (kept)."));
  EXPECT_EQ(text(fs::resolvePath("tex/shared.png", {path("d"), "kavra"}, {"tx"})),
            tmp.path("kavra/shared.png"));
  EXPECT_EQ(text(Path(path("d/./e/../x"), /*normalizeFirst=*/true).canonical()), full + "/d/x");
  EXPECT_TRUE(currentErrorIs(7, name, "kept"));

  // Removals
  for (const char* const file :
       {"pack.zip", "pack.ksz", "out/res/copy.txt", "res/moved.txt", "d/copy.txt", "d/moved.txt"}) {
    EXPECT_TRUE(fs::rmFile(path(file))) << file;
  }
  for (const char* const directory : {"out/res", "out", "res", "d/e", "d"}) {
    EXPECT_TRUE(fs::rmDir(path(directory))) << directory;
  }
  EXPECT_EQ(log.takeOwn(), lines());
}

TEST(Threads, DoTheirOwnWorkWithTheirOwnErrors) {
  const Sandbox box;
  box.tmp.mkdir("kavra/config");
  box.tmp.write("kavra/shared.png", "text");
  for (int number = 0; number < kThreads; ++number) {
    box.tmp.mkdir("t" + std::to_string(number));
  }
  const ScopedEnv home("HOME", box.tmp.path());
  const ScopedEnv temp("TMPDIR", box.tmp.path());
  const ScopedEnv userDir("KAVRA_USER_DIR", nullptr);
  const ScopedEnv timeZone(kTimeZone, "UTC0");
  LinesByThread log;

  onAllThreads([&](int number) {
    for (int round = 0; round < kRounds && !testing::Test::HasFailure(); ++round) {
      useEverything(box.tmp, "t" + std::to_string(number), log);
    }
  });

  EXPECT_EQ(box.tmp.entries(), lines("kavra/", "kavra/config/", "kavra/shared.png", "t0/", "t1/",
                                     "t2/", "t3/", "t4/", "t5/", "t6/", "t7/"));
}

// The thread that comes second to a level fails.
TEST(Threads, CreateOneTreeTogether) {
  const TempDir tmp;
  LinesByThread log;
  for (int round = 0; round < kRounds; ++round) {
    const std::string top = tmp.path("r" + std::to_string(round));

    onAllThreads([&](int /*number*/) {
      const bool made = fs::mkDir(String(top + "/a/b/c"));
      const std::vector<std::string> logged = log.takeOwn();
      if (made) {
        EXPECT_EQ(logged, lines());
        return;
      }
      ASSERT_EQ(logged.size(), 1U);
      EXPECT_THAT(logged[0], testing::StartsWith("error: Failed to create dir: " + top));
      EXPECT_THAT(logged[0], testing::EndsWith(" [err: " + errnoText(EEXIST) + "]."));
      EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
    });

    EXPECT_TRUE(fs::isDir(String(top)));
  }
}

// ---------------------------------------------------------------------------------------------
// The current error and the log

TEST(Threads, HaveACurrentErrorEach) {
  std::barrier step(kThreads);
  onAllThreads([&](int number) {
    const bool isEven = number % 2 == 0;
    const std::string context = "thread " + std::to_string(number);
    for (int round = 0; round < kRounds; ++round) {
      const std::string message = "round " + std::to_string(round);
      os::setCurrentError(number, String(context), String(message));
      step.arrive_and_wait();  // all have set theirs
      EXPECT_TRUE(currentErrorIs(number, context, message));
      step.arrive_and_wait();  // all have looked
      if (isEven) {
        os::clearCurrentError();
      }
      step.arrive_and_wait();  // half have cleared theirs
      EXPECT_TRUE(isEven ? currentErrorIs(0, "", "") : currentErrorIs(number, context, message));
    }
  });
  EXPECT_TRUE(currentErrorIs(0, "", "")) << "the thread that waited has had no error";
}

// The object that a sink refers to may be destroyed as soon as the sink is replaced.
TEST(Threads, LogWhileTheSinkIsReplaced) {
  struct Counter {
    bool isOver = false;
    int lines = 0;
  };
  constexpr int kLines = kRounds * 10;
  std::atomic<int> elsewhere = 0;
  int counted = 0;
  const auto countElsewhere = [&](LogLevel /*level*/, const String& /*line*/) { ++elsewhere; };
  LogSink before = setLogSink(countElsewhere);

  onAllThreads([&](int number) {
    for (int round = 0; round < kLines; ++round) {
      if (number != 0) {
        logWarning("line %s", std::to_string(round).c_str());
        continue;
      }
      auto counter = std::make_unique<Counter>();
      setLogSink([&counter = *counter](LogLevel /*level*/, const String& line) {
        EXPECT_FALSE(counter.isOver);
        EXPECT_TRUE(line.startsWith("line ", /*ignoreCase=*/false));
        ++counter.lines;
      });
      std::this_thread::yield();
      setLogSink(countElsewhere);
      counter->isOver = true;
      counted += counter->lines;
    }
  });

  setLogSink(std::move(before));
  EXPECT_EQ(counted + elsewhere, (kThreads - 1) * kLines);
}

// A sink needs no lock of its own.
TEST(Threads, CallTheSinkOneAtATime) {
  constexpr int kLines = kRounds * 10;
  std::map<std::thread::id, int> linesOf;
  LogSink before = setLogSink(
      [&](LogLevel /*level*/, const String& /*line*/) { ++linesOf[std::this_thread::get_id()]; });

  onAllThreads([&](int number) {
    for (int round = 0; round < kLines; ++round) {
      logError("line %s of %s", std::to_string(round).c_str(), std::to_string(number).c_str());
    }
  });

  setLogSink(std::move(before));
  EXPECT_EQ(linesOf.size(), static_cast<std::size_t>(kThreads));
  for (const auto& [thread, count] : linesOf) {
    EXPECT_EQ(count, kLines) << thread;
  }
}

// ---------------------------------------------------------------------------------------------
// Shared strings and lists

TEST(Threads, CopyChangeAndDropOneString) {
  const std::string original = "a text that is shared by all of them";
  const String shared(original);
  onAllThreads([&](int number) {
    const std::string own = std::to_string(number);
    for (int round = 0; round < kRounds * 50; ++round) {
      String copy = shared;
      const String second = copy;
      copy << "/" << String(own);
      EXPECT_EQ(text(copy), original + "/" + own);
      EXPECT_EQ(second, shared);
      copy = shared;
      copy = "other";
      const String moved = std::move(copy);
      EXPECT_EQ(moved, "other");
      EXPECT_EQ(text(shared.replace('a', 'A', /*firstOnly=*/true, /*ignoreCase=*/false)),
                "A" + original.substr(1));
      EXPECT_EQ(shared.split(' ', /*skipEmpty=*/true, /*trim=*/false).size(), 9U);
    }
  });
  EXPECT_EQ(text(shared), original);
}

TEST(Threads, CopyGrowAndDropOneList) {
  const StringVector shared = {"one", "two", "three"};
  onAllThreads([&](int number) {
    const std::string own = std::to_string(number);
    for (int round = 0; round < kRounds * 50; ++round) {
      StringVector copy = shared;
      copy.push_back(String(own));
      copy.push_back(copy.front());
      EXPECT_EQ(texts(copy), lines("one", "two", "three", own, "one"));
      EXPECT_EQ(text(shared.join("|")), "one|two|three");
      const StringVector second = copy;
      copy = shared;
      EXPECT_EQ(second.size(), 5U);
    }
  });
  EXPECT_EQ(texts(shared), lines("one", "two", "three"));
}

// Any thread may drop the last handle.
TEST(Threads, DropTheLastHandle) {
  for (int round = 0; round < kRounds * 5; ++round) {
    std::array<std::optional<String>, kThreads> strings;
    std::array<std::optional<StringVector>, kThreads> lists;
    {
      const String content(std::string(100, 'x'));
      strings.fill(content);
      lists.fill(StringVector{content, "other"});
    }
    onAllThreads([&](int number) {
      const auto own = static_cast<std::size_t>(number);
      EXPECT_EQ(strings[own]->length(), 100U);
      EXPECT_EQ((*lists[own])[0], *strings[own]);
      strings[own].reset();
      lists[own].reset();
    });
  }
}

TEST(Threads, PassTheSameStringsToTheFunctions) {
  const Sandbox box;
  box.tmp.write("d/a.png", "text");
  box.tmp.mkdir("d/e");
  const String directory = "d";
  const String file = "d/a.png";
  const StringVector searched = {"missing", "d"};
  const StringVector extensions = {"jpg", "png"};
  const ScopedEnv timeZone(kTimeZone, "UTC0");

  onAllThreads([&](int number) {
    const String out = vxText("out" + std::to_string(number));
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_TRUE(fs::isDir(directory));
      EXPECT_TRUE(fs::mkDir(directory));
      EXPECT_EQ(texts(fs::listDirs(directory)), lines("d/e"));
      EXPECT_EQ(texts(fs::listFiles(directory, extensions)), lines("d/a.png"));
      EXPECT_EQ(text(fs::resolvePath("a.*", searched, extensions)), box.tmp.path("d/a.png"));
      EXPECT_TRUE(fs::copyFile(file, out));
      EXPECT_TRUE(fs::writeZip(out + ".zip", {file, file}, {}));
      EXPECT_EQ(fs::readZip(out + ".zip", out + ".d", {}).size(), 2U);
    }
  });

  EXPECT_EQ(box.log.all(), lines());
  EXPECT_EQ(box.tmp.read("d/a.png"), "text");
}

}  // namespace
}  // namespace vx::test
