// SPDX-License-Identifier: MIT
//
// Sets the environment, time zone, current directory and umask for a scope.

#pragma once

#include "tests/testing/temp_dir.h"

#include <filesystem>
#include <optional>
#include <string>

#include <sys/stat.h>

namespace vx::test {

/// Sets the variable, or unsets it for a null pointer. The destructor restores it.
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

/// Sets the time zone of the process. The destructor restores it.
class ScopedTimeZone {
 public:
  explicit ScopedTimeZone(const char* zone);
  ScopedTimeZone(const ScopedTimeZone&) = delete;
  ScopedTimeZone& operator=(const ScopedTimeZone&) = delete;
  ~ScopedTimeZone();

 private:
  std::optional<ScopedEnv> variable_;
};

/// Makes `path` the current directory. The destructor restores the previous one, even if `path` has
/// been removed. Throws if `path` cannot be entered.
class ScopedCurrentDir {
 public:
  explicit ScopedCurrentDir(const std::string& path);
  ScopedCurrentDir(const ScopedCurrentDir&) = delete;
  ScopedCurrentDir& operator=(const ScopedCurrentDir&) = delete;
  ~ScopedCurrentDir();

 private:
  int before_;
};

/// Makes a removed directory the current one.
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
