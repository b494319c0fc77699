// SPDX-License-Identifier: MIT
//
// Keeps the calls of the tests' helpers out of `Calls` (calls.h).

#pragma once

namespace vx::test {

/// Makes the calls of this thread unobserved during its lifetime. May be nested.
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
