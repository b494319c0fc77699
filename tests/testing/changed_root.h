// SPDX-License-Identifier: MIT
//
// Tests of places that only the root directory has: in a forked child with a root of its own.

#pragma once

#include <functional>
#include <string>

namespace vx::test {

/// Whether a child can be given another root: by right, or in a user namespace of its own. A test
/// that needs one skips where it is false.
[[nodiscard]] bool canChangeRoot();

/// The reason to give when it cannot.
inline constexpr const char* kCannotChangeRoot =
    "a changed root needs root's rights or a user namespace, and this process has neither";

/// Runs `body` in a forked child (`runInChild`) whose root and current directory is `root`.
void runInRoot(const std::string& root, const std::function<void()>& body);

}  // namespace vx::test
