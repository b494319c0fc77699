// SPDX-License-Identifier: MIT
//
// A program of a user, however it gets the library.

#include "core/vx_env.h"
#include "core/vx_error.h"
#include "core/vx_format.h"
#include "core/vx_log.h"
#include "core/vx_path.h"
#include "core/vx_ref_counted.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <iostream>

int main() {
  vx::setLogSink([](vx::LogLevel, vx::String line) { std::cout << line << '\n'; });
  const vx::String dir = vx::Path::join(vx::fs::currentDir(), "consumer");
  const vx::String archive = vx::Path::join(dir, "empty.zip");
  const bool isGood = vx::fs::mkDir(dir) && vx::fs::writeZip(archive, {}, nullptr) &&
                      vx::fs::readZip(archive, "", nullptr).empty() && vx::fs::rmFile(archive) &&
                      !vx::fs::rmDir(vx::fs::exePath()) && vx::fs::rmDir(dir);
  return isGood ? 0 : 1;
}
