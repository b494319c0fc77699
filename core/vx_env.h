// SPDX-License-Identifier: MIT
//
// The environment of the process.

#pragma once

#include "core/vx_string.h"

namespace vx::os {

/// Returns the value of the environment variable `name` (getenv), or the empty string if it is not
/// set.
///
/// Does not log or change the current error. Thread-safe as long as no other thread changes the
/// environment (setenv, putenv, unsetenv).
[[nodiscard]] String getEnv(String name);

}  // namespace vx::os
