// SPDX-License-Identifier: MIT
//
// Lets the user pick pictures and an archive to save them to. Each call blocks until the user
// closes the dialog.

#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <iostream>

int main() {
  const vx::String home = vx::fs::homeDir();
  const vx::String start = home + "/";  // without the slash, the parent directory opens

  const vx::StringVector pictures =
      vx::fs::browseFiles("Pick pictures", start, "Pictures", {"png", "jpg"});
  if (pictures.empty()) {
    std::cout << "nothing picked\n";  // cancelling is not an error and is not logged
    return 0;
  }
  std::cout << pictures.size() << " picked: " << pictures.join(", ") << '\n';

  const vx::String target =
      vx::fs::saveFile("Save the scene", vx::Path::join(home, "scene.ksz"), "Scenes", {"ksz"});
  if (target.isEmpty()) {
    std::cout << "not saved\n";
    return 0;
  }
  return vx::fs::writeKsz(target, pictures) ? 0 : 1;
}
