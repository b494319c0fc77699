// SPDX-License-Identifier: MIT

#include "tests/testing/scoped_env.h"

#include <utility>

#include <stdlib.h>
#include <time.h>

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

}  // namespace vx::test
