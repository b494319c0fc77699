// SPDX-License-Identifier: MIT
//
// The functions that differ by platform. The build compiles the source file of the target platform.

#pragma once

#include <cstdint>

#pragma GCC visibility push(hidden)
namespace vx::fs::platform {

/// Writes the NUL-terminated path of the running executable to `buffer`.
///
/// The path is not resolved: it may contain symbolic links or "." components and may no longer
/// exist. The current error is unchanged; `errno` may change. Thread-safe.
///
/// @param buffer has `*size` bytes; may be null if `*size` is 0.
/// @param size the size of the buffer. On failure it is set to the required size including the
///   terminating NUL, or to 0 if the system does not report the path.
/// @return 0 on success, -1 if the buffer is too small or the system does not report the path.
int executablePath(char* buffer, std::uint32_t* size);

}  // namespace vx::fs::platform
#pragma GCC visibility pop
