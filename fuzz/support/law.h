// SPDX-License-Identifier: MIT
//
// What a fuzzer does with a law that does not hold: it says which, and ends the process, so that
// the input is kept.

#pragma once

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

namespace vx::fuzz {

/// The text with every byte that is not plain ASCII as "\xNN".
inline std::string printable(std::string_view text) {
  std::string shown;
  for (const char c : text) {
    if (c >= ' ' && c <= '~' && c != '\\') {
      shown += c;
      continue;
    }
    char escaped[5];
    std::snprintf(escaped, sizeof escaped, "\\x%02x", static_cast<unsigned char>(c));
    shown += escaped;
  }
  return shown;
}

[[noreturn]] inline void fail(std::string_view law, const std::string& detail) {
  std::fprintf(stderr, "does not hold: %.*s\n%s\n", static_cast<int>(law.size()), law.data(),
               printable(detail).c_str());
  std::abort();
}

inline void expect(std::string_view law, bool holds, const std::string& detail = {}) {
  if (!holds) {
    fail(law, detail);
  }
}

/// Compares what the library gives with what is right; `detail` says for which input.
template <class Actual, class Right>
void expectEqual(std::string_view law, const Actual& actual, const Right& right,
                 std::string_view detail = {}) {
  if (actual == right) {
    return;
  }
  std::ostringstream shown;
  shown << "for [" << detail << "]: [" << actual << "], not [" << right << "]";
  fail(law, shown.str());
}

}  // namespace vx::fuzz
