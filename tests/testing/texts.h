// SPDX-License-Identifier: MIT
//
// Converts strings and lists to types of the standard library, to compare and print them, and back.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <string>
#include <string_view>
#include <vector>

namespace vx::test {

/// Returns the bytes, NUL included.
[[nodiscard]] inline std::string text(const String& value) {
  return std::string(value.view());
}

/// Returns the elements in order.
[[nodiscard]] inline std::vector<std::string> texts(const StringVector& values) {
  std::vector<std::string> result;
  for (const String& value : values) {
    result.push_back(text(value));
  }
  return result;
}

/// Returns the text as a String, NUL included.
[[nodiscard]] inline String vxText(const std::string& text) {
  return String(std::string_view(text));
}

}  // namespace vx::test
