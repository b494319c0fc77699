// ksz as it packs and unpacks.

#include "tests/integration/run_ksz.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using vx::test::become;
using vx::test::Outcome;
using vx::test::run;
using vx::test::runOnTerminal;
using vx::test::statusOf;
using vx::test::TempDir;

/// The program in the middle of packing: the first file is done, and the second, a pipe to which
/// nobody writes, keeps it.
class StuckPack {
 public:
  explicit StuckPack(const TempDir& tmp, void (*onHangUp)(int) = SIG_DFL) {
    tmp.write("room.ksx", "a room");
    mkfifo(tmp.path("pipe.png").c_str(), 0600);
    std::array<int, 2> ends = {-1, -1};
    EXPECT_EQ(pipe(ends.data()), 0);
    child_ = fork();
    if (child_ == 0) {
      std::signal(SIGHUP, onHangUp);
      std::signal(SIGINT, SIG_DFL);  // ignored where the tests run in the background
      std::signal(SIGTERM, SIG_DFL);
      dup2(ends[1], STDOUT_FILENO);
      close(STDERR_FILENO);
      become(tmp.path(), {"pack", "room.ksz", "room.ksx", "pipe.png"});
    }
    close(ends[1]);
    output_ = ends[0];
    waitForReportOf("room.ksx");
  }
  StuckPack(const StuckPack&) = delete;
  StuckPack& operator=(const StuckPack&) = delete;
  ~StuckPack() { close(output_); }

  void send(int signal) const { kill(child_, signal); }
  [[nodiscard]] int end() const { return statusOf(child_); }

 private:
  void waitForReportOf(const std::string& file) const {
    std::string seen;
    char byte = 0;
    while (!seen.ends_with(file + "\n") && read(output_, &byte, 1) == 1) {
      seen += byte;
    }
  }

  pid_t child_ = -1;
  int output_ = -1;
};

std::vector<std::string> packedScene(const TempDir& tmp) {
  tmp.write("in/room.ksx", "a room");
  tmp.write("in/lamp.ksa", "a lamp");
  tmp.write("in/Dämmerung.png", std::string("\0\1\2", 3));
  return {"pack", "out/room.ksz", "in/room.ksx", "in/lamp.ksa", "in/Dämmerung.png"};
}

TEST(Ksz, GivesBackWhatItPacked) {
  const TempDir tmp;
  tmp.mkdir("out");
  EXPECT_EQ(run(tmp, packedScene(tmp)).status, 0);

  const Outcome outcome = run(tmp, {"unpack", "out/room.ksz"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(tmp.read("out/room.ksx"), "a room");
  EXPECT_EQ(tmp.read("out/lamp.ksa"), "a lamp");
  EXPECT_EQ(tmp.read("out/res/Dämmerung.png"), std::string("\0\1\2", 3));
}

TEST(Ksz, TellsWhatLandedWhereAsSeenFromTheDirectoryOfTheArchive) {
  const TempDir tmp;
  tmp.mkdir("out");
  run(tmp, packedScene(tmp));

  const Outcome outcome = run(tmp, {"unpack", "out/room.ksz"});

  EXPECT_EQ(outcome.out, tmp.path("out") + ":\n  room.ksx\n  lamp.ksa\n  res/D\u00e4mmerung.png\n");
}

TEST(Ksz, UnpacksAnArchiveInTheCurrentDirectory) {
  const TempDir tmp;
  tmp.write("wood.png", "wood");
  run(tmp, {"pack", "a.ksz", "wood.png"});

  const Outcome outcome = run(tmp, {"unpack", "a.ksz"});

  EXPECT_EQ(outcome.out, tmp.path() + ":\n  res/wood.png\n");
  EXPECT_EQ(outcome.status, 0);
}

TEST(Ksz, PrintsALineForEachReportWhereThereIsNoTerminal) {
  const TempDir tmp;
  tmp.mkdir("out");

  const Outcome outcome = run(tmp, packedScene(tmp));

  EXPECT_EQ(outcome.out,
            "  0% out/room.ksz\n"
            "  0% room.ksx\n"
            " 33% lamp.ksa\n"
            " 66% res/D\u00e4mmerung.png\n"
            "100% out/room.ksz\n");
}

TEST(Ksz, DrawsABarOnATerminalAndCompletesItAtTheEnd) {
  const TempDir tmp;
  tmp.write("room.ksx", "a room");
  tmp.write("lamp.ksa", "a lamp");

  const Outcome outcome = runOnTerminal(tmp, {"pack", "room.ksz", "room.ksx", "lamp.ksa"});

  const std::string blank(15, ' ');
  const std::string half(15, '#');
  EXPECT_EQ(outcome.out, "\r\033[K[" + blank + blank +
                             "]   0% room.ksz"
                             "\r\033[K[" +
                             blank + blank +
                             "]   0% room.ksx"
                             "\r\033[K[" +
                             half + blank +
                             "]  50% lamp.ksa"
                             "\r\033[K[" +
                             half + half + "] 100% room.ksz\r\n");
  EXPECT_EQ(outcome.status, 0);
}

TEST(Ksz, PutsMessagesOnALineOfTheirOwnOnATerminal) {
  const TempDir tmp;

  const Outcome outcome = runOnTerminal(tmp, {"pack", "room.ksz", "missing.png"});

  EXPECT_EQ(outcome.out, "\r\033[K[" + std::string(30, ' ') +
                             "]   0% room.ksz"
                             "\r\033[K"
                             "error: Cannot add non-existent file to archive: missing.png\r\n"
                             "\r\033[K");
}

TEST(Ksz, CutsALongNameOnATerminalBetweenCharacters) {
  const TempDir tmp;
  std::string name;
  std::string shown;
  for (int i = 0; i < 60; ++i) {
    name += "\u00e4";
    shown += i < 36 ? "\u00e4" : "";  // "res/" makes it 40
  }
  tmp.write(name, "");

  const Outcome outcome = runOnTerminal(tmp, {"pack", "a.ksz", name});

  EXPECT_NE(outcome.out.find("res/" + shown + "\r"), std::string::npos) << outcome.out;
}

TEST(Ksz, ShowsNoControlCharactersOfANameThatItPacksOrUnpacks) {
  const TempDir tmp;
  tmp.write("a\n\033b\x7f.png", "");

  const Outcome packed = run(tmp, {"pack", "a.ksz", "a\n\033b\x7f.png"});
  const Outcome unpacked = run(tmp, {"unpack", "a.ksz"});

  EXPECT_EQ(packed.out, "  0% a.ksz\n  0% res/a??b?.png\n100% a.ksz\n");
  EXPECT_EQ(unpacked.out, tmp.path() + ":\n  res/a??b?.png\n");
}

TEST(Ksz, LeavesNoArchiveThatLacksAFile) {
  const TempDir tmp;
  tmp.write("room.ksx", "a room");

  const Outcome outcome = run(tmp, {"pack", "room.ksz", "mistyped.png", "room.ksx"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "error: Cannot add non-existent file to archive: mistyped.png\n");
  EXPECT_EQ(outcome.out, "  0% room.ksz\n 50% room.ksx\n");
  EXPECT_FALSE(tmp.exists("room.ksz"));
}

TEST(Ksz, FailsWithTheMessageWhenTheArchiveCannotBeCreated) {
  const TempDir tmp;
  tmp.write("room.ksx", "a room");

  const Outcome outcome = run(tmp, {"pack", "missing/room.ksz", "room.ksx"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "error: Failed to initialize archive: missing/room.ksz\n");
}

TEST(Ksz, FailsWithTheMessageWhenThereIsNoArchiveToUnpack) {
  const TempDir tmp;

  const Outcome outcome = run(tmp, {"unpack", "missing.ksz"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "error: Cannot expand non-existent archive: missing.ksz\n");
  EXPECT_EQ(outcome.out, "");
}

TEST(Ksz, SaysThatAnArchiveHoldsNoFile) {
  const TempDir tmp;
  tmp.write("a.ksz", "PK\5\6" + std::string(18, '\0'));

  const Outcome outcome = run(tmp, {"unpack", "a.ksz"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "ksz: no file in the archive: a.ksz\n");
  EXPECT_EQ(outcome.out, "");
}

TEST(Ksz, UnpacksWhatItCanOfADamagedArchiveAndFails) {
  const TempDir tmp;
  tmp.write("one.png", "first");
  tmp.write("two.png", "second");
  run(tmp, {"pack", "a.ksz", "one.png", "two.png"});
  std::string bytes = tmp.read("a.ksz");
  const std::size_t entry = bytes.find("PK\1\2");
  const std::size_t checksum = entry + 16;
  bytes[checksum] = static_cast<char>(bytes[checksum] ^ 1);
  tmp.write("a.ksz", bytes);

  const Outcome outcome = run(tmp, {"unpack", "a.ksz"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "error: Failed to extract file " + tmp.path("res/one.png") + " from archive.\n");
  EXPECT_EQ(outcome.out, tmp.path() + ":\n  res/two.png\n");
}

TEST(Ksz, KeepsAFileThatStandsWhereTheNameOfTheArchiveWasForgotten) {
  const TempDir tmp;
  tmp.write("one.png", "first");
  tmp.write("two.png", "second");

  const Outcome outcome = run(tmp, {"pack", "one.png", "two.png"});

  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find("the archive's name must end in .ksz: one.png"), std::string::npos);
  EXPECT_EQ(tmp.read("one.png"), "first");
}

TEST(Ksz, TakesTheExtensionOfTheArchiveInAnyLetterCase) {
  const TempDir tmp;
  tmp.write("one.png", "first");

  EXPECT_EQ(run(tmp, {"pack", "ONE.KSZ", "one.png"}).status, 0);
}

TEST(Ksz, TellsAWrongCommandLineFromAFailure) {
  const TempDir tmp;

  EXPECT_EQ(run(tmp, {}).status, 2);
  EXPECT_EQ(run(tmp, {"pack", "a.ksz"}).status, 2);
  EXPECT_EQ(run(tmp, {"--help"}).status, 0);
}

class KszStopped : public testing::TestWithParam<int> {};

TEST_P(KszStopped, RemovesTheUnfinishedArchiveAtOnce) {
  const TempDir tmp;
  const StuckPack pack(tmp);
  EXPECT_TRUE(tmp.exists("room.ksz"));

  pack.send(GetParam());

  EXPECT_EQ(pack.end(), 128 + GetParam());
  EXPECT_FALSE(tmp.exists("room.ksz"));
}

INSTANTIATE_TEST_SUITE_P(BySignal, KszStopped, testing::Values(SIGHUP, SIGINT, SIGTERM),
                         [](const testing::TestParamInfo<int>& signal) {
                           return std::string(sigabbrev_np(signal.param));
                         });

TEST(Ksz, GoesOnAfterAHangUpThatItsCallerIgnores) {
  const TempDir tmp;
  const StuckPack pack(tmp, SIG_IGN);

  pack.send(SIGHUP);
  pack.send(SIGTERM);

  EXPECT_EQ(pack.end(), 128 + SIGTERM);
}

}  // namespace
