// SPDX-License-Identifier: MIT
//
// The blocks of memory that a stretch of code has allocated and not freed, to the block.
//
//   LiveBlocks blocks;
//   functionUnderTest();
//   blocks.stop();
//   EXPECT_EQ(blocks.count(), 0U);
//
// Counts whatever comes from the C library's heap, its own streams and directory streams and the
// C++ library's `new` included. The program that links this replaces `malloc` and its kin; a
// sanitizer, which has a heap of its own, reports its blocks instead.

#pragma once

#include <cstddef>

namespace vx::test {

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

}  // namespace vx::test
