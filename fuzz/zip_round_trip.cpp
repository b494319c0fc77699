// SPDX-License-Identifier: MIT
//
// Runs writeZip and readZip on files generated from the input. Checks the extracted files, their
// paths, the progress reports and the log lines.

#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "fuzz/support/input.h"
#include "fuzz/support/law.h"
#include "fuzz/support/sandbox.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace vx::fuzz {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostFiles = 6;
constexpr std::size_t kLongestName = 255;
constexpr std::size_t kLongestContent = 65536;

constexpr std::array<std::string_view, 21> kNames{
    "scene.ksx", "b.ksx",   "Scene.KSX", ".ksx",     "look.ksa", "b.ksa", "LOOK.KSA",
    ".ksa",      "a.ksx.a", "ksx",       "wood.png", "res",      "...",   " ",
    "a\nb",      "C:",      "a\\b",      "-",        "%s%n",     "deep",  "\xff\xfe\xc3"};
constexpr std::array<std::string_view, 3> kDirectories{"one", "two", "one/deep"};
constexpr std::array<std::string_view, 8> kArchives{"pack.ksz", "pack",  "pack.ksx", "Pack.KSX",
                                                    ".ksx",     "b.ksa", "res",      "a.b.zip"};
constexpr std::array<std::string_view, 4> kOutputs{"", "out", "out/far/below", "packs/./out//"};

const Sandbox& sandbox() {
  static const Sandbox directory;
  return directory;
}

/// Returns the absolute normal form of `path`, which identifies the file.
std::string keyOf(const std::string& path) {
  std::string key = (fs::path(sandbox().path()) / path).lexically_normal().string();
  if (key.ends_with('/')) {
    key.pop_back();
  }
  return key;
}

using Files = std::map<std::string, std::string>;  // contents by key

std::string anyName(Input& input) {
  if (input.flag()) {
    return std::string(input.oneOf(kNames));
  }
  std::string name(input.bytes(64));
  std::replace(name.begin(), name.end(), '/', '_');
  std::replace(name.begin(), name.end(), '\0', '_');
  if (name.empty() || name == "." || name == "..") {
    name += '_';
  }
  if (input.below(16) == 1) {
    name.insert(0, kLongestName - name.size(), 'n');
  }
  return name;
}

/// Returns repeated or random bytes, so that some contents compress well.
std::string anyContent(Input& input) {
  const std::size_t size = input.flag() ? input.below(kLongestContent) : input.below(64);
  const std::string_view pattern = input.bytes(32);
  std::string content;
  content.reserve(size);
  std::uint64_t noise = 1;
  while (content.size() < size) {
    noise = noise * 6364136223846793005U + 1442695040888963407U;
    content += pattern.empty() ? static_cast<char>(noise >> 56U)
                               : pattern[content.size() % pattern.size()];
  }
  return content;
}

std::string anySpelling(Input& input, const std::string& directory, const std::string& name) {
  const std::string last = directory.substr(directory.rfind('/') + 1);
  switch (input.below(5)) {
    case 1:
      return "./" + directory + "//" + name;
    case 2:
      return directory + "/../" + last + "/./" + name;
    case 3:
      return sandbox().path() + "/" + directory + "/" + name;
    case 4:
      return directory + "/" + name + "/";
    default:
      return directory + "/" + name;
  }
}

/// Returns a path. Creates a file there, except for some paths, which remain missing.
std::string makeSource(Input& input, Files& files) {
  const std::string directory(input.oneOf(kDirectories));
  const std::string name = anyName(input);
  const std::string path = anySpelling(input, directory, name);
  const bool isMissing = input.below(8) == 1;
  const std::string key = keyOf(path);
  if (!isMissing && !fs::is_directory(key)) {
    files[key] = anyContent(input);
    test::writeFile(key, files[key]);
  }
  return path;
}

struct Entry {
  std::string name;
  std::string content;
};

/// The expected result of `writeZip`.
struct Writing {
  std::vector<Entry> entries;
  std::vector<std::string> reports;
  std::vector<std::string> lines;
};

std::string report(const std::string& name, double progress) {
  return name + " " + std::to_string(progress);
}

Writing expectedWriting(const std::vector<std::string>& sources, const Files& files) {
  Writing expected;
  for (std::size_t i = 0; i < sources.size(); ++i) {
    const std::string key = keyOf(sources[i]);
    const auto found = files.find(key);
    if (found == files.end()) {
      std::string normal = fs::path(sources[i]).lexically_normal().string();
      if (normal.ends_with('/')) {
        normal.pop_back();
      }
      expected.lines.push_back("error: Cannot add non-existent file to archive: " + normal);
      continue;
    }
    const std::string file = fs::path(key).filename().string();
    const bool isAtRoot = file.ends_with(".ksa") || file.ends_with(".ksx");
    const std::string name = isAtRoot ? file : "res/" + file;
    expected.entries.push_back({name, found->second});
    expected.reports.push_back(
        report(name, static_cast<double>(i) / static_cast<double>(sources.size())));
  }
  return expected;
}

void write(const std::string& archive, const std::vector<std::string>& sources,
           const Writing& expected) {
  StringVector given;
  for (const std::string& source : sources) {
    given.push_back(String(std::string_view(source)));
  }
  std::vector<std::string> reports;
  const test::LogCapture log;
  const bool isWritten =
      vx::fs::writeZip(archive.c_str(), given, [&reports](const vx::fs::ZipProgress& progress) {
        reports.push_back(report(std::string(progress.file.view()), progress.progress));
      });
  expect("the archive is written", isWritten, archive);
  expect("each added file is reported", reports == expected.reports, archive);
  expect("each missing file is logged", log.all() == expected.lines, archive);
}

/// The expected result of `readZip`.
struct Reading {
  std::vector<std::string> listed;
  std::vector<std::string> lines;
  Files files;
};

bool isScene(std::string path) {
  const std::size_t length = std::min<std::size_t>(path.size(), 4);
  std::string end = path.substr(path.size() - length);
  std::replace(end.begin(), end.end(), 'K', 'k');
  std::replace(end.begin(), end.end(), 'S', 's');
  std::replace(end.begin(), end.end(), 'X', 'x');
  return end == ".ksx";
}

Reading expectedReading(const std::string& archive, std::string outDir,
                        const std::vector<Entry>& entries) {
  const fs::path archiveKey = keyOf(archive);
  outDir = outDir.empty() ? "packs" : outDir;
  outDir.erase(outDir.find_last_not_of('/') + 1);
  Reading expected;
  for (const Entry& entry : entries) {
    std::string place = outDir + "/" + entry.name;
    if (isScene(place)) {
      place = fs::path(archiveKey).replace_extension(".ksx").string();
    }
    const std::string key = keyOf(place);
    if (key == archiveKey) {
      expected.lines.push_back("error: Failed to extract file " + place + " from archive.");
    } else if (fs::path(key).parent_path() == archiveKey) {
      expected.lines.push_back("error: Failed to create archive subdir: " + place);
    } else {
      expected.listed.push_back(place);
      expected.files[key] = entry.content;
    }
  }
  return expected;
}

void read(const std::string& archive, const std::string& outDir, const Reading& expected) {
  const test::LogCapture log;
  const StringVector found = vx::fs::readZip(archive.c_str(), outDir.c_str(), {});
  std::vector<std::string> listed;
  for (const String& file : found) {
    listed.emplace_back(file.view());
  }
  expect("each extracted file is listed", listed == expected.listed, archive);
  expect("each other file is logged", log.all() == expected.lines, archive);
}

Files filesOnDisk() {
  Files found;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(sandbox().path())) {
    if (!entry.is_directory()) {
      found[entry.path().string()] = test::readFile(entry.path());
    }
  }
  return found;
}

void roundTrip(Input& input) {
  Files files;
  std::vector<std::string> sources;
  const std::string archive = "packs/" + std::string(input.oneOf(kArchives));
  const std::string outDir(input.oneOf(kOutputs));
  while (!input.isSpent() && sources.size() < kMostFiles) {
    sources.push_back(makeSource(input, files));
  }
  if (!sources.empty() && input.flag()) {
    sources.push_back(sources.front());
  }

  const Writing writing = expectedWriting(sources, files);
  write(archive, sources, writing);
  files[keyOf(archive)] = test::readFile(archive);

  const Reading reading = expectedReading(archive, outDir, writing.entries);
  read(archive, outDir, reading);
  for (const auto& [key, content] : reading.files) {
    files[key] = content;
  }
  expect("the disk has only the input files, the archive and the extracted files",
         filesOnDisk() == files, archive);
  sandbox().expectNothingOutside();
}

}  // namespace
}  // namespace vx::fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  std::filesystem::current_path(vx::fuzz::sandbox().path());
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace vx::fuzz;
  for (const std::string_view directory : kDirectories) {
    std::filesystem::create_directories(directory);
  }
  std::filesystem::create_directories("packs");
  Input input(data, size);
  roundTrip(input);
  sandbox().empty();
  return 0;
}
