// SPDX-License-Identifier: MIT

#include "fs/internal/vx_fs_platform.h"

#include <cstdint>

#include <mach-o/dyld.h>

namespace vx::fs::platform {

int executablePath(char* buffer, std::uint32_t* size) {
  return _NSGetExecutablePath(buffer, size);
}

}  // namespace vx::fs::platform
