// What stands at a path: the one place that knows how a mode becomes a directory or a file. Private
// to the library.

#pragma once

#include <sys/stat.h>
#include <sys/types.h>

namespace vx {

// Otherwise the system refuses to say what a file is that is larger than 2 GiB.
static_assert(sizeof(off_t) == 8, "on 32-bit systems compile with _FILE_OFFSET_BITS=64");

enum class EntryKind { None, Directory, File };

/// The kind of an entry that exists, by its mode.
[[nodiscard]] inline EntryKind entryKind(mode_t mode) noexcept {
  // A test of one bit, not of the type field: block devices and sockets, whose types share the bit,
  // count as directories.
  return (mode & S_IFDIR) != 0 ? EntryKind::Directory : EntryKind::File;
}

/// Asks the system (stat, which follows links), once. What cannot be examined is none.
[[nodiscard]] inline EntryKind entryKind(const char* path) noexcept {
  struct stat status;
  if (::stat(path, &status) == -1) {
    return EntryKind::None;
  }
  return entryKind(status.st_mode);
}

}  // namespace vx
