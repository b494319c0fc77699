// SPDX-License-Identifier: MIT
//
// A fresh directory for one test.
//
//   TempDir tmp;
//   const std::string file = tmp.write("a/b.txt", "text");
//   ...
//   EXPECT_EQ(tmp.entries(), lines("a/", "a/b.txt"));

#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace vx::test {

/// Its path is canonical, since the system's temporary directory may be reached through a link.
/// Everybody may enter and list it, so that an unprivileged child can work on what a test that runs
/// as root has prepared. The destructor removes it with everything in it: unreadable directories,
/// and trees deeper than the number of descriptors. A step that fails throws, which fails the test.
class TempDir {
 public:
  TempDir();

  /// A directory in memory where the system has such a place, for tests that create thousands of
  /// files.
  [[nodiscard]] static TempDir inMemory();

  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir();

  /// The directory itself, absolute, without a trailing separator.
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// The full path of `relative`, as written, whether or not anything is there.
  [[nodiscard]] std::string path(std::string_view relative) const;

  /// Creates the directory and every missing parent directory; returns its full path.
  std::string mkdir(std::string_view relative) const;

  /// Creates or replaces the file with `content`, NUL included, and the missing parent directories;
  /// returns its full path.
  std::string write(std::string_view relative, std::string_view content) const;

  /// Creates the symbolic link, which need not lead anywhere, and the missing parent directories;
  /// returns its full path.
  std::string link(std::string_view relative, std::string_view target) const;

  /// Removes the directory with everything in it, as the destructor does.
  void removeDir(std::string_view relative) const;

  /// The bytes of the file.
  [[nodiscard]] std::string read(std::string_view relative) const;

  /// Whether anything is there, a dangling link included.
  [[nodiscard]] bool exists(std::string_view relative) const;

  /// The entries of the whole tree, relative to it and sorted; directories end in "/", and links
  /// are not followed.
  [[nodiscard]] std::vector<std::string> entries() const;

 private:
  explicit TempDir(const std::filesystem::path& parent);

  std::string path_;
};

/// Creates or replaces the file, whose parent directory must exist. Throws when that fails.
void writeFile(const std::filesystem::path& file, std::string_view content);

/// The bytes of the file. Throws when it cannot be read.
[[nodiscard]] std::string readFile(const std::filesystem::path& file);

}  // namespace vx::test
