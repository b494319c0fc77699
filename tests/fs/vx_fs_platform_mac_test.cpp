// Concern: the source for macOS compiles against the system's header, here a stand-in, and hands
// the question on to the system's own call.

#include "core/vx_string.h"
#include "fs/internal/vx_fs_platform.h"
#include "fs/vx_fs.h"
#include "tests/testing/error_state.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <utility>

#include <mach-o/dyld.h>

namespace {

using vx::test::ErrorStateSentinel;
using vx::test::TempDir;
using vx::test::text;

/// What the system does for the length of a scope.
class ScriptedSystem {
 public:
  using Call = std::function<int(char* buffer, std::uint32_t* size)>;

  explicit ScriptedSystem(Call call) : call_(std::move(call)) { active_ = this; }
  ScriptedSystem(const ScriptedSystem&) = delete;
  ScriptedSystem& operator=(const ScriptedSystem&) = delete;
  ~ScriptedSystem() { active_ = nullptr; }

  static int ask(char* buffer, std::uint32_t* size) { return active_->call_(buffer, size); }

 private:
  static inline ScriptedSystem* active_ = nullptr;

  Call call_;
};

TEST(ExecutablePathOfMacOS, HandsItsArgumentsAndTheResultOn) {
  char room = 'x';
  std::uint32_t size = 17;
  char* buffer = nullptr;
  std::uint32_t* sizePlace = nullptr;
  const ScriptedSystem system([&](char* givenBuffer, std::uint32_t* givenSize) {
    buffer = givenBuffer;
    sizePlace = givenSize;
    *givenBuffer = 'y';
    *givenSize = 18;
    return 42;
  });

  EXPECT_EQ(vx::fs::platform::executablePath(&room, &size), 42);

  EXPECT_EQ(buffer, &room);
  EXPECT_EQ(sizePlace, &size);
  EXPECT_EQ(room, 'y');
  EXPECT_EQ(size, 18U);
}

TEST(ExePath, IsWhatTheCallOfMacOSTells) {
  const TempDir tmp;
  const std::string executable = tmp.write("tool", "");
  const ScriptedSystem system([&](char* buffer, std::uint32_t* size) {
    const auto needed = static_cast<std::uint32_t>(executable.size() + 1);
    if (*size < needed) {
      *size = needed;
      return -1;
    }
    std::memcpy(buffer, executable.c_str(), needed);
    return 0;
  });
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(text(vx::fs::exePath()), executable);

  EXPECT_TRUE(sentinel.isUntouched());
}

}  // namespace

int _NSGetExecutablePath(char* buf, uint32_t* bufsize) {
  return ScriptedSystem::ask(buf, bufsize);
}
