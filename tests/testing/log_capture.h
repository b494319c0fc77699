// SPDX-License-Identifier: MIT
//
// Captures what the code under test logs.
//
//   LogCapture log;
//   EXPECT_FALSE(vx::fs::mkDir(path));
//   EXPECT_EQ(log.all(), lines("error: Failed to create dir: ..."));

#pragma once

#include "core/vx_log.h"

#include <memory>
#include <string>
#include <vector>

namespace vx::test {

/// Returns the given texts as a list, to compare logged lines with; no texts for silence.
template <class... Texts>
[[nodiscard]] std::vector<std::string> lines(const Texts&... texts) {
  return {std::string(texts)...};
}

/// Keeps the lines that any thread logs during its lifetime instead of writing them. Captures may
/// be nested; the destructor restores the previous sink.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  /// Returns the lines in order, each with the prefix "error: " or "warning: ".
  [[nodiscard]] std::vector<std::string> all() const;

 private:
  class Lines;

  std::shared_ptr<Lines> lines_;
  LogSink before_;
};

}  // namespace vx::test
