// SPDX-License-Identifier: MIT
//
// The program ksz, run as a user runs it.

#pragma once

#include "tests/testing/temp_dir.h"

#include <string>
#include <vector>

#include <sys/types.h>

namespace vx::test {

/// The exit status of a run, or 1000 plus the signal that ended it, and what was written.
struct Outcome {
  int status = 0;
  std::string out;
  std::string err;
};

/// Runs the program in the directory of `tmp`, its output not a terminal and its input empty.
Outcome run(const TempDir& tmp, const std::vector<std::string>& arguments);

/// Runs the program with all its output on a terminal of its own, `columns` wide.
Outcome runOnTerminal(const TempDir& tmp, const std::vector<std::string>& arguments,
                      unsigned short columns = 80);

/// Starts the program with its standard streams on `output`. With -1 its standard error is closed,
/// and the others are on /dev/null.
pid_t start(const TempDir& tmp, const std::vector<std::string>& arguments, int output);

/// Waits for the end of a child. @return as the status of an `Outcome`.
int statusOf(pid_t child);

}  // namespace vx::test
