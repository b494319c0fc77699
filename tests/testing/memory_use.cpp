// SPDX-License-Identifier: MIT

#include "tests/testing/memory_use.h"

#include <array>
#include <cstdint>
#include <cstdlib>

#include <dlfcn.h>

#ifdef VX_TEST_SANITIZED_HEAP
// Declared here, since not every compiler with sanitizers has the header.
extern "C" int __sanitizer_install_malloc_and_free_hooks(
    void (*allocated)(const volatile void* block, std::size_t size),
    void (*freed)(const volatile void* block));
#endif

namespace vx::test {
namespace {

/// The addresses of the counted blocks, in a table that does not use the heap.
class AddressSet {
 public:
  void insert(const void* address) noexcept {
    std::size_t slot = slotOf(address);
    while (slots_[slot] != nullptr) {
      slot = (slot + 1) % kSlots;
    }
    slots_[slot] = address;
    ++size_;
    ++inserted_;
    if (inserted_ == kSlots / 2) {
      std::abort();  // what is removed keeps its slot too, so the table fills with every insertion
    }
  }

  void erase(const void* address) noexcept {
    for (std::size_t slot = slotOf(address); slots_[slot] != nullptr; slot = (slot + 1) % kSlots) {
      if (slots_[slot] == address) {
        slots_[slot] = &removed_;
        --size_;
        return;
      }
    }
  }

  void clear() noexcept {
    slots_.fill(nullptr);
    size_ = 0;
    inserted_ = 0;
  }

  [[nodiscard]] std::size_t size() const noexcept { return size_; }

 private:
  static constexpr std::size_t kSlots = std::size_t{1} << 16U;

  static std::size_t slotOf(const void* address) noexcept {
    return (reinterpret_cast<std::uintptr_t>(address) >> 4U) * 0x9E3779B97F4A7C15U % kSlots;
  }

  std::array<const void*, kSlots> slots_{};
  std::size_t size_ = 0;
  std::size_t inserted_ = 0;
  char removed_ = 0;
};

constinit AddressSet counted;
constinit HeapUse used;
constinit bool isCounting = false;
constinit bool isWatching = false;  // frees are noticed

void blockAllocated(const void* block, std::size_t size) noexcept {
  if (isCounting && block != nullptr) {
    counted.insert(block);
    ++used.allocations;
    used.bytes += size;
  }
}

void blockFreed(const void* block) noexcept {
  if (block == nullptr) {
    return;
  }
  if (isWatching) {
    counted.erase(block);
  }
  if (isCounting) {
    ++used.frees;
  }
}

}  // namespace

LiveBlocks::LiveBlocks() {
#ifdef VX_TEST_SANITIZED_HEAP
  static const bool hooked = [] {
    return __sanitizer_install_malloc_and_free_hooks(
               [](const volatile void* block, std::size_t size) {
                 blockAllocated(const_cast<const void*>(block), size);
               },
               [](const volatile void* block) { blockFreed(const_cast<const void*>(block)); }) != 0;
  }();
  if (!hooked) {
    std::abort();
  }
#endif
  counted.clear();
  used = {};
  isWatching = true;
  isCounting = true;
}

LiveBlocks::~LiveBlocks() {
  isCounting = false;
  isWatching = false;
}

void LiveBlocks::stop() noexcept {
  isCounting = false;
}

std::size_t LiveBlocks::count() const noexcept {
  return counted.size();
}

HeapUse LiveBlocks::use() const noexcept {
  return used;
}

LiveBlocks::Pause::Pause() noexcept : wasCounting_(isCounting) {
  isCounting = false;
}

LiveBlocks::Pause::~Pause() {
  isCounting = wasCounting_;
}

}  // namespace vx::test

#ifndef VX_TEST_SANITIZED_HEAP

// NOLINTBEGIN(bugprone-reserved-identifier, *-inconsistent-declaration-parameter-name)
extern "C" {
#ifdef __GLIBC__
// The names under which the C library offers its heap to those who replace it: its dlsym allocates.
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* block, std::size_t size);
void* __libc_memalign(std::size_t alignment, std::size_t size);
void __libc_free(void* block);
#else
// Some of them are made of malloc and free, which must not count again.
#define VX_REAL(function) \
  static const auto real = reinterpret_cast<decltype(&::function)>(::dlsym(RTLD_NEXT, #function))

static void* __libc_malloc(std::size_t size) {
  VX_REAL(malloc);
  return real(size);
}

static void* __libc_calloc(std::size_t count, std::size_t size) {
  VX_REAL(calloc);
  const vx::test::LiveBlocks::Pause pause;
  return real(count, size);
}

static void* __libc_realloc(void* block, std::size_t size) {
  VX_REAL(realloc);
  const vx::test::LiveBlocks::Pause pause;
  return real(block, size);
}

static void* __libc_memalign(std::size_t alignment, std::size_t size) {
  VX_REAL(aligned_alloc);
  const vx::test::LiveBlocks::Pause pause;
  return real(alignment, size);
}

static void __libc_free(void* block) {
  VX_REAL(free);
  real(block);
}
#endif

void* malloc(std::size_t size) {
  void* const block = __libc_malloc(size);
  vx::test::blockAllocated(block, size);
  return block;
}

void* calloc(std::size_t count, std::size_t size) {
  void* const block = __libc_calloc(count, size);
  vx::test::blockAllocated(block, count * size);
  return block;
}

void* realloc(void* block, std::size_t size) {
  vx::test::blockFreed(block);
  void* const moved = __libc_realloc(block, size);
  vx::test::blockAllocated(moved == nullptr ? block : moved, size);
  return moved;
}

void* aligned_alloc(std::size_t alignment, std::size_t size) {
  void* const block = __libc_memalign(alignment, size);
  vx::test::blockAllocated(block, size);
  return block;
}

void free(void* block) {
  vx::test::blockFreed(block);
  __libc_free(block);
}
}
// NOLINTEND(bugprone-reserved-identifier, *-inconsistent-declaration-parameter-name)

#endif
