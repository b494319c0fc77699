// SPDX-License-Identifier: MIT
//
// Stands in for the header of that name on macOS, so that the source for that system is compiled
// everywhere.

#pragma once

#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/// Writes the NUL-terminated path of the running executable. 0 on success; -1 with the bytes needed
/// in `*bufsize` when it is too small.
int _NSGetExecutablePath(char* buf, uint32_t* bufsize);

#ifdef __cplusplus
}
#endif
