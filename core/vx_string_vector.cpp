#include "core/vx_string_vector.h"

#include "core/vx_string_builder.h"

#include <memory>
#include <new>
#include <utility>

namespace vx {

struct StringVector::Items final : RefCounted {
  std::size_t size = 0;
  std::size_t capacity = 0;

  [[nodiscard]] String* elements() noexcept { return reinterpret_cast<String*>(this + 1); }

  void append(String element) noexcept {
    new (elements() + size) String(std::move(element));
    ++size;
  }

  /// A block with room for `capacity` elements that holds none yet.
  static Items* create(std::size_t capacity) {
    static_assert(sizeof(Items) % alignof(String) == 0);
    auto* const items = new (::operator new(sizeof(Items) + capacity * sizeof(String))) Items;
    items->capacity = capacity;
    return items;
  }

 private:
  void destroy() noexcept override {
    std::destroy_n(elements(), size);
    this->~Items();
    ::operator delete(this);
  }
};

StringVector::Items* StringVector::items() const noexcept {
  return static_cast<Items*>(implementation());
}

StringVector::StringVector(std::initializer_list<String> elements) {
  if (elements.size() == 0) {
    return;
  }
  Items* const created = Items::create(elements.size());
  for (const String& element : elements) {
    created->append(element);
  }
  RefersTo::operator=(RefersTo(created));
}

void StringVector::push_back(String element) {
  Items* const held = items();
  if (held != nullptr && held->isUnique() && held->size < held->capacity) {
    held->append(std::move(element));
    return;
  }
  constexpr std::size_t kFirstCapacity = 4;
  Items* const grown = Items::create(held == nullptr ? kFirstCapacity : held->size * 2);
  for (std::size_t i = 0; i < size(); ++i) {
    // Elements that nobody else sees move over; shared ones are copied.
    String& kept = held->elements()[i];
    grown->append(held->isUnique() ? std::move(kept) : kept);
  }
  grown->append(std::move(element));
  RefersTo::operator=(RefersTo(grown));
}

const String* StringVector::begin() const noexcept {
  return items() == nullptr ? nullptr : items()->elements();
}

const String* StringVector::end() const noexcept {
  return begin() + size();
}

String StringVector::operator[](std::size_t index) const noexcept {
  return index < size() ? begin()[index] : String();
}

std::size_t StringVector::size() const noexcept {
  return items() == nullptr ? 0 : items()->size;
}

String StringVector::join(String separator) const {
  if (empty()) {
    return {};
  }
  std::size_t length = (size() - 1) * separator.length();
  for (const String& element : *this) {
    length += element.length();
  }
  StringBuilder builder(length);
  builder.append(begin()->view());
  for (const String* element = begin() + 1; element != end(); ++element) {
    builder.append(separator.view());
    builder.append(element->view());
  }
  return builder.finish();
}

}  // namespace vx
