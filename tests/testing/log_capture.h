// SPDX-License-Identifier: MIT
//
// What the code under test logs.
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

/// The given texts as a list, to compare a list of lines with; none for silence.
template <class... Texts>
[[nodiscard]] std::vector<std::string> lines(const Texts&... texts) {
  return {std::string(texts)...};
}

/// Keeps the lines that are logged while it lives, on whatever thread, in place of writing them.
/// Captures may be nested; the sink before comes back at the end.
class LogCapture {
 public:
  LogCapture();
  LogCapture(const LogCapture&) = delete;
  LogCapture& operator=(const LogCapture&) = delete;
  ~LogCapture();

  /// Every line in order, "error: " or "warning: " before it.
  [[nodiscard]] std::vector<std::string> all() const;

 private:
  class Lines;

  std::shared_ptr<Lines> lines_;
  LogSink before_;
};

}  // namespace vx::test
