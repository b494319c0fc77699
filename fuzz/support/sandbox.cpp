// SPDX-License-Identifier: MIT

#include "fuzz/support/sandbox.h"

#include "fuzz/support/law.h"

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <ios>
#include <iterator>
#include <system_error>

#include <unistd.h>

namespace vx::fuzz {
namespace {

namespace fs = std::filesystem;

constexpr const char* kLevel = "x";
constexpr std::size_t kLevels = 6;

fs::path parentDirectory() {
  const fs::path memory = "/dev/shm";
  return ::access(memory.c_str(), W_OK) == 0 ? memory : fs::canonical(fs::temp_directory_path());
}

fs::path freshDirectory() {
  std::string name = parentDirectory() / "vx-fuzz.XXXXXX";
  if (::mkdtemp(name.data()) == nullptr) {
    throw std::system_error(errno, std::generic_category(), name);
  }
  return name;
}

}  // namespace

Sandbox::Sandbox() : root_(freshDirectory()) {
  fs::path deepest = root_;
  for (std::size_t i = 0; i < kLevels; ++i) {
    deepest /= kLevel;
  }
  fs::create_directories(deepest);
  work_ = deepest.string();
}

Sandbox::~Sandbox() {
  std::error_code ignored;
  fs::remove_all(root_, ignored);
}

void Sandbox::empty() const {
  for (const fs::directory_entry& entry : fs::directory_iterator(work_)) {
    fs::remove_all(entry.path());
  }
}

void Sandbox::expectNothingOutside() const {
  fs::path level = root_;
  for (std::size_t i = 0; i < kLevels; ++i) {
    for (const fs::directory_entry& entry : fs::directory_iterator(level)) {
      expect("nothing lands outside the output directory", entry.path().filename() == kLevel,
             entry.path().string());
    }
    level /= kLevel;
  }
}

void writeFile(const fs::path& file, std::string_view content) {
  std::ofstream stream;
  stream.exceptions(std::ios::failbit | std::ios::badbit);
  stream.open(file, std::ios::binary | std::ios::trunc);
  stream.write(content.data(), static_cast<std::streamsize>(content.size()));
  stream.close();
}

std::string readFile(const fs::path& file) {
  std::ifstream stream;
  stream.exceptions(std::ios::failbit | std::ios::badbit);
  stream.open(file, std::ios::binary);
  stream.exceptions(std::ios::badbit);
  return {std::istreambuf_iterator<char>(stream), {}};
}

}  // namespace vx::fuzz
