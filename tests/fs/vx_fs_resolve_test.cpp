// Concern: which of several files a reference means. The order of the candidates is shown by
// removing the file that is found and asking again, the questions to the file system by recording
// them.

#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <thread>
#include <type_traits>
#include <vector>

#include <sys/stat.h>
#include <sys/types.h>

namespace {

using vx::String;
using vx::StringVector;
using vx::test::ErrorStateSentinel;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::RecordedCalls;
using vx::test::runAsUnprivileged;
using vx::test::ScopedCurrentDir;
using vx::test::TempDir;
using vx::test::text;
using vx::test::texts;

using Names = std::vector<std::string>;

// Not the overload that the module keeps to itself.
static_assert(
    std::is_same_v<decltype(&vx::fs::resolvePath), String (*)(String, StringVector, StringVector)>);

StringVector listOf(const Names& names) {
  StringVector list;
  for (const std::string& name : names) {
    list.push_back(name.c_str());
  }
  return list;
}

/// Works in a fresh current directory; every answer is also held to silence.
class ResolvePath : public testing::Test {
 protected:
  /// What the reference means, relative to the current directory where it is below that.
  [[nodiscard]] std::string resolve(const std::string& reference, const Names& searchDirs,
                                    const Names& extensions) const {
    const StringVector directories = listOf(searchDirs);
    const StringVector endings = listOf(extensions);
    const ErrorStateSentinel sentinel;
    const LogCapture log;

    const std::string found = text(vx::fs::resolvePath(reference.c_str(), directories, endings));

    EXPECT_EQ(log.all(), lines());
    EXPECT_TRUE(sentinel.isUntouched());
    return relative(found);
  }

  /// All that the reference means, one after the other: each answer is removed before the next
  /// question.
  [[nodiscard]] Names winners(const std::string& reference, const Names& searchDirs,
                              const Names& extensions) const {
    Names order;
    for (;;) {
      const std::string found = resolve(reference, searchDirs, extensions);
      if (found.empty()) {
        return order;
      }
      order.push_back(found);
      if (!std::filesystem::remove(found)) {
        ADD_FAILURE() << found << " is not there";
        return order;
      }
    }
  }

  /// What is asked of the file system on the way to the answer.
  [[nodiscard]] Names questionsOf(const std::string& reference, const Names& searchDirs,
                                  const Names& extensions) const {
    RecordedCalls calls;
    static_cast<void>(resolve(reference, searchDirs, extensions));
    return calls.all();
  }

  void writeAll(const Names& files) const {
    for (const std::string& file : files) {
      tmp.write(file, file);
    }
  }

  [[nodiscard]] std::string relative(const std::string& path) const {
    const std::string prefix = tmp.path() + '/';
    return path.starts_with(prefix) ? path.substr(prefix.size()) : path;
  }

  TempDir tmp;
  ScopedCurrentDir inside{tmp.path()};
};

// ---- The empty reference -----------------------------------------------------------------------

TEST_F(ResolvePath, FindsNothingForTheEmptyReference) {
  writeAll({"d/.png", "d/png"});

  EXPECT_EQ(resolve("", {"d"}, {"png"}), "");
}

TEST_F(ResolvePath, AsksNothingForTheEmptyReference) {
  tmp.mkdir("d");

  EXPECT_EQ(questionsOf("", {"d"}, {"png"}), lines());
}

// ---- A reference that names a file -------------------------------------------------------------

TEST_F(ResolvePath, FindsAFileAsItStandsWithNothingToSearch) {
  tmp.write("tex/wood.png", "");

  EXPECT_EQ(resolve("tex/wood.png", {}, {}), "tex/wood.png");
}

TEST_F(ResolvePath, FindsAnAbsolutePathAsItStands) {
  const std::string file = tmp.write("tex/wood.png", "");

  EXPECT_EQ(text(vx::fs::resolvePath(file.c_str(), {}, {})), file);
}

TEST_F(ResolvePath, GivesTheAbsolutePathOfARelativeReference) {
  const std::string file = tmp.write("tex/wood.png", "");

  EXPECT_EQ(text(vx::fs::resolvePath("tex/wood.png", {}, {})), file);
}

TEST_F(ResolvePath, FindsAFileInTheCurrentDirectoryAsItStands) {
  tmp.write("wood.png", "");

  EXPECT_EQ(resolve("wood.png", {}, {}), "wood.png");
}

TEST_F(ResolvePath, FindsAFileWithoutAnExtensionAsItStands) {
  writeAll({"tex/wood", "d/wood."});

  EXPECT_EQ(resolve("tex/wood", {"d"}, {"png"}), "tex/wood");
}

TEST_F(ResolvePath, FindsAFileWhateverItsKind) {
  ASSERT_EQ(::mkfifo("pipe", 0600), 0);

  EXPECT_EQ(resolve("pipe", {}, {}), "pipe");
}

TEST_F(ResolvePath, ResolvesTheLinksOnTheWayToTheFile) {
  tmp.write("real/wood-1.png", "");
  tmp.link("real/wood.png", "wood-1.png");
  tmp.link("tex", "real");

  EXPECT_EQ(resolve("tex/wood.png", {}, {}), "real/wood-1.png");
}

TEST_F(ResolvePath, LooksForTheNormalFormOfAReference) {
  tmp.write("tex/wood.png", "");

  EXPECT_EQ(resolve("missing/..//./tex/wood.png", {}, {}), "tex/wood.png");
}

TEST_F(ResolvePath, OverlooksASeparatorAtTheEndOfAReferenceToAFile) {
  writeAll({"tex/wood.png", "d/bark.png"});

  EXPECT_EQ(resolve("tex/wood.png/", {}, {}), "tex/wood.png");
  EXPECT_EQ(resolve("tex/bark.png//", {"d"}, {}), "d/bark.png");
}

TEST_F(ResolvePath, AsksOnceForAFileThatIsThere) {
  tmp.write("tex/wood.png", "");
  tmp.mkdir("d");

  EXPECT_EQ(questionsOf("tex/wood.png", {"d"}, {"png"}),
            lines("stat tex/wood.png", "realpath tex/wood.png"));
}

// ---- The order of the candidates ---------------------------------------------------------------

TEST_F(ResolvePath, TriesTheOwnDirectoryBeforeEachSearchDirectoryForEachExtension) {
  writeAll({"tex/wood.e1", "tex/wood.e2", "d1/wood.e1", "d1/wood.e2", "d2/wood.e1", "d2/wood.e2"});

  EXPECT_EQ(
      winners("tex/wood.*", {"d1", "d2"}, {"e1", "e2"}),
      lines("tex/wood.e1", "d1/wood.e1", "tex/wood.e2", "d1/wood.e2", "d2/wood.e1", "d2/wood.e2"));
}

TEST_F(ResolvePath, TriesTheNameTheRelativeDirectoryAndThenTheLongerName) {
  writeAll({"tex/wood.png", "tex/wood.png.e1", "tex/wood.png.e2",  //
            "d1/wood.png", "d1/tex/wood.png", "d1/wood.png.e1", "d1/wood.png.e2", "d2/wood.png",
            "d2/tex/wood.png", "d2/wood.png.e1", "d2/wood.png.e2"});

  EXPECT_EQ(winners("tex/wood.png", {"d1", "d2"}, {"e1", "e2"}),
            lines("tex/wood.png",                    //
                  "d1/wood.png", "d1/tex/wood.png",  //
                  "d2/wood.png", "d2/tex/wood.png",  //
                  "tex/wood.png.e1", "d1/wood.png.e1", "tex/wood.png.e2", "d1/wood.png.e2",
                  "d2/wood.png.e1", "d2/wood.png.e2"));
}

TEST_F(ResolvePath, TriesOnlyTheNameOfAnAbsoluteReference) {
  const std::string under = "d1" + tmp.path("gone");
  writeAll({"gone/wood.png.e1", "d1/wood.png", "d2/wood.png", "d1/wood.png.e1", under + "/wood.png",
            "d1/gone/wood.png"});

  EXPECT_EQ(winners(tmp.path("gone/wood.png"), {"d1", "d2"}, {"e1"}),
            lines("d1/wood.png", "d2/wood.png", "gone/wood.png.e1", "d1/wood.png.e1"));
}

TEST_F(ResolvePath, TriesNoOtherNamesThanThese) {
  const Names others = {
      "d/wood",          "d/png",        "d/tex/wood.png.e1", "d/wood.png.",      "d/tex/wood.e1",
      "d/wood.e1",       "tex/wood.e1",  "tex/wood",          "wood.png",         "wood.e1",
      "wood.png.e1",     "d/wood.png.*", "d/sub/wood.png",    "d/wood.png.e1.e1", "tex/wood.png.",
      "d/wood.png.e1.*", "d/e1",         "tex/tex/wood.png"};
  writeAll(others);

  EXPECT_EQ(resolve("tex/wood.png", {"d"}, {"e1"}), "");
}

TEST_F(ResolvePath, PrefersTheFirstDirectoryWhateverTheOrderOfTheExtensions) {
  writeAll({"d1/wood.e2", "d2/wood.e1"});

  EXPECT_EQ(resolve("tex/wood.*", {"d1", "d2"}, {"e1", "e2"}), "d1/wood.e2");
}

TEST_F(ResolvePath, PrefersTheFirstExtensionWithinADirectory) {
  writeAll({"d/wood.e1", "d/wood.e2"});

  EXPECT_EQ(resolve("wood.*", {"d"}, {"e2", "e1"}), "d/wood.e2");
}

TEST_F(ResolvePath, TriesAnAbsoluteOwnDirectory) {
  writeAll({"tex/wood.png", "d/wood.png"});

  EXPECT_EQ(winners(tmp.path("tex/wood.*"), {"d"}, {"png"}), lines("tex/wood.png", "d/wood.png"));
}

// ---- The questions -----------------------------------------------------------------------------

TEST_F(ResolvePath, AsksTheOwnDirectoryAnewForEachSearchDirectory) {
  tmp.mkdir("tex");
  tmp.mkdir("d1");
  tmp.mkdir("d2");

  EXPECT_EQ(questionsOf("tex/wood.*", {"d1", "d2"}, {"e1", ".e2"}),
            lines("stat tex/wood.*",                                             //
                  "stat tex", "stat tex/wood.e1", "stat d1", "stat d1/wood.e1",  //
                  "stat tex", "stat tex/wood.e2", "stat d1", "stat d1/wood.e2",  //
                  "stat tex", "stat tex/wood.e1", "stat d2", "stat d2/wood.e1",  //
                  "stat tex", "stat tex/wood.e2", "stat d2", "stat d2/wood.e2"));
}

TEST_F(ResolvePath, AsksTheOwnDirectoryAlsoForSearchDirectoriesThatAreMissing) {
  tmp.mkdir("tex");
  tmp.write("file", "");

  EXPECT_EQ(questionsOf("tex/wood.*", {"missing", "file", ""}, {"e1"}),
            lines("stat tex/wood.*",                               //
                  "stat tex", "stat tex/wood.e1", "stat missing",  //
                  "stat tex", "stat tex/wood.e1", "stat file",     //
                  "stat tex", "stat tex/wood.e1"));
}

TEST_F(ResolvePath, AsksForNoCandidateInAnOwnDirectoryThatIsMissing) {
  tmp.mkdir("d");

  EXPECT_EQ(questionsOf("tex/wood.*", {"d"}, {"e1"}),
            lines("stat tex/wood.*", "stat tex", "stat d", "stat d/wood.e1"));
}

TEST_F(ResolvePath, AsksForNoOwnDirectoryOfABareName) {
  tmp.mkdir("d");

  EXPECT_EQ(questionsOf("wood.*", {"d"}, {"e1"}), lines("stat wood.*", "stat d", "stat d/wood.e1"));
}

TEST_F(ResolvePath, Asks193QuestionsInVainInEightDirectoriesForSixExtensions) {
  tmp.mkdir("tex");
  Names searchDirs;
  for (int i = 0; i < 8; ++i) {
    searchDirs.push_back(relative(tmp.mkdir("d" + std::to_string(i))));
  }

  const Names questions = questionsOf("tex/wood.*", searchDirs, {"a", "b", "c", "d", "e", "f"});

  EXPECT_EQ(questions.size(), 1U + 8U * 6U * 4U);
}

TEST_F(ResolvePath, AsksForEveryCandidateOfAPlainReferenceInVain) {
  for (const char* const directory : {"tex", "d1", "d1/tex", "d2"}) {
    tmp.mkdir(directory);
  }

  EXPECT_EQ(questionsOf("tex/wood.png", {"d1", "d2"}, {"e1"}),
            lines("stat tex/wood.png", "stat tex/wood.png",  //
                  "stat d1", "stat d1/wood.png", "stat d1/tex", "stat d1/tex/wood.png", "stat d2",
                  "stat d2/wood.png", "stat d2/tex",  //
                  "stat tex/wood.png.*",              //
                  "stat tex", "stat tex/wood.png.e1", "stat d1", "stat d1/wood.png.e1", "stat tex",
                  "stat tex/wood.png.e1", "stat d2", "stat d2/wood.png.e1"));
}

TEST_F(ResolvePath, AsksTwiceInASearchDirectoryForABareName) {
  tmp.mkdir("d");

  // Once for the name, once for the relative directory, which is the search directory itself.
  EXPECT_EQ(questionsOf("wood.png", {"d"}, {}),
            lines("stat wood.png", "stat wood.png",  //
                  "stat d", "stat d/wood.png", "stat d", "stat d/wood.png"));
}

TEST_F(ResolvePath, AsksForNoRelativeDirectoryOfAnAbsoluteReference) {
  tmp.mkdir("d");

  EXPECT_EQ(questionsOf("/no such dir/wood.png", {"d"}, {}),
            lines("stat /no such dir/wood.png", "stat /no such dir/wood.png",  //
                  "stat d", "stat d/wood.png"));
}

TEST_F(ResolvePath, AsksNothingMoreOnceItHasFoundAFile) {
  tmp.mkdir("tex");
  tmp.write("d1/wood.e1", "");

  EXPECT_EQ(questionsOf("tex/wood.*", {"d1", "d2"}, {"e1", "e2"}),
            lines("stat tex/wood.*", "stat tex", "stat tex/wood.e1", "stat d1", "stat d1/wood.e1",
                  "realpath d1/wood.e1"));
}

// ---- References with an open extension ---------------------------------------------------------

TEST_F(ResolvePath, TriesNothingForAnOpenExtensionWithoutSearchDirectories) {
  tmp.write("tex/wood.png", "");

  EXPECT_EQ(resolve("tex/wood.*", {}, {"png"}), "");
  EXPECT_EQ(questionsOf("tex/wood.*", {}, {"png"}), lines("stat tex/wood.*"));
}

TEST_F(ResolvePath, TriesNothingForAnOpenExtensionWithoutExtensions) {
  writeAll({"tex/wood.png", "tex/wood", "tex/wood.", "d/wood.png", "d/wood"});

  EXPECT_EQ(resolve("tex/wood.*", {"d"}, {}), "");
  EXPECT_EQ(questionsOf("tex/wood.*", {"d"}, {}), lines("stat tex/wood.*"));
}

TEST_F(ResolvePath, FindsAFileBesideTheReferenceThoughTheSearchDirectoryIsMissing) {
  tmp.write("tex/wood.png", "");

  EXPECT_EQ(resolve("tex/wood.*", {"missing"}, {"png"}), "tex/wood.png");
}

TEST_F(ResolvePath, DoesNotTakeTheStarForPartOfAName) {
  writeAll({"tex/wood.*", "d/wood.*"});

  EXPECT_EQ(resolve("tex/wood.*", {"d"}, {"png"}), "");
}

TEST_F(ResolvePath, OverlooksTheExtensionThatIsAStar) {
  writeAll({"d/wood.*", "d/wood.png"});

  EXPECT_EQ(resolve("wood.*", {"d"}, {"*", "png"}), "d/wood.png");
}

TEST_F(ResolvePath, AsksNothingForTheExtensionThatIsAStar) {
  tmp.mkdir("tex");
  tmp.mkdir("d");

  EXPECT_EQ(questionsOf("tex/wood.*", {"d"}, {"*", "*"}), lines("stat tex/wood.*"));
}

TEST_F(ResolvePath, TakesAStarWithAnythingBesideItAsItIs) {
  writeAll({"d/wood.*", "d/wood.*g", "d/wood.**"});

  EXPECT_EQ(winners("wood.*", {"d"}, {".*", "*g", "**"}),
            lines("d/wood.*", "d/wood.*g", "d/wood.**"));
}

TEST_F(ResolvePath, TakesExtensionsWithAndWithoutTheirDot) {
  tmp.write("d/wood.png", "");

  EXPECT_EQ(resolve("wood.*", {"d"}, {"png"}), "d/wood.png");
  EXPECT_EQ(resolve("wood.*", {"d"}, {".png"}), "d/wood.png");
}

TEST_F(ResolvePath, AddsNoDotToAnExtensionThatBeginsWithOne) {
  writeAll({"d/wood..png", "d/wood.png"});

  EXPECT_EQ(resolve("wood.*", {"d"}, {"..png"}), "d/wood..png");
}

TEST_F(ResolvePath, TakesExtensionsOfSeveralParts) {
  tmp.write("d/wood.tar.gz", "");

  EXPECT_EQ(resolve("wood.*", {"d"}, {"tar.gz"}), "d/wood.tar.gz");
}

TEST_F(ResolvePath, LooksForTheNormalFormOfANameWhoseExtensionHoldsSeparators) {
  tmp.write("d/bark.png", "");

  EXPECT_EQ(resolve("wood.*", {"d"}, {"missing/../bark.png"}), "d/bark.png");
}

TEST_F(ResolvePath, TakesTheEmptyExtensionForALoneDot) {
  writeAll({"d/wood", "d/wood."});

  EXPECT_EQ(resolve("wood.*", {"d"}, {""}), "d/wood.");
}

TEST_F(ResolvePath, LeavesOpenOnlyTheLastOfSeveralExtensions) {
  writeAll({"d/wood.t.png", "d/wood.png"});

  EXPECT_EQ(resolve("wood.t.*", {"d"}, {"png"}), "d/wood.t.png");
}

TEST_F(ResolvePath, DoesNotSearchTheCurrentDirectoryForABareName) {
  writeAll({"wood.png", "wood.png.tx"});
  tmp.mkdir("d");

  EXPECT_EQ(resolve("wood.*", {"d"}, {"png"}), "");
}

TEST_F(ResolvePath, SearchesTheCurrentDirectoryThatTheReferenceSpellsOut) {
  writeAll({"wood.png", "d/wood.png"});

  EXPECT_EQ(winners("./wood.*", {"d"}, {"png"}), lines("wood.png", "d/wood.png"));
}

/// Spellings of the directory "tex" in front of an open extension.
class OwnDirectory : public ResolvePath, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(, OwnDirectory,
                         testing::Values("tex/wood.*", "tex//wood.*", "./tex/./wood.*",
                                         "missing/../tex/wood.*", "d/../tex/wood.*",
                                         "link/wood.*"));

TEST_P(OwnDirectory, IsTakenInNormalForm) {
  writeAll({"tex/wood.png", "d/wood.png"});
  tmp.link("link", "tex");

  EXPECT_EQ(winners(GetParam(), {"d"}, {"png"}), lines("tex/wood.png", "d/wood.png"));
}

TEST_F(ResolvePath, SkipsAnOwnDirectoryThatIsAFile) {
  writeAll({"tex", "d/wood.png"});

  EXPECT_EQ(resolve("tex/wood.*", {"d"}, {"png"}), "d/wood.png");
}

/// References that are hardly more than the open extension, with the name that is looked for.
struct OpenName {
  const char* reference;
  const char* found;
};

class BareOpenExtension : public ResolvePath, public testing::WithParamInterface<OpenName> {};

INSTANTIATE_TEST_SUITE_P(, BareOpenExtension,
                         testing::Values(OpenName{".*", "d/.*.png"}, OpenName{"tex/.*", "d/.*.png"},
                                         OpenName{"..*", "d/..png"},
                                         OpenName{"wood..*", "d/wood..png"},
                                         OpenName{"wood.*.*", "d/wood.*.png"}),
                         [](const auto& suite) { return "Row" + std::to_string(suite.index); });

TEST_P(BareOpenExtension, FollowsTheRulesOfFileNames) {
  writeAll({"d/.png", "d/png", "d/..png", "d/.*.png", "d/wood.png", "d/wood..png", "d/wood.*.png",
            "d/*.png"});

  EXPECT_EQ(winners(GetParam().reference, {"d"}, {"png"}), lines(GetParam().found));
}

TEST_F(ResolvePath, LooksBesideAnOpenExtensionWithoutAName) {
  writeAll({"tex/.*.png", "tex/.png"});
  tmp.mkdir("d");

  EXPECT_EQ(winners("tex/.*", {"d"}, {"png"}), lines("tex/.*.png"));
}

TEST_F(ResolvePath, LooksInsideADirectoryThatBearsTheNameOfTheReference) {
  writeAll({"tex/wood.*/wood.png", "tex/wood.png"});
  tmp.mkdir("d");

  EXPECT_EQ(winners("tex/wood.*", {"d"}, {"png"}), lines("tex/wood.*/wood.png"));
}

// ---- Plain references --------------------------------------------------------------------------

TEST_F(ResolvePath, FindsAMissingAbsoluteReferenceByItsNameAlone) {
  tmp.write("proj/tex/wood.png", "");

  EXPECT_EQ(resolve("/old/machine/tex/wood.png", {"proj/tex"}, {}), "proj/tex/wood.png");
}

TEST_F(ResolvePath, LooksForNoRelativeDirectoryOfAnAbsoluteReference) {
  writeAll({"proj/old/machine/wood.png", "proj/machine/wood.png"});

  EXPECT_EQ(resolve("/old/machine/wood.png", {"proj"}, {}), "");
}

TEST_F(ResolvePath, FindsTheRelativeDirectoryUnderASearchDirectory) {
  tmp.write("proj/tex/old/wood.png", "");

  EXPECT_EQ(resolve("tex/old/wood.png", {"proj"}, {}), "proj/tex/old/wood.png");
}

TEST_F(ResolvePath, FindsNoPartOfTheRelativeDirectory) {
  writeAll({"proj/tex/wood.png", "proj/old/wood.png"});

  EXPECT_EQ(resolve("tex/old/wood.png", {"proj"}, {}), "");
}

TEST_F(ResolvePath, FollowsARelativeDirectoryUpwards) {
  writeAll({"proj/tex/wood.png", "other/wood.png"});

  EXPECT_EQ(winners("../../other/wood.png", {"proj/tex", "missing"}, {}),
            lines("proj/tex/wood.png", "other/wood.png"));
}

TEST_F(ResolvePath, PrefersAllOfOneSearchDirectoryToTheNext) {
  writeAll({"d1/tex/wood.png", "d2/wood.png"});

  EXPECT_EQ(resolve("tex/wood.png", {"d1", "d2"}, {}), "d1/tex/wood.png");
}

TEST_F(ResolvePath, LooksForANameWithoutAnExtensionWithALoneDot) {
  writeAll({"d/wood", "d/tex/wood", "d/wood.", "d/tex/wood."});

  EXPECT_EQ(winners("tex/wood", {"d"}, {"png"}), lines("d/wood.", "d/tex/wood."));
}

TEST_F(ResolvePath, LooksForAHiddenNameWithALoneDot) {
  writeAll({"d/.profile", "d/.profile."});

  EXPECT_EQ(winners(".profile", {"d"}, {"png"}), lines("d/.profile."));
}

TEST_F(ResolvePath, TriesNoExtensionsForANameWithoutOne) {
  writeAll({"d/wood.png", "tex/wood.png", "d/wood..png"});

  EXPECT_EQ(resolve("tex/wood", {"d"}, {"png", ".png"}), "");
}

TEST_F(ResolvePath, TakesAStarThatIsNotBehindADotForPartOfTheName) {
  writeAll({"d/*.", "d/wood*.", "d/wood.png"});

  EXPECT_EQ(winners("*", {"d"}, {"png"}), lines("d/*."));
  EXPECT_EQ(winners("wood*", {"d"}, {"png"}), lines("d/wood*."));
}

TEST_F(ResolvePath, TakesAnOpenExtensionBeforeASeparatorForAPlainOne) {
  writeAll({"d/wood.png", "d/wood.*", "d/wood.*.png"});

  EXPECT_EQ(winners("wood.*/", {"d"}, {"png"}), lines("d/wood.*", "d/wood.*.png"));
}

// ---- The last resort ---------------------------------------------------------------------------

TEST_F(ResolvePath, TriesTheWholeNameWithOneMoreExtension) {
  tmp.write("tex/wood.png.tx", "");
  tmp.mkdir("d");

  EXPECT_EQ(resolve("tex/wood.png", {"d"}, {"tx"}), "tex/wood.png.tx");
}

TEST_F(ResolvePath, TriesOneMoreExtensionInASearchDirectory) {
  tmp.write("d/wood.png.tx", "");

  EXPECT_EQ(resolve("tex/wood.png", {"d"}, {".tx"}), "d/wood.png.tx");
}

TEST_F(ResolvePath, TriesOneMoreExtensionThoughTheSearchDirectoryIsMissing) {
  tmp.write("tex/wood.png.tx", "");

  EXPECT_EQ(resolve("tex/wood.png", {"missing"}, {"tx"}), "tex/wood.png.tx");
}

TEST_F(ResolvePath, TriesNoMoreExtensionsWithoutSearchDirectories) {
  tmp.write("tex/wood.png.tx", "");

  EXPECT_EQ(resolve("tex/wood.png", {}, {"tx"}), "");
  EXPECT_EQ(questionsOf("tex/wood.png", {}, {"tx"}),
            lines("stat tex/wood.png", "stat tex/wood.png"));
}

TEST_F(ResolvePath, TriesNoMoreExtensionsWithoutExtensions) {
  writeAll({"tex/wood.png.tx", "tex/wood.png.", "d/wood.png."});

  EXPECT_EQ(resolve("tex/wood.png", {"d"}, {}), "");
  EXPECT_EQ(questionsOf("tex/wood.png", {"missing"}, {}),
            lines("stat tex/wood.png", "stat tex/wood.png", "stat missing", "stat missing/tex"));
}

TEST_F(ResolvePath, OverlooksTheExtensionThatIsAStarInTheLastResortToo) {
  writeAll({"d/wood.png.*", "d/wood.png.tx"});

  EXPECT_EQ(winners("wood.png", {"d"}, {"*", "tx"}), lines("d/wood.png.tx"));
}

TEST_F(ResolvePath, DoesNotSearchTheCurrentDirectoryForOneMoreExtensionOfABareName) {
  writeAll({"wood.png.tx", "other/x"});

  EXPECT_EQ(resolve("wood.png", {"other"}, {"tx"}), "");
  EXPECT_EQ(resolve("./wood.png", {"other"}, {"tx"}), "");
}

TEST_F(ResolvePath, OpensTheExtensionOfANameThatEndsInADot) {
  writeAll({"tex/wood.", "d/wood.", "d/tex/wood.", "tex/wood.png", "d/wood.png", "d/wood..png",
            "tex/wood..png"});

  EXPECT_EQ(winners("tex/wood.", {"d"}, {"png"}),
            lines("tex/wood.", "d/wood.", "d/tex/wood.", "tex/wood.png", "d/wood.png"));
}

// ---- What is no file ---------------------------------------------------------------------------

TEST_F(ResolvePath, NeverTakesADirectory) {
  tmp.mkdir("tex/wood.png");
  tmp.mkdir("d1/wood.png");
  tmp.mkdir("d1/tex/wood.png");
  tmp.write("d2/wood.png", "");

  EXPECT_EQ(resolve("tex/wood.png", {"d1", "d2"}, {}), "d2/wood.png");
  EXPECT_EQ(resolve("tex/wood.*", {"d1", "d2"}, {"png"}), "d2/wood.png");
}

TEST_F(ResolvePath, NeverTakesALinkThatLeadsToNoFile) {
  tmp.mkdir("directory");
  tmp.link("d1/wood.png", "nowhere");
  tmp.link("d2/wood.png", "wood.png");
  tmp.link("d3/wood.png", "../directory");
  tmp.write("d4/wood.png", "");

  EXPECT_EQ(resolve("wood.png", {"d1", "d2", "d3", "d4"}, {}), "d4/wood.png");
}

TEST_F(ResolvePath, LooksForTheNameOfADirectoryUnderTheSearchDirectories) {
  tmp.mkdir("tex");
  writeAll({"d/tex.", "d/tex/tex."});

  EXPECT_EQ(winners("tex", {"d"}, {"png"}), lines("d/tex.", "d/tex/tex."));
}

TEST_F(ResolvePath, TakesADirectoryForTheOwnDirectoryOfItsName) {
  writeAll({"tex.d/tex.d.png", "tex.d.png", "d1/tex.d", "d1/tex.d.png", "d2/tex.d/tex.d"});

  EXPECT_EQ(winners("tex.d", {"d1", "d2"}, {"png"}),
            lines("d1/tex.d", "d2/tex.d/tex.d", "tex.d/tex.d.png", "d1/tex.d.png"));
}

TEST_F(ResolvePath, TreatsADirectoryWithASeparatorBehindItAlike) {
  writeAll({"tex.d/tex.d.png", "d1/tex.d", "d2/tex.d/tex.d"});

  EXPECT_EQ(winners("tex.d/", {"d1", "d2"}, {"png"}),
            lines("d1/tex.d", "d2/tex.d/tex.d", "tex.d/tex.d.png"));
}

/// References without a name of their own.
class Nameless : public ResolvePath, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(, Nameless, testing::Values(".", "..", "/", "//", "./", "../..", "d/.."));

TEST_P(Nameless, FindsNothing) {
  writeAll({"d/wood.png", "d/.png", "d/..png", "wood.png", ".png"});

  EXPECT_EQ(resolve(GetParam(), {"d"}, {"png"}), "");
}

TEST_F(ResolvePath, LooksForTheDotsOfAParentDirectoryAsForAnyNameWithoutAnExtension) {
  writeAll({"d/..."});

  EXPECT_EQ(winners("..", {"d"}, {"png"}), lines("d/..."));
}

TEST_F(ResolvePath, FindsNothingForANameThatIsTooLong) {
  tmp.mkdir("d");
  const std::string name(5000, 'w');

  EXPECT_EQ(resolve(name + ".png", {"d"}, {"tx"}), "");
  EXPECT_EQ(resolve(name + ".*", {"d"}, {"png"}), "");
}

// ---- Search directories ------------------------------------------------------------------------

TEST_F(ResolvePath, SkipsSearchDirectoriesThatAreNone) {
  writeAll({"file", "d/wood.png", "wood.tx"});
  tmp.link("dangling", "nowhere");

  EXPECT_EQ(resolve("old/wood.png", {"missing", "file", "dangling", "", "d"}, {}), "d/wood.png");
  EXPECT_EQ(resolve("old/wood.*", {"missing", "file", "dangling", "", "d"}, {"tx", "png"}),
            "d/wood.png");
}

TEST_F(ResolvePath, TakesTheRelativeDirectoryAloneUnderAnEmptySearchDirectory) {
  writeAll({"wood.", "tex/wood."});

  // Below no directory lies the reference's own one, where its name is now looked for with a dot.
  EXPECT_EQ(winners("tex/wood", {""}, {}), lines("tex/wood."));
  EXPECT_EQ(resolve("wood", {""}, {}), "");
}

TEST_F(ResolvePath, SkipsASearchDirectoryThatMayNotBeEntered) {
  writeAll({"d1/wood.png", "d2/wood.png"});
  std::filesystem::permissions("d1", std::filesystem::perms::none);

  runAsUnprivileged([&] { EXPECT_EQ(resolve("old/wood.png", {"d1", "d2"}, {}), "d2/wood.png"); });
}

/// Spellings of the search directory "d".
class SearchDirectory : public ResolvePath, public testing::WithParamInterface<const char*> {};

INSTANTIATE_TEST_SUITE_P(, SearchDirectory,
                         testing::Values("d", "d/", "d//", "./d", "missing/../d", "link", "link/"));

TEST_P(SearchDirectory, IsTakenInNormalForm) {
  writeAll({"d/wood.png", "d/tex/wood.png"});
  tmp.link("link", "d");

  EXPECT_EQ(winners("tex/wood.png", {GetParam()}, {}), lines("d/wood.png", "d/tex/wood.png"));
}

TEST_F(ResolvePath, TakesAbsoluteSearchDirectories) {
  writeAll({"d/wood.png", "d/tex/wood.png"});

  EXPECT_EQ(winners("tex/wood.png", {tmp.path("d")}, {}), lines("d/wood.png", "d/tex/wood.png"));
}

TEST_F(ResolvePath, SearchesTheCurrentDirectoryWhereItIsNamed) {
  tmp.write("wood.png", "");

  EXPECT_EQ(resolve("wood.*", {"."}, {"png"}), "wood.png");
}

TEST_F(ResolvePath, DoesNotDescendIntoSearchDirectories) {
  tmp.write("d/deeper/wood.png", "");

  EXPECT_EQ(resolve("wood.png", {"d"}, {}), "");
}

// ---- Texts -------------------------------------------------------------------------------------

TEST_F(ResolvePath, TakesABackslashForPartOfTheName) {
  writeAll({"d/tex\\wood.png", "d/wood.png", "d/tex/wood.png"});

  EXPECT_EQ(winners("tex\\wood.png", {"d"}, {}), lines("d/tex\\wood.png"));
}

TEST_F(ResolvePath, TakesABackslashBeforeAnOpenExtensionForPartOfTheName) {
  writeAll({"tex/wood.png", "d/wood.png", "d/tex\\wood.png"});

  EXPECT_EQ(winners("tex\\wood.*", {"d"}, {"png"}), lines("d/tex\\wood.png"));
}

TEST_F(ResolvePath, TakesABackslashInASearchDirectoryForPartOfItsName) {
  writeAll({"d\\e/wood.png", "d/e/wood.png"});

  EXPECT_EQ(winners("wood.png", {"d\\e"}, {}), lines("d\\e/wood.png"));
}

TEST_F(ResolvePath, TakesEveryByteOfANameAsItIs) {
  const std::string name = "w \n\"%s'\xff\xc3\xa4";
  writeAll({"d/" + name + ".png"});

  EXPECT_EQ(resolve("old/" + name + ".*", {"d"}, {"png"}), "d/" + name + ".png");
}

TEST_F(ResolvePath, ResolvesTheLinksOfAFileThatItHasSearchedFor) {
  tmp.write("real/wood-1.png", "");
  tmp.link("d/wood.png", "../real/wood-1.png");

  EXPECT_EQ(resolve("old/wood.png", {"d"}, {}), "real/wood-1.png");
  EXPECT_EQ(resolve("old/wood.*", {"d"}, {"png"}), "real/wood-1.png");
  EXPECT_EQ(resolve("d/wood.*", {"d"}, {"png"}), "real/wood-1.png");
}

TEST_F(ResolvePath, LeavesTheCallersValuesAsTheyAre) {
  writeAll({"d/wood.png.tx"});
  const String reference = "./tex//wood.png";
  const StringVector searchDirs = {"d//", "missing/../d"};
  const StringVector extensions = {"*", "tx", ".ty"};

  EXPECT_EQ(relative(text(vx::fs::resolvePath(reference, searchDirs, extensions))),
            "d/wood.png.tx");

  EXPECT_EQ(text(reference), "./tex//wood.png");
  EXPECT_EQ(texts(searchDirs), lines("d//", "missing/../d"));
  EXPECT_EQ(texts(extensions), lines("*", "tx", ".ty"));
}

TEST_F(ResolvePath, ChangesNothingOnDisk) {
  writeAll({"tex/wood.png", "d/wood.png"});
  const Names before = tmp.entries();

  EXPECT_EQ(resolve("old/bark.png", {"missing", "d"}, {"tx"}), "");
  EXPECT_EQ(resolve("old/bark.*", {"missing", "d"}, {"tx"}), "");

  EXPECT_EQ(tmp.entries(), before);
}

TEST_F(ResolvePath, MayRunOnSeveralThreadsWithTheSameValues) {
  writeAll({"d/wood.png.tx"});
  const String reference = "tex/wood.png";
  const StringVector searchDirs = {"missing", "d"};
  const StringVector extensions = {"*", "tx"};
  std::array<std::size_t, 4> found{};

  std::vector<std::thread> threads;
  for (std::size_t& count : found) {
    threads.emplace_back([&] {
      for (int i = 0; i < 50; ++i) {
        const String path = vx::fs::resolvePath(reference, searchDirs, extensions);
        count += path.endsWith("d/wood.png.tx", /*ignoreCase=*/false) ? 1U : 0U;
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }

  EXPECT_TRUE(std::all_of(found.begin(), found.end(), [](std::size_t n) { return n == 50; }));
}

}  // namespace
