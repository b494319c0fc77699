// SPDX-License-Identifier: MIT
//
// Plain C with the same system calls as the library, for the benchmarks to compare with.

#pragma once

#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string>

#include <dirent.h>
#include <limits.h>
#include <strings.h>
#include <sys/stat.h>

namespace vx::bench {

/// Returns the number of files in a directory with the extension png.
inline std::size_t listInC(const std::string& path) {
  std::size_t found = 0;
  DIR* const directory = ::opendir(path.c_str());
  while (const dirent* const entry = ::readdir(directory)) {
    if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) {
      continue;
    }
    char full[PATH_MAX];
    std::snprintf(full, sizeof full, "%s/%s", path.c_str(), entry->d_name);
    struct stat status;
    if (::stat(full, &status) == 0 && !S_ISDIR(status.st_mode)) {
      const char* const dot = std::strrchr(entry->d_name, '.');
      found += dot != nullptr && ::strcasecmp(dot, ".png") == 0 ? 1 : 0;
    }
  }
  ::closedir(directory);
  return found;
}

}  // namespace vx::bench
