// SPDX-License-Identifier: MIT

#include "tests/testing/changed_root.h"

#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <sched.h>
#include <unistd.h>

namespace vx::test {
namespace {

bool changeRoot(const std::string& root) {
  if (::chroot(root.c_str()) != 0) {
    if (::unshare(CLONE_NEWUSER) != 0 || ::chroot(root.c_str()) != 0) {
      return false;
    }
  }
  return ::chdir("/") == 0;
}

}  // namespace

bool canChangeRoot() {
  return endOfChild([] { ::_exit(changeRoot("/") ? 0 : 1); }).exitCode == 0;
}

void runInRoot(const std::string& root, const std::function<void()>& body) {
  runInChild([&] {
    ASSERT_TRUE(changeRoot(root));
    body();
  });
}

}  // namespace vx::test
