// SPDX-License-Identifier: MIT
//
// The families are in the order of the header:
//   Standard I/O
//   Status queries
//   Directories
//   Copy and move
//   Listing
//   Executable and bundle
//   Current, home and temporary directories
//   Product directories
//   Zip archives
//   Ksz archives
//   File references
//   Dialogs

#include "fs/vx_fs.h"

#include "core/internal/vx_entry_kind.h"
#include "core/vx_env.h"
#include "core/vx_error.h"
#include "core/vx_log.h"
#include "core/vx_path.h"
#include "fs/internal/vx_fs_platform.h"

#include <miniz.h>
#include <tinyfiledialogs.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <optional>
#include <string_view>
#include <utility>

#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace vx::fs {

// ---- Standard I/O ---------------------------------------------------------------------------

FILE* Fopen(String path, String mode) {
  return std::fopen(path.buf(), mode.buf());
}

FILE* Freopen(String path, String mode, FILE* stream) {
  return std::freopen(path.buf(), mode.buf(), stream);
}

int Fclose(FILE* stream) {
  return std::fclose(stream);
}

bool Fremove(String path) {
  return std::remove(path.buf()) == 0;
}

int Fseek(FILE* stream, long long offset, int whence) {
  return ::fseeko(stream, static_cast<off_t>(offset), whence);
}

long long Ftell(FILE* stream) {
  return ::ftello(stream);
}

std::size_t Fread(void* buffer, std::size_t size, std::size_t count, FILE* stream) {
  return std::fread(buffer, size, count, stream);
}

std::size_t Fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream) {
  return std::fwrite(buffer, size, count, stream);
}

int Fflush(FILE* stream) {
  return std::fflush(stream);
}

int Frename(String from, String to) {
  return std::rename(from.buf(), to.buf());
}

// ---- Status queries -------------------------------------------------------------------------

namespace {

using internal::EntryKind;

EntryKind kindOf(String path) {
  if (path.isEmpty()) {
    return EntryKind::None;
  }
  path = Path::normalize(std::move(path));
  return internal::entryKind(path.buf());
}

}  // namespace

bool isDir(String path) {
  return kindOf(std::move(path)) == EntryKind::Directory;
}

bool isFile(String path) {
  return kindOf(std::move(path)) == EntryKind::File;
}

bool exists(String path) {
  return isDir(path) || isFile(path);
}

// ---- Directories ----------------------------------------------------------------------------

namespace {

/// Returns the context that the current error gets from `operation`. Called before the system call,
/// because allocating the string may change `errno`.
String operationTag(const char* operation) {
  return String(operation).fromLast(':', /*keepSeparator=*/false);
}

/// Creates one directory and logs a failure.
bool createLevel(String level) {
  constexpr mode_t kMode = 0777;
  const String tag = operationTag("mkDir");
  os::clearCurrentError();
  const int result = ::mkdir(level.buf(), kMode);
  os::captureCurrentError(tag);
  if (result != 0) {
    logError("Failed to create dir: %s [err: %s].", level.buf(), os::currentErrorMessage().buf());
    return false;
  }
  return true;
}

}  // namespace

bool mkDir(String path) {
  if (path.isEmpty()) {
    return false;
  }
  const Path target(path, /*normalizeFirst=*/true);
  if (target.exists()) {
    return target.isDir();
  }
  const StringVector levels = target.components();
  if (levels.empty()) {
    logError("Cannot split path for mkDir: %s.", target.normalized().buf());
    return false;
  }
  String walked;
  if (path.startsWith("/", /*ignoreCase=*/false) || path.startsWith("\\", /*ignoreCase=*/false)) {
    walked = "/";
  }
  for (const String& level : levels) {
    walked << level;
    // Not normalized, because that would make the loop quadratic in the depth.
    if (!Path::isDir(walked, /*normalizeFirst=*/false) && !createLevel(walked)) {
      return false;
    }
    walked << "/";
  }
  return true;
}

bool rmDir(String path) {
  if (path.isEmpty()) {
    return false;
  }
  const Path target(path, /*normalizeFirst=*/true);
  if (target.isFile()) {
    logError("rmDir called for file: %s.", target.normalized().buf());
    return false;
  }
  if (!target.isDir()) {
    return true;
  }
  const String tag = operationTag("rmDir");
  const String canonical = target.canonical();
  os::clearCurrentError();
  const int result = ::rmdir(canonical.buf());
  os::captureCurrentError(tag);
  if (result == 0) {
    return true;
  }
  logError("Failed to remove dir: %s [err: %s].", target.canonical().buf(),
           os::currentErrorMessage().buf());
  return false;
}

bool rmFile(String path) {
  if (!Path::isFile(path, /*normalizeFirst=*/true)) {
    return true;
  }
  return std::remove(path.buf()) == 0;
}

// ---- Copy and move --------------------------------------------------------------------------

namespace {

/// Overwrites `dst` with the content of `src`. Errors are ignored.
void copyContent(String src, String dst) {
  // libstdc++'s default is 8 KiB. One byte more than 128 KiB, because its streams read one byte
  // less than the size of the buffer.
  constexpr std::size_t kRoom = 128 * 1024 + 1;
  const std::unique_ptr<char[]> room(new char[kRoom]);
  std::ifstream input;
  input.rdbuf()->pubsetbuf(room.get(), kRoom);
  input.open(src.buf(), std::ios::in | std::ios::binary);
  std::ofstream output(dst.buf(), std::ios::out | std::ios::binary | std::ios::trunc);
  output << input.rdbuf();
}

}  // namespace

bool copyFile(String src, String dst) {
  if (src.compareNoCase(dst) == 0) {
    logWarning("Cannot copy '%s' to itself.", src.buf());
    return Path::isFile(dst, /*normalizeFirst=*/true);
  }
  if (!Path::isFile(src, /*normalizeFirst=*/true)) {
    return false;
  }
  if (Path::isFile(dst, /*normalizeFirst=*/true) && std::remove(dst.buf()) != 0) {
    logError("File copy failed, could not delete destination file: %s", dst.buf());
    return false;
  }
  copyContent(src, dst);
  return Path::isFile(dst, /*normalizeFirst=*/true);
}

bool moveFile(String src, String dst) {
  if (!Path::isFile(src, /*normalizeFirst=*/true)) {
    return false;
  }
  const String backup = Path::changeExt(dst, ".bak");
  std::remove(backup.buf());
  std::rename(dst.buf(), backup.buf());
  if (std::rename(src.buf(), dst.buf()) == 0) {
    std::remove(backup.buf());
    return true;
  }
  std::rename(backup.buf(), dst.buf());
  return false;
}

// ---- Listing --------------------------------------------------------------------------------

namespace {

struct CloseDirectory {
  void operator()(DIR* directory) const noexcept { ::closedir(directory); }
};

/// Calls `visit` with the full path of each entry of `dir` and whether it is a directory.
template <class Visit>
void forEachEntry(String dir, Visit visit) {
  if (!isDir(dir)) {
    return;
  }
  const std::unique_ptr<DIR, CloseDirectory> directory(::opendir(dir.buf()));
  if (directory == nullptr) {
    return;
  }
  while (dirent* const entry = ::readdir(directory.get())) {
    char* const name = entry->d_name;
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0) {
      continue;
    }
    const String path = Path::join(dir, name);
    visit(path, isDir(path));
  }
}

}  // namespace

StringVector listDirs(String dir) {
  StringVector found;
  forEachEntry(dir, [&](const String& path, bool isDirectory) {
    if (isDirectory) {
      found.push_back(path);
    }
  });
  return found;
}

StringVector listFiles(String dir, StringVector exts) {
  StringVector found;
  forEachEntry(dir, [&](const String& path, bool isDirectory) {
    if (isDirectory) {
      return;
    }
    const String bare = Path::ext(path, /*withDot=*/false);
    const String dotted = Path::ext(path, /*withDot=*/true);
    // No break after a match: an entry is listed once for each extension that it matches.
    for (const String& wanted : exts) {
      if (wanted.compareNoCase(bare) == 0 || wanted.compareNoCase(dotted) == 0) {
        found.push_back(path);
      }
    }
  });
  return found;
}

// ---- Executable and bundle ------------------------------------------------------------------

namespace {

void setExePathError(const char* message) {
  // Callers depend on this context, although the function is not a member of `Path`.
  os::setCurrentError(0, "vx::Path::exePath()", message);
}

/// Returns `exeDir()` or, in a bundle, the directory that `relative` names from there.
String bundleDir(const char* relative) {
  const String directory = exeDir();
  if (!directory.endsWith("/MacOS", /*ignoreCase=*/false)) {
    return directory;
  }
  return Path(directory + relative, /*normalizeFirst=*/true).dir();
}

}  // namespace

String exePath() {
  std::uint32_t size = 0;
  platform::executablePath(nullptr, &size);
  if (size == 0) {
    setExePathError("Returning empty path");
    return {};
  }
  const auto buffer = std::make_unique<char[]>(std::size_t{size} + 1);
  if (platform::executablePath(buffer.get(), &size) == -1 || size == 0) {
    setExePathError("Failed to retrieve exe path");
    return {};
  }
  buffer[size] = '\0';
  const Path path(String(buffer.get()), /*normalizeFirst=*/true);
  if (!path.isFile()) {
    setExePathError("Returning non-existent path");
  }
  return path.canonical();
}

String exeDir() {
  return Path(exePath(), /*normalizeFirst=*/true).dir();
}

String appDir() {
  return bundleDir("/../../../");
}

String resDir() {
  return bundleDir("/../Resources");
}

// ---- Current, home and temporary directories ------------------------------------------------

bool getCurrentDir(String& out) {
  const Path current(".", /*normalizeFirst=*/true);
  if (!current.isDir()) {
    out = current.normalized();
    return false;
  }
  out = current.canonical();
  return true;
}

bool getHomeDir(String& out) {
  const Path home(os::getEnv("HOME"), /*normalizeFirst=*/true);
  if (home.isDir()) {
    out = home.canonical();
    return true;
  }
  logWarning("Failed to find home dir: %s", os::currentErrorMessage().buf());
  return getCurrentDir(out);
}

bool getTempDir(String& out) {
  Path candidate(os::getEnv("TMPDIR"), /*normalizeFirst=*/true);
  if (!candidate.isDir()) {
    candidate = Path("/var/tmp/", /*normalizeFirst=*/true);
  }
  if (!candidate.isDir()) {
    candidate = Path("/tmp", /*normalizeFirst=*/true);
  }
  out = candidate.canonical();
  if (!Path::isDir(out, /*normalizeFirst=*/true)) {
    String fallback;
    if (getCurrentDir(fallback)) {
      logWarning("Failed to find temp dir, using current dir (%s).",
                 os::currentErrorMessage().buf());
      out = fallback;
    } else {
      logError("Failed to find both temp and current directories (%s).",
               os::currentErrorMessage().buf());
    }
  }
  out = Path(out, /*normalizeFirst=*/true).canonical();
  return true;
}

String currentDir() {
  String directory;
  return getCurrentDir(directory) ? directory : String(".");
}

String homeDir() {
  String directory;
  return getHomeDir(directory) ? directory : currentDir();
}

String tempDir() {
  String directory;
  getTempDir(directory);
  return directory;
}

// ---- Product directories --------------------------------------------------------------------

namespace {

using Lookup = bool (*)(String& out, bool create);

String normalizedJoin(String base, const char* name) {
  return Path(Path::join(base, name), /*normalizeFirst=*/false).normalized();
}

bool findOrCreate(String path, bool create) {
  return Path::isDir(path, /*normalizeFirst=*/true) || (create && mkDir(path));
}

/// Sets `out` to a subdirectory of the user directory, and checks that it exists or creates it.
/// `logFailure` is not called if `getKavraUserDir` fails, which logs its own failure.
template <class LogFailure>
bool getUserSubdir(String& out, bool create, const char* name, LogFailure logFailure) {
  if (!getKavraUserDir(out, create)) {
    return false;
  }
  out = normalizedJoin(out, name);
  if (findOrCreate(out, create)) {
    return true;
  }
  logFailure(create ? "create" : "find", out.buf(), os::currentErrorMessage().buf());
  return false;
}

String foundOrCurrentDir(Lookup lookup, bool create) {
  String directory;
  return lookup(directory, create) ? directory : currentDir();
}

}  // namespace

bool getKavraUserDir(String& out, bool create) {
  const String chosen = os::getEnv("KAVRA_USER_DIR");
  if (Path::isDir(chosen, /*normalizeFirst=*/true)) {
    out = chosen;
    return true;
  }
  if (!getHomeDir(out)) {
    return false;
  }
  out = normalizedJoin(out, "kavra");
  if (findOrCreate(out, create)) {
    return true;
  }
  logWarning("Failed to %s kavra user dir: %s (%s).", create ? "create" : "find", out.buf(),
             os::currentErrorMessage().buf());
  return false;
}

bool getKavraConfigDir(String& out, bool create) {
  return getUserSubdir(out, create, "config",
                       [](const char* verb, const char* path, const char* why) {
                         logWarning("Failed to %s kavra config dir: %s (%s).", verb, path, why);
                       });
}

// Failures of the next two functions are logged as errors, because the user can lose work without
// these directories.

bool getKavraOutputDir(String& out, bool create) {
  return getUserSubdir(out, create, "output",
                       [](const char* verb, const char* path, const char* why) {
                         logError("Failed to %s kavra output dir: %s (%s).", verb, path, why);
                       });
}

bool getKavraPreviewDir(String& out, bool create) {
  return getUserSubdir(out, create, "preview",
                       [](const char* verb, const char* path, const char* why) {
                         logError("Failed to %s kavra preview dir: %s (%s).", verb, path, why);
                       });
}

String kavraUserDir(bool create) {
  return foundOrCurrentDir(getKavraUserDir, create);
}

String kavraConfigDir(bool create) {
  return foundOrCurrentDir(getKavraConfigDir, create);
}

String kavraOutputDir(bool create) {
  return foundOrCurrentDir(getKavraOutputDir, create);
}

String kavraPreviewDir(bool create) {
  return foundOrCurrentDir(getKavraPreviewDir, create);
}

String kavraNodeHelpPath(bool asUrl) {
  const String path = Path::join(kavraUserDir(/*create=*/true), "nodehelp.html");
  if (!asUrl) {
    return path;
  }
  return String("file://") + path.replace('\\', '/', /*firstOnly=*/false, /*ignoreCase=*/false);
}

// ---- Zip archives ---------------------------------------------------------------------------

namespace {

using FileStatus = struct stat;

/// Returns the status of the entry at `path`, following links.
std::optional<FileStatus> statusOf(String path) {
  FileStatus status;
  if (::stat(path.buf(), &status) != 0) {
    return std::nullopt;
  }
  return status;
}

bool isSameFile(const FileStatus& left, const FileStatus& right) noexcept {
  return left.st_dev == right.st_dev && left.st_ino == right.st_ino;
}

struct EndArchive {
  void operator()(mz_zip_archive* zip) const noexcept { mz_zip_end(zip); }
};

/// Closes the archive at the end of the scope, even if an exception is thrown, unless it has been
/// released.
using OpenArchive = std::unique_ptr<mz_zip_archive, EndArchive>;

/// Returns the name of an entry up to its first NUL.
std::optional<String> entryName(mz_zip_archive& zip, mz_uint index) {
  const mz_uint size = mz_zip_reader_get_filename(&zip, index, nullptr, 0);
  const auto buffer = std::make_unique<char[]>(std::size_t{size} + 1);
  if (mz_zip_reader_get_filename(&zip, index, buffer.get(), size) != size) {
    return std::nullopt;
  }
  return String(buffer.get());
}

bool leadsOut(String name) {
  if (name.view().find("..") == std::string_view::npos) {
    return false;
  }
  std::string_view relative = name.view();
  relative.remove_prefix(std::min(relative.find_first_not_of('/'), relative.size()));
  const String normal = Path::normalize(String(relative));
  return normal == ".." || normal.startsWith("../", /*ignoreCase=*/false);
}

/// Extracts the entries of one archive.
class ZipExpansion {
 public:
  ZipExpansion(mz_zip_archive& zip, String archive, String outDir)
      : zip_(zip),
        archive_(std::move(archive)),
        outDir_(std::move(outDir)),
        archiveStatus_(statusOf(archive_)) {}

  void expand(mz_uint index) {
    const std::optional<String> name = entryName(zip_, index);
    if (!name) {
      logError("Failed to extract filename %llu from archive.",
               static_cast<unsigned long long>(index));
      return;
    }
    String destination = Path::join(outDir_, *name);
    // A scene is extracted next to its archive and gets the archive's name.
    const bool isScene = destination.endsWith(".ksx", /*ignoreCase=*/true);
    if (isScene) {
      destination = Path::changeExt(archive_, ".ksx");
    }
    if (mz_zip_reader_is_file_supported(&zip_, index) == MZ_FALSE ||
        (!isScene && leadsOut(*name))) {
      // The misspelling is part of the message.
      logWarning("Unaupported file in archive: %s", name->buf());
      return;
    }
    if (mz_zip_reader_is_file_a_directory(&zip_, index) != MZ_FALSE) {
      if (!mkDir(destination)) {
        logError("Failed to create archive subdir: %s", destination.buf());
      }
      return;
    }
    expandFile(index, destination);
  }

  [[nodiscard]] StringVector extracted() const { return extracted_; }

 private:
  void expandFile(mz_uint index, String destination) {
    const String directory = Path::dir(destination, /*isDir=*/false);
    // Most directories exist, and `mkDir` makes two stat calls for them.
    if (!Path::isDir(directory, /*normalizeFirst=*/true) && !mkDir(directory)) {
      logError("Failed to create archive subdir: %s", destination.buf());
      return;
    }
    if (!mayOverwrite(destination) ||
        mz_zip_reader_extract_to_file(&zip_, index, destination.buf(), 0) == MZ_FALSE) {
      logError("Failed to extract file %s from archive.", destination.buf());
      return;
    }
    extracted_.push_back(destination);
  }

  /// Returns whether `destination` does not exist or is a regular file other than the archive.
  /// Extraction starts by truncating the destination, which would destroy the archive, and would
  /// block on a FIFO.
  [[nodiscard]] bool mayOverwrite(String destination) const {
    const std::optional<FileStatus> status = statusOf(destination);
    if (!status) {
      return errno == ENOENT;
    }
    return S_ISREG(status->st_mode) && archiveStatus_ && !isSameFile(*status, *archiveStatus_);
  }

  mz_zip_archive& zip_;
  String archive_;
  String outDir_;
  std::optional<FileStatus> archiveStatus_;
  StringVector extracted_;
};

/// Returns the directory to extract an archive into if the caller gives none.
String dirOfArchive(const Path& given, String canonical) {
  String directory = given.dir();
  return directory.isEmpty() ? Path::dir(std::move(canonical), /*isDir=*/false) : directory;
}

/// Returns the name of the entry for a file.
String entryNameFor(String fileName) {
  if (fileName.endsWith(".ksa", /*ignoreCase=*/false) ||
      fileName.endsWith(".ksx", /*ignoreCase=*/false)) {
    return fileName;
  }
  return Path::join("res", fileName);
}

/// Returns the canonical path of the first of `files` that is the file `wanted`.
std::optional<String> findFile(StringVector files, const FileStatus& wanted) {
  for (const String& file : files) {
    const Path source(file, /*normalizeFirst=*/true);
    const std::optional<FileStatus> status = statusOf(source.normalized());
    if (status && isSameFile(*status, wanted)) {
      return source.canonical();
    }
  }
  return std::nullopt;
}

/// Returns the canonical paths of files. A scene has many files in few directories, and `realpath`
/// makes a system call for each component, so the directory of successive files is resolved once.
/// Links, and paths that become too long for the system, are left to `Path::canonical`.
class CanonicalPaths {
 public:
  String of(const Path& file) {
    if (isLink(file.normalized())) {
      return file.canonical();
    }
    const String directory = Path::dir(file.normalized(), /*isDir=*/false);
    if (!canonical_ || directory != directory_) {
      directory_ = directory;
      canonical_ = Path(directory, /*normalizeFirst=*/false).canonical();
    }
    const String path = Path::join(*canonical_, file.file(/*withExt=*/true));
    return path.length() < PATH_MAX ? path : file.canonical();
  }

 private:
  static bool isLink(String path) {
    FileStatus status;
    return ::lstat(path.buf(), &status) != 0 || S_ISLNK(status.st_mode);
  }

  String directory_;
  std::optional<String> canonical_;
};

/// Reports an added file. If the callback throws, the archive remains open, as documented.
void report(OpenArchive& writer, const ZipCallback& callback, ZipProgress progress) {
  mz_zip_archive* const zip = writer.release();
  callback(std::move(progress));
  writer.reset(zip);
}

/// Adds `files` in order and reports each. Returns false at the first that cannot be added.
/// Skips `created`, the archive if this call has created it, like a missing file.
bool addFiles(OpenArchive& writer, StringVector files, std::optional<FileStatus> created,
              const ZipCallback& callback) {
  CanonicalPaths canonicalPaths;
  for (std::size_t i = 0; i < files.size(); ++i) {
    const Path source(files[i], /*normalizeFirst=*/true);
    const std::optional<FileStatus> status = statusOf(source.normalized());
    if (!status || internal::entryKind(status->st_mode) != EntryKind::File ||
        (created && isSameFile(*status, *created))) {
      logError("Cannot add non-existent file to archive: %s", source.normalized().buf());
      continue;
    }
    const String name = entryNameFor(source.file(/*withExt=*/true));
    const String path = canonicalPaths.of(source);
    if (mz_zip_writer_add_file(writer.get(), name.buf(), path.buf(), nullptr, 0, MZ_BEST_SPEED) ==
        MZ_FALSE) {
      logError("Failed to add file to archive: %s", path.buf());
      return false;
    }
    if (callback) {
      const std::size_t count = files.size();
      report(writer, callback, {name, static_cast<double>(i) / static_cast<double>(count)});
    }
  }
  return true;
}

bool removeFailedArchive(String archive) {
  rmFile(std::move(archive));
  return false;
}

}  // namespace

StringVector readZip(String archive, String outDir, ZipCallback /*callback*/) {
  const Path path(archive, /*normalizeFirst=*/true);
  if (!path.isFile()) {
    logError("Cannot expand non-existent archive: %s", path.normalized().buf());
    return {};
  }
  archive = path.canonical();
  if (outDir.isEmpty()) {
    outDir = dirOfArchive(path, archive);
  }
  if (!mkDir(outDir)) {
    logError("Failed to create archive output dir: %s", outDir.buf());
    return {};
  }
  mz_zip_archive zip;
  mz_zip_zero_struct(&zip);
  if (mz_zip_reader_init_file(&zip, archive.buf(), 0) == MZ_FALSE) {
    logError("Failed to initialize archive: %s", archive.buf());
    return {};
  }
  OpenArchive reader(&zip);
  ZipExpansion expansion(zip, archive, outDir);
  for (std::uint64_t i = 0; i < mz_zip_reader_get_num_files(&zip); ++i) {
    expansion.expand(static_cast<mz_uint>(i));
  }
  if (mz_zip_reader_end(reader.release()) == MZ_FALSE) {
    logError("Failed to close archive: %s", archive.buf());
  }
  return expansion.extracted();
}

bool writeZip(String archive, StringVector files, ZipCallback callback) {
  archive = Path::normalize(archive);
  const std::optional<FileStatus> existing = statusOf(archive);
  if (existing && S_ISREG(existing->st_mode)) {
    // Writing starts by truncating the archive, which would destroy an input.
    if (const std::optional<String> input = findFile(files, *existing)) {
      logError("Failed to add file to archive: %s", input->buf());
      return false;
    }
  }
  mz_zip_archive zip;
  mz_zip_zero_struct(&zip);
  if (mz_zip_writer_init_file(&zip, archive.buf(), 0) == MZ_FALSE) {
    logError("Failed to initialize archive: %s", archive.buf());
    return removeFailedArchive(archive);
  }
  OpenArchive writer(&zip);
  if (!addFiles(writer, files, existing ? std::nullopt : statusOf(archive), callback)) {
    mz_zip_writer_finalize_archive(&zip);
    mz_zip_end(writer.release());
    return removeFailedArchive(archive);
  }
  if (mz_zip_writer_finalize_archive(&zip) == MZ_FALSE) {
    static_cast<void>(writer.release());  // remains open, as documented
    logError("Failed to finalize archive: %s", archive.buf());
    return removeFailedArchive(archive);
  }
  if (mz_zip_end(writer.release()) == MZ_FALSE) {
    logError("Failed to close archive: %s", archive.buf());
    return removeFailedArchive(archive);
  }
  return true;
}

// ---- Ksz archives ---------------------------------------------------------------------------

namespace {

/// Passes the reports of a zip archive to the callback of a ksz archive. Refers to the callback
/// parameter of `readKsz` or `writeKsz`, which remains valid during the call.
class ProgressAdaptor {
 public:
  explicit ProgressAdaptor(const KszCallback& callback) : callback_(callback) {}

  void operator()(ZipProgress report) const {
    String file = report.file;
    if (callback_) {
      callback_({std::move(file), report.progress});
    }
  }

 private:
  const KszCallback& callback_;
};

class ReadProgressAdaptor : public ProgressAdaptor {
  using ProgressAdaptor::ProgressAdaptor;
};

class WriteProgressAdaptor : public ProgressAdaptor {
  using ProgressAdaptor::ProgressAdaptor;
};

}  // namespace

bool readKsz(String archive, KszCallback callback) {
  return !readZip(archive, "", ReadProgressAdaptor(callback)).empty();
}

bool writeKsz(String archive, StringVector files, KszCallback callback) {
  return writeZip(archive, files, WriteProgressAdaptor(callback));
}

// ---- File references ------------------------------------------------------------------------

namespace {

/// Sets `out` to the canonical path of the file `name` in `dir`. Returns false if there is none.
bool findIn(String dir, String name, String& out) {
  dir = Path::dir(dir, /*isDir=*/true);
  if (!Path::isDir(dir, /*normalizeFirst=*/true)) {
    return false;
  }
  const Path candidate(Path::join(dir, name), /*normalizeFirst=*/true);
  if (!candidate.isFile()) {
    return false;
  }
  out = candidate.canonical();
  return true;
}

/// Searches for the file `stem` with the extension `ext`, first in the reference's own directory,
/// then in `searchDir`. Clears `out` if neither contains it.
bool resolvePath(String refDir, String stem, String ext, String searchDir, String& out) {
  out = String();
  if (ext == "*") {
    return false;
  }
  if (!ext.startsWith(".", /*ignoreCase=*/false)) {
    ext = String(".") + ext;
  }
  const String name = stem + ext;
  return findIn(refDir, name, out) || findIn(searchDir, name, out);
}

String resolveWildcard(String path, StringVector searchDirs, StringVector extensions) {
  const Path reference(path, /*normalizeFirst=*/false);
  const String dir = reference.dir();
  const String stem = reference.file(/*withExt=*/false);
  String found;
  for (const String& searchDir : searchDirs) {
    for (const String& extension : extensions) {
      // The reference's own directory is searched again for each search directory: callers rely on
      // the order of the candidates.
      if (resolvePath(dir, stem, extension, searchDir, found)) {
        return found;
      }
    }
  }
  return {};
}

}  // namespace

String resolvePath(String path, StringVector searchDirs, StringVector extensions) {
  if (path.isEmpty()) {
    return {};
  }
  if (path.endsWith(".*", /*ignoreCase=*/false)) {
    return resolveWildcard(path, searchDirs, extensions);
  }
  const Path reference(path, /*normalizeFirst=*/true);
  if (reference.isFile()) {
    return reference.canonical();
  }
  const String dir = reference.dir();
  const String stem = reference.file(/*withExt=*/false);
  String ext = reference.ext(/*withDot=*/true);
  String found;
  for (const String& searchDir : searchDirs) {
    if (resolvePath("", stem, ext, searchDir, found)) {
      return found;
    }
    if (reference.isRel() && resolvePath("", stem, ext, Path::join(searchDir, dir), found)) {
      return found;
    }
  }
  if (stem.isEmpty()) {
    return {};
  }
  if (!ext.startsWith(".", /*ignoreCase=*/false) || searchDirs.empty() || extensions.empty()) {
    return {};
  }
  if (!ext.endsWith(".", /*ignoreCase=*/false)) {
    ext << ".";
  }
  return resolvePath(Path::join(dir, stem + ext + "*"), searchDirs, extensions);
}

// ---- Dialogs --------------------------------------------------------------------------------

}  // namespace vx::fs

// tinyfiledialogs defines this variable only on Windows; elsewhere this weak definition is used. A
// shared library exports it, so that an application with its own copy of tinyfiledialogs uses the
// same variable.
extern "C" {
[[gnu::weak]] int tinyfd_winUtf8 = 0;
}

namespace vx::fs {
namespace {

[[maybe_unused]] const int dialogTextIsUtf8 = tinyfd_winUtf8 = 1;

/// An array of pointers as the dialog library expects: null if empty.
class PatternArray {
 public:
  PatternArray() = default;
  PatternArray(const PatternArray&) = delete;
  PatternArray& operator=(const PatternArray&) = delete;
  ~PatternArray() { delete[] pointers_; }

  void append(const char* pattern) {
    if (count_ == capacity_) {
      grow();
    }
    pointers_[count_++] = pattern;
  }

  [[nodiscard]] int count() const noexcept { return static_cast<int>(count_); }
  [[nodiscard]] const char* const* data() const noexcept { return pointers_; }

 private:
  void grow() {
    constexpr std::size_t kFirstCapacity = 2;
    capacity_ = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
    const char** const larger = new const char*[capacity_];
    if (count_ != 0) {
      std::memmove(larger, pointers_, count_ * sizeof *larger);
    }
    delete[] pointers_;
    pointers_ = larger;
  }

  const char** pointers_ = nullptr;
  std::size_t count_ = 0;
  std::size_t capacity_ = 0;
};

/// Returns the pattern for `filter`, which is a pattern or an extension with or without its dot.
String patternFor(String filter) {
  if (filter.startsWith("*", /*ignoreCase=*/false)) {
    return filter;
  }
  if (filter.startsWith(".", /*ignoreCase=*/false)) {
    return String("*") + filter;
  }
  return String("*") + (String(".") + filter);
}

StringVector fsDialog(DialogType type, bool multiple, String title, String defaultPath,
                      String filterDesc, StringVector filters) {
  if (!filters.empty()) {
    filterDesc = filterDesc + " (" + filters.join(", ") + ")";
  }
  StringVector patterns;
  for (const String& filter : filters) {
    patterns.push_back(patternFor(filter));
  }
  PatternArray pointers;  // valid as long as `patterns`
  for (const String& pattern : patterns) {
    pointers.append(pattern.buf());
  }
  String answer;
  switch (type) {
    case DialogType::Open:
      answer = tinyfd_openFileDialog(title.buf(), defaultPath.buf(), pointers.count(),
                                     pointers.data(), filterDesc.buf(), multiple ? 1 : 0);
      break;
    case DialogType::Save:
      answer = tinyfd_saveFileDialog(title.buf(), defaultPath.buf(), pointers.count(),
                                     pointers.data(), filterDesc.buf());
      break;
    case DialogType::Folder:
      answer = tinyfd_selectFolderDialog(title.buf(), defaultPath.buf());
      break;
  }
  return answer.split('|', /*skipEmpty=*/true, /*trim=*/false);
}

}  // namespace

String browseFile(String title, String defaultPath, String filterDesc, StringVector filters) {
  return fsDialog(DialogType::Open, false, title, defaultPath, filterDesc, filters).front();
}

StringVector browseFiles(String title, String defaultPath, String filterDesc,
                         StringVector filters) {
  return fsDialog(DialogType::Open, true, title, defaultPath, filterDesc, filters);
}

String browseDir(String title, String defaultPath) {
  return fsDialog(DialogType::Folder, false, title, defaultPath, {}, {}).front();
}

String saveFile(String title, String defaultPath, String filterDesc, StringVector filters) {
  return fsDialog(DialogType::Save, false, title, defaultPath, filterDesc, filters).front();
}

}  // namespace vx::fs
