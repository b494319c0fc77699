// Builds one string in one block, for code that knows how long it can get. Private to the library.

#pragma once

#include "core/vx_string.h"

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <string_view>

namespace vx {

class StringBuilder {
 public:
  /// Room for `capacity` bytes, all in one block; none for 0.
  explicit StringBuilder(std::size_t capacity);

  StringBuilder(const StringBuilder&) = delete;
  StringBuilder& operator=(const StringBuilder&) = delete;

  void append(std::string_view added) noexcept {
    assert(added.size() <= capacity_ - length_);
    std::copy_n(added.data(), added.size(), bytes_ + length_);
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
  char* bytes_;
  std::size_t length_ = 0;
  std::size_t capacity_;
};

}  // namespace vx
