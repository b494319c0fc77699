// SPDX-License-Identifier: MIT

#include "tests/testing/isolation.h"

#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <fstream>

#include <sched.h>
#include <sys/mount.h>
#include <unistd.h>

namespace vx::test {
namespace {

bool writeTo(const char* file, const std::string& text) {
  std::ofstream stream(file);
  stream << text << std::flush;
  return static_cast<bool>(stream);
}

/// Makes the process root of a new user namespace, where its current user is root.
bool becomeRootOfOwnUsers() {
  const std::string user = "0 " + std::to_string(::geteuid()) + " 1";
  const std::string group = "0 " + std::to_string(::getegid()) + " 1";
  return ::unshare(CLONE_NEWUSER) == 0 && writeTo("/proc/self/setgroups", "deny") &&
         writeTo("/proc/self/uid_map", user) && writeTo("/proc/self/gid_map", group);
}

bool enterOwnMounts() {
  if (::unshare(CLONE_NEWNS) != 0 && !(becomeRootOfOwnUsers() && ::unshare(CLONE_NEWNS) == 0)) {
    return false;
  }
  return ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
}

bool changeRoot(const std::string& root) {
  if (::chroot(root.c_str()) != 0) {
    if (::unshare(CLONE_NEWUSER) != 0 || ::chroot(root.c_str()) != 0) {
      return false;
    }
  }
  return ::chdir("/") == 0;
}

}  // namespace

bool canMount() {
  return endOfChild([] {
           const bool can =
               enterOwnMounts() && ::mount("none", "/tmp", "tmpfs", 0, "size=64k") == 0;
           ::_exit(can ? 0 : 1);
         }).exitCode == 0;
}

void runWithOwnMounts(const std::function<void()>& body) {
  runInChild([&] {
    ASSERT_TRUE(enterOwnMounts());
    body();
  });
}

void mountMemory(const std::string& directory, const std::string& options) {
  ASSERT_EQ(::mount("none", directory.c_str(), "tmpfs", 0, options.c_str()), 0);
}

bool mountOverlay(const std::string& lower, const std::string& upper, const std::string& work,
                  const std::string& merged) {
  const std::string layers = "lowerdir=" + lower + ",upperdir=" + upper + ",workdir=" + work;
  return ::mount("none", merged.c_str(), "overlay", 0, layers.c_str()) == 0;
}

void makeReadOnly(const std::string& directory) {
  ASSERT_EQ(::mount("none", directory.c_str(), nullptr, MS_REMOUNT | MS_RDONLY, nullptr), 0);
}

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
