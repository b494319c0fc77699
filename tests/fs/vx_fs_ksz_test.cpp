// SPDX-License-Identifier: MIT
//
// readKsz and writeKsz: what they add to readZip and writeZip.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/calls.h"
#include "tests/testing/failures.h"

#include <gtest/gtest.h>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace vx::test {
namespace {

static_assert(!std::is_same_v<fs::KszProgress, fs::ZipProgress>);

using Reports = std::vector<std::pair<std::string, double>>;

fs::KszCallback keepIn(Reports& reports) {
  return [&reports](const fs::KszProgress& report) {
    reports.emplace_back(text(report.file), report.progress);
  };
}

/// A callback that counts how often it is copied.
struct Copied {
  int* count;

  explicit Copied(int* copies) : count(copies) {}
  Copied(const Copied& other) : count(other.count) { ++*count; }
  Copied(Copied&& other) = default;
  Copied& operator=(const Copied&) = delete;
  Copied& operator=(Copied&&) = delete;
  ~Copied() = default;

  void operator()(const fs::KszProgress& /*report*/) const {}
};

// ---------------------------------------------------------------------------------------------
// readKsz

class ReadKsz : public FsTest {};

TEST_F(ReadKsz, ExtractsNextToTheArchive) {
  tmp.write("a/scene1.zip",
            ZipMaker().file("scene.ksx", "scene").file("res/wood.png", "wood").bytes());
  Reports reports;

  EXPECT_TRUE(fs::readKsz("a/scene1.zip", keepIn(reports)));

  EXPECT_EQ(tmp.entries(), lines("a/", "a/res/", "a/res/wood.png", "a/scene1.ksx", "a/scene1.zip"));
  EXPECT_EQ(tmp.read("a/scene1.ksx"), "scene");
  EXPECT_EQ(tmp.read("a/res/wood.png"), "wood");
  EXPECT_EQ(reports, Reports());
  EXPECT_EQ(log.all(), lines());
}

TEST_F(ReadKsz, TakesABareName) {
  tmp.write("scene1.ksz", ZipMaker().file("look.ksa", "look").bytes());

  EXPECT_TRUE(fs::readKsz("scene1.ksz"));
  EXPECT_TRUE(fs::readKsz("scene1.ksz", nullptr));

  EXPECT_EQ(tmp.entries(), lines("look.ksa", "scene1.ksz"));
}

TEST_F(ReadKsz, FailsIfNoFileIsExtracted) {
  tmp.write("missing/empty.ksz", ZipMaker().bytes());
  tmp.write("dirs.ksz", ZipMaker().directory("res/").directory("res/tex/").bytes());
  tmp.write("bad.ksz", ZipMaker()
                           .add({.name = "secret", .content = "x", .flags = kEncryptedFlag})
                           .add({.name = "damaged", .content = "x", .crc = 1})
                           .file("../out", "x")
                           .bytes());
  tmp.write("text.ksz", "no archive, but long enough to be one");

  EXPECT_FALSE(fs::readKsz("missing/empty.ksz"));
  EXPECT_FALSE(fs::readKsz("dirs.ksz"));
  EXPECT_FALSE(fs::readKsz("bad.ksz"));
  EXPECT_FALSE(fs::readKsz("text.ksz"));
  EXPECT_FALSE(fs::readKsz("gone.ksz"));

  EXPECT_EQ(log.all(),
            lines("warning: Unaupported file in archive: secret",
                  "error: Failed to extract file " + tmp.path("damaged") + " from archive.",
                  "warning: Unaupported file in archive: ../out",
                  "error: Failed to initialize archive: " + tmp.path("text.ksz"),
                  "error: Cannot expand non-existent archive: gone.ksz"));
  EXPECT_TRUE(tmp.exists("res/tex"));
}

TEST_F(ReadKsz, SucceedsIfAnyFileIsExtracted) {
  tmp.write("a.ksz", ZipMaker()
                         .add({.name = "damaged", .content = "x", .crc = 1})
                         .file("good", "text")
                         .add({.name = "secret", .content = "x", .flags = kEncryptedFlag})
                         .bytes());

  EXPECT_TRUE(fs::readKsz("a.ksz"));

  EXPECT_EQ(log.all(),
            lines("error: Failed to extract file " + tmp.path("damaged") + " from archive.",
                  "warning: Unaupported file in archive: secret"));
  EXPECT_EQ(tmp.read("good"), "text");
}

TEST_F(ReadKsz, DoesNotCopyTheCallback) {
  tmp.write("a.ksz", ZipMaker().file("a", "text").bytes());
  int copies = 0;
  fs::KszCallback callback = Copied(&copies);

  EXPECT_TRUE(fs::readKsz("a.ksz", std::move(callback)));

  EXPECT_EQ(copies, 0);
}

TEST(ReadKsz_Failures, AreThoseOfReadZip) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("a.ksz", ZipMaker().file("s.ksx", "scene").bytes());

    const bool hasRead = run.act([] { return fs::readKsz("a.ksz", {}); });

    // Only an archive whose end fails has been read all the same.
    const bool isRead = run.log.all().empty() && !run.failed("mz_zip_reader_get_num_files", 1);
    EXPECT_EQ(hasRead, isRead || run.failed("mz_zip_reader_end"));
    EXPECT_TRUE(!hasRead || run.tmp.read("a.ksx") == "scene");
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

// ---------------------------------------------------------------------------------------------
// writeKsz

class WriteKsz : public FsTest {
 protected:
  void SetUp() override {
    tmp.write("p/scene.ksx", "scene");
    tmp.write("p/look.ksa", "look");
    tmp.write("p/tex/wood.png", "wood");
  }

  Reports reports;
};

TEST_F(WriteKsz, WritesAndReportsWhatWriteZipDoes) {
  const StringVector files = {"p/scene.ksx", "p/look.ksa", "gone", "p/tex/wood.png"};

  EXPECT_TRUE(fs::writeKsz("reported", files, keepIn(reports)));
  EXPECT_TRUE(fs::writeKsz("silent", files));
  EXPECT_TRUE(fs::writeZip("zip", files));

  const std::string line = "error: Cannot add non-existent file to archive: gone";
  EXPECT_EQ(log.all(), lines(line, line, line));
  EXPECT_EQ(namesIn("reported"), lines("scene.ksx", "look.ksa", "res/wood.png"));
  EXPECT_EQ(tmp.read("silent"), tmp.read("reported"));
  EXPECT_EQ(tmp.read("zip"), tmp.read("reported"));
  EXPECT_EQ(reports,
            (Reports{{"scene.ksx", 0.0}, {"look.ksa", 1.0 / 4.0}, {"res/wood.png", 3.0 / 4.0}}));
}

TEST_F(WriteKsz, TakesTheNameOfTheArchiveAsItIs) {
  EXPECT_TRUE(fs::writeKsz("bare", {}, keepIn(reports)));
  EXPECT_TRUE(fs::writeKsz("other.txt", {}));

  EXPECT_EQ(namesIn("bare"), lines());
  EXPECT_EQ(namesIn("other.txt"), lines());
  EXPECT_EQ(reports, Reports());
}

TEST_F(WriteKsz, DoesNotCopyTheCallback) {
  int copies = 0;
  fs::KszCallback callback = Copied(&copies);

  EXPECT_TRUE(fs::writeKsz("a.ksz", {"p/look.ksa"}, std::move(callback)));

  EXPECT_EQ(copies, 0);
}

TEST_F(WriteKsz, LetsTheExceptionOfACallbackThrough) {
  struct Stop {};
  tmp.write("look.ksa", "look");
  Calls calls;

  EXPECT_THROW(
      fs::writeKsz("a.ksz", {"look.ksa"}, [](const fs::KszProgress& /*report*/) { throw Stop(); }),
      Stop);

  EXPECT_TRUE(calls.endArchiveLeftOpen());
  EXPECT_EQ(log.all(), lines());
}

TEST(WriteKsz_Failures, AreThoseOfWriteZip) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("look.ksx", "scene");
    Reports reports;

    const bool written =
        run.act([&] { return fs::writeKsz("a.ksz", {"look.ksx"}, keepIn(reports)); });

    const bool isAdded = !run.failed("stat look.ksx") && !run.failed("mz_zip_writer_init_file") &&
                         !run.failed("mz_zip_writer_add_file");
    const bool isFinalized = !run.failed("mz_zip_writer_finalize_archive");
    EXPECT_EQ(written,
              (isAdded || run.failed("stat look.ksx")) && isFinalized && !run.failed("mz_zip_end"));
    EXPECT_EQ(reports, isAdded ? Reports({{"look.ksx", 0.0}}) : Reports());
    EXPECT_EQ(run.tmp.exists("a.ksz"), written);
    EXPECT_EQ(run.calls.endArchiveLeftOpen(), !isFinalized);
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

}  // namespace
}  // namespace vx::test
