// The library's list of texts: a reference-counted, ordered sequence of `vx::String`.
//
//   vx::StringVector names = {"wood.png", "look.ksa"};
//   names.push_back("scene.ksx");
//   for (const vx::String& name : names) ...
//
// A copy shares the elements; `push_back` on a list that is shared copies them first, so no other
// handle sees the change. Nothing fails but for want of memory. Thread safety is that of
// `vx::String`.

#pragma once

#include "core/vx_ref_counted.h"
#include "core/vx_string.h"

#include <cstddef>
#include <initializer_list>

namespace vx {

/// A list of texts: see the head of this file.
class StringVector final : public RefersTo<IRefCounted> {
 public:
  /// The empty list, which takes no memory.
  StringVector() noexcept = default;

  /// The given elements, in order.
  StringVector(std::initializer_list<String> elements);

  /// Shares the elements of `other`.
  StringVector(const StringVector& other) noexcept : RefersTo(other.retained<RefCounted>()) {}
  /// Takes the elements of `other` over and leaves it empty.
  StringVector(StringVector&& other) noexcept = default;
  /// Shares the elements of `other` in place of its own.
  StringVector& operator=(const StringVector& other) noexcept {
    return *this = StringVector(other);
  }
  /// Takes the elements of `other` over in place of its own.
  StringVector& operator=(StringVector&& other) noexcept = default;
  ~StringVector() override { release<RefCounted>(); }

  /// Appends `element`; iterators become invalid.
  void push_back(String element);

  /// The elements in the order of their insertion, valid until the list is changed or destroyed.
  [[nodiscard]] const String* begin() const noexcept;

  /// The end of the elements.
  [[nodiscard]] const String* end() const noexcept { return begin() + size(); }

  /// The first element; the empty string where there is none.
  [[nodiscard]] String front() const noexcept { return (*this)[0]; }

  /// Element `index`, counting from 0; the empty string past the end.
  [[nodiscard]] String operator[](std::size_t index) const noexcept;

  /// The number of elements.
  [[nodiscard]] std::size_t size() const noexcept;

  /// Whether there are no elements.
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }

  /// The elements in order, `separator` between each two; the empty string for no elements.
  [[nodiscard]] String join(String separator) const;

 private:
  /// The head of a block; the elements follow it.
  struct Items;

  [[nodiscard]] Items* items() const noexcept;
};

struct StringVector::Items final : RefCounted {
  std::size_t size = 0;
  std::size_t capacity = 0;

  [[nodiscard]] String* elements() noexcept { return reinterpret_cast<String*>(this + 1); }

  /// A block with room for `capacity` elements that holds none yet.
  [[nodiscard]] static Items* create(std::size_t capacity);

  /// A block with copies of the elements of `source`, and no room for more.
  [[nodiscard]] static Items* copied(std::initializer_list<String> source);

  void append(String element) noexcept;

 private:
  void destroy() noexcept override;
};

inline StringVector::Items* StringVector::items() const noexcept {
  return static_cast<Items*>(implementation());
}

inline const String* StringVector::begin() const noexcept {
  Items* const held = items();
  return held == nullptr ? nullptr : held->elements();
}

inline std::size_t StringVector::size() const noexcept {
  const Items* const held = items();
  return held == nullptr ? 0 : held->size;
}

}  // namespace vx
