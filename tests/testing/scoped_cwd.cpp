// SPDX-License-Identifier: MIT

#include "tests/testing/scoped_cwd.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace vx::test {

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
  // Where the directory before cannot be had any more there is nothing better to do than to stay.
  [[maybe_unused]] const int status = ::fchdir(before_);
  ::close(before_);
}

}  // namespace vx::test
