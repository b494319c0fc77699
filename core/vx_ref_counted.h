// SPDX-License-Identifier: MIT
//
// Reference-counted implementations and the handles that refer to them.
//
// A handle consists of a pointer to the implementation and a virtual-table pointer. Copying it
// copies the pointer and adds a reference. Destroying the last handle destroys the implementation.
//
// Thread safety: different threads may copy and destroy handles to the same implementation. One
// handle object must not be changed while another thread uses it.
//
// Do not use dynamic_cast or typeid on these types: neither works across libraries that hide their
// symbols.

#pragma once

#include <atomic>
#include <cstddef>
#include <utility>

namespace vx {

/// The interface of a shared implementation.
///
/// Objects are destroyed only by `release`. The destructor is not virtual, so that `retain` and
/// `release` occupy the first two slots of the virtual table.
class IRefCounted {
 public:
  /// Adds one reference.
  virtual void retain() noexcept = 0;

  /// Drops one reference. Dropping the last one destroys the object.
  virtual void release() noexcept = 0;

 protected:
  IRefCounted() = default;
  /// For implementations that can be copied. The references are not copied.
  IRefCounted(const IRefCounted&) = default;
  /// For implementations that can be assigned. The references are not copied.
  IRefCounted& operator=(const IRefCounted&) = default;
  ~IRefCounted() = default;
};

/// An implementation with an atomic reference count, which starts at 1.
class RefCounted : public IRefCounted {
 public:
  RefCounted(const RefCounted&) = delete;
  RefCounted& operator=(const RefCounted&) = delete;

  void retain() noexcept final { count_.fetch_add(1, std::memory_order_relaxed); }

  void release() noexcept final {
    if (count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
      destroy();
    }
  }

  /// Returns whether exactly one handle refers to the object, which may then be changed in place.
  [[nodiscard]] bool isUnique() const noexcept {
    return count_.load(std::memory_order_acquire) == 1;
  }

 protected:
  RefCounted() = default;
  ~RefCounted() = default;

 private:
  /// Destroys the object and frees its memory.
  virtual void destroy() noexcept = 0;

  std::atomic<std::size_t> count_{1};
};

/// The base of handles: a pointer, possibly null, to a shared implementation.
///
/// Copying calls `retain`, the destructor calls `release`, and a moved-from handle is null. Nothing
/// throws.
template <class Interface>
class RefersTo {
 public:
  RefersTo() noexcept = default;

  /// Adopts a reference that the caller owns. `implementation` may be null.
  explicit RefersTo(Interface* implementation) noexcept : implementation_(implementation) {}

  /// Adds a reference to the implementation of `other`.
  RefersTo(const RefersTo& other) noexcept : implementation_(other.implementation_) {
    if (implementation_ != nullptr) {
      implementation_->retain();
    }
  }

  /// Moves the reference from `other`, which becomes null.
  RefersTo(RefersTo&& other) noexcept
      : implementation_(std::exchange(other.implementation_, nullptr)) {}

  virtual ~RefersTo() {
    if (implementation_ != nullptr) {
      implementation_->release();
    }
  }

 protected:
  // Assignment is protected; otherwise a list could be assigned to a string through references to
  // the base class.

  /// Retains the new implementation before releasing the old one, so self-assignment is safe.
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

  /// Moves the reference from `other`, which becomes null, and releases the old implementation.
  RefersTo& operator=(RefersTo&& other) noexcept {
    Interface* const incoming = std::exchange(other.implementation_, nullptr);
    Interface* const held = std::exchange(implementation_, incoming);
    if (held != nullptr) {
      held->release();
    }
    return *this;
  }

  /// Returns the implementation, null if there is none.
  [[nodiscard]] Interface* implementation() const noexcept { return implementation_; }

 private:
  Interface* implementation_ = nullptr;
};

}  // namespace vx
