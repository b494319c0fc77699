// Concern: what becomes of each answer of the platform, and how the bundle's directories follow
// from the executable's path. The platform here is a script, so every answer and every layout can
// be had.

#include "core/vx_string.h"
#include "fs/internal/vx_fs_platform.h"
#include "fs/vx_fs.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/changed_root.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using vx::String;
using vx::test::canChangeRoot;
using vx::test::currentErrorIs;
using vx::test::ErrorStateSentinel;
using vx::test::kCannotChangeRoot;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::RecordedCalls;
using vx::test::runInRoot;
using vx::test::ScopedCurrentDir;
using vx::test::TempDir;
using vx::test::text;

static_assert(std::is_same_v<decltype(&vx::fs::exePath), String (*)()>);
static_assert(std::is_same_v<decltype(&vx::fs::exeDir), String (*)()>);
static_assert(std::is_same_v<decltype(&vx::fs::appDir), String (*)()>);
static_assert(std::is_same_v<decltype(&vx::fs::resDir), String (*)()>);

constexpr const char* kContext = "vx::Path::exePath()";

/// What the platform does when it is asked.
using Answer = std::function<int(char* buffer, std::uint32_t* size)>;

/// The platform for the length of a scope: it answers by the script, and fails the test when it is
/// asked more often than the script has answers.
class ScriptedPlatform {
 public:
  struct Call {
    bool hasBuffer;
    std::uint32_t size;
  };

  explicit ScriptedPlatform(std::vector<Answer> answers) : answers_(std::move(answers)) {
    active_ = this;
  }
  ScriptedPlatform(const ScriptedPlatform&) = delete;
  ScriptedPlatform& operator=(const ScriptedPlatform&) = delete;
  ~ScriptedPlatform() { active_ = nullptr; }

  static int ask(char* buffer, std::uint32_t* size) {
    if (active_ == nullptr || active_->calls_.size() == active_->answers_.size()) {
      ADD_FAILURE() << "the platform is asked once too often";
      return -1;
    }
    active_->calls_.push_back({buffer != nullptr, *size});
    return active_->answers_[active_->calls_.size() - 1](buffer, size);
  }

  [[nodiscard]] const std::vector<Call>& calls() const { return calls_; }

 private:
  static inline ScriptedPlatform* active_ = nullptr;

  std::vector<Answer> answers_;
  std::vector<Call> calls_;
};

Answer tellsSize(std::size_t needed) {
  return [needed](char*, std::uint32_t* size) {
    *size = static_cast<std::uint32_t>(needed);
    return -1;
  };
}

Answer tellsPath(const std::string& path) {
  return [path](char* buffer, std::uint32_t*) {
    std::memcpy(buffer, path.c_str(), path.size() + 1);
    return 0;
  };
}

/// Both answers of a platform that knows the path of the executable.
std::vector<Answer> knows(const std::string& path) {
  return {tellsSize(path.size() + 1), tellsPath(path)};
}

/// What one of the functions says of an executable at `path`.
std::string located(String (*ask)(), const std::string& path) {
  const ScriptedPlatform platform(knows(path));
  return text(ask());
}

/// A platform that is asked nothing but the size, and has none.
std::vector<Answer> knowsNothing() {
  return {tellsSize(0)};
}

/// One of the four functions, to show what they have in common.
struct Location {
  const char* name;
  String (*ask)();

  friend std::ostream& operator<<(std::ostream& out, const Location& location) {
    return out << location.name;
  }
};

class EveryExecutableLocation : public testing::TestWithParam<Location> {};

INSTANTIATE_TEST_SUITE_P(, EveryExecutableLocation,
                         testing::Values(Location{"ExePath", vx::fs::exePath},
                                         Location{"ExeDir", vx::fs::exeDir},
                                         Location{"AppDir", vx::fs::appDir},
                                         Location{"ResDir", vx::fs::resDir}),
                         [](const auto& suite) { return std::string(suite.param.name); });

// ---- The two questions to the platform -------------------------------------------------------

TEST_P(EveryExecutableLocation, AsksThePlatformForTheSizeAndThenForThePath) {
  const TempDir tmp;
  const std::string executable = tmp.write("App.app/Contents/MacOS/tool", "");
  const ScriptedPlatform platform(knows(executable));

  static_cast<void>(GetParam().ask());

  ASSERT_EQ(platform.calls().size(), 2U);
  EXPECT_FALSE(platform.calls()[0].hasBuffer);
  EXPECT_EQ(platform.calls()[0].size, 0U);
  EXPECT_TRUE(platform.calls()[1].hasBuffer);
  EXPECT_EQ(platform.calls()[1].size, executable.size() + 1);
}

TEST_P(EveryExecutableLocation, AsksThePlatformAnewInEachCall) {
  const TempDir tmp;
  const std::string first = tmp.write("first/tool", "");
  const std::string second = tmp.write("second/tool", "");
  std::vector<Answer> answers = knows(first);
  for (const Answer& answer : knows(second)) {
    answers.push_back(answer);
  }
  const ScriptedPlatform platform(answers);

  const std::string before = text(GetParam().ask());
  const std::string after = text(GetParam().ask());

  EXPECT_TRUE(before.starts_with(tmp.path("first"))) << before;
  EXPECT_TRUE(after.starts_with(tmp.path("second"))) << after;
}

TEST_P(EveryExecutableLocation, LeavesTheCurrentErrorAloneOnSuccess) {
  const TempDir tmp;
  const ScriptedPlatform platform(knows(tmp.write("App.app/Contents/MacOS/tool", "")));
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_NE(text(GetParam().ask()), "");

  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(log.all(), lines());
}

TEST(ExePath, OffersZeroBytesAndOneMoreThanTheSizeThatItNames) {
  const TempDir tmp;
  const std::string executable = tmp.write("tool", "");
  const std::size_t size = executable.size() + 1;
  std::string offered;
  const ScriptedPlatform platform({
      tellsSize(size),
      [&](char* buffer, std::uint32_t* room) {
        offered.assign(buffer, std::size_t{*room} + 1);
        return tellsPath(executable)(buffer, room);
      },
  });

  EXPECT_EQ(text(vx::fs::exePath()), executable);

  EXPECT_EQ(offered, std::string(size + 1, '\0'));
}

TEST(ExePath, EndsThePathAtTheSize) {
  const TempDir tmp;
  const std::string executable = tmp.write("tool", "");
  const ScriptedPlatform platform({
      tellsSize(executable.size()),  // a platform that does not count the terminating NUL
      [&](char* buffer, std::uint32_t*) {
        std::memcpy(buffer, (executable + '!').data(), executable.size() + 1);
        return 0;
      },
  });
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), executable);

  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExePath, EndsThePathAtItsFirstNul) {
  const TempDir tmp;
  const std::string executable = tmp.write("tool", "");
  const ScriptedPlatform platform({
      tellsSize(executable.size() + 100),
      [&](char* buffer, std::uint32_t* size) {
        std::fill_n(buffer, *size, 'x');
        return tellsPath(executable)(buffer, size);
      },
  });

  EXPECT_EQ(text(vx::fs::exePath()), executable);
}

TEST(ExePath, TakesTheSizeFromAQuestionThatSucceeds) {
  const TempDir tmp;
  const std::string executable = tmp.write("tool", "");
  const ScriptedPlatform platform({
      [&](char*, std::uint32_t* size) {
        *size = static_cast<std::uint32_t>(executable.size() + 1);
        return 0;
      },
      tellsPath(executable),
  });

  EXPECT_EQ(text(vx::fs::exePath()), executable);
}

TEST(ExePath, TakesAnyAnswerButMinusOneForAPath) {
  const TempDir tmp;
  const std::string executable = tmp.write("tool", "");
  const ScriptedPlatform platform({
      tellsSize(executable.size() + 1),
      [&](char* buffer, std::uint32_t* size) {
        tellsPath(executable)(buffer, size);
        return 1;
      },
  });
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), executable);

  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExePath, AsksTheFileSystemOnceForAFileThatIsThere) {
  const TempDir tmp;
  const std::string executable = tmp.write("tool", "");
  const ScriptedPlatform platform(knows(executable));
  RecordedCalls calls;

  static_cast<void>(vx::fs::exePath());

  EXPECT_EQ(calls.all(), lines("stat " + executable, "realpath " + executable));
}

// ---- What the platform cannot tell -----------------------------------------------------------

TEST_P(EveryExecutableLocation, IsEmptyWhenThePlatformNamesNoSize) {
  const ScriptedPlatform platform(knowsNothing());
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(GetParam().ask()), "");

  EXPECT_TRUE(currentErrorIs(0, kContext, "Returning empty path"));
  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(platform.calls().size(), 1U);
}

TEST(ExePath, IsEmptyWhenTheQuestionForTheSizeSucceedsWithoutOne) {
  const ScriptedPlatform platform({[](char*, std::uint32_t*) { return 0; }});
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), "");

  EXPECT_TRUE(currentErrorIs(0, kContext, "Returning empty path"));
}

TEST_P(EveryExecutableLocation, IsEmptyWhenThePlatformFailsToTellThePath) {
  const TempDir tmp;
  const std::string executable = tmp.write("tool", "");
  const ScriptedPlatform platform({
      tellsSize(executable.size() + 1),
      [&](char* buffer, std::uint32_t* size) {
        tellsPath(executable)(buffer, size);
        return -1;
      },
  });
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(GetParam().ask()), "");

  EXPECT_TRUE(currentErrorIs(0, kContext, "Failed to retrieve exe path"));
  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(platform.calls().size(), 2U);
}

TEST_P(EveryExecutableLocation, IsEmptyWhenTheSizeIsZeroInTheEnd) {
  const TempDir tmp;
  const std::string executable = tmp.write("tool", "");
  const ScriptedPlatform platform({
      tellsSize(executable.size() + 1),
      [&](char* buffer, std::uint32_t* size) {
        tellsPath(executable)(buffer, size);
        *size = 0;
        return 0;
      },
  });
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(GetParam().ask()), "");

  EXPECT_TRUE(currentErrorIs(0, kContext, "Failed to retrieve exe path"));
  EXPECT_EQ(log.all(), lines());
}

TEST(ExePath, DoesNotTryAgainWhenThePathHasGrownMeanwhile) {
  const ScriptedPlatform platform({tellsSize(10), tellsSize(20)});
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), "");

  EXPECT_TRUE(currentErrorIs(0, kContext, "Failed to retrieve exe path"));
  EXPECT_EQ(platform.calls().size(), 2U);
}

TEST_P(EveryExecutableLocation, AsksTheFileSystemNothingAboutAPathThatThePlatformDoesNotTell) {
  const ScriptedPlatform platform(knowsNothing());
  RecordedCalls calls;

  EXPECT_EQ(text(GetParam().ask()), "");

  EXPECT_EQ(calls.all(), lines());
}

// ---- What stands at the path -----------------------------------------------------------------

TEST(ExePath, ReturnsThePathOfAFileThatIsMissing) {
  const TempDir tmp;
  const ScriptedPlatform platform(knows(tmp.path("gone/tool")));
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(text(vx::fs::exePath()), tmp.path("gone/tool"));

  EXPECT_TRUE(currentErrorIs(0, kContext, "Returning non-existent path"));
  EXPECT_EQ(log.all(), lines());
}

TEST_P(EveryExecutableLocation, ReturnsAPathForAFileThatIsMissing) {
  const TempDir tmp;
  tmp.mkdir("bin");
  const ScriptedPlatform platform(knows(tmp.path("bin/tool")));
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  const std::string location = text(GetParam().ask());

  EXPECT_TRUE(location.starts_with(tmp.path("bin"))) << location;
  EXPECT_TRUE(currentErrorIs(0, kContext, "Returning non-existent path"));
  EXPECT_EQ(log.all(), lines());
}

TEST(ExePath, TakesADirectoryForNoFile) {
  const TempDir tmp;
  const std::string directory = tmp.mkdir("tool");
  const ScriptedPlatform platform(knows(directory));
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), directory);

  EXPECT_TRUE(currentErrorIs(0, kContext, "Returning non-existent path"));
}

TEST(ExePath, TakesALinkThatLeadsNowhereForNoFile) {
  const TempDir tmp;
  const std::string link = tmp.link("tool", "nowhere");
  const ScriptedPlatform platform(knows(link));
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), link);

  EXPECT_TRUE(currentErrorIs(0, kContext, "Returning non-existent path"));
}

TEST(ExePath, ResolvesLinks) {
  const TempDir tmp;
  const std::string executable = tmp.write("real/tool-1.0", "");
  tmp.link("real/tool", "tool-1.0");
  tmp.link("opt", "real");
  const ScriptedPlatform platform(knows(tmp.path("opt/tool")));
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), executable);

  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExePath, ResolvesTheLinksAboveAFileThatIsMissing) {
  const TempDir tmp;
  tmp.mkdir("real");
  tmp.link("opt", "real");
  const ScriptedPlatform platform(knows(tmp.path("opt/tool")));

  EXPECT_EQ(text(vx::fs::exePath()), tmp.path("real/tool"));
}

TEST(ExePath, NormalisesThePathBeforeItLooks) {
  const TempDir tmp;
  const std::string executable = tmp.write("bin/tool", "");
  const ScriptedPlatform platform(knows(tmp.path("missing/..//./bin/tool")));
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), executable);

  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExePath, TakesARelativePathFromTheCurrentDirectory) {
  const TempDir tmp;
  const std::string executable = tmp.write("bin/tool", "");
  const ScopedCurrentDir inside(tmp.path());
  const ScriptedPlatform platform(knows("bin/tool"));
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), executable);

  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExePath, KeepsEveryByteOfALongName) {
  const TempDir tmp;
  const std::string level(200, 'd');
  const std::string executable = tmp.write(
      level + '/' + level + '/' + level + '/' + level + '/' + level + "/\xff \n(deleted)", "");
  ASSERT_GT(executable.size(), 1024U);
  const ScriptedPlatform platform(knows(executable));
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), executable);

  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExePath, TakesAnEmptyTextForTheCurrentDirectory) {
  const TempDir tmp;
  const ScopedCurrentDir inside(tmp.path());
  const ScriptedPlatform platform(knows(""));
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), tmp.path());

  EXPECT_TRUE(currentErrorIs(0, kContext, "Returning non-existent path"));
}

// ---- The executable's directory --------------------------------------------------------------

TEST(ExeDir, IsTheDirectoryOfTheExecutable) {
  const TempDir tmp;
  const std::string executable = tmp.write("opt/bin/tool", "");

  EXPECT_EQ(located(vx::fs::exeDir, executable), tmp.path("opt/bin"));
}

TEST(ExeDir, IsTheDirectoryToWhichALinkLeads) {
  const TempDir tmp;
  tmp.write("real/tool", "");
  tmp.link("bin/tool", "../real/tool");

  EXPECT_EQ(located(vx::fs::exeDir, tmp.path("bin/tool")), tmp.path("real"));
}

TEST(ExeDir, IsThePathLessItsLastPartWhenNothingOfItExists) {
  const TempDir tmp;

  EXPECT_EQ(located(vx::fs::exeDir, tmp.path("gone/bin/tool")), tmp.path("gone/bin"));
}

TEST(ExeDir, IsTheDirectoryThatHasTakenThePlaceOfTheExecutable) {
  const TempDir tmp;
  const std::string directory = tmp.mkdir("bin/tool");

  EXPECT_EQ(located(vx::fs::exeDir, directory), directory);

  EXPECT_TRUE(currentErrorIs(0, kContext, "Returning non-existent path"));
}

TEST(ExeDir, MayBeTheRoot) {
  EXPECT_EQ(located(vx::fs::exeDir, "/no such tool"), "/");
}

// ---- Bundles ---------------------------------------------------------------------------------

TEST(AppDir, IsTheDirectoryThatHoldsTheBundle) {
  const TempDir tmp;
  tmp.mkdir("Applications/Some App.app/Contents/Resources");
  const std::string executable = tmp.write("Applications/Some App.app/Contents/MacOS/tool", "");
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(located(vx::fs::appDir, executable), tmp.path("Applications"));

  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(log.all(), lines());
}

TEST(ResDir, IsTheResourcesOfTheBundle) {
  const TempDir tmp;
  const std::string resources = tmp.mkdir("Some App.app/Contents/Resources");
  const std::string executable = tmp.write("Some App.app/Contents/MacOS/tool", "");
  const ErrorStateSentinel sentinel;
  const LogCapture log;

  EXPECT_EQ(located(vx::fs::resDir, executable), resources);

  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(log.all(), lines());
}

TEST(AppDir, NeedsNoResourcesInTheBundle) {
  const TempDir tmp;
  const std::string executable = tmp.write("Some App.app/Contents/MacOS/tool", "");

  EXPECT_EQ(located(vx::fs::appDir, executable), tmp.path());
}

TEST(ResDir, IsTheContentsOfABundleWithoutResources) {
  const TempDir tmp;
  const std::string executable = tmp.write("Some App.app/Contents/MacOS/tool", "");
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(located(vx::fs::resDir, executable), tmp.path("Some App.app/Contents"));

  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ResDir, IsTheContentsOfABundleWhoseResourcesAreAFile) {
  const TempDir tmp;
  tmp.write("Some App.app/Contents/Resources", "");
  const std::string executable = tmp.write("Some App.app/Contents/MacOS/tool", "");

  EXPECT_EQ(located(vx::fs::resDir, executable), tmp.path("Some App.app/Contents"));
}

TEST(ResDir, DoesNotResolveResourcesThatAreALink) {
  const TempDir tmp;
  tmp.mkdir("shared");
  const std::string resources = tmp.link("Some App.app/Contents/Resources", "../../shared");
  const std::string executable = tmp.write("Some App.app/Contents/MacOS/tool", "");

  EXPECT_EQ(located(vx::fs::resDir, executable), resources);
}

TEST(Bundle, IsKnownByTheNameOfTheDirectoryAlone) {
  const TempDir tmp;
  tmp.mkdir("a/b/Resources");
  const std::string executable = tmp.write("a/b/MacOS/tool", "");

  EXPECT_EQ(located(vx::fs::appDir, executable), tmp.path());
  EXPECT_EQ(located(vx::fs::resDir, executable), tmp.path("a/b/Resources"));
}

TEST(Bundle, IsFoundThroughALink) {
  const TempDir tmp;
  tmp.mkdir("Some App.app/Contents/Resources");
  tmp.write("Some App.app/Contents/MacOS/tool", "");
  const std::string link = tmp.link("bin/tool", "../Some App.app/Contents/MacOS/tool");

  EXPECT_EQ(located(vx::fs::appDir, link), tmp.path());
  EXPECT_EQ(located(vx::fs::resDir, link), tmp.path("Some App.app/Contents/Resources"));
}

TEST(Bundle, IsNoneWhenItOnlyLinksToTheExecutable) {
  const TempDir tmp;
  tmp.write("bin/tool", "");
  tmp.mkdir("Some App.app/Contents/Resources");
  const std::string link = tmp.link("Some App.app/Contents/MacOS/tool", "../../../bin/tool");

  EXPECT_EQ(located(vx::fs::appDir, link), tmp.path("bin"));
  EXPECT_EQ(located(vx::fs::resDir, link), tmp.path("bin"));
}

TEST(Bundle, IsStillFoundWhenTheExecutableIsGone) {
  const TempDir tmp;
  tmp.mkdir("Some App.app/Contents/MacOS");
  const std::string resources = tmp.mkdir("Some App.app/Contents/Resources");
  const std::string executable = tmp.path("Some App.app/Contents/MacOS/tool");

  EXPECT_EQ(located(vx::fs::appDir, executable), tmp.path());
  EXPECT_EQ(located(vx::fs::resDir, executable), resources);

  EXPECT_TRUE(currentErrorIs(0, kContext, "Returning non-existent path"));
}

TEST(AppDir, IsOneLevelHigherWhenEvenTheDirectoryOfTheBundleIsGone) {
  const TempDir tmp;

  EXPECT_EQ(located(vx::fs::appDir, tmp.path("gone/Some App.app/Contents/MacOS/tool")), tmp.path());
}

TEST(ResDir, IsTheContentsWhenTheWholeBundleIsGone) {
  const TempDir tmp;

  EXPECT_EQ(located(vx::fs::resDir, tmp.path("Some App.app/Contents/MacOS/tool")),
            tmp.path("Some App.app/Contents"));
}

/// Directories of an executable that do not make a bundle.
class NoBundle : public testing::TestWithParam<const char*> {};

INSTANTIATE_TEST_SUITE_P(, NoBundle,
                         testing::Values("App.app/Contents/NotMacOS", "App.app/Contents/macos",
                                         "App.app/Contents/MACOS", "App.app/Contents/MacOS2",
                                         "App.app/Contents/MacOS ", "App.app/Contents/MacOS/bin",
                                         "App.app/Contents/ MacOS", "App.app/Contents/\\MacOS"));

TEST_P(NoBundle, HasTheExecutablesDirectoryForBoth) {
  const TempDir tmp;
  const std::string directory = tmp.path(GetParam());
  const std::string executable = tmp.write(std::string(GetParam()) + "/tool", "");
  tmp.mkdir("App.app/Contents/Resources");
  tmp.mkdir("App.app/Contents/MacOS/Resources");

  EXPECT_EQ(located(vx::fs::appDir, executable), directory);
  EXPECT_EQ(located(vx::fs::resDir, executable), directory);
}

TEST(Bundle, IsKnownByItsPathWhetherOrNotAnythingIsThere) {
  EXPECT_EQ(located(vx::fs::appDir, "/MacOS/tool"), "/");
  EXPECT_EQ(located(vx::fs::resDir, "/MacOS/tool"), "/");
}

TEST(Bundle, MayLieDirectlyUnderTheRoot) {
  if (!canChangeRoot()) {
    GTEST_SKIP() << kCannotChangeRoot;
  }
  const TempDir tmp;
  tmp.write("MacOS/tool", "");
  tmp.mkdir("Resources");

  runInRoot(tmp.path(), [] {
    const ErrorStateSentinel sentinel;

    EXPECT_EQ(located(vx::fs::appDir, "/MacOS/tool"), "/");
    EXPECT_EQ(located(vx::fs::resDir, "/MacOS/tool"), "/Resources");

    EXPECT_TRUE(sentinel.isUntouched());
  });
}

}  // namespace

int vx::fs::platform::executablePath(char* buffer, std::uint32_t* size) {
  return ScriptedPlatform::ask(buffer, size);
}
