#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tools/ksz/commands.h"
#include "tools/ksz/console.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <thread>

namespace ksz {
namespace {

/// From now on a signal that asks the process to end removes `archive` first, so that no half of
/// one stays. A thread of its own waits for it: it may call the library, which a signal handler may
/// not, and it need not wait for the file that is being packed.
void removeWhenStopped(vx::String archive, Progress progress) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    struct sigaction action = {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_IGN) {  // as under nohup
      sigaddset(&signals, signal);
    }
  }
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread([signals, archive, progress] {
    int signal = 0;
    if (sigwait(&signals, &signal) != 0) {
      return;
    }
    vx::fs::rmFile(archive);
    progress.erase();
    std::fprintf(stderr, "stopped: %s was not written\n", printable(archive).c_str());
    std::_Exit(kExitSignalBase + signal);
  }).detach();
}

/// `path` as seen from `directory`, when it lies below that.
std::string_view below(std::string_view directory, std::string_view path) {
  const bool lies = path.size() > directory.size() && path.starts_with(directory) &&
                    path[directory.size()] == '/';
  return lies ? path.substr(directory.size() + 1) : path;
}

}  // namespace

int pack(vx::String archive, vx::StringVector files) {
  const Progress progress;
  const Messages messages(progress);
  removeWhenStopped(archive, progress);

  progress.show(0.0, archive);
  const bool written = vx::fs::writeKsz(archive, files, [&progress](vx::fs::KszProgress report) {
    progress.show(report.progress, report.file);
  });
  if (written && messages.none()) {
    progress.complete(archive);
    return EXIT_SUCCESS;
  }

  progress.erase();
  vx::fs::rmFile(archive);  // one that lacks a file is as good as none
  return kExitFailure;
}

int unpack(vx::String archive) {
  const Progress progress;
  const Messages messages(progress);

  // As vx::fs::readKsz, which only answers whether there was anything.
  const vx::StringVector files = vx::fs::readZip(archive, "", {});
  if (files.empty()) {
    return messages.none() ? fail("no file in the archive", archive) : kExitFailure;
  }

  const vx::String directory = vx::Path(vx::Path(archive, true).canonical(), false).dir();
  std::printf("%s:\n", printable(directory).c_str());
  for (const vx::String& file : files) {
    const vx::String landed = vx::Path(file, true).canonical();
    const vx::String shown(below(directory.view(), landed.view()));
    std::printf("  %s\n", printable(shown).c_str());
  }
  return messages.none() ? EXIT_SUCCESS : kExitFailure;
}

}  // namespace ksz
