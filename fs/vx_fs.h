// Files, directories, well-known locations, zip archives and native file dialogs.
//
// One flat set of functions without state of its own. The rules that all of them share:
//
// - Text is UTF-8, handed to the system unchanged. The path separator is "/"; relative paths start
//   at the process's current directory. Values go in and come out: nothing that a function does to
//   its arguments is seen by the caller.
// - Failure is the result: false, an empty string, an empty list. Nothing is thrown on the module's
//   own account; an exception of a caller's callback passes through. Where a function reports more,
//   its comment says so: a line in the log (vx_log.h) or a record in the current error
//   (vx_error.h). A function whose comment names neither logs nothing and leaves the current error
//   alone.
// - Nothing is kept between calls: no cache, no handle, no lock. Every function runs to its end on
//   the calling thread, and may run on several threads at once as long as they work on different
//   files. Two that work on the same ones race as the system calls beneath do.
// - `errno` after a call is unspecified, but for the stdio family, which leaves it as the library
//   call did.
// - "File" and "directory" mean what `isFile` and `isDir` say, which follow symbolic links.

#pragma once

#include "core/vx_string.h"
#include "core/vx_string_vector.h"

#include <cstddef>
#include <cstdio>
#include <functional>

namespace vx::fs {

// ---------------------------------------------------------------------------------------------
// Standard I/O with `String` paths. Each makes exactly the one library call that it is named after
// and passes its result on, except where said. The caller owns the stream.

/// Opens `path` (fopen). @return the stream, null on failure.
[[nodiscard]] FILE* Fopen(String path, String mode);

/// Reopens `stream` on `path` (freopen). @return the stream, null on failure, when it is closed.
FILE* Freopen(String path, String mode, FILE* stream);

/// Closes `stream` (fclose). @return 0, or EOF on failure; the stream is gone either way.
int Fclose(FILE* stream);

/// Removes the file or the empty directory `path` (remove).
/// @return true on success: unlike `Frename`, not the library's own result.
bool Fremove(String path);

/// Moves the position by `offset` bytes from `whence`, SEEK_SET, SEEK_CUR or SEEK_END (fseeko, with
/// 64-bit offsets everywhere). @return 0, or -1 on failure.
int Fseek(FILE* stream, long long offset, int whence);

/// The position in bytes (ftello, with 64-bit offsets everywhere), -1 on failure.
[[nodiscard]] long long Ftell(FILE* stream);

/// Reads up to `count` items of `size` bytes (fread). @return the number of whole items read.
std::size_t Fread(void* buffer, std::size_t size, std::size_t count, FILE* stream);

/// Writes `count` items of `size` bytes (fwrite). @return the number of whole items written.
std::size_t Fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream);

/// Writes out what the stream has buffered (fflush); of all streams when it is null.
/// @return 0, or EOF on failure.
int Fflush(FILE* stream);

/// Renames `from` to `to`, replacing what is there (rename).
/// @return 0 on success and -1 on failure, the library's own result: unlike `Fremove`, false when
///   read as a truth value on success.
int Frename(String from, String to);

// Status queries. Each takes the normal form of the path (`Path::normalize`), then asks the system
// (stat); one that cannot be examined does not exist. The empty path is answered without asking.

/// Whether `path` names an existing entry whose mode has the directory bit: a directory, or a block
/// device or socket, whose type shares that bit.
[[nodiscard]] bool isDir(String path);

/// Whether `path` names an existing entry whose mode lacks the directory bit: a regular file, a
/// character device, a FIFO.
[[nodiscard]] bool isFile(String path);

/// Whether `path` names an existing entry: `isDir`, or else `isFile`, at the cost of one or two
/// status queries.
[[nodiscard]] bool exists(String path);

// ---------------------------------------------------------------------------------------------
// Directories and removal

/// Creates the directory `path` and every missing level above it (stat, mkdir).
///
///   mkDir("a/b/c") => true; a, a/b and a/b/c exist
///   mkDir("a")     => true; it was there, nothing is done
///   mkDir("f")     => false; f is a file, nothing is logged
///   mkDir("f/x")   => false; logs "Failed to create dir: f [err: File exists]."
///   mkDir("")      => false; nothing is logged
///
/// New levels get mode 0777 less the umask. Levels made before a failure stay. A level that another
/// process creates in the meantime counts as a failure. Each level that is tried replaces the
/// current error, context "mkDir", also when it succeeds (code 0, no message); where nothing needs
/// creating the current error is left alone.
///
/// @param path in normal form, relative to the current directory unless it begins with a slash or,
///   here alone, a backslash, which starts the walk at the root and stays part of the first name.
/// @return true when `path` is a directory on return. False and silent when it is empty or names
///   anything else that exists. False with one error line when a level cannot be created ("Failed
///   to create dir: %s [err: %s].", that level and the system's text) or when there is no level to
///   create ("Cannot split path for mkDir: %s.", the normal form).
bool mkDir(String path);

/// Removes the empty directory `path` (stat, rmdir); never what a directory holds.
///
/// An attempt replaces the current error, context "rmDir", also when it succeeds (code 0, no
/// message). A symbolic link to a directory stands for that directory: it is the one removed.
///
/// @return true when there is no directory at `path` on return, also when there was none. False and
///   silent when `path` is empty. False with one error line when it is a file ("rmDir called for
///   file: %s.", the normal form) or cannot be removed ("Failed to remove dir: %s [err: %s].", the
///   canonical form and the system's text).
bool rmDir(String path);

/// Removes the file `path` (stat, remove).
///
/// The test takes the normal form, the removal the text as given.
///
/// @return true when there was no file at `path` or it has been removed; a directory counts as no
///   file and stays. False and silent when the removal fails.
bool rmFile(String path);

// ---------------------------------------------------------------------------------------------
// Copy and move, of single files: the source is never a directory, and none is created. The tests
// whether something is a file take the normal form; every other call gets the text as given.

/// Copies the bytes of the file `src` to `dst`, replacing a file that is there.
///
/// Only bytes are copied: no mode, no times. The copy goes through the standard library's file
/// streams, whose state nobody looks at. So the result says only that a file stands at `dst`, not
/// that it is a full copy: a source that cannot be opened leaves an empty file, and a full disk a
/// short one, both with true. A caller that must know compares.
///
/// Texts that are equal but for letter case count as the same file, on every file system: nothing
/// is done and "Cannot copy '%s' to itself." is logged as a warning, with `src`. Two other
/// spellings of one file ("./a" and "a") are not recognised: the file is removed, and an empty one
/// takes its place.
///
/// @return whether a file stands at `dst` afterwards. False and silent when `src` is not a file or
///   `dst` cannot be created. False with the error line "File copy failed, could not delete
///   destination file: %s" when the old `dst` cannot be removed.
bool copyFile(String src, String dst);

/// Renames the file `src` onto `dst`, keeping the old `dst` as a backup until that has succeeded.
///
/// The backup's name is `dst` with its extension changed to ".bak" (`Path::changeExt`). In order:
/// 1. whatever bears the backup name is removed, wanted or not;
/// 2. `dst` is renamed to it;
/// 3. `src` is renamed to `dst`;
/// 4. on success the backup is removed, else it is renamed back.
///
/// A process that is stopped in between leaves the old file under the backup name. Mind that
/// - a file that bears the backup name is lost, even when there is no `dst`;
/// - a source that itself bears it is lost: moving "a.bak" onto "a.txt" removes "a.bak" and leaves
///   the old "a.txt", with true, or nothing when there was none, with false;
/// - with a `dst` that ends in ".bak" both files are lost, with true;
/// - a directory is not spared: an empty one under the backup name is removed, and one at `dst` is
///   set aside like a file, to stay there unless it is empty;
/// - `src` and `dst` on different devices fail, and both stay as they were.
///
/// @return true when `src` has been renamed onto `dst`. False and silent otherwise.
bool moveFile(String src, String dst);

// ---------------------------------------------------------------------------------------------
// Listing the entries of one directory, without descending. Each item is the join of `dir` and the
// entry's name, in the order in which the system delivers them (readdir); nothing is sorted, hidden
// entries are included, "." and ".." are not. One status query for each entry, which follows links:
// a link to a directory is a directory, a dangling link is none. A directory that does not exist,
// cannot be opened or holds nothing wanted gives the empty list alike; an error in the middle ends
// the list early.

/// The subdirectories of `dir`.
[[nodiscard]] StringVector listDirs(String dir);

/// The entries of `dir` that are no directories and whose extension is in `exts`.
///
///   listFiles("d", {"png"})          => "d/a.png", "d/B.PNG"
///   listFiles("d", {"png", ".PNG"})  => each of them twice, one after the other
///   listFiles("d", {})               => nothing, whatever the directory holds
///   listFiles("d", {""})             => those without an extension, and those that end in "."
///
/// @param exts with or without the leading dot, in any letter case; an entry is listed once for
///   each that it matches.
[[nodiscard]] StringVector listFiles(String dir, StringVector exts);

// ---------------------------------------------------------------------------------------------
// The running executable and its bundle. Nothing is cached: each call asks the platform twice and
// the file system at least once. None of these logs. Trouble is in the current error, code 0 and
// context "vx::Path::exePath()":
//   "Returning empty path"         the system does not tell the path
//   "Failed to retrieve exe path"  it has told its length but not the path
//   "Returning non-existent path"  the path is returned, but no file is there (any more)
// On success the current error is left alone.

/// The canonical path of the running executable (macOS _NSGetExecutablePath, Linux /proc/self/exe),
/// the empty string when it cannot be had. The path of an executable that has been deleted or moved
/// away since is still returned; Linux knows the new one of a file that was renamed. It tells none
/// that is longer than 4,095 bytes.
[[nodiscard]] String exePath();

/// The directory of the executable, the empty string when `exePath` has none.
[[nodiscard]] String exeDir();

/// The directory that holds the application: in a bundle, whose executable lies in a directory
/// named "MacOS", the one three levels above that (four when that one has been removed since);
/// elsewhere `exeDir()`.
[[nodiscard]] String appDir();

/// The application's resources: in a bundle the directory "Resources" beside "MacOS", or the one
/// that holds "MacOS" when there is no such directory; elsewhere `exeDir()`.
[[nodiscard]] String resDir();

// ---------------------------------------------------------------------------------------------
// The current, home and temporary directories. Each call asks the environment and the file system
// again. A `get` form always writes `out`. None sets the current error; the lines that they log
// quote the message that it happens to hold.

/// The current directory, canonical. @return false when it has been removed; `out` is then ".".
bool getCurrentDir(String& out);

/// The user's home directory, canonical:
/// 1. the environment variable HOME, when it names a directory;
/// 2. else, with the warning "Failed to find home dir: %s", whatever `getCurrentDir` gives.
/// @return true for 1, the result of `getCurrentDir` for 2.
bool getHomeDir(String& out);

/// A directory for temporary files, canonical, the first of these that is a directory:
/// 1. the environment variable TMPDIR;
/// 2. "/var/tmp/";
/// 3. "/tmp";
/// 4. the current directory, with the warning "Failed to find temp dir, using current dir (%s).";
/// 5. "/tmp" although it is none, with the error line "Failed to find both temp and current
///    directories (%s).".
/// @return true, in every case.
bool getTempDir(String& out);

/// The current directory, "." when it has been removed.
[[nodiscard]] String currentDir();

/// The home directory, or what stands in for it (`getHomeDir`, then `currentDir`).
[[nodiscard]] String homeDir();

/// The directory for temporary files, or what stands in for it (`getTempDir`).
[[nodiscard]] String tempDir();

// ---------------------------------------------------------------------------------------------
// The product's directories for each user: the user directory, its subdirectories "config",
// "output" and "preview", and its page "nodehelp.html".
//
// The user directory is the environment variable KAVRA_USER_DIR, exactly as read, when that names
// an existing directory; it is never created, and ignored otherwise. Else it is "kavra" in the home
// directory. With `create`, what is missing is made (`mkDir`, which may log and replaces the
// current error); without, it is only looked for.
//
// A `get` form that fails logs one line, with "create" or "find" by its flag, the path, and the
// message of the current error, which may stem from an earlier failure. Where the user directory
// already failed, only its own line is logged; where the home directory failed, none of these.

/// The user directory. @return false with the warning "Failed to %s kavra user dir: %s (%s)." when
///   it is missing or cannot be made; `out` then holds the path that was looked for.
bool getKavraUserDir(String& out, bool create);

/// "config" in the user directory. @return false with the warning "Failed to %s kavra config dir:
///   %s (%s)." when it is missing or cannot be made; `out` then holds the path looked for.
bool getKavraConfigDir(String& out, bool create);

/// "output" in the user directory. @return false with the error line "Failed to %s kavra output
///   dir: %s (%s)." when it is missing or cannot be made; `out` then holds the path looked for.
bool getKavraOutputDir(String& out, bool create);

/// "preview" in the user directory. @return false with the error line "Failed to %s kavra preview
///   dir: %s (%s)." when it is missing or cannot be made; `out` then holds the path looked for.
bool getKavraPreviewDir(String& out, bool create);

/// The directory that `getKavraUserDir` finds, or `currentDir()` where that fails.
[[nodiscard]] String kavraUserDir(bool create);

/// As `kavraUserDir`, for "config".
[[nodiscard]] String kavraConfigDir(bool create);

/// As `kavraUserDir`, for "output".
[[nodiscard]] String kavraOutputDir(bool create);

/// As `kavraUserDir`, for "preview".
[[nodiscard]] String kavraPreviewDir(bool create);

/// "nodehelp.html" in the user directory, whether or not the page is there.
///
/// Creates the user directory when it is missing, for either value of `asUrl`.
///
/// @param asUrl with "file://" in front, and every backslash turned into a slash; nothing is
///   percent-encoded.
[[nodiscard]] String kavraNodeHelpPath(bool asUrl);

// ---------------------------------------------------------------------------------------------
// Zip archives. Data is streamed from file to file; no entry is held whole in memory.

/// A report on an archive that is being written.
struct ZipProgress {
  String file;            ///< the entry's name inside the archive
  double progress = 0.0;  ///< the files before this one, as a fraction of all that were given
};

/// Takes a report; may be empty. It runs on the thread that writes the archive. An exception that
/// it throws leaves `writeZip` with the archive's memory and file left open.
using ZipCallback = std::function<void(ZipProgress)>;

/// Expands `archive` into `outDir`, which is created when it is missing.
///
/// An entry lands at its name below `outDir`, in directories made as needed, and replaces a file
/// that is there. An entry whose place ends in ".ksx", in any letter case, goes to the archive's
/// own canonical path with the extension ".ksx" instead, so that a scene lies beside its archive;
/// of several the last stays.
///
/// A bad entry is logged and skipped; what was extracted before and after it stays. Names that
/// would lead out of `outDir` are not followed, and the archive is never extracted onto itself.
/// Links are never made: a link's entry becomes a file with its target as text. A file gets the
/// time of its entry, but not the mode. Symbolic links that already lie in `outDir` are followed. A
/// file whose extraction fails half-way stays as far as it came out.
///
/// Log lines, errors but for one; the first three end the call:
///   "Cannot expand non-existent archive: %s"         not a file; the normal form of `archive`
///   "Failed to create archive output dir: %s"        after `mkDir`'s own line, where it has one
///   "Failed to initialize archive: %s"               not readable as a zip archive; canonical path
///   "Failed to extract filename %llu from archive."  the name of the entry of that index
///   "Unaupported file in archive: %s"                a warning: encrypted, unknown method, or a
///                                                    name that leads out; the name in the archive
///   "Failed to create archive subdir: %s"            its place, for a directory entry and a file
///   "Failed to extract file %s from archive."        damaged, not writable, or onto the archive
///   "Failed to close archive: %s"                    canonical path; the list is returned
/// The current error is replaced where `mkDir` creates or fails to create a directory.
///
/// @param archive path of the archive.
/// @param outDir the directory to expand into; when empty, the archive's own directory.
/// @param callback accepted and never called: reading reports no progress.
/// @return the full paths of the files extracted, in the order of the archive, directories left
///   out; a path that two entries share is listed twice.
StringVector readZip(String archive, String outDir, ZipCallback callback = {});

/// Writes the zip archive `archive` from `files`, replacing what is there.
///
/// Only the file name of each file is kept: names that end in ".ksx" or ".ksa", in lower case,
/// become entries at the root, every other file one in "res". Two files of the same name become two
/// entries of the same name. Names are marked as UTF-8, whatever their bytes: a program that
/// decodes them may refuse an archive with a name that is not. Compression is the fastest level. An
/// empty list gives a valid empty archive. A file that does not exist is logged and left out, and
/// the archive still counts as written. Where a file cannot be read to its end, its entry holds
/// what could be read, and nothing is said: the archive library takes the failure for the end of
/// the file.
///
/// `callback` is called after each file that was added, with the count of files before it divided
/// by the count of all: of three files 0, 1/3 and 2/3. There is no report of 1.0, nor one for a
/// file that was left out.
///
/// On failure nothing stays at `archive`, not even a file that was there before. Log lines, errors:
///   "Failed to initialize archive: %s"               not creatable; the normal form of `archive`
///   "Cannot add non-existent file to archive: %s"    left out; its normal form
///   "Failed to add file to archive: %s"              ends the call; its canonical form
///   "Failed to finalize archive: %s"                 the normal form of `archive`; the library's
///                                                    record of the archive stays allocated
///   "Failed to close archive: %s"                    the normal form of `archive`
/// The current error is left alone.
///
/// @return true when the archive has been written and closed.
bool writeZip(String archive, StringVector files, ZipCallback callback = {});

// ---------------------------------------------------------------------------------------------
// Ksz archives: zip archives of a scene, ".ksx" and ".ksa" files at the root, everything else in
// "res". Log lines and the current error are those of `readZip` and `writeZip`.

/// As `ZipProgress`.
struct KszProgress {
  String file;            ///< the entry's name inside the archive
  double progress = 0.0;  ///< the files before this one, as a fraction of all that were given
};

/// As `ZipCallback`. It must not be changed while a call that was given it runs.
using KszCallback = std::function<void(KszProgress)>;

/// Expands `archive` beside itself: the scene under the archive's name with the extension ".ksx",
/// the rest as `readZip` places it.
///
/// @param callback accepted and never called, as in `readZip`.
/// @return true when at least one file was extracted.
bool readKsz(String archive, KszCallback callback = {});

/// Writes `files` to `archive`, as `writeZip` does; no extension is added to its name.
///
/// @return the result of `writeZip`.
bool writeKsz(String archive, StringVector files, KszCallback callback = {});

// ---------------------------------------------------------------------------------------------
// Resolving file references

/// Finds the file that a stored reference means: its canonical path, or the empty string.
///
/// A reference that ends in ".*" leaves its extension open, and only the extensions given are
/// tried. For each search directory D, for each extension E in it:
///   1. the reference's own directory / stem + E
///   2. D / stem + E
/// With no search directories nothing is tried at all.
///
/// Any other reference, "tex/wood.png" say, is tried in this order:
///   1. as it stands (in normal form)
///   2. for each search directory D:  D/wood.png
///                                    D/tex/wood.png, if the reference is relative
///   3. as the reference "tex/wood.png.*", if there are search directories and extensions
/// A name without an extension is found as it stands, but is looked for with a lone "." behind it
/// in the search directories ("wood" as "D/wood."), and never by step 3, where a name that ends in
/// a dot gets no second one ("wood." is the reference "wood.*"). A reference to a bare name
/// ("wood.*") has no directory of its own: the current directory is not searched.
///
/// Only files match, never directories. A search directory that does not exist is skipped. Asks the
/// file system (stat) for every candidate, not at all for the empty reference; changes nothing.
///
/// @param searchDirs in order of priority.
/// @param extensions in order of priority, with or without the leading dot; "*" is ignored.
[[nodiscard]] String resolvePath(String path, StringVector searchDirs, StringVector extensions);

// ---------------------------------------------------------------------------------------------
// Native file dialogs (tinyfiledialogs), each blocking until the user closes it. One dialog at a
// time: the library beneath keeps its answer in memory of its own and is not safe from two threads.
//
// Filters are extensions, with or without the leading dot, or patterns that begin with "*". They
// are shown behind `filterDesc` as given: "Images" with png and .jpg is "Images (png, .jpg)".
//
// Which texts the dialog library can take. It builds a shell command line in a buffer of fixed
// size, and nothing is checked on the way to it. Therefore:
// - keep title, path, description and filters together below 600 bytes, filters counted twice. The
//   default path should be absolute. More may overflow the buffer; the library as this project
//   builds it then ends the process;
// - no quotes, backquotes or dollar signs: a notice stands in place of such a text, or the shell
//   expands what follows a dollar sign; one such filter drops them all;
// - no backslash: two become one, and at the end of a text it can run what the next text says as a
//   command;
// - never the title "tinyfd_query";
// - never text from an untrusted source;
// - on macOS no patterns but those that begin with "*.": it takes two characters off every one, and
//   reads past the end of "*".
//
// What comes back. Paths are cut at "|". One beyond 1,000 bytes may come back damaged or overrun
// the library's memory, as do several of more than 1 MiB together. Files to open that cannot be
// read are left out, but where that goes for all of several, the first comes back. A name to save
// to counts as none when it holds one of \ : * ? " < > or its directory does not exist. Where no
// dialog program is installed the library asks on the terminal.

/// Kinds of dialog.
enum class DialogType { Open = 0, Save = 1, Folder = 2 };

/// Lets the user pick one existing file. @return its path; the empty string on cancel.
[[nodiscard]] String browseFile(String title, String defaultPath, String filterDesc,
                                StringVector filters);

/// Lets the user pick existing files. @return their paths in the library's order; none on cancel.
[[nodiscard]] StringVector browseFiles(String title, String defaultPath, String filterDesc,
                                       StringVector filters);

/// Lets the user pick an existing directory. @return its path; the empty string on cancel.
[[nodiscard]] String browseDir(String title, String defaultPath);

/// Lets the user choose a file name to save to. @return its path; the empty string on cancel.
[[nodiscard]] String saveFile(String title, String defaultPath, String filterDesc,
                              StringVector filters);

}  // namespace vx::fs
