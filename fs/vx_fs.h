// SPDX-License-Identifier: MIT
//
// Files, directories, well-known directories, zip archives and native file dialogs.
//
// - Text is UTF-8 and is passed to the system unchanged. The system reads a path up to its first
//   NUL; `Path` also keeps what follows. Relative paths are relative to the current directory.
// - A failure is reported by the result: false, an empty string or list, or that of the C function.
//   A function logs (vx_log.h) or changes the current error (vx_error.h) only if its comment, its
//   family's, or that of a function that it calls says so. Nothing is thrown except std::bad_alloc
//   and what a callback throws.
// - The functions are thread-safe if the threads use different files and none changes the current
//   directory or the environment. The only state kept between calls is the log's sink and the
//   current error.
// - `errno` is unspecified after a call; the standard I/O functions leave it as the C library does.
// - A "file" is what `isFile` accepts, a "directory" what `isDir` accepts, except a removed one
//   (vx_path.h).
// - Names in parentheses are the calls that a function makes: (stat), (`mkDir`).
// - docs/surprises.md lists results that differ from what a caller may expect.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <cstddef>
#include <cstdio>
#include <functional>

namespace vx::fs {

// ---- Standard I/O ---------------------------------------------------------------------------
// Each function makes one C library call and returns its result, except where noted. Offsets have
// 64 bits on every system. The caller owns the streams.

/// Opens `path` (fopen). Returns the stream, null on failure.
[[nodiscard]] FILE* Fopen(String path, String mode);
/// Reopens `stream` on `path` (freopen). Returns the stream, or closes it and returns null.
FILE* Freopen(String path, String mode, FILE* stream);
/// Closes `stream` (fclose). Returns 0, or EOF on failure; the stream is closed either way.
int Fclose(FILE* stream);
/// Removes a file or an empty directory (remove). Returns true on success, unlike `Frename`.
bool Fremove(String path);
/// Sets the position to `offset` bytes from `whence` (fseeko). Returns 0, or -1 on failure.
int Fseek(FILE* stream, long long offset, int whence);
/// Returns the position in bytes, -1 on failure (ftello).
[[nodiscard]] long long Ftell(FILE* stream);
/// Reads up to `count` items of `size` bytes (fread). Returns the number of whole items read.
std::size_t Fread(void* buffer, std::size_t size, std::size_t count, FILE* stream);
/// Writes `count` items of `size` bytes (fwrite). Returns the number of whole items written.
std::size_t Fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream);
/// Flushes `stream`, or all streams if it is null (fflush). Returns 0, or EOF on failure.
int Fflush(FILE* stream);
/// Renames `from` to `to`, replacing an existing `to` (rename). Returns 0, or -1 on failure.
int Frename(String from, String to);

// ---- Status queries -------------------------------------------------------------------------
// Each query normalizes the path (`Path::normalize`) and calls stat, which follows symbolic links.
// A path for which stat fails does not exist, and neither does the empty path.

/// Returns whether `path` is a directory, block device or socket: all three have the directory bit.
[[nodiscard]] bool isDir(String path);
/// Returns whether `path` exists and is not a directory: a regular file, character device or FIFO.
[[nodiscard]] bool isFile(String path);
/// Returns `isDir(path) || isFile(path)`.
[[nodiscard]] bool exists(String path);

// ---- Directories ----------------------------------------------------------------------------
// Each mkdir or rmdir call replaces the current error. The context is "mkDir" or "rmDir"; the code
// is `errno` after the call, which is reset before it, and the message is the system's for that
// code. Log lines are errors; "[err: %s]" quotes that message.

/// Creates the directory `path` and its missing parents, with mode 0777 minus the umask (stat,
/// mkdir). The path is normalized first: "link/../x" is "x" next to the link. A missing path that
/// starts with a backslash is created in the root directory. Directories created
/// before a failure remain. Fails if another process creates one of the directories at that time.
///
///   mkDir("a/b/c") => true; a, a/b and a/b/c exist
///   mkDir("f")     => false if f is a file, and logs nothing
///   mkDir("f/x")   => false, and logs "Failed to create dir: f [err: File exists]."
///
/// Returns whether the directory existed or has been created; false for the empty path. If "/" or
/// "." does not exist, logs "Cannot split path for mkDir: %s." and returns false.
bool mkDir(String path);

/// Removes the empty directory that `path` names or links to (stat, realpath, rmdir). Returns true
/// on success or if `path` is missing, false for the empty path or after logging an error:
///   "rmDir called for file: %s."           the normalized path
///   "Failed to remove dir: %s [err: %s]."  the canonical path
bool rmDir(String path);

/// Removes the file `path` (stat, remove). stat gets the normalized path, remove gets the path as
/// given; these can name different files if ".." follows a symbolic link. Returns false if the
/// removal fails; true otherwise, also if `path` is not a file.
bool rmFile(String path);

// ---- Copy and move --------------------------------------------------------------------------
// The source must be a file. stat gets the normalized paths; all other calls get the paths as
// given. No directories are created.

/// Copies the bytes of the file `src` to `dst`, after removing a file at `dst` (stat, remove, file
/// streams). Mode and times are not copied. Stream errors are not checked: the copy is empty if
/// `src` cannot be opened or ends in a slash, and short if the disk is full.
///
/// Returns whether `src` was a file and `dst` is one afterwards. If a file at `dst` cannot be
/// removed, returns false and logs the error
/// "File copy failed, could not delete destination file: %s".
///
/// If the paths are equal, ignoring the case of ASCII letters, nothing is copied, the warning
/// "Cannot copy '%s' to itself." is logged, and the result is whether `dst` is a file. Other names
/// of one file are not recognized: copying "./a" onto "a", or a symbolic link onto its target,
/// leaves an empty file.
bool copyFile(String src, String dst);

/// Renames the file `src` to `dst`, keeping the previous `dst` as a backup until that succeeds:
/// 1. Remove what is at the backup's path, `Path::changeExt(dst, ".bak")`.
/// 2. Rename `dst` to the backup.
/// 3. Rename `src` to `dst`.
/// 4. Remove the backup if step 3 has succeeded; otherwise rename it to `dst`.
///
/// Returns whether step 3 has succeeded; across devices it fails, and both files remain unless
/// `dst` is the backup's path. Failures of other steps are ignored. A process that is killed can
/// leave the previous file as the backup.
///
/// A file or empty directory at the backup's path is lost, even if it is `src` or if there is no
/// `dst`. If `dst` is the backup's path and step 3 succeeds, both files are lost. A non-empty
/// directory at that path is not removed, but step 4 can rename it to `dst` if step 3 has failed.
bool moveFile(String src, String dst);

// ---- Listing --------------------------------------------------------------------------------
// Each item is `dir` joined with the name of an entry, in the system's order (readdir). Hidden
// entries are included; "." and ".." are not. Each entry costs one stat call. If `dir` cannot be
// opened, the list is empty; an error while reading truncates it.

/// Returns the subdirectories of `dir`, including links to directories.
[[nodiscard]] StringVector listDirs(String dir);

/// Returns the entries of `dir` with an extension in `exts`, except directories:
///   listFiles("d", {"png"})          => "d/a.png", "d/B.PNG"
///   listFiles("d", {"png", ".PNG"})  => each of them twice in a row
///   listFiles("d", {})               => nothing
///   listFiles("d", {""})             => entries without an extension, and those that end in "."
/// Entries for which stat fails are included: dangling links, and all entries, even subdirectories,
/// of a directory that can be read but not searched.
/// @param exts with or without the leading dot, in any letter case.
[[nodiscard]] StringVector listFiles(String dir, StringVector exts);

// ---- Executable and bundle ------------------------------------------------------------------
// On failure, each function sets the current error to code 0, context "vx::Path::exePath()" and one
// of these messages:
//   "Returning empty path"         the system does not report the path
//   "Failed to retrieve exe path"  the system reports only the length, not the path
//   "Returning non-existent path"  there is no file at the returned path

/// Returns the canonical path of the running executable, or the empty string if it is unknown
/// (macOS _NSGetExecutablePath, Linux /proc/self/exe). It is not cached. Linux reports the new path
/// after a rename, the former path after a removal, and no path longer than 4,095 bytes.
[[nodiscard]] String exePath();

/// Returns the directory of the executable, or the empty string if `exePath` is empty.
[[nodiscard]] String exeDir();

/// Returns the directory that contains the application. In a bundle, where `exeDir()` is named
/// "MacOS", that is its third parent, or the fourth if the third does not exist. Otherwise it is
/// `exeDir()`.
[[nodiscard]] String appDir();

/// Returns the directory of the application's resources. In a bundle, it is "Resources" next to
/// "MacOS", or their parent directory if there is no "Resources"; otherwise `exeDir()`.
[[nodiscard]] String resDir();

// ---- Current, home and temporary directories ------------------------------------------------
// Directories are canonical. A `get` function sets `out` even if it fails; the others call it. Log
// lines quote the message of the current error, which these functions do not set.

/// Gets the current directory. If it has been removed or is not searchable, sets `out` to "." and
/// returns false.
bool getCurrentDir(String& out);
/// Gets the directory that the environment variable HOME names. If there is none, logs the warning
/// "Failed to find home dir: %s" and returns the result of `getCurrentDir`.
bool getHomeDir(String& out);
/// Gets the directory for temporary files and returns true. Candidates, in order:
/// 1. the first existing directory of: the environment variable TMPDIR, "/var/tmp/", "/tmp";
/// 2. the current directory, with the warning "Failed to find temp dir, using current dir (%s).";
/// 3. "/tmp", with the error "Failed to find both temp and current directories (%s).".
bool getTempDir(String& out);

[[nodiscard]] String currentDir();  ///< Returns the current directory, or "." on failure.
[[nodiscard]] String homeDir();     ///< Returns the home directory, or `currentDir()` on failure.
[[nodiscard]] String tempDir();     ///< Returns the directory for temporary files.

// ---- Product directories --------------------------------------------------------------------
// The user directory is the value of the environment variable KAVRA_USER_DIR, unchanged, if that
// names a directory; otherwise it is "kavra" in the home directory (`getHomeDir`). If `create` is
// true, "kavra" and the requested subdirectory are created (`mkDir`).
//
// A `get` function that fails sets `out` to the directory that is missing or cannot be created: its
// own or the user directory. It logs the line for that directory, with "find" or "create", the
// path, and the message of the current error, which may be from an earlier failure:
//   "Failed to %s kavra user dir: %s (%s)."    a warning; also with "config" for "user"
//   "Failed to %s kavra output dir: %s (%s)."  an error; also with "preview" for "output"
// If `getHomeDir` fails, `out` is "." and none of these lines is logged. The other functions return
// the directory, or `currentDir()` if the `get` function fails.

bool getKavraUserDir(String& out, bool create);     ///< Gets the user directory.
bool getKavraConfigDir(String& out, bool create);   ///< Gets "config" in the user directory.
bool getKavraOutputDir(String& out, bool create);   ///< Gets "output" in the user directory.
bool getKavraPreviewDir(String& out, bool create);  ///< Gets "preview" in the user directory.

[[nodiscard]] String kavraUserDir(bool create);     ///< Returns the user directory.
[[nodiscard]] String kavraConfigDir(bool create);   ///< Returns "config" in the user directory.
[[nodiscard]] String kavraOutputDir(bool create);   ///< Returns "output" in the user directory.
[[nodiscard]] String kavraPreviewDir(bool create);  ///< Returns "preview" in the user directory.

/// Returns the path of "nodehelp.html" in `kavraUserDir(true)`, whether or not that page exists.
/// @param asUrl prepends "file://" and turns backslashes into slashes; nothing is percent-encoded.
[[nodiscard]] String kavraNodeHelpPath(bool asUrl);

// ---- Zip archives ---------------------------------------------------------------------------
// Data is streamed between files (miniz); no entry is held in memory as a whole. An archive or
// input that is a FIFO blocks the call until another process opens it. Log lines are errors, except
// where noted.

/// A progress report of `writeZip`.
struct ZipProgress {
  String file;            ///< the entry's name in the archive
  double progress = 0.0;  ///< the number of files before this one, divided by the number given
};

/// Receives reports on the calling thread; may be empty. If it throws, the archive's memory and
/// descriptor are leaked, and an empty or partial file replaces a previous archive.
using ZipCallback = std::function<void(ZipProgress)>;

/// Extracts the entries of `archive` into `outDir` and creates missing directories (`mkDir`). Files
/// get the time of their entry, but not its mode. A symbolic-link entry becomes a regular file
/// containing the link target.
/// - An existing regular file is truncated, even if the extraction then fails, and rewritten; it
///   keeps its mode and hard links. The archive and anything else that exists is not overwritten.
/// - An entry whose path would end in ".ksx", in any letter case, is extracted to the archive's
///   canonical path with the extension ".ksx" instead; the last such entry overwrites the others.
/// - Other names that would escape `outDir` are refused; only "/" is a separator. Symbolic
///   links in `outDir` are followed.
///
/// The first three errors end the call. Otherwise a bad entry is skipped, and the extracted part of
/// a damaged file remains on disk:
///   "Cannot expand non-existent archive: %s"         not a file; the normalized path
///   "Failed to create archive output dir: %s"
///   "Failed to initialize archive: %s"               not a readable zip archive; canonical path
///   "Failed to extract filename %llu from archive."  the name of this entry cannot be read
///   "Unaupported file in archive: %s"                (sic) a warning: encrypted, an unknown
///                                                    method, or the name escapes; as archived
///   "Failed to create archive subdir: %s"            the path of the directory entry or file
///   "Failed to extract file %s from archive."        damaged, or the path cannot be written
///   "Failed to close archive: %s"                    canonical path; the list is still returned
/// Returns the path of each extracted file, in the order of the archive.
/// @param outDir if empty, the directory of the normalized `archive`; for a bare name, that of its
///   canonical path. The returned paths are relative or absolute accordingly.
/// @param callback never called.
StringVector readZip(String archive, String outDir, ZipCallback callback = {});

/// Writes the zip archive `archive` from `files`, replacing a previous one. An entry's name is the
/// file name, prefixed with "res/" unless it ends in ".ksx" or ".ksa" (lower case). Names
/// are stored unchanged and marked as UTF-8; duplicates are kept. The compression level is 1. An
/// empty list gives a valid archive.
///
/// Skips inputs that are not files, and the archive itself if this call creates it. A read error
/// truncates the entry and is not logged; a file that grows while it is read ends the call.
///
/// Returns whether the archive has been written and closed. If an existing archive is one of
/// `files`, under any name, the call fails without any change. After any other failure, `archive`
/// is removed, even if it is a previous archive, a character device or a link to a file (not the
/// file itself). If that is not permitted, the previous or an incomplete archive remains. Errors,
/// with the archive's normalized path unless noted:
///   "Failed to initialize archive: %s"             it cannot be created
///   "Cannot add non-existent file to archive: %s"  the skipped file's normalized path
///   "Failed to add file to archive: %s"            ends the call; the file's canonical path
///   "Failed to finalize archive: %s"               memory, descriptor and disk space are leaked
///   "Failed to close archive: %s"
/// @param callback called after each added file; for three files with 0, 1/3 and 2/3, never 1.0.
bool writeZip(String archive, StringVector files, ZipCallback callback = {});

// ---- Ksz archives ---------------------------------------------------------------------------
// Zip archives of a scene. Log lines and the current error are those of `readZip` and `writeZip`.

/// A progress report of `writeKsz`.
struct KszProgress {
  String file;            ///< see `ZipProgress::file`
  double progress = 0.0;  ///< see `ZipProgress::progress`
};

/// Same as `ZipCallback`.
using KszCallback = std::function<void(KszProgress)>;

/// Extracts `archive` into the directory that contains it: `readZip` with an empty `outDir`. The
/// scene gets the archive's name. `callback` is never called. Returns whether any file was
/// extracted.
bool readKsz(String archive, KszCallback callback = {});

/// Same as `writeZip`. No extension is added to the archive's name.
bool writeKsz(String archive, StringVector files, KszCallback callback = {});

// ---- File references ------------------------------------------------------------------------

/// Returns the canonical path of the first candidate that is a file (stat), or the empty string if
/// there is none. With the search directories "p" and "q" and the extensions "a" and "b", a stored
/// reference has these candidates, in order:
///   "tex/wood.*"   => tex/wood.a, p/wood.a, tex/wood.b, p/wood.b,
///                     tex/wood.a, q/wood.a, tex/wood.b, q/wood.b
///   "tex/wood.png" => tex/wood.png, p/wood.png, p/tex/wood.png, q/wood.png, q/tex/wood.png,
///                     then those of "tex/wood.png.*"
/// An absolute reference skips p/tex/wood.png and q/tex/wood.png. The joined paths are normalized;
/// a missing search directory is skipped unless a ".." removes it. A reference from an untrusted
/// document can name any file that the process may see.
/// @param searchDirs highest priority first.
/// @param extensions highest priority first, with or without the leading dot; "*" is ignored.
[[nodiscard]] String resolvePath(String path, StringVector searchDirs, StringVector extensions);

// ---- Dialogs --------------------------------------------------------------------------------
// Native file dialogs (tinyfiledialogs). A call blocks until the user closes the dialog; cancelling
// gives an empty result. Only one may be open at a time. tinyfiledialogs puts the texts into a
// shell command in a fixed-size buffer (docs/guides/dialogs.md), so two rules apply:
// - Pass no text from an untrusted source, and none with quotes, backquotes, dollar signs or
//   backslashes. Keep their total length below 600 bytes; count a filter twice, plus 8.
// - Pass an absolute `defaultPath`. Otherwise a packaged tinyfiledialogs can run the name of the
//   last chosen directory as a shell command.
//
// Filters are extensions, with or without the leading dot, or patterns that start with "*". They
// are shown after `filterDesc` as given: "Images (png, .jpg)". A `defaultPath` that ends in a slash
// opens that directory; any other opens its parent. `Path::join(dir, "/")` adds no slash.

/// Kinds of dialog.
enum class DialogType { Open = 0, Save = 1, Folder = 2 };

/// Lets the user pick one existing file. Returns its path; some dialogs also return a directory.
[[nodiscard]] String browseFile(String title, String defaultPath, String filterDesc,
                                StringVector filters);
/// Lets the user pick existing files. Returns their paths in the dialog's order.
[[nodiscard]] StringVector browseFiles(String title, String defaultPath, String filterDesc,
                                       StringVector filters);
/// Lets the user pick an existing directory. Returns its path.
[[nodiscard]] String browseDir(String title, String defaultPath);
/// Lets the user choose a file name to save to. Returns its path, or the empty string if the name
/// contains one of \ : * ? " < > or its directory does not exist.
[[nodiscard]] String saveFile(String title, String defaultPath, String filterDesc,
                              StringVector filters);

}  // namespace vx::fs
