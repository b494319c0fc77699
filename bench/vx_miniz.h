// SPDX-License-Identifier: MIT
//
// Identifies the miniz that a measurement uses: the pinned build makes other system calls than a
// build from a package manager.

#pragma once

// miniz would otherwise define the names of zlib, which minizip includes.
#define MINIZ_NO_ZLIB_COMPATIBLE_NAMES
#include <miniz.h>

#include <string>

#if defined(VX_MINIZ_USES_LIBDEFLATE) && __has_include(<libdeflate.h>)
#include <libdeflate.h>
#endif

namespace vx::bench {

inline std::string minizInUse() {
  std::string text = ::mz_version();
#ifdef LIBDEFLATE_VERSION_STRING
  text += " with libdeflate " LIBDEFLATE_VERSION_STRING;
#endif
  return text;
}

}  // namespace vx::bench
