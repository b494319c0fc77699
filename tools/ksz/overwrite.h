// SPDX-License-Identifier: MIT
//
// What a command may overwrite.

#pragma once

#include "core/vx_string.h"

namespace ksz {

/// Whether anything has this name, a link that leads nowhere included.
[[nodiscard]] bool isTaken(vx::String path);

/// Whether a file may be written to `target`: nothing is there, or a file and `force`. Writes the
/// reason to standard error otherwise.
[[nodiscard]] bool canOverwrite(vx::String target, bool force);

/// As `canOverwrite`, for vx::fs::moveFile, which removes whatever has the name of its backup.
[[nodiscard]] bool canMoveTo(vx::String target, bool force);

}  // namespace ksz
