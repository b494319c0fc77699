// SPDX-License-Identifier: MIT
//
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

#include <compare>
#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <ranges>
#include <type_traits>
#include <utility>

namespace vx {

class StringVector;

/// A range of what a `String` can be made from, other than a list itself.
template <class Range>
concept RangeOfTexts =
    !std::same_as<std::remove_cvref_t<Range>, StringVector> && std::ranges::input_range<Range> &&
    std::constructible_from<String, std::ranges::range_reference_t<Range>>;

/// A list of texts: see the head of this file.
///
/// It is a container of the standard's kind whose elements are read-only: copies of a list share
/// them.
class StringVector final : public RefersTo<IRefCounted> {
 public:
  /// A member type of the standard's containers.
  using value_type = String;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using reference = const String&;
  using const_reference = const String&;
  using pointer = const String*;
  using const_pointer = const String*;
  using iterator = const String*;
  using const_iterator = const String*;

  /// The empty list, which takes no memory.
  StringVector() noexcept = default;

  /// The given elements, in order.
  StringVector(std::initializer_list<String> elements);

  /// The elements of `range`, in order: anything that a `String` can be made from, such as
  /// `std::string` or `const char*`.
  // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): the concept excludes lists
  explicit StringVector(RangeOfTexts auto&& range) {
    for (auto&& element : range) {
      push_back(String(std::forward<decltype(element)>(element)));
    }
  }

  /// Shares the elements of `other`.
  StringVector(const StringVector& other) noexcept : RefersTo(other.retained<RefCounted>()) {}
  /// Takes the elements of `other` over and leaves it empty.
  StringVector(StringVector&& other) noexcept = default;
  /// Shares the elements of `other` in place of its own.
  StringVector& operator=(const StringVector& other) & noexcept {
    return *this = StringVector(other);
  }
  /// Takes the elements of `other` over in place of its own.
  StringVector& operator=(StringVector&& other) & noexcept = default;
  ~StringVector() override { release<RefCounted>(); }

  /// Appends `element`; iterators become invalid.
  void push_back(String element);

  /// The elements in the order of their insertion, valid until the list is changed or destroyed.
  [[nodiscard]] const String* begin() const noexcept VX_LIFETIMEBOUND;

  /// The end of the elements.
  [[nodiscard]] const String* end() const noexcept VX_LIFETIMEBOUND { return begin() + size(); }

  /// The first element; the empty string where there is none.
  [[nodiscard]] String front() const noexcept { return (*this)[0]; }

  /// The last element; the empty string where there is none.
  [[nodiscard]] String back() const noexcept { return (*this)[size() - 1]; }

  /// Element `index`, counting from 0; the empty string past the end.
  [[nodiscard]] String operator[](std::size_t index) const noexcept;

  /// The number of elements.
  [[nodiscard]] std::size_t size() const noexcept;

  /// Whether there are no elements.
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }

  /// The elements in order, `separator` between each two; the empty string for no elements.
  [[nodiscard]] String join(String separator) const;

  /// Whether both lists have equal elements in the same order.
  [[nodiscard]] bool operator==(StringVector other) const noexcept;

  /// Lexicographical order of the elements.
  [[nodiscard]] std::strong_ordering operator<=>(StringVector other) const noexcept;

 private:
  /// The head of a block; the elements follow it.
  struct [[gnu::visibility("hidden")]] Items;

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

inline const String* StringVector::begin() const noexcept VX_LIFETIMEBOUND {
  Items* const held = items();
  return held == nullptr ? nullptr : held->elements();
}

inline std::size_t StringVector::size() const noexcept {
  const Items* const held = items();
  return held == nullptr ? 0 : held->size;
}

}  // namespace vx
