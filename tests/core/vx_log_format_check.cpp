// SPDX-License-Identifier: MIT
//
// Compiled by tests only, never run: the compiler checks the formats against their arguments.

#include "core/vx_log.h"

void formatsThatFit() {
  vx::logError("%s %llu", "text", 1ULL);
  vx::logWarning("%s %llu", "text", 1ULL);
}

#ifdef VX_WRONG_ERROR
void wrongError() {
  vx::logError("%s", 1);
}
#endif

#ifdef VX_WRONG_WARNING
void wrongWarning() {
  vx::logWarning("%s %s", "one text only");
}
#endif
