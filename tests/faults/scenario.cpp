#include "tests/faults/scenario.h"

#include "core/vx_error.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/memory_dir.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/scoped_env.h"

#include <gmock/gmock.h>
#include <miniz.h>

#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <set>
#include <string_view>

#include <fnmatch.h>

namespace vx::test {
namespace {

constexpr int kCodes[] = {EACCES, ENOSPC, EIO,          EMFILE, ENOENT,
                          EEXIST, ELOOP,  ENAMETOOLONG, EINTR,  EROFS};

// ---- Texts ------------------------------------------------------------------------------------

void replaceAll(std::string& text, std::string_view from, std::string_view to) {
  for (std::size_t at = text.find(from); at != std::string::npos;
       at = text.find(from, at + to.size())) {
    text.replace(at, from.size(), to);
  }
}

std::string executable() {
  return std::filesystem::read_symlink("/proc/self/exe").string();
}

std::string shownContent(const std::string& content) {
  constexpr std::size_t kLong = 100;
  if (content.size() > kLong && content == sequence(content.size())) {
    return std::to_string(content.size());
  }
  return content;
}

std::string shownCurrentError(const ErrorStateSentinel& sentinel) {
  if (sentinel.isUntouched()) {
    return "untouched";
  }
  return std::to_string(os::currentErrorCode()) + " " +
         std::string(os::currentErrorContext().view()) + ": " +
         std::string(os::currentErrorMessage().view());
}

// ---- The disk ---------------------------------------------------------------------------------

struct FreeMemory {
  void operator()(void* block) const noexcept { mz_free(block); }
};

/// The entries of an archive, read from memory, by the archive library alone.
std::string shownArchive(const std::string& bytes) {
  mz_zip_archive zip;
  mz_zip_zero_struct(&zip);
  if (mz_zip_reader_init_mem(&zip, bytes.data(), bytes.size(), 0) == MZ_FALSE) {
    return "no archive of " + std::to_string(bytes.size()) + " bytes";
  }
  std::string text = "{";
  for (mz_uint i = 0; i < mz_zip_reader_get_num_files(&zip); ++i) {
    mz_zip_archive_file_stat status;
    if (mz_zip_reader_file_stat(&zip, i, &status) == MZ_FALSE) {
      text += "unreadable";
      continue;
    }
    std::size_t size = 0;
    const std::unique_ptr<void, FreeMemory> content(
        mz_zip_reader_extract_to_heap(&zip, i, &size, 0));
    text += i == 0 ? "" : ", ";
    text += status.m_filename + std::string(": ") +
            (content == nullptr ? "damaged"
                                : shownContent({static_cast<const char*>(content.get()), size}));
  }
  mz_zip_reader_end(&zip);
  return text + "}";
}

std::vector<std::string> shownDisk(const TempDir& tmp) {
  std::vector<std::string> lines;
  for (const std::string& name : tmp.entries()) {
    const std::filesystem::path path = tmp.path(name);
    if (std::filesystem::is_symlink(path)) {
      lines.push_back(name + " -> " + std::filesystem::read_symlink(path).string());
    } else if (!std::filesystem::is_regular_file(path)) {
      lines.push_back(name);
    } else if (name.ends_with(".zip") || name.ends_with(".ksz")) {
      lines.push_back(name + ": " + shownArchive(tmp.read(name)));
    } else {
      lines.push_back(name + ": " + shownContent(tmp.read(name)));
    }
  }
  return lines;
}

bool isAnyOf(const std::string& line, const std::vector<std::string>& names) {
  return std::any_of(names.begin(), names.end(),
                     [&](const std::string& name) { return line.starts_with(name + ": "); });
}

std::set<std::string> openFiles() {
  std::set<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code ignored;  // the listing's own descriptor is gone when it is looked at
    const auto target = std::filesystem::read_symlink(entry.path(), ignored);
    if (!ignored && !target.string().starts_with("/proc/")) {
      files.insert(entry.path().filename().string() + " " + target.string());
    }
  }
  return files;
}

// ---- One run ----------------------------------------------------------------------------------

MATCHER_P(MatchesPattern, pattern, "") {
  return ::fnmatch(pattern.c_str(), std::string(arg).c_str(), FNM_NOESCAPE) == 0;
}

/// A pattern in which only "*" is special.
std::string asPattern(std::string text) {
  replaceAll(text, "[", "[[]");
  replaceAll(text, "?", "[?]");
  return text;
}

class Run {
 public:
  Run(const Scenario& scenario, Fault fault) : code_(fault.code), number_(fault.call) {
    fault.always = scenario.always;
    const std::set<std::string> filesBefore = openFiles();
    if (scenario.arrange) {
      scenario.arrange(*tmp_);
    }
    listEntries();
    {
      const ScopedCurrentDir inside(tmp_->path());
      const LogCapture log;
      const ErrorStateSentinel sentinel;
      watch_ = std::make_unique<CallWatch>(fault);
      observed_.result = scenario.call(*watch_);
      watch_->stop();
      observed_.log = log.all();
      observed_.error = shownCurrentError(sentinel);
    }
    observed_.leavesArchiveOpen = endAbandonedArchive();
    blocksLeft_ = watch_->liveBlocks();
    filesLeft_ = openFiles() != filesBefore;
    observed_.disk = shownDisk(*tmp_);
  }

  [[nodiscard]] const std::vector<WatchedCall>& calls() const { return watch_->calls(); }

  /// A watched call as the rules spell it.
  [[nodiscard]] std::string spelled(const std::string& call) const {
    std::string text = call;
    replaceAll(text, tmp_->path(), "{tmp}");
    replaceAll(text, executable(), "{exe}");
    return text;
  }

  void expect(const Outcome& expected) const {
    EXPECT_THAT(observed_.result, MatchesPattern(asPattern(filledIn(expected.result))));
    EXPECT_EQ(observed_.log, filledIn(expected.log));
    EXPECT_EQ(observed_.error, filledIn(expected.error));
    std::vector<std::string> disk = observed_.disk;
    std::erase_if(disk, [&](const std::string& line) { return isAnyOf(line, expected.maybe); });
    std::vector<testing::Matcher<std::string>> patterns;
    for (const std::string& line : filledIn(expected.disk)) {
      patterns.emplace_back(MatchesPattern(asPattern(line)));
    }
    EXPECT_THAT(disk, testing::ElementsAreArray(patterns));
    EXPECT_EQ(observed_.leavesArchiveOpen, expected.leavesArchiveOpen);
    expectNothingLeft();
  }

  void expectNothingLeft() const {
    EXPECT_EQ(blocksLeft_, 0U) << "blocks of memory are left behind";
    EXPECT_FALSE(filesLeft_) << "a descriptor is left open, or one too many was closed";
  }

 private:
  void listEntries() {
    const std::filesystem::path directory = tmp_->path("d");
    if (std::filesystem::is_directory(directory)) {
      for (const auto& entry : std::filesystem::directory_iterator(directory)) {
        entries_.push_back(entry.path().filename().string());
      }
    }
  }

  /// Puts the values in for their names.
  [[nodiscard]] std::string filledIn(std::string text) const {
    const std::string exe = executable();
    replaceAll(text, "{tmp}", tmp_->path());
    replaceAll(text, "{code}", std::to_string(code_));
    replaceAll(text, "{text}", errnoText(code_));
    replaceAll(text, "{exe}", exe);
    replaceAll(text, "{exedir}", exe.substr(0, exe.rfind('/')));
    if (number_ != 0 && number_ <= calls().size()) {
      const std::string& call = calls()[number_ - 1].text;
      replaceAll(text, "{path}", call.substr(call.find(' ') + 1));
    }
    if (entries_.size() >= 2) {
      replaceAll(text, "{first}", entries_[0]);
      replaceAll(text, "{second}", entries_[1]);
    }
    return text;
  }

  [[nodiscard]] std::vector<std::string> filledIn(std::vector<std::string> texts) const {
    for (std::string& text : texts) {
      text = filledIn(std::move(text));
    }
    return texts;
  }

  int code_;
  std::size_t number_;
  std::unique_ptr<TempDir> tmp_ = tempDirInMemory();
  std::vector<std::string> entries_;
  std::unique_ptr<CallWatch> watch_;
  Outcome observed_;
  std::size_t blocksLeft_ = 0;
  bool filesLeft_ = false;
};

// ---- Rules ------------------------------------------------------------------------------------

/// The texts of the calls in order, each with its number among its like behind it. Those that the
/// archive library makes count by themselves.
std::vector<std::string> numbered(const Run& run) {
  std::map<std::pair<bool, std::string>, int> counts;
  std::vector<std::string> texts;
  for (const WatchedCall& call : run.calls()) {
    const std::string text = run.spelled(call.text);
    texts.push_back(text + "#" + std::to_string(++counts[{call.within.empty(), text}]));
  }
  return texts;
}

bool takes(const Rule& rule, const std::string& numberedCall, int code) {
  if (!rule.codes.empty() &&
      std::find(rule.codes.begin(), rule.codes.end(), code) == rule.codes.end()) {
    return false;
  }
  if (rule.call.ends_with('*')) {
    return numberedCall.starts_with(rule.call.substr(0, rule.call.size() - 1));
  }
  const std::size_t number = numberedCall.rfind('#');
  const bool isInside = numberedCall.find(' ', number) != std::string::npos;
  return rule.call == numberedCall || (!isInside && rule.call == numberedCall.substr(0, number));
}

std::vector<int> codesFor(const WatchedCall& call) {
  return call.takesErrno ? allCodesBut({}) : std::vector<int>{ENOMEM};
}

}  // namespace

std::string shown(bool value) {
  return value ? "true" : "false";
}

std::string shown(long long value) {
  return std::to_string(value);
}

std::string shown(const String& value) {
  return std::string(value.view());
}

std::string shown(const StringVector& value) {
  return std::string(value.join(", ").view());
}

std::string shown(const std::pair<bool, String>& value) {
  return shown(value.first) + ", " + shown(value.second);
}

std::vector<int> allCodesBut(const std::vector<int>& without) {
  std::vector<int> codes;
  std::copy_if(std::begin(kCodes), std::end(kCodes), std::back_inserter(codes), [&](int code) {
    return std::find(without.begin(), without.end(), code) == without.end();
  });
  return codes;
}

std::string sequence(std::size_t length) {
  static std::string text;
  for (std::size_t i = text.size() / 8; text.size() < length; ++i) {
    const std::string number = std::to_string(i);
    text += std::string(7 - number.size(), '0') + number + ' ';
  }
  return text.substr(0, length);
}

namespace {

const Rule* ruleFor(const Scenario& scenario, const std::string& name, int code) {
  for (const Rule& rule : scenario.rules) {
    if (takes(rule, name, code)) {
      return &rule;
    }
  }
  return nullptr;
}

void checkOneFailure(const Scenario& scenario, const Run& clean, std::size_t index, int code,
                     std::set<const Rule*>& used) {
  const Run run(scenario, {.call = index + 1, .code = code});
  ASSERT_GT(run.calls().size(), index);
  const WatchedCall& failed = run.calls()[index];
  ASSERT_EQ(run.spelled(failed.text), clean.spelled(clean.calls()[index].text))
      << "the calls before the failing one differ from those of a clean run";
  std::string name = numbered(clean)[index];
  const Rule* rule = nullptr;
  if (failed.within.empty()) {
    rule = ruleFor(scenario, name, code);
  } else {
    const std::string within = run.spelled(failed.within);
    rule = ruleFor(scenario, name + " within " + within, code);
    if (rule == nullptr && !failed.withinFailed) {
      run.expect(scenario.clean);
      return;
    }
    if (rule == nullptr) {
      rule = ruleFor(scenario, within + "#1", code);
    }
  }
  if (rule == nullptr) {
    ADD_FAILURE() << "no rule says what comes of this";
    return;
  }
  used.insert(rule);
  run.expect(rule->outcome);
}

void checkPersistentFailure(const Scenario& scenario, std::size_t index) {
  const Run run(scenario, {.call = index + 1, .code = EIO, .persists = true});
  run.expectNothingLeft();
}

/// Without it the C library looks for the zone anew at every question, and allocates its name.
ScopedEnv fixedTimeZone() {
  return {"TZ", "UTC0"};
}

/// What the C library allocates once and for all is not the module's.
void warmUp(const Scenario& scenario) {
  const Run run(scenario, {});
}

}  // namespace

void checkCleanRun(const Scenario& scenario) {
  const ScopedEnv timeZone = fixedTimeZone();
  warmUp(scenario);
  Run(scenario, {}).expect(scenario.clean);
}

void checkEveryFailure(const Scenario& scenario) {
  const ScopedEnv timeZone = fixedTimeZone();
  warmUp(scenario);

  const Run clean(scenario, {});
  clean.expect(scenario.clean);
  const std::vector<std::string> names = numbered(clean);
  if (!scenario.calls.empty()) {
    std::vector<std::string> calls;
    for (const WatchedCall& call : clean.calls()) {
      calls.push_back(clean.spelled(call.text));
    }
    EXPECT_EQ(calls, scenario.calls);
  }
  if (testing::Test::HasFailure()) {
    return;
  }

  std::set<const Rule*> used;
  for (std::size_t i = 0; i < clean.calls().size(); ++i) {
    const std::string& within = clean.calls()[i].within;
    const std::string name = names[i] + (within.empty() ? "" : " within " + clean.spelled(within));
    for (const int code : codesFor(clean.calls()[i])) {
      SCOPED_TRACE(name + " fails with " + errnoText(code));
      checkOneFailure(scenario, clean, i, code, used);
      if (testing::Test::HasFailure()) {
        break;  // the other codes would say the same
      }
    }
    SCOPED_TRACE("all calls fail from " + name + " on");
    checkPersistentFailure(scenario, i);
  }
  for (const Rule& rule : scenario.rules) {
    EXPECT_TRUE(used.contains(&rule))
        << "no call is made that the rule for '" << rule.call << "' is about";
  }
}

}  // namespace vx::test
