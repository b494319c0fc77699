// SPDX-License-Identifier: MIT
//
// A program for debuggers to stop in: one value of each kind that they print.

#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <map>
#include <string_view>

using namespace std::string_view_literals;

/// The debuggers stop here and print the caller's variables.
[[gnu::noinline]] void stopHere() {
  __asm__ volatile("");
}

int main() {
  const vx::String text = "wood.png";
  const vx::String empty;
  const vx::String bytes("a\0\"\n"sv);
  const vx::StringVector list = {"wood.png", "", "look.ksa"};
  const vx::StringVector none;
  const vx::Path path("textures/../wood.png", /*normalizeFirst=*/true);
  const std::map<vx::String, vx::Path> paths = {{"wood", path}};
  stopHere();
  return text.isEmpty() || !empty.isEmpty() || bytes.isEmpty() || list.empty() || !none.empty() ||
                 paths.empty()
             ? 1
             : 0;
}
