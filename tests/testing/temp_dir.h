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
/// Everybody may enter and list it, so that an unprivileged child can use what a test that runs as
/// root has created. The destructor removes it with everything in it, even unreadable directories
/// and trees deeper than the number of descriptors. A step that fails throws, which fails the test.
class TempDir {
 public:
  TempDir();

  /// Returns a directory in memory if the system supports that, for tests that create thousands of
  /// files.
  [[nodiscard]] static TempDir inMemory();

  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  ~TempDir();

  /// Returns the absolute path of the directory, without a trailing separator.
  [[nodiscard]] const std::string& path() const noexcept { return path_; }

  /// Returns the full path of `relative`, as written, whether or not it exists.
  [[nodiscard]] std::string path(std::string_view relative) const;

  /// Creates the directory and every missing parent directory; returns its full path.
  std::string mkdir(std::string_view relative) const;

  /// Creates or replaces the file with `content`, NUL included, and the missing parent directories;
  /// returns its full path.
  std::string write(std::string_view relative, std::string_view content) const;

  /// Creates the symbolic link, which may dangle, and the missing parent directories; returns its
  /// full path.
  std::string link(std::string_view relative, std::string_view target) const;

  /// Removes the directory with everything in it, as the destructor does.
  void removeDir(std::string_view relative) const;

  /// Returns the bytes of the file.
  [[nodiscard]] std::string read(std::string_view relative) const;

  /// Returns whether there is an entry; a dangling link counts.
  [[nodiscard]] bool exists(std::string_view relative) const;

  /// Returns the entries of the whole tree, relative to it and sorted. Directories end in "/", and
  /// links are not followed.
  [[nodiscard]] std::vector<std::string> entries() const;

 private:
  explicit TempDir(const std::filesystem::path& parent);

  std::string path_;
};

/// Creates or replaces the file; its parent directory must exist. Throws if that fails.
void writeFile(const std::filesystem::path& file, std::string_view content);

/// Returns the bytes of the file. Throws if it cannot be read.
[[nodiscard]] std::string readFile(const std::filesystem::path& file);

}  // namespace vx::test
