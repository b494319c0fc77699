#include "core/vx_log.h"

#include "core/internal/vx_string_builder.h"

#include <array>
#include <cstdarg>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <mutex>
#include <string_view>
#include <utility>

namespace vx {
namespace {

struct SinkSlot {
  std::recursive_mutex mutex;  // a sink may log, or set another sink
  std::shared_ptr<const LogSink> sink;
};

SinkSlot& sinkSlot() {
  // Never destroyed, so that the destructors of static objects may still log.
  static SinkSlot& slot = *new SinkSlot;
  return slot;
}

void writeToStandardError(LogLevel level, std::string_view line) {
  const std::string_view prefix = level == LogLevel::Error ? "error: " : "warning: ";
  StringBuilder whole(prefix.size() + line.size() + 1);
  whole.append(prefix);
  whole.append(line);
  whole.append('\n');
  // One call, so that neither another thread nor another process gets between its bytes.
  std::fwrite(whole.view().data(), 1, whole.view().size(), stderr);
}

void write(LogLevel level, String line) {
  SinkSlot& slot = sinkSlot();
  const std::lock_guard<std::recursive_mutex> lock(slot.mutex);
  // A copy keeps the sink alive while it runs, should it set another.
  if (const std::shared_ptr<const LogSink> sink = slot.sink) {
    (*sink)(level, std::move(line));
    return;
  }
  writeToStandardError(level, line.view());
}

[[gnu::format(printf, 1, 0)]] String formatted(const char* format, std::va_list arguments) {
  std::va_list again;
  va_copy(again, arguments);
  std::array<char, 512> small{};
  const int length = std::vsnprintf(small.data(), small.size(), format, arguments);
  String line;
  if (length >= 0 && static_cast<std::size_t>(length) < small.size()) {
    line = String(std::string_view(small.data(), static_cast<std::size_t>(length)));
  } else if (length >= 0) {
    const auto large = std::make_unique<char[]>(static_cast<std::size_t>(length) + 1);
    std::vsnprintf(large.get(), static_cast<std::size_t>(length) + 1, format, again);
    line = String(std::string_view(large.get(), static_cast<std::size_t>(length)));
  }
  va_end(again);
  return line;
}

}  // namespace

void logError(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  write(LogLevel::Error, formatted(format, arguments));
  va_end(arguments);
}

void logWarning(const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  write(LogLevel::Warning, formatted(format, arguments));
  va_end(arguments);
}

LogSink setLogSink(LogSink sink) {
  SinkSlot& slot = sinkSlot();
  auto incoming = sink ? std::make_shared<const LogSink>(std::move(sink)) : nullptr;
  const std::lock_guard<std::recursive_mutex> lock(slot.mutex);
  slot.sink.swap(incoming);
  return incoming ? *incoming : LogSink();
}

}  // namespace vx
