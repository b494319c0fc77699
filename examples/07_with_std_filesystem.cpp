// SPDX-License-Identifier: MIT
//
// Uses vx together with std::filesystem. Paths are converted as UTF-8 text.

#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <filesystem>
#include <iostream>
#include <string>

namespace {

vx::String toVx(const std::filesystem::path& path) {
  return vx::String(path.native());
}

std::filesystem::path toStd(vx::String path) {
  return std::string(path);
}

}  // namespace

int main() {
  const std::filesystem::path root = toStd(vx::fs::tempDir()) / "vx_with_std_filesystem";
  vx::fs::mkDir(toVx(root / "a" / "b"));

  int directories = 0;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root)) {
    directories += vx::fs::isDir(toVx(entry.path())) ? 1 : 0;
  }
  std::cout << directories << " directories in " << root << '\n';

  // Both compute the same normal form, except that vx drops a trailing separator.
  const vx::String ours = vx::Path::normalize("textures//wood/../oak.png");
  const std::filesystem::path theirs =
      std::filesystem::path("textures//wood/../oak.png").lexically_normal();
  const bool isSame = toStd(ours) == theirs;

  std::filesystem::remove_all(root);  // vx removes only empty directories
  return directories == 2 && isSame ? 0 : 1;
}
