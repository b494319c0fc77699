#include "tests/testing/zip_program.h"

#include "tests/testing/temp_dir.h"

#include <cerrno>
#include <cstdio>
#include <system_error>

#include <fcntl.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vx::test {
namespace {

constexpr int kCannotRun = 127;

[[noreturn]] void become(const std::string& directory, const std::string& output,
                         std::vector<std::string> command) {
  std::vector<char*> words;
  for (std::string& word : command) {
    words.push_back(word.data());
  }
  words.push_back(nullptr);
  const int nothing = ::open("/dev/null", O_RDONLY);
  const int file = ::open(output.c_str(), O_WRONLY | O_CREAT, 0600);
  ::dup2(nothing, STDIN_FILENO);
  ::dup2(file, STDOUT_FILENO);
  ::dup2(file, STDERR_FILENO);
  ::setenv("LC_ALL", "C.UTF-8", 1);
  if (::chdir(directory.c_str()) == 0) {
    ::execvp(words[0], words.data());
  }
  ::_exit(kCannotRun);
}

}  // namespace

ProgramEnd runProgram(const std::string& directory, const std::vector<std::string>& command) {
  const TempDir tmp;
  const std::string output = tmp.write("output", "");
  std::fflush(nullptr);  // what is still buffered would come out twice
  const pid_t child = ::fork();
  if (child == -1) {
    throw std::system_error(errno, std::generic_category(), "fork");
  }
  if (child == 0) {
    become(directory, output, command);
  }
  int status = 0;
  while (::waitpid(child, &status, 0) == -1) {
    if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "waitpid");
    }
  }
  return {WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status), tmp.read("output")};
}

bool canRun(const std::vector<std::string>& command) {
  return runProgram("/", command).exitCode == 0;
}

}  // namespace vx::test
