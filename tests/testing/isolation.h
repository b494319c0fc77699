// SPDX-License-Identifier: MIT
//
// Forked children with their own mounts or root directory, for tests that need a certain file
// system or root.

#pragma once

#include <functional>
#include <string>

namespace vx::test {

/// Returns whether a child can have its own mounts, with root's rights or in a user namespace. If
/// not, a test that needs them is skipped.
[[nodiscard]] bool canMount();

/// The reason for skipping it.
inline constexpr const char* kCannotMount =
    "mounting needs root's rights or a user namespace, and this process has neither";

/// Runs `body` in a forked child (`runInChild`) whose mounts no other process sees. They are
/// removed when it ends.
void runWithOwnMounts(const std::function<void()>& body);

/// Mounts an empty file system in memory on the existing directory. Only in such a child.
void mountMemory(const std::string& directory, const std::string& options);

/// Mounts an overlay file system of these existing directories on `merged`. Only in such a child.
/// Returns false if the kernel has none.
[[nodiscard]] bool mountOverlay(const std::string& lower, const std::string& upper,
                                const std::string& work, const std::string& merged);

/// Makes the file system that is mounted on the directory read-only. Only in such a child.
void makeReadOnly(const std::string& directory);

/// Returns whether a child can have another root directory, with root's rights or in a user
/// namespace. If not, a test that needs one is skipped.
[[nodiscard]] bool canChangeRoot();

/// The reason for skipping it.
inline constexpr const char* kCannotChangeRoot =
    "a changed root needs root's rights or a user namespace, and this process has neither";

/// Runs `body` in a forked child (`runInChild`) whose root and current directory is `root`.
void runInRoot(const std::string& root, const std::function<void()>& body);

}  // namespace vx::test
