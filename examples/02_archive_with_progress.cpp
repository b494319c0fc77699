// An archive with a progress bar: the files named on the command line are packed and read back.
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
    return 1;  // the log says why; no half archive stays
  }
  showBar(1.0, "done");  // the last report is of the last file, not of the end
  // [write]

  // [read]
  // The scene lands beside the archive under the archive's name, pictures and the like in "res".
  const bool isRead = vx::fs::readKsz(archive, nullptr);
  // [read]

  // [zip]
  // Any zip archive, into any directory; each file extracted is listed.
  for (const vx::String& path : vx::fs::readZip(archive, "unpacked", nullptr)) {
    std::cout << path << '\n';
  }
  // [zip]
  return isRead ? 0 : 1;
}
