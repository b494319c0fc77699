// SPDX-License-Identifier: MIT
//
// How much memory an archive takes: vx_memory FILES SIZE writes and reads one of so many files of
// so many bytes, each in a child, and prints by how many bytes the child's peak has grown
// meanwhile.

#include "bench/vx_workload.h"
#include "fs/vx_fs.h"
#include "tests/testing/peak_memory.h"

#include <cstdio>
#include <cstdlib>
#include <functional>

#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// Runs `act` in a child, where the peak is that of this work alone.
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
  // What the preparation has freed would otherwise be there for the work to take.
  ::malloc_trim(0);

  const bool written = inChild(
      "writeZip", [&] { return vx::fs::writeZip(work.archive().c_str(), work.list(), {}); });
  const bool read = inChild("readZip", [&] {
    return vx::fs::readZip(work.archive().c_str(), work.out().c_str(), {}).size() == files;
  });
  return written && read ? EXIT_SUCCESS : EXIT_FAILURE;
}
