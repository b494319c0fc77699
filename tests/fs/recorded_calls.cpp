#include "tests/fs/recorded_calls.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

RecordedCalls* active = nullptr;

std::string octal(mode_t mode) {
  std::array<char, 16> digits{};
  std::snprintf(digits.data(), digits.size(), "%04o", static_cast<unsigned>(mode));
  return digits.data();
}

}  // namespace

RecordedCalls::RecordedCalls() {
  if (active != nullptr) {
    throw std::logic_error("calls are recorded already");
  }
  active = this;
}

RecordedCalls::~RecordedCalls() {
  active = nullptr;
  if (streams_ != -1) {
    ::close(streams_);
  }
}

std::vector<std::string> RecordedCalls::all() {
  recordStreams();
  return calls_;
}

std::size_t RecordedCalls::count(std::string_view beginning) {
  recordStreams();
  return static_cast<std::size_t>(
      std::count_if(calls_.begin(), calls_.end(),
                    [&](const std::string& call) { return call.starts_with(beginning); }));
}

void RecordedCalls::script(std::string call, Script script) {
  scripts_.emplace(std::move(call), std::move(script));
}

void RecordedCalls::before(std::string call, std::function<void()> action) {
  script(std::move(call), [action = std::move(action)]() -> std::optional<int> {
    action();
    return std::nullopt;
  });
}

void RecordedCalls::fail(std::string call, int error) {
  script(std::move(call), [error] { return error; });
}

void RecordedCalls::failOnce(std::string call, int error) {
  script(std::move(call), [left = std::optional<int>(error)]() mutable {
    return std::exchange(left, std::nullopt);
  });
}

void RecordedCalls::pretend(std::string call) {
  script(std::move(call), [] { return 0; });
}

void RecordedCalls::findAt(const std::string& path, mode_t mode) {
  modes_[path] = mode;
  pretend("stat " + path);
}

void RecordedCalls::watchStreamsIn(const std::string& directory) {
  streams_ = ::inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  if (streams_ == -1 ||
      ::inotify_add_watch(streams_, directory.c_str(), IN_OPEN | IN_CLOSE) == -1) {
    throw std::system_error(errno, std::generic_category(), "inotify " + directory);
  }
}

std::optional<int> RecordedCalls::onCall(const std::string& call) {
  if (active == nullptr) {
    return std::nullopt;
  }
  const int errnoBefore = errno;
  active->recordStreams();
  active->calls_.push_back(call);
  std::optional<int> outcome = active->runScripts(call);
  const std::string name = call.substr(0, call.find(' '));
  if (!outcome && name != call) {
    outcome = active->runScripts(name);
  }
  // A call that succeeds leaves errno alone, and what happens here must not look like the call's.
  errno = errnoBefore;
  return outcome;
}

std::optional<int> RecordedCalls::runScripts(const std::string& call) {
  std::optional<int> outcome;
  const auto [first, last] = scripts_.equal_range(call);
  for (auto script = first; script != last && !outcome; ++script) {
    outcome = script->second();
  }
  return outcome;
}

std::optional<mode_t> RecordedCalls::foundAt(const std::string& path) {
  if (active == nullptr || !active->modes_.contains(path)) {
    return std::nullopt;
  }
  return active->modes_[path];
}

std::optional<unsigned char> RecordedCalls::entryType() {
  return active == nullptr ? std::nullopt : active->entryType_;
}

void RecordedCalls::recordStreams() {
  alignas(inotify_event) std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t length = streams_ == -1 ? -1 : ::read(streams_, buffer.data(), buffer.size());
    if (length <= 0) {
      return;
    }
    inotify_event event{};
    for (std::size_t at = 0; at < static_cast<std::size_t>(length);
         at += sizeof event + event.len) {
      std::memcpy(&event, buffer.data() + at, sizeof event);
      const char* const name = event.len == 0 ? "." : buffer.data() + at + sizeof event;
      calls_.push_back(std::string((event.mask & IN_OPEN) != 0 ? "open " : "close ") + name);
    }
  }
}

}  // namespace vx::test

// The linker sends every call of the program to these; __real_ is the one it would have had.
// NOLINTBEGIN(*-reserved-identifier, readability-identifier-naming)
extern "C" {

int __real_stat(const char* path, struct stat* status);
int __real_mkdir(const char* path, mode_t mode);
int __real_rmdir(const char* path);
int __real_remove(const char* path);
int __real_rename(const char* from, const char* to);
DIR* __real_opendir(const char* path);
dirent* __real_readdir(DIR* directory);
int __real_closedir(DIR* directory);
char* __real_realpath(const char* path, char* resolved);
char* __real_getcwd(char* buffer, std::size_t size);

}  // extern "C"

namespace {

using vx::test::RecordedCalls;

int result(int error) {
  if (error == 0) {
    return 0;
  }
  errno = error;
  return -1;
}

}  // namespace

extern "C" {

int __wrap_stat(const char* path, struct stat* status) {
  const auto outcome = RecordedCalls::onCall(std::string("stat ") + path);
  if (!outcome) {
    return __real_stat(path, status);
  }
  *status = {};
  status->st_nlink = 1;
  status->st_mode = RecordedCalls::foundAt(path).value_or(0);
  return result(*outcome);
}

int __wrap_mkdir(const char* path, mode_t mode) {
  const auto outcome =
      RecordedCalls::onCall(std::string("mkdir ") + path + " " + vx::test::octal(mode));
  return outcome ? result(*outcome) : __real_mkdir(path, mode);
}

int __wrap_rmdir(const char* path) {
  const auto outcome = RecordedCalls::onCall(std::string("rmdir ") + path);
  return outcome ? result(*outcome) : __real_rmdir(path);
}

int __wrap_remove(const char* path) {
  const auto outcome = RecordedCalls::onCall(std::string("remove ") + path);
  return outcome ? result(*outcome) : __real_remove(path);
}

int __wrap_rename(const char* from, const char* to) {
  const auto outcome = RecordedCalls::onCall(std::string("rename ") + from + " " + to);
  return outcome ? result(*outcome) : __real_rename(from, to);
}

DIR* __wrap_opendir(const char* path) {
  if (const auto outcome = RecordedCalls::onCall(std::string("opendir ") + path)) {
    result(*outcome);
    return nullptr;
  }
  return __real_opendir(path);
}

dirent* __wrap_readdir(DIR* directory) {
  if (const auto outcome = RecordedCalls::onCall("readdir")) {
    result(*outcome);
    return nullptr;
  }
  dirent* const entry = __real_readdir(directory);
  const auto type = RecordedCalls::entryType();
  if (entry != nullptr && type) {
    entry->d_type = *type;
  }
  return entry;
}

int __wrap_closedir(DIR* directory) {
  const auto outcome = RecordedCalls::onCall("closedir");
  return outcome ? result(*outcome) : __real_closedir(directory);
}

char* __wrap_realpath(const char* path, char* resolved) {
  if (const auto outcome = RecordedCalls::onCall(std::string("realpath ") + path)) {
    result(*outcome);
    return nullptr;
  }
  return __real_realpath(path, resolved);
}

char* __wrap_getcwd(char* buffer, std::size_t size) {
  if (const auto outcome = RecordedCalls::onCall("getcwd")) {
    result(*outcome);
    return nullptr;
  }
  return __real_getcwd(buffer, size);
}

}  // extern "C"
// NOLINTEND(*-reserved-identifier, readability-identifier-naming)
