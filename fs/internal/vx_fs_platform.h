// SPDX-License-Identifier: MIT
//
// What differs by platform, and nothing else. One source per platform defines it; the build picks.

#pragma once

#include <cstdint>

#pragma GCC visibility push(hidden)
namespace vx::fs::platform {

/// Writes the NUL-terminated path of the running executable to `buffer`.
///
/// The path is the system's own: it may hold symbolic links or "." components, and need not exist
/// any more. Touches no error state; may change `errno`. Safe from any thread.
///
/// @param buffer room for `*size` bytes; may be null when `*size` is 0.
/// @param size in: the room; out, on -1: the bytes needed, terminating NUL included, or 0 when the
///   system does not tell the path at all. Unchanged on success.
/// @return 0 on success, -1 when the room is too small or the path cannot be had.
int executablePath(char* buffer, std::uint32_t* size);

}  // namespace vx::fs::platform
#pragma GCC visibility pop
