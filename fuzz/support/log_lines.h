// SPDX-License-Identifier: MIT
//
// The lines that the library logs, for a fuzzer to look at.

#pragma once

#include "core/vx_log.h"

#include <string>
#include <utility>
#include <vector>

namespace vx::fuzz {

/// Keeps the lines that are logged while it lives, with "error: " or "warning: " before each.
class LogLines {
 public:
  LogLines()
      : before_(setLogSink([this](LogLevel level, const String& line) {
          lines_.push_back((level == LogLevel::Error ? "error: " : "warning: ") +
                           std::string(line.view()));
        })) {}
  LogLines(const LogLines&) = delete;
  LogLines& operator=(const LogLines&) = delete;
  ~LogLines() { setLogSink(std::move(before_)); }

  [[nodiscard]] const std::vector<std::string>& lines() const noexcept { return lines_; }

 private:
  std::vector<std::string> lines_;
  LogSink before_;
};

}  // namespace vx::fuzz
