// What a process leaves behind that is killed before one of the calls of moveFile or writeZip.

#include "fs/vx_fs.h"
#include "tests/faults/fail_calls.h"
#include "tests/testing/child.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <string>
#include <vector>

namespace vx::test {
namespace {

/// Runs `function` in a child that is killed before its call of that number.
template <class Function>
void runUntilCall(std::size_t number, Function function) {
  const ChildEnd end = endOfChild([&] {
    const CallWatch watch({.call = number, .kills = true});
    function();
  });
  ASSERT_TRUE(end.wasKilled()) << "it makes fewer calls";
  ASSERT_EQ(end.signal, SIGKILL);
}

/// The texts of the calls that `function` makes.
template <class Function>
std::vector<std::string> callsOf(Function function) {
  CallWatch watch;
  function();
  watch.stop();
  std::vector<std::string> texts;
  for (const WatchedCall& call : watch.calls()) {
    texts.push_back(call.text);
  }
  return texts;
}

// ---- moveFile ----------------------------------------------------------------------------------

struct Stop {
  std::string before;                 ///< the call that is not made any more
  std::vector<std::string> entries;   ///< what lies there then
  std::vector<std::string> contents;  ///< of each
};

std::vector<Stop> stopsOfMoveFile() {
  return {
      // Nothing is touched while the source is looked at.
      {"stat src", {"dst.bak", "dst.txt", "src"}, {"stale", "old", "new"}},
      {"remove dst.bak", {"dst.bak", "dst.txt", "src"}, {"stale", "old", "new"}},
      // What bore the backup's name is lost.
      {"rename dst.txt dst.bak", {"dst.txt", "src"}, {"old", "new"}},
      // The old file is under the backup's name, and nothing at the destination.
      {"rename src dst.txt", {"dst.bak", "src"}, {"old", "new"}},
      // The move is done; the old file is still there.
      {"remove dst.bak", {"dst.bak", "dst.txt"}, {"old", "new"}},
  };
}

void arrangeMove(const TempDir& tmp) {
  tmp.write("src", "new");
  tmp.write("dst.txt", "old");
  tmp.write("dst.bak", "stale");
}

TEST(MoveFileToBeKilled, StopsBeforeOneOfTheseCalls) {
  const TempDir tmp;
  arrangeMove(tmp);
  const ScopedCurrentDir inside(tmp.path());

  const std::vector<std::string> calls = callsOf([] { fs::moveFile("src", "dst.txt"); });

  std::vector<std::string> expected;
  for (const Stop& stop : stopsOfMoveFile()) {
    expected.push_back(stop.before);
  }
  EXPECT_EQ(calls, expected);
}

class MoveFileKilled : public testing::TestWithParam<std::size_t> {};

TEST_P(MoveFileKilled, LeavesTheOldFileUnderOneOfTheTwoNames) {
  const Stop stop = stopsOfMoveFile()[GetParam()];
  const TempDir tmp;
  arrangeMove(tmp);
  const ScopedCurrentDir inside(tmp.path());

  runUntilCall(GetParam() + 1, [] { fs::moveFile("src", "dst.txt"); });

  EXPECT_EQ(tmp.entries(), stop.entries);
  for (std::size_t i = 0; i < stop.entries.size(); ++i) {
    EXPECT_EQ(tmp.read(stop.entries[i]), stop.contents[i]) << stop.entries[i];
  }
}

INSTANTIATE_TEST_SUITE_P(BeforeCall, MoveFileKilled, testing::Range<std::size_t>(0, 5));

// ---- writeZip ----------------------------------------------------------------------------------

bool writeThePack() {
  return fs::writeZip("pack.zip", {"look.ksx", "wood.png"}, {});
}

TEST(WriteZipKilled, LeavesTheOldArchiveOrNoneThatCanBeReadOrTheNewOne) {
  std::size_t steps = 0;
  std::size_t opened = 0;
  std::size_t flushed = 0;
  {
    const TempDir tmp;
    tmp.write("look.ksx", "scene");
    tmp.write("wood.png", std::string(100'000, 'w'));
    tmp.write("pack.zip", "old");
    const ScopedCurrentDir inside(tmp.path());
    const std::vector<std::string> calls = callsOf([] { writeThePack(); });
    const auto indexOf = [&](const std::string& call) {
      return static_cast<std::size_t>(std::find(calls.begin(), calls.end(), call) - calls.begin());
    };
    steps = calls.size();
    opened = indexOf("fopen64 pack.zip");
    flushed = indexOf("fflush");
    ASSERT_LT(opened, steps);
    ASSERT_LT(flushed, steps);
  }
  for (std::size_t step = 0; step < steps; ++step) {
    SCOPED_TRACE("killed before call " + std::to_string(step + 1));
    const TempDir tmp;
    tmp.write("look.ksx", "scene");
    tmp.write("wood.png", std::string(100'000, 'w'));
    tmp.write("pack.zip", "old");
    const ScopedCurrentDir inside(tmp.path());

    runUntilCall(step + 1, [] { writeThePack(); });

    ASSERT_EQ(tmp.entries(), lines("look.ksx", "pack.zip", "wood.png"));
    ASSERT_EQ(tmp.read("look.ksx"), "scene");
    ASSERT_EQ(tmp.read("wood.png"), std::string(100'000, 'w'));
    if (step <= opened) {
      ASSERT_EQ(tmp.read("pack.zip"), "old");
      continue;
    }
    const LogCapture log;
    const StringVector extracted = fs::readZip("pack.zip", "out", {});
    if (step <= flushed) {
      // Without its directory, which comes last, nothing is an archive.
      ASSERT_EQ(log.all(), lines("error: Failed to initialize archive: " + tmp.path("pack.zip")));
      ASSERT_TRUE(extracted.empty());
      continue;
    }
    ASSERT_EQ(log.all(), lines());
    ASSERT_EQ(extracted.size(), 2U);
    ASSERT_EQ(tmp.read("pack.ksx"), "scene");
    ASSERT_EQ(tmp.read("out/res/wood.png"), std::string(100'000, 'w'));
  }
}

}  // namespace
}  // namespace vx::test
