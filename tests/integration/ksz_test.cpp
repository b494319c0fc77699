// SPDX-License-Identifier: MIT
//
// Archives with ksz: what is packed and unpacked, and what is left after a failure or a signal.

#include "tests/integration/run_ksz.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using vx::test::lines;
using vx::test::Outcome;
using vx::test::run;
using vx::test::runOnTerminal;
using vx::test::start;
using vx::test::statusOf;
using vx::test::TempDir;

bool waitUntil(const std::function<bool()>& isReached) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!isReached() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return isReached();
}

bool anyEntry(const TempDir& tmp, const std::function<bool(const std::string&)>& matches) {
  return std::any_of(std::filesystem::recursive_directory_iterator(tmp.path()),
                     std::filesystem::recursive_directory_iterator(),
                     [&](const auto& entry) { return matches(entry.path()); });
}

/// No file that the process and its children write gets larger than `bytes`, as on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : before_(), onExcess_(std::signal(SIGXFSZ, SIG_IGN)) {
    getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit = {.rlim_cur = bytes, .rlim_max = before_.rlim_max};
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, onExcess_);
  }

 private:
  rlimit before_;
  void (*onExcess_)(int);
};

// ---- pack -------------------------------------------------------------------------------------

TEST(KszPack, ReportsEachFileOnStandardError) {
  const TempDir tmp;
  tmp.write("room.ksx", "a room");
  tmp.write("D\u00e4mmerung.png", "dusk");

  const Outcome outcome = run(tmp, {"pack", "room.ksz", "room.ksx", "D\u00e4mmerung.png"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err,
            "  0% room.ksz\n"
            "  0% room.ksx\n"
            " 50% res/D\u00e4mmerung.png\n"
            "100% room.ksz\n");
  EXPECT_EQ(tmp.entries(), lines("D\u00e4mmerung.png", "room.ksx", "room.ksz"));
}

TEST(KszPack, IsSilentWhenQuiet) {
  const TempDir tmp;
  tmp.write("a.png", "");

  const Outcome outcome = run(tmp, {"pack", "-q", "a.ksz", "a.png"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_EQ(runOnTerminal(tmp, {"pack", "b.ksz", "-q", "a.png"}).out, "");
}

TEST(KszPack, DrawsABarOnATerminal) {
  const TempDir tmp;
  tmp.write("room.ksx", "a room");
  tmp.write("lamp.ksa", "a lamp");

  const Outcome outcome = runOnTerminal(tmp, {"pack", "room.ksz", "room.ksx", "lamp.ksa"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out,
            "\r\033[K[                              ]   0% room.ksz"
            "\r\033[K[                              ]   0% room.ksx"
            "\r\033[K[###############               ]  50% lamp.ksa"
            "\r\033[K[##############################] 100% room.ksz\r\n");
}

TEST(KszPack, FitsTheBarIntoANarrowTerminal) {
  const TempDir tmp;
  tmp.write("a_long_name_of_a_file.png", "");

  const std::vector<std::string> arguments = {"pack", "--force", "a.ksz",
                                              "a_long_name_of_a_file.png"};

  EXPECT_EQ(runOnTerminal(tmp, arguments, 31).out,
            "\r\033[K[                 ]   0% a.ksz"
            "\r\033[K[          ]   0% res/a_long_n"
            "\r\033[K[#################] 100% a.ksz\r\n");
  EXPECT_EQ(runOnTerminal(tmp, arguments, 12).out,
            "\r\033[K  0% a.ksz"
            "\r\033[K  0% res/a_"
            "\r\033[K100% a.ksz\r\n");
}

TEST(KszPack, CutsALongNameBetweenCharacters) {
  const TempDir tmp;
  tmp.write("\u6728\u6728\u6728\u6728\u6728\u6728\u6728.png", "");

  const Outcome outcome =
      runOnTerminal(tmp, {"pack", "a.ksz", "\u6728\u6728\u6728\u6728\u6728\u6728\u6728.png"}, 15);

  EXPECT_NE(outcome.out.find("\r\033[K  0% res/\u6728\u6728\r"), std::string::npos) << outcome.out;
}

TEST(KszPack, ErasesTheBarBeforeAMessage) {
  const TempDir tmp;
  tmp.write("a.png", std::string(100'000, 'x'));
  const FileSizeLimit limit(10);

  const Outcome outcome = runOnTerminal(tmp, {"pack", "a.ksz", "a.png"});

  EXPECT_EQ(outcome.out,
            "\r\033[K[                              ]   0% a.ksz"
            "\r\033[K[                              ]   0% res/a.png"
            "\r\033[Kerror: Failed to finalize archive: a.ksz\r\n"
            "\r\033[K");
}

TEST(KszPack, ShowsNoControlCharacters) {
  const TempDir tmp;
  const std::string name = "a\n\033b\x7f\u009bc\x9b\u0434.png";
  tmp.write(name, "");

  EXPECT_EQ(run(tmp, {"pack", "a.ksz", name}).err,
            "  0% a.ksz\n  0% res/a??b??c?\u0434.png\n100% a.ksz\n");
}

TEST(KszPack, TakesNamesAfterADoubleDash) {
  const TempDir tmp;
  tmp.write("a.png", "");
  tmp.write("-q", "");

  EXPECT_EQ(run(tmp, {"pack", "--", "1.ksz", "a.png", "-q"}).status, 0);
  EXPECT_EQ(run(tmp, {"pack", "2.ksz", "--", "-q"}).status, 0);
  EXPECT_EQ(run(tmp, {"pack", "3.ksz", "a.png", "--", "-q"}).err,
            "  0% 3.ksz\n  0% res/a.png\n 50% res/-q\n100% 3.ksz\n");
}

TEST(KszPack, KeepsAnArchiveWithoutForce) {
  const TempDir tmp;
  tmp.write("a.ksz", "old");
  tmp.write("a.png", "");

  const Outcome refused = run(tmp, {"pack", "a.ksz", "a.png"});

  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.err, "ksz: already exists, use --force to overwrite it: a.ksz\n");
  EXPECT_EQ(tmp.read("a.ksz"), "old");
  EXPECT_EQ(run(tmp, {"pack", "--force", "a.ksz", "a.png"}).status, 0);
  EXPECT_TRUE(tmp.read("a.ksz").starts_with("PK"));
  EXPECT_EQ(tmp.entries(), lines("a.ksz", "a.png"));
}

TEST(KszPack, ReplacesTheArchiveBehindALink) {
  const TempDir tmp;
  tmp.write("real/a.ksz", "old");
  tmp.link("a.ksz", "real/a.ksz");
  tmp.write("a.png", "");

  EXPECT_EQ(run(tmp, {"pack", "--force", "a.ksz", "a.png"}).status, 0);

  EXPECT_TRUE(tmp.read("real/a.ksz").starts_with("PK"));
  EXPECT_TRUE(std::filesystem::is_symlink(tmp.path("a.ksz")));
}

TEST(KszPack, KeepsAFileWithTheNameOfTheBackup) {
  const TempDir tmp;
  tmp.write("a.bak", "kept");
  tmp.write("a.png", "");

  const Outcome outcome = run(tmp, {"pack", "a.ksz", "a.png"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "ksz: has the name of the backup, rename it first: a.bak\n");
  EXPECT_EQ(tmp.entries(), lines("a.bak", "a.png"));
  EXPECT_EQ(tmp.read("a.bak"), "kept");
}

TEST(KszPack, RefusesTheArchiveAmongItsFiles) {
  const TempDir tmp;
  tmp.write("a.ksz", "old");
  tmp.link("link.ksz", "a.ksz");
  tmp.write("a.png", "");

  const Outcome outcome = run(tmp, {"pack", "--force", "a.ksz", "a.png", "link.ksz"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "ksz: an archive cannot contain itself: link.ksz\n");
  EXPECT_EQ(tmp.read("a.ksz"), "old");
}

TEST(KszPack, KeepsTheArchiveWhenAFileIsMistyped) {
  const TempDir tmp;
  tmp.write("a.ksz", "old");
  tmp.write("a.png", "");

  const Outcome outcome = run(tmp, {"pack", "--force", "a.ksz", "mistyped.png", "a.png"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "ksz: no such file: mistyped.png\n");
  EXPECT_EQ(tmp.entries(), lines("a.ksz", "a.png"));
  EXPECT_EQ(tmp.read("a.ksz"), "old");
}

TEST(KszPack, KeepsTheArchiveWhenTheDiskIsFull) {
  const TempDir tmp;
  tmp.write("a.ksz", "old");
  tmp.write("a.png", std::string(100'000, 'x'));
  const FileSizeLimit limit(10);

  EXPECT_EQ(run(tmp, {"pack", "-q", "--force", "a.ksz", "a.png"}).status, 1);

  EXPECT_EQ(tmp.entries(), lines("a.ksz", "a.png"));
  EXPECT_EQ(tmp.read("a.ksz"), "old");
}

TEST(KszPack, FailsInAMissingDirectory) {
  const TempDir tmp;
  tmp.write("a.png", "");

  const Outcome outcome = run(tmp, {"pack", "missing/a.ksz", "a.png"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "ksz: no such directory: missing\n");
}

TEST(KszPack, KeepsAFileWhenTheArchiveIsForgotten) {
  const TempDir tmp;
  tmp.write("one.png", "first");
  tmp.write("two.png", "second");

  const Outcome outcome = run(tmp, {"pack", "one.png", "two.png"});

  EXPECT_EQ(outcome.status, 2);
  EXPECT_NE(outcome.err.find("the archive's name must end in .ksz: one.png"), std::string::npos);
  EXPECT_EQ(tmp.read("one.png"), "first");
}

TEST(KszPack, TakesAnUpperCaseExtension) {
  const TempDir tmp;
  tmp.write("one.png", "first");

  EXPECT_EQ(run(tmp, {"pack", "ONE.KSZ", "one.png"}).status, 0);
}

TEST(KszPack, WritesNoReportIntoItsArchive) {
  const TempDir tmp;
  tmp.write("a.png", "");
  run(tmp, {"pack", "good.ksz", "a.png"});

  const pid_t child = start(tmp, {"pack", "a.ksz", "a.png"}, /*output=*/-1);

  EXPECT_EQ(statusOf(child), 0);
  EXPECT_EQ(tmp.read("a.ksz"), tmp.read("good.ksz"));
}

TEST(KszPack, LeavesNothingWhenItsReaderEnds) {
  const TempDir tmp;
  tmp.write("a.ksz", "old");
  tmp.write("a.png", "");
  std::array<int, 2> ends = {-1, -1};
  ASSERT_EQ(pipe2(ends.data(), O_CLOEXEC), 0);
  close(ends[0]);

  const pid_t child = start(tmp, {"pack", "--force", "a.ksz", "a.png"}, ends[1]);
  close(ends[1]);

  EXPECT_EQ(statusOf(child), 1000 + SIGPIPE);
  EXPECT_EQ(tmp.entries(), lines("a.ksz", "a.png"));
  EXPECT_EQ(tmp.read("a.ksz"), "old");
}

/// A run of pack that waits for a pipe to which nobody writes.
class KszPackStopped : public testing::TestWithParam<int> {
 protected:
  KszPackStopped() {
    tmp_.write("a.ksz", "old");
    mkfifo(tmp_.path("pipe.png").c_str(), 0600);
  }

  [[nodiscard]] const TempDir& tmp() const { return tmp_; }

  [[nodiscard]] pid_t startPack() const {
    const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    const pid_t child = start(tmp_, {"pack", "--force", "a.ksz", "pipe.png"}, null);
    close(null);
    EXPECT_TRUE(waitUntil([&] {
      return anyEntry(tmp_, [](const std::string& path) { return path.ends_with(".tmp"); });
    }));
    return child;
  }

 private:
  TempDir tmp_;
};

TEST_P(KszPackStopped, KeepsTheArchiveAndNothingElse) {
  const pid_t child = startPack();

  kill(child, GetParam());

  EXPECT_EQ(statusOf(child), 1000 + GetParam());
  EXPECT_EQ(tmp().entries(), lines("a.ksz", "pipe.png"));
  EXPECT_EQ(tmp().read("a.ksz"), "old");
}

INSTANTIATE_TEST_SUITE_P(BySignal, KszPackStopped,
                         testing::Values(SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGALRM,
                                         SIGXCPU, SIGXFSZ, SIGUSR1, SIGUSR2),
                         [](const testing::TestParamInfo<int>& signal) {
                           return std::string(sigabbrev_np(signal.param));
                         });

TEST_F(KszPackStopped, KeepsTheArchiveWhenKilled) {
  const pid_t child = startPack();

  kill(child, SIGKILL);

  EXPECT_EQ(statusOf(child), 1000 + SIGKILL);
  EXPECT_EQ(tmp().read("a.ksz"), "old");
}

TEST_F(KszPackStopped, GoesOnAfterASignalThatIsIgnored) {
  const auto before = std::signal(SIGHUP, SIG_IGN);
  const pid_t child = startPack();
  std::signal(SIGHUP, before);

  kill(child, SIGHUP);
  kill(child, SIGTERM);

  EXPECT_EQ(statusOf(child), 1000 + SIGTERM);
}

// ---- unpack -----------------------------------------------------------------------------------

TEST(KszUnpack, ExtractsAndListsWhatWasPacked) {
  const TempDir tmp;
  tmp.write("in/room.ksx", "a room");
  tmp.write("in/lamp.ksa", "a lamp");
  tmp.write("in/D\u00e4mmerung.png", std::string("\0\1\2", 3));
  tmp.mkdir("out");
  run(tmp, {"pack", "out/a.ksz", "in/room.ksx", "in/lamp.ksa", "in/D\u00e4mmerung.png"});

  const Outcome outcome = run(tmp, {"unpack", "out/a.ksz"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, tmp.path("out") + ":\n  a.ksx\n  lamp.ksa\n  res/D\u00e4mmerung.png\n");
  EXPECT_EQ(tmp.read("out/a.ksx"), "a room");
  EXPECT_EQ(tmp.read("out/lamp.ksa"), "a lamp");
  EXPECT_EQ(tmp.read("out/res/D\u00e4mmerung.png"), std::string("\0\1\2", 3));
}

TEST(KszUnpack, ListsNothingWhenQuiet) {
  const TempDir tmp;
  tmp.write("wood.png", "wood");
  run(tmp, {"pack", "a.ksz", "wood.png"});

  const Outcome outcome = run(tmp, {"unpack", "--quiet", "a.ksz"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out + outcome.err, "");
  EXPECT_EQ(tmp.read("res/wood.png"), "wood");
}

TEST(KszUnpack, ShowsNoControlCharacters) {
  const TempDir tmp;
  tmp.write("a\n\033b\x7f.png", "");
  run(tmp, {"pack", "a.ksz", "a\n\033b\x7f.png"});

  EXPECT_EQ(run(tmp, {"unpack", "a.ksz"}).out, tmp.path() + ":\n  res/a??b?.png\n");
}

TEST(KszUnpack, KeepsASceneWithoutForce) {
  const TempDir tmp;
  tmp.write("in/a.ksx", "new");
  tmp.write("in/wood.png", "wood");
  run(tmp, {"pack", "a.ksz", "in/a.ksx", "in/wood.png"});
  tmp.write("a.ksx", "edited");
  tmp.write("a.bak", "kept");

  const Outcome refused = run(tmp, {"unpack", "a.ksz"});

  EXPECT_EQ(refused.status, 1);
  EXPECT_EQ(refused.out, "");
  EXPECT_EQ(refused.err,
            "ksz: already exists, use --force to overwrite it: " + tmp.path("a.ksx") + "\n");
  EXPECT_EQ(tmp.read("a.ksx"), "edited");
  EXPECT_FALSE(tmp.exists("res"));
  EXPECT_EQ(run(tmp, {"unpack", "--force", "a.ksz"}).status, 0);
  EXPECT_EQ(tmp.read("a.ksx"), "new");
  EXPECT_EQ(tmp.read("a.bak"), "kept");
}

TEST(KszUnpack, KeepsAResourceWithoutForce) {
  const TempDir tmp;
  tmp.write("wood.png", "new");
  run(tmp, {"pack", "a.ksz", "wood.png"});
  tmp.write("res/wood.png", "edited");

  EXPECT_EQ(run(tmp, {"unpack", "a.ksz"}).status, 1);

  EXPECT_EQ(tmp.read("res/wood.png"), "edited");
}

TEST(KszUnpack, SaysThatAFileIsInTheWay) {
  const TempDir tmp;
  tmp.write("wood.png", "");
  run(tmp, {"pack", "a.ksz", "wood.png"});
  tmp.write("res", "a file");

  const Outcome outcome = run(tmp, {"unpack", "--force", "a.ksz"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "ksz: in the way of a directory in the archive: " + tmp.path("res") + "\n");
}

TEST(KszUnpack, FailsWithoutAnArchive) {
  const TempDir tmp;
  tmp.write("text.ksz", "no archive");

  const Outcome missing = run(tmp, {"unpack", "missing.ksz"});
  const Outcome text = run(tmp, {"unpack", "text.ksz"});

  EXPECT_EQ(missing.status, 1);
  EXPECT_EQ(missing.err, "ksz: no such file: missing.ksz\n");
  EXPECT_EQ(text.status, 1);
  EXPECT_EQ(text.err, "error: Failed to initialize archive: " + tmp.path("text.ksz") + "\n");
  EXPECT_EQ(tmp.entries(), lines("text.ksz"));
}

TEST(KszUnpack, SaysThatAnArchiveIsEmpty) {
  const TempDir tmp;
  tmp.write("a.ksz", "PK\5\6" + std::string(18, '\0'));

  const Outcome outcome = run(tmp, {"unpack", "a.ksz"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err, "ksz: no file in the archive: " + tmp.path("a.ksz") + "\n");
}

TEST(KszUnpack, ExtractsTheGoodFilesOfADamagedArchive) {
  const TempDir tmp;
  tmp.write("one.png", "first");
  tmp.write("two.png", "second");
  run(tmp, {"pack", "a.ksz", "one.png", "two.png"});
  std::string bytes = tmp.read("a.ksz");
  const std::size_t checksum = bytes.find("PK\1\2") + 16;
  bytes[checksum] = static_cast<char>(bytes[checksum] ^ 1);
  tmp.write("a.ksz", bytes);

  const Outcome outcome = run(tmp, {"unpack", "a.ksz"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.err,
            "error: Failed to extract file " + tmp.path("res/one.png") + " from archive.\n");
  EXPECT_EQ(outcome.out, tmp.path() + ":\n  res/two.png\n");
  EXPECT_FALSE(tmp.exists("res/one.png"));
}

TEST(KszUnpack, LeavesNothingWhenTheDiskIsFull) {
  const TempDir tmp;
  tmp.write("a.png", std::string(100, 'x'));
  run(tmp, {"pack", "a.ksz", "a.png"});
  const FileSizeLimit limit(90);

  const Outcome outcome = run(tmp, {"unpack", "a.ksz"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(tmp.entries(), lines("a.ksz", "a.png"));
}

TEST(KszUnpack, LeavesNoFileWhenInterrupted) {
  const TempDir tmp;
  std::filesystem::resize_file(tmp.write("large.ksx", ""), std::size_t{128} << 20U);
  run(tmp, {"pack", "a.ksz", "large.ksx"});
  std::filesystem::remove(tmp.path("large.ksx"));

  const int null = open("/dev/null", O_RDWR | O_CLOEXEC);
  const pid_t child = start(tmp, {"unpack", "a.ksz"}, null);
  close(null);
  EXPECT_TRUE(waitUntil([&] {
    return anyEntry(tmp, [](const std::string& path) { return path.ends_with("a.ksx"); });
  }));
  kill(child, SIGINT);

  EXPECT_EQ(statusOf(child), 1000 + SIGINT);
  EXPECT_EQ(tmp.entries(), lines("a.ksz"));
}

// ---- Output -----------------------------------------------------------------------------------

TEST(KszOutput, FailsWhenItCannotBeWritten) {
  const TempDir tmp;
  tmp.write("a.png", "");
  run(tmp, {"pack", "a.ksz", "a.png"});
  const int full = open("/dev/full", O_RDWR | O_CLOEXEC);

  EXPECT_EQ(statusOf(start(tmp, {"unpack", "a.ksz"}, full)), 1);
  EXPECT_EQ(statusOf(start(tmp, {"ls", ".", "--ext", "png"}, full)), 1);
  EXPECT_EQ(statusOf(start(tmp, {"--help"}, full)), 1);
  close(full);
}

}  // namespace
