// SPDX-License-Identifier: MIT
//
// The dialogs through the dialog library, down to the command line of zenity and its answer.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/dialog_program.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <string>
#include <vector>

#include <unistd.h>

/// The dialog library's switch, defined here as where the library has it.
extern "C" int tinyfd_winUtf8;
int tinyfd_winUtf8 = 0;

namespace vx::test {
namespace {

constexpr unsigned kTimeLimitSeconds = 30;

class Zenity : public SilentFsTest {
 protected:
  Zenity() {
    // Without a dialog program the library would ask the terminal, and wait.
    EXPECT_NE(std::freopen("/dev/null", "r", stdin), nullptr);
    ::alarm(kTimeLimitSeconds);
  }
  ~Zenity() override { ::alarm(0); }

  const DialogProgram zenity;
};

TEST(DialogText, IsUtf8WhereTheLibraryHasTheSwitch) {
  EXPECT_EQ(tinyfd_winUtf8, 1);
}

TEST_F(Zenity, PicksOneFile) {
  const std::string file = tmp.write("a.png", "");
  zenity.answer(file);

  const String chosen =
      fs::browseFile("Pick one", vxText(file), "Images", {"png", ".jpg", "*.exr"});

  EXPECT_EQ(text(chosen), file);
  EXPECT_EQ(zenity.arguments(), lines("--file-selection", "--title=Pick one", "--filename=" + file,
                                      "--file-filter=Images (png, .jpg, *.exr) | *.png *.jpg *.exr",
                                      "--file-filter=All files | *"));
}

TEST_F(Zenity, PicksSeveralFilesInTheOrderOfTheAnswer) {
  const std::string c = tmp.write("c.png", "");
  const std::string a = tmp.write("a glow.png", "");
  const std::string b = tmp.write("Dämmerung.jpg", "");
  zenity.answer(c + "|" + a + "|" + b);

  const StringVector chosen =
      fs::browseFiles("Pick some", vxText(tmp.path() + "/"), "Images", {"png"});

  EXPECT_EQ(texts(chosen), lines(c, a, b));
  EXPECT_EQ(
      zenity.arguments(),
      lines("--file-selection", "--multiple", "--title=Pick some", "--filename=" + tmp.path() + "/",
            "--file-filter=Images (png) | *.png", "--file-filter=All files | *"));
}

TEST_F(Zenity, PicksADirectory) {
  const std::string directory = tmp.mkdir("Bilder 2");
  zenity.answer(directory);

  EXPECT_EQ(text(fs::browseDir("Pick a folder", vxText(tmp.path() + "/"))), directory);

  EXPECT_EQ(zenity.arguments(), lines("--file-selection", "--directory", "--title=Pick a folder",
                                      "--filename=" + tmp.path() + "/"));
}

TEST_F(Zenity, ChoosesANewName) {
  const std::string file = tmp.path("new.png");
  zenity.answer(file);

  EXPECT_EQ(text(fs::saveFile("Save as", vxText(file), "Images", {"png", "exr"})), file);

  EXPECT_EQ(zenity.arguments(),
            lines("--file-selection", "--save", "--confirm-overwrite", "--title=Save as",
                  "--filename=" + file, "--file-filter=Images (png, exr) | *.png *.exr",
                  "--file-filter=All files | *"));
  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(Zenity, ReturnsNothingWhenCancelled) {
  EXPECT_EQ(fs::browseFile("T", "", "Images", {"png"}), "");
  EXPECT_EQ(zenity.arguments(),
            lines("--file-selection", "--title=T", "--file-filter=Images (png) | *.png",
                  "--file-filter=All files | *"));
  EXPECT_EQ(texts(fs::browseFiles("T", "", "", {})), lines());
  EXPECT_EQ(zenity.arguments(), lines("--file-selection", "--multiple", "--title=T"));
  EXPECT_EQ(fs::browseDir("T", ""), "");
  EXPECT_EQ(zenity.arguments(), lines("--file-selection", "--directory", "--title=T"));
  EXPECT_EQ(fs::saveFile("T", "", "", {}), "");
  EXPECT_EQ(zenity.arguments(),
            lines("--file-selection", "--save", "--confirm-overwrite", "--title=T"));
}

// ---------------------------------------------------------------------------------------------
// Answers that the dialog library does not take

TEST_F(Zenity, ReturnsNothingThatIsMissing) {
  zenity.answer(tmp.path("missing"));

  EXPECT_EQ(fs::browseFile("T", "", "", {}), "");
  EXPECT_EQ(fs::browseDir("T", ""), "");
}

TEST_F(Zenity, LeavesMissingFilesOut) {
  const std::string a = tmp.write("a.png", "");
  const std::string c = tmp.write("c.png", "");
  zenity.answer(tmp.path("missing") + "|" + a + "|" + tmp.path("b.png") + "|" + c + "|" +
                tmp.path("gone"));

  EXPECT_EQ(texts(fs::browseFiles("T", "", "", {})), lines(a, c));
}

TEST_F(Zenity, ChoosesNoNameThatNotEverySystemTakes) {
  for (const char* const name :
       {"missing/new.png", "a\\b", "a:b", "a*b", "a?b", "a\"b", "a<b", "a>b"}) {
    zenity.answer(tmp.path(name));

    EXPECT_EQ(fs::saveFile("T", "", "", {}), "") << name;
  }
}

// ---------------------------------------------------------------------------------------------
// Texts

TEST_F(Zenity, ShowsUtf8) {
  const std::string file = tmp.write("Bäume/夕方.jpg", "");
  zenity.answer(file);

  const String chosen =
      fs::browseFile("Öffnen – 開く 🌲", vxText(file), "Bilder für Räume", {"jpg"});

  EXPECT_EQ(text(chosen), file);
  EXPECT_EQ(zenity.arguments(),
            lines("--file-selection", "--title=Öffnen – 開く 🌲", "--filename=" + file,
                  "--file-filter=Bilder für Räume (jpg) | *.jpg", "--file-filter=All files | *"));
}

TEST_F(Zenity, ShowsTitleDescriptionAndFiltersAsTheyAre) {
  struct Row {
    const char* title;
    const char* description;
    StringVector filters;
    std::vector<std::string> arguments;  // after the kind of dialog
  };
  const char* const punctuation = "a;b & c | d < e > f ! (g) * ? #h\n%s ~";
  const Row rows[] = {
      {"T",
       "Maps",
       {"*", "", ".png", "*_color.png", "png"},
       {"--title=T",
        "--file-filter=Maps (*, , .png, *_color.png, png) | * *. *.png *_color.png *.png",
        "--file-filter=All files | *"}},
      {"T", "Images", {}, {"--title=T"}},
      {"T",
       "",
       {"png"},
       {"--title=T", "--file-filter= (png) | *.png", "--file-filter=All files | *"}},
      {"", "", {}, {"--title="}},
      {punctuation, "", {}, {std::string("--title=") + punctuation}},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(fs::browseFile(row.title, "", row.description, row.filters), "");

    std::vector<std::string> expected = {"--file-selection"};
    expected.insert(expected.end(), row.arguments.begin(), row.arguments.end());
    EXPECT_EQ(zenity.arguments(), expected);
  }
}

TEST_F(Zenity, ShowsANoticeForTextsWithQuotes) {
  EXPECT_EQ(fs::browseFile("it's", "/a\"b", "`c`", {"png"}), "");

  EXPECT_EQ(zenity.arguments(),
            lines("--file-selection", "--title=INVALID TITLE WITH QUOTES",
                  "--filename=INVALID DEFAULT_PATH WITH QUOTES",
                  "--file-filter=INVALID FILTER_DESCRIPTION WITH QUOTES | *.png",
                  "--file-filter=All files | *"));
}

}  // namespace
}  // namespace vx::test
