// SPDX-License-Identifier: MIT
//
// A library of a user's that is loaded at run time.

#include "core/vx_path.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

extern "C" [[gnu::visibility("default")]] int runPlugin() {
  const vx::String archive = vx::Path::join(vx::fs::currentDir(), "plugin.zip");
  const bool isGood = vx::fs::writeZip(archive, {}, nullptr) && vx::fs::rmFile(archive);
  // Reachable, so that a static library's dialogs are linked too.
  return vx::fs::exePath().isEmpty() ? vx::fs::browseFile("", "", "", {}).isEmpty() : isGood;
}
