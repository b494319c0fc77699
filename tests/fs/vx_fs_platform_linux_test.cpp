// SPDX-License-Identifier: MIT
//
// The platform operation of Linux, with the kernel's answers real and made up.

#include "core/vx_string.h"
#include "fs/internal/vx_fs_platform.h"
#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/failures.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <sys/stat.h>

namespace vx::test {
namespace {

using fs::platform::executablePath;

std::string ownPath() {
  return std::filesystem::read_symlink("/proc/self/exe").string();
}

/// The path, asked for as `exePath` does; the empty text when there is none.
std::string askedPath() {
  std::uint32_t size = 0;
  EXPECT_EQ(executablePath(nullptr, &size), -1);
  std::vector<char> buffer(std::size_t{size} + 1, 'x');
  if (size == 0 || executablePath(buffer.data(), &size) != 0) {
    return {};
  }
  EXPECT_EQ(buffer[size - 1], '\0');
  EXPECT_EQ(buffer[size], 'x');
  return buffer.data();
}

class ExecutablePath : public SilentFsTest {};

TEST_F(ExecutablePath, TellsTheSizeWhenTheRoomIsTooSmall) {
  const std::string path = ownPath();
  for (const std::size_t room : {std::size_t{0}, path.size()}) {
    std::string buffer(room, 'x');
    auto size = static_cast<std::uint32_t>(room);

    EXPECT_EQ(executablePath(room == 0 ? nullptr : buffer.data(), &size), -1);

    EXPECT_EQ(size, path.size() + 1);
    EXPECT_EQ(buffer, std::string(room, 'x'));
  }
}

TEST_F(ExecutablePath, WritesThePathAndItsNul) {
  const std::string path = ownPath();
  for (const std::size_t room : {path.size() + 1, path.size() + 100}) {
    std::string buffer(room, 'x');
    auto size = static_cast<std::uint32_t>(room);

    EXPECT_EQ(executablePath(buffer.data(), &size), 0);

    EXPECT_EQ(buffer, path + '\0' + std::string(room - path.size() - 1, 'x'));
    EXPECT_EQ(size, room);
  }
}

TEST_F(ExecutablePath, AsksTheKernelEachTime) {
  Calls calls;
  calls.answer("readlink", "/opt/tool");

  EXPECT_EQ(askedPath(), "/opt/tool");

  EXPECT_EQ(calls.all(), lines("readlink /proc/self/exe", "readlink /proc/self/exe"));
}

TEST_F(ExecutablePath, ReadsALinkOfAnyLength) {
  for (const unsigned length : {1U, 255U, 256U, 257U, 511U, 512U, 513U, 1024U, 2048U, 4095U}) {
    const std::string path(length, 't');
    Calls calls;
    calls.answer("readlink", path);

    EXPECT_EQ(askedPath(), path);
  }
}

TEST_F(ExecutablePath, TellsNoSizeForALinkItCannotRead) {
  Calls calls;
  calls.fail("readlink");
  std::string buffer(4096, 'x');
  std::uint32_t size = 4096;

  EXPECT_EQ(executablePath(buffer.data(), &size), -1);

  EXPECT_EQ(size, 0U);
  EXPECT_EQ(buffer, std::string(4096, 'x'));
  EXPECT_EQ(calls.count("readlink"), 1U);
}

TEST_F(ExecutablePath, TellsNoSizeForAnEmptyLink) {
  Calls calls;
  calls.answer("readlink", "");
  std::uint32_t size = 5;

  EXPECT_EQ(executablePath(nullptr, &size), -1);

  EXPECT_EQ(size, 0U);
}

TEST_F(ExecutablePath, LeavesOutTheMarkOfADeletedFile) {
  tmp.write("bin", "");
  tmp.write("other (deleted)", "");
  tmp.link("near (deleted)", std::filesystem::path(ownPath()).parent_path().string());
  struct Row {
    std::string link;
    std::string path;
  };
  const Row rows[] = {
      {"/missing/tool (deleted)", "/missing/tool"},
      {"/missing/tool (deleted) (deleted)", "/missing/tool (deleted)"},
      {"/missing (deleted)/tool (deleted).bin", "/missing (deleted)/tool (deleted).bin"},
      {"/missing/tool(deleted)", "/missing/tool(deleted)"},
      {tmp.path("bin/tool (deleted)"), tmp.path("bin/tool")},
      // The names of other entries, one on the device of the executable
      {tmp.path("other (deleted)"), tmp.path("other")},
      {tmp.path("near (deleted)"), tmp.path("near")},
  };
  for (const Row& row : rows) {
    Calls calls;
    calls.answer("readlink", row.link);

    EXPECT_EQ(askedPath(), row.path);
  }
}

TEST_F(ExecutablePath, KeepsTheMarkInTheNameOfTheExecutable) {
  forEachFailure([](FailureRun& run) {
    run.calls.answer("readlink", run.tmp.link("tool (deleted)", ownPath()));
    std::string buffer(4096, 'x');
    std::uint32_t size = 4096;

    EXPECT_EQ(run.act([&] { return executablePath(buffer.data(), &size); }), 0);

    // A name that cannot be compared counts as another.
    EXPECT_EQ(buffer.c_str(), run.tmp.path(run.failedAny() ? "tool" : "tool (deleted)"));
  });
}

TEST_F(ExecutablePath, TakesAnEntryItCannotExamineForAnother) {
  for (const char* const failing : {"stat /tool (deleted)", "stat /proc/self/exe"}) {
    Calls calls;
    calls.answer("readlink", "/tool (deleted)");
    calls.fail(failing, EACCES);
    calls.answer("stat", S_IFREG);

    EXPECT_EQ(askedPath(), "/tool");
  }
}

class ExePath : public FsTest {};

TEST_F(ExePath, ReportsEachFailingCall) {
  const std::string executable = std::filesystem::canonical(ownPath()).string();
  forEachFailure([&](FailureRun& run) {
    const String path = run.act([] { return fs::exePath(); });

    EXPECT_EQ(run.log.all(), lines());
    if (run.failed("readlink /proc/self/exe", 1)) {
      EXPECT_EQ(path, "");
      EXPECT_TRUE(currentErrorIs(0, "vx::Path::exePath()", "Returning empty path"));
    } else if (run.failed("readlink /proc/self/exe", 2)) {
      EXPECT_EQ(path, "");
      EXPECT_TRUE(currentErrorIs(0, "vx::Path::exePath()", "Failed to retrieve exe path"));
    } else if (run.failed("stat")) {
      EXPECT_EQ(text(path), executable);
      EXPECT_TRUE(currentErrorIs(0, "vx::Path::exePath()", "Returning non-existent path"));
    } else {
      EXPECT_EQ(text(path), executable);
      EXPECT_TRUE(run.sentinel.isUntouched());
    }
  });
}

}  // namespace
}  // namespace vx::test
