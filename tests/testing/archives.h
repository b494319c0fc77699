// SPDX-License-Identifier: MIT
//
// Writes archives, sound or damaged: every field of every header can be set.
//
//   tmp.write("pack.zip", ZipMaker().file("a/b.txt", "text").directory("c/").bytes());
//
// Reads archives without the library under test.

#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

namespace vx::test {

constexpr std::uint16_t kStored = 0;
constexpr std::uint16_t kDeflated = 8;
constexpr std::uint16_t kBzip2 = 12;

constexpr std::uint16_t kEncryptedFlag = 1U << 0U;
constexpr std::uint16_t kPatchDataFlag = 1U << 5U;
constexpr std::uint16_t kStrongEncryptionFlag = 1U << 6U;

constexpr std::uint32_t kDosDirectoryBit = 0x10;
constexpr std::uint32_t kUnixLink = 0120777U << 16U;

/// One entry. Empty optional fields are computed from the others.
struct ZipEntry {
  std::string name;
  std::string content;
  std::uint16_t method = kStored;
  std::uint16_t flags = 0;
  std::uint16_t madeBy = 0x031E;  // Unix
  std::uint16_t needed = 20;
  std::uint16_t time = 0;
  std::uint16_t date = (1U << 5U) | 1U;  // 1 January 1980, the first day of the format
  std::uint32_t attributes = 0;
  std::string extra{};
  std::string comment{};
  std::optional<std::string> data{};  ///< in the archive; by default `content`
  std::optional<std::uint32_t> crc{};
  std::optional<std::uint32_t> packedSize{};
  std::optional<std::uint32_t> size{};
  std::optional<std::uint32_t> localSignature{};  ///< by default the right one
};

/// The entries in the order in which they are added.
class ZipMaker {
 public:
  ZipMaker& add(ZipEntry entry);

  /// A stored file.
  ZipMaker& file(std::string name, std::string content);

  /// An entry without content; only a name that ends in "/" makes it a directory.
  ZipMaker& directory(std::string name);

  /// Adds the end records of the 64-bit format, which an archive of more than 65,534 entries always
  /// has.
  ZipMaker& zip64End();

  /// The archive's bytes.
  [[nodiscard]] std::string bytes() const;

 private:
  std::vector<ZipEntry> entries_;
  bool hasZip64End_ = false;
};

/// Returns the content as deflated data: one uncompressed block of at most 65,535 bytes.
[[nodiscard]] std::string deflated(const std::string& content);

/// Returns the checksum that the format uses.
[[nodiscard]] std::uint32_t crc32Of(const std::string& content);

/// Returns bytes that cannot be compressed; the same for the same seed.
[[nodiscard]] std::string noise(std::size_t size, std::uint32_t seed = 1);

struct ZipContent {
  std::string name;
  std::string bytes;

  bool operator==(const ZipContent&) const = default;
};

void PrintTo(const ZipContent& content, std::ostream* out);

/// Returns the entries of the archive in the order of its directory, with their extracted bytes.
/// Throws if the archive cannot be read or a checksum is wrong.
[[nodiscard]] std::vector<ZipContent> contentsOf(const std::string& archive);

/// Returns the names of the entries in the order of the archive's directory.
[[nodiscard]] std::vector<std::string> namesIn(const std::string& archive);

}  // namespace vx::test
