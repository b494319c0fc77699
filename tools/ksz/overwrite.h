// SPDX-License-Identifier: MIT
//
// Checks before a command overwrites a file.

#pragma once

#include "core/vx_string.h"

namespace ksz {

/// Returns true if `path` names anything, including a dangling link.
[[nodiscard]] bool isTaken(vx::String path);

/// Returns true if `target` does not exist, or if it is a file and `force` is set. Otherwise prints
/// the reason to standard error.
[[nodiscard]] bool canOverwrite(vx::String target, bool force);

/// Like `canOverwrite`, for vx::fs::moveFile, which removes an existing file with the backup's
/// name.
[[nodiscard]] bool canMoveTo(vx::String target, bool force);

}  // namespace ksz
