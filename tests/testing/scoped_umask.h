// SPDX-License-Identifier: MIT
//
// The umask for the length of a scope.

#pragma once

#include <sys/stat.h>

namespace vx::test {

class ScopedUmask {
 public:
  explicit ScopedUmask(mode_t mask) : before_(::umask(mask)) {}
  ScopedUmask(const ScopedUmask&) = delete;
  ScopedUmask& operator=(const ScopedUmask&) = delete;
  ~ScopedUmask() { ::umask(before_); }

 private:
  mode_t before_;
};

}  // namespace vx::test
