// SPDX-License-Identifier: MIT
//
// Shared, reference-counted implementations and the handles that refer to them.
//
// A handle is a value of pointer size (beside its virtual table): copying it copies a pointer and
// counts. The implementation behind it lives until its last handle goes.
//
// Thread safety: handles to one implementation may be copied and destroyed on several threads at
// once. One handle object, like any value, must not be changed by one thread while another uses it.
//
// Nothing here needs dynamic_cast or typeid, and neither works across libraries that hide their
// symbols.

#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace vx {

/// The interface of a shared implementation.
///
/// Its destructor is neither public nor virtual: an object goes by `release` alone, and the two
/// operations keep the first two slots of the virtual table.
class IRefCounted {
 public:
  /// Adds one reference.
  virtual void retain() noexcept = 0;

  /// Drops one reference; the object destroys itself when that was the last.
  virtual void release() noexcept = 0;

 protected:
  IRefCounted() = default;
  /// For implementations that are copied; the references stay with the original.
  IRefCounted(const IRefCounted&) = default;
  /// As the copy.
  IRefCounted& operator=(const IRefCounted&) = default;
  ~IRefCounted() = default;
};

/// An implementation that counts its own references, starting with one.
///
/// The count is atomic. While the process has a single thread, and the C library says so, it is
/// kept by plain loads and stores, which cost a fraction of the locked instructions.
class RefCounted : public IRefCounted {
 public:
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  void retain() noexcept final { addReference(); }

  void release() noexcept final {
    if (dropReference()) [[unlikely]] {
      destroy();
    }
  }

  /// True when exactly one handle refers to the object, so that its holder may change it in place.
  [[nodiscard]] bool isUnique() const noexcept {
    return count_.load(std::memory_order_acquire) == 1;
  }

 protected:
  RefCounted() = default;
  ~RefCounted() = default;

 private:
  /// Destroys the object and frees its memory.
  virtual void destroy() noexcept = 0;

  [[nodiscard]] static bool processHasOneThread() noexcept {
#if __has_include(<sys/single_threaded.h>)
    return __libc_single_threaded != 0;
#else
    return false;
#endif
  }

  void addReference() noexcept {
    if (processHasOneThread()) [[likely]] {
      count_.store(count_.load(std::memory_order_relaxed) + 1, std::memory_order_relaxed);
    } else {
      count_.fetch_add(1, std::memory_order_relaxed);
    }
  }

  [[nodiscard]] bool dropReference() noexcept {
    if (processHasOneThread()) [[likely]] {
      const std::size_t left = count_.load(std::memory_order_relaxed) - 1;
      count_.store(left, std::memory_order_relaxed);
      return left == 0;
    }
    return count_.fetch_sub(1, std::memory_order_acq_rel) == 1;
  }

  std::atomic<std::size_t> count_{1};
};

/// The handle base: one pointer, possibly null, to a shared implementation.
///
/// Copies retain, the destructor releases, moves take the pointer over and leave null behind.
/// Nothing here throws.
template <class Interface>
class RefersTo {
 public:
  RefersTo() noexcept = default;

  /// Takes over one reference that the caller holds; `implementation` may be null.
  explicit RefersTo(Interface* implementation) noexcept : implementation_(implementation) {}

  /// Refers to the same implementation, with one more reference.
  RefersTo(const RefersTo& other) noexcept : implementation_(other.implementation_) {
    if (implementation_ != nullptr) {
      implementation_->retain();
    }
  }

  /// Takes the reference of `other` over and leaves null behind.
  RefersTo(RefersTo&& other) noexcept
      : implementation_(std::exchange(other.implementation_, nullptr)) {}

  virtual ~RefersTo() {
    if (implementation_ != nullptr) {
      implementation_->release();
    }
  }

 protected:
  // Assignment is for the handle types alone: through a reference to the base, a list could be
  // assigned to a string.

  /// Retains the incoming implementation before the held one is released, so that a handle may be
  /// assigned to itself.
  RefersTo& operator=(const RefersTo& other) noexcept {
    if (other.implementation_ != nullptr) {
      other.implementation_->retain();
    }
    Interface* const held = std::exchange(implementation_, other.implementation_);
    if (held != nullptr) {
      held->release();
    }
    return *this;
  }

  /// Takes the reference of `other` over and leaves null behind, then releases the held one.
  RefersTo& operator=(RefersTo&& other) noexcept {
    Interface* const incoming = std::exchange(other.implementation_, nullptr);
    Interface* const held = std::exchange(implementation_, incoming);
    if (held != nullptr) {
      held->release();
    }
    return *this;
  }

  /// The implementation, null where there is none.
  [[nodiscard]] Interface* implementation() const noexcept { return implementation_; }

  // As the copy and the destructor, for handles that know what class their implementation is: the
  // calls then are no virtual ones, and the compiler can put the count in line. Strings and lists
  // travel by value everywhere.

  /// The implementation with one more reference, null where there is none.
  template <class Implementation>
  [[nodiscard]] Implementation* retained() const noexcept {
    auto* const held = static_cast<Implementation*>(implementation_);
    if (held != nullptr) {
      held->retain();
    }
    return held;
  }

  /// Releases the implementation and leaves null behind, last of all: the compiler then sees that
  /// the destructor here has nothing to do.
  template <class Implementation>
  void release() noexcept {
    if (auto* const held = static_cast<Implementation*>(implementation_)) {
      held->release();
      implementation_ = nullptr;
    }
  }

 private:
  Interface* implementation_ = nullptr;
};

}  // namespace vx
