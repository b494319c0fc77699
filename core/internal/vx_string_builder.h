// SPDX-License-Identifier: MIT
//
// Builds a string with a known maximum length in one block of memory.

#pragma once

#include "core/vx_string.h"

#include <cassert>
#include <cstddef>
#include <cstring>
#include <string_view>
#include <utility>

#pragma GCC visibility push(hidden)
namespace vx::internal {

class StringBuilder {
 public:
  /// Allocates a block for `capacity` bytes if that is not 0.
  explicit StringBuilder(std::size_t capacity) : capacity_(capacity) {
    if (capacity != 0) {
      string_ = String(*String::Text::create(capacity));
      bytes_ = string_.text()->bytes();
    }
  }

  StringBuilder(const StringBuilder&) = delete;
  StringBuilder& operator=(const StringBuilder&) = delete;

  void append(std::string_view added) noexcept {
    assert(added.size() <= capacity_ - length_);
    if (added.empty()) {
      return;
    }
    assert(bytes_ != nullptr);
    std::memcpy(bytes_ + length_, added.data(), added.size());
    length_ += added.size();
  }

  void append(char added) noexcept {
    assert(length_ < capacity_);
    bytes_[length_++] = added;
  }

  void truncate(std::size_t length) noexcept { length_ = length; }

  [[nodiscard]] std::string_view view() const noexcept { return {bytes_, length_}; }

  /// Returns the string. The builder must not be used afterwards.
  [[nodiscard]] String finish() noexcept {
    if (length_ == 0) {
      return {};
    }
    string_.text()->setLength(length_);
    return std::move(string_);
  }

 private:
  String string_;
  char* bytes_ = nullptr;
  std::size_t length_ = 0;
  [[maybe_unused]] std::size_t capacity_;  // for the assertions
};

}  // namespace vx::internal
#pragma GCC visibility pop
