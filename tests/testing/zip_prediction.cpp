#include "tests/testing/zip_prediction.h"

#include "tests/testing/error_state.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <stdexcept>

namespace vx::test {
namespace {

constexpr std::size_t kLongestName = 255;

std::string withoutTrailingSeparator(std::string path) {
  while (path.size() > 1 && path.back() == '/') {
    path.pop_back();
  }
  return path;
}

std::string normal(const std::string& path) {
  return withoutTrailingSeparator(std::filesystem::path(path).lexically_normal().string());
}

std::string withoutLeadingSeparators(const std::string& name) {
  return name.substr(std::min(name.find_first_not_of('/'), name.size()));
}

bool isScene(const std::string& path) {
  std::string end = path.substr(path.size() - std::min<std::size_t>(path.size(), 4));
  std::transform(end.begin(), end.end(), end.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return end == ".ksx";
}

std::string directoryOf(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

std::string lastComponent(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

}  // namespace

Prediction::Prediction(std::string archive, std::string outDir)
    : scene_(std::filesystem::path(archive).replace_extension(".ksx").string()),
      outDir_(std::move(outDir)) {}

void Prediction::add(const CorpusEntry& entry) {
  const std::string name = printed(entry.name);
  const std::string destination = destinationOf(name);
  const bool isRefused = destination != scene_ && leadsOut(name);
  if (entry.result == EntryResult::Unsupported || isRefused) {
    log_.push_back("warning: Unaupported file in archive: " + name);
    return;
  }
  if (entry.result == EntryResult::Directory) {
    if (!makeDirectory(destination)) {
      error("Failed to create archive subdir: " + destination);
    }
    return;
  }
  if (!makeDirectory(directoryOf(destination))) {
    error("Failed to create archive subdir: " + destination);
    return;
  }
  extract(entry, destination);
}

bool Prediction::leadsOut(const std::string& name) {
  const std::string path = normal(withoutLeadingSeparators(name));
  return path == ".." || path.starts_with("../");
}

std::string Prediction::printed(const std::string& name) {
  return name.substr(0, name.find('\0'));
}

std::string Prediction::destinationOf(const std::string& name) const {
  const std::string relative = withoutLeadingSeparators(name);
  const std::string joined = name.empty() ? outDir_ : outDir_ + "/" + relative;
  return isScene(joined) ? scene_ : joined;
}

bool Prediction::isDirectory(const std::string& path) const {
  return path == outDir_ || outDir_.starts_with(path + "/") || path == directoryOf(scene_) ||
         directories_.contains(path);
}

bool Prediction::makeDirectory(const std::string& path) {
  const std::string wanted = normal(path);
  if (isDirectory(wanted)) {
    return true;
  }
  if (files_.contains(wanted)) {
    return false;
  }
  for (std::size_t end = wanted.find('/', 1);; end = wanted.find('/', end + 1)) {
    const std::string level = wanted.substr(0, end);
    if (files_.contains(level) || lastComponent(level).size() > kLongestName) {
      const int code = files_.contains(level) ? EEXIST : ENAMETOOLONG;
      error("Failed to create dir: " + level + " [err: " + errnoText(code) + "].");
      return false;
    }
    if (!isDirectory(level)) {
      directories_.insert(level);
    }
    if (end == std::string::npos) {
      return true;
    }
  }
}

void Prediction::extract(const CorpusEntry& entry, const std::string& destination) {
  if (destination.find("/../") != std::string::npos) {
    throw std::logic_error("a name that goes back depends on the disk: " + destination);
  }
  const std::string place = normal(destination);
  const bool canBeOpened = !isDirectory(place) && lastComponent(destination).size() <= kLongestName;
  if (canBeOpened && entry.result == EntryResult::Extracted) {
    files_[place] = {.sha256 = entry.sha256};
    listed_.push_back(destination);
    return;
  }
  if (canBeOpened) {
    files_[place] = {
        .sha256 = "", .partialSize = entry.partialSize, .mayBeMissing = !entry.partialSize};
  }
  error("Failed to extract file " + destination + " from archive.");
}

}  // namespace vx::test
