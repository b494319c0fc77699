// SPDX-License-Identifier: MIT
//
// Converts a fuzzer's input bytes to choices. Reading past the end returns 0, so inputs of any
// length are valid.

#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace vx::fuzz {

class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) noexcept
      : rest_(reinterpret_cast<const char*>(data), size) {}

  [[nodiscard]] bool isSpent() const noexcept { return rest_.empty(); }

  unsigned char byte() noexcept {
    if (rest_.empty()) {
      return 0;
    }
    const auto first = static_cast<unsigned char>(rest_.front());
    rest_.remove_prefix(1);
    return first;
  }

  bool flag() noexcept { return (byte() & 1U) != 0; }

  /// Returns a number less than `bound`, which must be at most 65,536.
  std::size_t below(std::size_t bound) noexcept {
    const std::size_t low = byte();
    const std::size_t number = bound > 256 ? low | static_cast<std::size_t>(byte()) << 8U : low;
    return number % bound;
  }

  /// Returns an element of `table`.
  template <class Table>
  const auto& oneOf(const Table& table) noexcept {
    return table[below(std::size(table))];
  }

  /// Returns up to `longest` of the next bytes.
  std::string_view bytes(std::size_t longest) noexcept {
    const std::string_view taken = rest_.substr(0, std::min(below(longest + 1), rest_.size()));
    rest_.remove_prefix(taken.size());
    return taken;
  }

  /// Returns up to `longest` characters of `alphabet`. A small alphabet makes common substrings
  /// likely.
  std::string text(std::string_view alphabet, std::size_t longest) {
    std::string made(bytes(longest));
    for (char& c : made) {
      c = alphabet[static_cast<unsigned char>(c) % alphabet.size()];
    }
    return made;
  }

 private:
  std::string_view rest_;
};

}  // namespace vx::fuzz
