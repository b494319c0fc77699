// SPDX-License-Identifier: MIT

#include "core/vx_string_vector.h"

#include "core/internal/vx_string_builder.h"

#include <algorithm>
#include <compare>
#include <memory>
#include <new>
#include <string_view>
#include <utility>

namespace vx {

StringVector::Items* StringVector::Items::create(std::size_t capacity) {
  static_assert(sizeof(Items) % alignof(String) == 0);
  auto* const items = new (::operator new(sizeof(Items) + capacity * sizeof(String))) Items;
  items->capacity = capacity;
  return items;
}

StringVector::Items* StringVector::Items::copied(std::initializer_list<String> source) {
  Items* const items = create(source.size());
  std::uninitialized_copy(source.begin(), source.end(), items->elements());
  items->size = source.size();
  return items;
}

void StringVector::Items::append(String element) noexcept {
  new (elements() + size) String(std::move(element));
  ++size;
}

void StringVector::Items::destroy() noexcept {
  std::destroy_n(elements(), size);
  this->~Items();
  ::operator delete(this);
}

StringVector::StringVector(std::initializer_list<String> elements)
    : RefersTo(elements.size() == 0 ? nullptr : Items::copied(elements)) {}

void StringVector::push_back(String element) {
  Items* const held = items();
  if (held != nullptr && held->isUnique() && held->size < held->capacity) {
    held->append(std::move(element));
    return;
  }
  constexpr std::size_t kFirstCapacity = 8;
  Items* const grown = Items::create(held == nullptr ? kFirstCapacity : held->size * 2);
  for (std::size_t i = 0; held != nullptr && i < held->size; ++i) {
    // If the list is not shared, its elements are moved.
    String& kept = held->elements()[i];
    grown->append(held->isUnique() ? std::move(kept) : kept);
  }
  grown->append(std::move(element));
  RefersTo::operator=(RefersTo(grown));
}

String StringVector::operator[](std::size_t index) const noexcept {
  return index < size() ? begin()[index] : String();
}

String StringVector::join(String separator) const {
  if (empty()) {
    return {};
  }
  const String* const first = begin();
  const String* const last = end();
  const std::string_view between = separator.view();
  std::size_t length = (size() - 1) * between.size();
  for (const String* element = first; element != last; ++element) {
    length += element->length();
  }
  internal::StringBuilder builder(length);
  builder.append(first->view());
  for (const String* element = first + 1; element != last; ++element) {
    builder.append(between);
    builder.append(element->view());
  }
  return builder.finish();
}

bool StringVector::operator==(StringVector other) const noexcept {
  return std::equal(begin(), end(), other.begin(), other.end());
}

std::strong_ordering StringVector::operator<=>(StringVector other) const noexcept {
  const auto [mine, its] = std::mismatch(begin(), end(), other.begin(), other.end());
  if (mine == end() || its == other.end()) {
    return size() <=> other.size();
  }
  return *mine <=> *its;
}

}  // namespace vx
