#include "tests/testing/temp_dir.h"

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include <stdlib.h>

namespace vx::test {
namespace fs = std::filesystem;
namespace {

std::string createDirectory() {
  std::string name = (fs::temp_directory_path() / "vx_test_XXXXXX").string();
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), "mkdtemp " + name);
  }
  fs::permissions(name, fs::perms(0755));
  return fs::canonical(name).string();
}

void makeRemovable(const fs::path& directory) {
  std::error_code ignored;
  fs::permissions(directory, fs::perms::owner_all, fs::perm_options::add, ignored);
  for (const fs::directory_entry& entry : fs::directory_iterator(directory, ignored)) {
    if (fs::is_directory(entry.symlink_status(ignored))) {
      makeRemovable(entry.path());
    }
  }
}

void createLevelsAbove(const std::string& path) {
  fs::create_directories(fs::path(path).parent_path());
}

}  // namespace

TempDir::TempDir() : path_(createDirectory()) {}

TempDir::~TempDir() {
  std::error_code failed;
  fs::remove_all(path_, failed);
  if (failed) {
    makeRemovable(path_);
    fs::remove_all(path_, failed);
  }
}

std::string TempDir::path(std::string_view relative) const {
  return path_ + '/' + std::string(relative);
}

std::string TempDir::mkdir(std::string_view relative) const {
  std::string full = path(relative);
  fs::create_directories(full);
  return full;
}

std::string TempDir::write(std::string_view relative, std::string_view content) const {
  std::string full = path(relative);
  createLevelsAbove(full);
  std::ofstream file(full, std::ios::binary | std::ios::trunc);
  file.write(content.data(), static_cast<std::streamsize>(content.size()));
  file.close();
  if (!file) {
    throw std::runtime_error("cannot write " + full);
  }
  return full;
}

std::string TempDir::link(std::string_view relative, std::string_view target) const {
  std::string full = path(relative);
  createLevelsAbove(full);
  fs::create_symlink(target, full);
  return full;
}

std::string TempDir::read(std::string_view relative) const {
  const std::string full = path(relative);
  std::ifstream file(full, std::ios::binary);
  if (!file) {
    throw std::runtime_error("cannot read " + full);
  }
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool TempDir::exists(std::string_view relative) const {
  return fs::exists(fs::symlink_status(path(relative)));
}

std::vector<std::string> TempDir::entries() const {
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

}  // namespace vx::test
