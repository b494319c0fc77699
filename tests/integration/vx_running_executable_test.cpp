// SPDX-License-Identifier: MIT
//
// exePath, exeDir, appDir and resDir of a real process: the program VX_RUNNING_EXECUTABLE is copied
// to the place and run.

#include "core/vx_string.h"
#include "fs/vx_fs.h"
#include "tests/testing/child.h"
#include "tests/testing/isolation.h"
#include "tests/testing/sandbox.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

constexpr const char* kUntouched = "1 before: the error before";
constexpr const char* kEmptyPath = "0 vx::Path::exePath(): Returning empty path";
constexpr const char* kNonExistentPath = "0 vx::Path::exePath(): Returning non-existent path";

class RunningExecutable : public testing::Test, protected Sandbox {
 protected:
  struct Report {
    std::string exePath;
    std::string exeDir;
    std::string appDir;
    std::string resDir;
    std::string error;  // that `exePath` leaves
    std::string logged;
  };

  /// Puts the program at `relative`; returns its path.
  [[nodiscard]] std::string install(const std::string& relative) const {
    const std::string program = tmp.path(relative);
    std::filesystem::create_directories(std::filesystem::path(program).parent_path());
    std::filesystem::copy_file(VX_RUNNING_EXECUTABLE, program);
    return program;
  }

  /// Runs it in the current directory, with the steps that it does before it reports.
  static Report run(const std::string& program, const std::vector<std::string>& steps = {}) {
    std::vector<std::string> command = {program};
    command.insert(command.end(), steps.begin(), steps.end());
    const ChildEnd end = runProgram(command);
    EXPECT_EQ(end.exitCode, 0) << end.err;

    std::vector<std::string> fields(1);
    for (const char byte : end.out) {
      if (byte == '\0') {
        fields.emplace_back();
      } else {
        fields.back() += byte;
      }
    }
    fields.resize(6);
    return {fields[0], fields[1], fields[2], fields[3], fields[4], fields[5]};
  }
};

TEST_F(RunningExecutable, KnowsItsPath) {
  const std::string program = install("bin/tool");

  const Report report = run(program);

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.exeDir, tmp.path("bin"));
  EXPECT_EQ(report.appDir, tmp.path("bin"));
  EXPECT_EQ(report.resDir, tmp.path("bin"));
  EXPECT_EQ(report.error, kUntouched);
  EXPECT_EQ(report.logged, "");
}

TEST_F(RunningExecutable, IsWhereALinkToItLeads) {
  const std::string program = install("opt/tool-1.0/bin/tool");
  tmp.link("opt/tool", "tool-1.0");

  const Report report = run(tmp.link("bin/tool", "../opt/tool/bin/tool"));

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.exeDir, tmp.path("opt/tool-1.0/bin"));
  EXPECT_EQ(report.error, kUntouched);
}

TEST_F(RunningExecutable, KnowsItsBundle) {
  const std::string program = install("Some App.app/Contents/MacOS/tool");
  const std::string resources = tmp.mkdir("Some App.app/Contents/Resources");
  const std::string link = tmp.link("bin/tool", "../Some App.app/Contents/MacOS/tool");

  for (const std::string& start : {program, link}) {
    const Report report = run(start);

    EXPECT_EQ(report.exePath, program);
    EXPECT_EQ(report.exeDir, tmp.path("Some App.app/Contents/MacOS"));
    EXPECT_EQ(report.appDir, tmp.path());
    EXPECT_EQ(report.resDir, resources);
    EXPECT_EQ(report.error, kUntouched);
    EXPECT_EQ(report.logged, "");
  }
}

TEST_F(RunningExecutable, IsInNoBundleThatOnlyLinksToIt) {
  const std::string program = install("bin/tool");
  tmp.mkdir("A.app/Contents/Resources");

  const Report report = run(tmp.link("A.app/Contents/MacOS/tool", "../../../bin/tool"));

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.appDir, tmp.path("bin"));
  EXPECT_EQ(report.resDir, tmp.path("bin"));
}

TEST_F(RunningExecutable, KeepsItsBundleWhenItIsDeleted) {
  const std::string program = install("Some App.app/Contents/MacOS/tool");
  const std::string resources = tmp.mkdir("Some App.app/Contents/Resources");

  const Report report = run(program, {"remove", program});

  EXPECT_EQ(report.appDir, tmp.path());
  EXPECT_EQ(report.resDir, resources);
  EXPECT_EQ(report.error, kNonExistentPath);
}

TEST_F(RunningExecutable, KnowsWhereItIsAfterAChange) {
  const std::string odd = "d \n\xff/a \"tool\"\n.\xfe";
  struct Row {
    std::string started;
    std::vector<std::string> steps;
    std::string path;
    const char* error;
  };
  const Row rows[] = {
      {"a/../a/./tool", {"chdir", "/"}, "a/tool", kUntouched},
      {odd, {}, odd, kUntouched},
      {"b/x (deleted)", {}, "b/x (deleted)", kUntouched},
      {"c/x", {"remove", "c/x"}, "c/x", kNonExistentPath},
      {"d/x (deleted)", {"remove", "d/x (deleted)"}, "d/x (deleted)", kNonExistentPath},
      {"e/f/x", {"remove", "e/f/x", "remove", "e/f", "remove", "e"}, "e/f/x", kNonExistentPath},
      {"g/x", {"copy", "g/x", "g/x (deleted)", "remove", "g/x"}, "g/x", kNonExistentPath},
      {"h/x", {"rename", "h/x", "h/other"}, "h/other", kUntouched},
      {"i/x", {"rename", "i", "j"}, "j/x", kUntouched},
      {"k/x", {"rename", "update", "k/x"}, "k/x", kUntouched},
  };
  tmp.write("update", "the next version");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.started + testing::PrintToString(row.steps));
    static_cast<void>(install(row.started));

    const Report report = run(row.started, row.steps);

    EXPECT_EQ(report.exePath, tmp.path(row.path));
    EXPECT_EQ(report.exeDir, std::filesystem::path(tmp.path(row.path)).parent_path().string());
    EXPECT_EQ(report.error, row.error);
    EXPECT_EQ(report.logged, "");
  }
}

TEST_F(RunningExecutable, KnowsAPathOfUpTo4095Bytes) {
  const std::string program = install("tool");
  for (const unsigned length : {255U, 256U, 257U, 1024U, 2048U, 4095U, 4096U, 6000U}) {
    // The directory is entered level by level, as its path may be too long for one call.
    const ScopedCurrentDir inside(tmp.path());
    std::string path = tmp.path();
    while (path.size() < length - 5) {
      const std::size_t missing = length - 5 - path.size() - 1;
      const std::string level(missing > 200 ? 100 : missing, 'd');
      ::mkdir(level.c_str(), 0777);
      ASSERT_EQ(::chdir(level.c_str()), 0);
      path += '/' + level;
    }
    path += "/tool";
    ASSERT_EQ(path.size(), length);
    std::filesystem::create_hard_link(program, "tool");

    const Report report = run("./tool");

    EXPECT_EQ(report.exePath, length <= 4095 ? path : "");
    EXPECT_EQ(report.exeDir, length <= 4095 ? path.substr(0, length - 5) : "");
    EXPECT_EQ(report.error, length <= 4095 ? kUntouched : kEmptyPath);
    EXPECT_EQ(report.logged, "");
  }
}

TEST_F(RunningExecutable, HasNoPathWithoutTheProcessDirectory) {
  if (!canChangeRoot()) {
    GTEST_SKIP() << kCannotChangeRoot;
  }

  runInRoot(tmp.path(), [&] {
    EXPECT_EQ(fs::exePath(), "");

    EXPECT_TRUE(currentErrorIs(0, "vx::Path::exePath()", "Returning empty path"));
    EXPECT_EQ(log.all(), lines());
  });
}

}  // namespace
}  // namespace vx::test
