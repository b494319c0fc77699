// SPDX-License-Identifier: MIT
//
// browseFile, browseFiles, browseDir and saveFile: what they ask of the dialog library, and what
// they make of its answers.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/failures.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

/// The dialog library's switch, which it has only on some systems.
extern "C" int tinyfd_winUtf8;

namespace vx::test {
namespace {

/// No dialog logs anything or changes the current error.
class Dialogs : public SilentFsTest {
 protected:
  Calls calls;
};

class BrowseFile : public Dialogs {};
class BrowseFiles : public Dialogs {};
class BrowseDir : public Dialogs {};
class SaveFile : public Dialogs {};

TEST(DialogText, IsUtf8BeforeTheFirstDialog) {
  EXPECT_EQ(tinyfd_winUtf8, 1);
}

// ---------------------------------------------------------------------------------------------
// The arguments of each dialog

TEST_F(BrowseFile, OpensADialogForOneFile) {
  calls.answer("tinyfd_openFileDialog", "/d/a.png");

  EXPECT_EQ(fs::browseFile("Pick one", "/d/", "Images", {"png", ".jpg", "*.exr"}), "/d/a.png");

  EXPECT_EQ(calls.all(), lines("tinyfd_openFileDialog <Pick one> </d/> 3 <*.png> <*.jpg> <*.exr> "
                               "<Images (png, .jpg, *.exr)> 0"));
}

TEST_F(BrowseFiles, OpensADialogForSeveralFiles) {
  calls.answer("tinyfd_openFileDialog", "/d/c.png|/d/a.png|/d/b.jpg");

  EXPECT_EQ(texts(fs::browseFiles("Pick some", "/d/", "Images", {"png", ".jpg"})),
            lines("/d/c.png", "/d/a.png", "/d/b.jpg"));

  EXPECT_EQ(calls.all(), lines("tinyfd_openFileDialog <Pick some> </d/> 2 <*.png> <*.jpg> "
                               "<Images (png, .jpg)> 1"));
}

TEST_F(BrowseDir, OpensAFolderDialog) {
  calls.answer("tinyfd_selectFolderDialog", "/d");

  EXPECT_EQ(fs::browseDir("Pick a folder", "/home/"), "/d");

  EXPECT_EQ(calls.all(), lines("tinyfd_selectFolderDialog <Pick a folder> </home/>"));
}

TEST_F(SaveFile, OpensADialogForANewName) {
  calls.answer("tinyfd_saveFileDialog", "/d/new.png");

  EXPECT_EQ(fs::saveFile("Save as", "/d/new.png", "Images", {"png", "*.exr"}), "/d/new.png");

  EXPECT_EQ(calls.all(), lines("tinyfd_saveFileDialog <Save as> </d/new.png> 2 <*.png> <*.exr> "
                               "<Images (png, *.exr)>"));
}

TEST_F(Dialogs, PassesEmptyTextsAndNoArrayWithoutFilters) {
  EXPECT_EQ(fs::browseFile("", "", "", {}), "");
  EXPECT_EQ(texts(fs::browseFiles("", "", "", {})), lines());
  EXPECT_EQ(fs::browseDir("", ""), "");
  EXPECT_EQ(fs::saveFile("", "", "", {}), "");

  EXPECT_EQ(calls.all(),
            lines("tinyfd_openFileDialog <> <> 0 null <> 0",
                  "tinyfd_openFileDialog <> <> 0 null <> 1",  //
                  "tinyfd_selectFolderDialog <> <>", "tinyfd_saveFileDialog <> <> 0 null <>"));
}

TEST(DialogText, IsPassedUnchanged) {
  for (const std::string& text :
       {std::string(" it's \"$HOME\" `x`; \\ \n\t| Bäume \xF0\x9F\x8C\xB2 "),
        std::string(5000, 'x')}) {
    SCOPED_TRACE(text);
    const std::string shown = "<" + text + ">";
    Calls calls;

    EXPECT_EQ(fs::browseFile(vxText(text), vxText(text), vxText(text), {}), "");
    EXPECT_EQ(fs::browseDir(vxText(text), vxText(text)), "");
    EXPECT_EQ(fs::saveFile(vxText(text), vxText(text), vxText(text), {vxText(text)}), "");

    EXPECT_EQ(calls.all(),
              lines("tinyfd_openFileDialog " + shown + " " + shown + " 0 null " + shown + " 0",
                    "tinyfd_selectFolderDialog " + shown + " " + shown,
                    "tinyfd_saveFileDialog " + shown + " " + shown + " 1 <*." + text + "> <" +
                        text + " (" + text + ")>"));
  }
}

// ---------------------------------------------------------------------------------------------
// Filters

TEST_F(BrowseFile, MakesAPatternOfEachFilter) {
  struct Row {
    const char* filter;
    const char* arguments;  ///< the number of patterns, the patterns and the description
  };
  const Row rows[] = {
      {"png", "1 <*.png> <D (png)>"},
      {".png", "1 <*.png> <D (.png)>"},
      {"*.png", "1 <*.png> <D (*.png)>"},
      {"*", "1 <*> <D (*)>"},
      {"*_color.png", "1 <*_color.png> <D (*_color.png)>"},
      {"**", "1 <**> <D (**)>"},
      {"", "1 <*.> <D ()>"},
      {".", "1 <*.> <D (.)>"},
      {"..png", "1 <*..png> <D (..png)>"},
      {"tar.gz", "1 <*.tar.gz> <D (tar.gz)>"},
      {"p*g", "1 <*.p*g> <D (p*g)>"},
      {" *.png", "1 <*. *.png> <D ( *.png)>"},
      {"PNG", "1 <*.PNG> <D (PNG)>"},
      {"?.png", "1 <*.?.png> <D (?.png)>"},
      {"bäume", "1 <*.bäume> <D (bäume)>"},
  };
  std::vector<std::string> expected;
  for (const Row& row : rows) {
    EXPECT_EQ(fs::browseFile("T", "/", "D", {row.filter}), "");
    expected.push_back(std::string("tinyfd_openFileDialog <T> </> ") + row.arguments + " 0");
  }

  EXPECT_EQ(calls.all(), expected);
}

TEST_F(Dialogs, KeepsOrderAndDuplicatesOfFilters) {
  const StringVector filters = {"z", ".a", "*.z", "", "z", "*"};

  EXPECT_EQ(fs::browseFile("", "", "", filters), "");
  EXPECT_EQ(texts(fs::browseFiles("", "", "", filters)), lines());
  EXPECT_EQ(fs::saveFile("", "", "", filters), "");

  EXPECT_EQ(calls.all(), lines("tinyfd_openFileDialog <> <> 6 <*.z> <*.a> <*.z> <*.> <*.z> <*> "
                               "< (z, .a, *.z, , z, *)> 0",
                               "tinyfd_openFileDialog <> <> 6 <*.z> <*.a> <*.z> <*.> <*.z> <*> "
                               "< (z, .a, *.z, , z, *)> 1",
                               "tinyfd_saveFileDialog <> <> 6 <*.z> <*.a> <*.z> <*.> <*.z> <*> "
                               "< (z, .a, *.z, , z, *)>"));
}

TEST_F(BrowseFile, KeepsThePatternsWhileTheDialogIsOpen) {
  std::vector<String> noise;
  calls.onCall("tinyfd_openFileDialog", [&noise] {
    // These take the place of memory that has been freed too early.
    for (int i = 0; i < 100; ++i) {
      noise.push_back(vxText("noise" + std::to_string(i)));
    }
  });

  EXPECT_EQ(fs::browseFile("T", "/", "D", {"first", "second", "third"}), "");

  EXPECT_EQ(calls.all(), lines("tinyfd_openFileDialog <T> </> 3 <*.first> <*.second> <*.third> "
                               "<D (first, second, third)> 0"));
}

TEST(DialogPatterns, AreFreedForAnyNumberOfFilters) {
  for (int count = 0; count <= 20; ++count) {
    SCOPED_TRACE(count);
    forEachFailure([&](FailureRun& run) {
      StringVector filters;
      std::string patterns = count == 0 ? " null" : "";
      for (int i = 0; i < count; ++i) {
        filters.push_back(vxText("e" + std::to_string(i)));
        patterns += " <*.e" + std::to_string(i) + ">";
      }

      run.act([&] {
        EXPECT_TRUE(fs::browseFile("", "", "", filters).isEmpty());
        EXPECT_TRUE(fs::browseFiles("", "", "", filters).empty());
        EXPECT_TRUE(fs::saveFile("", "", "", filters).isEmpty());
        EXPECT_TRUE(fs::browseDir("", "").isEmpty());
      });

      const std::string arguments = " <> <> " + std::to_string(count) + patterns;
      EXPECT_EQ(run.calls.count("tinyfd_openFileDialog" + arguments), 2U);
      EXPECT_EQ(run.calls.count("tinyfd_saveFileDialog" + arguments), 1U);
      run.expectSilence();
    });
  }
}

// ---------------------------------------------------------------------------------------------
// Answers

TEST(DialogAnswer, IsSplitAtEachBar) {
  struct Row {
    const char* answer;
    std::vector<std::string> files;
    const char* first;
  };
  const Row rows[] = {
      {"", {}, ""},
      {"/d/a.png", {"/d/a.png"}, "/d/a.png"},
      {"/d/c|/d/a|/d/b", {"/d/c", "/d/a", "/d/b"}, "/d/c"},
      {"/d/a|/d/a", {"/d/a", "/d/a"}, "/d/a"},
      {"/d/a||/d/b", {"/d/a", "/d/b"}, "/d/a"},
      {"|/d/a|/d/b", {"/d/a", "/d/b"}, "/d/a"},
      {"/d/a|/d/b|", {"/d/a", "/d/b"}, "/d/a"},
      {"|||", {}, ""},
      {" /d/a | /d/b ", {" /d/a ", " /d/b "}, " /d/a "},
      {"/d/a| |/d/b", {"/d/a", " ", "/d/b"}, "/d/a"},
      {"/d/a\n|\t/d/b", {"/d/a\n", "\t/d/b"}, "/d/a\n"},
      {"C:\\a.png|C:\\b", {"C:\\a.png", "C:\\b"}, "C:\\a.png"},
      {"/d/Dämmerung.jpg|/d/夕方", {"/d/Dämmerung.jpg", "/d/夕方"}, "/d/Dämmerung.jpg"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.answer);
    Calls calls;
    calls.answer("", row.answer);

    EXPECT_EQ(texts(fs::browseFiles("", "", "", {})), row.files);
    EXPECT_EQ(fs::browseFile("", "", "", {}), row.first);
    EXPECT_EQ(fs::browseDir("", ""), row.first);
    EXPECT_EQ(fs::saveFile("", "", "", {}), row.first);
  }
}

// All answers are in the same memory of the dialog library.
TEST_F(Dialogs, CopiesTheAnswer) {
  calls.answer("tinyfd_openFileDialog <several>", "/d/first|/d/second");
  calls.answer("tinyfd_openFileDialog <one>", "/d/third");
  calls.answer("tinyfd_selectFolderDialog <folder>", "/d/fourth");
  calls.answer("tinyfd_saveFileDialog <new>", "/d/fifth");
  const StringVector files = fs::browseFiles("several", "", "", {});
  const String file = fs::browseFile("one", "", "", {});
  const String directory = fs::browseDir("folder", "");
  const String saved = fs::saveFile("new", "", "", {});
  calls.answer("tinyfd_selectFolderDialog", "/other/directory");

  EXPECT_EQ(fs::browseDir("another", ""), "/other/directory");

  EXPECT_EQ(texts(files), lines("/d/first", "/d/second"));
  EXPECT_EQ(file, "/d/third");
  EXPECT_EQ(directory, "/d/fourth");
  EXPECT_EQ(saved, "/d/fifth");
}

TEST_F(Dialogs, KeepsNothingForTheNextDialog) {
  calls.answer("tinyfd_openFileDialog <first>", "/d/a|/d/b");
  EXPECT_EQ(texts(fs::browseFiles("first", "/", "Images", {"png", "jpg", "exr"})),
            lines("/d/a", "/d/b"));

  EXPECT_EQ(texts(fs::browseFiles("second", "", "", {})), lines());
  EXPECT_EQ(fs::browseFile("third", "", "", {}), "");

  EXPECT_EQ(calls.all("tinyfd_openFileDialog <second>"),
            lines("tinyfd_openFileDialog <second> <> 0 null <> 1"));
  EXPECT_EQ(calls.all("tinyfd_openFileDialog <third>"),
            lines("tinyfd_openFileDialog <third> <> 0 null <> 0"));
}

}  // namespace
}  // namespace vx::test
