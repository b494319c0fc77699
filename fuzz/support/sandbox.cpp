// SPDX-License-Identifier: MIT

#include "fuzz/support/sandbox.h"

#include "fuzz/support/law.h"

#include <filesystem>

namespace vx::fuzz {

namespace fs = std::filesystem;

Sandbox::Sandbox() : work_(root_.mkdir("x/x/x/x/x/x")) {}

void Sandbox::empty() const {
  for (const fs::directory_entry& entry : fs::directory_iterator(work_)) {
    fs::remove_all(entry.path());
  }
}

void Sandbox::expectNothingOutside() const {
  for (fs::path level = work_; level != root_.path(); level = level.parent_path()) {
    for (const fs::directory_entry& entry : fs::directory_iterator(level.parent_path())) {
      expect("nothing is written outside the output directory", entry.path() == level,
             entry.path().string());
    }
  }
}

}  // namespace vx::fuzz
