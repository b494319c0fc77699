// The well-known locations, the resolver, the dialogs and what else asks the system, with each of
// their calls failing once.

#include "core/vx_log.h"
#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tests/faults/scenario.h"
#include "tests/testing/scoped_env.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

namespace vx::test {
namespace {

// What a line quotes where the function has not set the current error itself.
const std::string kHeldMessage = "the sentinel's message";

/// The call of a form that fills an argument.
template <class Get>
ScenarioCall filling(Get get) {
  return calling([get] {
    String out;
    const bool result = get(out);
    return std::pair(result, out);
  });
}

std::string canonical(const char* path) {
  return std::filesystem::canonical(path).string();
}

// ---- The executable and its bundle -------------------------------------------------------------

constexpr const char* kEmpty = "0 vx::Path::exePath(): Returning empty path";
constexpr const char* kFailed = "0 vx::Path::exePath(): Failed to retrieve exe path";
constexpr const char* kMissing = "0 vx::Path::exePath(): Returning non-existent path";

/// The failures of `exePath` as seen through a function that makes something else of its result.
std::vector<Rule> exePathRules(const std::string& result) {
  return {
      {"readlink /proc/self/exe#1", {.result = "", .error = kEmpty}},
      {"readlink /proc/self/exe#2", {.result = "", .error = kFailed}},
      {"stat {exe}#1", {.result = result, .error = kMissing}},
      {"realpath {exe}", {.result = result}},
  };
}

TEST(FailingCalls, ExePath) {
  checkEveryFailure({
      .call = calling([] { return fs::exePath(); }),
      .clean = {.result = "{exe}"},
      .rules = exePathRules("{exe}"),
      .calls = {"readlink /proc/self/exe", "readlink /proc/self/exe", "stat {exe}",
                "realpath {exe}"},
  });
}

/// The directory is that of the path, whatever is there.
std::vector<Rule> exeDirRules() {
  std::vector<Rule> rules = exePathRules("{exedir}");
  rules.push_back({"stat {exe}#2", {.result = "{exedir}"}});
  return rules;
}

TEST(FailingCalls, ExeDir) {
  checkEveryFailure({
      .call = calling([] { return fs::exeDir(); }),
      .clean = {.result = "{exedir}"},
      .rules = exeDirRules(),
  });
}

TEST(FailingCalls, AppDirOutsideABundle) {
  checkEveryFailure({
      .call = calling([] { return fs::appDir(); }),
      .clean = {.result = "{exedir}"},
      .rules = exeDirRules(),
  });
}

TEST(FailingCalls, ResDirOutsideABundle) {
  checkEveryFailure({
      .call = calling([] { return fs::resDir(); }),
      .clean = {.result = "{exedir}"},
      .rules = exeDirRules(),
  });
}

const std::vector<std::string> kBundle = {"x/",
                                          "x/A.app/",
                                          "x/A.app/Contents/",
                                          "x/A.app/Contents/MacOS/",
                                          "x/A.app/Contents/MacOS/a: text",
                                          "x/A.app/Contents/Resources/"};

/// A bundle in the directory of the scenario, from which the program then seems to run.
class Bundle {
 public:
  std::function<void(const TempDir&)> arrange() {
    return [this](const TempDir& tmp) {
      executable_ = tmp.write("x/A.app/Contents/MacOS/a", "text");
      tmp.mkdir("x/A.app/Contents/Resources");
    };
  }

  template <class Function>
  ScenarioCall calling(Function function) {
    return [this, function](CallWatch& watch) {
      watch.answerLinks(executable_);
      return test::calling(function)(watch);
    };
  }

 private:
  std::string executable_;
};

/// `dir` is asked in the end whether `asked` is there, and answers `result` when it is.
std::vector<Rule> bundleRules(const std::string& result, const std::string& asked,
                              const std::string& ifMissing) {
  const std::string exe = "{tmp}/x/A.app/Contents/MacOS/a";
  return {
      {"readlink /proc/self/exe#1", {.result = "", .error = kEmpty, .disk = kBundle}},
      {"readlink /proc/self/exe#2", {.result = "", .error = kFailed, .disk = kBundle}},
      {"stat " + exe + "#1", {.result = result, .error = kMissing, .disk = kBundle}},
      {"realpath " + exe, {.result = result, .disk = kBundle}},
      {"stat " + exe + "#2", {.result = result, .disk = kBundle}},
      {"stat " + asked, {.result = ifMissing, .disk = kBundle}},
  };
}

TEST(FailingCalls, AppDirInABundle) {
  Bundle bundle;
  checkEveryFailure({
      .arrange = bundle.arrange(),
      .call = bundle.calling([] { return fs::appDir(); }),
      .clean = {.result = "{tmp}/x", .disk = kBundle},
      .rules = bundleRules("{tmp}/x", "{tmp}/x", "{tmp}"),
  });
}

TEST(FailingCalls, ResDirInABundle) {
  Bundle bundle;
  const std::string resources = "{tmp}/x/A.app/Contents/Resources";
  checkEveryFailure({
      .arrange = bundle.arrange(),
      .call = bundle.calling([] { return fs::resDir(); }),
      .clean = {.result = resources, .disk = kBundle},
      .rules = bundleRules(resources, resources, "{tmp}/x/A.app/Contents"),
  });
}

// ---- The current, home and temporary directories -----------------------------------------------

// The current directory has been removed only if getcwd says that it does not exist.
const std::vector<int> kNotMissing = allCodesBut({ENOENT});

TEST(FailingCalls, GetCurrentDir) {
  const Outcome clean = {.result = "true, {tmp}"};
  const Outcome removed = {.result = "false, ."};
  checkEveryFailure({
      .call = filling([](String& out) { return fs::getCurrentDir(out); }),
      .clean = clean,
      .rules = {{"stat .", removed},
                {"getcwd", removed, {ENOENT}},
                {"getcwd", clean, kNotMissing},
                {"realpath .", clean}},
      .calls = {"stat .", "getcwd", "realpath ."},
  });
}

TEST(FailingCalls, CurrentDir) {
  checkEveryFailure({
      .call = calling([] { return fs::currentDir(); }),
      .clean = {.result = "{tmp}"},
      .rules = {{"stat .", {.result = "."}},
                {"getcwd", {.result = "."}, {ENOENT}},
                {"getcwd", {.result = "{tmp}"}, kNotMissing},
                {"realpath .", {.result = "{tmp}"}}},
  });
}

class FailingCallsAtHome : public testing::Test {
 protected:
  static void arrange(const TempDir& tmp) { tmp.mkdir("home"); }

  const std::string noHome_ = "warning: Failed to find home dir: " + kHeldMessage;

 private:
  const ScopedEnv home_{"HOME", "home"};
  const ScopedEnv userDir_{"KAVRA_USER_DIR", nullptr};
};

TEST_F(FailingCallsAtHome, GetHomeDir) {
  const std::vector<std::string> disk = {"home/"};
  const Outcome clean = {.result = "true, {tmp}/home", .disk = disk};
  checkEveryFailure({
      .arrange = arrange,
      .call = filling([](String& out) { return fs::getHomeDir(out); }),
      .clean = clean,
      .rules = {{"stat home", {.result = "true, {tmp}", .log = {noHome_}, .disk = disk}},
                {"realpath home", clean}},
      .calls = {"stat home", "realpath home"},
  });
}

TEST_F(FailingCallsAtHome, GetHomeDirWithoutAHome) {
  const Outcome clean = {.result = "true, {tmp}", .log = {noHome_}};
  const Outcome removed = {.result = "false, .", .log = {noHome_}};
  checkEveryFailure({
      .call = filling([](String& out) { return fs::getHomeDir(out); }),
      .clean = clean,
      .rules = {{"stat home", clean},
                {"stat .", removed},
                {"getcwd", removed, {ENOENT}},
                {"getcwd", clean, kNotMissing},
                {"realpath .", clean}},
  });
}

TEST_F(FailingCallsAtHome, HomeDirWithoutAHome) {
  // Where the current directory fails once, it is asked for again.
  const Outcome clean = {.result = "{tmp}", .log = {noHome_}};
  checkEveryFailure({
      .call = calling([] { return fs::homeDir(); }),
      .clean = clean,
      .rules = {{"stat home", clean}, {"stat .", clean}, {"getcwd", clean}, {"realpath .", clean}},
  });
}

TEST_F(FailingCallsAtHome, HomeDirWithoutHomeAndCurrentDir) {
  checkEveryFailure({
      .call = calling([] { return fs::homeDir(); }),
      .clean = {.result = ".", .log = {noHome_}},
      .rules = {{"stat home", {.result = ".", .log = {noHome_}}}},
      .always = {"stat ."},
  });
}

class FailingCallsForTemp : public testing::Test {
 protected:
  const std::string varTmp_ = canonical("/var/tmp");
  const std::string slashTmp_ = canonical("/tmp");
  const std::string useCurrent_ =
      "warning: Failed to find temp dir, using current dir (" + kHeldMessage + ").";
  const std::string noneAtAll_ =
      "error: Failed to find both temp and current directories (" + kHeldMessage + ").";
};

TEST_F(FailingCallsForTemp, GetTempDir) {
  const ScopedEnv tempDir("TMPDIR", "t");
  const std::vector<std::string> disk = {"t/"};
  const Outcome clean = {.result = "true, {tmp}/t", .disk = disk};
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.mkdir("t"); },
      .call = filling([](String& out) { return fs::getTempDir(out); }),
      .clean = clean,
      .rules =
          {
              {"stat t#1", {.result = "true, " + varTmp_, .disk = disk}},
              {"stat t#2", {.result = "true, " + slashTmp_, .disk = disk}},
              {"realpath t", clean},
              {"stat {tmp}/t", {.result = "true, {tmp}", .log = {useCurrent_}, .disk = disk}},
              {"realpath {tmp}/t", clean},
          },
  });
}

TEST_F(FailingCallsForTemp, TempDirWithoutAVariable) {
  const ScopedEnv tempDir("TMPDIR", nullptr);
  const Outcome clean = {.result = varTmp_};
  checkEveryFailure({
      .call = calling([] { return fs::tempDir(); }),
      .clean = clean,
      .rules =
          {
              {"stat /var/tmp#1", {.result = slashTmp_}},
              {"realpath /var/tmp*", clean},
              {"stat " + varTmp_ + "#2", {.result = "{tmp}", .log = {useCurrent_}}},
          },
  });
}

TEST_F(FailingCallsForTemp, GetTempDirWhereThereIsNone) {
  const ScopedEnv tempDir("TMPDIR", "missing");
  const Outcome clean = {.result = "true, {tmp}", .log = {useCurrent_}};
  const Outcome nothing = {.result = "true, " + slashTmp_, .log = {noneAtAll_}};
  checkEveryFailure({
      .call = filling([](String& out) { return fs::getTempDir(out); }),
      .clean = clean,
      .rules =
          {
              {"stat missing", clean},
              {"stat .", nothing},
              {"getcwd", nothing, {ENOENT}},
              {"getcwd", clean, kNotMissing},
              {"realpath*", clean},
          },
      .always = {"stat /var/tmp", "stat /tmp", "stat " + slashTmp_},
  });
}

// ---- Product directories -----------------------------------------------------------------------

TEST_F(FailingCallsAtHome, GetKavraUserDirThatIsMade) {
  const std::string made = "{tmp}/home/kavra";
  const Outcome clean = {
      .result = "true, " + made, .error = "0 mkDir: ", .disk = {"home/", "home/kavra/"}};
  // A level that is there but cannot be examined is tried, and found to be there.
  const Outcome levelThere = {
      .result = "false, " + made,
      .log = {"error: Failed to create dir: {path} [err: File exists].",
              "warning: Failed to create kavra user dir: " + made + " (File exists)."},
      .error = "17 mkDir: File exists",
      .disk = {"home/"}};
  checkEveryFailure({
      .arrange = arrange,
      .call = filling([](String& out) { return fs::getKavraUserDir(out, /*create=*/true); }),
      .clean = clean,
      .rules =
          {
              {"stat home",
               {.result = "true, {tmp}/kavra",
                .log = {noHome_},
                .error = "0 mkDir: ",
                .disk = {"home/", "kavra/"}}},
              {"realpath home", clean},
              {"stat " + made, clean},
              {"stat {tmp}/home", levelThere},
              {"stat {tmp}", levelThere},
              {"stat /*", levelThere},
              {"mkdir " + made,
               {.result = "false, " + made,
                .log = {"error: Failed to create dir: " + made + " [err: {text}].",
                        "warning: Failed to create kavra user dir: " + made + " ({text})."},
                .error = "{code} mkDir: {text}",
                .disk = {"home/"}}},
          },
  });
}

TEST_F(FailingCallsAtHome, GetKavraUserDirThatIsThere) {
  const std::vector<std::string> disk = {"home/", "home/kavra/"};
  const Outcome clean = {.result = "true, {tmp}/home/kavra", .disk = disk};
  const auto notFound = [&](const std::string& path, const std::vector<std::string>& before) {
    std::vector<std::string> log = before;
    log.push_back("warning: Failed to find kavra user dir: " + path + " (" + kHeldMessage + ").");
    return Outcome{.result = "false, " + path, .log = log, .disk = disk};
  };
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.mkdir("home/kavra"); },
      .call = filling([](String& out) { return fs::getKavraUserDir(out, /*create=*/false); }),
      .clean = clean,
      .rules =
          {
              {"stat home", notFound("{tmp}/kavra", {noHome_})},
              {"realpath home", clean},
              {"stat {tmp}/home/kavra", notFound("{tmp}/home/kavra", {})},
          },
  });
}

TEST_F(FailingCallsAtHome, KavraUserDirFallsBackToTheCurrentDir) {
  const std::vector<std::string> disk = {"home/"};
  const auto fallsBack = [&](const std::string& result) {
    return Outcome{
        .result = result,
        .log = {"warning: Failed to find kavra user dir: {tmp}/home/kavra (" + kHeldMessage + ")."},
        .disk = disk};
  };
  checkEveryFailure({
      .arrange = arrange,
      .call = calling([] { return fs::kavraUserDir(/*create=*/false); }),
      .clean = fallsBack("{tmp}"),
      .rules =
          {
              {"stat home",
               {.result = "{tmp}",
                .log = {noHome_, "warning: Failed to find kavra user dir: {tmp}/kavra (" +
                                     kHeldMessage + ")."},
                .disk = disk}},
              {"realpath*", fallsBack("{tmp}")},
              {"stat {tmp}/home/kavra", fallsBack("{tmp}")},
              {"stat .", fallsBack(".")},
              {"getcwd", fallsBack("."), {ENOENT}},
              {"getcwd", fallsBack("{tmp}"), kNotMissing},
          },
  });
}

struct Subdirectory {
  const char* name;
  const char* level;
  bool (*get)(String& out, bool create);
  String (*value)(bool create);
};

void PrintTo(const Subdirectory& subdirectory, std::ostream* stream) {
  *stream << subdirectory.name;
}

class FailingCallsInTheUserDir : public testing::TestWithParam<Subdirectory> {
 protected:
  static void arrange(const TempDir& tmp) {
    tmp.mkdir("user");
    tmp.mkdir("home");
  }

  [[nodiscard]] static std::string line(const std::string& verb, const std::string& path,
                                        const std::string& why) {
    return std::string(GetParam().level) + ": Failed to " + verb + " kavra " + GetParam().name +
           " dir: " + path + " (" + why + ").";
  }

  const std::string name_ = GetParam().name;
  const std::string path_ = "user/" + name_;

 private:
  const ScopedEnv home_{"HOME", "home"};
  const ScopedEnv userDir_{"KAVRA_USER_DIR", "user"};
};

TEST_P(FailingCallsInTheUserDir, GetWithCreate) {
  const std::vector<std::string> notMade = {"home/", "user/"};
  const Outcome clean = {
      .result = "true, " + path_, .error = "0 mkDir: ", .disk = {"home/", "user/", path_ + "/"}};
  checkEveryFailure({
      .arrange = arrange,
      .call = filling([](String& out) { return GetParam().get(out, /*create=*/true); }),
      .clean = clean,
      .rules =
          {
              // An override that cannot be seen is ignored.
              {"stat user#1",
               {.result = "true, {tmp}/home/kavra/" + name_,
                .error = "0 mkDir: ",
                .disk = {"home/", "home/kavra/", "home/kavra/" + name_ + "/", "user/"}}},
              {"stat " + path_, clean},
              {"stat user#2",
               {.result = "false, " + path_,
                .log = {"error: Failed to create dir: user [err: File exists].",
                        line("create", path_, "File exists")},
                .error = "17 mkDir: File exists",
                .disk = notMade}},
              {"mkdir " + path_,
               {.result = "false, " + path_,
                .log = {"error: Failed to create dir: " + path_ + " [err: {text}].",
                        line("create", path_, "{text}")},
                .error = "{code} mkDir: {text}",
                .disk = notMade}},
          },
  });
}

TEST_P(FailingCallsInTheUserDir, ValueWithoutCreate) {
  const std::vector<std::string> disk = {"home/", "user/", path_ + "/"};
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            arrange(tmp);
            tmp.mkdir(std::string("user/") + GetParam().name);
          },
      .call = calling([] { return GetParam().value(/*create=*/false); }),
      .clean = {.result = path_, .disk = disk},
      .rules =
          {
              // The user directory that is then looked for is missing, which is logged once.
              {"stat user",
               {.result = "{tmp}",
                .log = {"warning: Failed to find kavra user dir: {tmp}/home/kavra (" +
                        kHeldMessage + ")."},
                .disk = disk}},
              {"stat " + path_,
               {.result = "{tmp}", .log = {line("find", path_, kHeldMessage)}, .disk = disk}},
          },
  });
}

INSTANTIATE_TEST_SUITE_P(
    Each, FailingCallsInTheUserDir,
    testing::Values(Subdirectory{"config", "warning", fs::getKavraConfigDir, fs::kavraConfigDir},
                    Subdirectory{"output", "error", fs::getKavraOutputDir, fs::kavraOutputDir},
                    Subdirectory{"preview", "error", fs::getKavraPreviewDir, fs::kavraPreviewDir}),
    [](const testing::TestParamInfo<Subdirectory>& one) { return std::string(one.param.name); });

TEST_F(FailingCallsAtHome, KavraNodeHelpPath) {
  const ScopedEnv userDir("KAVRA_USER_DIR", "user");
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            tmp.mkdir("home");
            tmp.mkdir("user");
          },
      .call = calling([] { return fs::kavraNodeHelpPath(/*asUrl=*/true); }),
      .clean = {.result = "file://user/nodehelp.html", .disk = {"home/", "user/"}},
      .rules = {{"stat user",
                 {.result = "file://{tmp}/home/kavra/nodehelp.html",
                  .error = "0 mkDir: ",
                  .disk = {"home/", "home/kavra/", "user/"}}}},
  });
}

// ---- Resolving file references -----------------------------------------------------------------

TEST(FailingCalls, ResolvePath) {
  const std::vector<std::string> disk = {"d1/", "d2/", "d2/tex/", "d2/tex/wood.png: text"};
  const Outcome clean = {.result = "{tmp}/d2/tex/wood.png", .disk = disk};
  const Outcome nothing = {.result = "", .disk = disk};
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            tmp.mkdir("d1");
            tmp.write("d2/tex/wood.png", "text");
          },
      .call = calling([] {
        return fs::resolvePath("tex/wood.png", {"d1", "d2"}, {"tx"});
      }),
      .clean = clean,
      .rules =
          {
              // Candidates that are missing anyway
              {"stat tex/wood.png", clean},
              {"stat d1*", clean},
              {"stat d2#1", clean},
              {"stat d2/wood.png", clean},
              // The one that is there
              {"stat d2/tex", nothing},
              {"stat d2/tex/wood.png", nothing},
              {"realpath d2/tex/wood.png", clean},
          },
  });
}

TEST(FailingCalls, ResolvePathThatStandsAsItIs) {
  const Outcome clean = {.result = "{tmp}/wood.png", .disk = {"wood.png: text"}};
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.write("wood.png", "text"); },
      .call = calling([] { return fs::resolvePath("wood.png", {}, {}); }),
      .clean = clean,
      .rules = {{"stat wood.png", {.result = "", .disk = clean.disk}}, {"realpath*", clean}},
      .calls = {"stat wood.png", "realpath wood.png"},
  });
}

TEST(FailingCalls, ResolvePathOfAWildcard) {
  const std::vector<std::string> disk = {"d1/", "d1/wood.jpg: text", "tex/", "tex/wood.jpg: text"};
  const Outcome clean = {.result = "{tmp}/tex/wood.jpg", .disk = disk};
  // The search directory comes second.
  const Outcome second = {.result = "{tmp}/d1/wood.jpg", .disk = disk};
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            tmp.write("tex/wood.jpg", "text");
            tmp.write("d1/wood.jpg", "text");
          },
      .call = calling([] {
        return fs::resolvePath("tex/wood.*", {"d1"}, {"png", "jpg"});
      }),
      .clean = clean,
      .rules =
          {
              {"stat tex/wood.*#1", clean},  // the reference's directory
              {"stat tex#1", clean},
              {"stat tex/wood.png", clean},
              {"stat d1*", clean},
              {"stat tex#2", second},
              {"stat tex/wood.jpg", second},
              {"realpath*", clean},
          },
  });
}

// ---- Dialogs -----------------------------------------------------------------------------------

/// The call of a dialog whose user answers `answer`.
template <class Function>
ScenarioCall answering(const std::string& answer, Function function) {
  return [answer, function](CallWatch& watch) {
    watch.answerDialogs(answer);
    return calling(function)(watch);
  };
}

TEST(FailingCalls, BrowseFile) {
  checkEveryFailure({
      .call = answering("/a/b",
                        [] {
                          return fs::browseFile("T", "", "Images", {"png", ".jpg"});
                        }),
      .clean = {.result = "/a/b"},
      .rules = {{"tinyfd_openFileDialog T", {.result = ""}}},
      .calls = {"tinyfd_openFileDialog T"},
  });
}

TEST(FailingCalls, BrowseFiles) {
  checkEveryFailure({
      .call = answering("/a|/b", [] { return fs::browseFiles("T", "", "Images", {"*"}); }),
      .clean = {.result = "/a, /b"},
      .rules = {{"tinyfd_openFileDialog T", {.result = ""}}},
      .calls = {"tinyfd_openFileDialog T"},
  });
}

TEST(FailingCalls, BrowseDir) {
  checkEveryFailure({
      .call = answering("/a", [] { return fs::browseDir("T", ""); }),
      .clean = {.result = "/a"},
      .rules = {{"tinyfd_selectFolderDialog T", {.result = ""}}},
      .calls = {"tinyfd_selectFolderDialog T"},
  });
}

TEST(FailingCalls, SaveFile) {
  checkEveryFailure({
      .call = answering("/a", [] { return fs::saveFile("T", "", "", {}); }),
      .clean = {.result = "/a"},
      .rules = {{"tinyfd_saveFileDialog T", {.result = ""}}},
      .calls = {"tinyfd_saveFileDialog T"},
  });
}

// ---- The core ----------------------------------------------------------------------------------

TEST(FailingCalls, PathCanonical) {
  const std::vector<std::string> disk = {"link -> real", "real/", "real/a/"};
  const Outcome clean = {.result = "{tmp}/real/a/x/y", .disk = disk};
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            tmp.mkdir("real/a");
            tmp.link("link", "real");
          },
      .call = calling([] { return Path("link/a/x/y", /*normalizeFirst=*/true).canonical(); }),
      .clean = clean,
      .rules =
          {
              {"realpath link/a/x/y", clean},
              // A shorter prefix that exists leads to the same place.
              {"stat link/a", clean},
              {"stat link/a/x", clean},
              {"realpath link/a", {.result = "{tmp}/link/a/x/y", .disk = disk}},
          },
  });
}

TEST(FailingCalls, LogErrorToStandardError) {
  checkEveryFailure({
      .call =
          [](CallWatch& watch) {
            LogSink sink = setLogSink({});
            logError("a line that a test writes");
            watch.stop();
            setLogSink(std::move(sink));
            return std::string("returns");
          },
      .clean = {.result = "returns"},
      // Failures to write are swallowed.
      .rules = {{"fwrite", {.result = "returns"}}},
      .calls = {"fwrite"},
  });
}

}  // namespace
}  // namespace vx::test
