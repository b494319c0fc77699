// Concern: expanding an archive, step by step: where the entries land, what is listed, what each
// failure logs and leaves, and what the current error holds afterwards. Where names lead is the
// concern of vx_fs_zip_names_test.cpp.

#include "core/vx_path.h"
#include "fs/vx_fs.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/own_mounts.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"
#include "tests/testing/zip_maker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace {

using testing::IsEmpty;
using vx::String;
using vx::fs::readZip;
using vx::fs::ZipProgress;
using vx::test::canMount;
using vx::test::capturedErrorIs;
using vx::test::deflated;
using vx::test::errnoText;
using vx::test::ErrorStateSentinel;
using vx::test::kBzip2;
using vx::test::kCannotMount;
using vx::test::kDeflated;
using vx::test::kDosDirectoryBit;
using vx::test::kEncryptedFlag;
using vx::test::kPatchDataFlag;
using vx::test::kStrongEncryptionFlag;
using vx::test::kUnixLink;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::mountMemory;
using vx::test::runAsUnprivileged;
using vx::test::runInChild;
using vx::test::runWithOwnMounts;
using vx::test::ScopedCurrentDir;
using vx::test::TempDir;
using vx::test::texts;
using vx::test::ZipEntry;
using vx::test::ZipMaker;

// For everybody, the owner too: the tests need not run as root.
constexpr auto kMayRead = std::filesystem::perms{0444};
constexpr auto kMayEnter = std::filesystem::perms{0555};

/// Enough for an archive of two small files on the slowest machine.
constexpr unsigned kPromptSeconds = 20;

/// A directory to work in, a log, and a current error that only a new one replaces. `expand` reads
/// an archive of the given entries, "pack.zip", into the directory "out".
class ReadZip : public testing::Test {
 protected:
  std::vector<std::string> expand(const ZipMaker& zip) {
    return texts(readZip(tmp.write("pack.zip", zip.bytes()).c_str(), out().c_str(), {}));
  }

  [[nodiscard]] std::string out() const { return tmp.path("out"); }
  [[nodiscard]] std::string out(const std::string& name) const { return out() + '/' + name; }

  TempDir tmp;
  ErrorStateSentinel error;
  LogCapture log;
};

// ---- Before the first entry ---------------------------------------------------------------------

TEST_F(ReadZip, NamesAMissingArchiveInNormalForm) {
  const std::string archive = tmp.path("gone/./x/..//pack.zip");

  EXPECT_THAT(texts(readZip(archive.c_str(), out().c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(),
            lines("error: Cannot expand non-existent archive: " + tmp.path("gone/pack.zip")));
  EXPECT_TRUE(error.isUntouched());
  EXPECT_THAT(tmp.entries(), IsEmpty());
}

TEST_F(ReadZip, NamesARelativeMissingArchiveAsItIs) {
  const ScopedCurrentDir current(tmp.path());

  EXPECT_THAT(texts(readZip("./pack.zip", "out", {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Cannot expand non-existent archive: pack.zip"));
  EXPECT_THAT(tmp.entries(), IsEmpty());
}

TEST_F(ReadZip, TakesADirectoryForNoArchive) {
  const std::string archive = tmp.mkdir("pack.zip");

  EXPECT_THAT(texts(readZip(archive.c_str(), out().c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Cannot expand non-existent archive: " + archive));
  EXPECT_TRUE(error.isUntouched());
  EXPECT_EQ(tmp.entries(), lines("pack.zip/"));
}

TEST_F(ReadZip, TakesTheEmptyPathForNoArchive) {
  EXPECT_THAT(texts(readZip("", out().c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Cannot expand non-existent archive: "));
  EXPECT_THAT(tmp.entries(), IsEmpty());
}

TEST_F(ReadZip, TakesADanglingLinkForNoArchive) {
  const std::string archive = tmp.link("pack.zip", "gone.zip");

  EXPECT_THAT(texts(readZip(archive.c_str(), out().c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Cannot expand non-existent archive: " + archive));
  EXPECT_EQ(tmp.entries(), lines("pack.zip"));
}

TEST_F(ReadZip, CreatesTheOutputDirectoryBeforeItOpensTheArchive) {
  const std::string archive = tmp.write("pack.zip", "no archive, but long enough to be one");

  EXPECT_THAT(texts(readZip(archive.c_str(), tmp.path("a/b").c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive));
  EXPECT_TRUE(capturedErrorIs(0, "mkDir"));
  EXPECT_EQ(tmp.entries(), lines("a/", "a/b/", "pack.zip"));
}

TEST_F(ReadZip, OpensNoArchiveWhereTheOutputDirectoryIsAFile) {
  const std::string archive = tmp.write("pack.zip", "no archive");
  tmp.write("out", "text");

  EXPECT_THAT(texts(readZip(archive.c_str(), out().c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to create archive output dir: " + out()));
  EXPECT_TRUE(error.isUntouched());
  EXPECT_EQ(tmp.read("out"), "text");
}

TEST_F(ReadZip, LogsTheOutputDirectoryAfterTheLevelThatIsAFile) {
  const std::string archive = tmp.write("pack.zip", "no archive");
  const std::string blocker = tmp.write("x", "text");

  EXPECT_THAT(texts(readZip(archive.c_str(), (blocker + "//y/").c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(),
            lines("error: Failed to create dir: " + blocker + " [err: " + errnoText(EEXIST) + "].",
                  "error: Failed to create archive output dir: " + blocker + "//y/"));
  EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
  EXPECT_EQ(tmp.read("x"), "text");
}

TEST_F(ReadZip, NamesTheCanonicalArchiveThatIsNone) {
  const std::string archive = tmp.write("real/file", "no archive, but long enough to be one");
  const std::string link = tmp.link("pack.zip", "real/file");

  EXPECT_THAT(texts(readZip(link.c_str(), tmp.path().c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive));
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(ReadZip, TakesAnEmptyFileForADamagedArchive) {
  const std::string archive = tmp.write("pack.zip", "");

  EXPECT_THAT(texts(readZip(archive.c_str(), tmp.path().c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive));
  EXPECT_EQ(tmp.entries(), lines("pack.zip"));
}

TEST_F(ReadZip, ExtractsNothingFromAnArchiveThatIsCutShort) {
  const std::string whole = ZipMaker().file("a", "text").file("b", "text").bytes();
  const std::string archive = tmp.write("pack.zip", whole.substr(0, whole.size() - 1));

  EXPECT_THAT(texts(readZip(archive.c_str(), tmp.path().c_str(), {})), IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive));
  EXPECT_EQ(tmp.entries(), lines("pack.zip"));
}

TEST_F(ReadZip, CannotOpenAnArchiveThatItMayNotRead) {
  const std::string archive = tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());
  std::filesystem::permissions(archive, std::filesystem::perms::none);

  runAsUnprivileged([&] {
    EXPECT_THAT(texts(readZip(archive.c_str(), tmp.path().c_str(), {})), IsEmpty());

    EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive));
    EXPECT_TRUE(error.isUntouched());
  });
}

TEST_F(ReadZip, ReportsAnOutputDirectoryThatItMayNotCreate) {
  const std::string archive = tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());
  std::filesystem::permissions(tmp.path(), kMayEnter);

  runAsUnprivileged([&] {
    EXPECT_THAT(texts(readZip(archive.c_str(), out().c_str(), {})), IsEmpty());

    EXPECT_EQ(log.all(),
              lines("error: Failed to create dir: " + out() + " [err: " + errnoText(EACCES) + "].",
                    "error: Failed to create archive output dir: " + out()));
    EXPECT_TRUE(capturedErrorIs(EACCES, "mkDir"));
  });
  EXPECT_EQ(tmp.entries(), lines("pack.zip"));
}

// ---- The output directory -----------------------------------------------------------------------

TEST_F(ReadZip, ExpandsBesideTheArchiveByDefault) {
  const std::string archive = tmp.write("dir/pack.zip", ZipMaker().file("a", "text").bytes());

  EXPECT_EQ(texts(readZip(archive.c_str(), "", {})), lines(tmp.path("dir/a")));

  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/a", "dir/pack.zip"));
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(ReadZip, ExpandsBesideAnArchiveGivenByItsNameAlone) {
  tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());
  const ScopedCurrentDir current(tmp.path());

  EXPECT_EQ(texts(readZip("pack.zip", "", {})), lines(tmp.path("a")));

  EXPECT_EQ(tmp.entries(), lines("a", "pack.zip"));
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(ReadZip, ExpandsBesideTheTargetOfALinkGivenByItsNameAlone) {
  tmp.write("real/pack.zip", ZipMaker().file("a", "text").bytes());
  tmp.link("here/link.zip", "../real/pack.zip");
  const ScopedCurrentDir current(tmp.path("here"));

  EXPECT_EQ(texts(readZip("link.zip", "", {})), lines(tmp.path("real/a")));
}

TEST_F(ReadZip, ExpandsBesideALinkAndPutsTheSceneBesideItsTarget) {
  tmp.write("real/pack.zip", ZipMaker().file("a", "text").file("scene.ksx", "scene").bytes());
  const std::string link = tmp.link("here/link.zip", "../real/pack.zip");

  EXPECT_EQ(texts(readZip(link.c_str(), "", {})),
            lines(tmp.path("here/a"), tmp.path("real/pack.ksx")));

  EXPECT_EQ(tmp.entries(),
            lines("here/", "here/a", "here/link.zip", "real/", "real/pack.ksx", "real/pack.zip"));
}

TEST_F(ReadZip, KeepsTheDirectoryOfARelativeArchiveRelative) {
  tmp.write("dir/pack.zip", ZipMaker().file("a", "text").bytes());
  const ScopedCurrentDir current(tmp.path());

  EXPECT_EQ(texts(readZip("./x/../dir//pack.zip", "", {})), lines("dir/a"));

  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/a", "dir/pack.zip"));
}

TEST_F(ReadZip, ExpandsIntoTheCurrentDirectory) {
  tmp.write("pack.zip", ZipMaker().file("a", "text").file("d/b", "text").bytes());
  const ScopedCurrentDir current(tmp.mkdir("here"));

  EXPECT_EQ(texts(readZip("../pack.zip", ".", {})), lines("./a", "./d/b"));

  EXPECT_EQ(tmp.entries(), lines("here/", "here/a", "here/d/", "here/d/b", "pack.zip"));
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(ReadZip, ListsPathsBelowARelativeOutputDirectoryRelative) {
  tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());
  const ScopedCurrentDir current(tmp.path());

  EXPECT_EQ(texts(readZip("pack.zip", "new/out", {})), lines("new/out/a"));

  EXPECT_EQ(tmp.entries(), lines("new/", "new/out/", "new/out/a", "pack.zip"));
}

TEST_F(ReadZip, PutsOneSeparatorBetweenTheOutputDirectoryAndAName) {
  const std::string archive = tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());

  EXPECT_EQ(texts(readZip(archive.c_str(), (out() + "//").c_str(), {})), lines(out("a")));
}

TEST_F(ReadZip, ListsPathsBelowTheOutputDirectoryAsItIsWritten) {
  const std::string archive = tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());
  tmp.mkdir("x");

  EXPECT_EQ(texts(readZip(archive.c_str(), tmp.path("x/.././out").c_str(), {})),
            lines(tmp.path("x/.././out/a")));

  EXPECT_EQ(tmp.read("out/a"), "text");
}

TEST_F(ReadZip, LeavesTheCurrentErrorAloneWhereEveryDirectoryStands) {
  tmp.mkdir("out/d");

  EXPECT_EQ(expand(ZipMaker().directory("d/").file("a", "text").file("d/b", "text")),
            lines(out("a"), out("d/b")));

  EXPECT_TRUE(error.isUntouched());
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(ReadZip, LeavesTheErrorOfTheLastDirectoryThatItTried) {
  tmp.write("out/x", "in the way");

  EXPECT_EQ(expand(ZipMaker().directory("d/").file("x/y/z", "text").file("a", "text")),
            lines(out("a")));

  EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
}

TEST_F(ReadZip, LeavesTheCallersArgumentsAlone) {
  const std::string name = tmp.path("./pack.zip");
  tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());
  const String archive = name.c_str();
  const String directory;

  EXPECT_EQ(texts(readZip(archive, directory, {})), lines(tmp.path("a")));

  EXPECT_EQ(archive, name.c_str());
  EXPECT_TRUE(directory.isEmpty());
}

// ---- Files and directories ----------------------------------------------------------------------

TEST_F(ReadZip, ExtractsStoredAndDeflatedFilesInTheOrderOfTheArchive) {
  const std::string binary("\0\r\n\xFF", 4);
  const std::string prose = "deflated " + std::string(1000, 'x');

  EXPECT_EQ(expand(ZipMaker()
                       .file("stored", binary)
                       .add({.name = "deflated",
                             .content = prose,
                             .method = kDeflated,
                             .data = deflated(prose)})
                       .file("a", "text")),
            lines(out("stored"), out("deflated"), out("a")));

  EXPECT_EQ(tmp.read("out/stored"), binary);
  EXPECT_EQ(tmp.read("out/deflated"), prose);
  EXPECT_EQ(tmp.read("out/a"), "text");
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(ReadZip, ExtractsEmptyFiles) {
  EXPECT_EQ(expand(ZipMaker()
                       .file("empty", "")
                       .add({.name = "deflated", .content = "", .method = kDeflated})),
            lines(out("empty"), out("deflated")));

  EXPECT_EQ(tmp.read("out/empty"), "");
  EXPECT_EQ(tmp.read("out/deflated"), "");
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(ReadZip, FindsNothingInAnEmptyArchive) {
  EXPECT_THAT(expand(ZipMaker()), IsEmpty());

  EXPECT_THAT(log.all(), IsEmpty());
  EXPECT_EQ(tmp.entries(), lines("out/", "pack.zip"));
}

TEST_F(ReadZip, CreatesTheDirectoriesAboveAFileAndListsTheFileAlone) {
  EXPECT_EQ(expand(ZipMaker().file("a/b/c.txt", "text")), lines(out("a/b/c.txt")));

  EXPECT_EQ(tmp.entries(), lines("out/", "out/a/", "out/a/b/", "out/a/b/c.txt", "pack.zip"));
  EXPECT_TRUE(capturedErrorIs(0, "mkDir"));
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(ReadZip, CreatesDirectoriesAndListsNone) {
  EXPECT_THAT(expand(ZipMaker().directory("d/").directory("e/f/").directory("d/")), IsEmpty());

  EXPECT_EQ(tmp.entries(), lines("out/", "out/d/", "out/e/", "out/e/f/", "pack.zip"));
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(ReadZip, TakesTheDirectoryAttributeForADirectory) {
  EXPECT_THAT(
      expand(ZipMaker().add({.name = "d", .content = "ignored", .attributes = kDosDirectoryBit})),
      IsEmpty());

  EXPECT_EQ(tmp.entries(), lines("out/", "out/d/", "pack.zip"));
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(ReadZip, ReplacesAFileThatIsThere) {
  tmp.write("out/a", "a longer text that was there before");

  EXPECT_EQ(expand(ZipMaker().file("a", "text")), lines(out("a")));

  EXPECT_EQ(tmp.read("out/a"), "text");
}

TEST_F(ReadZip, RewritesAFileInPlaceWithItsModeAndLinks) {
  constexpr auto kForTheOwner = std::filesystem::perms{0600};
  std::filesystem::permissions(tmp.write("out/a", "old"), kForTheOwner);
  std::filesystem::create_hard_link(out("a"), tmp.path("other name"));

  expand(ZipMaker().file("a", "new"));

  EXPECT_EQ(std::filesystem::status(out("a")).permissions(), kForTheOwner);
  EXPECT_EQ(tmp.read("other name"), "new");
}

TEST_F(ReadZip, ListsAPathAsOftenAsItIsWrittenAndKeepsTheLast) {
  EXPECT_EQ(expand(ZipMaker().file("a", "the first").file("b", "other").file("a", "last")),
            lines(out("a"), out("b"), out("a")));

  EXPECT_EQ(tmp.read("out/a"), "last");
}

TEST_F(ReadZip, MakesAFileOfALink) {
  EXPECT_EQ(
      expand(ZipMaker().add({.name = "link", .content = "../pack.zip", .attributes = kUnixLink})),
      lines(out("link")));

  EXPECT_TRUE(std::filesystem::is_regular_file(std::filesystem::symlink_status(out("link"))));
  EXPECT_EQ(tmp.read("out/link"), "../pack.zip");
}

TEST_F(ReadZip, FollowsALinkThatLiesInTheOutputDirectory) {
  tmp.mkdir("elsewhere");
  tmp.write("file", "before");
  tmp.link("out/d", "../elsewhere");
  tmp.link("out/f", "../file");

  EXPECT_EQ(expand(ZipMaker().file("d/a", "text").file("f", "text")), lines(out("d/a"), out("f")));

  EXPECT_EQ(tmp.read("elsewhere/a"), "text");
  EXPECT_EQ(tmp.read("file"), "text");
}

TEST_F(ReadZip, GivesAFileTheTimeOfItsEntryAndTheUsualMode) {
  std::tm moment{};
  moment.tm_year = 2020 - 1900;
  moment.tm_mon = 1;
  moment.tm_mday = 3;
  moment.tm_hour = 4;
  moment.tm_min = 5;
  moment.tm_sec = 6;
  moment.tm_isdst = -1;
  const mode_t mask = ::umask(0027);

  EXPECT_EQ(expand(ZipMaker().add({.name = "a",
                                   .content = "text",
                                   .time = (4U << 11U) | (5U << 5U) | (6U / 2U),
                                   .date = ((2020U - 1980U) << 9U) | (2U << 5U) | 3U,
                                   .attributes = 0104755U << 16U})),
            lines(out("a")));

  ::umask(mask);
  struct stat status {};
  ASSERT_EQ(::stat(out("a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0640U);
  EXPECT_EQ(status.st_mtime, std::mktime(&moment));
}

TEST_F(ReadZip, NeedsNoCallback) {
  const std::string archive = tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());

  EXPECT_EQ(texts(readZip(archive.c_str(), out().c_str())), lines(out("a")));
}

TEST_F(ReadZip, NeverReportsProgress) {
  const std::string archive = tmp.write("pack.zip", ZipMaker().file("a", "text").bytes());
  int reports = 0;

  EXPECT_EQ(texts(readZip(archive.c_str(), "", [&](const ZipProgress&) { ++reports; })),
            lines(tmp.path("a")));

  EXPECT_EQ(reports, 0);
}

// ---- Odd file names -----------------------------------------------------------------------------

/// A name, and how it is called in the name of a test.
struct OddName {
  const char* label;
  std::string name;
};

void PrintTo(const OddName& odd, std::ostream* out) {
  *out << odd.label;
}

class ReadZipName : public ReadZip, public testing::WithParamInterface<OddName> {};

TEST_P(ReadZipName, IsTheNameOfTheFileByteForByte) {
  const std::string& name = GetParam().name;

  EXPECT_EQ(expand(ZipMaker().file(name, "text")), lines(out(name)));

  EXPECT_EQ(tmp.entries(), lines("out/", "out/" + name, "pack.zip"));
  EXPECT_EQ(tmp.read("out/" + name), "text");
  EXPECT_THAT(log.all(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(
    Odd, ReadZipName,
    testing::Values(OddName{"Spaces", " a name with spaces "},
                    OddName{"LineBreaks", "line\nbreak\r"}, OddName{"Utf8", "\xC3\xA4.png"},
                    OddName{"NotUtf8", "\xFF\xFE\x80"}, OddName{"Backslash", "back\\slash"},
                    OddName{"Drive", "C:\\drive"}, OddName{"Format", "%s%n%d"},
                    OddName{"Option", "-rf"}, OddName{"Hidden", ".hidden"},
                    OddName{"Pattern", "*?[a]"}, OddName{"Control", "\x01\x7F"},
                    OddName{"Longest", std::string(255, 'n')}),
    [](const auto& parameter) { return parameter.param.label; });

TEST_F(ReadZip, CannotExtractAFileWhoseNameIsTooLong) {
  const std::string name(256, 'n');

  EXPECT_EQ(expand(ZipMaker().file(name, "text").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out(name) + " from archive."));
  EXPECT_EQ(tmp.entries(), lines("out/", "out/a", "pack.zip"));
}

TEST_F(ReadZip, NamesTheFileWhoseDirectoryHasANameThatIsTooLong) {
  const std::string name(256, 'n');

  EXPECT_EQ(expand(ZipMaker().file("d/" + name + "/f", "text").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to create dir: " + out("d/" + name) +
                                 " [err: " + errnoText(ENAMETOOLONG) + "].",
                             "error: Failed to create archive subdir: " + out("d/" + name + "/f")));
  EXPECT_TRUE(capturedErrorIs(ENAMETOOLONG, "mkDir"));
  EXPECT_EQ(tmp.entries(), lines("out/", "out/a", "out/d/", "pack.zip"));
}

TEST_F(ReadZip, NamesTheDirectoryWhoseNameIsTooLong) {
  const std::string name(256, 'n');

  EXPECT_EQ(expand(ZipMaker().directory(name + "/").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to create dir: " + out(name) +
                                 " [err: " + errnoText(ENAMETOOLONG) + "].",
                             "error: Failed to create archive subdir: " + out(name + "/")));
}

TEST_F(ReadZip, LogsAnOddNameAsItIs) {
  const std::string name = "%s%n \xFF\n";

  EXPECT_THAT(expand(ZipMaker().add({.name = name, .content = "", .flags = kEncryptedFlag})),
              IsEmpty());

  EXPECT_EQ(log.all(), lines("warning: Unaupported file in archive: " + name));
}

// ---- Entries of an unsupported kind -------------------------------------------------------------

struct Unsupported {
  const char* label;
  ZipEntry entry;
};

void PrintTo(const Unsupported& unsupported, std::ostream* out) {
  *out << unsupported.label;
}

class ReadZipUnsupported : public ReadZip, public testing::WithParamInterface<Unsupported> {};

TEST_P(ReadZipUnsupported, IsWarnedAboutByItsRawNameAndLeavesNothing) {
  const ZipEntry& entry = GetParam().entry;

  EXPECT_EQ(expand(ZipMaker().file("a", "text").add(entry).file("b", "text")),
            lines(out("a"), out("b")));

  EXPECT_EQ(log.all(), lines("warning: Unaupported file in archive: " + entry.name));
  EXPECT_EQ(tmp.entries(), lines("out/", "out/a", "out/b", "pack.zip"));
}

INSTANTIATE_TEST_SUITE_P(
    Entry, ReadZipUnsupported,
    testing::Values(
        Unsupported{"Encrypted", {.name = "d/f", .content = "x", .flags = kEncryptedFlag}},
        Unsupported{"StronglyEncrypted",
                    {.name = "d/f", .content = "x", .flags = kStrongEncryptionFlag}},
        Unsupported{"PatchData", {.name = "d/f", .content = "x", .flags = kPatchDataFlag}},
        Unsupported{"Bzip2", {.name = "//d/./f", .content = "x", .method = kBzip2}},
        Unsupported{"UnknownMethod", {.name = "d/f", .content = "x", .method = 0xFFFF}},
        Unsupported{"EncryptedDirectory", {.name = "d/", .content = "", .flags = kEncryptedFlag}}),
    [](const auto& parameter) { return parameter.param.label; });

TEST_F(ReadZip, DoesNotTouchTheFileInPlaceOfAnUnsupportedEntry) {
  tmp.write("out/a", "before");

  EXPECT_THAT(expand(ZipMaker().add({.name = "a", .content = "x", .method = kBzip2})), IsEmpty());

  EXPECT_EQ(tmp.read("out/a"), "before");
  EXPECT_TRUE(error.isUntouched());
}

// ---- Entries that fail --------------------------------------------------------------------------

TEST_F(ReadZip, LeavesWhatCameOutOfAFileWithAWrongChecksum) {
  tmp.write("out/bad", "a longer text that was there before");

  EXPECT_EQ(expand(ZipMaker()
                       .add({.name = "bad", .content = "text", .crc = 0x12345678})
                       .file("good", "text")),
            lines(out("good")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("bad") + " from archive."));
  EXPECT_EQ(tmp.entries(), lines("out/", "out/bad", "out/good", "pack.zip"));
  EXPECT_EQ(tmp.read("out/bad"), "text");
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(ReadZip, LogsAFileWhoseDataIsDamaged) {
  EXPECT_EQ(expand(ZipMaker()
                       .add({.name = "bad",
                             .content = "text",
                             .method = kDeflated,
                             .data = "\xFF no deflated data"})
                       .file("good", "text")),
            lines(out("good")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("bad") + " from archive."));
  EXPECT_EQ(tmp.read("out/good"), "text");
}

TEST_F(ReadZip, LogsAFileWhoseHeaderIsDamaged) {
  EXPECT_EQ(expand(ZipMaker()
                       .add({.name = "bad", .content = "text", .localSignature = 0})
                       .file("good", "text")),
            lines(out("good")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("bad") + " from archive."));
  EXPECT_EQ(tmp.read("out/bad"), "");
}

TEST_F(ReadZip, LogsEveryEntryThatFailsInTheOrderOfTheArchive) {
  tmp.write("out/x", "in the way");

  EXPECT_THAT(expand(ZipMaker()
                         .add({.name = "bad", .content = "text", .crc = 1})
                         .add({.name = "secret", .content = "text", .flags = kEncryptedFlag})
                         .directory("x/")
                         .file("x/y", "text")),
              IsEmpty());

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("bad") + " from archive.",
                             "warning: Unaupported file in archive: secret",
                             "error: Failed to create archive subdir: " + out("x/"),
                             "error: Failed to create archive subdir: " + out("x/y")));
}

TEST_F(ReadZip, CannotMakeADirectoryWhereAFileStands) {
  tmp.write("out/d", "in the way");

  EXPECT_EQ(expand(ZipMaker().directory("d/").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to create archive subdir: " + out("d/")));
  EXPECT_EQ(tmp.read("out/d"), "in the way");
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(ReadZip, NamesTheFileAndNotItsDirectoryWhosePlaceAFileHolds) {
  tmp.write("out/d", "in the way");

  EXPECT_EQ(expand(ZipMaker().file("d/f", "text").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to create archive subdir: " + out("d/f")));
  EXPECT_EQ(tmp.read("out/d"), "in the way");
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(ReadZip, LogsTheLevelThatIsAFileBeforeTheFileBelowIt) {
  tmp.write("out/d", "in the way");

  EXPECT_EQ(expand(ZipMaker().file("d/e/f", "text").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(),
            lines("error: Failed to create dir: " + out("d") + " [err: " + errnoText(EEXIST) + "].",
                  "error: Failed to create archive subdir: " + out("d/e/f")));
  EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
}

TEST_F(ReadZip, CannotExtractAFileWhereADirectoryStands) {
  tmp.write("out/d/inside", "text");

  EXPECT_EQ(expand(ZipMaker().file("d", "text").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("d") + " from archive."));
  EXPECT_EQ(tmp.read("out/d/inside"), "text");
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(ReadZip, CannotExtractAFileThroughALinkLoop) {
  tmp.link("out/loop", "loop");

  EXPECT_EQ(expand(ZipMaker().file("loop", "text").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("loop") + " from archive."));
}

TEST_F(ReadZip, LogsWhatItMayNotCreateAndGoesOn) {
  const std::string archive = tmp.write("pack.zip", ZipMaker()
                                                        .file("locked/new", "text")
                                                        .directory("locked/d/")
                                                        .file("locked/e/f", "text")
                                                        .file("open/a", "text")
                                                        .bytes());
  std::filesystem::permissions(tmp.mkdir("out/locked"), kMayEnter);
  std::filesystem::permissions(tmp.mkdir("out/open"), std::filesystem::perms::all);

  runAsUnprivileged([&] {
    EXPECT_EQ(texts(readZip(archive.c_str(), out().c_str(), {})), lines(out("open/a")));

    EXPECT_EQ(log.all(),
              lines("error: Failed to extract file " + out("locked/new") + " from archive.",
                    "error: Failed to create dir: " + out("locked/d") +
                        " [err: " + errnoText(EACCES) + "].",
                    "error: Failed to create archive subdir: " + out("locked/d/"),
                    "error: Failed to create dir: " + out("locked/e") +
                        " [err: " + errnoText(EACCES) + "].",
                    "error: Failed to create archive subdir: " + out("locked/e/f")));
    EXPECT_TRUE(capturedErrorIs(EACCES, "mkDir"));
  });
  EXPECT_EQ(tmp.read("out/open/a"), "text");
}

TEST_F(ReadZip, KeepsAFileThatItMayNotOverwrite) {
  const std::string archive = tmp.write("pack.zip", ZipMaker().file("a", "new").bytes());
  std::filesystem::permissions(tmp.write("out/a", "old"), kMayRead);

  runAsUnprivileged([&] {
    EXPECT_THAT(texts(readZip(archive.c_str(), out().c_str(), {})), IsEmpty());

    EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("a") + " from archive."));
  });
  EXPECT_EQ(tmp.read("out/a"), "old");
}

// ---- Onto something that is no regular file -----------------------------------------------------

TEST_F(ReadZip, FailsOntoAFifoWithoutWaiting) {
  tmp.mkdir("out");
  ASSERT_EQ(::mkfifo(out("fifo").c_str(), 0666), 0);

  runInChild([&] {
    ::alarm(kPromptSeconds);
    EXPECT_EQ(expand(ZipMaker().file("fifo", "text").file("a", "text")), lines(out("a")));

    EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("fifo") + " from archive."));
  });
}

TEST_F(ReadZip, FailsOntoAFifoInPlaceOfTheScene) {
  ASSERT_EQ(::mkfifo(tmp.path("pack.ksx").c_str(), 0666), 0);

  runInChild([&] {
    ::alarm(kPromptSeconds);
    EXPECT_THAT(expand(ZipMaker().file("scene.ksx", "scene")), IsEmpty());

    EXPECT_EQ(log.all(),
              lines("error: Failed to extract file " + tmp.path("pack.ksx") + " from archive."));
  });
}

TEST_F(ReadZip, DoesNotWriteIntoAFifoThatIsRead) {
  tmp.mkdir("out");
  ASSERT_EQ(::mkfifo(out("fifo").c_str(), 0666), 0);
  const int reader = ::open(out("fifo").c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_NE(reader, -1);

  EXPECT_THAT(expand(ZipMaker().file("fifo", "text")), IsEmpty());

  std::array<char, 8> received{};
  EXPECT_EQ(::read(reader, received.data(), received.size()), 0);
  EXPECT_EQ(::close(reader), 0);
}

TEST_F(ReadZip, FailsOntoASocket) {
  tmp.mkdir("out");
  const ScopedCurrentDir current(out());  // the name of a socket has to be short
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::string_view("socket").copy(address.sun_path, sizeof address.sun_path);
  const int server = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  ASSERT_EQ(::bind(server, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);

  EXPECT_EQ(expand(ZipMaker().file("socket", "text").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("socket") + " from archive."));
  EXPECT_EQ(::close(server), 0);
}

TEST_F(ReadZip, FailsOntoADevice) {
  tmp.link("out/null", "/dev/null");

  EXPECT_EQ(expand(ZipMaker().file("null", "text").file("a", "text")), lines(out("a")));

  EXPECT_EQ(log.all(), lines("error: Failed to extract file " + out("null") + " from archive."));
}

// ---- Full disks ---------------------------------------------------------------------------------

TEST_F(ReadZip, KeepsTheFilesThatFitOnAFullDisk) {
  const std::string disk = tmp.mkdir("disk");
  constexpr std::size_t kDiskSize = std::size_t{64} * 1024;
  const std::string archive = tmp.write("pack.zip", ZipMaker()
                                                        .file("fits", "text")
                                                        .file("large", std::string(kDiskSize, 'x'))
                                                        .file("late", "")
                                                        .bytes());

  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  runWithOwnMounts([&] {
    mountMemory(disk, "size=64k");
    EXPECT_EQ(texts(readZip(archive.c_str(), disk.c_str(), {})),
              lines(disk + "/fits", disk + "/late"));

    EXPECT_EQ(log.all(), lines("error: Failed to extract file " + disk + "/large from archive."));
    EXPECT_TRUE(error.isUntouched());
    EXPECT_EQ(tmp.read("disk/fits"), "text");
  });
}

}  // namespace
