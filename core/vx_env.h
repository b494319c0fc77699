// The process environment.

#pragma once

#include "core/vx_string.h"

namespace vx::os {

/// The value of the environment variable `name` (getenv), the empty string when it is not set.
///
/// Neither logs nor records an error. Safe from any thread as long as no thread changes the
/// environment meanwhile.
[[nodiscard]] String getEnv(String name);

}  // namespace vx::os
