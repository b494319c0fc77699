// SPDX-License-Identifier: MIT

#include "core/vx_env.h"

#include <cstdlib>

namespace vx::os {

String getEnv(String name) {
  return String(std::getenv(name.buf()));
}

}  // namespace vx::os
