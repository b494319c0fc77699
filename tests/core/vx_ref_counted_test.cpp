// SPDX-License-Identifier: MIT
//
// When a handle retains and releases, and the layout of both types.

#include "core/vx_ref_counted.h"

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "tests/testing/log_capture.h"

#include <gtest/gtest.h>

#include <bit>
#include <cstddef>
#include <functional>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

namespace vx::test {
namespace {

// ---- What the compiler takes and refuses -------------------------------------------------------

static_assert(std::is_abstract_v<IRefCounted>);
static_assert(!std::has_virtual_destructor_v<IRefCounted>);
static_assert(!std::is_destructible_v<IRefCounted>);
static_assert(noexcept(std::declval<IRefCounted&>().retain()));
static_assert(noexcept(std::declval<IRefCounted&>().release()));

static_assert(std::is_base_of_v<IRefCounted, RefCounted>);
static_assert(!std::is_copy_constructible_v<RefCounted>);
static_assert(!std::is_copy_assignable_v<RefCounted>);

template <class Handle>
constexpr bool isHandle =
    std::has_virtual_destructor_v<Handle>&& std::is_nothrow_default_constructible_v<Handle>&&
        std::is_nothrow_copy_constructible_v<Handle>&&
            std::is_nothrow_move_constructible_v<Handle> &&
    sizeof(Handle) == 2 * sizeof(void*);

static_assert(isHandle<RefersTo<IRefCounted>>);
static_assert(isHandle<vx::String>);
static_assert(isHandle<vx::StringVector>);

template <class Handle>
constexpr bool isAssigned =
    std::is_nothrow_copy_assignable_v<Handle>&& std::is_nothrow_move_assignable_v<Handle>;

static_assert(isAssigned<vx::String>);
static_assert(isAssigned<vx::StringVector>);
// Through its base, a string could be assigned a list.
static_assert(!std::is_copy_assignable_v<RefersTo<IRefCounted>>);
static_assert(!std::is_move_assignable_v<RefersTo<IRefCounted>>);

// A pointer to the derived class converts only if the base is public.
static_assert(std::is_convertible_v<vx::String*, RefersTo<IRefCounted>*>);
static_assert(std::is_convertible_v<vx::StringVector*, RefersTo<IRefCounted>*>);

// A raw pointer does not convert to a handle.
static_assert(!std::is_convertible_v<IRefCounted*, RefersTo<IRefCounted>>);

// ---- Slots of the virtual table ----------------------------------------------------------------

/// Returns the slot of a virtual member function, which the C++ ABI encodes in a pointer to it.
template <class Member>
std::size_t slotOf(Member member) {
  struct Encoded {
    std::size_t function;
    std::size_t adjustment;
  };
  const auto encoded = std::bit_cast<Encoded>(member);
#if defined(__arm__) || defined(__aarch64__)
  return encoded.function / sizeof(void*);
#else
  return (encoded.function - 1) / sizeof(void*);
#endif
}

struct ExtendedHandle : RefersTo<IRefCounted> {
  virtual void firstOfItsOwn() {}
};

TEST(IRefCounted, HasRetainAndReleaseInItsFirstSlots) {
  EXPECT_EQ(slotOf(&IRefCounted::retain), 0U);
  EXPECT_EQ(slotOf(&IRefCounted::release), 1U);
}

TEST(RefersTo, HasNoVirtualOperationButItsDestructor) {
  constexpr std::size_t kSlotsOfADestructor = 2;  // with and without freeing the memory

  EXPECT_EQ(slotOf(&ExtendedHandle::firstOfItsOwn), kSlotsOfADestructor);
}

// ---- An implementation that records its calls --------------------------------------------------

using Calls = std::vector<std::string>;

class ScriptedImplementation final : public IRefCounted {
 public:
  ScriptedImplementation(std::string name, Calls& calls) : name_(std::move(name)), calls_(calls) {}

  void retain() noexcept override {
    calls_.push_back("retain " + name_);
    ++references_;
  }

  void release() noexcept override {
    calls_.push_back("release " + name_);
    --references_;
    if (onRelease) {
      onRelease();
    }
  }

  [[nodiscard]] int references() const { return references_; }

  std::function<void()> onRelease;

 private:
  std::string name_;
  Calls& calls_;
  int references_ = 1;
};

class Handle : public RefersTo<IRefCounted> {
 public:
  using RefersTo::implementation;
  using RefersTo::RefersTo;
};

class RefersTo_Calls : public testing::Test {
 protected:
  Calls calls;
  ScriptedImplementation a{"a", calls};
  ScriptedImplementation b{"b", calls};
};

TEST_F(RefersTo_Calls, TakesAReferenceAndReleasesItAsBase) {
  auto handle = std::make_unique<Handle>(&a);
  EXPECT_EQ(handle->implementation(), &a);
  EXPECT_EQ(calls, lines());

  std::unique_ptr<RefersTo<IRefCounted>>(std::move(handle)).reset();

  EXPECT_EQ(calls, lines("release a"));
}

TEST_F(RefersTo_Calls, CopiesByPointerAndOneRetain) {
  const Handle handle(&a);

  const Handle copy = handle;

  EXPECT_EQ(copy.implementation(), &a);
  EXPECT_EQ(handle.implementation(), &a);
  EXPECT_EQ(calls, lines("retain a"));
}

TEST_F(RefersTo_Calls, HoldsNullByDefaultAndAsACopyOfNull) {
  {
    const Handle null;
    const Handle copy = null;
    EXPECT_EQ(null.implementation(), nullptr);
    EXPECT_EQ(copy.implementation(), nullptr);
  }
  EXPECT_EQ(calls, lines());
}

TEST_F(RefersTo_Calls, MovesWithoutACallAndLeavesNull) {
  Handle handle(&a);

  const Handle moved = std::move(handle);

  EXPECT_EQ(moved.implementation(), &a);
  EXPECT_EQ(handle.implementation(), nullptr);  // NOLINT(bugprone-use-after-move): documented
  EXPECT_EQ(calls, lines());
}

TEST_F(RefersTo_Calls, AssignsByRetainThenStoreThenRelease) {
  Handle target(&a);
  const Handle source(&b);
  const IRefCounted* heldWhileReleasing = nullptr;
  a.onRelease = [&] { heldWhileReleasing = target.implementation(); };

  target = source;

  EXPECT_EQ(calls, lines("retain b", "release a"));
  EXPECT_EQ(heldWhileReleasing, &b);
  EXPECT_EQ(target.implementation(), &b);
  EXPECT_EQ(source.implementation(), &b);
  a.onRelease = nullptr;
}

TEST_F(RefersTo_Calls, MayBeAssignedItself) {
  Handle handle(&a);
  int fewest = a.references();
  a.onRelease = [&] { fewest = std::min(fewest, a.references()); };
  const Handle& itself = handle;

  handle = itself;

  EXPECT_EQ(calls, lines("retain a", "release a"));
  EXPECT_EQ(fewest, 1);
  EXPECT_EQ(handle.implementation(), &a);
  a.onRelease = nullptr;
}

TEST_F(RefersTo_Calls, AssignsToAndFromNull) {
  const Handle source(&a);
  const Handle null;
  Handle target;

  target = source;
  EXPECT_EQ(target.implementation(), &a);
  EXPECT_EQ(calls, lines("retain a"));
  target = null;

  EXPECT_EQ(target.implementation(), nullptr);
  EXPECT_EQ(calls, lines("retain a", "release a"));
}

TEST_F(RefersTo_Calls, MoveAssignsByStoreThenRelease) {
  Handle target(&a);
  Handle source(&b);
  const IRefCounted* heldWhileReleasing = nullptr;
  a.onRelease = [&] { heldWhileReleasing = target.implementation(); };

  target = std::move(source);

  EXPECT_EQ(calls, lines("release a"));
  EXPECT_EQ(heldWhileReleasing, &b);
  EXPECT_EQ(target.implementation(), &b);
  EXPECT_EQ(source.implementation(), nullptr);  // NOLINT(bugprone-use-after-move): documented
  a.onRelease = nullptr;
}

TEST_F(RefersTo_Calls, MayBeMovedToItself) {
  Handle handle(&a);
  Handle& itself = handle;

  handle = std::move(itself);

  EXPECT_EQ(handle.implementation(), &a);
  EXPECT_EQ(calls, lines());
}

// ---- The counting implementation ---------------------------------------------------------------

class Counted final : public RefCounted {
 public:
  explicit Counted(int& destroyed) : destroyed_(destroyed) {}

 private:
  void destroy() noexcept override {
    ++destroyed_;
    delete this;
  }

  int& destroyed_;
};

TEST(RefCounted, IsDestroyedByTheLastRelease) {
  int destroyed = 0;
  auto* const object = new Counted(destroyed);
  IRefCounted& counted = *object;
  EXPECT_TRUE(object->isUnique());

  counted.retain();
  EXPECT_FALSE(object->isUnique());
  counted.release();
  EXPECT_TRUE(object->isUnique());
  EXPECT_EQ(destroyed, 0);
  counted.release();

  EXPECT_EQ(destroyed, 1);
}

TEST(RefCounted, LosesNoReferenceBetweenThreads) {
  int destroyed = 0;
  {
    const Handle handle(new Counted(destroyed));
    const Handle copy = handle;
    constexpr int kThreads = 4;
    std::latch together(kThreads);
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i) {
      threads.emplace_back([&together, mine = handle] {
        together.arrive_and_wait();
        for (int round = 0; round < 1'000'000; ++round) {
          const Handle another = mine;
          const Handle yetAnother = another;
        }
      });
    }
    for (std::thread& thread : threads) {
      thread.join();
    }
    threads.clear();
    EXPECT_EQ(destroyed, 0);
  }
  EXPECT_EQ(destroyed, 1);
}

}  // namespace
}  // namespace vx::test
