// SPDX-License-Identifier: MIT

#include "tests/testing/log_capture.h"

#include <mutex>
#include <utility>

namespace vx::test {

class LogCapture::Lines {
 public:
  void add(LogLevel level, const String& text) {
    const std::lock_guard lock(mutex_);
    lines_.push_back({level, std::string(text.view())});
  }

  [[nodiscard]] std::vector<std::string> of(LogLevel level) const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> texts;
    for (const Line& line : lines_) {
      if (line.level == level) {
        texts.push_back(line.text);
      }
    }
    return texts;
  }

  [[nodiscard]] std::vector<std::string> all() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::string> texts;
    for (const Line& line : lines_) {
      texts.push_back((line.level == LogLevel::Error ? "error: " : "warning: ") + line.text);
    }
    return texts;
  }

 private:
  struct Line {
    LogLevel level;
    std::string text;
  };

  mutable std::mutex mutex_;
  std::vector<Line> lines_;
};

LogCapture::LogCapture() : lines_(std::make_shared<Lines>()) {
  before_ = setLogSink([lines = lines_](LogLevel level, String line) { lines->add(level, line); });
}

LogCapture::~LogCapture() {
  setLogSink(std::move(before_));
}

std::vector<std::string> LogCapture::errors() const {
  return lines_->of(LogLevel::Error);
}

std::vector<std::string> LogCapture::warnings() const {
  return lines_->of(LogLevel::Warning);
}

std::vector<std::string> LogCapture::all() const {
  return lines_->all();
}

}  // namespace vx::test
