// The dialogs and what else asks the system, with each of their calls failing once.

#include "core/vx_log.h"
#include "fs/vx_fs.h"
#include "tests/faults/scenario.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

namespace vx::test {
namespace {

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
