// SPDX-License-Identifier: MIT
//
// The environment, time zone, current directory and umask for the length of a scope.

#pragma once

#include "tests/testing/temp_dir.h"

#include <filesystem>
#include <optional>
#include <string>

#include <sys/stat.h>

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

/// Makes `path` the current directory; the one before comes back at the end, whatever became of
/// `path` meanwhile. Throws when `path` cannot be entered.
class ScopedCurrentDir {
 public:
  explicit ScopedCurrentDir(const std::string& path);
  ScopedCurrentDir(const ScopedCurrentDir&) = delete;
  ScopedCurrentDir& operator=(const ScopedCurrentDir&) = delete;
  ~ScopedCurrentDir();

 private:
  int before_;
};

/// Makes a directory the current one that has been removed.
class RemovedCurrentDir {
 public:
  RemovedCurrentDir() { std::filesystem::remove(tmp_.path("removed")); }

 private:
  TempDir tmp_;
  ScopedCurrentDir inside_{tmp_.mkdir("removed")};
};

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
