// SPDX-License-Identifier: MIT
//
// Finds the textures of a document. The references were stored on another machine, and some have a
// wildcard instead of an extension.
//
//   03_find_textures DIRECTORY

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <iostream>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::cerr << "usage: 03_find_textures DIRECTORY\n";
    return 2;
  }
  // [resolve]
  const vx::StringVector searchDirs = {argv[1]};
  const vx::StringVector extensions = {"png", "jpg"};
  const vx::StringVector stored = {
      "/old/machine/textures/wood.png",  // absolute: searched by file name
      "textures/wood.png",               // relative: by file name, then with its directory
      "textures/wood.*",                 // any of the extensions, in order
      "textures/lost.png",
  };
  int missing = 0;
  for (const vx::String& reference : stored) {
    const vx::String found = vx::fs::resolvePath(reference, searchDirs, extensions);
    std::cout << reference << " => " << (found.isEmpty() ? vx::String("not found") : found) << '\n';
    missing += found.isEmpty() ? 1 : 0;
  }
  // [resolve]
  return missing == 0 ? 0 : 1;
}
