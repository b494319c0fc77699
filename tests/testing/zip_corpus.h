// Archives found in the wild, and what is known of them.
//
// The folder that VX_ZIP_CORPUS names holds the archives, "manifest.tsv" with a line for each, and
// beside each archive a JSON file with its entries.

#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace vx::test {

/// What comes of an entry where nothing stands in its way.
enum class EntryResult { Directory, Unsupported, Extracted, Fails };

struct CorpusEntry {
  std::string name;  ///< the bytes in the archive's directory, NUL included
  EntryResult result = EntryResult::Extracted;
  std::string sha256{};                        ///< of the bytes that come out, where that is known
  std::optional<std::uint64_t> partialSize{};  ///< of the file that a failure leaves, where known
};

struct CorpusArchive {
  std::string file;         ///< its name in the folder
  std::string sha256;       ///< of the archive
  bool isOpened = false;    ///< whether miniz takes it for an archive
  bool isDisputed = false;  ///< whether readers disagree about what is in it
};

/// The folder, and where there is none, why not.
struct Corpus {
  std::string folder;
  std::string whyNot;
};

[[nodiscard]] Corpus findCorpus();

/// The archives that the manifest lists; none where there is no corpus.
[[nodiscard]] std::vector<CorpusArchive> corpusArchives();

/// The entries of the archive in the order in which miniz counts them.
[[nodiscard]] std::vector<CorpusEntry> corpusEntries(const CorpusArchive& archive);

/// The SHA-256 of the file, in hexadecimal digits.
[[nodiscard]] std::string sha256Of(const std::string& path);

}  // namespace vx::test
