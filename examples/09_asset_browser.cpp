// SPDX-License-Identifier: MIT
//
// Prints the pictures in a directory and its subdirectories, sorted, and finds a file by its stem.
//
//   09_asset_browser DIRECTORY STEM

#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <algorithm>
#include <iostream>
#include <set>
#include <vector>

namespace {

// [sort]
// Listings are in the system's order, and the elements of a StringVector cannot be moved.
std::vector<vx::String> sorted(vx::StringVector paths) {
  std::vector<vx::String> result(paths.begin(), paths.end());
  std::sort(result.begin(), result.end());
  return result;
}
// [sort]

// [tree]
// Appends `dir` and its subdirectories recursively. `seen` prevents cycles through links to parent
// directories.
void appendTree(vx::String dir, vx::StringVector& dirs, std::set<vx::String>& seen) {
  if (!seen.insert(vx::Path(dir, /*normalizeFirst=*/false).canonical()).second) {
    return;
  }
  dirs.push_back(dir);
  for (const vx::String& subdir : sorted(vx::fs::listDirs(dir))) {
    appendTree(subdir, dirs, seen);
  }
}
// [tree]

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: 09_asset_browser DIRECTORY STEM\n";
    return 2;
  }
  const vx::StringVector extensions = {"png", "jpg"};
  vx::StringVector dirs;
  std::set<vx::String> seen;
  appendTree(argv[1], dirs, seen);
  for (const vx::String& dir : dirs) {
    std::cout << dir << "/\n";
    for (const vx::String& picture : sorted(vx::fs::listFiles(dir, extensions))) {
      std::cout << "  " << vx::Path(picture, /*normalizeFirst=*/false).file(/*withExt=*/true)
                << '\n';
    }
  }

  const vx::String found = vx::fs::resolvePath(vx::String(argv[2]) + ".*", dirs, extensions);
  std::cout << argv[2] << ": " << (found.isEmpty() ? "not found" : found) << '\n';
  return found.isEmpty() ? 1 : 0;
}
