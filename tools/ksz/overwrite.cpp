// SPDX-License-Identifier: MIT

#include "tools/ksz/overwrite.h"

#include "core/vx_path.h"
#include "tools/ksz/console.h"

#include <filesystem>
#include <string>
#include <system_error>

namespace ksz {

namespace stdfs = std::filesystem;

bool isTaken(vx::String path) {
  std::error_code error;
  return stdfs::symlink_status(std::string(path.view()), error).type() !=
         stdfs::file_type::not_found;
}

bool canOverwrite(vx::String target, bool force) {
  if (!isTaken(target)) {
    return true;
  }
  std::error_code error;
  const stdfs::file_type type = stdfs::status(std::string(target.view()), error).type();
  if (type != stdfs::file_type::regular && type != stdfs::file_type::not_found) {
    complain("not a regular file", target);
    return false;
  }
  if (!force) {
    complain("already exists, use --force to overwrite it", target);
  }
  return force;
}

bool canMoveTo(vx::String target, bool force) {
  const vx::String backup = vx::Path::changeExt(target, ".bak");
  if (backup == target) {
    complain("a file cannot be moved to the name of a backup", target);
    return false;
  }
  if (isTaken(backup)) {
    complain("has the name of the backup, rename it first", backup);
    return false;
  }
  return canOverwrite(target, force);
}

}  // namespace ksz
