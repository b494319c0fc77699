// SPDX-License-Identifier: MIT
//
// StringVector: a reference-counted list of `vx::String`.
//
//   vx::StringVector names = {"wood.png", "look.ksa"};
//   names.push_back("scene.ksx");
//   for (const vx::String& name : names) ...
//
// Copies share their elements. `push_back` copies shared elements first, so other lists do not
// change. The only failure is running out of memory. The thread safety is that of `vx::String`.

#pragma once

#include "core/vx_ref_counted.h"
#include "core/vx_string.h"

#include <compare>   // IWYU pragma: keep
#include <concepts>  // IWYU pragma: keep
#include <cstddef>
#include <initializer_list>
#include <ranges>
#include <type_traits>
#include <utility>

namespace vx {

class StringVector;  // IWYU pragma: keep

/// A range, other than a `StringVector`, from whose elements a `String` can be constructed.
template <class Range>
concept RangeOfTexts =
    !std::same_as<std::remove_cvref_t<Range>, StringVector> && std::ranges::input_range<Range> &&
    std::constructible_from<String, std::ranges::range_reference_t<Range>>;

/// A list of strings with a container-like interface. Elements are read-only, because copies of a
/// list share them.
class StringVector final : public RefersTo<IRefCounted> {
 public:
  /// The member types of a standard container.
  using value_type = String;
  using size_type = std::size_t;
  using difference_type = std::ptrdiff_t;
  using reference = const String&;
  using const_reference = const String&;
  using pointer = const String*;
  using const_pointer = const String*;
  using iterator = const String*;
  using const_iterator = const String*;

  /// Creates the empty list, which allocates no memory.
  StringVector() noexcept = default;

  /// Creates a list of `elements`, in order.
  StringVector(std::initializer_list<String> elements);

  /// Creates a list of the elements of `range`, in order. They may have any type from which a
  /// `String` can be constructed, such as `std::string` or `const char*`.
  // NOLINTNEXTLINE(bugprone-forwarding-reference-overload): the concept excludes lists
  explicit StringVector(RangeOfTexts auto&& range) {
    for (auto&& element : range) {
      push_back(String(std::forward<decltype(element)>(element)));
    }
  }

  /// Shares the elements of `other`.
  StringVector(const StringVector& other) noexcept = default;
  /// Moves from `other` and leaves it empty.
  StringVector(StringVector&& other) noexcept = default;
  /// Shares the elements of `other`.
  StringVector& operator=(const StringVector& other) & noexcept = default;
  /// Moves from `other` and leaves it empty.
  StringVector& operator=(StringVector&& other) & noexcept = default;
  ~StringVector() override = default;

  /// Appends `element`. Invalidates iterators.
  void push_back(String element);

  /// Returns an iterator to the first element. Valid until the list is changed or destroyed.
  [[nodiscard]] const String* begin() const noexcept VX_LIFETIMEBOUND;

  /// Returns the past-the-end iterator.
  [[nodiscard]] const String* end() const noexcept VX_LIFETIMEBOUND { return begin() + size(); }

  /// Returns the first element, or the empty string if there is none.
  [[nodiscard]] String front() const noexcept { return (*this)[0]; }

  /// Returns the last element, or the empty string if there is none.
  [[nodiscard]] String back() const noexcept { return (*this)[size() - 1]; }

  /// Returns the element at `index`, or the empty string if `index` is not less than `size()`.
  [[nodiscard]] String operator[](std::size_t index) const noexcept;

  /// Returns the number of elements.
  [[nodiscard]] std::size_t size() const noexcept;

  /// Returns whether there are no elements.
  [[nodiscard]] bool empty() const noexcept { return size() == 0; }

  /// Returns the elements in order, with `separator` between them; the empty string if there are
  /// none.
  [[nodiscard]] String join(String separator) const;

  /// Returns whether both lists have equal elements in the same order.
  [[nodiscard]] bool operator==(StringVector other) const noexcept;

  /// Compares the elements lexicographically.
  [[nodiscard]] std::strong_ordering operator<=>(StringVector other) const noexcept;

 private:
  /// The header of a block of memory. The elements follow it.
  struct [[gnu::visibility("hidden")]] Items;

  [[nodiscard]] Items* items() const noexcept;
};

struct StringVector::Items final : RefCounted {
  std::size_t size = 0;
  std::size_t capacity = 0;

  [[nodiscard]] String* elements() noexcept { return reinterpret_cast<String*>(this + 1); }

  /// Creates an empty block with room for `capacity` elements.
  [[nodiscard]] static Items* create(std::size_t capacity);

  /// Creates a block with copies of the elements of `source` and no further capacity.
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
