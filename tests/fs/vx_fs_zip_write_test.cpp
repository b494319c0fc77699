// Concern: writing an archive, step by step: the names and bytes of its entries, the reports, what
// each failure logs, and what is left on disk.

#include "fs/vx_fs.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/own_mounts.h"
#include "tests/testing/peak_memory.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/scoped_env.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"
#include "tests/testing/zip_contents.h"
#include "tests/testing/zip_left_open.h"
#include "tests/testing/zip_maker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <csignal>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <ios>
#include <ostream>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vx::String;
using vx::StringVector;
using vx::fs::readZip;
using vx::fs::writeZip;
using vx::fs::ZipCallback;
using vx::fs::ZipProgress;
using vx::test::canMount;
using vx::test::contentsOf;
using vx::test::ErrorStateSentinel;
using vx::test::kCannotMount;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::mountMemory;
using vx::test::namesIn;
using vx::test::noise;
using vx::test::peakKibibytes;
using vx::test::runAsUnprivileged;
using vx::test::runInChild;
using vx::test::runWithOwnMounts;
using vx::test::ScopedCurrentDir;
using vx::test::ScopedEnv;
using vx::test::TempDir;
using vx::test::texts;
using vx::test::ZipContent;

static_assert(std::is_same_v<decltype(ZipProgress::file), String>);
static_assert(std::is_same_v<decltype(ZipProgress::progress), double>);

// For everybody, the owner too: the tests need not run as root.
constexpr auto kMayRead = std::filesystem::perms{0444};
constexpr auto kMayEnter = std::filesystem::perms{0555};

/// One report, to compare whole.
using Report = std::pair<std::string, double>;

/// A directory to work in, a log, and a current error that writing never touches. `write` writes
/// "pack.zip" and keeps the reports.
class WriteZip : public testing::Test {
 protected:
  bool write(StringVector files) { return writeZip(archive().c_str(), files, keepReports()); }

  ZipCallback keepReports() {
    return [this](const ZipProgress& report) {
      reports.emplace_back(report.file.view(), report.progress);
    };
  }

  [[nodiscard]] std::string archive() const { return tmp.path("pack.zip"); }

  /// A file of the given path and content.
  [[nodiscard]] String file(const std::string& relative, const std::string& content) const {
    return tmp.write(relative, content).c_str();
  }

  TempDir tmp;
  ErrorStateSentinel error;
  LogCapture log;
  std::vector<Report> reports;
};

// ---- What is in the archive ---------------------------------------------------------------------

TEST_F(WriteZip, PutsTheSceneAndItsLooksAtTheRootAndTheRestInRes) {
  EXPECT_TRUE(write(
      {file("p/scene.ksx", "scene"), file("p/look.ksa", "look"), file("p/tex/wood.png", "wood")}));

  EXPECT_THAT(contentsOf(archive()),
              ElementsAre(ZipContent{"scene.ksx", "scene"}, ZipContent{"look.ksa", "look"},
                          ZipContent{"res/wood.png", "wood"}));
  EXPECT_THAT(reports, ElementsAre(Report("scene.ksx", 0.0), Report("look.ksa", 1.0 / 3.0),
                                   Report("res/wood.png", 2.0 / 3.0)));
  EXPECT_THAT(log.all(), IsEmpty());
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(WriteZip, TakesOnlyLowerCaseExtensionsForThoseOfAScene) {
  EXPECT_TRUE(write({file("Scene.KSX", "1"), file("Look.Ksa", "2"), file("a.ksxx", "3"),
                     file("ksx", "4"), file("b.ksx.png", "5")}));

  EXPECT_EQ(namesIn(archive()),
            lines("res/Scene.KSX", "res/Look.Ksa", "res/a.ksxx", "res/ksx", "res/b.ksx.png"));
}

TEST_F(WriteZip, TakesAnExtensionAloneForThatOfAScene) {
  EXPECT_TRUE(write({file(".ksx", "1"), file(".ksa", "2"), file("a.b.ksa", "3")}));

  EXPECT_EQ(namesIn(archive()), lines(".ksx", ".ksa", "a.b.ksa"));
}

TEST_F(WriteZip, MakesTwoEntriesOfTwoFilesOfOneName) {
  EXPECT_TRUE(write({file("a/wood.png", "from a"), file("b/wood.png", "from b")}));

  EXPECT_THAT(contentsOf(archive()), ElementsAre(ZipContent{"res/wood.png", "from a"},
                                                 ZipContent{"res/wood.png", "from b"}));
}

TEST_F(WriteZip, AddsAFileAsOftenAsItIsGiven) {
  const String wood = file("wood.png", "wood");

  EXPECT_TRUE(write({wood, wood}));

  EXPECT_THAT(contentsOf(archive()),
              ElementsAre(ZipContent{"res/wood.png", "wood"}, ZipContent{"res/wood.png", "wood"}));
}

TEST_F(WriteZip, KeepsEveryByte) {
  const std::string binary = noise(300'000);
  const std::string prose(300'000, 'x');

  EXPECT_TRUE(write({file("binary", binary), file("prose", prose), file("empty", ""),
                     file("nul", std::string("\0\r\n", 3))}));

  EXPECT_THAT(
      contentsOf(archive()),
      ElementsAre(ZipContent{"res/binary", binary}, ZipContent{"res/prose", prose},
                  ZipContent{"res/empty", ""}, ZipContent{"res/nul", std::string("\0\r\n", 3)}));
}

TEST_F(WriteZip, Compresses) {
  EXPECT_TRUE(write({file("prose", std::string(300'000, 'x'))}));

  EXPECT_LT(std::filesystem::file_size(archive()), 10'000U);
}

TEST_F(WriteZip, NamesAnEntryByTheNormalFormOfItsPath) {
  static_cast<void>(file("p/wood.png", "wood"));

  EXPECT_TRUE(write({tmp.path("p/x/..//./wood.png").c_str(), tmp.path("p/wood.png/").c_str()}));

  EXPECT_EQ(namesIn(archive()), lines("res/wood.png", "res/wood.png"));
}

TEST_F(WriteZip, NamesAnEntryByTheLinkAndFillsItFromTheTarget) {
  static_cast<void>(file("p/target", "content"));
  const std::string link = tmp.link("link.ksx", "p/target");

  EXPECT_TRUE(write({link.c_str()}));

  EXPECT_THAT(contentsOf(archive()), ElementsAre(ZipContent{"link.ksx", "content"}));
}

TEST_F(WriteZip, TakesRelativePaths) {
  static_cast<void>(file("p/wood.png", "wood"));
  const ScopedCurrentDir current(tmp.path("p"));

  EXPECT_TRUE(writeZip("../pack.zip", {"wood.png"}, {}));

  EXPECT_THAT(contentsOf(archive()), ElementsAre(ZipContent{"res/wood.png", "wood"}));
}

TEST_F(WriteZip, WritesTheSameBytesOnEverySystem) {
  // 29 February 2024, 13:14:16.
  const ScopedEnv timeZone("TZ", "UTC0");
  const std::array<timespec, 2> times = {timespec{1'709'212'456, 0}, timespec{1'709'212'456, 0}};
  const String look = file("lamp.ksa", "abc");
  const String texture = file("\xC3\xA4.txt", "");
  for (const String& source : {look, texture}) {
    ASSERT_EQ(::utimensat(AT_FDCWD, source.buf(), times.data(), 0), 0);
  }

  EXPECT_TRUE(write({look, texture}));

  using namespace std::string_literals;
  const std::string expected =
      // The files, too short to be worth compressing: signature, version, marks, method, time and
      // date; checksum and sizes, which follow the bytes; lengths, name, bytes.
      "PK\3\4\0\0\x08\x08\0\0\xC8\x69\x5D\x58\0\0\0\0\0\0\0\0\0\0\0\0\x08\0\0\0lamp.ksaabc"
      "PK\7\x08\xC2\x41\x24\x35\3\0\0\0\3\0\0\0"
      "PK\3\4\0\0\x08\x08\0\0\xC8\x69\x5D\x58\0\0\0\0\0\0\0\0\0\0\0\0\x0A\0\0\0res/\xC3\xA4.txt"
      "PK\7\x08\0\0\0\0\0\0\0\0\0\0\0\0"
      // The same in the directory, with the offsets.
      "PK\1\2\0\0\0\0\x08\x08\0\0\xC8\x69\x5D\x58\xC2\x41\x24\x35\3\0\0\0\3\0\0\0\x08\0\0\0\0\0\0\0"
      "\0\0"
      "\0\0\0\0\0\0\0\0lamp.ksa"
      "PK\1\2\0\0\0\0\x08\x08\0\0\xC8\x69\x5D\x58\0\0\0\0\0\0\0\0\0\0\0\0\x0A\0\0\0\0\0\0\0\0\0"
      "\0\0\0\0\x39\0\0\0res/\xC3\xA4.txt"
      // The end: two entries, the directory's size and offset.
      "PK\5\6\0\0\0\0\2\0\2\0\x6E\0\0\0\x71\0\0\0\0\0"s;
  EXPECT_EQ(tmp.read("pack.zip"), expected);
}

TEST_F(WriteZip, WritesAnEmptyArchiveOfNoFiles) {
  EXPECT_TRUE(write({}));

  EXPECT_THAT(namesIn(archive()), IsEmpty());
  EXPECT_EQ(std::filesystem::file_size(archive()), 22U);
  EXPECT_THAT(reports, IsEmpty());
  EXPECT_THAT(log.all(), IsEmpty());
  EXPECT_TRUE(error.isUntouched());
}

struct OddName {
  const char* label;
  std::string name;
};

void PrintTo(const OddName& odd, std::ostream* out) {
  *out << odd.label;
}

class WriteZipName : public WriteZip, public testing::WithParamInterface<OddName> {};

TEST_P(WriteZipName, IsTheNameOfTheEntryByteForByte) {
  const std::string& name = GetParam().name;

  EXPECT_TRUE(write({file("p/" + name, "text")}));

  EXPECT_THAT(contentsOf(archive()), ElementsAre(ZipContent{"res/" + name, "text"}));
  EXPECT_THAT(reports, ElementsAre(Report("res/" + name, 0.0)));
}

TEST_P(WriteZipName, IsMarkedAsUtf8WhateverItsBytes) {
  constexpr std::size_t kFlags =
      8;  // in the directory of the archive, two bytes, the low one first
  constexpr unsigned kNameIsUtf8 = 1U << 11U;

  EXPECT_TRUE(write({file("p/" + GetParam().name, "text")}));

  const std::string bytes = tmp.read("pack.zip");
  const std::size_t entry = bytes.find("PK\1\2");
  ASSERT_NE(entry, std::string::npos);
  const auto low = static_cast<unsigned char>(bytes[entry + kFlags]);
  const auto high = static_cast<unsigned char>(bytes[entry + kFlags + 1]);
  EXPECT_EQ((low | unsigned{high} << 8U) & kNameIsUtf8, kNameIsUtf8);
}

TEST_P(WriteZipName, ComesBackAsItWas) {
  const std::string& name = GetParam().name;
  ASSERT_TRUE(write({file("p/" + name, "text")}));

  EXPECT_EQ(texts(readZip(archive().c_str(), tmp.path("out").c_str(), {})),
            lines(tmp.path("out/res/" + name)));

  EXPECT_EQ(tmp.read("out/res/" + name), "text");
}

INSTANTIATE_TEST_SUITE_P(
    Odd, WriteZipName,
    testing::Values(OddName{"Spaces", " a name with spaces "},
                    OddName{"LineBreaks", "line\nbreak\r"}, OddName{"Utf8", "\xC3\xA4.png"},
                    OddName{"NotUtf8", "\xFF\xFE\x80"}, OddName{"Backslash", "back\\slash"},
                    OddName{"Format", "%s%n%d"}, OddName{"Hidden", ".hidden"},
                    OddName{"ThreeDots", "..."}, OddName{"Longest", std::string(255, 'n')}),
    [](const auto& parameter) { return parameter.param.label; });

TEST_F(WriteZip, AndReadZipDisagreeAboutAnExtensionInUpperCase) {
  ASSERT_TRUE(write({file("p/Scene.KSX", "scene")}));

  EXPECT_EQ(texts(readZip(archive().c_str(), tmp.path("out").c_str(), {})),
            lines(tmp.path("pack.ksx")));

  EXPECT_EQ(namesIn(archive()), lines("res/Scene.KSX"));
}

// ---- Inputs that are missing --------------------------------------------------------------------

TEST_F(WriteZip, SkipsWhatIsNoFileAndReportsTheRest) {
  const std::string directory = tmp.mkdir("directory");
  const std::string dangling = tmp.link("dangling", "gone");

  EXPECT_TRUE(write({file("a", "1"), tmp.path("x/..//gone").c_str(), file("b", "2"),
                     directory.c_str(), dangling.c_str(), "", file("c", "3")}));

  EXPECT_EQ(log.all(), lines("error: Cannot add non-existent file to archive: " + tmp.path("gone"),
                             "error: Cannot add non-existent file to archive: " + directory,
                             "error: Cannot add non-existent file to archive: " + dangling,
                             "error: Cannot add non-existent file to archive: "));
  EXPECT_EQ(namesIn(archive()), lines("res/a", "res/b", "res/c"));
  EXPECT_THAT(reports, ElementsAre(Report("res/a", 0.0), Report("res/b", 2.0 / 7.0),
                                   Report("res/c", 6.0 / 7.0)));
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(WriteZip, NamesARelativeMissingInputAsItIs) {
  const ScopedCurrentDir current(tmp.path());

  EXPECT_TRUE(write({"./gone"}));

  EXPECT_EQ(log.all(), lines("error: Cannot add non-existent file to archive: gone"));
}

TEST_F(WriteZip, WritesAnEmptyArchiveWhenEveryInputIsMissing) {
  EXPECT_TRUE(write({tmp.path("gone").c_str(), tmp.path("away").c_str()}));

  EXPECT_THAT(namesIn(archive()), IsEmpty());
  EXPECT_THAT(reports, IsEmpty());
}

// ---- Reports ------------------------------------------------------------------------------------

TEST_F(WriteZip, ReportsTheFilesBeforeEachAsAFractionOfAll) {
  StringVector files;
  std::vector<Report> expected;
  for (int i = 0; i < 7; ++i) {
    files.push_back(file(std::to_string(i), "text"));
    expected.emplace_back("res/" + std::to_string(i), static_cast<double>(i) / 7.0);
  }

  EXPECT_TRUE(write(files));

  EXPECT_EQ(reports, expected);
}

TEST_F(WriteZip, ReportsNothingDoneForASingleFile) {
  EXPECT_TRUE(write({file("a", "text")}));

  EXPECT_THAT(reports, ElementsAre(Report("res/a", 0.0)));
}

TEST_F(WriteZip, DoesNotSeeWhatACallbackAddsToTheCallersList) {
  StringVector files = {file("a", "1"), file("b", "2")};
  const String late = file("late", "3");

  EXPECT_TRUE(writeZip(archive().c_str(), files, [&](const ZipProgress& report) {
    reports.emplace_back(report.file.view(), report.progress);
    files.push_back(late);
  }));

  EXPECT_EQ(files.size(), 4U);
  EXPECT_EQ(namesIn(archive()), lines("res/a", "res/b"));
  EXPECT_THAT(reports, ElementsAre(Report("res/a", 0.0), Report("res/b", 0.5)));
}

TEST_F(WriteZip, NeedsNoCallback) {
  EXPECT_TRUE(writeZip(archive().c_str(), {file("a", "text")}));
  EXPECT_TRUE(writeZip(archive().c_str(), {file("a", "text")}, {}));
  EXPECT_TRUE(writeZip(archive().c_str(), {file("a", "text")}, nullptr));

  EXPECT_EQ(namesIn(archive()), lines("res/a"));
}

struct Stop {
  int number;
};

TEST_F(WriteZip, LetsTheExceptionOfACallbackThrough) {
  int reported = 0;
  const ZipCallback stopAtTheSecond = [&](const ZipProgress&) {
    if (++reported == 2) {
      throw Stop{42};
    }
  };
  int caught = 0;

  try {
    const vx::test::ArchiveIsLeftOpen onPurpose;
    writeZip(archive().c_str(), {file("a", "1"), file("b", "2"), file("c", "3")}, stopAtTheSecond);
  } catch (const Stop& stop) {
    caught = stop.number;
  }

  EXPECT_EQ(caught, 42);
  EXPECT_EQ(reported, 2);
  EXPECT_TRUE(tmp.exists("pack.zip"));
  EXPECT_THAT(log.all(), IsEmpty());
}

// ---- Where the archive goes ---------------------------------------------------------------------

TEST_F(WriteZip, ReplacesTheArchiveThatIsThere) {
  tmp.write("pack.zip", noise(10'000));

  EXPECT_TRUE(write({file("a", "text")}));

  EXPECT_EQ(namesIn(archive()), lines("res/a"));
  EXPECT_LT(std::filesystem::file_size(archive()), 1'000U);
}

TEST_F(WriteZip, WritesToTheNormalFormOfThePath) {
  EXPECT_TRUE(writeZip(tmp.path("missing/..//./pack.zip/").c_str(), {file("a", "text")}, {}));

  EXPECT_EQ(tmp.entries(), lines("a", "pack.zip"));
}

TEST_F(WriteZip, WritesThroughALink) {
  tmp.write("real.zip", "before");
  tmp.link("pack.zip", "real.zip");

  EXPECT_TRUE(write({file("a", "text")}));

  EXPECT_TRUE(std::filesystem::is_symlink(archive()));
  EXPECT_EQ(namesIn(tmp.path("real.zip")), lines("res/a"));
}

TEST_F(WriteZip, LeavesTheCallersArgumentsAlone) {
  const std::string name = tmp.path("./pack.zip");
  const String given = name.c_str();
  const StringVector files = {tmp.path("./gone").c_str(), file("a", "text")};
  const std::vector<std::string> before = texts(files);

  EXPECT_TRUE(writeZip(given, files, {}));

  EXPECT_EQ(given, name.c_str());
  EXPECT_EQ(texts(files), before);
}

TEST_F(WriteZip, CannotInitializeInAMissingDirectory) {
  EXPECT_FALSE(writeZip(tmp.path("gone/./pack.zip").c_str(), {file("a", "text")}, keepReports()));

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + tmp.path("gone/pack.zip")));
  EXPECT_EQ(tmp.entries(), lines("a"));
  EXPECT_THAT(reports, IsEmpty());
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(WriteZip, CannotInitializeBelowAFile) {
  const std::string below = tmp.write("file", "text") + "/pack.zip";

  EXPECT_FALSE(writeZip(below.c_str(), {}, {}));

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + below));
  EXPECT_EQ(tmp.read("file"), "text");
}

TEST_F(WriteZip, LeavesTheDirectoryInPlaceOfTheArchive) {
  tmp.mkdir("pack.zip");

  EXPECT_FALSE(write({file("a", "text")}));

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive()));
  EXPECT_EQ(tmp.entries(), lines("a", "pack.zip/"));
}

TEST_F(WriteZip, CannotInitializeWithoutAName) {
  EXPECT_FALSE(writeZip("", {file("a", "text")}, {}));

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: "));
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(WriteZip, CannotInitializeUnderANameThatIsTooLong) {
  const std::string name = tmp.path(std::string(256, 'n'));

  EXPECT_FALSE(writeZip(name.c_str(), {}, {}));

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + name));
}

TEST_F(WriteZip, LeavesALinkLoopInPlaceOfTheArchive) {
  tmp.link("pack.zip", "pack.zip");

  EXPECT_FALSE(write({}));

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive()));
  EXPECT_EQ(tmp.entries(), lines("pack.zip"));
}

TEST_F(WriteZip, RemovesTheArchiveThatItMayNotReplace) {
  std::filesystem::permissions(tmp.mkdir("open"), std::filesystem::perms::all);
  const std::string before = tmp.write("open/pack.zip", "before");
  std::filesystem::permissions(before, kMayRead);

  runAsUnprivileged([&] {
    EXPECT_FALSE(writeZip(before.c_str(), {}, {}));

    EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + before));
    EXPECT_TRUE(error.isUntouched());
  });
  EXPECT_EQ(tmp.entries(), lines("open/"));
}

TEST_F(WriteZip, LeavesTheArchiveThatItMayNotRemove) {
  std::filesystem::permissions(tmp.write("pack.zip", "before"), kMayRead);
  std::filesystem::permissions(tmp.path(), kMayEnter);

  runAsUnprivileged([&] {
    EXPECT_FALSE(write({}));

    EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive()));
    EXPECT_TRUE(error.isUntouched());
  });
  EXPECT_EQ(tmp.read("pack.zip"), "before");
}

// ---- An archive among its own inputs ------------------------------------------------------------

/// Two spellings of the existing archive "pack.zip", as the archive and as an input.
struct OwnInput {
  const char* label;
  const char* archive;
  const char* input;
  const char* canonicalInput;
};

void PrintTo(const OwnInput& input, std::ostream* out) {
  *out << input.label;
}

class WriteZipWithItself : public WriteZip, public testing::WithParamInterface<OwnInput> {};

TEST_P(WriteZipWithItself, FailsAndChangesNothing) {
  tmp.write("pack.zip", "precious");
  tmp.link("link", "pack.zip");
  tmp.link("here", ".");
  std::filesystem::create_hard_link(archive(), tmp.path("hard link"));
  const std::vector<std::string> before = tmp.entries();
  const ScopedCurrentDir current(tmp.path());

  EXPECT_FALSE(writeZip(GetParam().archive, {"gone", GetParam().input}, keepReports()));

  EXPECT_EQ(log.all(),
            lines("error: Failed to add file to archive: " + tmp.path(GetParam().canonicalInput)));
  EXPECT_EQ(tmp.entries(), before);
  EXPECT_EQ(tmp.read("pack.zip"), "precious");
  EXPECT_THAT(reports, IsEmpty());
  EXPECT_TRUE(error.isUntouched());
}

INSTANTIATE_TEST_SUITE_P(
    Spelled, WriteZipWithItself,
    testing::Values(OwnInput{"Alike", "pack.zip", "pack.zip", "pack.zip"},
                    OwnInput{"WithADot", "pack.zip", "./pack.zip", "pack.zip"},
                    OwnInput{"ByALink", "pack.zip", "link", "pack.zip"},
                    OwnInput{"ByAHardLink", "pack.zip", "hard link", "hard link"},
                    OwnInput{"InADirectoryThatIsALink", "pack.zip", "here/pack.zip", "pack.zip"},
                    OwnInput{"ByALinkAsTheArchive", "link", "pack.zip", "pack.zip"},
                    OwnInput{"ByAHardLinkAsTheArchive", "hard link", "pack.zip", "pack.zip"}),
    [](const auto& parameter) { return parameter.param.label; });

TEST_F(WriteZip, LeavesOutTheArchiveThatItHasCreated) {
  EXPECT_TRUE(write({file("a", "1"), archive().c_str(), file("c", "3")}));

  EXPECT_EQ(log.all(), lines("error: Cannot add non-existent file to archive: " + archive()));
  EXPECT_EQ(namesIn(archive()), lines("res/a", "res/c"));
  EXPECT_THAT(reports, ElementsAre(Report("res/a", 0.0), Report("res/c", 2.0 / 3.0)));
}

TEST_F(WriteZip, LeavesOutTheArchiveThatItHasCreatedThroughALink) {
  tmp.link("pack.zip", "real.zip");
  const std::string real = tmp.path("real.zip");

  EXPECT_TRUE(write({real.c_str(), file("a", "1")}));

  EXPECT_EQ(log.all(), lines("error: Cannot add non-existent file to archive: " + real));
  EXPECT_EQ(namesIn(real), lines("res/a"));
}

TEST_F(WriteZip, AddsACopyOfTheArchiveThatItReplaces) {
  tmp.write("pack.zip", "before");

  EXPECT_TRUE(write({file("copy.zip", "before")}));

  EXPECT_THAT(contentsOf(archive()), ElementsAre(ZipContent{"res/copy.zip", "before"}));
}

// ---- Files that cannot be added -----------------------------------------------------------------

TEST_F(WriteZip, EndsAtAFileThatItMayNotReadAndNamesItsCanonicalPath) {
  std::filesystem::permissions(tmp.mkdir("open"), std::filesystem::perms::all);
  tmp.write("open/pack.zip", "before");
  std::filesystem::permissions(tmp.path("open/pack.zip"), std::filesystem::perms::all);
  const String first = file("a", "1");
  const std::string locked = tmp.write("locked", "2");
  std::filesystem::permissions(locked, std::filesystem::perms::none);
  const std::string link = tmp.link("link", "locked");
  const String last = file("c", "3");

  runAsUnprivileged([&] {
    EXPECT_FALSE(
        writeZip(tmp.path("open/pack.zip").c_str(), {first, link.c_str(), last}, keepReports()));

    EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + locked));
    EXPECT_THAT(reports, ElementsAre(Report("res/a", 0.0)));
    EXPECT_TRUE(error.isUntouched());
  });
  EXPECT_FALSE(tmp.exists("open/pack.zip"));
}

TEST_F(WriteZip, RemovesTheLinkToAnArchiveThatFailed) {
  std::filesystem::permissions(tmp.mkdir("open"), std::filesystem::perms::all);
  tmp.link("open/pack.zip", "real.zip");
  const std::string locked = tmp.write("locked", "text");
  std::filesystem::permissions(locked, std::filesystem::perms::none);

  runAsUnprivileged([&] {
    EXPECT_FALSE(writeZip(tmp.path("open/pack.zip").c_str(), {locked.c_str()}, {}));

    EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + locked));
  });
  EXPECT_EQ(tmp.entries(), lines("locked", "open/", "open/real.zip"));
}

TEST_F(WriteZip, RemovesAnArchiveThatGrowsBeyondWhatTheProcessMayWrite) {
  const String first = file("a", "1");
  const String large = file("large", noise(300'000));

  runInChild([&] {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{65536, 65536};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);

    EXPECT_FALSE(write({first, large, first}));

    EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + tmp.path("large")));
    EXPECT_THAT(reports, ElementsAre(Report("res/a", 0.0)));
    EXPECT_TRUE(error.isUntouched());
  });
  EXPECT_FALSE(tmp.exists("pack.zip"));
}

// ---- Memory ------------------------------------------------------------------------------------

TEST_F(WriteZip, HoldsNoFileInMemoryAndNeitherDoesReading) {
  constexpr std::size_t kBlock = std::size_t{1} << 20U;
  constexpr int kBlocks = 48;
  constexpr long kAllowedKibibytes = 16L << 10U;
  {
    // No compressor looks back so far that it sees the repetition.
    const std::string block = noise(kBlock);
    std::ofstream large(tmp.path("large"), std::ios::binary);
    for (int i = 0; i < kBlocks; ++i) {
      large << block;
    }
  }
  const String source = tmp.path("large").c_str();

  runInChild([&] {
    const long before = peakKibibytes();

    EXPECT_TRUE(write({source}));

    EXPECT_LT(peakKibibytes() - before, kAllowedKibibytes);
  });
  EXPECT_GT(std::filesystem::file_size(archive()), kBlocks * kBlock);

  runInChild([&] {
    const long before = peakKibibytes();

    EXPECT_EQ(readZip(archive().c_str(), tmp.path("out").c_str(), {}).size(), 1U);

    EXPECT_LT(peakKibibytes() - before, kAllowedKibibytes);
  });
  EXPECT_EQ(std::filesystem::file_size(tmp.path("out/res/large")), kBlocks * kBlock);
}

// ---- Full disks ---------------------------------------------------------------------------------

constexpr std::size_t kDiskSize = std::size_t{64} * 1024;

TEST_F(WriteZip, RemovesAnArchiveThatAFullDiskCutsShort) {
  const std::string disk = tmp.mkdir("disk");
  const String large = file("large", noise(2 * kDiskSize));

  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  runWithOwnMounts([&] {
    mountMemory(disk, "size=64k");
    EXPECT_FALSE(writeZip((disk + "/pack.zip").c_str(), {large}, keepReports()));

    EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + tmp.path("large")));
    EXPECT_THAT(reports, IsEmpty());
    EXPECT_TRUE(error.isUntouched());
    EXPECT_FALSE(tmp.exists("disk/pack.zip"));
  });
}

TEST_F(WriteZip, RemovesAnArchiveWhoseEndAFullDiskHasNoRoomFor) {
  const std::string disk = tmp.mkdir("disk");
  const String small = file("small", "text");

  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  runWithOwnMounts([&] {
    mountMemory(disk, "size=64k");
    tmp.write("disk/filler", std::string(kDiskSize, 'x'));

    EXPECT_FALSE(writeZip((disk + "/./pack.zip").c_str(), {small}, keepReports()));

    EXPECT_EQ(log.all(), lines("error: Failed to finalize archive: " + disk + "/pack.zip"));
    EXPECT_THAT(reports, ElementsAre(Report("res/small", 0.0)));
    EXPECT_TRUE(error.isUntouched());
    EXPECT_FALSE(tmp.exists("disk/pack.zip"));
  });
}

}  // namespace
