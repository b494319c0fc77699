#include "tools/ksz/console.h"

#include "core/vx_log.h"

#include <algorithm>
#include <cstddef>
#include <cstdio>

namespace ksz {
namespace {

constexpr int kBarWidth = 30;
constexpr std::size_t kNameWidth = 40;
constexpr const char* kEraseLine = "\r\033[K";

/// The first `kNameWidth` characters of a UTF-8 text, since a line that wraps cannot be redrawn.
std::string clipped(std::string text) {
  std::size_t characters = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool continues = (static_cast<unsigned char>(text[i]) & 0xc0) == 0x80;
    if (!continues && characters++ == kNameWidth) {
      text.resize(i);
    }
  }
  return text;
}

void print(vx::LogLevel level, vx::String line) {
  const char* const prefix = level == vx::LogLevel::Error ? "error" : "warning";
  std::fprintf(stderr, "%s: %s\n", prefix, printable(line).c_str());
}

}  // namespace

std::string printable(vx::String text) {
  std::string shown(text.view());
  const auto isControl = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; };
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  return shown;
}

int fail(const char* reason, vx::String name) {
  std::fprintf(stderr, "ksz: %s: %s\n", reason, printable(name).c_str());
  return kExitFailure;
}

void Progress::show(double fraction, vx::String file) const {
  const int percent = static_cast<int>(fraction * 100);
  if (!onTerminal_) {
    std::printf("%3d%% %s\n", percent, printable(file).c_str());
  } else {
    const std::string filled(static_cast<std::size_t>(fraction * kBarWidth), '#');
    std::printf("%s[%-*s] %3d%% %s", kEraseLine, kBarWidth, filled.c_str(), percent,
                clipped(printable(file)).c_str());
  }
  std::fflush(stdout);
}

void Progress::erase() const {
  if (onTerminal_) {
    std::printf("%s", kEraseLine);
    std::fflush(stdout);
  }
}

void Progress::complete(vx::String file) const {
  show(1.0, file);
  if (onTerminal_) {
    std::printf("\n");
  }
}

Messages::Messages() {
  vx::setLogSink([this](vx::LogLevel level, vx::String line) {
    print(level, line);
    ++count_;
  });
}

Messages::Messages(const Progress& progress) {
  vx::setLogSink([this, &progress](vx::LogLevel level, vx::String line) {
    progress.erase();
    print(level, line);
    ++count_;
  });
}

Messages::~Messages() {
  vx::setLogSink({});
}

}  // namespace ksz
