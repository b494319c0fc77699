// What expanding an archive must do, worked out from what is known of its entries and from the
// rules that the library states, without a look at the disk.

#pragma once

#include "tests/testing/zip_corpus.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace vx::test {

/// Follows the entries one by one. The output directory is absolute, in normal form, stands already
/// and is empty; neither it nor what lies around it holds links.
class Prediction {
 public:
  /// What is known of a file.
  struct File {
    std::string sha256;                          ///< empty where it is not known
    std::optional<std::uint64_t> partialSize{};  ///< where extraction has failed half-way
    bool mayBeMissing = false;  ///< extraction failed, perhaps before it made the file
  };

  /// An archive that is no scene itself, of the given canonical path.
  Prediction(std::string archive, std::string outDir);

  void add(const CorpusEntry& entry);

  /// The lines that are logged, with their level.
  [[nodiscard]] const std::vector<std::string>& log() const { return log_; }

  /// The paths that are returned.
  [[nodiscard]] const std::vector<std::string>& listed() const { return listed_; }

  /// The files by their path in normal form.
  [[nodiscard]] const std::map<std::string, File>& files() const { return files_; }

  /// The directories, by their path in normal form, the output directory left out.
  [[nodiscard]] const std::set<std::string>& directories() const { return directories_; }

  /// Whether the name leads out of whatever directory it is joined to.
  [[nodiscard]] static bool leadsOut(const std::string& name);

  /// The name up to its first NUL.
  [[nodiscard]] static std::string printed(const std::string& name);

  /// Where an entry of the name goes, as it is written.
  [[nodiscard]] std::string destinationOf(const std::string& name) const;

 private:
  [[nodiscard]] bool isDirectory(const std::string& path) const;
  bool makeDirectory(const std::string& path);
  void extract(const CorpusEntry& entry, const std::string& destination);
  void error(const std::string& line) { log_.push_back("error: " + line); }

  std::string scene_;
  std::string outDir_;
  std::vector<std::string> log_;
  std::vector<std::string> listed_;
  std::map<std::string, File> files_;
  std::set<std::string> directories_;
};

}  // namespace vx::test
