// SPDX-License-Identifier: MIT
//
// Concern: what an archive that runs out of memory half-way leaves open. The program makes any call
// of `operator new` fail.

#include "fs/vx_fs.h"
#include "tests/testing/archives.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <new>
#include <optional>
#include <string>

namespace {

/// How many allocations succeed before one fails; unlimited while it is empty.
std::optional<std::size_t> allocationsLeft;

void* allocate(std::size_t size) {
  if (allocationsLeft && (*allocationsLeft)-- == 0) {
    allocationsLeft.reset();
    throw std::bad_alloc();
  }
  void* const block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

}  // namespace

void* operator new(std::size_t size) {
  return allocate(size);
}
void* operator new[](std::size_t size) {
  return allocate(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete[](void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}
void operator delete[](void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}

namespace vx::test {
namespace {

using fs::readZip;
using fs::writeZip;

std::ptrdiff_t openDescriptors() {
  return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

/// Runs `act` with its first allocation failing, then its second, and so on until none is left to
/// fail. @return how many have failed.
template <class Act>
std::size_t failEveryAllocation(Act act) {
  const std::ptrdiff_t openBefore = openDescriptors();
  for (std::size_t failed = 0;; ++failed) {
    allocationsLeft = failed;
    try {
      act();
    } catch (const std::bad_alloc&) {
    }
    const bool hasFailed = !allocationsLeft.has_value();
    allocationsLeft.reset();
    EXPECT_EQ(openDescriptors(), openBefore) << "after the failure of allocation " << failed;
    if (!hasFailed) {
      return failed;
    }
  }
}

class ArchiveOutOfMemory : public testing::Test {
 protected:
  void SetUp() override {
    if (!std::filesystem::exists("/proc/self/fd")) {
      GTEST_SKIP() << "this system does not list a process's descriptors";
    }
  }

  TempDir tmp;
  LogCapture log;
};

TEST_F(ArchiveOutOfMemory, IsClosedWhileReading) {
  const String archive =
      tmp.write("pack.zip", ZipMaker().file("d/a", "1").file("s.ksx", "2").bytes()).c_str();
  const String out = tmp.path("out").c_str();

  EXPECT_GT(failEveryAllocation([&] { readZip(archive, out); }), 10U);
}

TEST_F(ArchiveOutOfMemory, IsClosedWhileWriting) {
  const String archive = tmp.path("pack.zip").c_str();
  const String scene = tmp.write("a.ksx", "1").c_str();
  const String picture = tmp.write("b.png", "2").c_str();

  EXPECT_GT(failEveryAllocation([&] { writeZip(archive, {scene, picture}); }), 10U);
}

}  // namespace
}  // namespace vx::test
