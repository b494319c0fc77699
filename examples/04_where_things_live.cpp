// SPDX-License-Identifier: MIT
//
// Prints the paths of the program, its resources and the user's directories.

#include "core/vx_string.h"
#include "fs/vx_fs.h"

#include <iostream>

int main() {
  // These functions always return a path. They fall back to another one if the first is missing.
  std::cout << "program    " << vx::fs::exePath() << '\n'
            << "resources  " << vx::fs::resDir() << '\n'
            << "current    " << vx::fs::currentDir() << '\n'
            << "home       " << vx::fs::homeDir() << '\n'
            << "temporary  " << vx::fs::tempDir() << '\n';

  // A `get` function reports whether the directory exists. `create` is false: nothing is created.
  vx::String config;
  if (vx::fs::getKavraConfigDir(config, /*create=*/false)) {
    std::cout << "settings   " << config << '\n';
  } else {
    std::cout << "settings   none yet, they would be in " << config << '\n';
  }
  return 0;
}
