// SPDX-License-Identifier: MIT
//
// An environment variable for the length of a scope.

#pragma once

#include <optional>
#include <string>

namespace vx::test {

/// Sets the variable, or unsets it for a null pointer; what was there before comes back at the end.
class ScopedEnv {
 public:
  ScopedEnv(std::string name, const char* value);
  ScopedEnv(std::string name, const std::string& value) : ScopedEnv(name, value.c_str()) {}
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;
  ~ScopedEnv();

 private:
  std::string name_;
  std::optional<std::string> before_;
};

}  // namespace vx::test
