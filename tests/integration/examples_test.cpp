// SPDX-License-Identifier: MIT
//
// The numbered examples, run as their reader runs them.

#include "tests/testing/child.h"
#include "tests/testing/dialog_program.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped.h"
#include "tests/testing/temp_dir.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <vector>

namespace vx::test {
namespace {

using testing::HasSubstr;

class Example : public testing::Test {
 protected:
  /// Runs the example and expects its exit code and, on standard error, what it logs.
  static std::string run(const std::string& name, const std::vector<std::string>& arguments = {},
                         int exitCode = 0, const std::string& logged = "") {
    std::vector<std::string> command = {VX_EXAMPLES "/" + name};
    command.insert(command.end(), arguments.begin(), arguments.end());
    const ChildEnd end = runProgram(command);
    EXPECT_EQ(end.exitCode, exitCode);
    EXPECT_EQ(end.err, logged);
    return end.out;
  }

  TempDir tmp;
  ScopedCurrentDir cwd{tmp.path()};
  ScopedEnv temporary{"TMPDIR", tmp.path()};
  ScopedEnv home{"HOME", tmp.path()};
  ScopedEnv userDir{"KAVRA_USER_DIR", nullptr};
};

TEST_F(Example, ShowsAFileAndAFailure) {
  EXPECT_THAT(run("01_first_steps", {}, 0,
                  "error: Failed to create dir: " + tmp.path("vx_first_steps/hello.txt") +
                      " [err: " + errnoText(EEXIST) + "].\n"),
              HasSubstr("hello.txt\n"));
  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(Example, WritesAnArchiveWithProgressAndReadsIt) {
  std::filesystem::copy(VX_SCENE, tmp.path(), std::filesystem::copy_options::recursive);

  EXPECT_EQ(run("02_archive_with_progress", {"scene.ksz", "room.ksx", "lamp.ksa", "res/wood.png"}),
            "[                    ]   0% room.ksx\n"
            "[######              ]  33% lamp.ksa\n"
            "[#############       ]  67% res/wood.png\n"
            "[####################] 100% done\n" +
                tmp.path("scene.ksx") + "\nunpacked/lamp.ksa\nunpacked/res/wood.png\n");
  EXPECT_EQ(tmp.read("unpacked/res/wood.png"), tmp.read("res/wood.png"));
  EXPECT_EQ(tmp.read("scene.ksx"), tmp.read("room.ksx"));
}

TEST_F(Example, SaysWhyAnArchiveCannotBeWritten) {
  EXPECT_EQ(run("02_archive_with_progress", {"missing/scene.ksz", "nothing"}, 1,
                "error: Failed to initialize archive: missing/scene.ksz\n"),
            "");
}

TEST_F(Example, FindsTexturesByNameAndByExtension) {
  const std::string wood = tmp.write("textures/wood.png", "png");

  EXPECT_EQ(run("03_find_textures", {"textures"}, 1),
            "/old/machine/textures/wood.png => " + wood + "\ntextures/wood.png => " + wood +
                "\ntextures/wood.* => " + wood + "\ntextures/lost.png => not found\n");
}

TEST_F(Example, NamesTheWellKnownLocations) {
  const std::string config = tmp.mkdir("kavra/config");

  EXPECT_THAT(run("04_where_things_live"),
              testing::AllOf(HasSubstr("/04_where_things_live\n"),
                             HasSubstr("home       " + tmp.path() + "\n"),
                             HasSubstr("settings   " + config + "\n")));
}

TEST_F(Example, TakesACancelledDialogForNoError) {
  const DialogProgram zenity;

  EXPECT_EQ(run("05_dialogs"), "nothing picked\n");
}

TEST_F(Example, TakesTheLinesOfTheLog) {
  EXPECT_EQ(run("06_application_log", {}, 0,
                "error: [app] Cannot expand non-existent archive: no/such/archive.zip\n"),
            "");
}

TEST_F(Example, ExchangesPathsWithTheStandardLibrary) {
  EXPECT_EQ(run("07_with_std_filesystem"),
            "2 directories in \"" + tmp.path("vx_with_std_filesystem") + "\"\n");
}

TEST_F(Example, SavesADocumentAndKeepsThePreviousVersion) {
  run("08_autosave", {"notes.txt", "one"});
  run("08_autosave", {"notes.txt", "two"});

  EXPECT_EQ(tmp.entries(), lines("notes.txt", "notes.txt.previous"));
  EXPECT_EQ(tmp.read("notes.txt"), "two");
  EXPECT_EQ(tmp.read("notes.txt.previous"), "one");
}

TEST_F(Example, LogsAFailedSaveToItsOwnFile) {
  tmp.mkdir("notes.txt.new");

  run("08_autosave", {"notes.txt", "one"}, 1);

  EXPECT_EQ(tmp.entries(), lines("notes.log", "notes.txt.new/"));
  EXPECT_EQ(tmp.read("notes.log"), "error: Cannot write notes.txt.new.\n");
}

TEST_F(Example, ListsAssetsSortedAndResolvesOne) {
  tmp.write("assets/b.png", "png");
  tmp.write("assets/a.JPG", "jpg");
  tmp.write("assets/notes.txt", "text");
  tmp.write("assets/tiles/wood.jpg", "jpg");
  tmp.link("assets/tiles/up", "..");

  EXPECT_EQ(run("09_asset_browser", {"assets", "wood"}),
            "assets/\n  a.JPG\n  b.png\nassets/tiles/\n  wood.jpg\nwood: " +
                tmp.path("assets/tiles/wood.jpg") + "\n");
  EXPECT_THAT(run("09_asset_browser", {"assets", "stone"}, 1), HasSubstr("stone: not found\n"));
}

TEST_F(Example, ImportsFilesAndNamesThoseThatExist) {
  tmp.write("a.png", "picture");
  tmp.write("b.png", "other");
  tmp.write("library/b.png", "kept");

  EXPECT_EQ(run("10_import", {"library", "a.png", "b.png"}, 1, "not imported: b.png\n"),
            "[                    ] 0 of 2 a.png\n"
            "[##########          ] 1 of 2 b.png\n"
            "[####################] 2 of 2 done\n");
  EXPECT_EQ(tmp.read("library/a.png"), "picture");
  EXPECT_EQ(tmp.read("library/b.png"), "kept");
}

}  // namespace
}  // namespace vx::test
