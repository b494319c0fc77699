// SPDX-License-Identifier: MIT
//
// The kind of an entry. No other code derives it from the mode.

#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#pragma GCC visibility push(hidden)
namespace vx::internal {

// A 32-bit off_t would make stat fail for files larger than 2 GiB.
static_assert(sizeof(off_t) == 8, "on 32-bit systems compile with _FILE_OFFSET_BITS=64");

enum class EntryKind { None, Directory, File };

/// Returns the kind of an existing entry with this mode.
[[nodiscard]] inline EntryKind entryKind(mode_t mode) noexcept {
  // This tests one bit, not the type field. Block devices and sockets share the bit and therefore
  // count as directories.
  return (mode & S_IFDIR) != 0 ? EntryKind::Directory : EntryKind::File;
}

struct EntryStatus {
  EntryKind kind = EntryKind::None;
  bool hasLinks = false;
};

/// Returns the status of the entry at `path` (one stat call, which follows symbolic links). The
/// kind is None if stat fails.
[[nodiscard]] inline EntryStatus entryStatus(const char* path) noexcept {
  struct stat status;
  if (::stat(path, &status) == -1) {
    return {};
  }
  return {.kind = entryKind(status.st_mode), .hasLinks = status.st_nlink != 0};
}

[[nodiscard]] inline EntryKind entryKind(const char* path) noexcept {
  return entryStatus(path).kind;
}

}  // namespace vx::internal
#pragma GCC visibility pop
