// The resolver, the dialogs and what else asks the system, with each of their calls failing once.

#include "core/vx_log.h"
#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tests/faults/scenario.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

namespace vx::test {
namespace {

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
