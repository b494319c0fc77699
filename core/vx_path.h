// Paths: text questions about them, their normal and canonical forms, and what they name.
//
// Terms. The separator is "/"; a backslash is a character like any other. The components of a path
// are the texts between separators; the last one is its file name. The extension is what follows
// the last "." of the file name, unless that "." is its first character:
//
//   path            file name      stem           extension (with dot)
//   "a/wood.png"    "wood.png"     "wood"         ".png"
//   "a/wood.t.png"  "wood.t.png"   "wood.t"       ".png"
//   "wood."         "wood."        "wood"         "."   (without dot: "")
//   ".profile"      ".profile"     ".profile"     ""
//   "a/b/"          "b"            "b"            ""
//   "." ".."        itself         itself         ""
//   "/" ""          ""             ""             ""
//
// The normal form is lexical, and computed without a look at the file system: runs of separators
// collapse, "." components go, a ".." takes its predecessor with it, goes at the root, and stays at
// the front of a relative path; a trailing separator goes. A relative path of which nothing is left
// is ".", and the empty path stays empty.
//
//   "a//b/./c/"  => "a/b/c"      "/../a"   => "/a"       "a/.."  => "."
//   "a/../../b"  => "../b"       "//a"     => "/a"       ""      => ""
//
// Where a symbolic link stands before a "..", the normal form may name another entry than the path.
//
// The empty path names nothing: it is no directory, no file, and does not exist. Status queries
// follow symbolic links. An entry is a directory when the directory bit of its mode is set, which
// holds for block devices and sockets too, and a file when it is anything else.
//
// Nothing here fails, logs or records an error: a query about a path that cannot be examined is
// false. Only `canonical`, `dir()`, `isDir`, `isFile` and `exists` touch the file system; they may
// change `errno`. A `Path` is a value that never changes but by assignment; different threads may
// use one at once as long as none assigns to it.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

// The tool does not see that the template moves.
#include <utility>  // IWYU pragma: keep

namespace vx {

/// A path, and the questions about it: see the head of this file.
class Path {
 public:
  /// Takes `path` in its normal form when `normalizeFirst`, else as written. Every member works on
  /// the text so taken.
  Path(String path, bool normalizeFirst);

  /// The normal form.
  [[nodiscard]] String normalized() const;

  /// The absolute form with symbolic links resolved (realpath).
  ///
  /// Links are resolved in the longest prefix that exists; the missing rest follows in normal form.
  /// The empty path gives the current directory. Where the current directory is needed and cannot
  /// be had (it has been removed), the result is the normal form, "." for the empty path. It is
  /// never empty.
  [[nodiscard]] String canonical() const;

  /// The named levels in order, without an entry for the root and without "." components. A ".."
  /// counts as a level.
  ///
  ///   "/a/b" => "a", "b"      "../a" => "..", "a"      "/", ".", "" => nothing
  [[nodiscard]] StringVector components() const;

  /// The directory that the path denotes: the path itself when it names an existing directory,
  /// otherwise the path without its last component. One status query.
  ///
  ///   "a/b" => "a"      "a" => ""      "/a" => "/"      "" => ""   (where none is a directory)
  [[nodiscard]] String dir() const;

  /// The file name, or its stem when `withExt` is false. `file(false)` and `ext(true)` together
  /// make `file(true)`.
  [[nodiscard]] String file(bool withExt) const;

  /// The extension, with its leading "." or without it; empty where there is none.
  [[nodiscard]] String ext(bool withDot) const;

  /// Whether the path names an existing directory (stat). False for "." in a current directory that
  /// has been removed, which the system may still report as a directory.
  [[nodiscard]] bool isDir() const;

  /// Whether the path names an existing entry that is not a directory (stat).
  [[nodiscard]] bool isFile() const;

  /// Whether the path does not begin with "/"; true for the empty path.
  [[nodiscard]] bool isRel() const noexcept;

  /// Whether the path names an existing entry of any kind (stat).
  [[nodiscard]] bool exists() const;

  /// The normal form of `path`. A path that is its own normal form comes back as the same handle.
  [[nodiscard]] static String normalize(String path);

  /// With `isDir`, `path` itself in normal form, whether or not anything is there. Without, the
  /// text before its last component, as written.
  ///
  ///   ("a/b", false) => "a"     ("./a", false) => "."     ("a/./b", true) => "a/b"
  ///   ("a", false)   => ""      ("/a", false)  => "/"     ("", true)      => ""
  [[nodiscard]] static String dir(String path, bool isDir);

  /// As `Path(path, false).ext(withDot)`.
  [[nodiscard]] static String ext(String path, bool withDot);

  /// As `Path(path, normalizeFirst).isDir()`.
  [[nodiscard]] static bool isDir(String path, bool normalizeFirst);

  /// As `Path(path, normalizeFirst).isFile()`.
  [[nodiscard]] static bool isFile(String path, bool normalizeFirst);

  /// Returns `path` with `newExt` in place of its extension and without trailing separators. A
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

  /// Joins the parts with exactly one "/" between two parts.
  ///
  /// Empty parts are skipped. The first part that is not empty keeps its leading separators; those
  /// of later parts are dropped, and a later part made only of separators counts as empty. Nothing
  /// else is normalised.
  ///
  ///   {"a", "b"}   => "a/b"     {"a//", "//b"} => "a/b"     {"", "/b"} => "/b"
  ///   {"/", "b"}   => "/b"      {"a", ""}      => "a"       {"./a", "../b"} => "./a/../b"
  ///   {"a", "/"}   => "a"       {"a/", "/"}    => "a/"      {"", "/"} => "/"
  [[nodiscard]] static String join(StringVector parts);

  /// Joins separate parts in the same way. Each is a `String` or a NUL-terminated text.
  template <class... Parts>
  [[nodiscard]] static String join(Parts... parts) {
    return join(StringVector{String(std::move(parts))...});
  }

 private:
  String path_;
};

}  // namespace vx
