// SPDX-License-Identifier: MIT
//
// resolvePath, which never reports anything.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/failures.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <type_traits>
#include <vector>

namespace vx::test {
namespace {

// Not the overload that is private to the module.
static_assert(
    std::is_same_v<decltype(&fs::resolvePath), String (*)(String, StringVector, StringVector)>);

using Names = std::vector<std::string>;

/// A reference, the entries that exist, and the files that it means: the first of `found` is the
/// result, the second is the result after the first has been removed, and so on to the end. An
/// entry that ends in "/" is a directory.
struct Case {
  const char* reference;
  StringVector searchDirs;
  StringVector extensions;
  Names entries;
  Names found;
};

void check(const Case& test) {
  SCOPED_TRACE(test.reference);
  const Sandbox own;
  for (const std::string& entry : test.entries) {
    entry.ends_with('/') ? own.tmp.mkdir(entry) : own.tmp.write(entry, "");
  }
  const auto resolved = [&] {
    return text(fs::resolvePath(test.reference, test.searchDirs, test.extensions));
  };
  for (const std::string& file : test.found) {
    EXPECT_EQ(resolved(), own.tmp.path(file));
    std::filesystem::remove(file);
  }
  EXPECT_EQ(resolved(), "");
  own.expectSilence();
}

class ResolvePath : public SilentFsTest {};

// ---------------------------------------------------------------------------------------------
// The order of the candidates

TEST_F(ResolvePath, TriesTheOwnDirectoryBeforeEachSearchDirectory) {
  check({"tex/wood.*",
         {"d1", "d2"},
         {"e1", "e2"},
         {"tex/wood.e1", "tex/wood.e2", "d1/wood.e1", "d1/wood.e2", "d2/wood.e1", "d2/wood.e2"},
         {"tex/wood.e1", "d1/wood.e1", "tex/wood.e2", "d1/wood.e2", "d2/wood.e1", "d2/wood.e2"}});
}

TEST_F(ResolvePath, TriesTheNameThenItsDirectoryThenOneMoreExtension) {
  check({"tex/wood.png",
         {"d1", "d2"},
         {"e1", "e2"},
         {"tex/wood.png", "tex/wood.png.e1", "tex/wood.png.e2",                      //
          "d1/wood.png", "d1/tex/wood.png", "d1/wood.png.e1", "d1/wood.png.e2",      //
          "d2/wood.png", "d2/tex/wood.png", "d2/wood.png.e1", "d2/wood.png.e2"},     //
         {"tex/wood.png",                                                            //
          "d1/wood.png", "d1/tex/wood.png",                                          //
          "d2/wood.png", "d2/tex/wood.png",                                          //
          "tex/wood.png.e1", "d1/wood.png.e1", "tex/wood.png.e2", "d1/wood.png.e2",  //
          "d2/wood.png.e1", "d2/wood.png.e2"}});
}

TEST_F(ResolvePath, TriesNoOtherNames) {
  check({"tex/wood.png",
         {"d"},
         {"e1"},
         {"d/wood", "d/png", "d/tex/wood.png.e1", "d/wood.png.", "d/tex/wood.e1", "d/wood.e1",
          "tex/wood.e1", "tex/wood", "wood.png", "wood.e1", "wood.png.e1", "d/wood.png.*",
          "d/sub/wood.png", "d/wood.png.e1.e1", "tex/wood.png.", "d/wood.png.e1.*", "d/e1",
          "tex/tex/wood.png"},
         {}});
}

TEST_F(ResolvePath, TriesOnlyTheNameOfAnAbsoluteReference) {
  const std::string gone = tmp.path("gone");
  tmp.write("gone/wood.png.e1", "");
  tmp.write("d1/wood.png", "");
  tmp.write("d1/gone/wood.png", "");
  tmp.write("d1" + gone + "/wood.png", "");
  const auto resolved = [&] {
    return text(fs::resolvePath(vxText(gone + "/wood.png"), {"d1"}, {"e1"}));
  };

  EXPECT_EQ(resolved(), tmp.path("d1/wood.png"));
  std::filesystem::remove("d1/wood.png");
  EXPECT_EQ(resolved(), tmp.path("gone/wood.png.e1"));
  std::filesystem::remove("gone/wood.png.e1");
  EXPECT_EQ(resolved(), "");
}

TEST_F(ResolvePath, MakesTheCallsForTheseCandidatesOnly) {
  struct Row {
    const char* reference;
    StringVector searchDirs;
    StringVector extensions;
    Names calls;
  };
  const Row rows[] = {
      {"", {"d1"}, {"e1"}, {}},
      {"tex/there.png", {"d1"}, {"e1"}, {"stat tex/there.png", "realpath tex/there.png"}},
      // The own directory is tried again for each search directory.
      {"tex/wood.*",
       {"d1", "d2"},
       {"e1", ".e2"},
       {"stat tex/wood.*",                                             //
        "stat tex", "stat tex/wood.e1", "stat d1", "stat d1/wood.e1",  //
        "stat tex", "stat tex/wood.e2", "stat d1", "stat d1/wood.e2",  //
        "stat tex", "stat tex/wood.e1", "stat d2", "stat d2/wood.e1",  //
        "stat tex", "stat tex/wood.e2", "stat d2", "stat d2/wood.e2"}},
      {"tex/wood.*",
       {"missing", "file", ""},
       {"e1"},
       {"stat tex/wood.*",                               //
        "stat tex", "stat tex/wood.e1", "stat missing",  //
        "stat tex", "stat tex/wood.e1", "stat file",     //
        "stat tex", "stat tex/wood.e1"}},
      {"old/wood.*", {"d1"}, {"e1"}, {"stat old/wood.*", "stat old", "stat d1", "stat d1/wood.e1"}},
      {"wood.*", {"d1"}, {"e1"}, {"stat wood.*", "stat d1", "stat d1/wood.e1"}},
      {"tex/wood.*", {}, {"e1"}, {"stat tex/wood.*"}},
      {"tex/wood.*", {"d1"}, {}, {"stat tex/wood.*"}},
      {"tex/wood.*", {"d1"}, {"*", "*"}, {"stat tex/wood.*"}},
      // Nothing is tried after the first file.
      {"tex/there.*",
       {"d1", "d2"},
       {"jpg", "png", "gif"},
       {"stat tex/there.*", "stat tex", "stat tex/there.jpg", "stat d1", "stat d1/there.jpg",
        "stat tex", "stat tex/there.png", "realpath tex/there.png"}},
      {"tex/wood.png",
       {"d1", "d2"},
       {"e1"},
       {"stat tex/wood.png", "stat tex/wood.png",                              //
        "stat d1", "stat d1/wood.png", "stat d1/tex", "stat d1/tex/wood.png",  //
        "stat d2", "stat d2/wood.png", "stat d2/tex",                          //
        "stat tex/wood.png.*",                                                 //
        "stat tex", "stat tex/wood.png.e1", "stat d1", "stat d1/wood.png.e1",  //
        "stat tex", "stat tex/wood.png.e1", "stat d2", "stat d2/wood.png.e1"}},
      {"tex/wood.png", {}, {"e1"}, {"stat tex/wood.png", "stat tex/wood.png"}},
      {"tex/wood.png",
       {"missing"},
       {},
       {"stat tex/wood.png", "stat tex/wood.png", "stat missing", "stat missing/tex"}},
      // The relative directory of a bare name is the search directory itself.
      {"wood.png",
       {"d1"},
       {},
       {"stat wood.png", "stat wood.png",  //
        "stat d1", "stat d1/wood.png", "stat d1", "stat d1/wood.png"}},
      {"/missing-dir/wood.png",
       {"d1"},
       {},
       {"stat /missing-dir/wood.png", "stat /missing-dir/wood.png",  //
        "stat d1", "stat d1/wood.png"}},
  };
  tmp.write("tex/there.png", "");
  tmp.mkdir("d1/tex");
  tmp.mkdir("d2");
  tmp.write("file", "");
  for (const Row& row : rows) {
    SCOPED_TRACE(row.reference);
    const Calls calls;

    (void)fs::resolvePath(row.reference, row.searchDirs, row.extensions);

    EXPECT_EQ(calls.all(), row.calls);
  }
}

// ---------------------------------------------------------------------------------------------
// References as they are

TEST_F(ResolvePath, FindsAnExistingFileWithoutASearch) {
  const Case cases[] = {
      {"", {"d"}, {"png"}, {"d/.png", "d/png"}, {}},
      {"tex/wood.png", {}, {}, {"tex/wood.png"}, {"tex/wood.png"}},
      {"wood.png", {}, {}, {"wood.png"}, {"wood.png"}},
      {"tex/wood", {}, {"png"}, {"tex/wood"}, {"tex/wood"}},
      {"missing/..//./tex/wood.png", {}, {}, {"tex/wood.png"}, {"tex/wood.png"}},
      {"tex/wood.png/", {}, {}, {"tex/wood.png"}, {"tex/wood.png"}},
      {"tex/bark.png//", {"d"}, {}, {"d/bark.png"}, {"d/bark.png"}},
  };
  for (const Case& row : cases) {
    check(row);
  }
  const std::string file = tmp.write("tex/wood.png", "");
  EXPECT_EQ(text(fs::resolvePath(vxText(file), {}, {})), file);
}

TEST_F(ResolvePath, ResolvesLinks) {
  const std::string file = tmp.write("real/wood-1.png", "");
  tmp.link("real/wood.png", "wood-1.png");
  tmp.link("tex", "real");

  EXPECT_EQ(text(fs::resolvePath("tex/wood.png", {}, {})), file);
  EXPECT_EQ(text(fs::resolvePath("tex/wood.*", {"missing"}, {"png"})), file);
  EXPECT_EQ(text(fs::resolvePath("old/wood.png", {"tex"}, {})), file);
  EXPECT_EQ(text(fs::resolvePath("old/wood.*", {"tex"}, {"png"})), file);
}

TEST_F(ResolvePath, NeverTakesADirectory) {
  const Names entries = {"tex/wood.png/", "d1/wood.png/", "d1/tex/wood.png/", "d2/wood.png"};

  check({"tex/wood.png", {"d1", "d2"}, {}, entries, {"d2/wood.png"}});
  check({"tex/wood.*", {"d1", "d2"}, {"png"}, entries, {"d2/wood.png"}});
}

// ---------------------------------------------------------------------------------------------
// References with an open extension

TEST_F(ResolvePath, TriesEachExtensionForAnOpenOne) {
  const Case cases[] = {
      {"tex/wood.*", {}, {"png"}, {"tex/wood.png"}, {}},
      {"tex/wood.*", {"d"}, {}, {"tex/wood.png", "tex/wood", "tex/wood.", "d/wood.png"}, {}},
      {"tex/wood.*", {"missing"}, {"png"}, {"tex/wood.png"}, {"tex/wood.png"}},
      {"tex/wood.*", {"d"}, {"png"}, {"tex/wood.*", "d/wood.*"}, {}},
      {"tex/wood.*",
       {"d1", "d2"},
       {"e1", "e2"},
       {"d1/wood.e2", "d2/wood.e1"},
       {"d1/wood.e2", "d2/wood.e1"}},
      {"wood.*", {"d"}, {"e2", "e1"}, {"d/wood.e1", "d/wood.e2"}, {"d/wood.e2", "d/wood.e1"}},
      {"wood.t.*", {"d"}, {"png"}, {"d/wood.t.png", "d/wood.png"}, {"d/wood.t.png"}},
      // The extensions
      {"wood.*", {"d"}, {"*", "png"}, {"d/wood.*", "d/wood.png"}, {"d/wood.png"}},
      {"wood.*", {"d"}, {".png"}, {"d/wood.png", "d/wood..png"}, {"d/wood.png"}},
      {"wood.*", {"d"}, {"..png"}, {"d/wood..png", "d/wood.png"}, {"d/wood..png"}},
      {"wood.*",
       {"d"},
       {".*", "*g", "**"},
       {"d/wood.*", "d/wood.*g", "d/wood.**"},
       {"d/wood.*", "d/wood.*g", "d/wood.**"}},
      {"wood.*", {"d"}, {"tar.gz"}, {"d/wood.tar.gz"}, {"d/wood.tar.gz"}},
      {"wood.*", {"d"}, {""}, {"d/wood", "d/wood."}, {"d/wood."}},
      {"wood.*", {"d"}, {"missing/../bark.png"}, {"d/bark.png"}, {"d/bark.png"}},
  };
  for (const Case& row : cases) {
    check(row);
  }
}

TEST_F(ResolvePath, TakesTheOwnDirectoryInNormalForm) {
  for (const char* const reference : {"tex/wood.*", "tex//wood.*", "./tex/./wood.*",
                                      "missing/../tex/wood.*", "d/../tex/wood.*"}) {
    check({reference,
           {"d"},
           {"png"},
           {"tex/wood.png", "d/wood.png"},
           {"tex/wood.png", "d/wood.png"}});
  }
  const std::string file = tmp.write("abs/wood.png", "");
  EXPECT_EQ(text(fs::resolvePath(vxText(tmp.path("abs/wood.*")), {"d"}, {"png"})), file);
}

TEST_F(ResolvePath, FindsTheOwnDirectoryOfOddReferences) {
  const Case cases[] = {
      // A bare name has none.
      {"wood.*", {"d"}, {"png"}, {"wood.png", "wood.png.tx", "d/"}, {}},
      {"./wood.*", {"d"}, {"png"}, {"wood.png", "d/wood.png"}, {"wood.png", "d/wood.png"}},
      {"tex/wood.*", {"d"}, {"png"}, {"tex", "d/wood.png"}, {"d/wood.png"}},
      {"tex/.*", {"d"}, {"png"}, {"tex/.*.png", "tex/.png"}, {"tex/.*.png"}},
      {"tex/wood.*",
       {"d"},
       {"png"},
       {"tex/wood.*/wood.png", "tex/wood.png"},
       {"tex/wood.*/wood.png"}},
  };
  for (const Case& row : cases) {
    check(row);
  }
}

TEST_F(ResolvePath, FindsTheStemOfOddReferences) {
  const Names files = {"d/.png",     "d/png",       "d/..png",      "d/.*.png",
                       "d/wood.png", "d/wood..png", "d/wood.*.png", "d/*.png"};

  check({".*", {"d"}, {"png"}, files, {"d/.*.png"}});
  check({"tex/.*", {"d"}, {"png"}, files, {"d/.*.png"}});
  check({"..*", {"d"}, {"png"}, files, {"d/..png"}});
  check({"wood..*", {"d"}, {"png"}, files, {"d/wood..png"}});
  check({"wood.*.*", {"d"}, {"png"}, files, {"d/wood.*.png"}});
}

// ---------------------------------------------------------------------------------------------
// Other references

TEST_F(ResolvePath, SearchesForTheNameAndForItsDirectory) {
  const Case cases[] = {
      {"/old/machine/tex/wood.png", {"p/tex"}, {}, {"p/tex/wood.png"}, {"p/tex/wood.png"}},
      {"/old/machine/wood.png", {"p"}, {}, {"p/old/machine/wood.png", "p/machine/wood.png"}, {}},
      {"tex/old/wood.png", {"p"}, {}, {"p/tex/old/wood.png"}, {"p/tex/old/wood.png"}},
      {"tex/old/wood.png", {"p"}, {}, {"p/tex/wood.png", "p/old/wood.png"}, {}},
      {"wood.png", {"d"}, {}, {"d/deeper/wood.png"}, {}},
      {"../../other/wood.png",
       {"p/tex", "missing"},
       {},
       {"p/tex/wood.png", "other/wood.png"},
       {"p/tex/wood.png", "other/wood.png"}},
      {"tex/wood.png",
       {"d1", "d2"},
       {},
       {"d1/tex/wood.png", "d2/wood.png"},
       {"d1/tex/wood.png", "d2/wood.png"}},
  };
  for (const Case& row : cases) {
    check(row);
  }
}

TEST_F(ResolvePath, AddsADotToANameWithoutAnExtension) {
  const Case cases[] = {
      {"tex/wood",
       {"d"},
       {"png"},
       {"d/wood", "d/tex/wood", "d/wood.", "d/tex/wood."},
       {"d/wood.", "d/tex/wood."}},
      {".profile", {"d"}, {"png"}, {"d/.profile", "d/.profile."}, {"d/.profile."}},
      {"tex/wood", {"d"}, {"png", ".png"}, {"d/wood.png", "tex/wood.png", "d/wood..png"}, {}},
      {"*", {"d"}, {"png"}, {"d/*.", "d/wood*.", "d/wood.png"}, {"d/*."}},
      {"wood*", {"d"}, {"png"}, {"d/*.", "d/wood*.", "d/wood.png"}, {"d/wood*."}},
      {"..", {"d"}, {"png"}, {"d/..."}, {"d/..."}},
  };
  for (const Case& row : cases) {
    check(row);
  }
}

TEST_F(ResolvePath, AddsOneMoreExtensionLast) {
  const Case cases[] = {
      {"tex/wood.png", {"d"}, {"tx"}, {"tex/wood.png.tx", "d/"}, {"tex/wood.png.tx"}},
      {"tex/wood.png", {"d"}, {".tx"}, {"d/wood.png.tx"}, {"d/wood.png.tx"}},
      {"tex/wood.png", {"missing"}, {"tx"}, {"tex/wood.png.tx"}, {"tex/wood.png.tx"}},
      {"tex/wood.png", {}, {"tx"}, {"tex/wood.png.tx"}, {}},
      {"tex/wood.png", {"d"}, {}, {"tex/wood.png.tx", "tex/wood.png.", "d/wood.png."}, {}},
      {"wood.png", {"d"}, {"*", "tx"}, {"d/wood.png.*", "d/wood.png.tx"}, {"d/wood.png.tx"}},
      {"wood.png", {"d"}, {"tx"}, {"wood.png.tx", "d/"}, {}},
      {"./wood.png", {"d"}, {"tx"}, {"wood.png.tx", "d/"}, {}},
      {"wood.*/",
       {"d"},
       {"png"},
       {"d/wood.png", "d/wood.*", "d/wood.*.png"},
       {"d/wood.*", "d/wood.*.png"}},
      // A name that ends in a dot gets no second one.
      {"tex/wood.",
       {"d"},
       {"png"},
       {"tex/wood.", "d/wood.", "d/tex/wood.", "tex/wood.png", "d/wood.png", "d/wood..png",
        "tex/wood..png"},
       {"tex/wood.", "d/wood.", "d/tex/wood.", "tex/wood.png", "d/wood.png"}},
  };
  for (const Case& row : cases) {
    check(row);
  }
}

TEST_F(ResolvePath, TakesADirectoryForTheOwnDirectoryOfItsName) {
  const Case cases[] = {
      {"tex", {"d"}, {"png"}, {"tex/", "d/tex.", "d/tex/tex."}, {"d/tex.", "d/tex/tex."}},
      {"tex.d",
       {"d1", "d2"},
       {"png"},
       {"tex.d/tex.d.png", "tex.d.png", "d1/tex.d", "d1/tex.d.png", "d2/tex.d/tex.d"},
       {"d1/tex.d", "d2/tex.d/tex.d", "tex.d/tex.d.png", "d1/tex.d.png"}},
      {"tex.d/",
       {"d1", "d2"},
       {"png"},
       {"tex.d/tex.d.png", "d1/tex.d", "d2/tex.d/tex.d"},
       {"d1/tex.d", "d2/tex.d/tex.d", "tex.d/tex.d.png"}},
  };
  for (const Case& row : cases) {
    check(row);
  }
}

TEST_F(ResolvePath, FindsNothingForReferencesWithoutAName) {
  for (const char* const reference : {".", "..", "/", "//", "./", "../..", "d/.."}) {
    check({reference, {"d"}, {"png"}, {"d/wood.png", "d/.png", "d/..png", "wood.png", ".png"}, {}});
  }
}

TEST_F(ResolvePath, FindsNothingForANameThatIsTooLong) {
  tmp.mkdir("d");
  const std::string name(5000, 'w');

  EXPECT_EQ(fs::resolvePath(vxText(name + ".png"), {"d"}, {"tx"}), "");
  EXPECT_EQ(fs::resolvePath(vxText(name + ".*"), {"d"}, {"png"}), "");
}

// ---------------------------------------------------------------------------------------------
// Search directories

TEST_F(ResolvePath, TakesSearchDirectoriesInNormalForm) {
  for (const char* const dir : {"d", "d/", "d//", "./d", "missing/../d"}) {
    check({"tex/wood.png",
           {dir},
           {},
           {"d/wood.png", "d/tex/wood.png"},
           {"d/wood.png", "d/tex/wood.png"}});
  }
  const std::string file = tmp.write("e/wood.png", "");
  EXPECT_EQ(text(fs::resolvePath("tex/wood.png", {vxText(tmp.path("e"))}, {})), file);
}

TEST_F(ResolvePath, SkipsSearchDirectoriesThatAreNone) {
  const StringVector dirs = {"missing", "file", "", "d"};
  const Names entries = {"file", "d/wood.png", "wood.tx"};

  check({"old/wood.png", dirs, {}, entries, {"d/wood.png"}});
  check({"old/wood.*", dirs, {"tx", "png"}, entries, {"d/wood.png"}});
}

TEST_F(ResolvePath, TakesTheEmptySearchDirectoryForTheCurrentOne) {
  // With the directory of the reference alone
  check({"tex/wood", {""}, {}, {"wood.", "tex/wood."}, {"tex/wood."}});
  check({"wood", {""}, {}, {"wood."}, {}});
  check({"wood.*", {"."}, {"png"}, {"wood.png"}, {"wood.png"}});
}

// ---------------------------------------------------------------------------------------------
// Texts

TEST_F(ResolvePath, TakesNamesAsBytes) {
  const Case cases[] = {
      {"tex\\wood.png",
       {"d"},
       {},
       {"d/tex\\wood.png", "d/wood.png", "d/tex/wood.png"},
       {"d/tex\\wood.png"}},
      {"tex\\wood.*",
       {"d"},
       {"png"},
       {"tex/wood.png", "d/wood.png", "d/tex\\wood.png"},
       {"d/tex\\wood.png"}},
      {"wood.png", {"d\\e"}, {}, {"d\\e/wood.png", "d/e/wood.png"}, {"d\\e/wood.png"}},
      {"old/w \n\"%s'\xff.*", {"d"}, {"png"}, {"d/w \n\"%s'\xff.png"}, {"d/w \n\"%s'\xff.png"}},
  };
  for (const Case& row : cases) {
    check(row);
  }
}

// ---------------------------------------------------------------------------------------------
// Failures

TEST_F(ResolvePath, SkipsACandidateThatCannotBeExamined) {
  forEachFailure([](FailureRun& run) {
    run.tmp.mkdir("d1");
    run.tmp.write("d2/tex/wood.png", "text");

    const String found = run.act([] {
      return fs::resolvePath("tex/wood.png", {"d1", "d2"}, {"tx"});
    });

    const bool isMissed = run.failed("stat d2/tex") || run.failed("stat d2/tex/wood.png");
    EXPECT_EQ(text(found), isMissed ? "" : run.tmp.path("d2/tex/wood.png"));
    run.expectSilence();
  });
}

TEST_F(ResolvePath, FindsNoFileThatCannotBeExamined) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("wood.png", "text");

    const String found = run.act([] { return fs::resolvePath("wood.png", {}, {}); });

    EXPECT_EQ(text(found), run.failed("stat") ? "" : run.tmp.path("wood.png"));
    run.expectSilence();
  });
}

TEST_F(ResolvePath, SkipsAnOwnDirectoryThatCannotBeExamined) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("tex/wood.jpg", "text");
    run.tmp.write("d1/wood.jpg", "text");

    const String found = run.act([] {
      return fs::resolvePath("tex/wood.*", {"d1"}, {"png", "jpg"});
    });

    const bool isSkipped = run.failed("stat tex", 2) || run.failed("stat tex/wood.jpg");
    EXPECT_EQ(text(found), run.tmp.path(isSkipped ? "d1/wood.jpg" : "tex/wood.jpg"));
    run.expectSilence();
  });
}

}  // namespace
}  // namespace vx::test
