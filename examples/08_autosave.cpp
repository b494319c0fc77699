// SPDX-License-Identifier: MIT
//
// Saves a text document, keeps its previous version, and logs to a file.
//
//   08_autosave DOCUMENT TEXT

#include "core/vx_log.h"
#include "core/vx_path.h"
#include "core/vx_string.h"
#include "fs/vx_fs.h"

#include <cstdio>
#include <fstream>
#include <iostream>

namespace {

// [log]
void logTo(vx::String path) {
  vx::setLogSink([path](vx::LogLevel level, vx::String line) {
    std::ofstream(path.buf(), std::ios::app) << vx::levelName(level) << ": " << line << '\n';
  });
}
// [log]

// [save]
bool write(vx::String path, vx::String text) {
  FILE* const file = vx::fs::Fopen(path, "wb");
  if (file == nullptr) {
    return false;
  }
  const bool isWritten = vx::fs::Fwrite(text.buf(), 1, text.length(), file) == text.length();
  // Fwrite buffers its data, so Fclose may be the first call to report a full disk.
  return vx::fs::Fclose(file) == 0 && isWritten;
}

bool save(vx::String document, vx::String text) {
  const vx::String fresh = document + ".new";  // in the same directory, so that it can be renamed
  if (!write(fresh, text)) {
    vx::logError("Cannot write %s.", fresh.buf());
    vx::fs::rmFile(fresh);
    return false;
  }
  // Not ".bak": moveFile removes that file.
  if (vx::fs::isFile(document) && !vx::fs::copyFile(document, document + ".previous")) {
    vx::logWarning("Cannot keep the previous %s.", document.buf());
  }
  return vx::fs::moveFile(fresh, document);
}
// [save]

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::cerr << "usage: 08_autosave DOCUMENT TEXT\n";
    return 2;
  }
  const vx::String document = argv[1];
  logTo(vx::Path::changeExt(document, ".log"));
  return save(document, argv[2]) ? 0 : 1;
}
