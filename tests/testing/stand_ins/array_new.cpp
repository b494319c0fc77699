#include "tests/testing/stand_ins/array_new.h"

#include <cstdlib>
#include <new>

namespace vx::test {
namespace {

ArrayNewLog* current = nullptr;

}  // namespace

ArrayNewLog::ArrayNewLog() {
  current = this;
}

ArrayNewLog::~ArrayNewLog() {
  current = nullptr;
}

void ArrayNewLog::note(void* address, std::size_t size, bool isNew) {
  if (current != nullptr && address != nullptr) {
    // The list itself is allocated with the plain new.
    current->events_.push_back({.address = address, .size = size, .isNew = isNew});
  }
}

std::vector<std::string> ArrayNewLog::events() const {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < events_.size(); ++i) {
    texts.push_back(events_[i].isNew ? "new " + std::to_string(events_[i].size)
                                     : "delete " + sizeOfDeleted(i));
  }
  return texts;
}

std::string ArrayNewLog::sizeOfDeleted(std::size_t event) const {
  for (std::size_t i = event; i-- > 0;) {
    if (events_[i].isNew && events_[i].address == events_[event].address) {
      return std::to_string(events_[i].size);
    }
  }
  return "?";
}

}  // namespace vx::test

void* operator new[](std::size_t size) {
  void* const array = std::malloc(size);
  if (array == nullptr) {
    throw std::bad_alloc();
  }
  vx::test::ArrayNewLog::note(array, size, /*isNew=*/true);
  return array;
}

void operator delete[](void* array) noexcept {
  vx::test::ArrayNewLog::note(array, 0, /*isNew=*/false);
  std::free(array);
}

void operator delete[](void* array, std::size_t /*size*/) noexcept {
  operator delete[](array);
}
