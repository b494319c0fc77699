// SPDX-License-Identifier: MIT
//
// Which miniz a measurement ran with: the pinned build does other work than one found on the
// system.

#pragma once

// miniz otherwise takes the names of zlib, which minizip brings.
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
