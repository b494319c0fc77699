// A current directory for the length of a scope.

#pragma once

#include <string>

namespace vx::test {

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

}  // namespace vx::test
