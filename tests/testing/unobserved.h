// SPDX-License-Identifier: MIT
//
// Calls that `Calls` (calls.h) neither records nor changes: those of the test's own helpers.

#pragma once

namespace vx::test {

/// Makes the calls of this thread unobserved while it lives. May be nested.
class Unobserved {
 public:
  Unobserved() { ++depth_; }
  Unobserved(const Unobserved&) = delete;
  Unobserved& operator=(const Unobserved&) = delete;
  ~Unobserved() { --depth_; }

  [[nodiscard]] static bool isOn() noexcept { return depth_ != 0; }

 private:
  static inline constinit thread_local int depth_ = 0;
};

}  // namespace vx::test
