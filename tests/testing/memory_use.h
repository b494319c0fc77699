// SPDX-License-Identifier: MIT
//
// Counts the blocks of memory that code allocates, and those that it does not free:
//
//   LiveBlocks blocks;
//   functionUnderTest();
//   blocks.stop();
//   EXPECT_EQ(blocks.count(), 0U);
//   EXPECT_EQ(blocks.use().allocations, 1U);
//
// Counts all blocks of the C library's heap, including those of its streams and of `new`. A program
// that links memory_use.cpp replaces `malloc` and the like. Sanitizers replace them too; there,
// their hooks count.
//
// Measures the memory that code needs, in a child, where nothing else has needed more:
//
//   runInChild([&] {
//     const long before = peakKibibytes();
//     EXPECT_TRUE(vx::fs::copyFile("s", "d"));
//     EXPECT_LT(peakKibibytes() - before, kAllowedKibibytes);
//   });

#pragma once

#include <cstddef>

#include <sys/resource.h>

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define VX_TEST_SANITIZED_HEAP 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define VX_TEST_SANITIZED_HEAP 1
#endif
#endif

namespace vx::test {

/// How code uses the heap; a reallocation is an allocation and a free.
struct HeapUse {
  std::size_t allocations = 0;
  std::size_t bytes = 0;
  std::size_t frees = 0;  ///< of any block, whenever it was allocated
};

/// Counts for one thread. There may be one object at a time, and no other thread may run.
class LiveBlocks {
 public:
  /// Starts counting.
  LiveBlocks();
  LiveBlocks(const LiveBlocks&) = delete;
  LiveBlocks& operator=(const LiveBlocks&) = delete;
  ~LiveBlocks();

  /// Stops counting allocations. Frees of counted blocks are still noticed.
  void stop() noexcept;

  /// Returns how many blocks have been allocated while counting and not been freed since.
  [[nodiscard]] std::size_t count() const noexcept;

  /// Returns the use of the heap while counting.
  [[nodiscard]] HeapUse use() const noexcept;

  /// Pauses counting during its lifetime.
  class Pause {
   public:
    Pause() noexcept;
    Pause(const Pause&) = delete;
    Pause& operator=(const Pause&) = delete;
    ~Pause();

   private:
    bool wasCounting_;
  };
};

/// Returns the largest amount of memory that this process has used so far.
[[nodiscard]] inline long peakKibibytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;  // NOLINT(*-union-access): how the C library spells the field
}

}  // namespace vx::test
