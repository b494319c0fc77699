// SPDX-License-Identifier: MIT
//
// Assertions for fuzzers. A failure prints the violated invariant and aborts, so that the fuzzing
// engine keeps the input.

#pragma once

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>
#include <string_view>

namespace vx::fuzz {

/// Returns the text with every non-printable or non-ASCII byte as "\xNN".
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

/// Compares a result with the expected one. `detail` identifies the input.
template <class Actual, class Expected>
void expectEqual(std::string_view law, const Actual& actual, const Expected& expected,
                 std::string_view detail = {}) {
  if (actual == expected) {
    return;
  }
  std::ostringstream shown;
  shown << "for [" << detail << "]: [" << actual << "], not [" << expected << "]";
  fail(law, shown.str());
}

}  // namespace vx::fuzz
