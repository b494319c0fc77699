// SPDX-License-Identifier: MIT
//
// What remains when the process is killed before one of the calls of moveFile or writeZip.

#include "fs/vx_fs.h"
#include "tests/testing/calls.h"
#include "tests/testing/child.h"
#include "tests/testing/sandbox.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <functional>
#include <string>
#include <vector>

namespace vx::test {
namespace {

/// Runs `body` in a child that is killed before its call of that number, counted from 1.
void runUntilCall(std::size_t number, const std::function<void()>& body) {
  const ChildEnd end = endOfChild([&] {
    Calls calls;
    calls.kill("", static_cast<int>(number));
    body();
  });
  ASSERT_EQ(end.signal, SIGKILL);
}

TEST(MoveFileKilled, KeepsTheOldFileUnderOneOfTwoNames) {
  struct Row {
    const char* call;  ///< which is not made any more
    std::vector<std::string> entries;
    std::vector<std::string> contents;  ///< of each entry
  };
  const Row rows[] = {
      {"stat src", {"dst.bak", "dst.txt", "src"}, {"stale", "old", "new"}},
      {"remove dst.bak", {"dst.bak", "dst.txt", "src"}, {"stale", "old", "new"}},
      {"rename dst.txt dst.bak", {"dst.txt", "src"}, {"old", "new"}},
      {"rename src dst.txt", {"dst.bak", "src"}, {"old", "new"}},
      {"remove dst.bak", {"dst.bak", "dst.txt"}, {"old", "new"}},
  };
  std::vector<std::string> calls;
  for (const Row& row : rows) {
    calls.emplace_back(row.call);
    SCOPED_TRACE("before " + calls.back());
    const Sandbox box;
    box.tmp.write("src", "new");
    box.tmp.write("dst.txt", "old");
    box.tmp.write("dst.bak", "stale");

    runUntilCall(calls.size(), [] { fs::moveFile("src", "dst.txt"); });

    ASSERT_EQ(box.tmp.entries(), row.entries);
    for (std::size_t i = 0; i < row.entries.size(); ++i) {
      EXPECT_EQ(box.tmp.read(row.entries[i]), row.contents[i]) << row.entries[i];
    }
  }

  const Sandbox box;
  box.tmp.write("src", "new");
  box.tmp.write("dst.txt", "old");
  box.tmp.write("dst.bak", "stale");
  const Calls all;
  EXPECT_TRUE(fs::moveFile("src", "dst.txt"));
  EXPECT_EQ(all.all(), calls);
}

/// The number of the first call of this text, counted from 1.
std::size_t numberOf(const Calls& calls, const std::string& text) {
  for (std::size_t i = 0; i < calls.records().size(); ++i) {
    if (calls.records()[i].text == text) {
      return i + 1;
    }
  }
  ADD_FAILURE() << "not called: " << text;
  return 0;
}

TEST(WriteZipKilled, LeavesTheOldTheNewOrAnUnreadableArchive) {
  const std::string wood(100'000, 'w');
  const auto arrange = [&](const TempDir& tmp) {
    tmp.write("look.ksx", "scene");
    tmp.write("wood.png", wood);
    tmp.write("pack.zip", "old");
  };
  const auto write = [] { return fs::writeZip("pack.zip", {"look.ksx", "wood.png"}, {}); };
  std::size_t count = 0;
  std::size_t opened = 0;
  std::size_t flushed = 0;
  {
    const Sandbox box;
    arrange(box.tmp);
    const Calls calls;
    ASSERT_TRUE(write());
    count = calls.records().size();
    opened = numberOf(calls, "fopen pack.zip wb");
    flushed = numberOf(calls, "fflush");
  }
  for (std::size_t number = 1; number <= count; ++number) {
    SCOPED_TRACE("before call " + std::to_string(number));
    const Sandbox box;
    arrange(box.tmp);

    runUntilCall(number, write);

    ASSERT_EQ(box.tmp.entries(), lines("look.ksx", "pack.zip", "wood.png"));
    ASSERT_EQ(box.tmp.read("look.ksx"), "scene");
    ASSERT_EQ(box.tmp.read("wood.png"), wood);
    if (number <= opened) {
      ASSERT_EQ(box.tmp.read("pack.zip"), "old");
      continue;
    }
    const StringVector extracted = fs::readZip("pack.zip", "out", {});
    if (number <= flushed) {
      // The directory of the archive, which comes last, is missing.
      ASSERT_EQ(box.log.all(),
                lines("error: Failed to initialize archive: " + box.tmp.path("pack.zip")));
      ASSERT_EQ(texts(extracted), lines());
      continue;
    }
    ASSERT_EQ(box.log.all(), lines());
    ASSERT_EQ(texts(extracted), lines(box.tmp.path("pack.ksx"), "out/res/wood.png"));
    ASSERT_EQ(box.tmp.read("pack.ksx"), "scene");
    ASSERT_EQ(box.tmp.read("out/res/wood.png"), wood);
  }
}

}  // namespace
}  // namespace vx::test
