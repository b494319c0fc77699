// SPDX-License-Identifier: MIT
//
// Runs readZip on arbitrary bytes and compares the result with the entries that miniz finds. Each
// entry must be listed, logged, or a directory. Each listed file must contain the entry's bytes. No
// other file may be written.

#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "fuzz/support/law.h"
#include "fuzz/support/sandbox.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"

#include <miniz.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/resource.h>

namespace vx::fuzz {
namespace {

namespace fs = std::filesystem;

// An input that would extract to more is skipped, because it could fill the RAM disk.
constexpr std::uint64_t kMostBytes = std::uint64_t{8} << 20U;
constexpr std::uint64_t kMostEntries = 4096;
constexpr rlim_t kLargestFile = rlim_t{64} << 20U;

const Sandbox& sandbox() {
  static const Sandbox directory;
  return directory;
}

std::string archivePath() {
  return sandbox().path() + "/in/archive.zip";
}

/// An archive opened directly with miniz.
class Archive {
 public:
  explicit Archive(const std::string& path)
      : isOpen_(mz_zip_reader_init_file(&zip_, path.c_str(), 0) != MZ_FALSE) {}
  Archive(const Archive&) = delete;
  Archive& operator=(const Archive&) = delete;
  ~Archive() {
    if (isOpen_) {
      mz_zip_reader_end(&zip_);
    }
  }

  [[nodiscard]] bool isOpen() const noexcept { return isOpen_; }

  [[nodiscard]] mz_uint size() noexcept { return mz_zip_reader_get_num_files(&zip_); }

  /// Returns an upper bound of the extracted size, even if the header is wrong.
  [[nodiscard]] std::uint64_t unpackedSize(mz_uint index) {
    constexpr std::uint64_t kBestRatio = 1040;
    mz_zip_archive_file_stat stat;
    if (mz_zip_reader_file_stat(&zip_, index, &stat) == MZ_FALSE) {
      return 0;
    }
    const std::uint64_t packed = std::min<std::uint64_t>(stat.m_comp_size, kMostBytes);
    return std::min<std::uint64_t>(stat.m_uncomp_size, packed * kBestRatio);
  }

  [[nodiscard]] std::string name(mz_uint index) {
    std::string bytes(mz_zip_reader_get_filename(&zip_, index, nullptr, 0), '\0');
    mz_zip_reader_get_filename(&zip_, index, bytes.data(), static_cast<mz_uint>(bytes.size()));
    return bytes.substr(0, bytes.find('\0'));
  }

  [[nodiscard]] bool isSupported(mz_uint index) {
    return mz_zip_reader_is_file_supported(&zip_, index) != MZ_FALSE;
  }

  [[nodiscard]] bool isDirectory(mz_uint index) {
    return mz_zip_reader_is_file_a_directory(&zip_, index) != MZ_FALSE;
  }

  [[nodiscard]] std::optional<std::string> content(mz_uint index) {
    std::string bytes;
    if (mz_zip_reader_extract_to_callback(&zip_, index, append, &bytes, 0) == MZ_FALSE) {
      return std::nullopt;
    }
    return bytes;
  }

 private:
  static std::size_t append(void* bytes, mz_uint64 /*offset*/, const void* more, std::size_t size) {
    static_cast<std::string*>(bytes)->append(static_cast<const char*>(more), size);
    return size;
  }

  mz_zip_archive zip_{};
  bool isOpen_;
};

struct Entry {
  std::string name;
  std::string place;  // the target path in the library's form
  std::string key;    // the normal form of the target path
  bool isRefused = false;
  bool isDirectory = false;
  std::optional<std::string> content;
};

std::string lowered(std::string text) {
  for (char& c : text) {
    c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  }
  return text;
}

bool leadsOut(const std::string& name) {
  const std::string relative = name.substr(std::min(name.find_first_not_of('/'), name.size()));
  const fs::path normal = fs::path(relative).lexically_normal();
  return !normal.empty() && *normal.begin() == "..";
}

std::string keyOf(const std::string& path) {
  std::string key = fs::path(path).lexically_normal().string();
  if (key.size() > 1 && key.ends_with('/')) {
    key.pop_back();
  }
  return key;
}

/// Joins `outDir` and the name of an entry with a single separator.
std::string placeIn(const std::string& outDir, const std::string& name) {
  if (name.empty()) {
    return outDir;
  }
  return outDir + "/" + name.substr(std::min(name.find_first_not_of('/'), name.size()));
}

Entry entryOf(Archive& archive, mz_uint index, const std::string& outDir) {
  Entry entry;
  entry.name = archive.name(index);
  entry.place = placeIn(outDir, entry.name);
  const bool isScene = lowered(entry.place).ends_with(".ksx");
  if (isScene) {
    entry.place = fs::path(archivePath()).replace_extension(".ksx").string();
  }
  entry.key = keyOf(entry.place);
  entry.isRefused = !archive.isSupported(index) || (!isScene && leadsOut(entry.name));
  entry.isDirectory = archive.isDirectory(index);
  if (!entry.isRefused && !entry.isDirectory) {
    entry.content = archive.content(index);
  }
  return entry;
}

/// Returns the entries in order. An archive that cannot be opened has none. Returns nothing for an
/// archive that is too large.
std::optional<std::vector<Entry>> entriesOf(const std::string& outDir) {
  Archive archive(archivePath());
  std::vector<Entry> entries;
  if (!archive.isOpen()) {
    return entries;
  }
  if (archive.size() > kMostEntries) {
    return std::nullopt;
  }
  std::uint64_t bytes = 0;
  for (mz_uint i = 0; i < archive.size(); ++i) {
    bytes += archive.unpackedSize(i);
    if (bytes > kMostBytes) {
      return std::nullopt;
    }
  }
  for (mz_uint i = 0; i < archive.size(); ++i) {
    entries.push_back(entryOf(archive, i, outDir));
  }
  return entries;
}

/// Returns true if `whole` contains `parts` in the same order, possibly with others in between.
bool isSubsequence(const std::vector<std::string>& parts, const std::vector<std::string>& whole) {
  auto place = whole.begin();
  for (const std::string& part : parts) {
    place = std::find(place, whole.end(), part);
    if (place == whole.end()) {
      return false;
    }
    ++place;
  }
  return true;
}

/// Removes the lines that mkDir may log before the line about an entry.
std::vector<std::string> withoutMkDir(std::vector<std::string> lines) {
  std::erase_if(lines, [](const std::string& line) {
    return line.starts_with("error: Failed to create dir: ") ||
           line.starts_with("error: Cannot split path for mkDir: ");
  });
  return lines;
}

void checkReports(const std::vector<Entry>& entries, const std::vector<std::string>& listed,
                  const std::vector<std::string>& lines) {
  std::vector<std::string> mayBeListed;
  std::vector<std::string> mayBeLogged;
  std::size_t directories = 0;
  for (const Entry& entry : entries) {
    if (entry.isRefused) {
      mayBeLogged.push_back("warning: Unaupported file in archive: " + entry.name);
      continue;
    }
    mayBeLogged.push_back("error: Failed to create archive subdir: " + entry.place);
    if (entry.isDirectory) {
      ++directories;
      continue;
    }
    mayBeLogged.push_back("error: Failed to extract file " + entry.place + " from archive.");
    mayBeListed.push_back(entry.place);
  }
  expect("only entries are listed, in their order", isSubsequence(listed, mayBeListed));
  expect("only entries are logged, in their order", isSubsequence(lines, mayBeLogged));
  const std::size_t told = listed.size() + lines.size();
  expect("an entry is listed, logged, or a directory",
         told <= entries.size() && told + directories >= entries.size());
}

/// Checks that the last of the entries with the same path remains. Skips the check if one of them
/// failed.
void checkContents(const std::vector<Entry>& entries, const std::vector<std::string>& listed) {
  std::map<std::string, const Entry*> last;
  std::map<std::string, std::ptrdiff_t> times;
  for (const Entry& entry : entries) {
    if (!entry.isRefused && !entry.isDirectory) {
      last[entry.key] = &entry;
      ++times[entry.key];
    }
  }
  for (const auto& [key, entry] : last) {
    const auto isHere = [&sought = key](const std::string& place) {
      return keyOf(place) == sought;
    };
    if (std::count_if(listed.begin(), listed.end(), isHere) != times[key]) {
      continue;
    }
    expect("a listed entry can be extracted", entry->content.has_value(), entry->name);
    expect("a listed file contains the entry's bytes", test::readFile(key) == *entry->content,
           entry->name);
  }
}

void checkPlaces(const std::string& outDir, const std::string& bytes) {
  const fs::path in = fs::path(archivePath()).parent_path();
  expect("the archive is unchanged", test::readFile(archivePath()) == bytes);
  sandbox().expectNothingOutside();
  for (const fs::directory_entry& entry : fs::directory_iterator(sandbox().path())) {
    expect("nothing is written next to the archive's directory", entry.path() == in,
           entry.path().string());
  }
  if (outDir == in) {
    return;
  }
  for (const fs::directory_entry& entry : fs::directory_iterator(in)) {
    const std::string name = entry.path().filename().string();
    expect("only the scene is written next to the archive",
           name == "archive.zip" || name == "archive.ksx" || entry.path() == outDir, name);
  }
}

void extract(const std::string& bytes, bool isInPlace) {
  const fs::path in = fs::path(archivePath()).parent_path();
  fs::create_directory(in);
  test::writeFile(archivePath(), bytes);
  const std::string outDir = isInPlace ? in.string() : (in / "out").string();
  const std::optional<std::vector<Entry>> entries = entriesOf(outDir);
  if (!entries) {
    return;
  }

  const test::LogCapture log;
  const StringVector found =
      vx::fs::readZip(archivePath().c_str(), isInPlace ? "" : outDir.c_str(), {});

  std::vector<std::string> listed;
  for (const String& file : found) {
    listed.emplace_back(file.view());
    expect("a listed file exists", fs::is_regular_file(listed.back()), listed.back());
  }
  std::vector<std::string> lines = withoutMkDir(log.all());
  if (entries->empty() && !lines.empty()) {
    expect("an unreadable archive is logged",
           lines.size() == 1 && listed.empty() &&
               lines[0] == "error: Failed to initialize archive: " + archivePath());
    lines.clear();
  }
  checkReports(*entries, listed, lines);
  checkContents(*entries, listed);
  checkPlaces(outDir, bytes);
}

}  // namespace
}  // namespace vx::fuzz

extern "C" int LLVMFuzzerInitialize(int* /*argc*/, char*** /*argv*/) {
  const rlimit largest{vx::fuzz::kLargestFile, vx::fuzz::kLargestFile};
  ::setrlimit(RLIMIT_FSIZE, &largest);
  vx::fuzz::sandbox();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string bytes(reinterpret_cast<const char*>(data), size);
  vx::fuzz::extract(bytes, /*isInPlace=*/false);
  vx::fuzz::sandbox().empty();
  // An archive of odd length is also extracted next to itself. A trailing byte makes a length odd.
  if (size % 2 != 0) {
    vx::fuzz::extract(bytes, /*isInPlace=*/true);
    vx::fuzz::sandbox().empty();
  }
  return 0;
}
