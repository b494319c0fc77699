// Other programs that read and write archives.

#pragma once

#include <string>
#include <vector>

namespace vx::test {

struct ProgramEnd {
  int exitCode = 0;      ///< 128 and the signal when it was killed, 127 when it could not be run
  std::string output{};  ///< what it wrote to standard output and standard error
};

/// Runs `command`, its first word looked up in PATH, in `directory`, and waits for its end. It sees
/// text as UTF-8 and reads nothing.
[[nodiscard]] ProgramEnd runProgram(const std::string& directory,
                                    const std::vector<std::string>& command);

/// Whether `command` can be run and ends with 0.
[[nodiscard]] bool canRun(const std::vector<std::string>& command);

}  // namespace vx::test
