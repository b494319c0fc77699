// SPDX-License-Identifier: MIT
//
// Draws a compiler warning for each pointer into a temporary. Not part of a program.

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

vx::String makeString();
vx::StringVector makeList();

void keepPointersIntoTemporaries() {
  [[maybe_unused]] const char* const buf = makeString().buf();
  [[maybe_unused]] const std::string_view view = makeString().view();
  [[maybe_unused]] const vx::String* const element = makeList().begin();
}
