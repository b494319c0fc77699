// SPDX-License-Identifier: MIT

#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tools/ksz/commands.h"
#include "tools/ksz/console.h"
#include "tools/ksz/overwrite.h"
#include "tools/ksz/process.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

namespace ksz {
namespace {

namespace stdfs = std::filesystem;

/// A new directory next to the archive. Everything is extracted to it before it is moved to its
/// destination. The destructor removes the directory and its contents.
class Staging {
 public:
  explicit Staging(const std::string& parent) : path_(stdfs::path(parent) / "ksz-XXXXXX") {
    if (mkdtemp(path_.data()) == nullptr) {
      path_.clear();
    }
  }
  Staging(const Staging&) = delete;
  Staging& operator=(const Staging&) = delete;
  ~Staging() { remove(); }

  [[nodiscard]] bool exists() const { return !path_.empty(); }
  [[nodiscard]] const std::string& path() const { return path_; }

  void remove() {
    std::error_code error;
    if (exists()) {
      stdfs::remove_all(path_, error);
    }
    path_.clear();
  }

 private:
  std::string path_;
};

bool isDirectory(const stdfs::path& path) {
  std::error_code error;
  return stdfs::is_directory(path, error);
}

/// Lists `directory` recursively. The paths are relative and sorted, each directory before its
/// contents.
std::vector<stdfs::path> contents(const std::string& directory) {
  std::vector<stdfs::path> found;
  std::error_code error;
  stdfs::recursive_directory_iterator entry(directory, error);
  for (; !error && entry != stdfs::recursive_directory_iterator(); entry.increment(error)) {
    found.push_back(entry->path().lexically_relative(directory));
  }
  std::sort(found.begin(), found.end());
  return found;
}

/// Links or copies `archive` to `staging`, because the library extracts a scene next to its
/// archive.
vx::String linkOrCopy(const std::string& archive, const std::string& staging) {
  const std::string name = stdfs::path(staging) / stdfs::path(archive).filename();
  // Some file systems have no hard links.
  if (link(archive.c_str(), name.c_str()) != 0) {
    vx::fs::copyFile(text(archive), text(name));
  }
  return text(name);
}

/// Removes every file under `directory` that is not in `files`, such as a partly extracted one.
void keepOnly(vx::StringVector files, const std::string& directory) {
  std::set<std::string> kept;
  for (const vx::String& file : files) {
    kept.emplace(vx::Path(file, true).canonical().view());
  }
  for (const stdfs::path& name : contents(directory)) {
    const stdfs::path path = directory / name;
    if (!isDirectory(path) && !kept.contains(path)) {
      std::error_code error;
      stdfs::remove(path, error);
    }
  }
}

void removeEmptyDirectories(const std::string& directory) {
  std::vector<stdfs::path> names = contents(directory);
  std::reverse(names.begin(), names.end());
  for (const stdfs::path& name : names) {
    std::error_code error;
    if (isDirectory(directory / name)) {
      stdfs::remove(directory / name, error);  // fails if it is not empty
    }
  }
}

int extract(const std::string& archive, const std::string& staging) {
  const Messages messages(text(staging), text(stdfs::path(archive).parent_path()));
  const vx::StringVector files = vx::fs::readZip(linkOrCopy(archive, staging), "", {});
  keepOnly(files, staging);
  if (files.empty() && messages.none()) {
    return fail("no file in the archive", text(archive));
  }
  if (messages.none()) {
    return EXIT_SUCCESS;
  }
  removeEmptyDirectories(staging);
  return kExitFailure;
}

/// Returns true if the file or directory `from` can be moved to `target`. Otherwise prints the
/// reason to standard error.
bool canPlace(const stdfs::path& from, vx::String target, bool force) {
  if (!isDirectory(from)) {
    return canOverwrite(target, force);
  }
  if (isTaken(target) && !vx::fs::isDir(target)) {
    complain("in the way of a directory in the archive", target);
    return false;
  }
  return true;
}

/// Calls `canPlace` for everything in `staging` and stops at the first failure.
bool canPlaceAll(const std::string& staging, const stdfs::path& directory, bool force) {
  const std::vector<stdfs::path> names = contents(staging);
  return std::all_of(names.begin(), names.end(), [&](const stdfs::path& name) {
    return canPlace(staging / name, text(directory / name), force);
  });
}

struct Placed {
  int status = EXIT_SUCCESS;
  std::vector<stdfs::path> files;
};

/// Moves everything in `staging` to `directory`.
Placed place(const std::string& staging, const stdfs::path& directory) {
  Placed placed;
  for (const stdfs::path& name : contents(staging)) {
    const stdfs::path target = directory / name;
    if (isDirectory(staging / name)) {
      vx::fs::mkDir(text(target));
    } else if (std::rename((staging / name).c_str(), target.c_str()) == 0) {
      // vx::fs::moveFile would remove a file that has the name of its backup.
      placed.files.push_back(name);
    } else {
      placed.status = fail(std::strerror(errno), text(target));
    }
  }
  return placed;
}

/// Extracts `archive` to a temporary directory and moves the files to `directory`.
Placed extractTo(const stdfs::path& directory, const std::string& archive, bool force) {
  const HeldSignals signals;
  Staging staging(directory);
  if (!staging.exists()) {
    return {.status = fail(std::strerror(errno), text(directory)), .files = {}};
  }
  const WorkEnd end = signals.run([&] { return extract(archive, staging.path()); });
  if (end.signal != 0) {
    staging.remove();
    complain("stopped, nothing was unpacked", text(archive));
    signals.endBy(end.signal);
  }
  if (!canPlaceAll(staging.path(), directory, force)) {
    return {.status = kExitFailure, .files = {}};
  }
  Placed placed = place(staging.path(), directory);
  placed.status = placed.status == EXIT_SUCCESS ? end.status : placed.status;
  return placed;
}

}  // namespace

int unpack(vx::String archive, Options options) {
  if (!vx::fs::isFile(archive)) {
    return fail("no such file", archive);
  }
  std::error_code error;
  const stdfs::path path = stdfs::canonical(std::string(archive.view()), error);
  const stdfs::path directory = path.parent_path();
  const Placed placed = extractTo(directory, path, options.force);
  if (!placed.files.empty() && !options.quiet) {
    std::printf("%s:\n", printable(text(directory)).c_str());
    for (const stdfs::path& file : placed.files) {
      std::printf("  %s\n", printable(text(file)).c_str());
    }
  }
  return placed.status;
}

}  // namespace ksz
