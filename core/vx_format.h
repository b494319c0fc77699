// SPDX-License-Identifier: MIT
//
// Formats strings and paths with std::format, like a std::string_view:
//
//   std::format("{:>10}", vx::String("wood"))
//
// This is a separate header because `<format>` takes long to compile. It declares nothing if the
// standard library has no std::format.

#pragma once

#include "core/vx_path.h"
#include "core/vx_string.h"

#include <version>

#ifdef __cpp_lib_format

#include <format>
#include <string_view>

template <>
struct std::formatter<vx::String> : std::formatter<std::string_view> {
  template <class Context>
  auto format(const vx::String& text, Context& context) const {
    return std::formatter<std::string_view>::format(text.view(), context);
  }
};

template <>
struct std::formatter<vx::Path> : std::formatter<std::string_view> {
  template <class Context>
  auto format(const vx::Path& path, Context& context) const {
    return std::formatter<std::string_view>::format(format_as(path), context);
  }
};

#endif
