// The executable whose location is asked: it does the given steps, then says where it is.
//
//   vx_running_executable [remove PATH | rename FROM TO | copy FROM TO | chdir PATH]...
//
// It writes the four locations, then code, context and message of the current error as `exePath`
// has left it, then what was logged, each ended by a NUL.

#include "core/vx_error.h"
#include "core/vx_log.h"
#include "core/vx_string.h"
#include "fs/vx_fs.h"

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <span>
#include <string>
#include <string_view>

namespace {

void write(std::string_view field) {
  std::fwrite(field.data(), 1, field.size(), stdout);
  std::fputc('\0', stdout);
}

/// Does the step at the front; the number of words that it takes, 0 when it is none.
std::size_t doStep(std::span<char* const> words) {
  const std::string_view step = words[0];
  if (step == "remove" && words.size() >= 2) {
    std::filesystem::remove(words[1]);
    return 2;
  }
  if (step == "chdir" && words.size() >= 2) {
    std::filesystem::current_path(words[1]);
    return 2;
  }
  if (step == "rename" && words.size() >= 3) {
    std::filesystem::rename(words[1], words[2]);
    return 3;
  }
  if (step == "copy" && words.size() >= 3) {
    std::filesystem::copy_file(words[1], words[2]);
    return 3;
  }
  return 0;
}

void report() {
  std::string logged;
  vx::setLogSink([&logged](vx::LogLevel, vx::String line) { logged += line.view(); });
  vx::os::setCurrentError(1, "before", "the error before");

  write(vx::fs::exePath().view());
  const std::string code = std::to_string(vx::os::currentErrorCode());
  const vx::String context = vx::os::currentErrorContext();
  const vx::String message = vx::os::currentErrorMessage();
  write(vx::fs::exeDir().view());
  write(vx::fs::appDir().view());
  write(vx::fs::resDir().view());
  write(code);
  write(context.view());
  write(message.view());
  vx::setLogSink({});
  write(logged);
}

}  // namespace

int main(int count, char** words) {
  std::span<char* const> rest(words, static_cast<std::size_t>(count));
  rest = rest.subspan(1);
  while (!rest.empty()) {
    const std::size_t taken = doStep(rest);
    if (taken == 0) {
      return 2;
    }
    rest = rest.subspan(taken);
  }
  report();
  return 0;
}
