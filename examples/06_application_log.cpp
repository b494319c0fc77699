// SPDX-License-Identifier: MIT
//
// Sets a log sink that counts errors, adds a prefix to each line and forwards it.

#include "core/vx_log.h"
#include "core/vx_string.h"
#include "fs/vx_fs.h"

int main() {
  int errors = 0;
  const vx::LogSink before = vx::setLogSink(
      [&errors, forward = vx::standardErrorSink()](vx::LogLevel level, vx::String line) {
        errors += level == vx::LogLevel::Error ? 1 : 0;
        forward(level, vx::String("[app] ") + line);
      });

  // Fails and logs one error.
  const vx::StringVector files = vx::fs::readZip("no/such/archive.zip", "");

  // The sink refers to a variable of this function, so it is removed before the function returns.
  vx::setLogSink(before);
  return files.empty() && errors == 1 ? 0 : 1;
}
