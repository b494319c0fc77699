// SPDX-License-Identifier: MIT
//
// A program that uses the strings and paths alone.

#include "core/vx_path.h"
#include "core/vx_string.h"

#include <iostream>

int main() {
  std::cout << vx::Path::join("a", "b") << '\n';
  return vx::Path::join("a", "b") == "a/b" ? 0 : 1;
}
