// SPDX-License-Identifier: MIT
//
// Eight threads at once: over all functions, each on files of its own; with strings and lists that
// they share; with a current error each; with one log. What the thread sanitizer says of it counts
// as much as what is asserted.

#include "core/vx_error.h"
#include "core/vx_log.h"
#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

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

// ---- All functions, on files of their own ------------------------------------------------------

constexpr long long kOwnCode = 7;
constexpr const char* kOwnMessage = "kept while others have theirs";

/// One thread's part: every function once, each result checked, each line, each current error.
class Worker {
 public:
  Worker(const TempDir& tmp, int number, LinesByThread& log)
      : tmp_(tmp), name_("t" + std::to_string(number)), log_(log) {}

  void run() {
    makeDirectories();
    useStreams();
    copyAndMove();
    packAndUnpack();
    os::setCurrentError(kOwnCode, String(name_), kOwnMessage);
    list();
    askForLocations();
    resolve();
    EXPECT_TRUE(currentErrorIs(kOwnCode, name_, kOwnMessage));
    removeEverything();
    expectLines({});
  }

 private:
  [[nodiscard]] std::string at(const std::string& relative) const {
    return tmp_.path(name_ + "/" + relative);
  }
  [[nodiscard]] String path(const std::string& relative) const { return String(at(relative)); }

  void expectLines(const std::vector<std::string>& expected) {
    EXPECT_EQ(log_.takeOwn(), expected) << name_;
  }

  void makeDirectories() {
    EXPECT_TRUE(fs::mkDir(path("d/e")));
    EXPECT_TRUE(capturedErrorIs(0, "mkDir"));
    EXPECT_TRUE(fs::isDir(path("d/e")));
    EXPECT_TRUE(fs::exists(path("d")));
    EXPECT_FALSE(fs::rmDir(path("d")));
    EXPECT_TRUE(capturedErrorIs(ENOTEMPTY, "rmDir"));
    expectLines(
        {"error: Failed to remove dir: " + at("d") + " [err: " + errnoText(ENOTEMPTY) + "]."});
    const std::string tooLong = "d/" + std::string(NAME_MAX + 1, 'n');
    EXPECT_FALSE(fs::mkDir(path(tooLong)));
    EXPECT_TRUE(capturedErrorIs(ENAMETOOLONG, "mkDir"));
    expectLines({"error: Failed to create dir: " + at(tooLong) +
                 " [err: " + errnoText(ENAMETOOLONG) + "]."});
  }

  void useStreams() {
    FILE* stream = fs::Fopen(path("f.txt"), "w+b");
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fs::Fwrite(name_.data(), 1, name_.size(), stream), name_.size());
    EXPECT_EQ(fs::Fflush(stream), 0);
    EXPECT_EQ(fs::Fseek(stream, 0, SEEK_SET), 0);
    std::array<char, 8> buffer{};
    EXPECT_EQ(fs::Fread(buffer.data(), 1, buffer.size(), stream), name_.size());
    EXPECT_EQ(fs::Ftell(stream), static_cast<long long>(name_.size()));
    stream = fs::Freopen(path("f.txt"), "rb", stream);
    ASSERT_NE(stream, nullptr);
    EXPECT_EQ(fs::Fclose(stream), 0);
    EXPECT_EQ(fs::Frename(path("f.txt"), path("g.txt")), 0);
    EXPECT_TRUE(fs::isFile(path("g.txt")));
  }

  void copyAndMove() {
    EXPECT_TRUE(fs::copyFile(path("g.txt"), path("d/copy.txt")));
    EXPECT_TRUE(fs::moveFile(path("g.txt"), path("d/moved.txt")));
    EXPECT_EQ(tmp_.read(name_ + "/d/copy.txt"), name_);
    EXPECT_EQ(tmp_.read(name_ + "/d/moved.txt"), name_);
    EXPECT_FALSE(fs::copyFile(path("missing"), path("MISSING")));
    expectLines({"warning: Cannot copy '" + at("missing") + "' to itself."});
  }

  void packAndUnpack() {
    std::vector<std::string> reported;
    EXPECT_TRUE(fs::writeZip(
        path("pack.zip"), {path("d/copy.txt"), path("missing")},
        [&](const fs::ZipProgress& report) { reported.push_back(text(report.file)); }));
    EXPECT_EQ(reported, lines("res/copy.txt"));
    expectLines({"error: Cannot add non-existent file to archive: " + at("missing")});
    EXPECT_EQ(texts(fs::readZip(path("pack.zip"), path("out"), {})), lines(at("out/res/copy.txt")));
    EXPECT_TRUE(capturedErrorIs(0, "mkDir"));
    EXPECT_TRUE(fs::writeKsz(path("pack.ksz"), {path("d/moved.txt")}, {}));
    EXPECT_TRUE(fs::readKsz(path("pack.ksz"), {}));
    EXPECT_EQ(tmp_.read(name_ + "/res/moved.txt"), name_);
  }

  void list() {
    EXPECT_EQ(texts(fs::listDirs(path("d"))), lines(at("d/e")));
    EXPECT_THAT(texts(fs::listFiles(path("d"), {"txt"})),
                testing::UnorderedElementsAre(at("d/copy.txt"), at("d/moved.txt")));
  }

  void askForLocations() {
    EXPECT_TRUE(fs::isFile(fs::exePath()));
    EXPECT_TRUE(fs::isDir(fs::exeDir()));
    EXPECT_EQ(fs::appDir(), fs::exeDir());
    EXPECT_EQ(fs::resDir(), fs::exeDir());
    EXPECT_TRUE(fs::isDir(fs::currentDir()));
    EXPECT_EQ(fs::homeDir(), String(tmp_.path()));
    EXPECT_EQ(fs::tempDir(), String(tmp_.path()));
    EXPECT_EQ(fs::kavraUserDir(/*create=*/false), String(tmp_.path("kavra")));
    EXPECT_EQ(fs::kavraConfigDir(/*create=*/true), String(tmp_.path("kavra/config")));
    EXPECT_EQ(fs::kavraNodeHelpPath(/*asUrl=*/false), String(tmp_.path("kavra/nodehelp.html")));
    String out;
    EXPECT_FALSE(fs::getKavraOutputDir(out, /*create=*/false));
    EXPECT_FALSE(fs::getKavraPreviewDir(out, /*create=*/false));
    expectLines({"error: Failed to find kavra output dir: " + tmp_.path("kavra/output") + " (" +
                     kOwnMessage + ").",
                 "error: Failed to find kavra preview dir: " + tmp_.path("kavra/preview") + " (" +
                     kOwnMessage + ")."});
  }

  void resolve() {
    EXPECT_EQ(fs::resolvePath("tex/shared.png", {path("d"), String(tmp_.path("kavra"))}, {"tx"}),
              String(tmp_.path("kavra/shared.png")));
    EXPECT_EQ(Path(path("d/./e/../x"), /*normalizeFirst=*/true).canonical(), path("d/x"));
  }

  void removeEverything() {
    for (const char* const file : {"pack.zip", "pack.ksz", "out/res/copy.txt", "res/moved.txt",
                                   "d/copy.txt", "d/moved.txt"}) {
      EXPECT_TRUE(fs::rmFile(path(file))) << file;
    }
    for (const char* const directory : {"out/res", "out", "res", "d/e", "d"}) {
      EXPECT_TRUE(fs::rmDir(path(directory))) << directory;
    }
  }

  const TempDir& tmp_;
  std::string name_;
  LinesByThread& log_;
};

TEST(EightThreads, DoTheirOwnWorkWithTheirOwnLinesAndErrors) {
  const TempDir tmp;
  tmp.mkdir("kavra/config");
  tmp.write("kavra/shared.png", "text");
  for (int number = 0; number < kThreads; ++number) {
    tmp.mkdir("t" + std::to_string(number));
  }
  const ScopedEnv home("HOME", tmp.path());
  const ScopedEnv temp("TMPDIR", tmp.path());
  const ScopedEnv userDir("KAVRA_USER_DIR", nullptr);
  const ScopedEnv timeZone(kTimeZone, "UTC0");
  LinesByThread log;

  onAllThreads([&](int number) {
    Worker worker(tmp, number, log);
    for (int round = 0; round < kRounds && !testing::Test::HasFailure(); ++round) {
      worker.run();
    }
  });

  EXPECT_EQ(tmp.entries(), lines("kavra/", "kavra/config/", "kavra/shared.png", "t0/", "t1/", "t2/",
                                 "t3/", "t4/", "t5/", "t6/", "t7/"));
}

// Any of them may make a level. Who comes second to one fails, and says so.
TEST(EightThreads, MakeOneTreeTogether) {
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

// ---- The current error -------------------------------------------------------------------------

TEST(EightThreads, HaveACurrentErrorEach) {
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

// ---- The log -----------------------------------------------------------------------------------

// What a sink refers to may go as soon as another has taken its place.
TEST(EightThreads, LogWhileTheSinkIsReplaced) {
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
TEST(EightThreads, AreInsideTheSinkOneAtATime) {
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

// ---- Shared handles ----------------------------------------------------------------------------

TEST(EightThreads, CopyChangeAndDropHandlesToOneString) {
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

TEST(EightThreads, CopyGrowAndDropHandlesToOneList) {
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

// Any of them may be the one that drops the last handle.
TEST(EightThreads, DropTheLastHandleWhereverItIs) {
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

// The functions take handles that other threads hold too.
TEST(EightThreads, PassTheSameHandlesToTheFunctions) {
  const TempDir tmp;
  tmp.write("d/a.png", "text");
  tmp.mkdir("d/e");
  const String directory(tmp.path("d"));
  const String file(tmp.path("d/a.png"));
  const StringVector searched = {String(tmp.path("missing")), directory};
  const StringVector extensions = {"jpg", "png"};
  const ScopedEnv timeZone(kTimeZone, "UTC0");
  const LogCapture log;

  onAllThreads([&](int number) {
    const String out(tmp.path("out" + std::to_string(number)));
    for (int round = 0; round < kRounds; ++round) {
      EXPECT_TRUE(fs::isDir(directory));
      EXPECT_TRUE(fs::mkDir(directory));
      EXPECT_EQ(texts(fs::listDirs(directory)), lines(tmp.path("d/e")));
      EXPECT_EQ(texts(fs::listFiles(directory, extensions)), lines(tmp.path("d/a.png")));
      EXPECT_EQ(fs::resolvePath("a.*", searched, extensions), file);
      EXPECT_TRUE(fs::copyFile(file, out));
      EXPECT_TRUE(fs::writeZip(out + ".zip", {file, file}, {}));
      EXPECT_EQ(fs::readZip(out + ".zip", out + ".d", {}).size(), 2U);
    }
  });

  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.read("d/a.png"), "text");
}

}  // namespace
}  // namespace vx::test
