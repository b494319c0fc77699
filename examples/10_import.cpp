// SPDX-License-Identifier: MIT
//
// Copies files into a directory with a progress bar, and checks each copy.
//
//   10_import DIRECTORY FILE...

#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <iostream>
#include <string>
#include <system_error>
#include <vector>

namespace {

void showBar(std::size_t done, std::size_t all, vx::String label) {
  const std::string bar(20 * done / all, '#');
  std::printf("[%-20s] %zu of %zu %s\n", bar.c_str(), done, all, label.buf());
}

// [copy]
bool isSameSize(vx::String left, vx::String right) {
  std::error_code error;
  return std::filesystem::file_size(left.buf(), error) ==
             std::filesystem::file_size(right.buf(), error) &&
         !error;
}

// copyFile would replace an existing file, and it does not report a full disk.
bool importFile(vx::String source, vx::String target) {
  if (vx::fs::exists(target) || !vx::fs::copyFile(source, target)) {
    return false;
  }
  if (isSameSize(source, target)) {
    return true;
  }
  vx::fs::rmFile(target);
  return false;
}
// [copy]

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: 10_import DIRECTORY FILE...\n";
    return 2;
  }
  const vx::String dir = argv[1];
  if (!vx::fs::mkDir(dir)) {
    return 1;
  }
  const vx::StringVector files(std::vector<const char*>(argv + 2, argv + argc));
  vx::StringVector failed;
  std::size_t done = 0;
  for (const vx::String& file : files) {
    const vx::String name = vx::Path(file, /*normalizeFirst=*/false).file(/*withExt=*/true);
    showBar(done++, files.size(), name);
    if (!importFile(file, vx::Path::join(dir, name))) {
      failed.push_back(file);
    }
  }
  showBar(done, files.size(), "done");
  if (!failed.empty()) {
    std::cerr << "not imported: " << failed.join(", ") << '\n';
  }
  return failed.empty() ? 0 : 1;
}
