// SPDX-License-Identifier: MIT

#include "tests/integration/run_ksz.h"

#include <array>
#include <csignal>
#include <cstddef>

#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vx::test {
namespace {

/// Opened before a test gives up the rights that its path may need.
const int program = open(VX_KSZ_PROGRAM, O_PATH | O_CLOEXEC);

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 4096> chunk;
  ssize_t count = 0;
  // A terminal whose other side has gone gives an error in place of the end.
  while ((count = read(descriptor, chunk.data(), chunk.size())) > 0) {
    text.append(chunk.data(), static_cast<std::size_t>(count));
  }
  close(descriptor);
  return text;
}

/// Replaces the process by the program, in `directory`.
[[noreturn]] void become(const std::string& directory, std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), VX_KSZ_PROGRAM);
  std::vector<char*> pointers;
  pointers.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  if (chdir(directory.c_str()) == 0) {
    fexecve(program, pointers.data(), environ);
  }
  _exit(127);
}

}  // namespace

int statusOf(pid_t child) {
  int status = 0;
  waitpid(child, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : 1000 + WTERMSIG(status);
}

Outcome run(const TempDir& tmp, const std::vector<std::string>& arguments) {
  const TempDir output;
  const pid_t child = fork();
  if (child == 0) {
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(open(output.path("out").c_str(), O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
    dup2(open(output.path("err").c_str(), O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
    become(tmp.path(), arguments);
  }
  const int status = statusOf(child);
  return {status, output.read("out"), output.read("err")};
}

Outcome runOnTerminal(const TempDir& tmp, const std::vector<std::string>& arguments,
                      unsigned short columns) {
  const winsize size = {.ws_row = 24, .ws_col = columns, .ws_xpixel = 0, .ws_ypixel = 0};
  int terminal = -1;
  const pid_t child = forkpty(&terminal, nullptr, nullptr, &size);
  if (child == 0) {
    become(tmp.path(), arguments);
  }
  const std::string out = readAll(terminal);
  return {statusOf(child), out, ""};
}

pid_t start(const TempDir& tmp, const std::vector<std::string>& arguments, int output) {
  const pid_t child = fork();
  if (child == 0) {
    const int all = output == -1 ? open("/dev/null", O_RDWR | O_CLOEXEC) : output;
    dup2(all, STDIN_FILENO);
    dup2(all, STDOUT_FILENO);
    output == -1 ? close(STDERR_FILENO) : dup2(all, STDERR_FILENO);
    // Ignored where the tests run in the background.
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGQUIT, SIG_DFL);
    become(tmp.path(), arguments);
  }
  return child;
}

}  // namespace vx::test
