// The program ksz, run as a user runs it.

#pragma once

#include "tests/testing/temp_dir.h"

#include <string>
#include <vector>

#include <sys/types.h>

namespace vx::test {

/// What a run leaves behind: the exit status, or 1000 and the signal that ended it, and the texts.
struct Outcome {
  int status = 0;
  std::string out;
  std::string err;
};

/// Runs the program in the directory of `tmp`, its output not a terminal and its input empty.
Outcome run(const TempDir& tmp, const std::vector<std::string>& arguments);

/// Runs the program with all its output on a terminal of its own.
Outcome runOnTerminal(const TempDir& tmp, const std::vector<std::string>& arguments);

/// Becomes the program, in `directory`.
[[noreturn]] void become(const std::string& directory, std::vector<std::string> arguments);

/// The status of a child that has ended, or does so now.
int statusOf(pid_t child);

}  // namespace vx::test
