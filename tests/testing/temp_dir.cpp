// SPDX-License-Identifier: MIT

#include "tests/testing/temp_dir.h"

#include "tests/testing/unobserved.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include <stdlib.h>
#include <unistd.h>

namespace vx::test {
namespace fs = std::filesystem;
namespace {

std::string createDirectory(const fs::path& parent) {
  const Unobserved unobserved;
  std::string name = (parent / "vx_test_XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp " + name);
  }
  fs::permissions(name, fs::perms(0755));
  return fs::canonical(name).string();
}

/// Moves the content of each directory in `root` up into `root` and removes the rest, until `root`
/// is empty. Needs neither rights on the entries nor a descriptor for every level.
void flattenAndRemove(const fs::path& root) {
  std::error_code ignored;
  int moved = 0;
  for (bool isProgressing = true; isProgressing;) {
    isProgressing = false;
    const std::vector<fs::path> entries(fs::directory_iterator(root, ignored), {});
    for (const fs::path& entry : entries) {
      if (fs::is_directory(fs::symlink_status(entry, ignored))) {
        fs::permissions(entry, fs::perms::owner_all, ignored);
        const std::vector<fs::path> children(fs::directory_iterator(entry, ignored), {});
        for (const fs::path& child : children) {
          fs::permissions(child, fs::perms::owner_all,
                          fs::perm_options::add | fs::perm_options::nofollow, ignored);
          fs::rename(child, root / ("moved-" + std::to_string(++moved)), ignored);
        }
      }
      isProgressing = fs::remove(entry, ignored) || isProgressing;
    }
  }
  fs::remove(root, ignored);
}

void removeTree(const fs::path& root) {
  const Unobserved unobserved;
  std::error_code failed;
  fs::remove_all(root, failed);
  if (failed) {
    flattenAndRemove(root);
  }
}

void createParents(const std::string& path) {
  fs::create_directories(fs::path(path).parent_path());
}

}  // namespace

TempDir::TempDir() : TempDir(fs::temp_directory_path()) {}

TempDir::TempDir(const fs::path& parent) : path_(createDirectory(parent)) {}

TempDir TempDir::inMemory() {
  const fs::path memory = "/dev/shm";
  return TempDir(::access(memory.c_str(), W_OK) == 0 ? memory : fs::temp_directory_path());
}

TempDir::~TempDir() {
  removeTree(path_);
}

std::string TempDir::path(std::string_view relative) const {
  return path_ + '/' + std::string(relative);
}

std::string TempDir::mkdir(std::string_view relative) const {
  const Unobserved unobserved;
  std::string full = path(relative);
  fs::create_directories(full);
  return full;
}

std::string TempDir::write(std::string_view relative, std::string_view content) const {
  const Unobserved unobserved;
  std::string full = path(relative);
  createParents(full);
  writeFile(full, content);
  return full;
}

std::string TempDir::link(std::string_view relative, std::string_view target) const {
  const Unobserved unobserved;
  std::string full = path(relative);
  createParents(full);
  fs::create_symlink(target, full);
  return full;
}

void TempDir::removeDir(std::string_view relative) const {
  removeTree(path(relative));
}

std::string TempDir::read(std::string_view relative) const {
  return readFile(path(relative));
}

bool TempDir::exists(std::string_view relative) const {
  const Unobserved unobserved;
  return fs::exists(fs::symlink_status(path(relative)));
}

std::vector<std::string> TempDir::entries() const {
  const Unobserved unobserved;
  std::vector<std::string> names;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(path_)) {
    std::string name = entry.path().string().substr(path_.size() + 1);
    if (fs::is_directory(entry.symlink_status())) {
      name += '/';
    }
    names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end());
  return names;
}

void writeFile(const fs::path& file, std::string_view content) {
  const Unobserved unobserved;
  std::ofstream stream(file, std::ios::binary | std::ios::trunc);
  stream.write(content.data(), static_cast<std::streamsize>(content.size()));
  stream.close();
  if (!stream) {
    throw std::runtime_error("cannot write " + file.string());
  }
}

std::string readFile(const fs::path& file) {
  const Unobserved unobserved;
  std::ifstream stream(file, std::ios::binary);
  if (!stream) {
    throw std::runtime_error("cannot read " + file.string());
  }
  return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

}  // namespace vx::test
