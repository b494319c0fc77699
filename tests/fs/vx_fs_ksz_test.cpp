// Concern: what the ksz calls add to the zip calls: the destination of a read, its yes or no, and
// the reports in records of their own; and that they add nothing else.

#include "fs/vx_fs.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/zip_contents.h"
#include "tests/testing/zip_left_open.h"
#include "tests/testing/zip_maker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using vx::String;
using vx::StringVector;
using vx::fs::KszCallback;
using vx::fs::KszProgress;
using vx::fs::readKsz;
using vx::fs::writeKsz;
using vx::fs::writeZip;
using vx::fs::ZipProgress;
using vx::test::contentsOf;
using vx::test::ErrorStateSentinel;
using vx::test::kEncryptedFlag;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::namesIn;
using vx::test::ScopedCurrentDir;
using vx::test::TempDir;
using vx::test::ZipContent;
using vx::test::ZipMaker;

static_assert(!std::is_same_v<KszProgress, ZipProgress>);
static_assert(std::is_same_v<decltype(KszProgress::file), String>);
static_assert(std::is_same_v<decltype(KszProgress::progress), double>);

/// One report, to compare whole.
using Report = std::pair<std::string, double>;

class Ksz : public testing::Test {
 protected:
  KszCallback keepReports() {
    return [this](const KszProgress& report) {
      reports.emplace_back(report.file.view(), report.progress);
    };
  }

  bool read(const ZipMaker& zip) {
    return readKsz(tmp.write("dir/scene1.zip", zip.bytes()).c_str(), keepReports());
  }

  bool write(StringVector files) { return writeKsz(archive().c_str(), files, keepReports()); }

  [[nodiscard]] std::string archive() const { return tmp.path("scene1.ksz"); }

  /// A scene, one of its looks and a picture.
  [[nodiscard]] StringVector sceneFiles() const {
    return {tmp.write("p/scene.ksx", "scene").c_str(), tmp.write("p/look.ksa", "look").c_str(),
            tmp.write("p/tex/wood.png", "wood").c_str()};
  }

  TempDir tmp;
  ErrorStateSentinel error;
  LogCapture log;
  std::vector<Report> reports;
};

/// Counts how often it is copied; takes any report.
struct Copied {
  int* count;

  explicit Copied(int* copies) : count(copies) {}
  Copied(const Copied& other) : count(other.count) { ++*count; }
  Copied(Copied&& other) = default;
  Copied& operator=(const Copied&) = delete;
  Copied& operator=(Copied&&) = delete;
  ~Copied() = default;

  void operator()(const KszProgress& /*report*/) const {}
};

// ---- Reading ------------------------------------------------------------------------------------

TEST_F(Ksz, ReadsTheSceneAndItsResourcesBesideTheArchive) {
  EXPECT_TRUE(read(ZipMaker().file("scene.ksx", "scene").file("res/wood.png", "wood")));

  EXPECT_EQ(tmp.entries(),
            lines("dir/", "dir/res/", "dir/res/wood.png", "dir/scene1.ksx", "dir/scene1.zip"));
  EXPECT_EQ(tmp.read("dir/scene1.ksx"), "scene");
  EXPECT_EQ(tmp.read("dir/res/wood.png"), "wood");
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(Ksz, ReadsAnArchiveGivenByItsNameAlone) {
  tmp.write("scene1.ksz", ZipMaker().file("look.ksa", "look").bytes());
  const ScopedCurrentDir current(tmp.path());

  EXPECT_TRUE(readKsz("scene1.ksz", {}));

  EXPECT_EQ(tmp.entries(), lines("look.ksa", "scene1.ksz"));
}

TEST_F(Ksz, ReportsNothingWhileItReads) {
  EXPECT_TRUE(read(ZipMaker().file("scene.ksx", "scene").file("res/wood.png", "wood")));

  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(Ksz, ReadsWithoutACallback) {
  const std::string zip = tmp.write("a.ksz", ZipMaker().file("a", "text").bytes());

  EXPECT_TRUE(readKsz(zip.c_str()));
  EXPECT_TRUE(readKsz(zip.c_str(), {}));
  EXPECT_TRUE(readKsz(zip.c_str(), nullptr));
}

TEST_F(Ksz, ReadsNothingFromAnArchiveOfDirectories) {
  EXPECT_FALSE(read(ZipMaker().directory("res/").directory("res/tex/")));

  EXPECT_THAT(log.all(), IsEmpty());
  EXPECT_EQ(tmp.entries(), lines("dir/", "dir/res/", "dir/res/tex/", "dir/scene1.zip"));
}

TEST_F(Ksz, ReadsNothingFromAnEmptyArchive) {
  EXPECT_FALSE(read(ZipMaker()));

  EXPECT_THAT(log.all(), IsEmpty());
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(Ksz, ReadsNothingWhereEveryFileFails) {
  EXPECT_FALSE(read(ZipMaker()
                        .add({.name = "secret", .content = "x", .flags = kEncryptedFlag})
                        .add({.name = "bad", .content = "x", .crc = 1})
                        .file("../out", "x")));

  EXPECT_EQ(log.all(),
            lines("warning: Unaupported file in archive: secret",
                  "error: Failed to extract file " + tmp.path("dir/bad") + " from archive.",
                  "warning: Unaupported file in archive: ../out"));
}

TEST_F(Ksz, HasReadWhenOneFileOfSeveralCameOut) {
  EXPECT_TRUE(read(ZipMaker()
                       .add({.name = "bad", .content = "x", .crc = 1})
                       .file("good", "text")
                       .add({.name = "secret", .content = "x", .flags = kEncryptedFlag})));

  EXPECT_EQ(log.all(),
            lines("error: Failed to extract file " + tmp.path("dir/bad") + " from archive.",
                  "warning: Unaupported file in archive: secret"));
  EXPECT_EQ(tmp.read("dir/good"), "text");
}

TEST_F(Ksz, LogsAMissingArchiveOnce) {
  EXPECT_FALSE(readKsz(archive().c_str(), keepReports()));

  EXPECT_EQ(log.all(), lines("error: Cannot expand non-existent archive: " + archive()));
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(Ksz, LogsAFileThatIsNoArchiveOnce) {
  tmp.write("scene1.ksz", "no archive, but long enough to be one");

  EXPECT_FALSE(readKsz(archive().c_str(), keepReports()));

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive()));
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(Ksz, DoesNotCopyTheCallbackToRead) {
  const std::string zip = tmp.write("a.ksz", ZipMaker().file("a", "text").bytes());
  int copies = 0;
  KszCallback callback = Copied(&copies);

  EXPECT_TRUE(readKsz(zip.c_str(), std::move(callback)));

  EXPECT_EQ(copies, 0);
}

// ---- Writing ------------------------------------------------------------------------------------

TEST_F(Ksz, BeginsAReportAtNothing) {
  EXPECT_TRUE(KszProgress().file.isEmpty());
  EXPECT_EQ(KszProgress().progress, 0.0);
  EXPECT_TRUE(ZipProgress().file.isEmpty());
  EXPECT_EQ(ZipProgress().progress, 0.0);
}

TEST_F(Ksz, WritesAndReportsASceneItsLooksAndItsResources) {
  EXPECT_TRUE(write(sceneFiles()));

  EXPECT_THAT(contentsOf(archive()),
              ElementsAre(ZipContent{"scene.ksx", "scene"}, ZipContent{"look.ksa", "look"},
                          ZipContent{"res/wood.png", "wood"}));
  EXPECT_THAT(reports, ElementsAre(Report("scene.ksx", 0.0), Report("look.ksa", 1.0 / 3.0),
                                   Report("res/wood.png", 2.0 / 3.0)));
  EXPECT_THAT(log.all(), IsEmpty());
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(Ksz, WritesTheSameBytesWithoutACallbackAndAsAZipArchive) {
  const StringVector files = sceneFiles();

  EXPECT_TRUE(write(files));
  EXPECT_TRUE(writeKsz(tmp.path("silent").c_str(), files));
  EXPECT_TRUE(writeZip(tmp.path("zip").c_str(), files, {}));

  EXPECT_EQ(tmp.read("silent"), tmp.read("scene1.ksz"));
  EXPECT_EQ(tmp.read("zip"), tmp.read("scene1.ksz"));
}

TEST_F(Ksz, TakesTheNameOfTheArchiveAsItIs) {
  EXPECT_TRUE(writeKsz(tmp.path("bare").c_str(), {}, {}));
  EXPECT_TRUE(writeKsz(tmp.path("other.txt").c_str(), {}, {}));

  EXPECT_EQ(tmp.entries(), lines("bare", "other.txt"));
}

TEST_F(Ksz, WritesAnEmptyArchiveOfNoFiles) {
  EXPECT_TRUE(write({}));

  EXPECT_THAT(namesIn(archive()), IsEmpty());
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(Ksz, SkipsAMissingInputAndItsReport) {
  EXPECT_TRUE(write({tmp.path("gone").c_str(), tmp.write("a", "text").c_str()}));

  EXPECT_EQ(log.all(),
            lines("error: Cannot add non-existent file to archive: " + tmp.path("gone")));
  EXPECT_THAT(reports, ElementsAre(Report("res/a", 0.5)));
}

TEST_F(Ksz, CannotWriteInAMissingDirectory) {
  const std::string archive = tmp.path("gone/scene1.ksz");

  EXPECT_FALSE(writeKsz(archive.c_str(), sceneFiles(), keepReports()));

  EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive));
  EXPECT_THAT(reports, IsEmpty());
  EXPECT_FALSE(tmp.exists("gone"));
  EXPECT_TRUE(error.isUntouched());
}

TEST_F(Ksz, KeepsASceneThatIsToBecomeItsOwnArchive) {
  const std::string scene = tmp.write("self.ksx", "scene");

  EXPECT_FALSE(writeKsz(scene.c_str(), {scene.c_str(), tmp.write("wood.png", "wood").c_str()}));

  EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + scene));
  EXPECT_EQ(tmp.entries(), lines("self.ksx", "wood.png"));
  EXPECT_EQ(tmp.read("self.ksx"), "scene");
}

struct Stop {
  int number;
};

TEST_F(Ksz, LetsTheExceptionOfACallbackThrough) {
  int caught = 0;

  try {
    const vx::test::ArchiveIsLeftOpen onPurpose;
    writeKsz(archive().c_str(), sceneFiles(),
             [](const KszProgress& /*report*/) { throw Stop{42}; });
  } catch (const Stop& stop) {
    caught = stop.number;
  }

  EXPECT_EQ(caught, 42);
  EXPECT_THAT(log.all(), IsEmpty());
}

TEST_F(Ksz, DoesNotCopyTheCallbackToWrite) {
  int copies = 0;
  KszCallback callback = Copied(&copies);

  EXPECT_TRUE(writeKsz(archive().c_str(), sceneFiles(), std::move(callback)));

  EXPECT_EQ(copies, 0);
}

TEST_F(Ksz, ReadsBackWhatItHasWritten) {
  ASSERT_TRUE(write(sceneFiles()));

  EXPECT_TRUE(readKsz(archive().c_str(), {}));

  EXPECT_EQ(tmp.read("scene1.ksx"), "scene");
  EXPECT_EQ(tmp.read("look.ksa"), "look");
  EXPECT_EQ(tmp.read("res/wood.png"), "wood");
}

}  // namespace
