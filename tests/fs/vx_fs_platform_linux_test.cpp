// Concern: the platform operation of Linux against its contract, the answers of the kernel both
// real and scripted.

#include "fs/internal/vx_fs_platform.h"
#include "tests/testing/error_state.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

namespace {

using vx::fs::platform::executablePath;
using vx::test::ErrorStateSentinel;
using vx::test::TempDir;

constexpr const char* kExecutableLink = "/proc/self/exe";

/// What the kernel says of the executable, for the length of a scope.
class ScriptedLink {
 public:
  struct Call {
    std::string path;
    std::size_t room;
  };

  explicit ScriptedLink(std::optional<std::string> target) : target_(std::move(target)) {
    active_ = this;
  }
  ScriptedLink(const ScriptedLink&) = delete;
  ScriptedLink& operator=(const ScriptedLink&) = delete;
  ~ScriptedLink() { active_ = nullptr; }

  [[nodiscard]] static ScriptedLink* active() { return active_; }

  ssize_t read(const char* path, char* buffer, std::size_t room) {
    calls_.push_back({path, room});
    if (!target_) {
      errno = EACCES;
      return -1;
    }
    // As the system does it: cut without a word, no NUL behind it.
    const std::size_t length = std::min(target_->size(), room);
    std::copy_n(target_->data(), length, buffer);
    return static_cast<ssize_t>(length);
  }

  [[nodiscard]] const std::vector<Call>& calls() const { return calls_; }

 private:
  static inline ScriptedLink* active_ = nullptr;

  std::optional<std::string> target_;
  std::vector<Call> calls_;
};

/// The path as a caller gets it who asks for the size first; the empty text when there is none.
std::string askedPath() {
  std::uint32_t size = 0;
  EXPECT_EQ(executablePath(nullptr, &size), -1);
  std::vector<char> buffer(size);
  if (size == 0 || executablePath(buffer.data(), &size) != 0) {
    return {};
  }
  EXPECT_EQ(buffer.back(), '\0');
  return buffer.data();
}

std::string ownPath() {
  return std::filesystem::read_symlink(kExecutableLink).string();
}

// ---- Sizes -----------------------------------------------------------------------------------

TEST(ExecutablePath, TellsTheSizeForANullBuffer) {
  const ErrorStateSentinel sentinel;
  std::uint32_t size = 0;

  EXPECT_EQ(executablePath(nullptr, &size), -1);

  EXPECT_EQ(size, ownPath().size() + 1);
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExecutablePath, FillsABufferOfExactlyTheSize) {
  const ErrorStateSentinel sentinel;
  const std::string expected = ownPath();
  std::vector<char> buffer(expected.size() + 1, 'x');
  auto size = static_cast<std::uint32_t>(buffer.size());

  EXPECT_EQ(executablePath(buffer.data(), &size), 0);

  EXPECT_EQ(std::string(buffer.data(), buffer.size()), expected + '\0');
  EXPECT_EQ(size, buffer.size());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExecutablePath, TellsTheSizeForABufferThatIsOneByteTooSmall) {
  const ErrorStateSentinel sentinel;
  const std::string expected = ownPath();
  std::vector<char> buffer(expected.size(), 'x');
  auto size = static_cast<std::uint32_t>(buffer.size());

  EXPECT_EQ(executablePath(buffer.data(), &size), -1);

  EXPECT_EQ(size, expected.size() + 1);
  EXPECT_EQ(buffer, std::vector<char>(expected.size(), 'x'));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExecutablePath, LeavesTheSizeAndTheRestOfALargerBufferAlone) {
  const std::string expected = ownPath();
  std::vector<char> buffer(expected.size() + 100, 'x');
  auto size = static_cast<std::uint32_t>(buffer.size());

  EXPECT_EQ(executablePath(buffer.data(), &size), 0);

  EXPECT_EQ(std::string(buffer.data(), buffer.size()), expected + '\0' + std::string(99, 'x'));
  EXPECT_EQ(size, buffer.size());
}

// ---- What the kernel says --------------------------------------------------------------------

TEST(ExecutablePath, AsksTheKernelForTheLinkOfTheProcess) {
  const ScriptedLink link("/opt/tool");

  EXPECT_EQ(askedPath(), "/opt/tool");

  ASSERT_EQ(link.calls().size(), 2U);
  EXPECT_EQ(link.calls()[0].path, kExecutableLink);
  EXPECT_EQ(link.calls()[1].path, kExecutableLink);
}

class TargetOfLength : public testing::TestWithParam<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(, TargetOfLength,
                         testing::Values(1, 254, 255, 256, 257, 511, 512, 513, 1023, 1024, 1025,
                                         4095, 4096, 4097, 100'000));

TEST_P(TargetOfLength, IsReadWhole) {
  const std::string target = '/' + std::string(GetParam() - 1, 't');
  const ScriptedLink link(target);

  EXPECT_EQ(askedPath(), target);
}

TEST(ExecutablePath, TellsNoSizeWhereTheLinkCannotBeRead) {
  const ScriptedLink link(std::nullopt);
  const ErrorStateSentinel sentinel;
  std::uint32_t size = 0;

  EXPECT_EQ(executablePath(nullptr, &size), -1);

  EXPECT_EQ(size, 0U);
  EXPECT_EQ(link.calls().size(), 1U);
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ExecutablePath, TakesTheSizeBackWhereTheLinkCannotBeReadAnyMore) {
  const ScriptedLink link(std::nullopt);
  std::vector<char> buffer(100, 'x');
  auto size = static_cast<std::uint32_t>(buffer.size());

  EXPECT_EQ(executablePath(buffer.data(), &size), -1);

  EXPECT_EQ(size, 0U);
  EXPECT_EQ(buffer, std::vector<char>(100, 'x'));
}

TEST(ExecutablePath, IsNoneWhereTheLinkIsEmpty) {
  const ScriptedLink link("");
  std::uint32_t size = 5;

  EXPECT_EQ(executablePath(nullptr, &size), -1);

  EXPECT_EQ(size, 0U);
}

// ---- The mark of a deleted file --------------------------------------------------------------

TEST(ExecutablePath, LeavesOutTheMarkOfADeletedFile) {
  const ScriptedLink link("/no such dir/tool (deleted)");

  EXPECT_EQ(askedPath(), "/no such dir/tool");
}

TEST(ExecutablePath, LeavesOutOneMarkOnly) {
  const ScriptedLink link("/no such dir/tool (deleted) (deleted)");

  EXPECT_EQ(askedPath(), "/no such dir/tool (deleted)");
}

TEST(ExecutablePath, KeepsAMarkThatIsNotAtTheEnd) {
  const ScriptedLink link("/no such dir (deleted)/tool (deleted).bin");

  EXPECT_EQ(askedPath(), "/no such dir (deleted)/tool (deleted).bin");
}

TEST(ExecutablePath, KeepsTheMarkThatIsPartOfTheNameOfTheExecutable) {
  const TempDir tmp;
  const std::string name = tmp.link("tool (deleted)", ownPath());
  const ScriptedLink link(name);

  EXPECT_EQ(askedPath(), name);
}

TEST(ExecutablePath, LeavesOutTheMarkThoughAnotherFileHasANameLikeIt) {
  const TempDir tmp;
  const ScriptedLink link(tmp.write("tool (deleted)", "another"));

  EXPECT_EQ(askedPath(), tmp.path("tool"));
}

TEST(ExecutablePath, LeavesOutTheMarkThoughTheDirectoryOnTheWayIsAFile) {
  const TempDir tmp;
  tmp.write("bin", "no directory any more");
  const ScriptedLink link(tmp.path("bin/tool (deleted)"));

  EXPECT_EQ(askedPath(), tmp.path("bin/tool"));
}

}  // namespace

// NOLINTBEGIN(bugprone-reserved-identifier): the linker makes these names.
extern "C" {

ssize_t __real_readlink(const char* path, char* buffer, std::size_t room);

ssize_t __wrap_readlink(const char* path, char* buffer, std::size_t room) {
  ScriptedLink* const script = ScriptedLink::active();
  return script == nullptr ? __real_readlink(path, buffer, room) : script->read(path, buffer, room);
}
}
// NOLINTEND(bugprone-reserved-identifier)
