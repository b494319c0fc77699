// SPDX-License-Identifier: MIT
//
// Tests that need a file system of a certain kind or another root directory: in a forked child with
// mounts or a root of its own.

#pragma once

#include <functional>
#include <string>

namespace vx::test {

/// Whether a child can be given mounts of its own: by right, or in a user namespace of its own. A
/// test that needs them skips where it is false.
[[nodiscard]] bool canMount();

/// The reason to give when it cannot.
inline constexpr const char* kCannotMount =
    "mounting needs root's rights or a user namespace, and this process has neither";

/// Runs `body` in a forked child (`runInChild`) of which the mounts are seen by nobody else and end
/// with it.
void runWithOwnMounts(const std::function<void()>& body);

/// Mounts an empty file system in memory on the existing directory. In such a child only.
void mountMemory(const std::string& directory, const std::string& options);

/// Mounts an overlay file system of these existing directories on `merged`. In such a child only.
/// False where the kernel has none.
[[nodiscard]] bool mountOverlay(const std::string& lower, const std::string& upper,
                                const std::string& work, const std::string& merged);

/// Makes what is mounted on the directory read-only. In such a child only.
void makeReadOnly(const std::string& directory);

/// Whether a child can be given another root directory: by right, or in a user namespace of its
/// own. A test that needs one skips where it is false.
[[nodiscard]] bool canChangeRoot();

/// The reason to give when it cannot.
inline constexpr const char* kCannotChangeRoot =
    "a changed root needs root's rights or a user namespace, and this process has neither";

/// Runs `body` in a forked child (`runInChild`) whose root and current directory is `root`.
void runInRoot(const std::string& root, const std::function<void()>& body);

}  // namespace vx::test
