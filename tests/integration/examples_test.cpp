// SPDX-License-Identifier: MIT
//
// The numbered examples, run as their reader runs them.

#include "tests/testing/scoped_cwd.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <sys/wait.h>

namespace {

using vx::test::ScopedCurrentDir;
using vx::test::ScopedEnv;
using vx::test::TempDir;

struct Outcome {
  int status = -1;
  std::string output;  // of both streams
};

/// Runs an example with arguments that the shell may see as they are.
Outcome run(const std::string& name, const std::string& arguments = "") {
  const std::string command = VX_EXAMPLES "/" + name + " " + arguments + " </dev/null 2>&1";
  FILE* const pipe = ::popen(command.c_str(), "r");
  Outcome outcome;
  std::array<char, 4096> chunk{};
  while (const std::size_t count = std::fread(chunk.data(), 1, chunk.size(), pipe)) {
    outcome.output.append(chunk.data(), count);
  }
  const int status = ::pclose(pipe);
  outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return outcome;
}

class Example : public testing::Test {
 protected:
  TempDir tmp;
  ScopedCurrentDir cwd{tmp.path()};
  ScopedEnv temporary{"TMPDIR", tmp.path().c_str()};
  ScopedEnv home{"HOME", tmp.path().c_str()};
  ScopedEnv userDir{"KAVRA_USER_DIR", nullptr};
};

TEST_F(Example, FirstStepsShowAFileAndWhatAFailureSaysAndLeaveNothing) {
  const Outcome outcome = run("01_first_steps");

  EXPECT_EQ(outcome.status, 0);
  EXPECT_NE(outcome.output.find("hello.txt\n"), std::string::npos);
  EXPECT_NE(outcome.output.find("error: Failed to create dir: " + tmp.path("vx_first_steps") +
                                "/hello.txt [err: File exists].\n"),
            std::string::npos);
  EXPECT_TRUE(tmp.entries().empty());
}

TEST_F(Example, AnArchiveIsWrittenWithABarAndReadBack) {
  std::filesystem::copy(VX_SCENE, tmp.path(), std::filesystem::copy_options::recursive);

  const Outcome outcome =
      run("02_archive_with_progress", "scene.ksz room.ksx lamp.ksa res/wood.png");

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output,
            "[                    ]   0% room.ksx\n"
            "[######              ]  33% lamp.ksa\n"
            "[#############       ]  67% res/wood.png\n"
            "[####################] 100% done\n" +
                tmp.path("scene.ksx") + "\nunpacked/lamp.ksa\nunpacked/res/wood.png\n");
  EXPECT_EQ(tmp.read("unpacked/res/wood.png"), tmp.read("res/wood.png"));
  EXPECT_EQ(tmp.read("scene.ksx"), tmp.read("room.ksx"));
}

TEST_F(Example, AnArchiveThatCannotBeWrittenSaysWhy) {
  const std::string archive = tmp.path("missing/scene.ksz");

  const Outcome outcome = run("02_archive_with_progress", archive + " nothing");

  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "error: Failed to initialize archive: " + archive + "\n");
}

TEST_F(Example, TexturesAreFoundByNameAndByExtension) {
  tmp.write("textures/wood.png", "png");

  const Outcome outcome = run("03_find_textures", "textures");

  const std::string found = tmp.path("textures/wood.png");
  EXPECT_EQ(outcome.status, 1);
  EXPECT_EQ(outcome.output, "/old/machine/textures/wood.png => " + found +
                                "\ntextures/wood.png => " + found + "\ntextures/wood.* => " +
                                found + "\ntextures/lost.png => not found\n");
}

TEST_F(Example, ThePlacesAreTold) {
  tmp.mkdir("kavra/config");

  const Outcome outcome = run("04_where_things_live");

  EXPECT_EQ(outcome.status, 0);
  EXPECT_NE(outcome.output.find("/04_where_things_live\n"), std::string::npos);
  EXPECT_NE(outcome.output.find("home       " + tmp.path() + "\n"), std::string::npos);
  EXPECT_NE(outcome.output.find("settings   " + tmp.path("kavra/config") + "\n"),
            std::string::npos);
}

TEST_F(Example, ADialogThatIsCancelledIsNoError) {
  const char* const before = std::getenv("PATH");
  const ScopedEnv path("PATH", std::string(VX_STAND_INS ":") + (before == nullptr ? "" : before));
  const ScopedEnv display("DISPLAY", ":0");
  const ScopedEnv session("SSH_TTY", "none");
  const ScopedEnv desktop("XDG_SESSION_DESKTOP", nullptr);
  const ScopedEnv arguments("ZENITY_ARGUMENTS", tmp.path("arguments").c_str());
  const ScopedEnv answer("ZENITY_ANSWER", tmp.path("no answer").c_str());

  const Outcome outcome = run("05_dialogs");

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "nothing picked\n");
}

TEST_F(Example, AnApplicationTakesTheLinesOfTheLog) {
  const Outcome outcome = run("06_application_log");

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output,
            "error: [app] Cannot expand non-existent archive: no/such/archive.zip\n");
}

TEST_F(Example, StandardPathsGoInAndOut) {
  const Outcome outcome = run("07_with_std_filesystem");

  EXPECT_EQ(outcome.status, 0);
  EXPECT_EQ(outcome.output, "2 directories in \"" + tmp.path("vx_with_std_filesystem") + "\"\n");
}

}  // namespace
