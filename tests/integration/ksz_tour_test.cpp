// SPDX-License-Identifier: MIT
//
// ksz besides archives: the demo scene, files, places, dialogs and the command line.

#include "tests/integration/run_ksz.h"
#include "tests/testing/child.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace {

using vx::test::lines;
using vx::test::Outcome;
using vx::test::run;
using vx::test::runAsUnprivileged;
using vx::test::ScopedEnv;
using vx::test::TempDir;

/// Nothing printed, and the status of success.
void expectSilentSuccess(const Outcome& outcome) {
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, "");
}

/// Nothing printed but the message, and the status of failure.
void expectFailure(const Outcome& outcome, const std::string& message) {
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.out, "");
  EXPECT_EQ(outcome.err, message + "\n");
}

// ---- The demo scene ---------------------------------------------------------------------------

TEST(KszScene, IsPackedUnpackedResolvedAndListed) {
  const TempDir tmp;
  std::filesystem::copy(VX_SCENE, tmp.path("in"), std::filesystem::copy_options::recursive);
  tmp.mkdir("out");

  expectSilentSuccess(
      run(tmp, {"pack", "-q", "out/scene.ksz", "in/lamp.ksa", "in/room.ksx", "in/res/bump.png",
                "in/res/wood.png", "in/res/D\u00e4mmerung.jpg"}));

  EXPECT_EQ(run(tmp, {"unpack", "out/scene.ksz"}).out, tmp.path("out") +
                                                           ":\n"
                                                           "  lamp.ksa\n"
                                                           "  res/D\u00e4mmerung.jpg\n"
                                                           "  res/bump.png\n"
                                                           "  res/wood.png\n"
                                                           "  scene.ksx\n");
  for (const std::string reference : {"res/D\u00e4mmerung.jpg", "res/wood.png", "lamp.ksa"}) {
    EXPECT_EQ(run(tmp, {"resolve", reference, "--in", "out", "--ext", "png"}).out,
              tmp.path("out/" + reference) + "\n");
  }
  EXPECT_EQ(run(tmp, {"ls", "out", "--ext", "ksx", "ksa", ".ksz"}).out,
            "out/res/\nout/lamp.ksa\nout/scene.ksx\nout/scene.ksz\n");
}

// ---- resolve --------------------------------------------------------------------------------

TEST(KszResolve, SearchesDirectoriesThenExtensionsInOrder) {
  const TempDir tmp;
  tmp.write("first/wood.jpg", "");
  tmp.write("second/wood.jpg", "");
  tmp.write("second/wood.png", "");

  const Outcome byDirectory =
      run(tmp, {"resolve", "wood.*", "--in", "first", "second", "--ext", "png", "jpg"});
  const Outcome byExtension =
      run(tmp, {"resolve", "wood.*", "--in", "second", "first", "--ext", "png", "jpg"});

  EXPECT_EQ(byDirectory.out, tmp.path("first/wood.jpg") + "\n");
  EXPECT_EQ(byExtension.out, tmp.path("second/wood.png") + "\n");
}

TEST(KszResolve, FindsAReferenceWithoutADirectory) {
  const TempDir tmp;
  tmp.write("wood.png", "");

  const Outcome outcome = run(tmp, {"resolve", "./wood.png"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, tmp.path("wood.png") + "\n");
}

TEST(KszResolve, NamesAReferenceThatIsNotFound) {
  const TempDir tmp;
  tmp.write("in/wood.png", "");

  const Outcome outcome = run(tmp, {"resolve", "mistyped.png", "--in", "in", "--ext", "png"});

  expectFailure(outcome, "ksz: found nowhere: mistyped.png");
}

// ---- ls -------------------------------------------------------------------------------------

TEST(KszLs, SortsDirectoriesThenFilesByExtension) {
  const TempDir tmp;
  for (const std::string file : {"d/c.png", "d/B.PNG", "d/a.jpg", "d/notes.txt", "d/y/x.png"}) {
    tmp.write(file, "");
  }
  tmp.mkdir("d/.hidden");

  const Outcome outcome = run(tmp, {"ls", "d", "--ext", "png", ".jpg"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "d/.hidden/\nd/y/\nd/B.PNG\nd/a.jpg\nd/c.png\n");
  EXPECT_EQ(outcome.err, "");
}

TEST(KszLs, ListsNoFilesWithoutExtensions) {
  const TempDir tmp;
  tmp.write("d/a.png", "");
  tmp.mkdir("d/e");

  EXPECT_EQ(run(tmp, {"ls", "d"}).out, "d/e/\n");
}

TEST(KszLs, TellsAMissingDirectoryFromAnEmptyOne) {
  const TempDir tmp;
  tmp.mkdir("empty");
  tmp.write("file", "");

  expectSilentSuccess(run(tmp, {"ls", "empty", "--ext", "png"}));
  expectFailure(run(tmp, {"ls", "mistyped"}), "ksz: no such directory: mistyped");
  expectFailure(run(tmp, {"ls", "file"}), "ksz: no such directory: file");
}

// ---- cp -------------------------------------------------------------------------------------

/// Files that the process and its children write stop growing at `bytes`, as on a full disk.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : onExcess_(std::signal(SIGXFSZ, SIG_IGN)) {
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
  void (*onExcess_)(int);
  rlimit before_ = {};
};

TEST(KszCp, CopiesAFile) {
  const TempDir tmp;
  const std::string bytes(200'000, 'x');
  tmp.write("a", bytes);
  tmp.write("b", "old");

  expectSilentSuccess(run(tmp, {"cp", "--force", "a", "b"}));

  EXPECT_EQ(tmp.read("a"), bytes);
  EXPECT_EQ(tmp.read("b"), bytes);
}

TEST(KszCp, KeepsAFileWithoutForce) {
  const TempDir tmp;
  tmp.write("a", "new");
  tmp.write("b", "old");

  expectFailure(run(tmp, {"cp", "a", "b"}), "ksz: already exists, use --force to overwrite it: b");

  EXPECT_EQ(tmp.read("b"), "old");
}

TEST(KszCp, CopiesIntoADirectory) {
  const TempDir tmp;
  tmp.write("in/a.png", "bytes");
  tmp.mkdir("out");

  expectSilentSuccess(run(tmp, {"cp", "in/a.png", "out"}));

  EXPECT_EQ(tmp.read("out/a.png"), "bytes");
}

TEST(KszCp, KeepsTheTargetWhenTheSourceIsMissing) {
  const TempDir tmp;
  tmp.write("b", "old");
  tmp.mkdir("d");

  expectFailure(run(tmp, {"cp", "mistyped", "b"}), "ksz: no such file: mistyped");
  expectFailure(run(tmp, {"cp", "d", "b"}), "ksz: no such file: d");

  EXPECT_EQ(tmp.read("b"), "old");
}

TEST(KszCp, KeepsAFileThatIsCopiedToItself) {
  const TempDir tmp;
  tmp.write("a", "bytes");
  tmp.link("link", "a");

  expectFailure(run(tmp, {"cp", "a", "./a"}), "ksz: cannot be copied to itself: a");
  expectFailure(run(tmp, {"cp", "a", "."}), "ksz: cannot be copied to itself: a");
  expectFailure(run(tmp, {"cp", "a", "link"}), "ksz: cannot be copied to itself: a");

  EXPECT_EQ(tmp.read("a"), "bytes");
}

TEST(KszCp, RefusesNamesThatDifferOnlyInCase) {
  const TempDir tmp;
  tmp.write("a", "new");
  tmp.write("A", "old");

  expectFailure(run(tmp, {"cp", "--force", "a", "A"}),
                "warning: Cannot copy 'a' to itself.\nksz: the copy is incomplete: A");

  EXPECT_EQ(tmp.read("A"), "old");
}

TEST(KszCp, KeepsTheTargetWhenTheSourceIsUnreadable) {
  const TempDir tmp;
  std::filesystem::permissions(tmp.write("d/a", "bytes"), std::filesystem::perms::none);
  tmp.write("d/b", "old");
  std::filesystem::permissions(tmp.path("d"), std::filesystem::perms::all);

  runAsUnprivileged([&] {
    expectFailure(run(tmp, {"cp", "d/a", "d/b"}), "ksz: cannot be read: d/a");
  });

  EXPECT_EQ(tmp.read("d/b"), "old");
}

TEST(KszCp, NamesATargetThatCannotBeWritten) {
  const TempDir tmp;
  tmp.write("a", "bytes");

  expectFailure(run(tmp, {"cp", "a", "missing/b"}), "ksz: cannot be written: missing/b");
}

TEST(KszCp, ReportsAnIncompleteCopy) {
  const TempDir tmp;
  tmp.write("a", std::string(200'000, 'x'));
  const FileSizeLimit limit(4096);

  expectFailure(run(tmp, {"cp", "a", "b"}), "ksz: the copy is incomplete: b");
}

// ---- mv -------------------------------------------------------------------------------------

TEST(KszMv, RenamesAFileOverAnother) {
  const TempDir tmp;
  tmp.write("a.txt", "new");
  tmp.write("b.txt", "old");

  expectSilentSuccess(run(tmp, {"mv", "--force", "a.txt", "b.txt"}));

  EXPECT_EQ(tmp.entries(), lines("b.txt"));
  EXPECT_EQ(tmp.read("b.txt"), "new");
}

TEST(KszMv, KeepsAFileWithoutForce) {
  const TempDir tmp;
  tmp.write("a.txt", "new");
  tmp.write("b.txt", "old");

  expectFailure(run(tmp, {"mv", "a.txt", "b.txt"}),
                "ksz: already exists, use --force to overwrite it: b.txt");

  EXPECT_EQ(tmp.entries(), lines("a.txt", "b.txt"));
  EXPECT_EQ(tmp.read("b.txt"), "old");
}

TEST(KszMv, MovesIntoADirectory) {
  const TempDir tmp;
  tmp.write("a.txt", "bytes");
  tmp.mkdir("out");

  expectSilentSuccess(run(tmp, {"mv", "./a.txt", "out"}));

  EXPECT_EQ(tmp.entries(), lines("out/", "out/a.txt"));
}

TEST(KszMv, KeepsTheTargetWhenTheSourceIsMissing) {
  const TempDir tmp;
  tmp.write("b", "old");

  expectFailure(run(tmp, {"mv", "mistyped", "b"}), "ksz: no such file: mistyped");

  EXPECT_EQ(tmp.read("b"), "old");
}

TEST(KszMv, KeepsAFileThatIsMovedToItself) {
  const TempDir tmp;
  tmp.write("a", "bytes");

  expectFailure(run(tmp, {"mv", "a", "./a"}), "ksz: cannot be moved to itself: a");

  EXPECT_EQ(tmp.read("a"), "bytes");
}

TEST(KszMv, KeepsAFileWithTheNameOfTheBackup) {
  const TempDir tmp;
  tmp.write("new.txt", "new");
  tmp.write("a.bak", "kept");

  expectFailure(run(tmp, {"mv", "new.txt", "a.txt"}),
                "ksz: has the name of the backup, rename it first: a.bak");
  expectFailure(run(tmp, {"mv", "a.bak", "a.txt"}),
                "ksz: has the name of the backup, rename it first: a.bak");

  EXPECT_EQ(tmp.entries(), lines("a.bak", "new.txt"));
  EXPECT_EQ(tmp.read("a.bak"), "kept");
}

TEST(KszMv, RefusesATargetThatIsABackup) {
  const TempDir tmp;
  tmp.write("a.txt", "bytes");

  expectFailure(run(tmp, {"mv", "a.txt", "b.bak"}),
                "ksz: a file cannot be moved to the name of a backup: b.bak");

  EXPECT_EQ(tmp.entries(), lines("a.txt"));
}

TEST(KszMv, KeepsAFileThatCannotBeMoved) {
  const TempDir tmp;
  tmp.write("a.txt", "bytes");

  expectFailure(run(tmp, {"mv", "a.txt", "missing/b.txt"}), "ksz: cannot be moved: a.txt");

  EXPECT_EQ(tmp.read("a.txt"), "bytes");
}

// ---- where ----------------------------------------------------------------------------------

class KszWhere : public testing::Test {
 protected:
  KszWhere() { tmp_.mkdir("home"); }

  [[nodiscard]] const TempDir& tmp() const { return tmp_; }

  /// The line of the list that has this name.
  [[nodiscard]] static std::string line(const Outcome& outcome, const std::string& name) {
    const std::size_t start = ("\n" + outcome.out).find("\n" + name + "  ");
    return start == std::string::npos
               ? "no " + name
               : outcome.out.substr(start, outcome.out.find('\n', start) - start);
  }

 private:
  TempDir tmp_;
  ScopedEnv home_{"HOME", tmp_.path("home")};
  ScopedEnv temporary_{"TMPDIR", tmp_.path()};
  ScopedEnv user_{"KAVRA_USER_DIR", nullptr};
};

TEST_F(KszWhere, ShowsEveryPlaceAndCreatesNothing) {
  const Outcome outcome = run(tmp(), {"where"});

  const std::string program = std::filesystem::canonical(VX_KSZ_PROGRAM).string();
  const std::string folder = program.substr(0, program.rfind('/'));
  const std::string user = tmp().path("home/kavra");
  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "executable   exists   " + program + "\n" +     //
                             "its folder   exists   " + folder + "\n" +  //
                             "application  exists   " + folder + "\n" +  //
                             "resources    exists   " + folder + "\n" +  //
                             "current      exists   " + tmp().path() +   //
                             "\nhome         exists   " + tmp().path("home") +
                             "\ntemporary    exists   " + tmp().path() +
                             "\nuser         missing  " + user +              //
                             "\nconfig       missing  " + user + "/config" +  //
                             "\noutput       missing  " + user + "/output" +  //
                             "\npreview      missing  " + user + "/preview" +
                             "\nhelp page    missing  " + user + "/nodehelp.html\n");
  EXPECT_EQ(tmp().entries(), lines("home/"));
}

TEST_F(KszWhere, ShowsTheProductPlacesAfterCreatingThem) {
  const Outcome outcome = run(tmp(), {"where", "--create"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  const std::string user = tmp().path("home/kavra");
  EXPECT_EQ(line(outcome, "user"), "user         exists   " + user);
  EXPECT_EQ(line(outcome, "config"), "config       exists   " + user + "/config");
  EXPECT_EQ(line(outcome, "output"), "output       exists   " + user + "/output");
  EXPECT_EQ(line(outcome, "preview"), "preview      exists   " + user + "/preview");
  EXPECT_EQ(line(outcome, "help page"), "help page    missing  " + user + "/nodehelp.html");
  EXPECT_EQ(line(outcome, "its link"), "its link              file://" + user + "/nodehelp.html");
  EXPECT_EQ(tmp().entries(), lines("home/", "home/kavra/", "home/kavra/config/",
                                   "home/kavra/output/", "home/kavra/preview/"));
}

TEST_F(KszWhere, ShowsWhatIsMissingInTheUserDirectory) {
  tmp().mkdir("chosen/output");
  const ScopedEnv chosen("KAVRA_USER_DIR", tmp().path("chosen"));

  const Outcome outcome = run(tmp(), {"where"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(line(outcome, "user"), "user         exists   " + tmp().path("chosen"));
  EXPECT_EQ(line(outcome, "config"), "config       missing  " + tmp().path("chosen/config"));
  EXPECT_EQ(line(outcome, "output"), "output       exists   " + tmp().path("chosen/output"));
}

TEST_F(KszWhere, FailsWhenADirectoryCannotBeCreated) {
  tmp().write("home/kavra/output", "in the way");

  const Outcome outcome = run(tmp(), {"where", "--create"});

  EXPECT_EQ(outcome.status, 1);
  EXPECT_TRUE(outcome.err.starts_with("error: Failed to create kavra output dir: " +
                                      tmp().path("home/kavra/output")))
      << outcome.err;
  EXPECT_TRUE(tmp().exists("home/kavra/preview"));
}

TEST_F(KszWhere, WarnsAboutAMissingHomeDirectory) {
  const ScopedEnv home("HOME", tmp().path("mistyped"));

  const Outcome outcome = run(tmp(), {"where"});

  EXPECT_TRUE(outcome.err.starts_with("warning: Failed to find home dir: ")) << outcome.err;
  EXPECT_EQ(line(outcome, "home"), "home         exists   " + tmp().path());
}

// ---- pick -----------------------------------------------------------------------------------

/// A script in place of zenity notes how it is called and answers from a file.
class KszPick : public testing::Test {
 protected:
  [[nodiscard]] const TempDir& tmp() const { return tmp_; }

  void answer(const std::string& line) const { tmp_.write("answer", line + "\n"); }

  /// The dialog's arguments, each followed by a line break.
  [[nodiscard]] std::string shown() const {
    std::string arguments = tmp_.exists("arguments") ? tmp_.read("arguments") : "no dialog";
    for (char& byte : arguments) {
      byte = byte == '\0' ? '\n' : byte;
    }
    return arguments;
  }

 private:
  static std::string pathWithStandIn() {
    const char* const path = std::getenv("PATH");
    return std::string(VX_STAND_INS) + ":" + (path == nullptr ? "/usr/bin:/bin" : path);
  }

  TempDir tmp_;
  ScopedEnv path_{"PATH", pathWithStandIn()};
  ScopedEnv display_{"DISPLAY", ":0"};
  ScopedEnv remote_{"SSH_TTY", "none"};
  ScopedEnv desktop_{"XDG_SESSION_DESKTOP", nullptr};
  ScopedEnv argumentsFile_{"ZENITY_ARGUMENTS", tmp_.path("arguments")};
  ScopedEnv answerFile_{"ZENITY_ANSWER", tmp_.path("answer")};
};

TEST_F(KszPick, ShowsTheFileThatWasChosen) {
  answer(tmp().write("a.png", ""));

  const Outcome outcome = run(tmp(), {"pick", "open", "--title", "One image", "--at", "a.png",
                                      "--about", "Images", "--ext", "png", ".jpg"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, tmp().path("a.png") + "\n");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(shown(), "--file-selection\n--title=One image\n--filename=" + tmp().path("a.png") +
                         "\n--file-filter=Images (png, .jpg) | *.png *.jpg\n"
                         "--file-filter=All files | *\n");
}

TEST_F(KszPick, ShowsALineForEachOfSeveralFiles) {
  answer(tmp().write("b.png", "") + "|" + tmp().write("a.png", ""));

  const Outcome outcome = run(tmp(), {"pick", "several"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, tmp().path("b.png") + "\n" + tmp().path("a.png") + "\n");
  EXPECT_EQ(shown(),
            "--file-selection\n--multiple\n--title=ksz\n--filename=" + tmp().path() + "/\n");
}

TEST_F(KszPick, ShowsTheFolderThatWasChosen) {
  answer(tmp().mkdir("d"));

  const Outcome outcome = run(tmp(), {"pick", "folder", "--at", "d"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, tmp().path("d") + "\n");
  EXPECT_EQ(shown(),
            "--file-selection\n--directory\n--title=ksz\n--filename=" + tmp().path("d") + "/\n");
}

TEST_F(KszPick, ShowsTheNameToSaveTo) {
  answer(tmp().path("new.ksz"));

  const Outcome outcome = run(tmp(), {"pick", "save", "--at", "new.ksz"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, tmp().path("new.ksz") + "\n");
  EXPECT_EQ(shown(), "--file-selection\n--save\n--confirm-overwrite\n--title=ksz\n--filename=" +
                         tmp().path("new.ksz") + "\n");
}

TEST_F(KszPick, FailsWhenTheUserCancels) {
  for (const std::string kind : {"open", "several", "folder", "save"}) {
    expectFailure(run(tmp(), {"pick", kind, "--title", "Add textures"}),
                  "ksz: nothing was chosen: Add textures");
  }
}

TEST_F(KszPick, RefusesATextThatCouldRunACommand) {
  for (const std::string text : {"it's", "a \"b\"", "`c`", "$(d)", "ends in \\", "tinyfd_query"}) {
    EXPECT_EQ(run(tmp(), {"pick", "open", "--title", text}).status, 2) << text;
    EXPECT_EQ(run(tmp(), {"pick", "open", "--about", text}).status, 2) << text;
    EXPECT_EQ(run(tmp(), {"pick", "open", "--ext", text}).status, 2) << text;
  }
  EXPECT_EQ(shown(), "no dialog");
}

TEST_F(KszPick, RefusesAPathThatCouldRunACommand) {
  tmp().mkdir("it's");

  expectFailure(run(tmp(), {"pick", "folder", "--at", "it's"}),
                "ksz: a dialog cannot open with this path: " + tmp().path("it's/"));

  EXPECT_EQ(shown(), "no dialog");
}

TEST_F(KszPick, RefusesTextsThatAreTooLong) {
  const std::string title(300, 't');
  const std::string about(300, 'a');

  expectFailure(run(tmp(), {"pick", "open", "--title", title, "--about", about}),
                "ksz: the texts are too long for a dialog: " + title);

  EXPECT_EQ(shown(), "no dialog");
}

// ---- The command line -----------------------------------------------------------------------

TEST(KszCommandLine, RefusesAMistypedOrIncompleteCommand) {
  const TempDir tmp;
  const std::vector<std::vector<std::string>> wrong = {
      {"resolve"},           {"ls"},      {"cp"},
      {"cp", "a"},           {"mv"},      {"mv", "a"},
      {"cp", "a", "b", "c"}, {"pick"},    {"pick", "mistyped"},
      {"where", "else"},     {"mistyped"}};
  for (const std::vector<std::string>& arguments : wrong) {
    const Outcome outcome = run(tmp, arguments);

    EXPECT_EQ(outcome.status, 2) << arguments.front();
    EXPECT_EQ(outcome.out, "") << arguments.front();
    EXPECT_NE(outcome.err, "") << arguments.front();
  }
  EXPECT_EQ(tmp.entries(), lines());
}

TEST(KszCommandLine, ShowsTheVersion) {
  const TempDir tmp;

  const Outcome outcome = run(tmp, {"--version"});

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.out, "ksz " VX_VERSION "\n");
}

TEST(KszCommandLine, NamesAnUnknownCommand) {
  const TempDir tmp;

  const Outcome outcome = run(tmp, {"pakc", "a.ksz", "b"});

  EXPECT_EQ(outcome.err, "ksz: no such command, see ksz --help: pakc\n");
}

TEST(KszCommandLine, ListsTheKindsOfDialog) {
  const TempDir tmp;

  EXPECT_NE(run(tmp, {"pick", "mistyped"}).err.find("{open,several,folder,save}"),
            std::string::npos);
}

TEST(KszCommandLine, HelpsWithEveryCommand) {
  const TempDir tmp;
  const Outcome help = run(tmp, {"--help"});
  EXPECT_NE(help.out.find("\nExamples:\n"), std::string::npos);

  for (const std::string command :
       {"pack", "unpack", "resolve", "ls", "cp", "mv", "where", "pick"}) {
    EXPECT_NE(help.out.find("\n  " + command + " "), std::string::npos) << command;

    const Outcome outcome = run(tmp, {command, "--help"});

    EXPECT_EQ(outcome.status, 0) << command;
    EXPECT_NE(outcome.out.find("Usage: ksz " + command), std::string::npos) << outcome.out;
  }
}

}  // namespace
