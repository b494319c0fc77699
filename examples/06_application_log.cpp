// The log of an application: the library's lines go to a sink of its own, with a stamp.

#include "core/vx_log.h"
#include "core/vx_string.h"
#include "fs/vx_fs.h"

#include <iostream>

int main() {
  int errors = 0;
  const vx::LogSink before = vx::setLogSink([&errors](vx::LogLevel level, vx::String line) {
    const bool isError = level == vx::LogLevel::Error;
    errors += isError ? 1 : 0;
    std::cout << "[app] " << (isError ? "E " : "W ") << line << '\n';
  });

  // Fails, and says so through the sink.
  const vx::StringVector files = vx::fs::readZip("no/such/archive.zip", "", nullptr);

  // The sink refers to this function's variables, so it has to go before they do.
  vx::setLogSink(before);
  return files.empty() && errors == 1 ? 0 : 1;
}
