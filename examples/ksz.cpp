// ksz: packs the files of a scene into a ksz archive, and unpacks one beside itself.
//
//   ksz pack room.ksz room.ksx lamp.ksa res/*.png
//   ksz unpack room.ksz
//
// All work on files goes through vx::fs, whose own messages say what went wrong. The exit status is
// 0 when everything asked for was done, 1 when something was not, 2 for a wrong command line, and
// 128 plus the signal's number after a signal.

#include "core/vx_log.h"
#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <unistd.h>

namespace {

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitSignalBase = 128;

/// `text` fit to be shown: a name may hold line breaks and escape sequences.
std::string printable(vx::String text) {
  std::string shown(text.view());
  const auto isControl = [](unsigned char byte) { return byte < 0x20 || byte == 0x7f; };
  std::replace_if(shown.begin(), shown.end(), isControl, '?');
  return shown;
}

/// Shows how far the work is: a bar that is redrawn on a terminal, one line a report elsewhere.
class Progress {
 public:
  void show(double fraction, vx::String file) const {
    const int percent = static_cast<int>(fraction * 100);
    if (!onTerminal_) {
      std::printf("%3d%% %s\n", percent, printable(file).c_str());
    } else {
      const std::string filled(static_cast<std::size_t>(fraction * kBarWidth), '#');
      std::printf("%s[%-*s] %3d%% %s", kEraseLine, kBarWidth, filled.c_str(), percent,
                  clipped(printable(file)).c_str());
    }
    std::fflush(stdout);
  }

  /// Gives the line that the bar stands on to whoever writes next.
  void erase() const {
    if (onTerminal_) {
      std::printf("%s", kEraseLine);
      std::fflush(stdout);
    }
  }

  void complete(vx::String file) const {
    show(1.0, file);
    if (onTerminal_) {
      std::printf("\n");
    }
  }

 private:
  static constexpr int kBarWidth = 30;
  static constexpr std::size_t kNameWidth = 40;
  static constexpr const char* kEraseLine = "\r\033[K";

  /// The first `kNameWidth` characters of a UTF-8 text, since a line that wraps cannot be redrawn.
  static std::string clipped(std::string text) {
    std::size_t characters = 0;
    for (std::size_t i = 0; i < text.size(); ++i) {
      const bool continues = (static_cast<unsigned char>(text[i]) & 0xc0) == 0x80;
      if (!continues && characters++ == kNameWidth) {
        text.resize(i);
      }
    }
    return text;
  }

  const bool onTerminal_ = isatty(STDOUT_FILENO) != 0;
};

/// Passes the library's messages on to standard error and counts them: a call that succeeds may
/// have left a file out, and only the log says so.
class MessageCounter {
 public:
  explicit MessageCounter(const Progress& progress) {
    vx::setLogSink([this, &progress](vx::LogLevel level, vx::String line) {
      progress.erase();
      const char* const prefix = level == vx::LogLevel::Error ? "error" : "warning";
      std::fprintf(stderr, "%s: %s\n", prefix, printable(line).c_str());
      ++count_;
    });
  }
  MessageCounter(const MessageCounter&) = delete;
  MessageCounter& operator=(const MessageCounter&) = delete;
  ~MessageCounter() { vx::setLogSink({}); }

  [[nodiscard]] bool none() const { return count_ == 0; }

 private:
  int count_ = 0;
};

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

int pack(vx::String archive, vx::StringVector files) {
  const Progress progress;
  const MessageCounter messages(progress);
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

/// `path` as seen from `directory`, when it lies below that.
std::string_view below(std::string_view directory, std::string_view path) {
  const bool lies = path.size() > directory.size() && path.starts_with(directory) &&
                    path[directory.size()] == '/';
  return lies ? path.substr(directory.size() + 1) : path;
}

int unpack(vx::String archive) {
  const Progress progress;
  const MessageCounter messages(progress);

  // As vx::fs::readKsz, which only answers whether there was anything.
  const vx::StringVector files = vx::fs::readZip(archive, "", {});
  if (files.empty()) {
    return kExitFailure;
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

/// Guards the file that comes first when the name of the archive was forgotten.
std::string requireKsz(const std::string& name) {
  const vx::String extension = vx::Path::ext(vx::String(std::string_view(name)), true);
  return extension.compareNoCase(".ksz") == 0 ? "" : "the archive's name must end in .ksz: " + name;
}

int run(int argc, char** argv) {
  CLI::App app("Packs the files of a scene into a ksz archive, and unpacks one beside itself.");
  app.require_subcommand(1);
  std::string archive;
  std::vector<std::string> files;

  CLI::App* const packCommand = app.add_subcommand("pack", "Write the archive from the files");
  packCommand->add_option("OUT.ksz", archive, "The archive to write")
      ->required()
      ->check(requireKsz);
  packCommand->add_option("FILE", files, "The scene, its materials and resources")->required();

  CLI::App* const unpackCommand = app.add_subcommand("unpack", "Expand the archive beside itself");
  unpackCommand->add_option("ARCHIVE", archive, "The archive to read")->required();

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == EXIT_SUCCESS ? EXIT_SUCCESS : kExitUsage;
  }

  const vx::String archivePath{std::string_view(archive)};
  if (unpackCommand->parsed()) {
    return unpack(archivePath);
  }
  vx::StringVector paths;
  for (const std::string& file : files) {
    paths.push_back(vx::String(std::string_view(file)));
  }
  return pack(archivePath, paths);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "ksz: %s\n", failure.what());
    return kExitFailure;
  }
}
