// SPDX-License-Identifier: MIT
//
// The library's values as the standard library's, to compare and print them whole, and back.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <string>
#include <string_view>
#include <vector>

namespace vx::test {

/// The bytes, NUL included.
[[nodiscard]] inline std::string text(const String& value) {
  return std::string(value.view());
}

/// The elements in order.
[[nodiscard]] inline std::vector<std::string> texts(const StringVector& values) {
  std::vector<std::string> result;
  for (const String& value : values) {
    result.push_back(text(value));
  }
  return result;
}

/// The library's form of a text, NUL included.
[[nodiscard]] inline String vxText(const std::string& text) {
  return String(std::string_view(text));
}

}  // namespace vx::test
