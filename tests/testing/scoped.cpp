// SPDX-License-Identifier: MIT

#include "tests/testing/scoped.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <stdlib.h>
#include <time.h>
#include <unistd.h>

namespace vx::test {
namespace {

void putEnv(const std::string& name, const char* value) {
  if (value == nullptr) {
    ::unsetenv(name.c_str());
  } else {
    ::setenv(name.c_str(), value, /*replace=*/1);
  }
}

}  // namespace

ScopedEnv::ScopedEnv(std::string name, const char* value) : name_(std::move(name)) {
  if (const char* const before = ::getenv(name_.c_str())) {
    before_ = before;
  }
  putEnv(name_, value);
}

ScopedEnv::~ScopedEnv() {
  putEnv(name_, before_ ? before_->c_str() : nullptr);
}

ScopedTimeZone::ScopedTimeZone(const char* zone) : variable_(std::in_place, "TZ", zone) {
  ::tzset();
}

ScopedTimeZone::~ScopedTimeZone() {
  variable_.reset();
  ::tzset();
}

ScopedCurrentDir::ScopedCurrentDir(const std::string& path)
    : before_(::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  if (before_ != -1 && ::chdir(path.c_str()) == 0) {
    return;
  }
  const int code = errno;
  ::close(before_);
  throw std::system_error(code, std::generic_category(), "chdir " + path);
}

ScopedCurrentDir::~ScopedCurrentDir() {
  // If the previous directory cannot be entered any more, the current one remains.
  [[maybe_unused]] const int status = ::fchdir(before_);
  ::close(before_);
}

}  // namespace vx::test
