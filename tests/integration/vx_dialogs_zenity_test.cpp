// The dialogs through the dialog library itself, down to the command that it runs: a script in
// place of zenity notes the command line and answers.

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <unistd.h>

using vx::String;
using vx::StringVector;
using vx::fs::browseDir;
using vx::fs::browseFile;
using vx::fs::browseFiles;
using vx::fs::saveFile;
using vx::test::ErrorStateSentinel;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::ScopedEnv;
using vx::test::TempDir;
using vx::test::texts;
using vx::test::vxText;

/// The dialog library's switch, which it has only on some systems.
extern "C" int tinyfd_winUtf8;

namespace {

constexpr unsigned kTimeLimitSeconds = 30;

std::string pathWithStandIn() {
  const char* const path = std::getenv("PATH");
  return std::string(VX_STAND_INS) + ":" + (path == nullptr ? "/usr/bin:/bin" : path);
}

/// The library looks for its dialog program once in a process; every test here wants it to find the
/// same one.
class ZenityDialog : public testing::Test {
 protected:
  ZenityDialog() {
    // Without a dialog program the library would ask the terminal, and wait.
    EXPECT_NE(std::freopen("/dev/null", "r", stdin), nullptr);
    ::alarm(kTimeLimitSeconds);
  }
  ~ZenityDialog() override { ::alarm(0); }

  /// What zenity prints at the next dialog; before the first call, every dialog is cancelled.
  void answer(const std::string& line) const { tmp().write("answer", line + "\n"); }

  /// The command line of the last dialog; none when no dialog was opened.
  [[nodiscard]] std::vector<std::string> arguments() const {
    std::vector<std::string> list;
    std::string argument;
    for (const char byte : tmp().exists("arguments") ? tmp().read("arguments") : "") {
      if (byte == '\0') {
        list.push_back(argument);
        argument.clear();
      } else {
        argument += byte;
      }
    }
    return list;
  }

  [[nodiscard]] const TempDir& tmp() const noexcept { return tmp_; }

 private:
  TempDir tmp_;
  ScopedEnv path_{"PATH", pathWithStandIn()};
  ScopedEnv display_{"DISPLAY", ":0"};
  ScopedEnv remote_{"SSH_TTY", "none"};  // a dialog of its own, not one attached to a window
  ScopedEnv desktop_{"XDG_SESSION_DESKTOP", nullptr};
  ScopedEnv argumentsFile_{"ZENITY_ARGUMENTS", tmp().path("arguments")};
  ScopedEnv answerFile_{"ZENITY_ANSWER", tmp().path("answer")};
};

}  // namespace

TEST(DialogText, IsDeclaredUtf8WhetherOrNotTheLibraryHasTheSwitch) {
  EXPECT_EQ(tinyfd_winUtf8, 1);
}

// ---- One dialog of each kind ----------------------------------------------------------------

TEST_F(ZenityDialog, PicksOneFile) {
  const std::string file = tmp().write("a.png", "");
  answer(file);

  const String chosen = browseFile("Pick one", vxText(file), "Images", {"png", ".jpg", "*.exr"});

  EXPECT_EQ(chosen.view(), file);
  EXPECT_EQ(arguments(), lines("--file-selection", "--title=Pick one", "--filename=" + file,
                               "--file-filter=Images (png, .jpg, *.exr) | *.png *.jpg *.exr",
                               "--file-filter=All files | *"));
}

TEST_F(ZenityDialog, PicksSeveralFilesInTheOrderOfTheAnswer) {
  const std::string c = tmp().write("c.png", "");
  const std::string a = tmp().write("a glow.png", "");
  const std::string b = tmp().write("Dämmerung.jpg", "");
  answer(c + "|" + a + "|" + b);

  const StringVector chosen =
      browseFiles("Pick some", vxText(tmp().path() + "/"), "Images", {"png"});

  EXPECT_EQ(texts(chosen), lines(c, a, b));
  EXPECT_EQ(arguments(),
            lines("--file-selection", "--multiple", "--title=Pick some",
                  "--filename=" + tmp().path() + "/", "--file-filter=Images (png) | *.png",
                  "--file-filter=All files | *"));
}

TEST_F(ZenityDialog, PicksOneFileOfSeveralAllowed) {
  const std::string file = tmp().write("a.png", "");
  answer(file);

  EXPECT_EQ(texts(browseFiles("Pick some", "", "", {})), lines(file));
}

TEST_F(ZenityDialog, PicksAFolder) {
  const std::string folder = tmp().mkdir("Bilder 2");
  answer(folder);

  const String chosen = browseDir("Pick a folder", vxText(tmp().path() + "/"));

  EXPECT_EQ(chosen.view(), folder);
  EXPECT_EQ(arguments(), lines("--file-selection", "--directory", "--title=Pick a folder",
                               "--filename=" + tmp().path() + "/"));
}

TEST_F(ZenityDialog, ChoosesANameToSaveTo) {
  const std::string file = tmp().path("new.png");
  answer(file);

  const String chosen = saveFile("Save as", vxText(file), "Images", {"png", "exr"});

  EXPECT_EQ(chosen.view(), file);
  EXPECT_EQ(arguments(),
            lines("--file-selection", "--save", "--confirm-overwrite", "--title=Save as",
                  "--filename=" + file, "--file-filter=Images (png, exr) | *.png *.exr",
                  "--file-filter=All files | *"));
  EXPECT_FALSE(tmp().exists("new.png"));
}

TEST_F(ZenityDialog, ChoosesAFileToSaveOver) {
  const std::string file = tmp().write("old.png", "text");
  answer(file);

  EXPECT_EQ(saveFile("Save as", vxText(file), "", {}).view(), file);

  EXPECT_EQ(tmp().read("old.png"), "text");
}

// ---- Answers that the library does not take ---------------------------------------------------

TEST_F(ZenityDialog, PicksNoFileThatCannotBeRead) {
  answer(tmp().path("missing.png"));

  EXPECT_EQ(browseFile("Pick one", "", "", {}), "");
}

TEST_F(ZenityDialog, LeavesOutThoseOfSeveralFilesThatCannotBeRead) {
  const std::string a = tmp().write("a.png", "");
  const std::string c = tmp().write("c.png", "");
  answer(tmp().path("missing") + "|" + a + "|" + tmp().path("b.png") + "|" + c + "|" +
         tmp().path("gone"));

  EXPECT_EQ(texts(browseFiles("Pick some", "", "", {})), lines(a, c));
}

TEST_F(ZenityDialog, PicksNoFolderThatIsMissing) {
  answer(tmp().path("missing"));

  EXPECT_EQ(browseDir("Pick a folder", ""), "");
}

TEST_F(ZenityDialog, ChoosesNoNameInAMissingDirectory) {
  answer(tmp().path("missing/new.png"));

  EXPECT_EQ(saveFile("Save as", "", "", {}), "");
}

TEST_F(ZenityDialog, ChoosesNoNameWithACharacterThatNotEverySystemTakes) {
  for (const char* const name : {"a\\b", "a:b", "a*b", "a?b", "a\"b", "a<b", "a>b"}) {
    answer(tmp().path(name));

    EXPECT_EQ(saveFile("Save as", "", "", {}), "") << name;
  }
}

// ---- Cancel ---------------------------------------------------------------------------------

TEST_F(ZenityDialog, CancelledPicksNoFile) {
  EXPECT_EQ(browseFile("Pick one", "", "Images", {"png"}), "");

  EXPECT_EQ(arguments(),
            lines("--file-selection", "--title=Pick one", "--file-filter=Images (png) | *.png",
                  "--file-filter=All files | *"));
}

TEST_F(ZenityDialog, CancelledPicksNoFiles) {
  EXPECT_EQ(texts(browseFiles("Pick some", "", "", {})), lines());

  EXPECT_EQ(arguments(), lines("--file-selection", "--multiple", "--title=Pick some"));
}

TEST_F(ZenityDialog, CancelledPicksNoFolder) {
  EXPECT_EQ(browseDir("Pick a folder", ""), "");

  EXPECT_EQ(arguments(), lines("--file-selection", "--directory", "--title=Pick a folder"));
}

TEST_F(ZenityDialog, CancelledChoosesNoName) {
  EXPECT_EQ(saveFile("Save as", "", "", {}), "");

  EXPECT_EQ(arguments(),
            lines("--file-selection", "--save", "--confirm-overwrite", "--title=Save as"));
}

TEST_F(ZenityDialog, IsSilentAboutChoiceAndCancel) {
  const LogCapture log;
  const ErrorStateSentinel sentinel;

  EXPECT_EQ(browseFile("Pick one", "", "", {}), "");
  answer(tmp().write("a.png", ""));
  EXPECT_EQ(browseFile("Pick one", "", "", {}).view(), tmp().path("a.png"));

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

// ---- What the texts become ------------------------------------------------------------------

TEST_F(ZenityDialog, ShowsUtf8) {
  const std::string file = tmp().write("Bäume/夕方.jpg", "");
  answer(file);

  const String chosen = browseFile("Öffnen – 開く 🌲", vxText(file), "Bilder für Räume", {"jpg"});

  EXPECT_EQ(chosen.view(), file);
  EXPECT_EQ(arguments(),
            lines("--file-selection", "--title=Öffnen – 開く 🌲", "--filename=" + file,
                  "--file-filter=Bilder für Räume (jpg) | *.jpg", "--file-filter=All files | *"));
}

TEST_F(ZenityDialog, OffersEveryFormOfFilter) {
  EXPECT_EQ(browseFile("T", "", "Maps", {"*", "", ".png", "*_color.png", "png"}), "");

  EXPECT_EQ(arguments(),
            lines("--file-selection", "--title=T",
                  "--file-filter=Maps (*, , .png, *_color.png, png) | * *. *.png *_color.png *.png",
                  "--file-filter=All files | *"));
}

TEST_F(ZenityDialog, WithoutFiltersShowsNoDescription) {
  EXPECT_EQ(browseFile("T", "", "Images", {}), "");

  EXPECT_EQ(arguments(), lines("--file-selection", "--title=T"));
}

TEST_F(ZenityDialog, WithoutDescriptionNamesTheFilters) {
  EXPECT_EQ(saveFile("T", "", "", {"png"}), "");

  EXPECT_EQ(arguments(), lines("--file-selection", "--save", "--confirm-overwrite", "--title=T",
                               "--file-filter= (png) | *.png", "--file-filter=All files | *"));
}

TEST_F(ZenityDialog, WithoutTitleHasAnEmptyOne) {
  EXPECT_EQ(browseFile("", "", "", {}), "");

  EXPECT_EQ(arguments(), lines("--file-selection", "--title="));
}

TEST_F(ZenityDialog, KeepsShellPunctuationInTexts) {
  const std::string title = "a;b & c | d < e > f ! (g) * ? #h\n%s ~";

  EXPECT_EQ(browseFile(vxText(title), "", "", {}), "");

  EXPECT_EQ(arguments(), lines("--file-selection", "--title=" + title));
}

TEST_F(ZenityDialog, ReplacesTextsWithQuotesByANotice) {
  EXPECT_EQ(browseFile("it's", "/a\"b", "`c`", {"png"}), "");

  EXPECT_EQ(arguments(), lines("--file-selection", "--title=INVALID TITLE WITH QUOTES",
                               "--filename=INVALID DEFAULT_PATH WITH QUOTES",
                               "--file-filter=INVALID FILTER_DESCRIPTION WITH QUOTES | *.png",
                               "--file-filter=All files | *"));
}
