// SPDX-License-Identifier: MIT

#include "fs/internal/vx_fs_platform.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

#include <sys/stat.h>
#include <unistd.h>

namespace vx::fs::platform {
namespace {

constexpr const char* kExecutableLink = "/proc/self/exe";

/// Returns the target of a symbolic link, empty if it cannot be read.
std::string linkTarget(const char* link) {
  constexpr std::size_t kFirstSize = 256;
  std::string target(kFirstSize, '\0');
  for (;;) {
    const ssize_t length = ::readlink(link, target.data(), target.size());
    if (length < 0) {
      return {};
    }
    // If the buffer is full, the target may be longer.
    if (static_cast<std::size_t>(length) < target.size()) {
      target.resize(static_cast<std::size_t>(length));
      return target;
    }
    target.resize(target.size() * 2);
  }
}

bool nameSameEntry(const char* a, const char* b) {
  struct stat statusA;
  struct stat statusB;
  return ::stat(a, &statusA) == 0 && ::stat(b, &statusB) == 0 && statusA.st_dev == statusB.st_dev &&
         statusA.st_ino == statusB.st_ino;
}

/// Returns the path without the suffix that the kernel appends if the file has been removed. The
/// name of an existing executable may end in the same text.
std::string withoutDeletedMark(std::string path) {
  constexpr std::string_view kMark = " (deleted)";
  if (path.ends_with(kMark) && !nameSameEntry(path.c_str(), kExecutableLink)) {
    path.resize(path.size() - kMark.size());
  }
  return path;
}

}  // namespace

int executablePath(char* buffer, std::uint32_t* size) {
  const std::string path = withoutDeletedMark(linkTarget(kExecutableLink));
  if (path.empty()) {
    *size = 0;
    return -1;
  }
  const auto needed = static_cast<std::uint32_t>(path.size() + 1);
  if (*size < needed) {
    *size = needed;
    return -1;
  }
  std::memcpy(buffer, path.c_str(), needed);
  return 0;
}

}  // namespace vx::fs::platform
