// SPDX-License-Identifier: MIT
//
// The blocks of memory that a stretch of code allocates, and those that it does not free:
//
//   LiveBlocks blocks;
//   functionUnderTest();
//   blocks.stop();
//   EXPECT_EQ(blocks.count(), 0U);
//   EXPECT_EQ(blocks.use().allocations, 1U);
//
// Counts all blocks of the C library's heap, including those of its streams and of `new`. A program
// that links memory_use.cpp replaces `malloc` and the like. Under a sanitizer, which replaces them
// itself, the sanitizer's hooks count.
//
// The memory that a stretch of code needs, in a child, where nothing else has needed more:
//
//   runInChild([&] {
//     const long before = peakKibibytes();
//     EXPECT_TRUE(vx::fs::copyFile("s", "d"));
//     EXPECT_LT(peakKibibytes() - before, kAllowedKibibytes);
//   });

#pragma once

#include <cstddef>

#include <sys/resource.h>

namespace vx::test {

/// What a stretch of code asks of the heap; a reallocation is an allocation and a free.
struct HeapUse {
  std::size_t allocations = 0;
  std::size_t bytes = 0;
  std::size_t frees = 0;  ///< of any block, whenever it was allocated
};

/// Counts for one thread at a time: at most one object at once, used where no other thread runs.
class LiveBlocks {
 public:
  /// Counts what is allocated from here on.
  LiveBlocks();
  LiveBlocks(const LiveBlocks&) = delete;
  LiveBlocks& operator=(const LiveBlocks&) = delete;
  ~LiveBlocks();

  /// Counts no further allocations; that one of those counted is freed is still noticed.
  void stop() noexcept;

  /// The blocks that have been allocated while counting and have not been freed since.
  [[nodiscard]] std::size_t count() const noexcept;

  /// What has been asked of the heap while counting.
  [[nodiscard]] HeapUse use() const noexcept;

  /// Leaves out what is allocated while it lives.
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

/// The most memory that this process has held so far.
[[nodiscard]] inline long peakKibibytes() {
  rusage usage{};
  ::getrusage(RUSAGE_SELF, &usage);
  return usage.ru_maxrss;  // NOLINT(*-union-access): how the C library spells the field
}

}  // namespace vx::test
