// SPDX-License-Identifier: MIT
//
// An environment variable, or the time zone, for the length of a scope.

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

/// Sets the time zone of the process; the one before comes back at the end.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone);
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;
  ~ScopedTimeZone();

 private:
  std::optional<ScopedEnv> variable_;
};

}  // namespace vx::test
