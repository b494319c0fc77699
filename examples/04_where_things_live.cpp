// SPDX-License-Identifier: MIT
//
// Where things live: the program, its resources, the user's directories.

#include "core/vx_string.h"
#include "fs/vx_fs.h"

#include <iostream>

int main() {
  // The value forms always answer, with the next best directory where the wanted one is missing.
  std::cout << "program    " << vx::fs::exePath() << '\n'
            << "resources  " << vx::fs::resDir() << '\n'
            << "current    " << vx::fs::currentDir() << '\n'
            << "home       " << vx::fs::homeDir() << '\n'
            << "temporary  " << vx::fs::tempDir() << '\n';

  // The get forms say whether there is one. Only looked for, so nothing is created.
  vx::String config;
  if (vx::fs::getKavraConfigDir(config, /*create=*/false)) {
    std::cout << "settings   " << config << '\n';
  } else {
    std::cout << "settings   none yet, they would be in " << config << '\n';
  }
  return 0;
}
