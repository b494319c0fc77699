// SPDX-License-Identifier: MIT

#include "tests/testing/log_capture.h"

#include <mutex>
#include <utility>

namespace vx::test {

class LogCapture::Lines {
 public:
  void add(LogLevel level, const String& text) {
    const std::lock_guard lock(mutex_);
    lines_.push_back((level == LogLevel::Error ? "error: " : "warning: ") +
                     std::string(text.view()));
  }

  [[nodiscard]] std::vector<std::string> all() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }

 private:
  mutable std::mutex mutex_;
  std::vector<std::string> lines_;
};

LogCapture::LogCapture() : lines_(std::make_shared<Lines>()) {
  before_ = setLogSink([lines = lines_](LogLevel level, String line) { lines->add(level, line); });
}

LogCapture::~LogCapture() {
  setLogSink(std::move(before_));
}

std::vector<std::string> LogCapture::all() const {
  return lines_->all();
}

}  // namespace vx::test
