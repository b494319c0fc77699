// SPDX-License-Identifier: MIT

#include "tests/testing/archives.h"

#include <gtest/gtest.h>
#include <miniz.h>

#include <memory>
#include <random>
#include <stdexcept>
#include <utility>

namespace vx::test {
namespace {

constexpr std::uint32_t kLocalSignature = 0x04034B50;
constexpr std::uint32_t kCentralSignature = 0x02014B50;
constexpr std::uint32_t kEndSignature = 0x06054B50;
constexpr std::uint32_t kZip64EndSignature = 0x06064B50;
constexpr std::uint32_t kZip64LocatorSignature = 0x07064B50;

constexpr std::uint16_t kSee64BitField = 0xFFFF;

/// Little-endian fields, one after the other.
class Fields {
 public:
  Fields& u16(std::uint64_t value) { return number(value, 2); }
  Fields& u32(std::uint64_t value) { return number(value, 4); }
  Fields& u64(std::uint64_t value) { return u32(value & 0xFFFFFFFFU).u32(value >> 32U); }

  Fields& text(const std::string& bytes) {
    bytes_ += bytes;
    return *this;
  }

  [[nodiscard]] const std::string& bytes() const { return bytes_; }
  [[nodiscard]] std::size_t size() const { return bytes_.size(); }

 private:
  Fields& number(std::uint64_t value, int width) {
    if ((value >> (8 * width)) != 0) {
      throw std::out_of_range("a value that its field of the archive cannot hold");
    }
    for (int i = 0; i < width; ++i) {
      bytes_ += static_cast<char>(static_cast<unsigned char>(value >> (8 * i)));
    }
    return *this;
  }

  std::string bytes_;
};

const std::string& dataOf(const ZipEntry& entry) {
  return entry.data ? *entry.data : entry.content;
}

/// The fields that the two headers of an entry have in common, in the order that both keep.
void addSharedFields(Fields& fields, const ZipEntry& entry) {
  fields.u16(entry.needed).u16(entry.flags).u16(entry.method).u16(entry.time).u16(entry.date);
  fields.u32(entry.crc.value_or(crc32Of(entry.content)));
  fields.u32(entry.packedSize ? *entry.packedSize : dataOf(entry).size());
  fields.u32(entry.size ? *entry.size : entry.content.size());
}

void addLocalEntry(Fields& fields, const ZipEntry& entry) {
  fields.u32(entry.localSignature.value_or(kLocalSignature));
  addSharedFields(fields, entry);
  fields.u16(entry.name.size()).u16(0).text(entry.name).text(dataOf(entry));
}

void addCentralEntry(Fields& fields, const ZipEntry& entry, std::size_t localOffset) {
  fields.u32(kCentralSignature).u16(entry.madeBy);
  addSharedFields(fields, entry);
  fields.u16(entry.name.size()).u16(entry.extra.size()).u16(entry.comment.size());
  fields.u16(0).u16(0).u32(entry.attributes).u32(localOffset);
  fields.text(entry.name).text(entry.extra).text(entry.comment);
}

void addZip64End(Fields& archive, std::size_t count, std::size_t size, std::size_t offset) {
  constexpr std::size_t kSizeOfRest = 44;
  const std::size_t recordOffset = archive.size();
  archive.u32(kZip64EndSignature).u64(kSizeOfRest).u16(45).u16(45).u32(0).u32(0);
  archive.u64(count).u64(count).u64(size).u64(offset);
  archive.u32(kZip64LocatorSignature).u32(0).u64(recordOffset).u32(1);
}

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

ZipMaker& ZipMaker::add(ZipEntry entry) {
  entries_.push_back(std::move(entry));
  return *this;
}

ZipMaker& ZipMaker::file(std::string name, std::string content) {
  return add({.name = std::move(name), .content = std::move(content)});
}

ZipMaker& ZipMaker::directory(std::string name) {
  return add({.name = std::move(name), .content = {}});
}

ZipMaker& ZipMaker::zip64End() {
  hasZip64End_ = true;
  return *this;
}

std::string ZipMaker::bytes() const {
  Fields archive;
  Fields directory;
  for (const ZipEntry& entry : entries_) {
    addCentralEntry(directory, entry, archive.size());
    addLocalEntry(archive, entry);
  }
  const std::size_t directoryOffset = archive.size();
  archive.text(directory.bytes());
  std::size_t count = entries_.size();
  if (hasZip64End_ || count >= kSee64BitField) {
    addZip64End(archive, count, directory.size(), directoryOffset);
    count = kSee64BitField;
  }
  archive.u32(kEndSignature).u16(0).u16(0).u16(count).u16(count);
  archive.u32(directory.size()).u32(directoryOffset).u16(0);
  return archive.bytes();
}

std::string deflated(const std::string& content) {
  const auto length = static_cast<std::uint16_t>(content.size());
  const auto complement = static_cast<std::uint16_t>(~length);
  Fields block;
  block.text("\x01").u16(length).u16(complement).text(content);
  if (length != content.size()) {
    throw std::length_error("more than one block of deflated data holds");
  }
  return block.bytes();
}

std::uint32_t crc32Of(const std::string& content) {
  std::uint32_t crc = ~0U;
  for (const char byte : content) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) {
      crc = (crc >> 1U) ^ ((crc & 1U) == 0 ? 0U : 0xEDB88320U);
    }
  }
  return ~crc;
}

std::string noise(std::size_t size, std::uint32_t seed) {
  std::mt19937 random(seed);
  std::string bytes(size, '\0');
  for (char& byte : bytes) {
    byte = static_cast<char>(static_cast<unsigned char>(random()));
  }
  return bytes;
}

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
