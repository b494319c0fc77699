// SPDX-License-Identifier: MIT
//
// exePath, exeDir, appDir and resDir on a platform that answers as the test wants.

#include "core/vx_string.h"
#include "fs/internal/vx_fs_platform.h"
#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/failures.h"
#include "tests/testing/isolation.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vx::test {
namespace {

constexpr const char* kContext = "vx::Path::exePath()";

using Location = String (*)();
constexpr Location kLocations[] = {fs::exePath, fs::exeDir, fs::appDir, fs::resDir};

/// The platform while it lives: first it is asked for the size, then for the path.
class Platform {
 public:
  explicit Platform(const std::string& path) : bytes(path + '\0') {
    size = static_cast<std::uint32_t>(bytes.size());
    active_ = this;
  }
  Platform(const Platform&) = delete;
  Platform& operator=(const Platform&) = delete;
  ~Platform() { active_ = nullptr; }

  static int answer(char* buffer, std::uint32_t* room) {
    return buffer == nullptr ? active_->answerSize(room) : active_->answerPath(buffer, room);
  }

  // The answers
  std::uint32_t size;
  int sizeResult = -1;
  std::string bytes;
  int pathResult = 0;
  std::optional<std::uint32_t> sizeAfterPath;

  // What it was asked
  std::vector<std::string> questions;
  std::string buffer;  // the bytes before the path was written, with the one after its end

 private:
  int answerSize(std::uint32_t* room) {
    questions.push_back("size, room for " + std::to_string(*room));
    *room = size;
    return sizeResult;
  }

  int answerPath(char* to, std::uint32_t* room) {
    questions.push_back("path, room for " + std::to_string(*room));
    buffer.assign(to, std::size_t{*room} + 1);
    std::copy(bytes.begin(), bytes.end(), to);
    *room = sizeAfterPath.value_or(*room);
    return pathResult;
  }

  static inline Platform* active_ = nullptr;
};

// ---------------------------------------------------------------------------------------------
// All four

class ExecutableLocations : public FsTest {};

TEST_F(ExecutableLocations, AskThePlatformEachTime) {
  for (const Location location : kLocations) {
    Platform platform(tmp.write("a/App.app/Contents/MacOS/tool", ""));
    EXPECT_TRUE(text(location()).starts_with(tmp.path("a")));
    platform.bytes = tmp.write("b/App.app/Contents/MacOS/tool", "") + '\0';
    EXPECT_TRUE(text(location()).starts_with(tmp.path("b")));

    EXPECT_EQ(platform.questions.size(), 4U);
  }
  expectSilence();
}

TEST_F(ExecutableLocations, AreEmptyWithoutASize) {
  for (const int result : {-1, 0}) {
    for (const Location location : kLocations) {
      const ErrorStateSentinel before;
      Platform platform(tmp.write("tool", ""));
      platform.size = 0;
      platform.sizeResult = result;
      Calls calls;

      EXPECT_EQ(location(), "");

      EXPECT_TRUE(currentErrorIs(0, kContext, "Returning empty path"));
      EXPECT_EQ(platform.questions, lines("size, room for 0"));
      EXPECT_EQ(calls.all(), lines());
    }
  }
  EXPECT_EQ(log.all(), lines());
}

TEST_F(ExecutableLocations, AreEmptyWithoutAPath) {
  struct Row {
    int result;
    std::optional<std::uint32_t> sizeAfterPath;
  };
  for (const Row& row : {Row{-1, {}}, Row{0, 0}, Row{-1, 1000}}) {
    for (const Location location : kLocations) {
      const ErrorStateSentinel before;
      Platform platform(tmp.write("tool", ""));
      platform.pathResult = row.result;
      platform.sizeAfterPath = row.sizeAfterPath;
      Calls calls;

      EXPECT_EQ(location(), "");

      EXPECT_TRUE(currentErrorIs(0, kContext, "Failed to retrieve exe path"));
      EXPECT_EQ(platform.questions.size(), 2U);  // it is not asked again
      EXPECT_EQ(calls.all(), lines());
    }
  }
  EXPECT_EQ(log.all(), lines());
}

TEST_F(ExecutableLocations, ReportAnExecutableThatIsNotFound) {
  struct Row {
    Location location;
    const char* result;
    const char* whenMissed;  // the result if it is not found itself
  };
  const Row rows[] = {
      {fs::exePath, "x/y/A.app/Contents/MacOS/tool", "x/y/A.app/Contents/MacOS/tool"},
      {fs::exeDir, "x/y/A.app/Contents/MacOS", "x/y/A.app/Contents/MacOS"},
      {fs::appDir, "x/y", "x"},
      {fs::resDir, "x/y/A.app/Contents/Resources", "x/y/A.app/Contents"},
  };
  for (const Row& row : rows) {
    forEachFailure([&row](FailureRun& run) {
      const std::string executable = run.tmp.write("x/y/A.app/Contents/MacOS/tool", "");
      run.tmp.mkdir("x/y/A.app/Contents/Resources");
      const Platform platform(executable);

      const String location = run.act(row.location);

      const bool isMissed = run.failed("stat " + run.tmp.path(row.result));
      EXPECT_EQ(text(location), run.tmp.path(isMissed ? row.whenMissed : row.result));
      if (run.failed("stat " + executable, 1)) {
        EXPECT_EQ(run.log.all(), lines());
        EXPECT_TRUE(currentErrorIs(0, kContext, "Returning non-existent path"));
      } else {
        run.expectSilence();
      }
    });
  }
}

// ---------------------------------------------------------------------------------------------
// exePath

class ExePath : public FsTest {};

TEST_F(ExePath, AsksForTheSizeAndThenForThePath) {
  tmp.write("tool", "");
  const Platform platform("./tool");
  Calls calls;

  EXPECT_EQ(text(fs::exePath()), tmp.path("tool"));

  EXPECT_EQ(platform.questions, lines("size, room for 0", "path, room for 7"));
  EXPECT_EQ(platform.buffer, std::string(8, '\0'));
  EXPECT_EQ(calls.all(), lines("stat tool", "realpath tool"));
  expectSilence();
}

TEST_F(ExePath, TakesAnyResultButMinusOneForSuccess) {
  Platform platform(tmp.write("tool", ""));
  platform.sizeResult = 0;
  platform.pathResult = 1;

  EXPECT_EQ(text(fs::exePath()), tmp.path("tool"));

  expectSilence();
}

TEST_F(ExePath, EndsAtTheFirstNul) {
  Platform platform(tmp.write("tool", ""));
  platform.bytes += "more";
  platform.size += 4;

  EXPECT_EQ(text(fs::exePath()), tmp.path("tool"));
}

TEST_F(ExePath, EndsAtTheSize) {
  Platform platform(tmp.write("tool", ""));
  platform.size -= 1;
  platform.bytes.back() = '!';

  EXPECT_EQ(text(fs::exePath()), tmp.path("tool"));

  expectSilence();
}

TEST_F(ExePath, IsCanonical) {
  const std::string executable = tmp.write("real/tool-1.0", "");
  tmp.link("real/tool", "tool-1.0");
  tmp.link("opt", "real");
  for (const std::string& path :
       {tmp.path("opt/tool"), tmp.path("missing/..//./opt/tool"), std::string("opt/tool")}) {
    const Platform platform(path);

    EXPECT_EQ(text(fs::exePath()), executable) << path;
  }
  expectSilence();
}

TEST_F(ExePath, IsReturnedWhereThereIsNoFile) {
  tmp.mkdir("dir");
  tmp.link("dangling", "missing");
  tmp.link("link", "dir");
  struct Row {
    const char* told;
    std::string path;
  };
  const Row rows[] = {
      {"gone/tool", tmp.path("gone/tool")},
      {"dir", tmp.path("dir")},
      {"dangling", tmp.path("dangling")},
      {"link/tool", tmp.path("dir/tool")},  // links of parent directories are resolved
      {"", tmp.path()},
  };
  for (const Row& row : rows) {
    const ErrorStateSentinel before;
    const Platform platform(row.told);

    EXPECT_EQ(text(fs::exePath()), row.path);

    EXPECT_TRUE(currentErrorIs(0, kContext, "Returning non-existent path"));
  }
  EXPECT_EQ(log.all(), lines());
}

TEST_F(ExePath, KeepsEveryByteOfALongPath) {
  std::string levels;
  for (int i = 0; i < 5; ++i) {
    levels += std::string(200, 'd') + '/';
  }
  const std::string executable = tmp.write(levels + "\xff \n", "");
  const Platform platform(executable);

  EXPECT_EQ(text(fs::exePath()), executable);

  expectSilence();
}

// ---------------------------------------------------------------------------------------------
// exeDir

class ExeDir : public FsTest {};

TEST_F(ExeDir, IsTheDirectoryOfTheCanonicalPath) {
  tmp.write("bin/tool", "");
  tmp.mkdir("dir");
  tmp.link("link", "bin/tool");
  struct Row {
    std::string path;
    std::string directory;
  };
  const Row rows[] = {
      {tmp.path("bin/tool"), tmp.path("bin")},
      {tmp.path("link"), tmp.path("bin")},
      {tmp.path("gone/bin/tool"), tmp.path("gone/bin")},
      {tmp.path("dir"), tmp.path("dir")},
      {"/no such tool", "/"},
  };
  for (const Row& row : rows) {
    const Platform platform(row.path);

    EXPECT_EQ(text(fs::exeDir()), row.directory);
  }
}

// ---------------------------------------------------------------------------------------------
// appDir and resDir

class AppDir : public FsTest {};
class ResDir : public FsTest {};

TEST_F(AppDir, ContainsTheBundle) {
  const Platform platform(tmp.write("x/Some App.app/Contents/MacOS/tool", ""));
  const std::string resources = tmp.mkdir("x/Some App.app/Contents/Resources");

  EXPECT_EQ(text(fs::appDir()), tmp.path("x"));
  EXPECT_EQ(text(fs::resDir()), resources);

  expectSilence();
}

TEST_F(ResDir, IsTheParentDirectoryWithoutResources) {
  const Platform platform(tmp.write("A.app/Contents/MacOS/tool", ""));

  EXPECT_EQ(text(fs::resDir()), tmp.path("A.app/Contents"));
  tmp.write("A.app/Contents/Resources", "");
  EXPECT_EQ(text(fs::resDir()), tmp.path("A.app/Contents"));

  expectSilence();
}

TEST_F(ResDir, DoesNotResolveALink) {
  const Platform platform(tmp.write("A.app/Contents/MacOS/tool", ""));
  tmp.mkdir("shared");
  const std::string resources = tmp.link("A.app/Contents/Resources", "../../shared");

  EXPECT_EQ(text(fs::resDir()), resources);
}

TEST_F(AppDir, IsKnownByTheNameOfOneDirectory) {
  const Platform platform(tmp.write("a/b/MacOS/tool", ""));
  const std::string resources = tmp.mkdir("a/b/Resources");

  EXPECT_EQ(text(fs::appDir()), tmp.path());
  EXPECT_EQ(text(fs::resDir()), resources);
}

TEST_F(AppDir, IsThatOfTheExecutableALinkLeadsTo) {
  tmp.write("A.app/Contents/MacOS/tool", "");
  tmp.mkdir("A.app/Contents/Resources");
  tmp.write("bin/other", "");
  {
    const Platform platform(tmp.link("bin/tool", "../A.app/Contents/MacOS/tool"));
    EXPECT_EQ(text(fs::appDir()), tmp.path());
    EXPECT_EQ(text(fs::resDir()), tmp.path("A.app/Contents/Resources"));
  }
  const Platform platform(tmp.link("A.app/Contents/MacOS/other", "../../../bin/other"));

  EXPECT_EQ(text(fs::appDir()), tmp.path("bin"));
  EXPECT_EQ(text(fs::resDir()), tmp.path("bin"));
}

TEST_F(AppDir, IsTheExecutablesDirectoryOutsideABundle) {
  tmp.mkdir("Contents/Resources");
  for (const char* const directory :
       {"Contents/NotMacOS", "Contents/macos", "Contents/MACOS", "Contents/MacOS2",
        "Contents/MacOS ", "Contents/ MacOS", "Contents/\\MacOS", "Contents/MacOS/bin"}) {
    const Platform platform(tmp.path(std::string(directory) + "/tool"));

    EXPECT_EQ(text(fs::appDir()), tmp.path(directory));
    EXPECT_EQ(text(fs::resDir()), tmp.path(directory));
  }
}

TEST_F(AppDir, RemainsWhenTheExecutableIsDeleted) {
  tmp.mkdir("A.app/Contents/MacOS");
  const std::string resources = tmp.mkdir("A.app/Contents/Resources");
  const Platform platform(tmp.path("A.app/Contents/MacOS/tool"));

  EXPECT_EQ(text(fs::appDir()), tmp.path());
  EXPECT_EQ(text(fs::resDir()), resources);
}

TEST_F(AppDir, IsOneLevelHigherWhenTheBundleIsDeleted) {
  const Platform platform(tmp.path("gone/A.app/Contents/MacOS/tool"));

  EXPECT_EQ(text(fs::appDir()), tmp.path());
  EXPECT_EQ(text(fs::resDir()), tmp.path("gone/A.app/Contents"));
}

TEST_F(AppDir, IsTheRootForABundleInTheRoot) {
  if (!canChangeRoot()) {
    GTEST_SKIP() << kCannotChangeRoot;
  }
  tmp.write("MacOS/tool", "");
  tmp.mkdir("Resources");

  runInRoot(tmp.path(), [&] {
    const Platform platform("/MacOS/tool");

    EXPECT_EQ(fs::appDir(), "/");
    EXPECT_EQ(fs::resDir(), "/Resources");

    expectSilence();
  });
}

}  // namespace
}  // namespace vx::test

int vx::fs::platform::executablePath(char* buffer, std::uint32_t* size) {
  return vx::test::Platform::answer(buffer, size);
}
