#include "tests/faults/fail_calls.h"

#include <miniz.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <initializer_list>
#include <utility>

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utime.h>

namespace vx::test {
namespace {

constinit CallWatch* active = nullptr;
constinit mz_zip_archive lastWritten{};

std::string spelled(std::initializer_list<const char*> words) {
  std::string text;
  for (const char* const word : words) {
    if (word != nullptr) {
      text += text.empty() ? word : std::string(" ") + word;
    }
  }
  return text;
}

}  // namespace

/// One call: notes it, and decides whether it fails.
class Turn {
 public:
  Turn(std::initializer_list<const char*> words, bool takesErrno) {
    if (active == nullptr) {
      return;
    }
    const LiveBlocks::Pause pause;
    const Fault& fault = active->fault_;
    std::string text = spelled(words);
    if (std::find(fault.always.begin(), fault.always.end(), text) != fault.always.end()) {
      fails_ = true;
      return;
    }
    active->calls_.push_back({std::move(text), within(), false, takesErrno});
    const std::size_t number = active->calls_.size();
    fails_ = number == fault.call || (fault.persists && fault.call != 0 && number > fault.call);
    if (fails_ && fault.kills) {
      ::kill(::getpid(), SIGKILL);
    }
  }

  [[nodiscard]] bool fails() const noexcept {
    if (fails_) {
      errno = active->fault_.code;
    }
    return fails_;
  }

  static std::string& within() {
    static std::string archiveCall;
    return archiveCall;
  }

 private:
  bool fails_ = false;
};

/// A call to the archive library, which makes calls of its own.
class ArchiveTurn : public Turn {
 public:
  ArchiveTurn(std::initializer_list<const char*> words)
      : Turn(words, /*takesErrno=*/false),
        firstInside_(active == nullptr ? 0 : active->calls_.size()) {
    if (active != nullptr) {
      const LiveBlocks::Pause pause;
      within() = spelled(words);
    }
  }
  ArchiveTurn(const ArchiveTurn&) = delete;
  ArchiveTurn& operator=(const ArchiveTurn&) = delete;
  ~ArchiveTurn() {
    if (active != nullptr) {
      const LiveBlocks::Pause pause;
      within().clear();
    }
  }

  /// Notes a result that is false for a failure, and passes it on.
  template <class Result>
  Result ended(Result result) {
    if (active != nullptr && result == Result{}) {
      for (std::size_t i = firstInside_; i < active->calls_.size(); ++i) {
        active->calls_[i].withinFailed = true;
      }
    }
    return result;
  }

 private:
  std::size_t firstInside_;
};

CallWatch::CallWatch(Fault fault) : fault_(std::move(fault)) {
  lastWritten = {};
  active = this;
}

CallWatch::~CallWatch() {
  stop();
}

void CallWatch::stop() noexcept {
  active = nullptr;
  blocks_.stop();
}

void CallWatch::answerDialogs(const std::string& answer) {
  const LiveBlocks::Pause pause;
  dialogAnswer_ = answer;
}

void CallWatch::answerLinks(const std::string& target) {
  const LiveBlocks::Pause pause;
  linkTarget_ = target;
}

/// What the calls say whose results are scripted; null where they are not.
struct Answers {
  static char* ofDialogs() {
    return active == nullptr || active->dialogAnswer_.empty() ? nullptr
                                                              : active->dialogAnswer_.data();
  }
  static const std::string* ofLinks() {
    return active == nullptr || active->linkTarget_.empty() ? nullptr : &active->linkTarget_;
  }
};

}  // namespace vx::test

using vx::test::Answers;
using vx::test::ArchiveTurn;
using vx::test::Turn;

// ---------------------------------------------------------------------------------------------
// The functions of the system and of the C library. Each is defined under the name that the system
// gives it, but under another one in C++, since their declarations differ from system to system.

// NOLINTNEXTLINE(cppcoreguidelines-macro-usage): a part of a declaration, which no function can be
#define VX_REPLACES(name) __asm__(#name)

namespace {

/// The definition of `name` that this program's hides.
template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

bool fails(std::initializer_list<const char*> words) {
  return Turn(words, /*takesErrno=*/true).fails();
}

}  // namespace

extern "C" {

int replacedStat(const char* path, struct stat* status) VX_REPLACES(stat);
int replacedStat(const char* path, struct stat* status) {
  static auto* const real = next<int(const char*, struct stat*)>("stat");
  return fails({"stat", path}) ? -1 : real(path, status);
}

int replacedStat64(const char* path, void* status) VX_REPLACES(stat64);
int replacedStat64(const char* path, void* status) {
  static auto* const real = next<int(const char*, void*)>("stat64");
  return fails({"stat64", path}) ? -1 : real(path, status);
}

int replacedMkdir(const char* path, mode_t mode) VX_REPLACES(mkdir);
int replacedMkdir(const char* path, mode_t mode) {
  static auto* const real = next<int(const char*, mode_t)>("mkdir");
  return fails({"mkdir", path}) ? -1 : real(path, mode);
}

int replacedRmdir(const char* path) VX_REPLACES(rmdir);
int replacedRmdir(const char* path) {
  static auto* const real = next<int(const char*)>("rmdir");
  return fails({"rmdir", path}) ? -1 : real(path);
}

int replacedRename(const char* from, const char* to) VX_REPLACES(rename);
int replacedRename(const char* from, const char* to) {
  static auto* const real = next<int(const char*, const char*)>("rename");
  return fails({"rename", from, to}) ? -1 : real(from, to);
}

int replacedRemove(const char* path) VX_REPLACES(remove);
int replacedRemove(const char* path) {
  static auto* const real = next<int(const char*)>("remove");
  return fails({"remove", path}) ? -1 : real(path);
}

DIR* replacedOpendir(const char* path) VX_REPLACES(opendir);
DIR* replacedOpendir(const char* path) {
  static auto* const real = next<DIR*(const char*)>("opendir");
  return fails({"opendir", path}) ? nullptr : real(path);
}

dirent* replacedReaddir(DIR* directory) VX_REPLACES(readdir);
dirent* replacedReaddir(DIR* directory) {
  static auto* const real = next<dirent*(DIR*)>("readdir");
  return fails({"readdir"}) ? nullptr : real(directory);
}

int replacedClosedir(DIR* directory) VX_REPLACES(closedir);
int replacedClosedir(DIR* directory) {
  static auto* const real = next<int(DIR*)>("closedir");
  const Turn turn({"closedir"}, /*takesErrno=*/true);
  const int result = real(directory);
  return turn.fails() ? -1 : result;
}

char* replacedRealpath(const char* path, char* buffer) VX_REPLACES(realpath);
char* replacedRealpath(const char* path, char* buffer) {
  static auto* const real = next<char*(const char*, char*)>("realpath");
  return fails({"realpath", path}) ? nullptr : real(path, buffer);
}

char* replacedGetcwd(char* buffer, std::size_t size) VX_REPLACES(getcwd);
char* replacedGetcwd(char* buffer, std::size_t size) {
  static auto* const real = next<char*(char*, std::size_t)>("getcwd");
  return fails({"getcwd"}) ? nullptr : real(buffer, size);
}

ssize_t replacedReadlink(const char* path, char* buffer, std::size_t size) VX_REPLACES(readlink);
ssize_t replacedReadlink(const char* path, char* buffer, std::size_t size) {
  static auto* const real = next<ssize_t(const char*, char*, std::size_t)>("readlink");
  if (fails({"readlink", path})) {
    return -1;
  }
  if (const std::string* const target = Answers::ofLinks()) {
    const std::size_t length = std::min(size, target->size());
    // NOLINTNEXTLINE(bugprone-not-null-terminated-result): as the call itself leaves it
    std::memcpy(buffer, target->data(), length);
    return static_cast<ssize_t>(length);
  }
  return real(path, buffer, size);
}

int replacedUtime(const char* path, const utimbuf* times) VX_REPLACES(utime);
int replacedUtime(const char* path, const utimbuf* times) {
  static auto* const real = next<int(const char*, const utimbuf*)>("utime");
  return fails({"utime", path}) ? -1 : real(path, times);
}

std::tm* replacedLocaltimeR(const std::time_t* time, std::tm* date) VX_REPLACES(localtime_r);
std::tm* replacedLocaltimeR(const std::time_t* time, std::tm* date) {
  static auto* const real = next<std::tm*(const std::time_t*, std::tm*)>("localtime_r");
  return fails({"localtime_r"}) ? nullptr : real(time, date);
}

std::time_t replacedMktime(std::tm* time) VX_REPLACES(mktime);
std::time_t replacedMktime(std::tm* time) {
  static auto* const real = next<std::time_t(std::tm*)>("mktime");
  return fails({"mktime"}) ? -1 : real(time);
}

// Streams

FILE* replacedFopen(const char* path, const char* mode) VX_REPLACES(fopen);
FILE* replacedFopen(const char* path, const char* mode) {
  static auto* const real = next<FILE*(const char*, const char*)>("fopen");
  return fails({"fopen", path}) ? nullptr : real(path, mode);
}

FILE* replacedFopen64(const char* path, const char* mode) VX_REPLACES(fopen64);
FILE* replacedFopen64(const char* path, const char* mode) {
  static auto* const real = next<FILE*(const char*, const char*)>("fopen64");
  return fails({"fopen64", path}) ? nullptr : real(path, mode);
}

int replacedFclose(FILE* stream) VX_REPLACES(fclose);
int replacedFclose(FILE* stream) {
  static auto* const real = next<int(FILE*)>("fclose");
  const Turn turn({"fclose"}, /*takesErrno=*/true);
  const int result = real(stream);
  return turn.fails() ? EOF : result;
}

FILE* replacedFreopen(const char* path, const char* mode, FILE* stream) VX_REPLACES(freopen);
FILE* replacedFreopen(const char* path, const char* mode, FILE* stream) {
  static auto* const real = next<FILE*(const char*, const char*, FILE*)>("freopen");
  const Turn turn({"freopen", path}, /*takesErrno=*/true);
  if (turn.fails()) {
    next<int(FILE*)>("fclose")(stream);  // the old stream is closed whatever becomes of the new one
    return turn.fails() ? nullptr : stream;
  }
  return real(path, mode, stream);
}

std::size_t replacedFread(void* to, std::size_t size, std::size_t count, FILE* stream)
    VX_REPLACES(fread);
std::size_t replacedFread(void* to, std::size_t size, std::size_t count, FILE* stream) {
  static auto* const real = next<std::size_t(void*, std::size_t, std::size_t, FILE*)>("fread");
  return fails({"fread"}) ? 0 : real(to, size, count, stream);
}

std::size_t replacedFwrite(const void* from, std::size_t size, std::size_t count, FILE* stream)
    VX_REPLACES(fwrite);
std::size_t replacedFwrite(const void* from, std::size_t size, std::size_t count, FILE* stream) {
  static auto* const real =
      next<std::size_t(const void*, std::size_t, std::size_t, FILE*)>("fwrite");
  return fails({"fwrite"}) ? 0 : real(from, size, count, stream);
}

int replacedFflush(FILE* stream) VX_REPLACES(fflush);
int replacedFflush(FILE* stream) {
  static auto* const real = next<int(FILE*)>("fflush");
  return fails({"fflush"}) ? EOF : real(stream);
}

int replacedFseeko(FILE* stream, off_t offset, int whence) VX_REPLACES(fseeko);
int replacedFseeko(FILE* stream, off_t offset, int whence) {
  static auto* const real = next<int(FILE*, off_t, int)>("fseeko");
  return fails({"fseeko"}) ? -1 : real(stream, offset, whence);
}

int replacedFseeko64(FILE* stream, off64_t offset, int whence) VX_REPLACES(fseeko64);
int replacedFseeko64(FILE* stream, off64_t offset, int whence) {
  static auto* const real = next<int(FILE*, off64_t, int)>("fseeko64");
  return fails({"fseeko64"}) ? -1 : real(stream, offset, whence);
}

off_t replacedFtello(FILE* stream) VX_REPLACES(ftello);
off_t replacedFtello(FILE* stream) {
  static auto* const real = next<off_t(FILE*)>("ftello");
  return fails({"ftello"}) ? -1 : real(stream);
}

off64_t replacedFtello64(FILE* stream) VX_REPLACES(ftello64);
off64_t replacedFtello64(FILE* stream) {
  static auto* const real = next<off64_t(FILE*)>("ftello64");
  return fails({"ftello64"}) ? -1 : real(stream);
}

// What the file streams of the C++ library read and write with

ssize_t replacedRead(int file, void* to, std::size_t size) VX_REPLACES(read);
ssize_t replacedRead(int file, void* to, std::size_t size) {
  static auto* const real = next<ssize_t(int, void*, std::size_t)>("read");
  return fails({"read"}) ? -1 : real(file, to, size);
}

ssize_t replacedWrite(int file, const void* from, std::size_t size) VX_REPLACES(write);
ssize_t replacedWrite(int file, const void* from, std::size_t size) {
  static auto* const real = next<ssize_t(int, const void*, std::size_t)>("write");
  return fails({"write"}) ? -1 : real(file, from, size);
}

ssize_t replacedWritev(int file, const iovec* parts, int count) VX_REPLACES(writev);
ssize_t replacedWritev(int file, const iovec* parts, int count) {
  static auto* const real = next<ssize_t(int, const iovec*, int)>("writev");
  return fails({"writev"}) ? -1 : real(file, parts, count);
}

}  // extern "C"

// ---------------------------------------------------------------------------------------------
// The heap, as the archive library uses it, and the functions of the libraries beneath the module,
// redirected by the linker.

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
extern "C" {

void* __real_malloc(std::size_t size);
void* __wrap_malloc(std::size_t size) {
  return Turn({"malloc"}, /*takesErrno=*/false).fails() ? nullptr : __real_malloc(size);
}

void* __real_calloc(std::size_t count, std::size_t size);
void* __wrap_calloc(std::size_t count, std::size_t size) {
  return Turn({"calloc"}, /*takesErrno=*/false).fails() ? nullptr : __real_calloc(count, size);
}

void* __real_realloc(void* block, std::size_t size);
void* __wrap_realloc(void* block, std::size_t size) {
  return Turn({"realloc"}, /*takesErrno=*/false).fails() ? nullptr : __real_realloc(block, size);
}

mz_bool __real_mz_zip_reader_init_file(mz_zip_archive* zip, const char* path, mz_uint32 flags);
mz_bool __wrap_mz_zip_reader_init_file(mz_zip_archive* zip, const char* path, mz_uint32 flags) {
  ArchiveTurn turn({"mz_zip_reader_init_file", path});
  return turn.fails() ? MZ_FALSE : turn.ended(__real_mz_zip_reader_init_file(zip, path, flags));
}

mz_uint __real_mz_zip_reader_get_num_files(mz_zip_archive* zip);
mz_uint __wrap_mz_zip_reader_get_num_files(mz_zip_archive* zip) {
  ArchiveTurn turn({"mz_zip_reader_get_num_files"});
  return turn.fails() ? 0 : turn.ended(__real_mz_zip_reader_get_num_files(zip));
}

mz_uint __real_mz_zip_reader_get_filename(mz_zip_archive* zip, mz_uint index, char* name,
                                          mz_uint size);
mz_uint __wrap_mz_zip_reader_get_filename(mz_zip_archive* zip, mz_uint index, char* name,
                                          mz_uint size) {
  ArchiveTurn turn({"mz_zip_reader_get_filename", name == nullptr ? "size" : "text"});
  return turn.fails() ? 0 : turn.ended(__real_mz_zip_reader_get_filename(zip, index, name, size));
}

mz_bool __real_mz_zip_reader_is_file_supported(mz_zip_archive* zip, mz_uint index);
mz_bool __wrap_mz_zip_reader_is_file_supported(mz_zip_archive* zip, mz_uint index) {
  ArchiveTurn turn({"mz_zip_reader_is_file_supported"});
  return turn.fails() ? MZ_FALSE : turn.ended(__real_mz_zip_reader_is_file_supported(zip, index));
}

mz_bool __real_mz_zip_reader_is_file_a_directory(mz_zip_archive* zip, mz_uint index);
mz_bool __wrap_mz_zip_reader_is_file_a_directory(mz_zip_archive* zip, mz_uint index) {
  ArchiveTurn turn({"mz_zip_reader_is_file_a_directory"});
  return turn.fails() ? MZ_FALSE : turn.ended(__real_mz_zip_reader_is_file_a_directory(zip, index));
}

mz_bool __real_mz_zip_reader_file_stat(mz_zip_archive* zip, mz_uint index,
                                       mz_zip_archive_file_stat* status);
mz_bool __wrap_mz_zip_reader_file_stat(mz_zip_archive* zip, mz_uint index,
                                       mz_zip_archive_file_stat* status) {
  ArchiveTurn turn({"mz_zip_reader_file_stat"});
  return turn.fails() ? MZ_FALSE : turn.ended(__real_mz_zip_reader_file_stat(zip, index, status));
}

mz_bool __real_mz_zip_reader_extract_to_file(mz_zip_archive* zip, mz_uint index, const char* path,
                                             mz_uint flags);
mz_bool __wrap_mz_zip_reader_extract_to_file(mz_zip_archive* zip, mz_uint index, const char* path,
                                             mz_uint flags) {
  ArchiveTurn turn({"mz_zip_reader_extract_to_file", path});
  return turn.fails() ? MZ_FALSE
                      : turn.ended(__real_mz_zip_reader_extract_to_file(zip, index, path, flags));
}

mz_bool __real_mz_zip_reader_end(mz_zip_archive* zip);
mz_bool __wrap_mz_zip_reader_end(mz_zip_archive* zip) {
  ArchiveTurn turn({"mz_zip_reader_end"});
  const mz_bool result = turn.ended(__real_mz_zip_reader_end(zip));
  return turn.fails() ? MZ_FALSE : result;
}

mz_bool __real_mz_zip_writer_init_file(mz_zip_archive* zip, const char* path, mz_uint64 reserved);
mz_bool __wrap_mz_zip_writer_init_file(mz_zip_archive* zip, const char* path, mz_uint64 reserved) {
  ArchiveTurn turn({"mz_zip_writer_init_file", path});
  if (turn.fails()) {
    return MZ_FALSE;
  }
  const mz_bool result = turn.ended(__real_mz_zip_writer_init_file(zip, path, reserved));
  vx::test::lastWritten = *zip;
  return result;
}

mz_bool __real_mz_zip_writer_add_file(mz_zip_archive* zip, const char* name, const char* path,
                                      const void* comment, mz_uint16 size, mz_uint flags);
mz_bool __wrap_mz_zip_writer_add_file(mz_zip_archive* zip, const char* name, const char* path,
                                      const void* comment, mz_uint16 size, mz_uint flags) {
  ArchiveTurn turn({"mz_zip_writer_add_file", name});
  if (turn.fails()) {
    return MZ_FALSE;
  }
  const mz_bool result =
      turn.ended(__real_mz_zip_writer_add_file(zip, name, path, comment, size, flags));
  vx::test::lastWritten = *zip;
  return result;
}

mz_bool __real_mz_zip_writer_finalize_archive(mz_zip_archive* zip);
mz_bool __wrap_mz_zip_writer_finalize_archive(mz_zip_archive* zip) {
  ArchiveTurn turn({"mz_zip_writer_finalize_archive"});
  if (turn.fails()) {
    return MZ_FALSE;
  }
  const mz_bool result = turn.ended(__real_mz_zip_writer_finalize_archive(zip));
  vx::test::lastWritten = *zip;
  return result;
}

mz_bool __real_mz_zip_end(mz_zip_archive* zip);
mz_bool __wrap_mz_zip_end(mz_zip_archive* zip) {
  ArchiveTurn turn({"mz_zip_end"});
  const mz_bool result = turn.ended(__real_mz_zip_end(zip));
  vx::test::lastWritten = {};
  return turn.fails() ? MZ_FALSE : result;
}

// The dialogs never show: nothing that a test run can rely on is there to show them.

namespace {

char* dialogAnswer(const char* name, const char* title) {
  return Turn({name, title}, /*takesErrno=*/false).fails() ? nullptr : Answers::ofDialogs();
}

}  // namespace

char* __wrap_tinyfd_openFileDialog(const char* title, const char* /*path*/, int /*count*/,
                                   const char* const* /*patterns*/, const char* /*description*/,
                                   int /*multiple*/) {
  return dialogAnswer("tinyfd_openFileDialog", title);
}

char* __wrap_tinyfd_saveFileDialog(const char* title, const char* /*path*/, int /*count*/,
                                   const char* const* /*patterns*/, const char* /*description*/) {
  return dialogAnswer("tinyfd_saveFileDialog", title);
}

char* __wrap_tinyfd_selectFolderDialog(const char* title, const char* /*path*/) {
  return dialogAnswer("tinyfd_selectFolderDialog", title);
}

}  // extern "C"
// NOLINTEND(bugprone-reserved-identifier)

namespace vx::test {

bool endAbandonedArchive() {
  if (lastWritten.m_pState == nullptr) {
    return false;
  }
  // The module's own record is gone with its stack frame; what it referred to is not.
  lastWritten.m_pIO_opaque = &lastWritten;
  return mz_zip_writer_end(&lastWritten) != MZ_FALSE;
}

}  // namespace vx::test
