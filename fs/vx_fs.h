// SPDX-License-Identifier: MIT
//
// Files, directories, well-known locations, zip archives and native file dialogs.
//
// - Text is UTF-8 and goes to the system unchanged. The system stops reading a path at its first
//   NUL; `Path` sees all of it. The path separator is "/". Relative paths start at the current
//   directory. Arguments are values: the caller's own are never changed.
// - A function reports failure through its result: false, an empty string, an empty list. Nothing
//   is thrown except on out-of-memory; an exception of a caller's callback passes through. A
//   function that also logs (vx_log.h) or sets the current error (vx_error.h) says so in its
//   comment.
// - No state is kept between calls, apart from the log and the current error.
// - Every function runs on the calling thread. Calls on several threads are safe if they work on
//   different files and no thread changes the current directory or the environment meanwhile.
// - `errno` after a call is unspecified, except that stdio leaves it as the library call did.
// - "File" and "directory" mean what `isFile` and `isDir` say, which follow symbolic links.
// - Calls named in parentheses, like (stat, mkdir), are the system or library calls that are made.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <cstddef>
#include <cstdio>
#include <functional>

namespace vx::fs {

// ---------------------------------------------------------------------------------------------
// Standard I/O with `String` paths. Each function makes exactly one library call and returns its
// result, except where noted. The caller owns the stream.

/// Opens `path` (fopen). @return the stream, null on failure.
[[nodiscard]] FILE* Fopen(String path, String mode);

/// Reopens `stream` on `path` (freopen). @return the stream; null on failure, when it is closed.
FILE* Freopen(String path, String mode, FILE* stream);

/// Closes `stream` (fclose). @return 0, or EOF on failure; the stream is closed either way.
int Fclose(FILE* stream);

/// Removes the file or the empty directory `path` (remove).
/// @return true on success, not the library's result; compare `Frename`.
bool Fremove(String path);

/// Moves the position by `offset` bytes from `whence`: SEEK_SET, SEEK_CUR or SEEK_END (fseeko, with
/// 64-bit offsets everywhere). @return 0, or -1 on failure.
int Fseek(FILE* stream, long long offset, int whence);

/// Returns the position in bytes, -1 on failure (ftello, with 64-bit offsets everywhere).
[[nodiscard]] long long Ftell(FILE* stream);

/// Reads up to `count` items of `size` bytes (fread). @return the number of whole items read.
std::size_t Fread(void* buffer, std::size_t size, std::size_t count, FILE* stream);

/// Writes `count` items of `size` bytes (fwrite). @return the number of whole items written.
std::size_t Fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream);

/// Writes out the buffer of `stream`, or of all streams when it is null (fflush).
/// @return 0, or EOF on failure.
int Fflush(FILE* stream);

/// Renames `from` to `to` and replaces what is there (rename).
/// @return 0 on success and -1 on failure, the library's own result. Unlike with `Fremove`, success
///   is false as a truth value.
int Frename(String from, String to);

// Status queries. Each normalizes the path (`Path::normalize`) and makes one stat call. An entry
// that cannot be examined does not exist. The empty path does not exist, and makes no call.

/// Returns whether `path` exists and its mode has the directory bit: a directory, or a block device
/// or socket, whose types share that bit.
[[nodiscard]] bool isDir(String path);

/// Returns whether `path` exists and its mode lacks the directory bit: a regular file, a character
/// device or a FIFO.
[[nodiscard]] bool isFile(String path);

/// Returns whether `path` exists: `isDir`, or else `isFile` (one or two stat calls).
[[nodiscard]] bool exists(String path);

// ---------------------------------------------------------------------------------------------
// Directories and removal

/// Creates the directory `path`, including any missing parents, like `mkdir -p` (stat, mkdir).
///
///   mkDir("a/b/c") => true; a, a/b and a/b/c exist
///   mkDir("a")     => true; it existed, nothing is done
///   mkDir("f")     => false; f is a file, nothing is logged
///   mkDir("f/x")   => false; logs "Failed to create dir: f [err: File exists]."
///   mkDir("")      => false; nothing is logged
///
/// New directories get mode 0777 minus the umask. Directories created before a failure are not
/// removed. If another process creates one of them at the same time, the call fails. Each mkdir
/// call replaces the current error (context "mkDir"), with code 0 and no message on success. When
/// nothing has to be created, the current error is left alone.
///
/// The path is normalized first, so "link/../x" is "x" next to the link. A path that begins with a
/// backslash is tested as given but created at the root, with the backslash as part of the first
/// name: true then does not mean that `isDir(path)` is true.
///
/// @return true when the normalized path is a directory. False and silent when `path` is empty or
///   names something else. False with one error line when a directory cannot be created ("Failed to
///   create dir: %s [err: %s].", that directory and the system's text) or when the path has no
///   component ("Cannot split path for mkDir: %s.", the normalized path).
bool mkDir(String path);

/// Removes the empty directory `path` (stat, rmdir). The content of a directory is never removed.
///
/// Each rmdir call replaces the current error (context "rmDir"), with code 0 and no message on
/// success. For a symbolic link to a directory, that directory is removed, not the link.
///
/// @return true when `path` is not a directory afterwards. False and silent when `path` is empty.
///   False with one error line when it is a file ("rmDir called for file: %s.", the normalized
///   path) or cannot be removed ("Failed to remove dir: %s [err: %s].", the canonical path and the
///   system's text).
bool rmDir(String path);

/// Removes the file `path` (stat, remove).
///
/// The test uses the normalized path, the removal the path as given. The two can name different
/// files when the path has ".." after a symbolic link.
///
/// @return true when there was no file at `path`, or it has been removed. A directory is not a file
///   and remains. False and silent when the removal fails.
bool rmFile(String path);

// ---------------------------------------------------------------------------------------------
// Copy and move of single files. The source must be a file; no directory is created. The tests for
// a file use the normalized path; every other call gets the path as given.

/// Copies the bytes of the file `src` to `dst`, after removing a file at `dst`.
///
/// Mode and times are not copied. The streams' error state is not checked: true does not mean that
/// the copy is complete. A source that cannot be opened gives an empty file, a full disk a short
/// one.
///
/// Texts that differ only in the case of ASCII letters count as one file on every file system:
/// nothing is copied, and the warning "Cannot copy '%s' to itself." is logged with `src`. Other
/// names of one file are not recognized: "./a" and "a", a link copied onto its target, other
/// letters on a case-insensitive volume. The file is then removed, and an empty one is created. A
/// source with a trailing slash also gives an empty file. A FIFO or character device at `dst` is
/// removed too.
///
/// @return whether there is a file at `dst` afterwards. False and silent when `src` is not a file,
///   or when `dst` cannot be created; a previous `dst` has then been removed. False with the error
///   line "File copy failed, could not delete destination file: %s" when it cannot be removed.
bool copyFile(String src, String dst);

/// Renames the file `src` to `dst`, with a previous `dst` as a backup until that has succeeded.
///
/// The backup's name is `dst` with the extension ".bak" (`Path::changeExt`):
/// 1. Remove the backup name.
/// 2. Rename `dst` to the backup name.
/// 3. Rename `src` to `dst`.
/// 4. On success remove the backup; otherwise rename the backup name to `dst`.
///
/// A process killed in between leaves the previous file under the backup name. Note:
/// - A file under the backup name is lost, even when there is no `dst`.
/// - If `src` itself has the backup name, it is removed: moving "a.bak" onto "a.txt" keeps the old
///   "a.txt" and returns true, or leaves no file and returns false when there was none.
/// - If `dst` ends in ".bak", both files are lost, and the result is true.
/// - An empty directory under the backup name is removed. A directory at `dst` becomes the backup,
///   and remains there unless it is empty.
/// - If step 3 fails, for example because `src` and `dst` are on different devices, `src` is
///   unchanged. So is `dst`, unless it is missing and the backup name is a directory that is not
///   empty: that directory is then renamed to `dst`.
///
/// @return true when `src` has been renamed to `dst`. False and silent otherwise.
bool moveFile(String src, String dst);

// ---------------------------------------------------------------------------------------------
// Listing the entries of one directory, without subdirectories' content. Each item is `dir` joined
// with the entry's name, in the system's order (readdir). Hidden entries are included, "." and ".."
// are not. Each entry costs one stat call, which follows links. A directory that does not exist or
// cannot be opened gives an empty list; an error while reading ends the list early.

/// Returns the subdirectories of `dir`, including links to directories.
[[nodiscard]] StringVector listDirs(String dir);

/// Returns the entries of `dir` with an extension in `exts` that are not known to be directories.
///
///   listFiles("d", {"png"})          => "d/a.png", "d/B.PNG"
///   listFiles("d", {"png", ".PNG"})  => each of them twice in a row
///   listFiles("d", {})               => nothing, whatever the directory holds
///   listFiles("d", {""})             => those without an extension, and those that end in "."
///
/// An entry that cannot be examined is listed too: a dangling link, or any entry, a subdirectory
/// included, of a directory that may be read but not searched.
///
/// @param exts with or without the leading dot, in any letter case. An entry is listed once for
///   each that it matches.
[[nodiscard]] StringVector listFiles(String dir, StringVector exts);

// ---------------------------------------------------------------------------------------------
// The running executable and its bundle. None of these logs. On failure the current error has code
// 0, context "vx::Path::exePath()" and one of these messages; on success it is left alone.
//   "Returning empty path"         the system does not know the path
//   "Failed to retrieve exe path"  the system returned the length of the path, but not the path
//   "Returning non-existent path"  the path is returned, but there is no file at it

/// Returns the canonical path of the running executable (macOS _NSGetExecutablePath, Linux
/// /proc/self/exe), or the empty string when it is unknown.
///
/// Nothing is cached. Linux reports the new path after a rename, and no path of more than 4,095
/// bytes. The former path of an executable that has been deleted is still returned.
[[nodiscard]] String exePath();

/// Returns the directory of the executable, or the empty string when `exePath` is empty.
[[nodiscard]] String exeDir();

/// Returns the directory that contains the application. In a bundle, whose executable is in a
/// directory named "MacOS", that is three levels above "MacOS" (four when that directory has been
/// removed); otherwise `exeDir()`.
[[nodiscard]] String appDir();

/// Returns the directory of the application's resources. In a bundle, that is "Resources" next to
/// "MacOS", or the parent directory of "MacOS" when there is no "Resources"; otherwise `exeDir()`.
[[nodiscard]] String resDir();

// ---------------------------------------------------------------------------------------------
// The current, home and temporary directories. Each call reads the environment and the file system.
// A `get` form always sets `out`. None sets the current error. The log lines quote the current
// error's message, which can stem from an earlier failure.

/// Gets the current directory, canonical, or "." when the system cannot tell its path.
/// @return false when it has been removed or may not be searched; `out` is then ".".
bool getCurrentDir(String& out);

/// Gets the user's home directory, canonical:
/// 1. the environment variable HOME, if it names a directory;
/// 2. otherwise the result of `getCurrentDir`, after the warning "Failed to find home dir: %s".
/// @return true for 1, the result of `getCurrentDir` for 2.
bool getHomeDir(String& out);

/// Gets a directory for temporary files, canonical, the first of these that is a directory:
/// 1. the environment variable TMPDIR;
/// 2. "/var/tmp/";
/// 3. "/tmp";
/// 4. the current directory, with the warning "Failed to find temp dir, using current dir (%s).";
/// 5. "/tmp" although it is not a directory, with the error line "Failed to find both temp and
///    current directories (%s).".
/// @return true, in every case.
bool getTempDir(String& out);

/// Returns the current directory, or "." when `getCurrentDir` fails.
[[nodiscard]] String currentDir();

/// Returns the directory of `getHomeDir`, which may log, or `currentDir()` when that fails.
[[nodiscard]] String homeDir();

/// Returns the directory of `getTempDir`, which may log.
[[nodiscard]] String tempDir();

// ---------------------------------------------------------------------------------------------
// The product's directories for each user: the user directory, its subdirectories "config",
// "output" and "preview", and its page "nodehelp.html".
//
// The user directory is the environment variable KAVRA_USER_DIR, exactly as read, if that names an
// existing directory; it is never created. Otherwise it is "kavra" in the home directory. With
// `create`, a missing directory is created by `mkDir`, which may log and replaces the current
// error. Without, it is only looked for.
//
// A `get` form that fails logs its line below, with "create" or "find", the path that it sets `out`
// to, and the current error's message, which can stem from an earlier failure. Before it there may
// be a line of `getHomeDir`, also on success, and one of `mkDir`. If the user directory fails, only
// its line is logged. If the home directory fails, no line below is logged, and `out` is ".".
//   warning  "Failed to %s kavra user dir: %s (%s)."
//   warning  "Failed to %s kavra config dir: %s (%s)."
//   error    "Failed to %s kavra output dir: %s (%s)."
//   error    "Failed to %s kavra preview dir: %s (%s)."

/// Gets the user directory. @return false when it is missing or cannot be created.
bool getKavraUserDir(String& out, bool create);

/// Gets "config" in the user directory. @return false when it is missing or cannot be created.
bool getKavraConfigDir(String& out, bool create);

/// Gets "output" in the user directory. @return false when it is missing or cannot be created.
bool getKavraOutputDir(String& out, bool create);

/// Gets "preview" in the user directory. @return false when it is missing or cannot be created.
bool getKavraPreviewDir(String& out, bool create);

/// Returns the directory of `getKavraUserDir`, which may log, or `currentDir()` when that fails.
[[nodiscard]] String kavraUserDir(bool create);

/// Like `kavraUserDir`, for "config".
[[nodiscard]] String kavraConfigDir(bool create);

/// Like `kavraUserDir`, for "output".
[[nodiscard]] String kavraOutputDir(bool create);

/// Like `kavraUserDir`, for "preview".
[[nodiscard]] String kavraPreviewDir(bool create);

/// Returns the path of "nodehelp.html" in `kavraUserDir(true)`, whether or not the page exists. The
/// user directory is created when it is missing, for either value of `asUrl`.
///
/// @param asUrl whether to put "file://" in front and replace backslashes by slashes. Nothing is
///   percent-encoded.
[[nodiscard]] String kavraNodeHelpPath(bool asUrl);

// ---------------------------------------------------------------------------------------------
// Zip archives. Data is streamed from file to file; no entry is held in memory as a whole.

/// A progress report of `writeZip`.
struct ZipProgress {
  String file;            ///< the entry's name in the archive
  double progress = 0.0;  ///< the number of files before this one, divided by the number given
};

/// Receives a report on the calling thread. None is given by default. If it throws, the exception
/// leaves `writeZip`, the archive's memory and descriptor are leaked, and a previous archive is
/// lost: an empty or partial file remains in its place.
using ZipCallback = std::function<void(ZipProgress)>;

/// Extracts `archive` into `outDir`, which is created if it is missing.
///
/// Each entry is extracted to its name in `outDir`; missing directories are created. Only "/" is a
/// separator in a name. An entry that would be extracted to a path ending in ".ksx", in any letter
/// case, goes to the canonical path of the archive with the extension ".ksx" instead: next to the
/// archive, or to the target if the archive is a symbolic link. Of several, the last one remains. A
/// directory entry of such a name is created there too.
///
/// An existing regular file is truncated and rewritten: it keeps its mode and hard links, and its
/// old content is lost even if the extraction fails. Anything else that exists there, and the
/// archive itself, is not overwritten. Symbolic links in `outDir` are followed. Names that would
/// lead out of `outDir` are refused. A symbolic-link entry becomes a regular file that contains the
/// link target. Files get the time of the entry, but not its mode.
///
/// A bad entry is logged and skipped. Extracted files, and the part of a file that fails, remain on
/// disk. Log lines, all errors but one; the first three end the call:
///   "Cannot expand non-existent archive: %s"         not a file; the normalized path
///   "Failed to create archive output dir: %s"        after the line of `mkDir`, if there is one
///   "Failed to initialize archive: %s"               not a readable zip archive; canonical path
///   "Failed to extract filename %llu from archive."  the name of the entry with that index
///   "Unaupported file in archive: %s"                a warning: encrypted, unknown method, or a
///                                                    name that leads out; the name in the archive
///   "Failed to create archive subdir: %s"            the path of the directory entry or file
///   "Failed to extract file %s from archive."        damaged, or the path cannot be written
///   "Failed to close archive: %s"                    canonical path; the list is still returned
/// `mkDir` replaces the current error when it creates a directory or fails to.
///
/// @param archive a path. Opening a FIFO waits for a writer.
/// @param outDir if empty, the directory of `archive` as given; for a bare name, the directory of
///   its canonical path. The paths returned are relative or absolute accordingly.
/// @param callback never called: reading does not report progress.
/// @return the paths of the extracted files, in the order of the archive, without directories. A
///   path that two entries share is listed twice.
StringVector readZip(String archive, String outDir, ZipCallback callback = {});

/// Writes the zip archive `archive` from `files`, replacing a previous one.
///
/// Entries are named by the file name only: names ending in ".ksx" or ".ksa", in lower case, are at
/// the root, all others in "res". Two files of one name become two entries of one name. Names are
/// stored as given and marked as UTF-8; some programs refuse an archive with a name that is not.
/// The compression level is 1. An empty list gives a valid empty archive.
///
/// A file that does not exist is logged and left out, and so is the archive itself if this call has
/// created it. If a read fails, the entry contains what was read before and nothing is logged. A
/// file that grows while it is read makes the call fail.
///
/// `callback` is called after each file that was added: for three files with 0, 1/3 and 2/3. There
/// is no report of 1.0, and none for a file left out.
///
/// If the existing archive is also one of `files`, under any name, the call fails first and changes
/// nothing. After any other failure `archive` is removed, also a previous archive, a device, or a
/// link (its target remains); if that is not permitted, an incomplete archive remains. Log lines,
/// all errors, with the normalized archive path unless noted:
///   "Failed to initialize archive: %s"             it cannot be created
///   "Cannot add non-existent file to archive: %s"  left out; its normalized path
///   "Failed to add file to archive: %s"            ends the call; its canonical path
///   "Failed to finalize archive: %s"               its memory and descriptor are leaked, and
///                                                  its disk space until the process ends
///   "Failed to close archive: %s"
///
/// @return true when the archive has been written and closed.
bool writeZip(String archive, StringVector files, ZipCallback callback = {});

// ---------------------------------------------------------------------------------------------
// Ksz archives: zip archives of a scene, with ".ksx" and ".ksa" files at the root and all others in
// "res". Log lines and the current error are those of `readZip` and `writeZip`.

/// Like `ZipProgress`.
struct KszProgress {
  String file;            ///< the entry's name in the archive
  double progress = 0.0;  ///< the number of files before this one, divided by the number given
};

/// Like `ZipCallback`. Each call uses its own copy.
using KszCallback = std::function<void(KszProgress)>;

/// Extracts `archive` with `readZip` and an empty `outDir`: the scene gets the archive's name with
/// the extension ".ksx", the other files go to the archive's directory.
///
/// @param callback never called, as in `readZip`.
/// @return true when at least one file was extracted.
bool readKsz(String archive, KszCallback callback = {});

/// Writes `files` to `archive` with `writeZip`. No extension is added to the archive's name.
///
/// @return the result of `writeZip`.
bool writeKsz(String archive, StringVector files, KszCallback callback = {});

// ---------------------------------------------------------------------------------------------
// Resolving file references

/// Returns the canonical path of the file that a stored reference means, or the empty string.
///
/// A reference that ends in ".*" stands for any of the extensions given. For each search directory
/// D, and within it for each extension E in order, these are tried:
///   1. the reference's own directory / stem + E
///   2. D / stem + E
/// Without search directories nothing is tried. "wood.*" has no directory of its own: the current
/// directory is not searched. ".*" has the stem ".*".
///
/// Any other reference, such as "tex/wood.png", is tried in this order:
///   1. as given, normalized
///   2. for each search directory D:  D/wood.png
///                                    D/tex/wood.png, if the reference is relative
///   3. as the reference "tex/wood.png.*", if there are search directories and extensions
/// A name without an extension is found as given, but searched for with a dot at its end: "wood" as
/// "D/wood." only, and not by step 3. A name that ends in a dot gets no second one in step 3:
/// "wood." becomes "wood.*". If the reference names a directory, that is also its own directory:
/// "tex.d" is tried as D/tex.d and D/tex.d/tex.d.
///
/// Only files match, not directories. A search directory that does not exist is skipped, but D/tex
/// is normalized first: "missing/../tex" is "tex". An empty D is skipped, and its D/tex is in the
/// current directory. A reference from an untrusted document can name any file that the process may
/// see. Every candidate costs stat calls; nothing is changed.
///
/// @param searchDirs in order of priority.
/// @param extensions in order of priority, with or without the leading dot; "*" is ignored.
[[nodiscard]] String resolvePath(String path, StringVector searchDirs, StringVector extensions);

// ---------------------------------------------------------------------------------------------
// Native file dialogs (tinyfiledialogs). Each call blocks until the user closes the dialog. Only
// one may be open at a time: the library returns its answer in static memory.
//
// Filters are extensions, with or without the leading dot, or patterns that begin with "*". They
// are shown after `filterDesc` as given: "Images" with png and .jpg is "Images (png, .jpg)".
//
// `defaultPath` needs a slash at its end to open a directory; otherwise its parent directory opens.
// `Path::join` drops that slash: append it last.
//
// The library builds a shell command from the texts in a fixed-size buffer and checks little:
// - Never pass text from an untrusted source.
// - Keep all texts together below 600 bytes; a filter counts twice, plus 8. More can overflow the
//   buffer. The pinned build has a larger one, and ends the process when it overflows.
// - `defaultPath` must be absolute. Before any other, a package manager's copy puts the directory
//   of the last answer (kdialog), and the shell runs what that name contains.
// - No quotes, backquotes or dollar signs: the text is replaced by a notice, or the shell expands
//   it. One such filter drops all.
// - No backslashes: two become one, and one at the end can make the shell run the next text.
// - Not the title "tinyfd_query", which crashes. On macOS no filter "*" or "*_color.png": a pattern
//   has to begin with "*.".
// - The current directory must exist and a descriptor be free, or the library crashes.
//
// A "|" or a newline in a chosen name gives another path. A package manager's copy can overrun its
// memory with paths beyond 1,000 bytes. docs/guides/dialogs.md says more.

/// Kinds of dialog.
enum class DialogType { Open = 0, Save = 1, Folder = 2 };

/// Lets the user pick one existing file; the dialog program can return a directory.
/// @return its path, or the empty string on cancel.
[[nodiscard]] String browseFile(String title, String defaultPath, String filterDesc,
                                StringVector filters);

/// Lets the user pick existing files. @return their paths in the library's order; none on cancel.
[[nodiscard]] StringVector browseFiles(String title, String defaultPath, String filterDesc,
                                       StringVector filters);

/// Lets the user pick an existing directory. @return its path, or the empty string on cancel.
[[nodiscard]] String browseDir(String title, String defaultPath);

/// Lets the user choose a file name to save to. @return its path, or the empty string on cancel, or
///   if the name has one of \ : * ? " < > or its directory does not exist.
[[nodiscard]] String saveFile(String title, String defaultPath, String filterDesc,
                              StringVector filters);

}  // namespace vx::fs
