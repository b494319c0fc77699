// SPDX-License-Identifier: MIT

#include "tools/ksz/console.h"

#include "core/vx_log.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>
#include <string_view>

#include <fcntl.h>
#include <sys/ioctl.h>

namespace ksz {
namespace {

constexpr std::size_t kBarWidth = 30;
constexpr std::size_t kNameWidth = 40;
constexpr std::size_t kDefaultColumns = 80;
constexpr const char* kEraseLine = "\r\033[K";

// ---- Text -------------------------------------------------------------------------------------

unsigned char byteAt(std::string_view text, std::size_t index) {
  return index < text.size() ? static_cast<unsigned char>(text[index]) : 0;
}

/// Returns the length of a UTF-8 character from its first byte, or 0 for any other byte.
std::size_t lengthFromFirstByte(unsigned char byte) {
  if (byte < 0x80) {
    return 1;
  }
  if (byte < 0xc2 || byte > 0xf4) {
    return 0;
  }
  return byte < 0xe0 ? 2 : byte < 0xf0 ? 3 : 4;
}

/// Returns the length of the character at the start of `text`, or 1 for an invalid byte.
std::size_t characterLength(std::string_view text) {
  const unsigned char first = byteAt(text, 0);
  const unsigned char second = byteAt(text, 1);
  const std::size_t length = lengthFromFirstByte(first);
  const bool isOverlong = (first == 0xe0 && second < 0xa0) || (first == 0xf0 && second < 0x90);
  if (length == 0 || isOverlong) {
    return 1;
  }
  for (std::size_t i = 1; i < length; ++i) {
    if ((byteAt(text, i) & 0xc0) != 0x80) {
      return 1;
    }
  }
  return length;
}

bool isControl(std::string_view character) {
  const unsigned char first = byteAt(character, 0);
  if (character.size() == 1) {
    return first < 0x20 || (first >= 0x7f && first < 0xa0);
  }
  return first == 0xc2 && byteAt(character, 1) < 0xa0;
}

/// Returns an upper bound of a character's width. No character before U+1100 is wide.
std::size_t columnsOf(std::string_view character) {
  return character.size() >= 3 ? 2 : 1;
}

/// Returns the longest prefix of `text` that fits in `columns`.
std::string clipped(const std::string& text, std::size_t columns) {
  std::string_view rest = text;
  std::size_t used = 0;
  while (!rest.empty()) {
    const std::string_view character = rest.substr(0, characterLength(rest));
    used += columnsOf(character);
    if (used > columns) {
      break;
    }
    rest.remove_prefix(character.size());
  }
  return text.substr(0, text.size() - rest.size());
}

/// Replaces every `from` in `line` with `to`.
std::string replaced(std::string line, std::string_view from, std::string_view to) {
  std::size_t found = from.empty() ? std::string::npos : line.find(from);
  while (found != std::string::npos) {
    line.replace(found, from.size(), to);
    found = line.find(from, found + to.size());
  }
  return line;
}

// ---- The bar ----------------------------------------------------------------------------------

/// Returns the width of the terminal without the last column, because some terminals move the
/// cursor to the next line after the last column. Not cached, because a window can be resized.
std::size_t freeColumns() {
  winsize size = {};
  const bool known = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return (known ? size.ws_col : kDefaultColumns) - 1;
}

/// Returns "[####    ]  50% name", without the bar if the terminal is narrow.
std::string line(double fraction, const std::string& name, std::size_t columns) {
  constexpr std::size_t kAround = sizeof("[]  50% ") - 1;
  constexpr std::size_t kNarrowestName = 12;
  constexpr std::size_t kNarrowestBar = 5;
  const std::size_t taken = kAround + std::min(name.size(), kNarrowestName);
  const std::size_t room = columns > taken ? columns - taken : 0;
  const std::size_t width = std::min(kBarWidth, room);
  std::string text;
  if (width >= kNarrowestBar) {
    const auto filled = static_cast<std::size_t>(fraction * static_cast<double>(width));
    text = "[" + std::string(filled, '#') + std::string(width - filled, ' ') + "] ";
  }
  const std::string percent = std::to_string(static_cast<int>(fraction * 100));
  text += std::string(3 - percent.size(), ' ') + percent + "% ";
  const std::size_t left = columns > text.size() ? columns - text.size() : 0;
  return clipped(text + clipped(name, std::min(left, kNameWidth)), columns);
}

void print(vx::LogLevel level, const std::string& line) {
  const char* const prefix = level == vx::LogLevel::Error ? "error" : "warning";
  std::fprintf(stderr, "%s: %s\n", prefix, printable(text(line)).c_str());
}

}  // namespace

vx::String text(const std::string& value) {
  return vx::String(std::string_view(value));
}

std::string printable(vx::String text) {
  std::string shown;
  std::string_view rest = text.view();
  while (!rest.empty()) {
    const std::string_view character = rest.substr(0, characterLength(rest));
    shown += isControl(character) ? "?" : character;
    rest.remove_prefix(character.size());
  }
  return shown;
}

void complain(const char* reason, vx::String name) {
  std::fprintf(stderr, "ksz: %s: %s\n", reason, printable(name).c_str());
}

int fail(const char* reason, vx::String name) {
  complain(reason, name);
  return kExitFailure;
}

void openClosedStreams() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(descriptor, F_GETFD) == -1) {
      open("/dev/null", O_RDWR);  // gets the lowest free descriptor
    }
  }
}

int finishOutput(int status) {
  errno = 0;
  if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) {
    return status;
  }
  std::fprintf(stderr, "ksz: standard output cannot be written: %s\n", std::strerror(errno));
  return kExitFailure;
}

void Progress::show(double fraction, vx::String file) const {
  if (quiet_) {
    return;
  }
  const std::string name = printable(file);
  if (onTerminal_) {
    std::fprintf(stderr, "%s%s", kEraseLine, line(fraction, name, freeColumns()).c_str());
  } else {
    std::fprintf(stderr, "%3d%% %s\n", static_cast<int>(fraction * 100), name.c_str());
  }
}

void Progress::erase() const {
  if (onTerminal_ && !quiet_) {
    std::fputs(kEraseLine, stderr);
  }
}

void Progress::complete(vx::String file) const {
  show(1.0, file);
  if (onTerminal_ && !quiet_) {
    std::fputs("\n", stderr);
  }
}

Messages::Messages() : Messages("", "") {}

Messages::Messages(vx::String from, vx::String to) {
  vx::setLogSink([this, from, to](vx::LogLevel level, vx::String line) {
    print(level, replaced(std::string(line.view()), from.view(), to.view()));
    ++count_;
  });
}

Messages::Messages(const Progress& progress, vx::String from, vx::String to) {
  vx::setLogSink([this, &progress, from, to](vx::LogLevel level, vx::String line) {
    progress.erase();
    print(level, replaced(std::string(line.view()), from.view(), to.view()));
    ++count_;
  });
}

Messages::~Messages() {
  vx::setLogSink({});
}

}  // namespace ksz
