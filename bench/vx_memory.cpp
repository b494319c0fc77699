// SPDX-License-Identifier: MIT
//
// Measures memory: `vx_memory FILES SIZE` lists a directory of FILES files of SIZE bytes, writes an
// archive of them and reads it, each in a child process. Prints the growth of each child's peak
// memory in bytes.

#include "bench/vx_workload.h"
#include "fs/vx_fs.h"
#include "tests/testing/memory_use.h"

#include <cstdio>
#include <cstdlib>
#include <functional>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Runs `act` in a child process, whose peak memory is that of `act` alone.
bool inChild(const char* name, const std::function<bool()>& act) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) {
    const long before = vx::test::peakKibibytes();
    const bool good = act();
    std::printf("%s\t%ld\n", name, (vx::test::peakKibibytes() - before) * 1024);
    std::fflush(stdout);
    ::_exit(good ? EXIT_SUCCESS : EXIT_FAILURE);
  }
  int status = -1;
  return ::waitpid(child, &status, 0) == child && status == 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: vx_memory FILES SIZE\n");
    return EXIT_FAILURE;
  }
  const auto files = static_cast<std::size_t>(std::strtoull(argv[1], nullptr, 10));
  const auto size = static_cast<std::size_t>(std::strtoull(argv[2], nullptr, 10));
  const vx::bench::Workload work(vx::bench::fillWithText, files, size);
  // Otherwise the children could reuse memory that the preparation has freed.
  ::malloc_trim(0);

  const bool listed = inChild(
      "listFiles", [&] { return vx::fs::listFiles(work.in().c_str(), {"bin"}).size() == files; });
  const bool written = inChild(
      "writeZip", [&] { return vx::fs::writeZip(work.archive().c_str(), work.list(), {}); });
  const bool read = inChild("readZip", [&] {
    return vx::fs::readZip(work.archive().c_str(), work.out().c_str(), {}).size() == files;
  });
  return listed && written && read ? EXIT_SUCCESS : EXIT_FAILURE;
}
