// Concern: where an entry's name leads when an archive is expanded: scenes that go beside their
// archive, names that lead out of the output directory, and entries onto the archive itself.

#include "fs/vx_fs.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"
#include "tests/testing/zip_maker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

namespace {

using testing::IsEmpty;
using vx::fs::readZip;
using vx::test::ErrorStateSentinel;
using vx::test::kDosDirectoryBit;
using vx::test::kEncryptedFlag;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::ScopedCurrentDir;
using vx::test::TempDir;
using vx::test::texts;
using vx::test::ZipMaker;

class ZipNames : public testing::Test {
 protected:
  /// Writes the archive "dir/pack.zip" and expands it into "dir/out", which stands already.
  std::vector<std::string> expand(const ZipMaker& zip) {
    tmp.mkdir("dir/out");
    tmp.write("dir/pack.zip", zip.bytes());
    return expandInto("dir/out");
  }

  std::vector<std::string> expandInto(const std::string& directory) {
    return texts(readZip(archive().c_str(), tmp.path(directory).c_str(), {}));
  }

  [[nodiscard]] std::string archive() const { return tmp.path("dir/pack.zip"); }
  [[nodiscard]] std::string scene() const { return tmp.path("dir/pack.ksx"); }
  [[nodiscard]] std::string out(const std::string& name) const {
    return tmp.path("dir/out/" + name);
  }

  TempDir tmp;
  ErrorStateSentinel error;
  LogCapture log;
};

// ---- Scenes -------------------------------------------------------------------------------------

/// A value of a test and how it is called in the test's name.
struct Name {
  const char* label;
  std::string text;
};

void PrintTo(const Name& name, std::ostream* out) {
  *out << name.label;
}

const auto labelOf = [](const testing::TestParamInfo<Name>& parameter) {
  return parameter.param.label;
};

class SceneEntry : public ZipNames, public testing::WithParamInterface<Name> {};

TEST_P(SceneEntry, GoesBesideTheArchiveUnderTheArchivesName) {
  EXPECT_EQ(expand(ZipMaker().file(GetParam().text, "scene")), lines(scene()));

  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/out/", "dir/pack.ksx", "dir/pack.zip"));
  EXPECT_EQ(tmp.read("dir/pack.ksx"), "scene");
  EXPECT_THAT(log.all(), IsEmpty());
  EXPECT_TRUE(error.isUntouched());
}

INSTANTIATE_TEST_SUITE_P(
    Name, SceneEntry,
    testing::Values(Name{"AtTheRoot", "scene.ksx"}, Name{"InUpperCase", "SCENE.KSX"},
                    Name{"InMixedCase", "scene.kSx"}, Name{"InADirectory", "res/deep/scene.ksx"},
                    Name{"OfTheExtensionAlone", ".ksx"}, Name{"LeadingOut", "../scene.ksx"},
                    Name{"LeadingFarOut", "a/../../../../scene.ksx"},
                    Name{"Absolute", "/etc/scene.ksx"}, Name{"OfTwoDots", "...ksx"}),
    labelOf);

class OrdinaryEntry : public ZipNames, public testing::WithParamInterface<Name> {};

TEST_P(OrdinaryEntry, StaysInTheOutputDirectory) {
  EXPECT_EQ(expand(ZipMaker().file(GetParam().text, "text")), lines(out(GetParam().text)));

  EXPECT_EQ(tmp.read("dir/out/" + GetParam().text), "text");
  EXPECT_FALSE(tmp.exists("dir/pack.ksx"));
}

INSTANTIATE_TEST_SUITE_P(Name, OrdinaryEntry,
                         testing::Values(Name{"Look", "look.ksa"}, Name{"Longer", "scene.ksxx"},
                                         Name{"WithoutDot", "ksx"}, Name{"Before", "a.ksx.b"}),
                         labelOf);

TEST_F(ZipNames, OfSeveralScenesTheLastStaysAndEachIsListed) {
  EXPECT_EQ(expand(ZipMaker()
                       .file("a.ksx", "the first, which is longer")
                       .file("b", "text")
                       .file("res/c.KSX", "last")),
            lines(scene(), out("b"), scene()));

  EXPECT_EQ(tmp.read("dir/pack.ksx"), "last");
}

TEST_F(ZipNames, ASceneReplacesTheOneBesideTheArchive) {
  tmp.write("dir/pack.ksx", "a scene that was there before");

  EXPECT_EQ(expand(ZipMaker().file("scene.ksx", "scene")), lines(scene()));

  EXPECT_EQ(tmp.read("dir/pack.ksx"), "scene");
}

TEST_F(ZipNames, ASceneTakesTheLastExtensionOfTheArchiveOff) {
  const std::string dots = tmp.write("a.b.zip", ZipMaker().file("s.ksx", "1").bytes());
  const std::string none = tmp.write("bare", ZipMaker().file("s.ksx", "2").bytes());
  const std::string hidden = tmp.write(".zip", ZipMaker().file("s.ksx", "3").bytes());

  EXPECT_EQ(texts(readZip(dots.c_str(), "", {})), lines(tmp.path("a.b.ksx")));
  EXPECT_EQ(texts(readZip(none.c_str(), "", {})), lines(tmp.path("bare.ksx")));
  EXPECT_EQ(texts(readZip(hidden.c_str(), "", {})), lines(tmp.path(".zip.ksx")));
}

TEST_F(ZipNames, ASceneOfARelativeArchiveIsListedByItsCanonicalPath) {
  tmp.write("dir/pack.zip", ZipMaker().file("a", "text").file("s.ksx", "scene").bytes());
  const ScopedCurrentDir current(tmp.path());

  EXPECT_EQ(texts(readZip("dir/pack.zip", "out", {})), lines("out/a", scene()));
}

TEST_F(ZipNames, AnUnsupportedSceneIsWarnedAboutByItsRawName) {
  EXPECT_THAT(
      expand(ZipMaker().add({.name = "../s.ksx", .content = "scene", .flags = kEncryptedFlag})),
      IsEmpty());

  EXPECT_EQ(log.all(), lines("warning: Unaupported file in archive: ../s.ksx"));
  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/out/", "dir/pack.zip"));
}

TEST_F(ZipNames, ADamagedSceneIsLoggedByItsPlaceBesideTheArchive) {
  EXPECT_THAT(expand(ZipMaker().add({.name = "s.ksx", .content = "scene", .crc = 1})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + scene() + " from archive."));
}

TEST_F(ZipNames, ASceneCannotReplaceADirectory) {
  tmp.mkdir("dir/pack.ksx");

  EXPECT_EQ(expand(ZipMaker().file("s.ksx", "scene").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + scene() + " from archive."));
}

TEST_F(ZipNames, ADirectoryWithTheNameOfASceneGoesBesideTheArchiveToo) {
  EXPECT_THAT(
      expand(ZipMaker().add({.name = "s.ksx", .content = "", .attributes = kDosDirectoryBit})),
      IsEmpty());

  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/out/", "dir/pack.ksx/", "dir/pack.zip"));
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(ZipNames, ASceneDirectoryThatCannotBeMadeIsLoggedByItsPlaceBesideTheArchive) {
  tmp.write("dir/pack.ksx", "in the way");

  EXPECT_THAT(
      expand(ZipMaker().add({.name = "s.ksx", .content = "", .attributes = kDosDirectoryBit})),
      IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to create archive subdir: " + scene()));
}

TEST_F(ZipNames, ADirectoryWhoseNameEndsInASeparatorIsNoScene) {
  EXPECT_THAT(expand(ZipMaker().directory("s.ksx/")), IsEmpty());

  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/out/", "dir/out/s.ksx/", "dir/pack.zip"));
}

TEST_F(ZipNames, AnEmptyNameInADirectoryNamedLikeASceneIsAScene) {
  tmp.write("dir/pack.zip", ZipMaker().file("", "scene").bytes());

  EXPECT_EQ(expandInto("dir/out.ksx"), lines(scene()));

  EXPECT_EQ(tmp.read("dir/pack.ksx"), "scene");
}

// ---- Names that lead out ------------------------------------------------------------------------

class LeadingOut : public ZipNames, public testing::WithParamInterface<Name> {};

TEST_P(LeadingOut, IsRefusedLikeAnUnsupportedEntry) {
  const std::string& name = GetParam().text;

  EXPECT_EQ(expand(ZipMaker().file(name, "escaped").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("warning: Unaupported file in archive: " + name));
  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/out/", "dir/out/a", "dir/pack.zip"));
  EXPECT_TRUE(error.isUntouched());
}

TEST_P(LeadingOut, IsRefusedAsADirectory) {
  const std::string name = GetParam().text + "/";

  EXPECT_EQ(expand(ZipMaker().directory(name).file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("warning: Unaupported file in archive: " + name));
  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/out/", "dir/out/a", "dir/pack.zip"));
}

INSTANTIATE_TEST_SUITE_P(
    Name, LeadingOut,
    testing::Values(Name{"TheDirectoryAbove", ".."}, Name{"AFileAbove", "../x"},
                    Name{"ADirectoryAbove", "../x/y"}, Name{"TwoAbove", "../../x"},
                    Name{"AfterASeparator", "/../x"}, Name{"AfterSeparators", "///../x"},
                    Name{"AfterADot", "./../x"}, Name{"AfterADirectory", "a/../../x"},
                    Name{"AfterADirectoryThatIsMissing", "missing/../../x"},
                    Name{"AfterDotsAndSeparators", "a/.//..//./../x"}, Name{"AtTheEnd", "a/../.."},
                    Name{"BackIntoTheDirectory", "../out/x"},
                    Name{"OntoTheArchive", "../pack.zip"}),
    labelOf);

TEST_F(ZipNames, ARefusedNameDoesNotTouchTheFileThatItLeadsTo) {
  tmp.write("dir/x", "before");

  EXPECT_THAT(expand(ZipMaker().file("../x", "after")), IsEmpty());

  EXPECT_EQ(tmp.read("dir/x"), "before");
}

TEST_F(ZipNames, NoNameLeadsToTheRoot) {
  const std::string far = "../../../../../../../../../../../../../../vx_must_not_be_here";

  EXPECT_THAT(expand(ZipMaker().file(far, "1").file("/vx_must_not_be_here", "2")),
              testing::ElementsAre(out("vx_must_not_be_here")));

  EXPECT_FALSE(std::filesystem::exists("/vx_must_not_be_here"));
}

/// A name and the place, below the output directory, where its file is found.
struct Inside {
  const char* label;
  std::string name;
  std::string place;
};

void PrintTo(const Inside& inside, std::ostream* out) {
  *out << inside.label;
}

class LeadingIn : public ZipNames, public testing::WithParamInterface<Inside> {};

TEST_P(LeadingIn, IsExtractedBelowTheOutputDirectory) {
  tmp.mkdir("dir/out/d");

  const std::vector<std::string> extracted = expand(ZipMaker().file(GetParam().name, "text"));

  EXPECT_EQ(tmp.read("dir/out/" + GetParam().place), "text");
  EXPECT_THAT(extracted, testing::SizeIs(1));
  EXPECT_THAT(log.all(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Name, LeadingIn,
    testing::Values(Inside{"Absolute", "/etc/vx_absolute", "etc/vx_absolute"},
                    Inside{"WithTwoSeparatorsInFront", "//x", "x"},
                    Inside{"ThreeDots", "...", "..."}, Inside{"DotsInFront", "..x", "..x"},
                    Inside{"DotsBehind", "x..", "x.."},
                    Inside{"DotsInADirectory", "..d/x", "..d/x"},
                    Inside{"BackslashesAreNoSeparators", "..\\x", "..\\x"},
                    Inside{"ADriveIsADirectory", "C:/x", "C:/x"}, Inside{"ADot", "./x", "x"},
                    Inside{"ASeparatorMore", "d//x", "d/x"},
                    Inside{"BackFromADirectory", "d/../x", "x"},
                    Inside{"AsFarBackAsTheOutputDirectory", "d/../d/../x", "x"}),
    [](const auto& parameter) { return parameter.param.label; });

TEST_F(ZipNames, TheListedPathIsTheJoinAsItIsWritten) {
  tmp.mkdir("dir/out/d");

  EXPECT_EQ(expand(ZipMaker().file("d/.././/x", "1").file("//y", "2")),
            lines(out("d/.././/x"), out("y")));
}

TEST_F(ZipNames, ANameThatGoesBackFromAMissingDirectoryIsNotFound) {
  EXPECT_EQ(expand(ZipMaker().file("missing/../x", "text").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(),
            lines("error: Failed to extract file " + out("missing/../x") + " from archive."));
  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/out/", "dir/out/a", "dir/pack.zip"));
}

TEST_F(ZipNames, AFileCannotTakeThePlaceOfTheOutputDirectory) {
  EXPECT_EQ(
      expand(ZipMaker().file("", "text").file(".", "text").file("d/..", "text").file("a", "text")),
      lines(out("a")));

  EXPECT_EQ(log.all(),
            lines("error: Failed to extract file " + tmp.path("dir/out") + " from archive.",
                  "error: Failed to extract file " + out(".") + " from archive.",
                  "error: Failed to extract file " + out("d/..") + " from archive."));
}

TEST_F(ZipNames, TheOutputDirectoryItselfMayBeAnEntry) {
  EXPECT_THAT(expand(ZipMaker().directory("/").directory("./").directory("d/../")), IsEmpty());

  EXPECT_THAT(log.all(), IsEmpty());
  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/out/", "dir/pack.zip"));
}

TEST_F(ZipNames, ANameEndsAtItsFirstNul) {
  const std::string nul(1, '\0');

  EXPECT_EQ(expand(ZipMaker()
                       .file("kept" + nul + "/../../x", "text")
                       .file("../x" + nul + "s.ksx", "escaped")
                       .file("s.ksx" + nul + ".png", "scene")),
            lines(out("kept"), scene()));

  EXPECT_EQ(log.all(), lines("warning: Unaupported file in archive: ../x"));
  EXPECT_EQ(tmp.entries(),
            lines("dir/", "dir/out/", "dir/out/kept", "dir/pack.ksx", "dir/pack.zip"));
}

TEST_F(ZipNames, ALinkInTheArchiveDoesNotLeadOut) {
  EXPECT_EQ(expand(ZipMaker()
                       .add({.name = "d", .content = "..", .attributes = vx::test::kUnixLink})
                       .file("d/x", "escaped")
                       .file("a", "text")),
            lines(out("d"), out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to create archive subdir: " + out("d/x")));
  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/out/", "dir/out/a", "dir/out/d", "dir/pack.zip"));
}

// ---- Onto the archive itself --------------------------------------------------------------------

/// An output directory and a name in it that meet at the archive "dir/pack.zip".
struct Meeting {
  const char* label;
  std::string directory;
  std::string name;
};

void PrintTo(const Meeting& meeting, std::ostream* out) {
  *out << meeting.label;
}

class OntoTheArchive : public ZipNames, public testing::WithParamInterface<Meeting> {};

TEST_P(OntoTheArchive, FailsAndLeavesTheArchiveWhole) {
  const std::string bytes =
      ZipMaker().file(GetParam().name, "no archive").file("a", "text").bytes();
  tmp.write("dir/pack.zip", bytes);
  tmp.mkdir("dir/d");
  tmp.link("link to dir", "dir");
  tmp.link("dir/out/link", "../pack.zip");
  tmp.link("dir/out/link to link", "link");
  std::filesystem::create_hard_link(archive(), tmp.path("dir/out/hard link"));

  EXPECT_EQ(expandInto(GetParam().directory), lines(tmp.path(GetParam().directory + "/a")));

  EXPECT_EQ(log.all(),
            lines("error: Failed to extract file " +
                  tmp.path(GetParam().directory + "/" + GetParam().name) + " from archive."));
  EXPECT_EQ(tmp.read("dir/pack.zip"), bytes);
  EXPECT_TRUE(error.isUntouched());
}

INSTANTIATE_TEST_SUITE_P(
    Spelled, OntoTheArchive,
    testing::Values(Meeting{"ByItsName", "dir", "pack.zip"},
                    Meeting{"WithADot", "dir", "./pack.zip"},
                    Meeting{"ByWayOfADirectory", "dir", "d/../pack.zip"},
                    Meeting{"WithSeparators", "dir", "d/..//pack.zip"},
                    Meeting{"FromAbove", ".", "dir/pack.zip"},
                    Meeting{"InADirectoryThatIsALink", "link to dir", "pack.zip"},
                    Meeting{"BelowALinkInTheName", ".", "link to dir/pack.zip"},
                    Meeting{"ByALink", "dir/out", "link"},
                    Meeting{"ByALinkToALink", "dir/out", "link to link"},
                    Meeting{"ByAHardLink", "dir/out", "hard link"}),
    [](const auto& parameter) { return parameter.param.label; });

TEST_F(ZipNames, AnArchiveGivenByALinkIsNotReplacedThroughIt) {
  const std::string bytes = ZipMaker().file("link.zip", "no archive").bytes();
  tmp.write("dir/pack.zip", bytes);
  const std::string link = tmp.link("link.zip", "dir/pack.zip");

  EXPECT_THAT(texts(readZip(link.c_str(), "", {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + link + " from archive."));
  EXPECT_EQ(tmp.read("dir/pack.zip"), bytes);
  EXPECT_TRUE(std::filesystem::is_symlink(link));
}

TEST_F(ZipNames, AnArchiveNamedLikeASceneIsNotReplacedByItsScene) {
  const std::string bytes =
      ZipMaker().file("scene.ksx", "scene").file("a", "text").file("other.KSX", "scene").bytes();
  const std::string archive = tmp.write("dir/scene.ksx", bytes);

  EXPECT_EQ(texts(readZip(archive.c_str(), "", {})), lines(tmp.path("dir/a")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + archive + " from archive.",
                             "error: Failed to extract file " + archive + " from archive."));
  EXPECT_EQ(tmp.read("dir/scene.ksx"), bytes);
}

TEST_F(ZipNames, ASceneBesideTheArchiveThatIsALinkToItIsNotReplaced) {
  const std::string bytes = ZipMaker().file("scene.ksx", "scene").bytes();
  tmp.write("dir/pack.zip", bytes);
  tmp.link("dir/pack.ksx", "pack.zip");

  EXPECT_THAT(expandInto("dir"), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + scene() + " from archive."));
  EXPECT_EQ(tmp.read("dir/pack.zip"), bytes);
}

TEST_F(ZipNames, ACopyOfTheArchiveIsReplacedLikeAnyFile) {
  const std::string bytes = ZipMaker().file("pack.zip", "text").bytes();
  tmp.write("dir/pack.zip", bytes);
  tmp.write("dir/out/pack.zip", bytes);

  EXPECT_EQ(expandInto("dir/out"), lines(out("pack.zip")));

  EXPECT_EQ(tmp.read("dir/out/pack.zip"), "text");
  EXPECT_EQ(tmp.read("dir/pack.zip"), bytes);
}

TEST_F(ZipNames, AnUnsupportedEntryOntoTheArchiveIsWarnedAbout) {
  const std::string bytes =
      ZipMaker().add({.name = "pack.zip", .content = "x", .flags = kEncryptedFlag}).bytes();
  tmp.write("dir/pack.zip", bytes);

  EXPECT_THAT(expandInto("dir"), IsEmpty());

  EXPECT_EQ(log.all(), lines("warning: Unaupported file in archive: pack.zip"));
  EXPECT_EQ(tmp.read("dir/pack.zip"), bytes);
}

TEST_F(ZipNames, ADirectoryInPlaceOfTheArchiveCannotBeMade) {
  const std::string bytes = ZipMaker().directory("pack.zip/").file("pack.zip/a", "text").bytes();
  tmp.write("dir/pack.zip", bytes);

  EXPECT_THAT(expandInto("dir"), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to create archive subdir: " + archive() + "/",
                             "error: Failed to create archive subdir: " + archive() + "/a"));
  EXPECT_EQ(tmp.read("dir/pack.zip"), bytes);
}

}  // namespace
