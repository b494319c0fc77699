#include "tests/testing/zip_corpus.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <stdexcept>
#include <string_view>

#include <nlohmann/json.hpp>
#include <openssl/evp.h>

namespace vx::test {
namespace {

using Json = nlohmann::json;

std::ifstream opened(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + path);
  }
  return file;
}

std::vector<std::string> columns(const std::string& line) {
  std::vector<std::string> texts(1);
  for (const char c : line) {
    if (c == '\t') {
      texts.emplace_back();
    } else {
      texts.back() += c;
    }
  }
  return texts;
}

/// The lines of the manifest, each with its columns by name.
std::vector<std::map<std::string, std::string>> manifest(const std::string& folder) {
  std::ifstream file = opened(folder + "/manifest.tsv");
  std::string line;
  std::getline(file, line);
  const std::vector<std::string> names = columns(line);
  std::vector<std::map<std::string, std::string>> lines;
  while (std::getline(file, line)) {
    const std::vector<std::string> texts = columns(line);
    auto& byName = lines.emplace_back();
    for (std::size_t i = 0; i < names.size(); ++i) {
      byName[names[i]] = texts.at(i);
    }
  }
  return lines;
}

std::string bytesOfHex(const std::string& digits) {
  std::string bytes;
  for (std::size_t i = 0; i + 1 < digits.size(); i += 2) {
    bytes += static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

/// The library asks whether an entry is supported before it asks whether it is a directory. What is
/// known was asked the other way round.
bool isUnsupportedDirectory(const Json& entry) {
  const std::string status = entry.value("status", "");
  return status == "encrypted" || status == "unsupported-method" || status == "patch-data";
}

EntryResult resultOf(const Json& entry, const Json& answer) {
  // Where there is only a summary, every file was extracted.
  const char* const otherwise = entry.value("kind", "") == "dir" ? "directory" : "extracted";
  const std::string text = answer.value("result", otherwise);
  if (text == "directory") {
    return isUnsupportedDirectory(entry) ? EntryResult::Unsupported : EntryResult::Directory;
  }
  if (text == "unsupported") {
    return EntryResult::Unsupported;
  }
  return text == "extracted" ? EntryResult::Extracted : EntryResult::Fails;
}

CorpusEntry entryOf(const Json& entry, const Json& answer) {
  CorpusEntry result{
      .name = entry.contains("name_hex") ? bytesOfHex(entry["name_hex"]) : entry.value("name", ""),
      .result = resultOf(entry, answer)};
  result.sha256 = answer.value("sha256", entry.value("sha256", ""));
  if (answer.contains("leaves_bytes")) {
    result.partialSize = answer["leaves_bytes"].get<std::uint64_t>();
  }
  return result;
}

}  // namespace

Corpus findCorpus() {
  const char* const folder = std::getenv("VX_ZIP_CORPUS");
  if (folder == nullptr || *folder == '\0') {
    return {"", "VX_ZIP_CORPUS names no folder of archives"};
  }
  if (!std::filesystem::is_regular_file(std::string(folder) + "/manifest.tsv")) {
    return {"", "there is no manifest.tsv in the folder of VX_ZIP_CORPUS, " + std::string(folder)};
  }
  return {folder, ""};
}

std::vector<CorpusArchive> corpusArchives() {
  const Corpus corpus = findCorpus();
  std::vector<CorpusArchive> archives;
  if (!corpus.whyNot.empty()) {
    return archives;
  }
  for (const auto& line : manifest(corpus.folder)) {
    archives.push_back({.file = line.at("file"),
                        .sha256 = line.at("sha256"),
                        .isOpened = line.at("miniz").starts_with("opens"),
                        .isDisputed = line.at("expectation") == "disputed"});
  }
  return archives;
}

std::vector<CorpusEntry> corpusEntries(const CorpusArchive& archive) {
  std::ifstream file = opened(findCorpus().folder + "/" + archive.file + ".json");
  const Json json = Json::parse(file);
  const Json none = Json::object();
  const Json& entries = json["entries"];
  const Json& answers = json["miniz"].contains("entries") ? json["miniz"]["entries"] : none;
  std::vector<CorpusEntry> results;
  for (std::size_t i = 0; i < std::max(entries.size(), answers.size()); ++i) {
    results.push_back(
        entryOf(i < entries.size() ? entries[i] : none, i < answers.size() ? answers[i] : none));
  }
  return results;
}

std::string sha256Of(const std::string& path) {
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

}  // namespace vx::test
