// SPDX-License-Identifier: MIT
//
// The program whose location is asked for: does the given steps, then says where it is.
//
//   vx_running_executable [remove PATH | rename FROM TO | copy FROM TO | chdir PATH]...
//
// Writes the four locations, then the current error that `exePath` has left, then what was logged,
// each ended by a NUL.

#include "core/vx_error.h"
#include "core/vx_log.h"
#include "core/vx_string.h"
#include "fs/vx_fs.h"

#include <cstdio>
#include <filesystem>
#include <string>
#include <string_view>

namespace {

void write(std::string_view field) {
  std::fwrite(field.data(), 1, field.size(), stdout);
  std::fputc('\0', stdout);
}

/// Does the steps, which end with a null pointer.
void act(char* const* words) {
  for (; *words != nullptr; words += 2) {
    const std::string_view step = words[0];
    if (step == "remove") {
      std::filesystem::remove(words[1]);
    } else if (step == "chdir") {
      std::filesystem::current_path(words[1]);
    } else if (step == "rename") {
      std::filesystem::rename(words[1], words[2]);
      ++words;
    } else if (step == "copy") {
      std::filesystem::copy_file(words[1], words[2]);
      ++words;
    }
  }
}

std::string currentError() {
  return std::to_string(vx::os::currentErrorCode()) + " " +
         std::string(vx::os::currentErrorContext()) + ": " +
         std::string(vx::os::currentErrorMessage());
}

}  // namespace

int main(int, char** words) {
  act(words + 1);

  std::string logged;
  vx::setLogSink([&logged](vx::LogLevel, vx::String line) { logged += line.view(); });
  vx::os::setCurrentError(1, "before", "the error before");
  write(vx::fs::exePath().view());
  const std::string error = currentError();
  write(vx::fs::exeDir().view());
  write(vx::fs::appDir().view());
  write(vx::fs::resDir().view());
  vx::setLogSink({});
  write(error);
  write(logged);
  return 0;
}
