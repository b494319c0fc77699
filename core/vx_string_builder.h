// Builds one string in one block, for code that knows how long it can get. Private to the library.

#pragma once

#include "core/vx_string.h"

#include <cassert>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace vx {

/// Copies `length` bytes between places that do not overlap. Names and separators are mostly so
/// short that a call of memcpy would cost more than they do: up to 16 bytes go as two words that
/// overlap.
inline void copyBytes(char* to, const char* from, std::size_t length) noexcept {
  const auto asTwo = [=](auto word) {
    constexpr std::size_t kSize = sizeof word;
    auto last = word;
    std::memcpy(&word, from, kSize);
    std::memcpy(&last, from + length - kSize, kSize);
    std::memcpy(to, &word, kSize);
    std::memcpy(to + length - kSize, &last, kSize);
  };
  if (length > 2 * sizeof(std::uint64_t)) {
    std::memcpy(to, from, length);
  } else if (length >= sizeof(std::uint64_t)) {
    asTwo(std::uint64_t{});
  } else if (length >= sizeof(std::uint32_t)) {
    asTwo(std::uint32_t{});
  } else if (length >= sizeof(std::uint16_t)) {
    asTwo(std::uint16_t{});
  } else if (length == 1) {
    *to = *from;
  }
}

class StringBuilder {
 public:
  /// Room for `capacity` bytes, all in one block; none for 0.
  explicit StringBuilder(std::size_t capacity);

  StringBuilder(const StringBuilder&) = delete;
  StringBuilder& operator=(const StringBuilder&) = delete;

  void append(std::string_view added) noexcept {
    assert(added.size() <= capacity_ - length_);
    if (added.empty()) {
      return;
    }
    assert(bytes_ != nullptr);
    copyBytes(bytes_ + length_, added.data(), added.size());
    length_ += added.size();
  }

  void append(char added) noexcept {
    assert(length_ < capacity_);
    bytes_[length_++] = added;
  }

  void truncate(std::size_t length) noexcept { length_ = length; }

  [[nodiscard]] std::string_view view() const noexcept { return {bytes_, length_}; }

  /// The string; the builder is spent.
  [[nodiscard]] String finish() noexcept;

 private:
  String string_;
  char* bytes_ = nullptr;
  std::size_t length_ = 0;
  std::size_t capacity_;
};

}  // namespace vx
