// SPDX-License-Identifier: MIT
//
// Archives as a test wants them, sound or not: every field of every header can be set.
//
//   tmp.write("pack.zip", ZipMaker().file("a/b.txt", "text").directory("c/").bytes());
//
// And what is in an archive, read without the library under test.

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

/// One entry. What is left empty follows from the rest.
struct ZipEntry {
  std::string name;
  std::string content;
  std::uint16_t method = kStored;
  std::uint16_t flags = 0;
  std::uint16_t madeBy = 0x031E;  // Unix
  std::uint16_t needed = 20;
  std::uint16_t time = 0;
  std::uint16_t date = (1U << 5U) | 1U;  // the first day that the format knows
  std::uint32_t attributes = 0;
  std::string extra{};
  std::string comment{};
  std::optional<std::string> data{};  ///< what lies in the archive; else `content` itself
  std::optional<std::uint32_t> crc{};
  std::optional<std::uint32_t> packedSize{};
  std::optional<std::uint32_t> size{};
  std::optional<std::uint32_t> localSignature{};  ///< of that header; else the right one
};

/// The entries in the order in which they are added.
class ZipMaker {
 public:
  ZipMaker& add(ZipEntry entry);

  /// A stored file.
  ZipMaker& file(std::string name, std::string content);

  /// An entry without content; only a name that ends in "/" makes it a directory.
  ZipMaker& directory(std::string name);

  /// Ends the archive with the records of the 64-bit format too, as one of more than 65,534 entries
  /// does anyhow.
  ZipMaker& zip64End();

  /// The archive's bytes.
  [[nodiscard]] std::string bytes() const;

 private:
  std::vector<ZipEntry> entries_;
  bool hasZip64End_ = false;
};

/// The content as deflated data, in one block that is not compressed; at most 65,535 bytes.
[[nodiscard]] std::string deflated(const std::string& content);

/// The checksum that the format uses.
[[nodiscard]] std::uint32_t crc32Of(const std::string& content);

/// Bytes that no compression makes smaller; the same for the same seed.
[[nodiscard]] std::string noise(std::size_t size, std::uint32_t seed = 1);

struct ZipContent {
  std::string name;
  std::string bytes;

  bool operator==(const ZipContent&) const = default;
};

void PrintTo(const ZipContent& content, std::ostream* out);

/// The entries of the archive in the order of its directory, with their unpacked bytes, checked
/// against their checksums. Throws when the archive cannot be read.
[[nodiscard]] std::vector<ZipContent> contentsOf(const std::string& archive);

/// The names of the entries in the order of the archive's directory.
[[nodiscard]] std::vector<std::string> namesIn(const std::string& archive);

}  // namespace vx::test
