// SPDX-License-Identifier: MIT

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tools/ksz/commands.h"
#include "tools/ksz/console.h"
#include "tools/ksz/overwrite.h"
#include "tools/ksz/process.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include <unistd.h>

namespace ksz {
namespace {

namespace stdfs = std::filesystem;

bool isSameFile(vx::String a, vx::String b) {
  std::error_code error;
  return stdfs::equivalent(std::string(a.view()), std::string(b.view()), error);
}

/// Returns true if every file can be packed into `archive`. Prints the others to standard error.
bool canPack(vx::StringVector files, vx::String archive) {
  bool good = true;
  for (const vx::String& file : files) {
    if (!vx::fs::isFile(file)) {
      complain("no such file", file);
      good = false;
    } else if (isSameFile(file, archive)) {
      complain("an archive cannot contain itself", file);
      good = false;
    }
  }
  return good;
}

/// Returns a path in `directory` that does not exist.
vx::String unusedPath(const stdfs::path& directory) {
  const std::string start = "ksz-" + std::to_string(getpid()) + "-";
  int number = 0;
  while (isTaken(text(directory / (start + std::to_string(number) + ".tmp")))) {
    ++number;
  }
  return text(directory / (start + std::to_string(number) + ".tmp"));
}

/// Writes `files` to `path`. Messages name `archive` instead of `path`.
int write(vx::String path, vx::String archive, vx::StringVector files, const Progress& progress) {
  const Messages messages(progress, path, archive);
  progress.show(0.0, archive);
  const bool written = vx::fs::writeKsz(path, files, [&progress](vx::fs::KszProgress report) {
    progress.show(report.progress, report.file);
  });
  return written && messages.none() ? EXIT_SUCCESS : kExitFailure;
}

/// Writes `files` to a temporary file in `directory` and moves it to `archive`, so that `archive`
/// is never incomplete.
int replace(vx::String archive, const stdfs::path& directory, vx::StringVector files,
            Options options) {
  const Progress progress(options.quiet);
  const HeldSignals signals;
  const vx::String temporary = unusedPath(directory);
  const WorkEnd end = signals.run([&] { return write(temporary, archive, files, progress); });
  // Another program may have created a file in the meantime.
  const bool written = end.isSuccess() && canMoveTo(archive, options.force);
  if (written && vx::fs::moveFile(temporary, archive)) {
    progress.complete(archive);
    return EXIT_SUCCESS;
  }

  vx::fs::rmFile(temporary);
  progress.erase();
  if (end.signal != 0) {
    complain("stopped, nothing was written", archive);
    signals.endBy(end.signal);
  }
  return written ? fail("cannot be written", archive) : kExitFailure;
}

}  // namespace

int pack(vx::String archive, vx::StringVector files, Options options) {
  std::error_code error;
  stdfs::path path(std::string(archive.view()));
  // Replaces the target of a link, not the link.
  if (stdfs::is_symlink(path, error) && stdfs::exists(path, error)) {
    path = stdfs::canonical(path, error);
  }
  const stdfs::path parent = path.has_parent_path() ? path.parent_path() : ".";
  const stdfs::path directory = stdfs::canonical(parent, error);
  if (error) {
    return fail("no such directory", text(parent));
  }
  if (!canPack(files, text(path)) || !canMoveTo(text(path), options.force)) {
    return kExitFailure;
  }
  return replace(text(path), directory, files, options);
}

}  // namespace ksz
