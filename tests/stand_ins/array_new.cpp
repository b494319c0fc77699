#include "tests/stand_ins/array_new.h"

#include <array>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace vx::test {
namespace {

struct Event {
  const void* address = nullptr;
  std::size_t size = 0;
  bool isNew = false;
};

// Filled from inside the allocator, so it may not allocate.
bool isLogging = false;
std::size_t count = 0;
std::array<Event, 256> log;

void note(Event event) {
  if (!isLogging || event.address == nullptr) {
    return;
  }
  if (count == log.size()) {
    std::abort();
  }
  log[count++] = event;
}

/// The size of the array that the event at `index` deletes, as its last allocation before that
/// says.
std::string deletedSize(std::size_t index) {
  for (std::size_t i = index; i-- > 0;) {
    if (log[i].isNew && log[i].address == log[index].address) {
      return std::to_string(log[i].size);
    }
  }
  return "?";
}

}  // namespace

ArrayNewLog::ArrayNewLog() {
  count = 0;
  isLogging = true;
}

ArrayNewLog::~ArrayNewLog() {
  isLogging = false;
}

std::vector<std::string> ArrayNewLog::events() const {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < count; ++i) {
    texts.push_back(log[i].isNew ? "new " + std::to_string(log[i].size)
                                 : "delete " + deletedSize(i));
  }
  return texts;
}

}  // namespace vx::test

void* operator new[](std::size_t size) {
  void* const array = std::malloc(size);
  if (array == nullptr) {
    throw std::bad_alloc();
  }
  vx::test::note({array, size, true});
  return array;
}

void operator delete[](void* array) noexcept {
  vx::test::note({array, 0, false});
  std::free(array);
}

void operator delete[](void* array, std::size_t /*size*/) noexcept {
  operator delete[](array);
}
