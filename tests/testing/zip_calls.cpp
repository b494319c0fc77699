#include "tests/testing/zip_calls.h"

#include <algorithm>
#include <cstddef>
#include <iterator>

// NOLINTBEGIN(bugprone-reserved-identifier): the linker makes these names.
extern "C" {
void __real_mz_zip_zero_struct(mz_zip_archive*);
mz_bool __real_mz_zip_reader_init_file(mz_zip_archive*, const char*, mz_uint32);
mz_uint __real_mz_zip_reader_get_num_files(mz_zip_archive*);
mz_uint __real_mz_zip_reader_get_filename(mz_zip_archive*, mz_uint, char*, mz_uint);
mz_bool __real_mz_zip_reader_is_file_supported(mz_zip_archive*, mz_uint);
mz_bool __real_mz_zip_reader_is_file_a_directory(mz_zip_archive*, mz_uint);
mz_bool __real_mz_zip_reader_extract_to_file(mz_zip_archive*, mz_uint, const char*, mz_uint);
mz_bool __real_mz_zip_reader_end(mz_zip_archive*);
mz_bool __real_mz_zip_writer_init_file(mz_zip_archive*, const char*, mz_uint64);
mz_bool __real_mz_zip_writer_add_file(mz_zip_archive*, const char*, const char*, const void*,
                                      mz_uint16, mz_uint);
mz_bool __real_mz_zip_writer_finalize_archive(mz_zip_archive*);
mz_bool __real_mz_zip_end(mz_zip_archive*);
}

namespace vx::test {
namespace {

template <class... Values>
std::string call(std::string name, const Values&... values) {
  const auto append = [&name](const auto& value) {
    name += ' ';
    if constexpr (std::is_integral_v<std::decay_t<decltype(value)>>) {
      name += std::to_string(value);
    } else {
      name += value;
    }
  };
  (append(values), ...);
  return name;
}

const char* nullOr(const void* pointer, const char* text) {
  return pointer == nullptr ? "null" : text;
}

bool isZero(const char* buffer, std::size_t size) {
  return std::all_of(buffer, buffer + size, [](char byte) { return byte == 0; });
}

/// Records the call, then gives the scripted result or, where there is none, that of `real`.
template <class Real>
auto recorded(ZipCall function, mz_zip_archive* zip, std::string line, const Real& real) {
  ZipCalls* const calls = ZipCalls::active();
  if (calls == nullptr) {
    return real();
  }
  const std::optional<mz_uint> scripted = calls->enter(function, zip, std::move(line));
  const bool ends = function == ZipCall::End || function == ZipCall::ReaderEnd;
  using Result = decltype(real());
  const Result result = scripted && !ends ? static_cast<Result>(*scripted) : real();
  calls->leave(zip);
  return scripted ? static_cast<Result>(*scripted) : result;
}

}  // namespace

ZipCalls* ZipCalls::active_ = nullptr;

ZipCalls::ZipCalls()
    : sinkBefore_(setLogSink([this](LogLevel level, String line) {
        note((level == LogLevel::Error ? "error: " : "warning: ") + std::string(line.view()));
      })) {
  active_ = this;
}

ZipCalls::~ZipCalls() {
  active_ = nullptr;
  setLogSink(std::move(sinkBefore_));
}

void ZipCalls::fail(ZipCall function, int nth) {
  answer(function, nth, MZ_FALSE);
}

void ZipCalls::answer(ZipCall function, int nth, mz_uint result) {
  results_[{function, nth}] = result;
}

void ZipCalls::before(ZipCall function, int nth, std::function<void()> look) {
  looks_[{function, nth}] = std::move(look);
}

void ZipCalls::note(std::string line) {
  lines_.push_back(std::move(line));
}

std::vector<std::string> ZipCalls::all(const std::string& word) const {
  std::vector<std::string> found;
  std::copy_if(lines_.begin(), lines_.end(), std::back_inserter(found),
               [&](const std::string& line) { return line.starts_with(word); });
  return found;
}

bool ZipCalls::endWhatIsLeftOpen() {
  return __real_mz_zip_end(&copy_) != MZ_FALSE;
}

std::optional<mz_uint> ZipCalls::enter(ZipCall function, const mz_zip_archive* zip,
                                       std::string line) {
  if (function == ZipCall::ZeroStruct) {
    record_ = zip;
  }
  note(std::move(line) + (zip == record_ ? "" : " (of another record)"));
  const Key key(function, ++counts_[function]);
  if (const auto look = looks_.find(key); look != looks_.end()) {
    look->second();
  }
  const auto result = results_.find(key);
  return result == results_.end() ? std::nullopt : std::optional(result->second);
}

}  // namespace vx::test

using vx::test::call;
using vx::test::isZero;
using vx::test::nullOr;
using vx::test::recorded;
using vx::test::ZipCall;

extern "C" {

void __wrap_mz_zip_zero_struct(mz_zip_archive* zip) {
  recorded(ZipCall::ZeroStruct, zip, "zero_struct", [&] {
    __real_mz_zip_zero_struct(zip);
    return true;
  });
}

mz_bool __wrap_mz_zip_reader_init_file(mz_zip_archive* zip, const char* path, mz_uint32 flags) {
  return recorded(ZipCall::ReaderInitFile, zip, call("reader_init_file", path, flags),
                  [&] { return __real_mz_zip_reader_init_file(zip, path, flags); });
}

mz_uint __wrap_mz_zip_reader_get_num_files(mz_zip_archive* zip) {
  return recorded(ZipCall::GetNumFiles, zip, "get_num_files",
                  [&] { return __real_mz_zip_reader_get_num_files(zip); });
}

mz_uint __wrap_mz_zip_reader_get_filename(mz_zip_archive* zip, mz_uint index, char* buffer,
                                          mz_uint size) {
  // One byte more than the size given is the caller's; the address sanitizer objects if it is not.
  const char* const text =
      buffer != nullptr && isZero(buffer, std::size_t{size} + 1) ? "buffer" : "dirty-buffer";
  return recorded(ZipCall::GetFilename, zip,
                  call("get_filename", index, nullOr(buffer, text), size),
                  [&] { return __real_mz_zip_reader_get_filename(zip, index, buffer, size); });
}

mz_bool __wrap_mz_zip_reader_is_file_supported(mz_zip_archive* zip, mz_uint index) {
  return recorded(ZipCall::IsFileSupported, zip, call("is_file_supported", index),
                  [&] { return __real_mz_zip_reader_is_file_supported(zip, index); });
}

mz_bool __wrap_mz_zip_reader_is_file_a_directory(mz_zip_archive* zip, mz_uint index) {
  return recorded(ZipCall::IsFileADirectory, zip, call("is_file_a_directory", index),
                  [&] { return __real_mz_zip_reader_is_file_a_directory(zip, index); });
}

mz_bool __wrap_mz_zip_reader_extract_to_file(mz_zip_archive* zip, mz_uint index, const char* path,
                                             mz_uint flags) {
  return recorded(ZipCall::ExtractToFile, zip, call("extract_to_file", index, path, flags),
                  [&] { return __real_mz_zip_reader_extract_to_file(zip, index, path, flags); });
}

mz_bool __wrap_mz_zip_reader_end(mz_zip_archive* zip) {
  return recorded(ZipCall::ReaderEnd, zip, "reader_end",
                  [&] { return __real_mz_zip_reader_end(zip); });
}

mz_bool __wrap_mz_zip_writer_init_file(mz_zip_archive* zip, const char* path, mz_uint64 reserve) {
  return recorded(ZipCall::WriterInitFile, zip, call("writer_init_file", path, reserve),
                  [&] { return __real_mz_zip_writer_init_file(zip, path, reserve); });
}

mz_bool __wrap_mz_zip_writer_add_file(mz_zip_archive* zip, const char* name, const char* source,
                                      const void* comment, mz_uint16 commentSize, mz_uint level) {
  return recorded(
      ZipCall::WriterAddFile, zip,
      call("writer_add_file", name, source, nullOr(comment, "comment"), commentSize, level), [&] {
        return __real_mz_zip_writer_add_file(zip, name, source, comment, commentSize, level);
      });
}

mz_bool __wrap_mz_zip_writer_finalize_archive(mz_zip_archive* zip) {
  return recorded(ZipCall::WriterFinalizeArchive, zip, "writer_finalize_archive",
                  [&] { return __real_mz_zip_writer_finalize_archive(zip); });
}

mz_bool __wrap_mz_zip_end(mz_zip_archive* zip) {
  return recorded(ZipCall::End, zip, "end", [&] { return __real_mz_zip_end(zip); });
}
}
// NOLINTEND(bugprone-reserved-identifier)
