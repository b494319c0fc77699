// SPDX-License-Identifier: MIT

#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tools/ksz/commands.h"
#include "tools/ksz/console.h"
#include "tools/ksz/overwrite.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <vector>

namespace ksz {
namespace {

void printSorted(vx::StringVector paths, const char* mark) {
  std::vector<vx::String> sorted(paths.begin(), paths.end());
  std::sort(sorted.begin(), sorted.end());
  for (const vx::String& path : sorted) {
    std::printf("%s%s\n", printable(path).c_str(), mark);
  }
}

/// Returns the path of a file after it is copied or moved to `to`.
vx::String destination(vx::String from, vx::String to) {
  return vx::fs::isDir(to) ? vx::Path::join(to, vx::Path(from, true).file(/*withExt=*/true)) : to;
}

bool isSamePath(vx::String a, vx::String b) {
  return vx::Path(a, true).canonical() == vx::Path(b, true).canonical();
}

struct CloseStream {
  void operator()(FILE* stream) const { vx::fs::Fclose(stream); }
};
using Stream = std::unique_ptr<FILE, CloseStream>;

Stream open(vx::String path) {
  return Stream(vx::fs::Fopen(path, "rb"));
}

bool isReadable(vx::String path) {
  return open(path) != nullptr;
}

bool haveSameContents(vx::String a, vx::String b) {
  const Stream first = open(a);
  const Stream second = open(b);
  if (first == nullptr || second == nullptr) {
    return false;
  }
  std::array<char, 65536> ofFirst = {};
  std::array<char, 65536> ofSecond = {};
  std::size_t count = 0;
  do {
    count = vx::fs::Fread(ofFirst.data(), 1, ofFirst.size(), first.get());
    if (vx::fs::Fread(ofSecond.data(), 1, ofSecond.size(), second.get()) != count ||
        !std::equal(ofFirst.begin(), ofFirst.begin() + count, ofSecond.begin())) {
      return false;
    }
  } while (count != 0);
  return std::ferror(first.get()) == 0 && std::ferror(second.get()) == 0;
}

}  // namespace

int list(vx::String directory, vx::StringVector extensions) {
  if (!vx::fs::isDir(directory)) {
    return fail("no such directory", directory);
  }
  printSorted(vx::fs::listDirs(directory), "/");
  printSorted(vx::fs::listFiles(directory, extensions), "");
  return EXIT_SUCCESS;
}

int copy(vx::String from, vx::String to, Options options) {
  const Messages messages;
  if (!vx::fs::isFile(from)) {
    return fail("no such file", from);
  }
  // The library would replace the destination with an empty file.
  if (!isReadable(from)) {
    return fail("cannot be read", from);
  }
  const vx::String target = destination(from, to);
  // The library compares only the text of the paths.
  if (isSamePath(from, target)) {
    return fail("cannot be copied to itself", from);
  }
  if (!canOverwrite(target, options.force)) {
    return kExitFailure;
  }
  if (!vx::fs::copyFile(from, target)) {
    return fail("cannot be written", target);
  }
  // copyFile returns true for an incomplete copy too.
  if (!haveSameContents(from, target)) {
    return fail("the copy is incomplete", target);
  }
  return messages.none() ? EXIT_SUCCESS : kExitFailure;
}

int move(vx::String from, vx::String to, Options options) {
  const Messages messages;
  if (!vx::fs::isFile(from)) {
    return fail("no such file", from);
  }
  const vx::String target = destination(from, to);
  if (isSamePath(from, target)) {
    return fail("cannot be moved to itself", from);
  }
  if (!canMoveTo(target, options.force)) {
    return kExitFailure;
  }
  if (!vx::fs::moveFile(from, target)) {
    return fail("cannot be moved", from);
  }
  return messages.none() ? EXIT_SUCCESS : kExitFailure;
}

}  // namespace ksz
