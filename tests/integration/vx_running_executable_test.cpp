// Concern: where a real process lies, as the system itself tells it. A helper program is copied to
// the place, run, and asked; VX_RUNNING_EXECUTABLE names it.

#include "core/vx_string.h"
#include "fs/vx_fs.h"
#include "tests/testing/changed_root.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

using vx::test::canChangeRoot;
using vx::test::currentErrorIs;
using vx::test::ErrorStateSentinel;
using vx::test::kCannotChangeRoot;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::runInRoot;
using vx::test::TempDir;
using vx::test::text;

// ---- Running the helper ----------------------------------------------------------------------

/// What the helper says of itself. The error is that which the helper has set before, when nothing
/// has replaced it.
struct Report {
  std::string exePath;
  std::string exeDir;
  std::string appDir;
  std::string resDir;
  std::string error;  // "code context: message"
  std::string logged;
};

constexpr const char* kErrorBefore = "1 before: the error before";
constexpr const char* kEmptyPath = "0 vx::Path::exePath(): Returning empty path";
constexpr const char* kNonExistentPath = "0 vx::Path::exePath(): Returning non-existent path";

void throwUnless(bool succeeded, const char* what) {
  if (!succeeded) {
    throw std::system_error(errno, std::generic_category(), what);
  }
}

/// A descriptor for the length of a scope.
class Descriptor {
 public:
  explicit Descriptor(int number) : number_(number) { throwUnless(number != -1, "open"); }
  Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(number_, other.number_);
    return *this;
  }
  ~Descriptor() { close(); }

  void close() {
    if (number_ != -1) {
      ::close(std::exchange(number_, -1));
    }
  }

  [[nodiscard]] int number() const { return number_; }

 private:
  int number_;
};

Descriptor openDirectory(const std::string& path, int from = AT_FDCWD) {
  return Descriptor(::openat(from, path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

std::vector<std::string> fieldsOf(std::string_view output) {
  std::vector<std::string> fields;
  while (!output.empty()) {
    const std::size_t end = output.find('\0');
    fields.emplace_back(output.substr(0, end));
    output.remove_prefix(end == std::string_view::npos ? output.size() : end + 1);
  }
  return fields;
}

[[noreturn]] void becomeProgram(const std::string& program, const std::vector<std::string>& steps,
                                int directory, int output) {
  std::string name = "not the name of the program";  // nobody is to rely on it
  std::vector<std::string> words = steps;
  std::vector<char*> arguments = {name.data()};
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  if (::dup2(output, STDOUT_FILENO) != -1 && ::fchdir(directory) == 0) {
    ::execv(program.c_str(), arguments.data());
  }
  ::_exit(127);
}

std::string outputOf(const std::string& program, const std::vector<std::string>& steps,
                     int directory) {
  std::array<int, 2> ends{};
  throwUnless(::pipe2(ends.data(), O_CLOEXEC) == 0, "pipe");
  const Descriptor reading(ends[0]);
  Descriptor writing(ends[1]);
  const pid_t child = ::fork();
  throwUnless(child != -1, "fork");
  if (child == 0) {
    becomeProgram(program, steps, directory, writing.number());
  }
  writing.close();

  std::string output;
  std::array<char, 4096> piece{};
  for (ssize_t got = 1; got > 0;) {
    got = ::read(reading.number(), piece.data(), piece.size());
    output.append(piece.data(), got > 0 ? static_cast<std::size_t>(got) : 0);
  }
  int status = 0;
  throwUnless(::waitpid(child, &status, 0) == child, "waitpid");
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "the helper has failed";
  return output;
}

/// Runs the helper at `program`, seen from `directory`, with the steps that it is to do first.
Report runFrom(const Descriptor& directory, const std::string& program,
               const std::vector<std::string>& steps = {}) {
  const std::vector<std::string> fields = fieldsOf(outputOf(program, steps, directory.number()));
  if (fields.size() != 8) {
    throw std::runtime_error("the helper does not report");
  }
  return {
      fields[0], fields[1], fields[2], fields[3], fields[4] + ' ' + fields[5] + ": " + fields[6],
      fields[7]};
}

Report run(const std::string& program, const std::vector<std::string>& steps = {}) {
  return runFrom(openDirectory("/"), program, steps);
}

/// Puts a copy of the helper at `relative`; returns its path.
std::string install(const TempDir& tmp, std::string_view relative) {
  std::string program = tmp.path(relative);
  std::filesystem::create_directories(std::filesystem::path(program).parent_path());
  std::filesystem::copy_file(VX_RUNNING_EXECUTABLE, program);
  return program;
}

// ---- A process that runs where it was started --------------------------------------------------

TEST(RunningExecutable, KnowsItsPath) {
  const TempDir tmp;
  const std::string program = install(tmp, "bin/tool");

  const Report report = run(program);

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.exeDir, tmp.path("bin"));
  EXPECT_EQ(report.appDir, tmp.path("bin"));
  EXPECT_EQ(report.resDir, tmp.path("bin"));
  EXPECT_EQ(report.error, kErrorBefore);
  EXPECT_EQ(report.logged, "");
}

TEST(RunningExecutable, KnowsItsPathWhenStartedByARelativeOne) {
  const TempDir tmp;
  const std::string program = install(tmp, "bin/tool");

  const Report report = runFrom(openDirectory(tmp.path("bin")), "../bin/./tool");

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.error, kErrorBefore);
}

TEST(RunningExecutable, KnowsItsPathFromAnotherCurrentDirectory) {
  const TempDir tmp;
  const std::string program = install(tmp, "bin/tool");

  const Report report = runFrom(openDirectory(tmp.path("bin")), "./tool", {"chdir", "/"});

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.error, kErrorBefore);
}

TEST(RunningExecutable, LiesWhereALinkToItLeads) {
  const TempDir tmp;
  const std::string program = install(tmp, "opt/tool-1.0/bin/tool");
  tmp.link("opt/tool", "tool-1.0");
  const std::string link = tmp.link("bin/tool", "../opt/tool/bin/tool");

  const Report report = run(link);

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.exeDir, tmp.path("opt/tool-1.0/bin"));
  EXPECT_EQ(report.error, kErrorBefore);
}

TEST(RunningExecutable, KnowsItsBundle) {
  const TempDir tmp;
  const std::string program = install(tmp, "Some App.app/Contents/MacOS/tool");
  const std::string resources = tmp.mkdir("Some App.app/Contents/Resources");

  const Report report = run(program);

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.exeDir, tmp.path("Some App.app/Contents/MacOS"));
  EXPECT_EQ(report.appDir, tmp.path());
  EXPECT_EQ(report.resDir, resources);
  EXPECT_EQ(report.error, kErrorBefore);
  EXPECT_EQ(report.logged, "");
}

TEST(RunningExecutable, KnowsItsBundleWhenStartedThroughALink) {
  const TempDir tmp;
  install(tmp, "Some App.app/Contents/MacOS/tool");
  const std::string resources = tmp.mkdir("Some App.app/Contents/Resources");
  const std::string link = tmp.link("bin/tool", "../Some App.app/Contents/MacOS/tool");

  const Report report = run(link);

  EXPECT_EQ(report.appDir, tmp.path());
  EXPECT_EQ(report.resDir, resources);
}

TEST(RunningExecutable, IsInNoBundleThatOnlyLinksToIt) {
  const TempDir tmp;
  install(tmp, "bin/tool");
  tmp.mkdir("Some App.app/Contents/Resources");
  const std::string link = tmp.link("Some App.app/Contents/MacOS/tool", "../../../bin/tool");

  const Report report = run(link);

  EXPECT_EQ(report.appDir, tmp.path("bin"));
  EXPECT_EQ(report.resDir, tmp.path("bin"));
}

TEST(RunningExecutable, MayHaveAnyNameThatTheFileSystemTakes) {
  const TempDir tmp;
  const std::string program = install(tmp, "d \n\xff/a \"tool\"\n.\xfe");

  const Report report = run(program);

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.error, kErrorBefore);
}

// ---- Deleted, moved and replaced ---------------------------------------------------------------

TEST(RunningExecutable, KeepsItsPathWhenItIsDeleted) {
  const TempDir tmp;
  const std::string program = install(tmp, "bin/tool");

  const Report report = run(program, {"remove", program});

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.exeDir, tmp.path("bin"));
  EXPECT_EQ(report.error, kNonExistentPath);
  EXPECT_EQ(report.logged, "");
  EXPECT_FALSE(tmp.exists("bin/tool"));
}

TEST(RunningExecutable, KeepsItsPathWhenItsDirectoryIsDeletedToo) {
  const TempDir tmp;
  const std::string program = install(tmp, "opt/bin/tool");

  const Report report =
      run(program, {"remove", program, "remove", tmp.path("opt/bin"), "remove", tmp.path("opt")});

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.exeDir, tmp.path("opt/bin"));
  EXPECT_EQ(report.error, kNonExistentPath);
}

TEST(RunningExecutable, KeepsItsBundleWhenItIsDeleted) {
  const TempDir tmp;
  const std::string program = install(tmp, "Some App.app/Contents/MacOS/tool");
  const std::string resources = tmp.mkdir("Some App.app/Contents/Resources");

  const Report report = run(program, {"remove", program});

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.appDir, tmp.path());
  EXPECT_EQ(report.resDir, resources);
  EXPECT_EQ(report.error, kNonExistentPath);
}

TEST(RunningExecutable, KeepsItsPathWhenItIsMovedByCopyingAndDeleting) {
  const TempDir tmp;
  const std::string program = install(tmp, "tool");

  const Report report = run(program, {"copy", program, tmp.path("elsewhere"), "remove", program});

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.error, kNonExistentPath);
}

TEST(RunningExecutable, HasItsNewPathWhenItIsRenamed) {
  const TempDir tmp;
  const std::string program = install(tmp, "bin/tool");
  tmp.mkdir("elsewhere");

  const Report report = run(program, {"rename", program, tmp.path("elsewhere/other")});

  EXPECT_EQ(report.exePath, tmp.path("elsewhere/other"));
  EXPECT_EQ(report.exeDir, tmp.path("elsewhere"));
  EXPECT_EQ(report.error, kErrorBefore);
}

TEST(RunningExecutable, HasItsNewPathWhenItsDirectoryIsRenamed) {
  const TempDir tmp;
  const std::string program = install(tmp, "bin/tool");

  const Report report = run(program, {"rename", tmp.path("bin"), tmp.path("elsewhere")});

  EXPECT_EQ(report.exePath, tmp.path("elsewhere/tool"));
  EXPECT_EQ(report.error, kErrorBefore);
}

TEST(RunningExecutable, HasThePathOfTheFileThatHasReplacedIt) {
  const TempDir tmp;
  const std::string program = install(tmp, "tool");
  const std::string update = tmp.write("tool.new", "the next version");

  const Report report = run(program, {"rename", update, program});

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.error, kErrorBefore);
}

TEST(RunningExecutable, MayHaveANameThatEndsAsThoseOfDeletedFilesDo) {
  const TempDir tmp;
  const std::string program = install(tmp, "tool (deleted)");

  const Report report = run(program);

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.error, kErrorBefore);
}

TEST(RunningExecutable, KeepsANameThatEndsAsThoseOfDeletedFilesDoWhenItIsDeleted) {
  const TempDir tmp;
  const std::string program = install(tmp, "tool (deleted)");

  const Report report = run(program, {"remove", program});

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.error, kNonExistentPath);
}

TEST(RunningExecutable, IsNotTakenForAnotherFileOfTheNameThatDeletedFilesHave) {
  const TempDir tmp;
  const std::string program = install(tmp, "tool");
  tmp.write("tool (deleted)", "somebody else's");

  const Report report = run(program, {"remove", program});

  EXPECT_EQ(report.exePath, program);
  EXPECT_EQ(report.error, kNonExistentPath);
}

// ---- Long paths ------------------------------------------------------------------------------

/// A directory so deep that the path of an entry `name` in it is `length` bytes long.
struct DeepDirectory {
  std::string path;
  Descriptor descriptor;
};

DeepDirectory makeDeepDirectory(const TempDir& tmp, std::string_view name, std::size_t length) {
  constexpr std::size_t kLevel = 100;
  DeepDirectory deep{tmp.path(), openDirectory(tmp.path())};
  while (deep.path.size() + 1 + name.size() < length) {
    const std::size_t missing = length - deep.path.size() - name.size() - 2;
    const std::string level(missing > 2 * kLevel ? kLevel : missing, 'd');
    throwUnless(::mkdirat(deep.descriptor.number(), level.c_str(), 0777) == 0, "mkdir");
    deep.descriptor = openDirectory(level, deep.descriptor.number());
    deep.path += '/' + level;
  }
  return deep;
}

/// Runs a helper called "tool" that lies in the directory.
Report runIn(const DeepDirectory& deep, const TempDir& tmp) {
  const std::string program = install(tmp, "tool");
  throwUnless(::linkat(AT_FDCWD, program.c_str(), deep.descriptor.number(), "tool", 0) == 0,
              "link");
  // The whole path may be longer than what the system takes in one piece.
  return runFrom(deep.descriptor, "./tool");
}

class LongPath : public testing::TestWithParam<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(, LongPath,
                         testing::Values(255, 256, 257, 511, 512, 513, 1023, 1024, 1025, 2048, 4094,
                                         4095));

TEST_P(LongPath, IsKnownInFull) {
  const TempDir tmp;
  const DeepDirectory deep = makeDeepDirectory(tmp, "tool", GetParam());

  const Report report = runIn(deep, tmp);

  EXPECT_EQ(report.exePath, deep.path + "/tool");
  EXPECT_EQ(report.exePath.size(), GetParam());
  EXPECT_EQ(report.error, kErrorBefore);
}

class OverlongPath : public testing::TestWithParam<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(, OverlongPath, testing::Values(4096, 6000));

TEST_P(OverlongPath, IsNotToldByTheSystem) {
  const TempDir tmp;
  const DeepDirectory deep = makeDeepDirectory(tmp, "tool", GetParam());

  const Report report = runIn(deep, tmp);

  EXPECT_EQ(report.exePath, "");
  EXPECT_EQ(report.exeDir, "");
  EXPECT_EQ(report.appDir, "");
  EXPECT_EQ(report.resDir, "");
  EXPECT_EQ(report.error, kEmptyPath);
  EXPECT_EQ(report.logged, "");
}

// ---- No way to ask ---------------------------------------------------------------------------

TEST(RunningExecutable, HasNoPathWhereTheSystemsProcessDirectoryIsMissing) {
  if (!canChangeRoot()) {
    GTEST_SKIP() << kCannotChangeRoot;
  }
  const TempDir tmp;

  runInRoot(tmp.path(), [] {
    const ErrorStateSentinel sentinel;
    const LogCapture log;

    EXPECT_EQ(text(vx::fs::exePath()), "");

    EXPECT_TRUE(currentErrorIs(0, "vx::Path::exePath()", "Returning empty path"));
    EXPECT_EQ(log.all(), lines());
  });
}

}  // namespace
