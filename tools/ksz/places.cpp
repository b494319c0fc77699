// SPDX-License-Identifier: MIT

#include "core/vx_log.h"
#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tools/ksz/commands.h"
#include "tools/ksz/console.h"

#include <cstdio>
#include <cstdlib>

namespace ksz {
namespace {

void print(const char* name, vx::String path) {
  std::printf("%-12s %-8s %s\n", name, vx::fs::exists(path) ? "exists" : "missing",
              printable(path).c_str());
}

void printSystemPlaces() {
  print("executable", vx::fs::exePath());
  print("its folder", vx::fs::exeDir());
  print("application", vx::fs::appDir());
  print("resources", vx::fs::resDir());
  print("current", vx::fs::currentDir());
  print("home", vx::fs::homeDir());
  print("temporary", vx::fs::tempDir());
}

/// Discards the library's messages during its lifetime.
class Silence {
 public:
  Silence() : before_(vx::setLogSink([](vx::LogLevel /*level*/, vx::String /*line*/) {})) {}
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;
  ~Silence() { vx::setLogSink(before_); }

 private:
  vx::LogSink before_;
};

void printProductPlaces() {
  const Silence silence;  // the output shows what is missing
  vx::String path;
  const bool hasUserDir = vx::fs::getKavraUserDir(path, /*create=*/false);
  print("user", path);
  if (!hasUserDir) {
    // The library would return the user directory for these, and create it for the help page.
    for (const char* const name : {"config", "output", "preview"}) {
      print(name, vx::Path::join(path, name));
    }
    print("help page", vx::Path::join(path, "nodehelp.html"));
    return;
  }
  vx::fs::getKavraConfigDir(path, /*create=*/false);
  print("config", path);
  vx::fs::getKavraOutputDir(path, /*create=*/false);
  print("output", path);
  vx::fs::getKavraPreviewDir(path, /*create=*/false);
  print("preview", path);
  print("help page", vx::fs::kavraNodeHelpPath(/*asUrl=*/false));
  const vx::String url = vx::fs::kavraNodeHelpPath(/*asUrl=*/true);
  std::printf("%-21s %s\n", "its link", printable(url).c_str());
}

bool createProductDirectories() {
  vx::String path;
  const bool hasConfig = vx::fs::getKavraConfigDir(path, /*create=*/true);
  const bool hasOutput = vx::fs::getKavraOutputDir(path, /*create=*/true);
  const bool hasPreview = vx::fs::getKavraPreviewDir(path, /*create=*/true);
  return hasConfig && hasOutput && hasPreview;
}

}  // namespace

int where(bool create) {
  const Messages messages;
  printSystemPlaces();
  const bool isComplete = !create || createProductDirectories();
  printProductPlaces();
  return isComplete ? EXIT_SUCCESS : kExitFailure;
}

int resolve(vx::String reference, vx::StringVector directories, vx::StringVector extensions) {
  const vx::String file = vx::fs::resolvePath(reference, directories, extensions);
  if (file.isEmpty()) {
    return fail("found nowhere", reference);
  }
  std::printf("%s\n", printable(file).c_str());
  return EXIT_SUCCESS;
}

}  // namespace ksz
