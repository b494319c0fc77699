// SPDX-License-Identifier: MIT

#include "tests/testing/zip_contents.h"

#include <gtest/gtest.h>
#include <miniz.h>

#include <cstddef>
#include <memory>
#include <stdexcept>

namespace vx::test {
namespace {

class Reader {
 public:
  explicit Reader(const std::string& archive) {
    if (mz_zip_reader_init_file_v2(&zip_, archive.c_str(), 0, 0, 0) == MZ_FALSE) {
      throw std::runtime_error("cannot open the archive " + archive);
    }
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;
  ~Reader() { mz_zip_end(&zip_); }

  [[nodiscard]] mz_uint count() const { return zip_.m_total_files; }

  [[nodiscard]] std::string name(mz_uint index) {
    mz_zip_archive_file_stat status;
    if (mz_zip_reader_file_stat(&zip_, index, &status) == MZ_FALSE) {
      throw std::runtime_error("cannot read the header of an entry");
    }
    return status.m_filename;
  }

  [[nodiscard]] std::string bytes(mz_uint index) {
    std::size_t size = 0;
    const std::unique_ptr<void, decltype(&mz_free)> data(
        mz_zip_reader_extract_to_heap(&zip_, index, &size, 0), &mz_free);
    if (data == nullptr) {
      throw std::runtime_error("cannot unpack the entry " + name(index));
    }
    return {static_cast<const char*>(data.get()), size};
  }

 private:
  mz_zip_archive zip_{};
};

}  // namespace

void PrintTo(const ZipContent& content, std::ostream* out) {
  *out << testing::PrintToString(content.name) << ": " << testing::PrintToString(content.bytes);
}

std::vector<ZipContent> contentsOf(const std::string& archive) {
  Reader reader(archive);
  std::vector<ZipContent> contents;
  for (mz_uint i = 0; i < reader.count(); ++i) {
    contents.push_back({reader.name(i), reader.bytes(i)});
  }
  return contents;
}

std::vector<std::string> namesIn(const std::string& archive) {
  Reader reader(archive);
  std::vector<std::string> names;
  for (mz_uint i = 0; i < reader.count(); ++i) {
    names.push_back(reader.name(i));
  }
  return names;
}

}  // namespace vx::test
