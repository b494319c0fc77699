// SPDX-License-Identifier: MIT

#include "tests/testing/calls.h"

#include "tests/testing/memory_use.h"
#include "tests/testing/unobserved.h"

#include <miniz.h>

#include <algorithm>
#include <concepts>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <stdexcept>

#include <dirent.h>
#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/uio.h>
#include <unistd.h>
#include <utime.h>

// NOLINTNEXTLINE(bugprone-reserved-identifier): the linker's name
extern "C" mz_bool __real_mz_zip_end(mz_zip_archive* zip);

namespace vx::test {
namespace {

constinit thread_local Calls* active = nullptr;
constinit mz_zip_archive lastArchive{};                // as the last call to miniz left it
constinit const mz_zip_archive* zeroedLast = nullptr;  // the record that calls are expected to take

}  // namespace

// ---------------------------------------------------------------------------------------------
// Calls

bool selects(std::string_view selector, std::string_view text) {
  return selector.empty() || (text.starts_with(selector) &&
                              (text.size() == selector.size() || text[selector.size()] == ' '));
}

Calls::Calls() {
  if (active != nullptr) {
    throw std::logic_error("the calls are observed already");
  }
  lastArchive = {};
  active = this;
}

Calls::~Calls() {
  active = nullptr;
}

std::vector<std::string> Calls::all() const {
  std::vector<std::string> texts;
  for (const Call& call : records_) {
    if (!call.isDetail) {
      texts.push_back(call.text);
    }
  }
  return texts;
}

std::vector<std::string> Calls::all(std::string_view selector) const {
  std::vector<std::string> texts;
  for (const Call& call : records_) {
    if (selects(selector, call.text)) {
      texts.push_back(call.text);
    }
  }
  return texts;
}

std::size_t Calls::count(std::string_view selector) const {
  return all(selector).size();
}

void Calls::fail(std::string selector, int error) {
  add(std::move(selector), [error] { return Answer{.fails = true, .error = error}; });
}

void Calls::failNth(std::string selector, int nth, int error) {
  add(std::move(selector), [error, left = nth]() mutable -> std::optional<Answer> {
    return --left == 0 ? std::optional(Answer{.fails = true, .error = error}) : std::nullopt;
  });
}

void Calls::succeed(std::string selector, int error) {
  add(std::move(selector), [error] { return Answer{.error = error}; });
}

void Calls::answer(std::string selector, long long value) {
  add(std::move(selector), [value] { return Answer{.value = value}; });
}

void Calls::answer(std::string selector, std::string text) {
  if (text.size() >= text_.size()) {
    throw std::length_error("the answer is too long");
  }
  add(std::move(selector), [text = std::move(text)] { return Answer{.text = text}; });
}

void Calls::kill(std::string selector, int nth) {
  onCall(std::move(selector), [left = nth]() mutable {
    if (--left == 0) {
      ::kill(::getpid(), SIGKILL);
    }
  });
}

void Calls::note(std::string line) {
  records_.push_back({.text = std::move(line)});
}

bool Calls::endArchiveLeftOpen() {
  if (lastArchive.m_pState == nullptr) {
    return false;
  }
  // The record itself is gone with its stack frame; what it refers to is not.
  lastArchive.m_pIO_opaque = &lastArchive;
  const bool hasEnded = __real_mz_zip_end(&lastArchive) != MZ_FALSE;
  lastArchive = {};
  return hasEnded;
}

void Calls::add(std::string selector, Decide decide) {
  rules_.push_back({std::move(selector), std::move(decide)});
}

std::optional<Answer> Calls::decide(const std::string& text) {
  // NOLINTNEXTLINE(modernize-loop-convert): an action may add others
  for (std::size_t i = 0; i < rules_.size(); ++i) {
    if (!selects(rules_[i].selector, text)) {
      continue;
    }
    if (std::optional<Answer> answer = rules_[i].decide()) {
      return answer;
    }
  }
  return std::nullopt;
}

// ---------------------------------------------------------------------------------------------
// What the replaced functions have in common

enum class Kind { System, Data, Heap, Archive, Dialog };

/// One observed call.
class Turn {
 public:
  Turn(Kind kind, std::string text) : kind_(kind), index_(active->records_.size()) {
    const LiveBlocks::Pause pause;
    const Unobserved unobserved;
    const int errnoBefore = errno;
    const std::string& within = active->within_;
    active->records_.push_back(
        {.text = text,
         .within = within,
         .takesErrno = kind == Kind::System || kind == Kind::Data,
         .isDetail = !within.empty() || kind == Kind::Data || kind == Kind::Heap});
    answer_ = active->decide(text);
    active->records_[index_].isAnswered = answer_.has_value();
    if (answer_) {
      active->text_.fill('\0');
      std::copy(answer_->text.begin(), answer_->text.end(), active->text_.begin());
    }
    if (kind == Kind::Archive) {
      active->within_ = std::move(text);
    }
    // A call that succeeds leaves errno alone, and what happens here must not look like the call's.
    errno = errnoBefore;
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  ~Turn() {
    const LiveBlocks::Pause pause;
    answer_.reset();
    if (kind_ == Kind::Archive && active != nullptr) {
      active->within_.clear();
    }
  }

  [[nodiscard]] static bool isObserved() noexcept {
    return active != nullptr && !Unobserved::isOn();
  }

  [[nodiscard]] const std::optional<Answer>& answer() const noexcept { return answer_; }

  /// The memory that holds the text of the answer until the next one.
  [[nodiscard]] static char* text() noexcept { return active->text_.data(); }

  /// Sets `errno` as the answer says.
  void setErrno() const noexcept {
    const bool takesErrno = kind_ == Kind::System || kind_ == Kind::Data;
    if (takesErrno && answer_->error != 0) {
      errno = answer_->error;
    }
  }

  /// Replaces the recorded text.
  void setText(std::string text) const {
    const LiveBlocks::Pause pause;
    active->records_[index_].text = std::move(text);
  }

  /// Marks the calls that the call has made as those of a failure.
  void hasFailed() const noexcept {
    for (std::size_t i = index_ + 1; i < active->records_.size(); ++i) {
      active->records_[i].withinFailed = true;
    }
  }

 private:
  Kind kind_;
  std::size_t index_;
  std::optional<Answer> answer_;
};

namespace {

std::string word(const char* text) {
  return text == nullptr ? "null" : text;
}

std::string word(std::integral auto number) {
  return std::to_string(number);
}

std::string word(const std::string& text) {
  return text;
}

template <class... Arguments>
std::string words(const char* name, const Arguments&... arguments) {
  return (std::string(name) + ... + (" " + word(arguments)));
}

std::string octal(mode_t mode) {
  std::array<char, 16> digits{};
  std::snprintf(digits.data(), digits.size(), "%04o", static_cast<unsigned>(mode));
  return digits.data();
}

/// The result of a call that is answered in place of being made.
template <class Result>
Result answeredBy(const Turn& turn, Result failure) {
  turn.setErrno();
  if constexpr (std::is_integral_v<Result>) {
    return turn.answer()->fails ? failure : static_cast<Result>(turn.answer()->value);
  } else {
    return failure;
  }
}

template <class Result, class Text, class Real>
Result called(Kind kind, Result failure, const Text& text, const Real& real) {
  if (!Turn::isObserved()) {
    return real();
  }
  const Turn turn(kind, text());
  return turn.answer() ? answeredBy(turn, failure) : real();
}

/// A call that releases something, also when it fails.
template <class Result, class Text, class Real>
Result released(Kind kind, Result failure, const Text& text, const Real& real) {
  if (!Turn::isObserved()) {
    return real();
  }
  const Turn turn(kind, text());
  const Result result = real();
  return turn.answer() ? answeredBy(turn, failure) : result;
}

/// A stat call; its answer is a mode.
template <class Text, class Real>
int examined(struct stat* status, const Text& text, const Real& real) {
  if (!Turn::isObserved()) {
    return real();
  }
  const Turn turn(Kind::System, text());
  if (!turn.answer()) {
    return real();
  }
  *status = {};
  status->st_mode = static_cast<mode_t>(turn.answer()->value);
  status->st_nlink = 1;  // 0 would be a removed entry
  turn.setErrno();
  return turn.answer()->fails ? -1 : 0;
}

/// A readdir call; its answer is the type of the entry.
template <class Text, class Real>
dirent* listed(const Text& text, const Real& real) {
  if (!Turn::isObserved()) {
    return real();
  }
  const Turn turn(Kind::System, text());
  if (turn.answer() && turn.answer()->fails) {
    turn.setErrno();
    return nullptr;
  }
  dirent* const entry = real();
  if (entry != nullptr && turn.answer()) {
    entry->d_type = static_cast<unsigned char>(turn.answer()->value);
  }
  return entry;
}

/// A call to miniz, which makes calls of its own.
template <class Result, class Text, class Real>
Result archived(mz_zip_archive* zip, bool releases, const Text& text, const Real& real) {
  if (!Turn::isObserved()) {
    return real();
  }
  const Turn turn(Kind::Archive, text() + (zip == zeroedLast ? "" : " (of another record)"));
  if (turn.answer() && !releases) {
    return answeredBy(turn, Result{});
  }
  const Result result = real();
  lastArchive = releases ? mz_zip_archive{} : *zip;
  if (result == Result{}) {
    turn.hasFailed();
  }
  return turn.answer() ? answeredBy(turn, Result{}) : result;
}

/// A dialog, which never shows. The text is made again after the actions have run, as the dialog
/// would read its arguments while it is open.
template <class Text>
char* shown(const Text& text) {
  if (!Turn::isObserved()) {
    return nullptr;
  }
  const Turn turn(Kind::Dialog, text());
  turn.setText(text());
  return turn.answer() && !turn.answer()->fails ? Turn::text() : nullptr;
}

std::string quoted(const char* text) {
  return text == nullptr ? "null" : "<" + std::string(text) + ">";
}

std::string quoted(int count, const char* const* texts) {
  std::string all = word(count);
  if (texts == nullptr) {
    return all + " null";
  }
  for (int i = 0; i < count; ++i) {
    all += " " + quoted(texts[i]);
  }
  return all;
}

/// "buffer" when the bytes are 0, the one after them included, which is the caller's too.
const char* buffer(const char* bytes, std::size_t size) {
  if (bytes == nullptr) {
    return "null";
  }
  const bool isZero = std::all_of(bytes, bytes + size + 1, [](char byte) { return byte == 0; });
  return isZero ? "buffer" : "dirty-buffer";
}

/// A freopen call, which closes the stream also when it fails.
template <class Text, class Real>
FILE* reopened(const Text& text, const Real& real, FILE* file) {
  if (!Turn::isObserved()) {
    return real();
  }
  const Turn turn(Kind::System, text());
  if (!turn.answer()) {
    return real();
  }
  const Unobserved unobserved;
  std::fclose(file);
  return answeredBy(turn, static_cast<FILE*>(nullptr));
}

/// The definition of `name` that this program's hides.
template <class Function>
Function* next(const char* name) {
  return reinterpret_cast<Function*>(::dlsym(RTLD_NEXT, name));
}

}  // namespace
}  // namespace vx::test

using namespace vx::test;  // NOLINT(google-build-using-namespace): for the table below

// ---------------------------------------------------------------------------------------------
// The system and the C library. Each function is defined under the name that the system gives it,
// which also catches the calls of the C++ library, but under another one in C++, since the
// declarations differ from system to system.

// NOLINTBEGIN(cppcoreguidelines-macro-usage, bugprone-macro-parentheses): rows of a table
#define VX_REPLACES(result, symbol, parameters)         \
  result replaced_##symbol parameters __asm__(#symbol); \
  result replaced_##symbol parameters
#define VX_NEXT(result, symbol, parameters) \
  static auto* const real = next<result parameters>(#symbol)
#define VX_ROW(how, kind, result, symbol, parameters, arguments, failure, ...)        \
  VX_REPLACES(result, symbol, parameters) {                                           \
    VX_NEXT(result, symbol, parameters);                                              \
    return how(                                                                       \
        Kind::kind, static_cast<result>(failure), [&] { return words(__VA_ARGS__); }, \
        [&] { return real arguments; });                                              \
  }
#define VX_CALL(...) VX_ROW(called, System, __VA_ARGS__)
#define VX_DATA(...) VX_ROW(called, Data, __VA_ARGS__)
#define VX_RELEASE(...) VX_ROW(released, System, __VA_ARGS__)
#define VX_STATUS(symbol, name)                                                         \
  VX_REPLACES(int, symbol, (const char* path, struct stat* status)) {                   \
    VX_NEXT(int, symbol, (const char* path, struct stat* status));                      \
    return examined(                                                                    \
        status, [&] { return words(name, path); }, [&] { return real(path, status); }); \
  }

// clang-format off
extern "C" {

VX_CALL(int, mkdir, (const char* path, mode_t mode), (path, mode), -1, "mkdir", path, octal(mode))
VX_CALL(int, rmdir, (const char* path), (path), -1, "rmdir", path)
VX_CALL(int, remove, (const char* path), (path), -1, "remove", path)
VX_CALL(int, rename, (const char* from, const char* to), (from, to), -1, "rename", from, to)
VX_CALL(int, utime, (const char* path, const utimbuf* times), (path, times), -1, "utime", path)
VX_CALL(DIR*, opendir, (const char* path), (path), nullptr, "opendir", path)
VX_RELEASE(int, closedir, (DIR* directory), (directory), -1, "closedir")
VX_CALL(char*, getcwd, (char* to, std::size_t size), (to, size), nullptr, "getcwd")

VX_CALL(FILE*, fopen, (const char* path, const char* mode), (path, mode), nullptr, "fopen", path, mode)
VX_CALL(FILE*, fopen64, (const char* path, const char* mode), (path, mode), nullptr, "fopen", path, mode)
VX_RELEASE(int, fclose, (FILE* file), (file), EOF, "fclose")
VX_CALL(int, fseeko, (FILE* file, off_t to, int whence), (file, to, whence), -1, "fseeko", to, whence)
VX_CALL(int, fseeko64, (FILE* file, std::int64_t to, int whence), (file, to, whence), -1, "fseeko", to, whence)
VX_CALL(off_t, ftello, (FILE* file), (file), -1, "ftello")
VX_CALL(std::int64_t, ftello64, (FILE* file), (file), -1, "ftello")
VX_CALL(std::size_t, fread, (void* to, std::size_t size, std::size_t count, FILE* file), (to, size, count, file), 0, "fread", size, count)
VX_CALL(std::size_t, fwrite, (const void* from, std::size_t size, std::size_t count, FILE* file), (from, size, count, file), 0, "fwrite", size, count)
VX_CALL(int, fflush, (FILE* file), (file), EOF, "fflush")

VX_DATA(ssize_t, read, (int file, void* to, std::size_t size), (file, to, size), -1, "read")
VX_DATA(ssize_t, write, (int file, const void* from, std::size_t size), (file, from, size), -1, "write")
VX_DATA(ssize_t, writev, (int file, const iovec* parts, int count), (file, parts, count), -1, "writev")

VX_CALL(std::tm*, localtime_r, (const std::time_t* time, std::tm* date), (time, date), nullptr, "localtime_r")
VX_CALL(std::time_t, mktime, (std::tm* date), (date), -1, "mktime")

}  // extern "C"
// clang-format on

extern "C" {

VX_STATUS(stat, "stat")
VX_STATUS(stat64, "stat")
VX_STATUS(lstat, "lstat")
VX_STATUS(lstat64, "lstat")

VX_REPLACES(dirent*, readdir, (DIR * directory)) {
  VX_NEXT(dirent*, readdir, (DIR * directory));
  return listed([] { return words("readdir"); }, [&] { return real(directory); });
}

VX_REPLACES(dirent*, readdir64, (DIR * directory)) {
  VX_NEXT(dirent*, readdir64, (DIR * directory));
  return listed([] { return words("readdir"); }, [&] { return real(directory); });
}

// Answers only calls that let it allocate the result.
VX_REPLACES(char*, realpath, (const char* path, char* to)) {
  VX_NEXT(char*, realpath, (const char* path, char* to));
  if (!Turn::isObserved()) {
    return real(path, to);
  }
  const Turn turn(Kind::System, words("realpath", path));
  if (!turn.answer()) {
    return real(path, to);
  }
  return turn.answer()->fails ? answeredBy(turn, static_cast<char*>(nullptr))
                              : ::strdup(Turn::text());
}

VX_REPLACES(ssize_t, readlink, (const char* path, char* to, std::size_t size)) {
  VX_NEXT(ssize_t, readlink, (const char* path, char* to, std::size_t size));
  if (!Turn::isObserved()) {
    return real(path, to, size);
  }
  const Turn turn(Kind::System, words("readlink", path));
  if (!turn.answer()) {
    return real(path, to, size);
  }
  if (turn.answer()->fails) {
    return answeredBy(turn, ssize_t{-1});
  }
  const std::size_t length = std::min(size, std::strlen(Turn::text()));
  std::copy_n(Turn::text(), length, to);
  return static_cast<ssize_t>(length);
}

// The old stream is closed whatever becomes of the new one.
VX_REPLACES(FILE*, freopen, (const char* path, const char* mode, FILE* file)) {
  VX_NEXT(FILE*, freopen, (const char* path, const char* mode, FILE* file));
  return reopened([&] { return words("freopen", path, mode); },
                  [&] { return real(path, mode, file); }, file);
}

VX_REPLACES(FILE*, freopen64, (const char* path, const char* mode, FILE* file)) {
  VX_NEXT(FILE*, freopen64, (const char* path, const char* mode, FILE* file));
  return reopened([&] { return words("freopen", path, mode); },
                  [&] { return real(path, mode, file); }, file);
}

VX_REPLACES(char*, strerror, (int code)) {
  VX_NEXT(char*, strerror, (int code));
  if (!Turn::isObserved()) {
    return real(code);
  }
  const Turn turn(Kind::System, words("strerror", code));
  if (!turn.answer()) {
    return real(code);
  }
  return turn.answer()->fails ? nullptr : Turn::text();
}

}  // extern "C"

// ---------------------------------------------------------------------------------------------
// The underlying libraries, redirected by the linker, and the heap as they use it

#define VX_WRAPS(result, symbol, parameters) \
  result __real_##symbol parameters;         \
  result __wrap_##symbol parameters;         \
  result __wrap_##symbol parameters
#define VX_HEAP(symbol, parameters, arguments)                                  \
  VX_WRAPS(void*, symbol, parameters) {                                         \
    return called(                                                              \
        Kind::Heap, static_cast<void*>(nullptr), [] { return words(#symbol); }, \
        [&] { return __real_##symbol arguments; });                             \
  }
#define VX_ZIP_ROW(releases, result, symbol, parameters, arguments, ...) \
  VX_WRAPS(result, symbol, parameters) {                                 \
    return archived<result>(                                             \
        zip, releases, [&] { return words(__VA_ARGS__); },               \
        [&] { return __real_##symbol arguments; });                      \
  }
#define VX_ZIP(...) VX_ZIP_ROW(false, __VA_ARGS__)
#define VX_ZIP_END(...) VX_ZIP_ROW(true, __VA_ARGS__)

// NOLINTBEGIN(bugprone-reserved-identifier): the linker's names
// clang-format off
extern "C" {

VX_HEAP(malloc, (std::size_t size), (size))
VX_HEAP(calloc, (std::size_t count, std::size_t size), (count, size))
VX_HEAP(realloc, (void* block, std::size_t size), (block, size))

VX_ZIP(mz_bool, mz_zip_reader_init_file, (mz_zip_archive* zip, const char* path, mz_uint32 flags), (zip, path, flags), "mz_zip_reader_init_file", path, flags)
VX_ZIP(mz_uint, mz_zip_reader_get_num_files, (mz_zip_archive* zip), (zip), "mz_zip_reader_get_num_files")
VX_ZIP(mz_uint, mz_zip_reader_get_filename, (mz_zip_archive* zip, mz_uint index, char* name, mz_uint size), (zip, index, name, size), "mz_zip_reader_get_filename", index, buffer(name, size), size)
VX_ZIP(mz_bool, mz_zip_reader_is_file_supported, (mz_zip_archive* zip, mz_uint index), (zip, index), "mz_zip_reader_is_file_supported", index)
VX_ZIP(mz_bool, mz_zip_reader_is_file_a_directory, (mz_zip_archive* zip, mz_uint index), (zip, index), "mz_zip_reader_is_file_a_directory", index)
VX_ZIP(mz_bool, mz_zip_reader_file_stat, (mz_zip_archive* zip, mz_uint index, mz_zip_archive_file_stat* status), (zip, index, status), "mz_zip_reader_file_stat", index)
VX_ZIP(mz_bool, mz_zip_reader_extract_to_file, (mz_zip_archive* zip, mz_uint index, const char* path, mz_uint flags), (zip, index, path, flags), "mz_zip_reader_extract_to_file", index, path, flags)
VX_ZIP_END(mz_bool, mz_zip_reader_end, (mz_zip_archive* zip), (zip), "mz_zip_reader_end")
VX_ZIP(mz_bool, mz_zip_writer_init_file, (mz_zip_archive* zip, const char* path, mz_uint64 reserve), (zip, path, reserve), "mz_zip_writer_init_file", path, reserve)
VX_ZIP(mz_bool, mz_zip_writer_add_file, (mz_zip_archive* zip, const char* name, const char* path, const void* comment, mz_uint16 size, mz_uint level), (zip, name, path, comment, size, level), "mz_zip_writer_add_file", name, path, comment == nullptr ? "null" : "comment", size, level)
VX_ZIP(mz_bool, mz_zip_writer_finalize_archive, (mz_zip_archive* zip), (zip), "mz_zip_writer_finalize_archive")
VX_ZIP_END(mz_bool, mz_zip_end, (mz_zip_archive* zip), (zip), "mz_zip_end")

// Always made, since it cannot fail.
VX_WRAPS(void, mz_zip_zero_struct, (mz_zip_archive* zip)) {
  zeroedLast = zip;
  archived<bool>(zip, /*releases=*/true, [] { return words("mz_zip_zero_struct"); }, [&] { __real_mz_zip_zero_struct(zip); return true; });
}

VX_WRAPS(char*, tinyfd_openFileDialog, (const char* title, const char* path, int count, const char* const* patterns, const char* description, int multiple)) {
  return shown([&] { return words("tinyfd_openFileDialog", quoted(title), quoted(path), quoted(count, patterns), quoted(description), multiple); });
}
VX_WRAPS(char*, tinyfd_saveFileDialog, (const char* title, const char* path, int count, const char* const* patterns, const char* description)) {
  return shown([&] { return words("tinyfd_saveFileDialog", quoted(title), quoted(path), quoted(count, patterns), quoted(description)); });
}
VX_WRAPS(char*, tinyfd_selectFolderDialog, (const char* title, const char* path)) {
  return shown([&] { return words("tinyfd_selectFolderDialog", quoted(title), quoted(path)); });
}

}  // extern "C"
// clang-format on

#ifdef _LIBCPP_VERSION
// A static C++ library would allocate through the redirected calls, which are those of C.
void* operator new(std::size_t size) {
  void* const block = __real_malloc(size);
  if (block == nullptr) {
    throw std::bad_alloc();
  }
  return block;
}

void operator delete(void* block) noexcept {
  std::free(block);
}

void operator delete(void* block, std::size_t /*size*/) noexcept {
  std::free(block);
}
#endif
// NOLINTEND(bugprone-reserved-identifier)
// NOLINTEND(cppcoreguidelines-macro-usage, bugprone-macro-parentheses)
