// SPDX-License-Identifier: MIT
//
// Path: splits, joins and normalizes paths, and queries the entries that they name.
//
// Terms
//
// The separator is "/"; a backslash is an ordinary character. Components are the non-empty parts
// between separators; the last one is the file name. The extension starts at the last "." of the
// file name, unless that is its first character or the name is "..". The stem is the file name
// without the extension:
//
//   path            file name      stem           extension (with dot)
//   "a/wood.png"    "wood.png"     "wood"         ".png"
//   "a/wood.t.png"  "wood.t.png"   "wood.t"       ".png"
//   "wood."         "wood."        "wood"         "."   (without dot: "")
//   ".profile"      ".profile"     ".profile"     ""
//   "a/b/"          "b"            "b"            ""
//   "." ".."        the same       the same       ""
//   "/" ""          ""             ""             ""
//
// The normal form is computed from the text alone. Repeated separators are merged; "." components
// and trailing separators are removed. ".." removes the preceding component; it is dropped at the
// root and kept at the start of a relative path. A relative path with no components left becomes
// "."; the empty path remains empty.
//
//   "a//b/./c/"  => "a/b/c"      "/../a"   => "/a"       "a/.."  => "."
//   "a/../../b"  => "../b"       "//a"     => "/a"       ""      => ""
//
// If the component before a ".." is a symbolic link, the normal form may name a different entry
// than the original path.
//
// Rules
//
// Status queries call stat, which follows symbolic links. The empty path does not exist. An entry
// whose mode has the directory bit is a directory; block devices and sockets have it too. Any other
// entry is a file. A directory that has been removed but is still in use, for example as the
// current directory, does not exist.
//
// Only `canonical`, `dir()`, `isDir`, `isFile` and `exists` access the file system; they may change
// `errno`. Nothing is logged, and the current error is not changed. A query about a path that
// cannot be examined returns false.
//
// A path may contain NUL bytes. Operations on the text include the bytes after a NUL, but the
// system reads the path only up to its first NUL.
//
// Relative paths are resolved against the current directory, which all threads of the process
// share. Different threads may use one `Path` at the same time as long as none assigns to it.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <iosfwd>
#include <string_view>

// For std::move in a template, which include-what-you-use does not see.
#include <utility>  // IWYU pragma: keep

namespace vx {

/// A path. The terms and rules are at the top of this file.
class Path {
 public:
  /// Stores the normal form of `path` if `normalizeFirst` is true, otherwise `path` as written.
  Path(String path, bool normalizeFirst);

  /// Rejects a string as a flag, here and below: `Path("dir", "file")` would ignore "file".
  template <class Text>
  Path(String path, Text* notAFlag) = delete;

  /// Returns the normal form.
  [[nodiscard]] String normalized() const;

  /// Returns the absolute path with symbolic links resolved (realpath).
  ///
  /// Links are resolved in the longest existing prefix; the missing rest is appended, and the
  /// result is normalized. The empty path gives the current directory.
  ///
  /// Links are not resolved if realpath fails for that prefix, for example because the result is
  /// too long or a parent of the current directory is not searchable. The path is then only
  /// normalized, after the current directory has been put before a relative path. If the current
  /// directory cannot be determined, for example because it has been removed, a relative path
  /// remains relative, and the empty path gives ".".
  [[nodiscard]] String canonical() const;

  /// Returns the components in order, without "." components. The root is not a component; ".." is.
  ///
  ///   "/a/b" => "a", "b"      "../a" => "..", "a"      "/", ".", "" => nothing
  [[nodiscard]] StringVector components() const;

  /// Returns the path itself if it names an existing directory, otherwise the path without its last
  /// component. Makes one stat call, none for the empty path.
  ///
  ///   "a/b" => "a"      "a" => ""      "/a" => "/"      "" => ""   (if none is a directory)
  [[nodiscard]] String dir() const;

  /// Returns the file name, or its stem if `withExt` is false. `file(false) + ext(true)` equals
  /// `file(true)`.
  [[nodiscard]] String file(bool withExt) const;

  template <class Text>
  String file(Text* notAFlag) const = delete;

  /// Returns the extension, with or without its leading "."; empty if there is none.
  [[nodiscard]] String ext(bool withDot) const;

  template <class Text>
  String ext(Text* notAFlag) const = delete;

  /// Returns whether the path names an existing directory.
  ///
  /// A directory whose link count (`st_nlink`) is 0 has been removed. Some file systems keep the
  /// count of a removed directory, so if getcwd fails with ENOENT, a path whose normal form is "."
  /// does not exist either. Other errors of getcwd are ignored.
  [[nodiscard]] bool isDir() const;

  /// Returns whether the path names an existing entry that is not a directory.
  [[nodiscard]] bool isFile() const;

  /// Returns whether the path does not start with "/"; true for the empty path.
  [[nodiscard]] bool isRel() const noexcept;

  /// Returns whether the path names an existing entry. Same as `isDir() || isFile()`, but with at
  /// most one stat call.
  [[nodiscard]] bool exists() const;

  /// Returns the normal form of `path`. A path in normal form is returned without a copy.
  [[nodiscard]] static String normalize(String path);

  /// Returns the normal form of `path` if `isDir` is true, without any query. Otherwise returns
  /// `path` without its last component, not normalized.
  ///
  ///   ("a/b", false) => "a"     ("./a", false) => "."     ("a/./b", true) => "a/b"
  ///   ("a", false)   => ""      ("/a", false)  => "/"     ("", true)      => ""
  [[nodiscard]] static String dir(String path, bool isDir);

  template <class Text>
  static String dir(String path, Text* notAFlag) = delete;

  /// Same as `Path(path, false).ext(withDot)`.
  [[nodiscard]] static String ext(String path, bool withDot);

  template <class Text>
  static String ext(String path, Text* notAFlag) = delete;

  /// Same as `Path(path, normalizeFirst).isDir()`.
  [[nodiscard]] static bool isDir(String path, bool normalizeFirst);

  template <class Text>
  static bool isDir(String path, Text* notAFlag) = delete;

  /// Same as `Path(path, normalizeFirst).isFile()`.
  [[nodiscard]] static bool isFile(String path, bool normalizeFirst);

  template <class Text>
  static bool isFile(String path, Text* notAFlag) = delete;

  /// Returns `path` with `newExt` instead of its extension, and without trailing separators. A
  /// leading "." is added to `newExt` if it has none. An empty `newExt` removes the extension.
  ///
  ///   ("a/b.txt", ".bak") => "a/b.bak"      ("a/b", ".bak")   => "a/b.bak"
  ///   ("a/b.txt", "bak")  => "a/b.bak"      ("a.txt/", ".x")  => "a.x"
  ///   ("b.tar.gz", ".x")  => "b.tar.x"      ("b.txt", "")     => "b"
  ///   (".profile", ".x")  => ".profile.x"   ("b.txt", ".")    => "b."
  ///
  /// A path without a file name ("", "/", "//") or with "." or ".." as its file name ("a/..", "./")
  /// is returned unchanged.
  [[nodiscard]] static String changeExt(String path, String newExt);

  /// Returns the parts joined with exactly one "/" between two parts.
  ///
  /// Empty parts are skipped. The first non-empty part keeps its leading separators, as one if it
  /// consists of separators; later parts lose theirs and count as empty if nothing is left. The
  /// result is not otherwise normalized.
  ///
  ///   {"a", "b"}   => "a/b"     {"a//", "//b"} => "a/b"     {"", "/b"} => "/b"
  ///   {"/", "b"}   => "/b"      {"a", ""}      => "a"       {"./a", "../b"} => "./a/../b"
  ///   {"a", "/"}   => "a"       {"a/", "/"}    => "a/"      {"", "/"} => "/"
  [[nodiscard]] static String join(StringVector parts);

  /// Same as above for separate parts. Each is a `String` or a C string.
  template <class... Parts>
  [[nodiscard]] static String join(Parts... parts) {
    return join(StringVector{String(std::move(parts))...});
  }

  /// Returns whether the texts are equal: Path("a//b", false) differs from Path("a/b", false).
  [[nodiscard]] bool operator==(const Path& other) const noexcept = default;

  /// Writes the path, formatted as the stream formats a string.
  friend std::ostream& operator<<(std::ostream& stream, const Path& path) {
    return stream << path.path_;
  }

  /// Returns the path's text for {fmt}.
  [[nodiscard]] friend std::string_view format_as(const Path& path VX_LIFETIMEBOUND) noexcept {
    return path.path_.view();
  }

 private:
  String path_;
};

}  // namespace vx
