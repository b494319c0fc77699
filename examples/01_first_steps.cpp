// SPDX-License-Identifier: MIT
//
// Creates a directory and a file, lists the directory, and shows what a failure logs.

#include "core/vx_path.h"
#include "core/vx_string.h"
#include "fs/vx_fs.h"

#include <cstdio>
#include <iostream>

int main() {
  const vx::String dir = vx::Path::join(vx::fs::tempDir(), "vx_first_steps");
  if (!vx::fs::mkDir(dir)) {
    return 1;  // logged, to standard error by default, unless there is a file at `dir`
  }

  const vx::String path = vx::Path::join(dir, "hello.txt");
  FILE* const file = vx::fs::Fopen(path, "wb");
  if (file == nullptr) {
    return 1;
  }
  vx::fs::Fwrite("hello\n", 1, 6, file);
  vx::fs::Fclose(file);

  for (const vx::String& found : vx::fs::listFiles(dir, {"txt"})) {
    std::cout << vx::Path(found, /*normalizeFirst=*/true).file(/*withExt=*/true) << '\n';
  }

  // Fails because the parent is a file, and logs that file's path.
  if (vx::fs::mkDir(vx::Path::join(path, "sub"))) {
    return 1;
  }

  const bool isClean = vx::fs::rmFile(path) && vx::fs::rmDir(dir);
  return isClean ? 0 : 1;
}
