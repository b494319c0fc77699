// SPDX-License-Identifier: MIT
//
// Writes the files on the command line to an archive with a progress bar, and extracts it.
//
//   02_archive_with_progress scene.ksz room.ksx lamp.ksa res/wood.png

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <cstddef>
#include <cstdio>
#include <iostream>
#include <string>

namespace {

void showBar(double fraction, vx::String file) {
  const std::string bar(static_cast<std::size_t>(fraction * 20), '#');
  std::printf("[%-20s] %3.0f%% %s\n", bar.c_str(), fraction * 100, file.buf());
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::cerr << "usage: 02_archive_with_progress ARCHIVE FILE...\n";
    return 2;
  }
  const vx::String archive = argv[1];
  vx::StringVector files;
  for (int i = 2; i < argc; ++i) {
    files.push_back(argv[i]);
  }

  // [write]
  const bool isWritten = vx::fs::writeKsz(
      archive, files, [](vx::fs::KszProgress report) { showBar(report.progress, report.file); });
  if (!isWritten) {
    return 1;  // the reason has been logged
  }
  showBar(1.0, "done");  // there is no report of 1.0
  // [write]

  // [read]
  // The scene is extracted next to the archive with the archive's name, other files into "res".
  const bool isRead = vx::fs::readKsz(archive);
  // [read]

  // [zip]
  // Any zip archive can be extracted into any directory. The result lists the extracted files.
  for (const vx::String& path : vx::fs::readZip(archive, "unpacked")) {
    std::cout << path << '\n';
  }
  // [zip]
  return isRead ? 0 : 1;
}
