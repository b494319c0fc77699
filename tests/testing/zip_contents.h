// SPDX-License-Identifier: MIT
//
// What lies in an archive, read without the library under test.

#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace vx::test {

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
