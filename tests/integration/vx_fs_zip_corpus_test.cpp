// SPDX-License-Identifier: MIT
//
// readZip of archives found in the wild, damaged and hostile ones among them: each entry comes out
// with the right bytes or has its line in the log, and nothing is written outside the output
// directory.
//
// The archives are not part of this tree. The environment variable VX_ZIP_CORPUS names their
// folder, with "manifest.tsv", a line for each archive, and next to each archive a JSON file with
// its entries.

#include "fs/vx_fs.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>
#include <openssl/evp.h>
#include <sys/resource.h>
#include <unistd.h>

namespace vx::test {
namespace {

using Json = nlohmann::json;
using Path = std::filesystem::path;

// ---------------------------------------------------------------------------------------------
// What is known of the archives

struct Archive {
  std::string file;         // its name in the folder
  std::string sha256;       // of the archive
  bool isOpened = false;    // by miniz
  bool isDisputed = false;  // readers disagree about what is in it
};

void PrintTo(const Archive& archive, std::ostream* out) {
  *out << archive.file;
}

/// What comes of an entry if nothing is in its way.
enum class EntryResult { Directory, Unsupported, Extracted, Fails };

struct Entry {
  std::string name;  // up to the first NUL
  EntryResult result = EntryResult::Extracted;
  std::string sha256{};                        // of what comes out, if known
  std::optional<std::uint64_t> partialSize{};  // of the file that a failure leaves, if known
};

std::ifstream opened(const Path& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + path.string());
  }
  return file;
}

/// The folder, empty if there is none.
Path corpus() {
  const char* const folder = std::getenv("VX_ZIP_CORPUS");
  return folder != nullptr && std::filesystem::exists(Path(folder) / "manifest.tsv") ? folder : "";
}

std::vector<std::string> columns(const std::string& line) {
  std::vector<std::string> texts;
  std::istringstream stream(line);
  for (std::string text; std::getline(stream, text, '\t');) {
    texts.push_back(text);
  }
  return texts;
}

std::vector<Archive> archives() {
  std::vector<Archive> all;
  if (corpus().empty()) {
    return all;
  }
  std::ifstream manifest = opened(corpus() / "manifest.tsv");
  std::string line;
  std::getline(manifest, line);
  const std::vector<std::string> names = columns(line);
  while (std::getline(manifest, line)) {
    const std::vector<std::string> texts = columns(line);
    std::map<std::string, std::string> byName;
    for (std::size_t i = 0; i < texts.size(); ++i) {
      byName[names.at(i)] = texts[i];
    }
    all.push_back({.file = byName.at("file"),
                   .sha256 = byName.at("sha256"),
                   .isOpened = byName.at("miniz").starts_with("opens"),
                   .isDisputed = byName.at("expectation") == "disputed"});
  }
  return all;
}

std::string nameOf(const Json& entry) {
  std::string name = entry.value("name", "");
  if (entry.contains("name_hex")) {
    const std::string digits = entry["name_hex"];
    name.clear();
    for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
      name += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
    }
  }
  return name.substr(0, name.find('\0'));
}

EntryResult resultOf(const Json& entry, const Json& answer) {
  // If there is only a summary, every file was extracted.
  const std::string result =
      answer.value("result", entry.value("kind", "") == "dir" ? "directory" : "extracted");
  const std::string status = entry.value("status", "");
  // The library asks whether an entry is supported before it asks whether it is a directory. What
  // is known was asked the other way round.
  const bool isUnsupported =
      status == "encrypted" || status == "unsupported-method" || status == "patch-data";
  if (result == "unsupported" || (result == "directory" && isUnsupported)) {
    return EntryResult::Unsupported;
  }
  if (result == "directory") {
    return EntryResult::Directory;
  }
  return result == "extracted" ? EntryResult::Extracted : EntryResult::Fails;
}

/// The entries of the archive in the order of miniz.
std::vector<Entry> entriesOf(const Archive& archive) {
  std::ifstream file = opened(corpus() / (archive.file + ".json"));
  const Json json = Json::parse(file);
  const Json none = Json::object();
  const Json& entries = json["entries"];
  const Json& answers = json["miniz"].contains("entries") ? json["miniz"]["entries"] : none;
  std::vector<Entry> all;
  for (std::size_t i = 0; i < std::max(entries.size(), answers.size()); ++i) {
    const Json& entry = i < entries.size() ? entries[i] : none;
    const Json& answer = i < answers.size() ? answers[i] : none;
    all.push_back({.name = nameOf(entry),
                   .result = resultOf(entry, answer),
                   .sha256 = answer.value("sha256", entry.value("sha256", ""))});
    if (answer.contains("leaves_bytes")) {
      all.back().partialSize = answer["leaves_bytes"].get<std::uint64_t>();
    }
  }
  return all;
}

std::string sha256Of(const Path& path) {
  std::ifstream file = opened(path);
  const std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> digest(EVP_MD_CTX_new(),
                                                                       &EVP_MD_CTX_free);
  EVP_DigestInit_ex(digest.get(), EVP_sha256(), nullptr);
  std::array<char, 65536> chunk{};
  while (file.read(chunk.data(), chunk.size()), file.gcount() > 0) {
    EVP_DigestUpdate(digest.get(), chunk.data(), static_cast<std::size_t>(file.gcount()));
  }
  std::array<unsigned char, EVP_MAX_MD_SIZE> bytes{};
  unsigned length = 0;
  EVP_DigestFinal_ex(digest.get(), bytes.data(), &length);
  std::string digits;
  for (unsigned i = 0; i < length; ++i) {
    constexpr std::string_view kDigits = "0123456789abcdef";
    digits += kDigits[bytes[i] >> 4U];
    digits += kDigits[bytes[i] & 15U];
  }
  return digits;
}

// ---------------------------------------------------------------------------------------------
// What extracting has to do

std::string normal(const std::string& path) {
  std::string text = Path(path).lexically_normal().string();
  while (text.size() > 1 && text.back() == '/') {
    text.pop_back();
  }
  return text;
}

std::string withoutLeadingSeparators(const std::string& name) {
  return name.substr(std::min(name.find_first_not_of('/'), name.size()));
}

/// Worked out from the entries and the documented rules, without a look at the disk. The output
/// directory is absolute, exists and is empty.
class Expectation {
 public:
  struct File {
    std::string sha256{};  // empty if unknown
    std::optional<std::uint64_t> partialSize{};
    bool mayBeMissing = false;
  };

  Expectation(std::string archive, std::string outDir)
      : scene_(Path(archive).replace_extension(".ksx").string()), outDir_(std::move(outDir)) {}

  void add(const Entry& entry) {
    const std::string destination = destinationOf(entry.name);
    const std::string relative = normal(withoutLeadingSeparators(entry.name));
    const bool leadsOut = relative == ".." || relative.starts_with("../");
    if (entry.result == EntryResult::Unsupported || (leadsOut && destination != scene_)) {
      log.push_back("warning: Unaupported file in archive: " + entry.name);
      return;
    }
    const bool isDirectory = entry.result == EntryResult::Directory;
    if (!makeDirectory(isDirectory ? destination : Path(destination).parent_path().string())) {
      log.push_back("error: Failed to create archive subdir: " + destination);
      return;
    }
    if (!isDirectory) {
      extract(entry, destination);
    }
  }

  /// The destination of an entry, as it is written.
  [[nodiscard]] std::string destinationOf(const std::string& name) const {
    const std::string joined =
        name.empty() ? outDir_ : outDir_ + "/" + withoutLeadingSeparators(name);
    std::string end = joined.substr(joined.size() - std::min<std::size_t>(joined.size(), 4));
    std::transform(end.begin(), end.end(), end.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return end == ".ksx" ? scene_ : joined;
  }

  std::vector<std::string> log;
  std::vector<std::string> listed;
  std::map<std::string, File> files;  // by their path in normal form
  std::set<std::string> directories;  // likewise, without the output directory

 private:
  static bool isTooLong(const std::string& path) {
    return Path(path).filename().string().size() > 255;
  }

  [[nodiscard]] bool isDirectory(const std::string& path) const {
    return (outDir_ + "/").starts_with(path + "/") || directories.contains(path);
  }

  bool makeDirectory(const std::string& path) {
    const std::string wanted = normal(path);
    if (isDirectory(wanted) || files.contains(wanted)) {
      return isDirectory(wanted);
    }
    for (std::size_t end = 0; end != std::string::npos;) {
      end = wanted.find('/', end + 1);
      const std::string level = wanted.substr(0, end);
      if (files.contains(level) || isTooLong(level)) {
        const int code = files.contains(level) ? EEXIST : ENAMETOOLONG;
        log.push_back("error: Failed to create dir: " + level + " [err: " + errnoText(code) + "].");
        return false;
      }
      if (!isDirectory(level)) {
        directories.insert(level);
      }
    }
    return true;
  }

  void extract(const Entry& entry, const std::string& destination) {
    if (destination.find("/../") != std::string::npos) {
      throw std::logic_error("a name that goes back depends on the disk: " + destination);
    }
    const std::string place = normal(destination);
    const bool canBeOpened = !isDirectory(place) && !isTooLong(place);
    if (canBeOpened && entry.result == EntryResult::Extracted) {
      files[place] = {.sha256 = entry.sha256};
      listed.push_back(destination);
      return;
    }
    if (canBeOpened) {
      files[place] = {.partialSize = entry.partialSize, .mayBeMissing = !entry.partialSize};
    }
    log.push_back("error: Failed to extract file " + destination + " from archive.");
  }

  std::string scene_;
  std::string outDir_;
};

// ---------------------------------------------------------------------------------------------
// The test

void limit(decltype(RLIMIT_CPU) resource, rlim_t most) {
  const rlimit both{most, most};
  ASSERT_EQ(::setrlimit(resource, &both), 0);
}

void limitResources() {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  limit(RLIMIT_CPU, 30);
  // The test's own memory and 512 MiB; twice the largest file that is to come out
  limit(RLIMIT_AS, pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE)) + (rlim_t{512} << 20U));
  limit(RLIMIT_FSIZE, rlim_t{128} << 20U);
  std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the limit fails, as on a full disk
}

/// Extracts an archive, "pack.zip", into "a/b/out", so that names that lead out a few levels are
/// noticed.
class ReadZip_Corpus : public testing::TestWithParam<Archive> {
 protected:
  void SetUp() override {
    const Path original = corpus() / GetParam().file;
    ASSERT_EQ(sha256Of(original), GetParam().sha256) << "not the archive of the manifest";
    std::filesystem::copy_file(original, archive);
    for (const char* const level : {".", "a", "a/b", "a/b/out"}) {
      std::filesystem::permissions(tmp.path(level), std::filesystem::perms::all);
    }
  }

  void expectFiles(const Expectation& expected) const {
    std::set<std::string> paths = {tmp.path("a/"), tmp.path("a/b/"), tmp.path("a/b/out/"), archive};
    for (const std::string& directory : expected.directories) {
      paths.insert(directory + "/");
    }
    for (const auto& [path, file] : expected.files) {
      if (file.mayBeMissing && !std::filesystem::exists(path)) {
        continue;
      }
      paths.insert(path);
      EXPECT_TRUE(file.sha256.empty() || sha256Of(path) == file.sha256) << path;
      EXPECT_TRUE(!file.partialSize || std::filesystem::file_size(path) == *file.partialSize)
          << path;
    }
    std::set<std::string> found;
    for (const std::string& entry : tmp.entries()) {
      found.insert(tmp.path(entry));
    }
    EXPECT_EQ(found, paths);
  }

  /// What is listed has the bytes that some entry of its name is known to have.
  void expectKnownBytes(const std::vector<Entry>& entries,
                        const std::vector<std::string>& listed) const {
    for (const std::string& path : listed) {
      std::set<std::string> known;
      for (const Entry& entry : entries) {
        if (Expectation(archive, outDir).destinationOf(entry.name) == path) {
          known.insert(entry.sha256);
        }
      }
      EXPECT_TRUE(known.empty() || known.contains("") || known.contains(sha256Of(path))) << path;
    }
  }

  TempDir tmp;
  std::string outDir = tmp.mkdir("a/b/out");
  std::string archive = tmp.path("a/b/pack.zip");
};

TEST_P(ReadZip_Corpus, ExtractsWhatIsKnown) {
  const std::vector<Entry> entries = entriesOf(GetParam());

  runAsUnprivileged([&] {
    limitResources();
    const LogCapture log;

    const std::vector<std::string> listed = texts(fs::readZip(vxText(archive), vxText(outDir)));

    Expectation expected(archive, outDir);
    if (GetParam().isOpened && GetParam().isDisputed) {
      expectKnownBytes(entries, listed);
      return;
    }
    if (GetParam().isOpened) {
      std::for_each(entries.begin(), entries.end(),
                    [&](const Entry& entry) { expected.add(entry); });
    } else {
      expected.log = {"error: Failed to initialize archive: " + archive};
    }
    EXPECT_EQ(log.all(), expected.log);
    EXPECT_EQ(listed, expected.listed);
    expectFiles(expected);
  });

  std::vector<std::string> around = tmp.entries();
  std::erase_if(around, [](const std::string& name) { return name.starts_with("a/b/out/"); });
  EXPECT_EQ(around, lines("a/", "a/b/", "a/b/pack.zip"));
  EXPECT_EQ(sha256Of(archive), GetParam().sha256);
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ReadZip_Corpus);
INSTANTIATE_TEST_SUITE_P(Archive, ReadZip_Corpus, testing::ValuesIn(archives()),
                         [](const testing::TestParamInfo<Archive>& parameter) {
                           std::string name = parameter.param.file;
                           std::replace_if(
                               name.begin(), name.end(),
                               [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
                           return name + "_" + std::to_string(parameter.index);
                         });

TEST(ReadZip_CorpusFolder, HoldsArchives) {
  if (corpus().empty()) {
    GTEST_SKIP() << "VX_ZIP_CORPUS names no folder with a manifest.tsv";
  }

  EXPECT_FALSE(archives().empty());
}

}  // namespace
}  // namespace vx::test
