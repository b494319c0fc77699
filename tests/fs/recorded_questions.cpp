#include "tests/fs/recorded_questions.h"

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <string_view>
#include <utility>

#include <sys/stat.h>

namespace vx::test {
namespace {

RecordedQuestions* active = nullptr;

}  // namespace

struct RecordedQuestionsAccess {
  /// Whether the question for the status of `path` is to fail.
  static bool recordStat(const char* path) {
    if (active == nullptr) {
      return false;
    }
    active->asked_.push_back(std::string("stat ") + path);
    return std::find(active->hidden_.begin(), active->hidden_.end(), path) != active->hidden_.end();
  }

  static void recordRealpath(const char* path) {
    if (active != nullptr) {
      active->asked_.push_back(std::string("realpath ") + path);
    }
  }

  /// Whether the question for the current directory is to fail.
  static bool recordGetcwd() {
    if (active == nullptr) {
      return false;
    }
    active->asked_.emplace_back("getcwd");
    return std::exchange(active->hidesCurrentDir_, false);
  }
};

RecordedQuestions::RecordedQuestions() {
  active = this;
}

RecordedQuestions::~RecordedQuestions() {
  active = nullptr;
}

void RecordedQuestions::hide(std::string path) {
  hidden_.push_back(std::move(path));
}

void RecordedQuestions::hideCurrentDirOnce() {
  hidesCurrentDir_ = true;
}

std::vector<std::string> RecordedQuestions::statPaths() const {
  constexpr std::string_view kPrefix = "stat ";
  std::vector<std::string> paths;
  for (const std::string& question : asked_) {
    if (question.starts_with(kPrefix)) {
      paths.push_back(question.substr(kPrefix.size()));
    }
  }
  return paths;
}

}  // namespace vx::test

using vx::test::RecordedQuestionsAccess;

extern "C" {

int __real_stat(const char* path, struct stat* status);
char* __real_realpath(const char* path, char* resolved);
char* __real_getcwd(char* buffer, std::size_t size);

int __wrap_stat(const char* path, struct stat* status) {
  if (RecordedQuestionsAccess::recordStat(path)) {
    errno = ENOENT;
    return -1;
  }
  return __real_stat(path, status);
}

char* __wrap_realpath(const char* path, char* resolved) {
  RecordedQuestionsAccess::recordRealpath(path);
  return __real_realpath(path, resolved);
}

char* __wrap_getcwd(char* buffer, std::size_t size) {
  if (RecordedQuestionsAccess::recordGetcwd()) {
    errno = ENOENT;
    return nullptr;
  }
  return __real_getcwd(buffer, size);
}
}
