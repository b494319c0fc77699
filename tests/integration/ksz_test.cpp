// SPDX-License-Identifier: MIT
//
// The command-line tool, run as a user runs it.

#include "tests/testing/child.h"
#include "tests/testing/dialog_program.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped.h"
#include "tests/testing/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace vx::test {
namespace {

using testing::HasSubstr;
using testing::IsSupersetOf;
using testing::StartsWith;

using Words = std::vector<std::string>;

/// Opened before a test gives up the rights that the path of the program may need.
const int openProgram = ::open(VX_KSZ_PROGRAM, O_PATH);

const char* program() {
  static const std::string path = "/proc/self/fd/" + std::to_string(openProgram);
  return path.c_str();
}

/// `words` as the last of a command.
Words with(Words command, const Words& words) {
  command.insert(command.end(), words.begin(), words.end());
  return command;
}

class Ksz : public testing::Test {
 protected:
  static ChildEnd run(const Words& words) { return runProgram(with({program()}, words)); }

  static std::string shown(const Words& words, unsigned short columns = 80) {
    return runOnTerminal(with({program()}, words), columns).out;
  }

  /// Runs a shell script in which "$0" "$@" is ksz with these words.
  static ChildEnd script(const std::string& text, const Words& words) {
    return runProgram(with({"sh", "-c", text, program()}, words));
  }

  /// Runs ksz with files of at most `bytes` bytes, as on a full disk.
  static Words limited(int bytes, const Words& words) {
    return with(
        {"env", "--ignore-signal=XFSZ", "prlimit", "--fsize=" + std::to_string(bytes), program()},
        words);
  }

  /// Sends a signal to ksz when a file of this name exists; the exit code is then 128 + signal.
  static ChildEnd stopped(int signal, const std::string& file, const Words& words) {
    return script("env --default-signal=INT,QUIT \"$0\" \"$@\" & until [ \"$(find . -name '" +
                      file + "')\" ]; do :; done; kill -" + std::to_string(signal) + " $!; wait $!",
                  words);
  }

  static void expectEnd(const ChildEnd& end, int exitCode, const std::string& out,
                        const std::string& err) {
    EXPECT_EQ(end.exitCode, exitCode);
    EXPECT_EQ(end.out, out);
    EXPECT_EQ(end.err, err);
  }

  static void expectSuccess(const Words& words, const std::string& out = "") {
    SCOPED_TRACE(testing::PrintToString(words));
    expectEnd(run(words), 0, out, "");
  }

  static void expectFailure(const Words& words, const std::string& err) {
    SCOPED_TRACE(testing::PrintToString(words));
    expectEnd(run(words), 1, "", err + "\n");
  }

  /// Packs these files of the current directory into a.ksz.
  static void pack(const Words& files) { expectSuccess(with({"pack", "-q", "a.ksz"}, files)); }

  TempDir tmp;
  ScopedCurrentDir cwd{tmp.path()};
};

// ---- pack -------------------------------------------------------------------------------------

using KszPack = Ksz;

TEST_F(KszPack, ReportsEachFileOnStandardError) {
  tmp.write("room.ksx", "a room");
  tmp.write("D\u00e4mmerung.png", "dusk");

  expectEnd(run({"pack", "room.ksz", "room.ksx", "D\u00e4mmerung.png"}), 0, "",
            "  0% room.ksz\n"
            "  0% room.ksx\n"
            " 50% res/D\u00e4mmerung.png\n"
            "100% room.ksz\n");

  EXPECT_EQ(tmp.entries(), lines("D\u00e4mmerung.png", "room.ksx", "room.ksz"));
}

TEST_F(KszPack, IsSilentWhenQuietForAnyCaseOfKsz) {
  tmp.write("a.png", "");

  expectSuccess({"pack", "-q", "A.KSZ", "a.png"});
  EXPECT_EQ(shown({"pack", "b.ksz", "-q", "a.png"}), "");
}

TEST_F(KszPack, DrawsABarOnATerminal) {
  tmp.write("room.ksx", "a room");
  tmp.write("lamp.ksa", "a lamp");

  EXPECT_EQ(shown({"pack", "room.ksz", "room.ksx", "lamp.ksa"}),
            "\r\033[K[                              ]   0% room.ksz"
            "\r\033[K[                              ]   0% room.ksx"
            "\r\033[K[###############               ]  50% lamp.ksa"
            "\r\033[K[##############################] 100% room.ksz\r\n");
}

TEST_F(KszPack, FitsTheBarIntoANarrowTerminal) {
  tmp.write("a_long_name_of_a_file.png", "");
  const Words words = {"pack", "--force", "a.ksz", "a_long_name_of_a_file.png"};

  EXPECT_EQ(shown(words, 31),
            "\r\033[K[                 ]   0% a.ksz"
            "\r\033[K[          ]   0% res/a_long_n"
            "\r\033[K[#################] 100% a.ksz\r\n");
  EXPECT_EQ(shown(words, 12),
            "\r\033[K  0% a.ksz"
            "\r\033[K  0% res/a_"
            "\r\033[K100% a.ksz\r\n");
}

TEST_F(KszPack, CutsALongNameBetweenCharacters) {
  const std::string name = "\u6728\u6728\u6728\u6728\u6728\u6728\u6728.png";
  tmp.write(name, "");

  EXPECT_THAT(shown({"pack", "a.ksz", name}, 15), HasSubstr("\r\033[K  0% res/\u6728\u6728\r"));
}

TEST_F(KszPack, ErasesTheBarBeforeAMessage) {
  tmp.write("a.png", std::string(100'000, 'x'));

  EXPECT_EQ(runOnTerminal(limited(10, {"pack", "a.ksz", "a.png"})).out,
            "\r\033[K[                              ]   0% a.ksz"
            "\r\033[K[                              ]   0% res/a.png"
            "\r\033[Kerror: Failed to finalize archive: a.ksz\r\n"
            "\r\033[K");
}

TEST_F(KszPack, ShowsNoControlCharactersAndNeitherDoesUnpack) {
  const std::string name = "a\n\033b\x7f\u009bc\x9b\u0434.png";
  tmp.write(name, "");

  EXPECT_EQ(run({"pack", "a.ksz", name}).err,
            "  0% a.ksz\n  0% res/a??b??c?\u0434.png\n100% a.ksz\n");
  expectSuccess({"unpack", "a.ksz"}, tmp.path() + ":\n  res/a??b??c?\u0434.png\n");
}

TEST_F(KszPack, TakesNamesAfterADoubleDash) {
  tmp.write("a.png", "");
  tmp.write("-q", "");

  EXPECT_EQ(run({"pack", "--", "1.ksz", "a.png", "-q"}).exitCode, 0);
  EXPECT_EQ(run({"pack", "2.ksz", "--", "-q"}).exitCode, 0);
  EXPECT_EQ(run({"pack", "3.ksz", "a.png", "--", "-q"}).err,
            "  0% 3.ksz\n  0% res/a.png\n 50% res/-q\n100% 3.ksz\n");
}

TEST_F(KszPack, FailsWithoutAPlaceForTheArchiveOrItsBackup) {
  tmp.write("a.bak", "kept");
  tmp.write("a.png", "");

  expectFailure({"pack", "a.ksz", "a.png"},
                "ksz: has the name of the backup, rename it first: a.bak");
  expectFailure({"pack", "missing/a.ksz", "a.png"}, "ksz: no such directory: missing");

  EXPECT_EQ(tmp.entries(), lines("a.bak", "a.png"));
  EXPECT_EQ(tmp.read("a.bak"), "kept");
}

TEST_F(KszPack, KeepsAFileWhenTheArchiveIsForgotten) {
  tmp.write("one.png", "first");
  tmp.write("two.png", "second");

  const ChildEnd end = run({"pack", "one.png", "two.png"});

  EXPECT_EQ(end.exitCode, 2);
  EXPECT_THAT(end.err, HasSubstr("the archive's name must end in .ksz: one.png"));
  EXPECT_EQ(tmp.read("one.png"), "first");
}

TEST_F(KszPack, WritesNoReportIntoItsArchive) {
  tmp.write("a.png", "");
  pack({"a.png"});

  EXPECT_EQ(script("exec \"$0\" \"$@\" 2>&-", {"pack", "b.ksz", "a.png"}).exitCode, 0);

  EXPECT_EQ(tmp.read("b.ksz"), tmp.read("a.ksz"));
}

/// An archive that exists before ksz writes it.
class KszPackOverAnArchive : public Ksz {
 protected:
  KszPackOverAnArchive() {
    tmp.write("a.ksz", "old");
    tmp.write("a.png", std::string(100'000, 'x'));
  }

  void expectKept() const {
    EXPECT_EQ(tmp.read("a.ksz"), "old");
    EXPECT_EQ(tmp.entries(), lines("a.ksz", "a.png"));
  }
};

TEST_F(KszPackOverAnArchive, OverwritesItOnlyWithForce) {
  expectFailure({"pack", "a.ksz", "a.png"},
                "ksz: already exists, use --force to overwrite it: a.ksz");
  expectKept();

  expectSuccess({"pack", "-q", "--force", "a.ksz", "a.png"});
  EXPECT_THAT(tmp.read("a.ksz"), StartsWith("PK"));
  EXPECT_EQ(tmp.entries(), lines("a.ksz", "a.png"));
}

TEST_F(KszPackOverAnArchive, OverwritesItBehindALink) {
  tmp.mkdir("real");
  std::filesystem::rename("a.ksz", "real/a.ksz");
  tmp.link("a.ksz", "real/a.ksz");

  expectSuccess({"pack", "-q", "--force", "a.ksz", "a.png"});

  EXPECT_THAT(tmp.read("real/a.ksz"), StartsWith("PK"));
  EXPECT_TRUE(std::filesystem::is_symlink("a.ksz"));
}

TEST_F(KszPackOverAnArchive, RefusesItAmongItsFiles) {
  tmp.link("link.ksz", "a.ksz");

  expectFailure({"pack", "--force", "a.ksz", "a.png", "link.ksz"},
                "ksz: an archive cannot contain itself: link.ksz");

  EXPECT_EQ(tmp.read("a.ksz"), "old");
}

TEST_F(KszPackOverAnArchive, KeepsItWhenAFileIsMistyped) {
  expectFailure({"pack", "--force", "a.ksz", "mistyped.png", "a.png"},
                "ksz: no such file: mistyped.png");
  expectKept();
}

TEST_F(KszPackOverAnArchive, KeepsItWhenTheDiskIsFull) {
  EXPECT_EQ(runProgram(limited(10, {"pack", "-q", "--force", "a.ksz", "a.png"})).exitCode, 1);
  expectKept();
}

TEST_F(KszPackOverAnArchive, KeepsItWhenNobodyReadsItsReport) {
  ASSERT_EQ(::mkfifo("report", 0600), 0);

  const ChildEnd end =
      script("exec 3<>report 4>report; rm report; exec 3<&-; exec \"$0\" \"$@\" 2>&4",
             {"pack", "--force", "a.ksz", "a.png"});

  EXPECT_EQ(end.signal, SIGPIPE);
  expectKept();
}

/// A run of ksz that waits for a pipe to which nobody writes.
class KszPackStopped : public Ksz, public testing::WithParamInterface<int> {
 protected:
  KszPackStopped() {
    tmp.write("a.ksz", "old");
    EXPECT_EQ(::mkfifo("pipe.png", 0600), 0);
  }
};

TEST_P(KszPackStopped, KeepsTheArchiveAndNothingElse) {
  EXPECT_EQ(stopped(GetParam(), "*.tmp", {"pack", "--force", "a.ksz", "pipe.png"}).exitCode,
            128 + GetParam());

  EXPECT_EQ(tmp.entries(), lines("a.ksz", "pipe.png"));
  EXPECT_EQ(tmp.read("a.ksz"), "old");
}

INSTANTIATE_TEST_SUITE_P(BySignal, KszPackStopped,
                         testing::Values(SIGHUP, SIGINT, SIGQUIT, SIGTERM, SIGPIPE, SIGALRM,
                                         SIGXCPU, SIGXFSZ, SIGUSR1, SIGUSR2),
                         [](const testing::TestParamInfo<int>& signal) {
                           return std::to_string(signal.param);
                         });

TEST_F(KszPackStopped, OpensAClosedStandardInput) {
  const ChildEnd end = script(
      "\"$0\" \"$@\" <&- & until [ \"$(find . -name '*.tmp')\" ]; do :; done; "
      "readlink /proc/$!/fd/0; kill $!",
      {"pack", "--force", "a.ksz", "pipe.png"});

  EXPECT_EQ(end.out, "/dev/null\n");
}

TEST_F(KszPackStopped, KeepsTheArchiveWhenKilled) {
  EXPECT_EQ(stopped(SIGKILL, "*.tmp", {"pack", "--force", "a.ksz", "pipe.png"}).exitCode,
            128 + SIGKILL);

  EXPECT_EQ(tmp.read("a.ksz"), "old");
}

TEST_F(KszPackStopped, GoesOnAfterASignalThatIsIgnored) {
  const std::string text =
      "trap '' HUP; \"$0\" \"$@\" & until [ \"$(find . -name '*.tmp')\" ]; do :; done; "
      "kill -HUP $!; kill -TERM $!; wait $!";

  EXPECT_EQ(script(text, {"pack", "--force", "a.ksz", "pipe.png"}).exitCode, 128 + SIGTERM);
}

// ---- unpack -----------------------------------------------------------------------------------

using KszUnpack = Ksz;

TEST_F(KszUnpack, ExtractsAndListsWhatWasPacked) {
  const std::string bytes("\0\1\2", 3);
  tmp.write("in/room.ksx", "a room");
  tmp.write("in/lamp.ksa", "a lamp");
  tmp.write("in/D\u00e4mmerung.png", bytes);
  tmp.mkdir("out");
  expectSuccess({"pack", "-q", "out/a.ksz", "in/room.ksx", "in/lamp.ksa", "in/D\u00e4mmerung.png"});

  expectSuccess({"unpack", "out/a.ksz"},
                tmp.path("out") + ":\n  a.ksx\n  lamp.ksa\n  res/D\u00e4mmerung.png\n");

  EXPECT_EQ(tmp.read("out/a.ksx"), "a room");
  EXPECT_EQ(tmp.read("out/lamp.ksa"), "a lamp");
  EXPECT_EQ(tmp.read("out/res/D\u00e4mmerung.png"), bytes);
}

TEST_F(KszUnpack, NeedsNoStandardOutputAndMayBeQuiet) {
  tmp.write("a.png", "a picture");
  pack({"a.png"});

  EXPECT_EQ(script("exec \"$0\" \"$@\" >&-", {"unpack", "a.ksz"}).exitCode, 0);
  EXPECT_EQ(tmp.read("res/a.png"), "a picture");

  expectSuccess({"unpack", "--quiet", "--force", "a.ksz"});
}

TEST_F(KszUnpack, KeepsASceneWithoutForce) {
  tmp.write("in/a.ksx", "new");
  tmp.write("in/wood.png", "wood");
  pack({"in/a.ksx", "in/wood.png"});
  tmp.write("a.ksx", "edited");
  tmp.write("a.bak", "kept");

  expectFailure({"unpack", "a.ksz"},
                "ksz: already exists, use --force to overwrite it: " + tmp.path("a.ksx"));
  EXPECT_EQ(tmp.read("a.ksx"), "edited");
  EXPECT_FALSE(tmp.exists("res"));

  expectSuccess({"unpack", "-q", "--force", "a.ksz"});
  EXPECT_EQ(tmp.read("a.ksx"), "new");
  EXPECT_EQ(tmp.read("a.bak"), "kept");
}

TEST_F(KszUnpack, KeepsAResourceOrAFileInItsWay) {
  tmp.write("wood.png", "new");
  pack({"wood.png"});

  tmp.write("res/wood.png", "edited");
  EXPECT_EQ(run({"unpack", "a.ksz"}).exitCode, 1);
  EXPECT_EQ(tmp.read("res/wood.png"), "edited");

  tmp.removeDir("res");
  tmp.write("res", "a file");
  expectFailure({"unpack", "--force", "a.ksz"},
                "ksz: in the way of a directory in the archive: " + tmp.path("res"));
}

TEST_F(KszUnpack, FailsWithoutAnArchiveOrAFileInIt) {
  tmp.write("text.ksz", "no archive");
  tmp.write("empty.ksz", "PK\5\6" + std::string(18, '\0'));

  expectFailure({"unpack", "missing.ksz"}, "ksz: no such file: missing.ksz");
  expectFailure({"unpack", "text.ksz"},
                "error: Failed to initialize archive: " + tmp.path("text.ksz"));
  expectFailure({"unpack", "empty.ksz"}, "ksz: no file in the archive: " + tmp.path("empty.ksz"));

  EXPECT_EQ(tmp.entries(), lines("empty.ksz", "text.ksz"));
}

TEST_F(KszUnpack, ExtractsTheGoodFilesOfADamagedArchive) {
  tmp.write("one.png", "first");
  tmp.write("two.png", "second");
  pack({"one.png", "two.png"});
  std::string bytes = tmp.read("a.ksz");
  const std::size_t checksum = bytes.find("PK\1\2") + 16;
  bytes[checksum] = static_cast<char>(bytes[checksum] ^ 1);
  tmp.write("a.ksz", bytes);

  expectEnd(run({"unpack", "a.ksz"}), 1, tmp.path() + ":\n  res/two.png\n",
            "error: Failed to extract file " + tmp.path("res/one.png") + " from archive.\n");

  EXPECT_FALSE(tmp.exists("res/one.png"));
}

TEST_F(KszUnpack, LeavesNothingWhenTheDiskIsFull) {
  tmp.write("a.png", std::string(100, 'x'));
  pack({"a.png"});

  const ChildEnd end = runProgram(limited(90, {"unpack", "a.ksz"}));

  EXPECT_EQ(end.exitCode, 1);
  EXPECT_EQ(end.out, "");
  EXPECT_EQ(tmp.entries(), lines("a.ksz", "a.png"));
}

TEST_F(KszUnpack, LeavesNoFileWhenInterrupted) {
  std::filesystem::resize_file(tmp.write("large.ksx", ""), std::size_t{128} << 20U);
  pack({"large.ksx"});
  std::filesystem::remove("large.ksx");

  EXPECT_EQ(stopped(SIGINT, "*a.ksx", {"unpack", "a.ksz"}).exitCode, 128 + SIGINT);

  EXPECT_EQ(tmp.entries(), lines("a.ksz"));
}

// ---- The demo scene ---------------------------------------------------------------------------

using KszScene = Ksz;

TEST_F(KszScene, IsPackedUnpackedResolvedAndListed) {
  std::filesystem::copy(VX_SCENE, "in", std::filesystem::copy_options::recursive);
  tmp.mkdir("out");

  expectSuccess({"pack", "-q", "out/scene.ksz", "in/lamp.ksa", "in/room.ksx", "in/res/bump.png",
                 "in/res/wood.png", "in/res/D\u00e4mmerung.jpg"});

  expectSuccess({"unpack", "out/scene.ksz"}, tmp.path("out") +
                                                 ":\n"
                                                 "  lamp.ksa\n"
                                                 "  res/D\u00e4mmerung.jpg\n"
                                                 "  res/bump.png\n"
                                                 "  res/wood.png\n"
                                                 "  scene.ksx\n");
  for (const std::string reference : {"res/D\u00e4mmerung.jpg", "res/wood.png", "lamp.ksa"}) {
    expectSuccess({"resolve", reference, "--in", "out", "--ext", "png"},
                  tmp.path("out/" + reference) + "\n");
  }
  expectSuccess({"ls", "out", "--ext", "ksx", "ksa", ".ksz"},
                "out/res/\nout/lamp.ksa\nout/scene.ksx\nout/scene.ksz\n");
}

// ---- resolve ----------------------------------------------------------------------------------

using KszResolve = Ksz;

TEST_F(KszResolve, SearchesDirectoriesThenExtensionsInOrder) {
  tmp.write("first/wood.jpg", "");
  tmp.write("second/wood.jpg", "");
  tmp.write("second/wood.png", "");

  expectSuccess({"resolve", "wood.*", "--in", "first", "second", "--ext", "png", "jpg"},
                tmp.path("first/wood.jpg") + "\n");
  expectSuccess({"resolve", "wood.*", "--in", "second", "first", "--ext", "png", "jpg"},
                tmp.path("second/wood.png") + "\n");
}

TEST_F(KszResolve, FindsAReferenceOrNamesIt) {
  tmp.write("in/wood.png", "");

  expectSuccess({"resolve", "./in/wood.png"}, tmp.path("in/wood.png") + "\n");
  expectFailure({"resolve", "mistyped.png", "--in", "in", "--ext", "png"},
                "ksz: found nowhere: mistyped.png");
}

// ---- ls ---------------------------------------------------------------------------------------

using KszLs = Ksz;

TEST_F(KszLs, SortsDirectoriesThenFilesByExtension) {
  for (const std::string file : {"d/c.png", "d/B.PNG", "d/a.jpg", "d/notes.txt", "d/y/x.png"}) {
    tmp.write(file, "");
  }
  tmp.mkdir("d/.hidden");

  expectSuccess({"ls", "d", "--ext", "png", ".jpg"},
                "d/.hidden/\nd/y/\nd/B.PNG\nd/a.jpg\nd/c.png\n");
  expectSuccess({"ls", "d"}, "d/.hidden/\nd/y/\n");
}

TEST_F(KszLs, TellsAMissingDirectoryFromAnEmptyOne) {
  tmp.mkdir("empty");
  tmp.write("file", "");

  expectSuccess({"ls", "empty", "--ext", "png"});
  expectFailure({"ls", "mistyped"}, "ksz: no such directory: mistyped");
  expectFailure({"ls", "file"}, "ksz: no such directory: file");
}

// ---- cp and mv --------------------------------------------------------------------------------

using KszCp = Ksz;
using KszMv = Ksz;
using KszCpAndMv = Ksz;

TEST_F(KszCp, CopiesAFileOverAnotherWithForce) {
  tmp.write("a", std::string(200'000, 'x'));
  tmp.write("b", "old");

  expectFailure({"cp", "a", "b"}, "ksz: already exists, use --force to overwrite it: b");
  EXPECT_EQ(tmp.read("b"), "old");

  expectSuccess({"cp", "--force", "a", "b"});
  EXPECT_EQ(tmp.read("a"), std::string(200'000, 'x'));
  EXPECT_EQ(tmp.read("b"), std::string(200'000, 'x'));
}

TEST_F(KszCpAndMv, TakeADirectoryForTheTarget) {
  tmp.write("in/a.png", "bytes");
  tmp.write("b.txt", "text");
  tmp.mkdir("out");

  expectSuccess({"cp", "in/a.png", "out"});
  expectSuccess({"mv", "./b.txt", "out"});

  EXPECT_EQ(tmp.entries(), lines("in/", "in/a.png", "out/", "out/a.png", "out/b.txt"));
  EXPECT_EQ(tmp.read("out/a.png"), "bytes");
}

TEST_F(KszCpAndMv, KeepTheTargetWhenTheSourceIsMissing) {
  tmp.write("b", "old");
  tmp.mkdir("d");

  expectFailure({"cp", "mistyped", "b"}, "ksz: no such file: mistyped");
  expectFailure({"cp", "d", "b"}, "ksz: no such file: d");
  expectFailure({"mv", "mistyped", "b"}, "ksz: no such file: mistyped");

  EXPECT_EQ(tmp.read("b"), "old");
}

TEST_F(KszCp, KeepsAFileThatIsCopiedToItself) {
  tmp.write("a", "bytes");
  tmp.link("link", "a");

  for (const std::string itself : {"./a", ".", "link"}) {
    expectFailure({"cp", "a", itself}, "ksz: cannot be copied to itself: a");
  }

  EXPECT_EQ(tmp.read("a"), "bytes");
}

TEST_F(KszCp, RefusesNamesThatDifferOnlyInCase) {
  tmp.write("a", "new");
  tmp.write("A", "old");

  expectFailure({"cp", "--force", "a", "A"},
                "warning: Cannot copy 'a' to itself.\nksz: the copy is incomplete: A");

  EXPECT_EQ(tmp.read("A"), "old");
}

TEST_F(KszCp, KeepsTheTargetWhenTheSourceIsUnreadable) {
  std::filesystem::permissions(tmp.write("d/a", "bytes"), std::filesystem::perms::none);
  tmp.write("d/b", "old");
  std::filesystem::permissions("d", std::filesystem::perms::all);

  runAsUnprivileged([] { expectFailure({"cp", "d/a", "d/b"}, "ksz: cannot be read: d/a"); });

  EXPECT_EQ(tmp.read("d/b"), "old");
}

TEST_F(KszCp, ReportsAMissingOrIncompleteCopy) {
  tmp.write("a", std::string(200'000, 'x'));

  expectFailure({"cp", "a", "missing/b"}, "ksz: cannot be written: missing/b");
  expectEnd(runProgram(limited(4096, {"cp", "a", "b"})), 1, "", "ksz: the copy is incomplete: b\n");
}

TEST_F(KszMv, RenamesAFileOverAnotherWithForce) {
  tmp.write("a.txt", "new");
  tmp.write("b.txt", "old");

  expectFailure({"mv", "a.txt", "b.txt"},
                "ksz: already exists, use --force to overwrite it: b.txt");
  EXPECT_EQ(tmp.read("a.txt"), "new");
  EXPECT_EQ(tmp.read("b.txt"), "old");

  expectSuccess({"mv", "--force", "a.txt", "b.txt"});
  EXPECT_EQ(tmp.entries(), lines("b.txt"));
  EXPECT_EQ(tmp.read("b.txt"), "new");
}

TEST_F(KszMv, KeepsAFileThatCannotBeMoved) {
  tmp.write("a.txt", "bytes");

  expectFailure({"mv", "a.txt", "./a.txt"}, "ksz: cannot be moved to itself: a.txt");
  expectFailure({"mv", "a.txt", "missing/b.txt"}, "ksz: cannot be moved: a.txt");
  expectFailure({"mv", "a.txt", "b.bak"},
                "ksz: a file cannot be moved to the name of a backup: b.bak");

  EXPECT_EQ(tmp.entries(), lines("a.txt"));
  EXPECT_EQ(tmp.read("a.txt"), "bytes");
}

TEST_F(KszMv, KeepsAFileWithTheNameOfTheBackup) {
  tmp.write("new.txt", "new");
  tmp.write("a.bak", "kept");

  for (const std::string source : {"new.txt", "a.bak"}) {
    expectFailure({"mv", source, "a.txt"},
                  "ksz: has the name of the backup, rename it first: a.bak");
  }

  EXPECT_EQ(tmp.entries(), lines("a.bak", "new.txt"));
  EXPECT_EQ(tmp.read("a.bak"), "kept");
}

// ---- where ------------------------------------------------------------------------------------

class KszWhere : public Ksz {
 protected:
  static std::vector<std::string> rowsOf(const ChildEnd& end) {
    EXPECT_EQ(end.exitCode, 0);
    EXPECT_EQ(end.err, "");
    std::istringstream stream(end.out);
    std::vector<std::string> rows;
    for (std::string row; std::getline(stream, row);) {
      rows.push_back(row);
    }
    return rows;
  }

  const std::string home = tmp.mkdir("home");
  const std::string user = tmp.path("home/kavra");

 private:
  ScopedEnv home_{"HOME", home};
  ScopedEnv temporary_{"TMPDIR", tmp.path()};
  ScopedEnv user_{"KAVRA_USER_DIR", nullptr};
};

TEST_F(KszWhere, ShowsEveryPlaceAndCreatesNothing) {
  const std::filesystem::path executable = std::filesystem::canonical(VX_KSZ_PROGRAM);
  const std::string folder = executable.parent_path().string();

  EXPECT_EQ(rowsOf(run({"where"})), lines("executable   exists   " + executable.string(),  //
                                          "its folder   exists   " + folder,               //
                                          "application  exists   " + folder,               //
                                          "resources    exists   " + folder,               //
                                          "current      exists   " + tmp.path(),           //
                                          "home         exists   " + home,                 //
                                          "temporary    exists   " + tmp.path(),           //
                                          "user         missing  " + user,                 //
                                          "config       missing  " + user + "/config",     //
                                          "output       missing  " + user + "/output",     //
                                          "preview      missing  " + user + "/preview",    //
                                          "help page    missing  " + user + "/nodehelp.html"));
  EXPECT_EQ(tmp.entries(), lines("home/"));
}

TEST_F(KszWhere, ShowsTheProductPlacesAfterCreatingThem) {
  EXPECT_THAT(rowsOf(run({"where", "--create"})),
              IsSupersetOf({"user         exists   " + user,                     //
                            "config       exists   " + user + "/config",         //
                            "output       exists   " + user + "/output",         //
                            "preview      exists   " + user + "/preview",        //
                            "help page    missing  " + user + "/nodehelp.html",  //
                            "its link              file://" + user + "/nodehelp.html"}));
  EXPECT_EQ(tmp.entries(), lines("home/", "home/kavra/", "home/kavra/config/", "home/kavra/output/",
                                 "home/kavra/preview/"));
}

TEST_F(KszWhere, ShowsWhatIsMissingInTheUserDirectory) {
  tmp.mkdir("chosen/output");
  const ScopedEnv chosen("KAVRA_USER_DIR", tmp.path("chosen"));

  EXPECT_THAT(rowsOf(run({"where"})),
              IsSupersetOf({"user         exists   " + tmp.path("chosen"),
                            "config       missing  " + tmp.path("chosen/config"),
                            "output       exists   " + tmp.path("chosen/output")}));
}

TEST_F(KszWhere, FailsWhenADirectoryCannotBeCreated) {
  tmp.write("home/kavra/output", "in the way");

  const ChildEnd end = run({"where", "--create"});

  EXPECT_EQ(end.exitCode, 1);
  EXPECT_THAT(end.err, StartsWith("error: Failed to create kavra output dir: " + user + "/output"));
  EXPECT_TRUE(tmp.exists("home/kavra/preview"));
}

TEST_F(KszWhere, WarnsAboutAMissingHomeDirectory) {
  const ScopedEnv missing("HOME", tmp.path("mistyped"));

  const ChildEnd end = run({"where"});

  EXPECT_THAT(end.err, StartsWith("warning: Failed to find home dir: "));
  EXPECT_THAT(end.out, HasSubstr("\nhome         exists   " + tmp.path() + "\n"));
}

// ---- pick -------------------------------------------------------------------------------------

class KszPick : public Ksz {
 protected:
  DialogProgram zenity;
};

TEST_F(KszPick, ShowsWhatWasChosen) {
  const std::string a = tmp.write("a.png", "");
  const std::string b = tmp.write("b.png", "");
  const std::string folder = tmp.mkdir("d");
  const std::string name = tmp.path("new.ksz");
  struct Row {
    Words words;
    std::string answer;
    std::string out;
    Words arguments;  // of zenity
  };
  const Row rows[] = {
      {{"open", "--title", "One image", "--at", "a.png", "--about", "Images", "--ext", "png",
        ".jpg"},
       a,
       a + "\n",
       {"--file-selection", "--title=One image", "--filename=" + a,
        "--file-filter=Images (png, .jpg) | *.png *.jpg", "--file-filter=All files | *"}},
      {{"several"},
       b + "|" + a,
       b + "\n" + a + "\n",
       {"--file-selection", "--multiple", "--title=ksz", "--filename=" + tmp.path() + "/"}},
      {{"folder", "--at", "d"},
       folder,
       folder + "\n",
       {"--file-selection", "--directory", "--title=ksz", "--filename=" + folder + "/"}},
      {{"save", "--at", "new.ksz"},
       name,
       name + "\n",
       {"--file-selection", "--save", "--confirm-overwrite", "--title=ksz", "--filename=" + name}},
  };
  for (const Row& row : rows) {
    zenity.answer(row.answer);

    expectSuccess(with({"pick"}, row.words), row.out);

    EXPECT_EQ(zenity.arguments(), row.arguments);
  }
}

TEST_F(KszPick, FailsWhenTheUserCancels) {
  for (const std::string kind : {"open", "several", "folder", "save"}) {
    expectFailure({"pick", kind, "--title", "Add textures"},
                  "ksz: nothing was chosen: Add textures");
  }
}

TEST_F(KszPick, RefusesATextThatCouldRunACommand) {
  for (const std::string text : {"it's", "a \"b\"", "`c`", "$(d)", "ends in \\", "tinyfd_query"}) {
    for (const std::string option : {"--title", "--about", "--ext"}) {
      EXPECT_EQ(run({"pick", "open", option, text}).exitCode, 2) << option << " " << text;
    }
  }
  EXPECT_EQ(zenity.arguments(), lines());
}

TEST_F(KszPick, RefusesAPathOrTextsThatNoDialogTakes) {
  tmp.mkdir("it's");
  const std::string title(300, 't');

  expectFailure({"pick", "folder", "--at", "it's"},
                "ksz: a dialog cannot open with this path: " + tmp.path("it's/"));
  expectFailure({"pick", "open", "--title", title, "--about", std::string(300, 'a')},
                "ksz: the texts are too long for a dialog: " + title);

  EXPECT_EQ(zenity.arguments(), lines());
}

// ---- The command line -------------------------------------------------------------------------

using KszCommandLine = Ksz;

TEST_F(KszCommandLine, RefusesAMistypedOrIncompleteCommand) {
  for (const Words& words : std::vector<Words>{{"resolve"},
                                               {"ls"},
                                               {"cp"},
                                               {"cp", "a"},
                                               {"cp", "a", "b", "c"},
                                               {"mv"},
                                               {"mv", "a"},
                                               {"pick"},
                                               {"pick", "mistyped"},
                                               {"where", "else"},
                                               {"mistyped"}}) {
    SCOPED_TRACE(testing::PrintToString(words));
    const ChildEnd end = run(words);

    EXPECT_EQ(end.exitCode, 2);
    EXPECT_EQ(end.out, "");
    EXPECT_NE(end.err, "");
  }
  EXPECT_EQ(tmp.entries(), lines());
  EXPECT_EQ(run({"pakc", "a.ksz", "b"}).err, "ksz: no such command, see ksz --help: pakc\n");
  EXPECT_THAT(run({"pick", "mistyped"}).err, HasSubstr("{open,several,folder,save}"));
}

TEST_F(KszCommandLine, ShowsTheVersion) {
  expectSuccess({"--version"}, "ksz " VX_VERSION "\n");
}

TEST_F(KszCommandLine, HelpsWithEveryCommand) {
  const std::string help = run({"--help"}).out;
  EXPECT_THAT(help, HasSubstr("\nExamples:\n"));

  for (const std::string command :
       {"pack", "unpack", "resolve", "ls", "cp", "mv", "where", "pick"}) {
    EXPECT_THAT(help, HasSubstr("\n  " + command + " "));

    const ChildEnd end = run({command, "--help"});

    EXPECT_EQ(end.exitCode, 0) << command;
    EXPECT_THAT(end.out, HasSubstr("Usage: ksz " + command));
  }
}

TEST_F(KszCommandLine, FailsWhenTheOutputCannotBeWritten) {
  tmp.write("a.png", "");
  pack({"a.png"});

  for (const Words& words :
       {Words{"unpack", "a.ksz"}, Words{"ls", ".", "--ext", "png"}, Words{"--help"}}) {
    EXPECT_EQ(script("exec \"$0\" \"$@\" >/dev/full 2>&1", words).exitCode, 1);
  }
}

}  // namespace
}  // namespace vx::test
