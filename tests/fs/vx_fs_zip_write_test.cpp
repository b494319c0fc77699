// SPDX-License-Identifier: MIT
//
// writeZip.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/calls.h"
#include "tests/testing/child.h"
#include "tests/testing/failures.h"
#include "tests/testing/memory_use.h"
#include "tests/testing/scoped.h"

#include <gtest/gtest.h>

#include <array>
#include <climits>
#include <cstddef>
#include <filesystem>
#include <fstream>
#include <ios>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

namespace vx::test {
namespace {

using Contents = std::vector<ZipContent>;
using Reports = std::vector<std::pair<std::string, double>>;

fs::ZipCallback keepIn(Reports& reports) {
  return [&reports](const fs::ZipProgress& report) {
    reports.emplace_back(text(report.file), report.progress);
  };
}

struct WriteZip : FsTest {
  Reports reports;
};

// ---------------------------------------------------------------------------------------------
// The entries

TEST_F(WriteZip, PutsTheSceneAtTheRootAndTheRestInRes) {
  tmp.write("p/scene.ksx", "scene");
  tmp.write("p/look.ksa", "look");
  tmp.write("p/tex/wood.png", "wood");

  EXPECT_TRUE(
      fs::writeZip("pack.zip", {"p/scene.ksx", "p/look.ksa", "p/tex/wood.png"}, keepIn(reports)));

  EXPECT_EQ(contentsOf("pack.zip"), (Contents{{"scene.ksx", "scene"},  //
                                              {"look.ksa", "look"},
                                              {"res/wood.png", "wood"}}));
  EXPECT_EQ(reports, (Reports{{"scene.ksx", 0.0},  //
                              {"look.ksa", 1.0 / 3.0},
                              {"res/wood.png", 2.0 / 3.0}}));
  expectSilence();
}

TEST_F(WriteZip, NamesAnEntryByTheFileName) {
  struct Row {
    const char* file;
    const char* entry;
  };
  const Row rows[] = {
      {"p/.ksx", ".ksx"},
      {"p/.ksa", ".ksa"},
      {"p/a.b.ksa", "a.b.ksa"},
      {"p/Scene.KSX", "res/Scene.KSX"},
      {"p/Look.Ksa", "res/Look.Ksa"},
      {"p/a.ksxx", "res/a.ksxx"},
      {"p/ksx", "res/ksx"},
      {"p/b.ksx.png", "res/b.ksx.png"},
      {"p/x/..//./wood.png/", "res/wood.png"},
      {"link.ksx", "link.ksx"},
      {"elsewhere/../link.ksx", "link.ksx"},
      {"link to ksx", "res/link to ksx"},
  };
  for (const char* const name : {".ksx", ".ksa", "a.b.ksa", "Scene.KSX", "Look.Ksa", "a.ksxx",  //
                                 "ksx", "b.ksx.png", "wood.png"}) {
    tmp.write(std::string("p/") + name, "text");
  }
  tmp.link("link.ksx", "p/wood.png");
  tmp.mkdir("q/r");
  tmp.link("elsewhere", "q/r");
  tmp.link("link to ksx", "p/.ksx");
  for (const Row& row : rows) {
    EXPECT_TRUE(fs::writeZip("pack.zip", {row.file})) << row.file;

    EXPECT_EQ(contentsOf("pack.zip"), (Contents{{row.entry, "text"}}));
  }
}

TEST_F(WriteZip, KeepsTheBytesOfAName) {
  const std::string longest(255, 'n');
  for (const std::string& name :
       {std::string(" spaces "), std::string("line\nbreak\r"), std::string("\xC3\xA4.png"),
        std::string("\xFF\xFE\x80"), std::string("back\\slash"), std::string("%s%n%d"),
        std::string(".hidden"), std::string("..."), longest}) {
    SCOPED_TRACE(name);
    const Sandbox own;
    own.tmp.write("p/" + name, "text");
    reports.clear();

    EXPECT_TRUE(fs::writeZip("pack.zip", {vxText("p/" + name)}, keepIn(reports)));

    EXPECT_EQ(contentsOf("pack.zip"), (Contents{{"res/" + name, "text"}}));
    EXPECT_EQ(reports, (Reports{{"res/" + name, 0.0}}));
    // The name is marked as UTF-8 whatever its bytes: the high byte of the flags.
    const std::string bytes = own.tmp.read("pack.zip");
    EXPECT_EQ(bytes.at(bytes.find("PK\1\2") + 9), '\x08');
    EXPECT_EQ(texts(fs::readZip("pack.zip", "out")), lines("out/res/" + name));
  }
}

TEST_F(WriteZip, AddsAnEntryForEachFileGiven) {
  tmp.write("a/wood.png", "from a");
  tmp.write("b/wood.png", "from b");

  EXPECT_TRUE(fs::writeZip("pack.zip", {"b/wood.png", "a/wood.png", "b/wood.png"}));

  EXPECT_EQ(contentsOf("pack.zip"), (Contents{{"res/wood.png", "from b"},  //
                                              {"res/wood.png", "from a"},
                                              {"res/wood.png", "from b"}}));
}

TEST_F(WriteZip, KeepsEveryByte) {
  const std::string binary = noise(300'000);
  const std::string prose(300'000, 'x');
  const std::string nul("\0\r\n", 3);
  tmp.write("binary", binary);
  tmp.write("prose", prose);
  tmp.write("nul", nul);
  tmp.write("empty", "");

  EXPECT_TRUE(fs::writeZip("pack.zip", {"binary", "prose", "nul", "empty"}));

  EXPECT_EQ(
      contentsOf("pack.zip"),
      (Contents{
          {"res/binary", binary}, {"res/prose", prose}, {"res/nul", nul}, {"res/empty", ""}}));
  EXPECT_LT(std::filesystem::file_size("pack.zip"), 310'000U);  // compressed
}

TEST_F(WriteZip, WritesTheSameBytesOnEverySystem) {
  // 29 February 2024, 13:14:16.
  const ScopedTimeZone utc("UTC0");
  const std::array<timespec, 2> times = {timespec{1'709'212'456, 0}, timespec{1'709'212'456, 0}};
  tmp.write("lamp.ksa", "abc");
  tmp.write("\xC3\xA4.txt", "");
  for (const char* const file : {"lamp.ksa", "\xC3\xA4.txt"}) {
    ASSERT_EQ(::utimensat(AT_FDCWD, file, times.data(), 0), 0);
  }

  EXPECT_TRUE(fs::writeZip("pack.zip", {"lamp.ksa", "\xC3\xA4.txt"}));

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
      "\0\0\0\0\0\0\0\0\0\0lamp.ksa"
      "PK\1\2\0\0\0\0\x08\x08\0\0\xC8\x69\x5D\x58\0\0\0\0\0\0\0\0\0\0\0\0\x0A\0\0\0\0\0\0\0\0\0"
      "\0\0\0\0\x39\0\0\0res/\xC3\xA4.txt"
      // The end: two entries, the directory's size and offset.
      "PK\5\6\0\0\0\0\2\0\2\0\x6E\0\0\0\x71\0\0\0\0\0"s;
  EXPECT_EQ(tmp.read("pack.zip"), expected);
}

TEST_F(WriteZip, WritesAnEmptyArchiveOfNoFiles) {
  EXPECT_TRUE(fs::writeZip("pack.zip", {}, keepIn(reports)));

  EXPECT_EQ(tmp.read("pack.zip"), "PK\5\6" + std::string(18, '\0'));
  EXPECT_EQ(reports, Reports());
  expectSilence();
}

TEST_F(WriteZip, HoldsNoFileInMemoryAndNeitherDoesReadZip) {
  constexpr std::size_t kSize = std::size_t{24} << 20U;
  constexpr long kAllowedKibibytes = 16L << 10U;
  {
    // The compressor does not look back far enough to see the repetition.
    const std::string block = noise(kSize / 24);
    std::ofstream large("large", std::ios::binary);
    for (int i = 0; i < 24; ++i) {
      large << block;
    }
  }

  runInChild([&] {
    const long before = peakKibibytes();
    EXPECT_TRUE(fs::writeZip("pack.zip", {"large"}));
    EXPECT_LT(peakKibibytes() - before, kAllowedKibibytes);
  });
  EXPECT_GT(std::filesystem::file_size("pack.zip"), kSize);

  runInChild([&] {
    const long before = peakKibibytes();
    EXPECT_EQ(texts(fs::readZip("pack.zip", "out")), lines("out/res/large"));
    EXPECT_LT(peakKibibytes() - before, kAllowedKibibytes);
  });
  EXPECT_EQ(std::filesystem::file_size("out/res/large"), kSize);
}

// ---------------------------------------------------------------------------------------------
// Files that are left out

TEST_F(WriteZip, LeavesOutWhatIsNoFile) {
  tmp.write("a", "1");
  tmp.write("b", "2");
  tmp.mkdir("dir");
  tmp.link("dangling", "gone");
  tmp.link("loop", "loop");

  EXPECT_TRUE(fs::writeZip(
      "pack.zip", {"a", "x/..//gone", vxText(tmp.path("gone")), "dir", "dangling", "loop", "", "b"},
      keepIn(reports)));

  EXPECT_EQ(log.all(), lines("error: Cannot add non-existent file to archive: gone",
                             "error: Cannot add non-existent file to archive: " + tmp.path("gone"),
                             "error: Cannot add non-existent file to archive: dir",
                             "error: Cannot add non-existent file to archive: dangling",
                             "error: Cannot add non-existent file to archive: loop",
                             "error: Cannot add non-existent file to archive: "));
  EXPECT_EQ(namesIn("pack.zip"), lines("res/a", "res/b"));
  EXPECT_EQ(reports, (Reports{{"res/a", 0.0}, {"res/b", 7.0 / 8.0}}));
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_F(WriteZip, LeavesOutTheArchiveItHasCreated) {
  tmp.write("a", "1");
  tmp.write("b", "2");
  tmp.link("link.zip", "real.zip");

  EXPECT_TRUE(fs::writeZip("pack.zip", {"a", "pack.zip", "b"}, keepIn(reports)));
  EXPECT_TRUE(fs::writeZip("link.zip", {"real.zip", "a"}));

  EXPECT_EQ(log.all(), lines("error: Cannot add non-existent file to archive: pack.zip",
                             "error: Cannot add non-existent file to archive: real.zip"));
  EXPECT_EQ(namesIn("pack.zip"), lines("res/a", "res/b"));
  EXPECT_EQ(reports, (Reports{{"res/a", 0.0}, {"res/b", 2.0 / 3.0}}));
  EXPECT_EQ(namesIn("real.zip"), lines("res/a"));
}

// ---------------------------------------------------------------------------------------------
// The callback

TEST_F(WriteZip, LeavesTheArchiveOpenIfTheCallbackThrows) {
  struct Stop {};
  tmp.write("a", "1");
  tmp.write("b", "2");
  tmp.write("pack.zip", "old");
  Calls calls;

  EXPECT_THROW(
      fs::writeZip("pack.zip", {"a", "b"}, [](const fs::ZipProgress& /*report*/) { throw Stop(); }),
      Stop);

  EXPECT_EQ(calls.count("mz_zip_writer_add_file"), 1U);
  EXPECT_TRUE(calls.endArchiveLeftOpen());
  EXPECT_TRUE(tmp.read("pack.zip").starts_with("PK\3\4"));
  expectSilence();
}

// ---------------------------------------------------------------------------------------------
// The archive's path

TEST_F(WriteZip, NamesTheArchiveThatCannotBeCreated) {
  struct Row {
    std::string archive;
    std::string named;
  };
  const std::string tooLong(256, 'n');
  const Row rows[] = {
      {"", ""},
      {"gone/./pack.zip", "gone/pack.zip"},
      {"file/pack.zip", "file/pack.zip"},
      {"dir", "dir"},
      {"dir/", "dir"},
      {"loop", "loop"},
      {tooLong, tooLong},
      {tmp.path("100%s%n/pack.zip"), tmp.path("100%s%n/pack.zip")},
  };
  tmp.write("file", "text");
  tmp.mkdir("dir/inside");
  tmp.link("loop", "loop");
  for (const Row& row : rows) {
    const LogCapture own;

    EXPECT_FALSE(fs::writeZip(vxText(row.archive), {"file"}, keepIn(reports)));

    EXPECT_EQ(own.all(), lines("error: Failed to initialize archive: " + row.named));
    EXPECT_EQ(tmp.entries(), lines("dir/", "dir/inside/", "file", "loop"));
  }
  EXPECT_EQ(tmp.read("file"), "text");
  EXPECT_EQ(reports, Reports());
  EXPECT_TRUE(sentinel.isUntouched());
}

// ---------------------------------------------------------------------------------------------
// An archive among its own files

TEST_F(WriteZip, KeepsAnArchiveThatIsAmongItsFiles) {
  struct Row {
    const char* archive;
    const char* file;
    const char* canonical;
  };
  const Row rows[] = {
      {"pack.zip", "pack.zip", "pack.zip"},
      {"x/../pack.zip", ".//pack.zip", "pack.zip"},
      {"pack.zip", "link", "pack.zip"},
      {"pack.zip", "hard link", "hard link"},
      {"pack.zip", "elsewhere/../pack.zip", "pack.zip"},
      {"pack.zip", "here/pack.zip", "pack.zip"},
      {"link", "pack.zip", "pack.zip"},
      {"hard link", "pack.zip", "pack.zip"},
  };
  tmp.write("a", "1");
  tmp.write("pack.zip", "precious");
  tmp.link("link", "pack.zip");
  tmp.link("here", ".");
  tmp.mkdir("q/r");
  tmp.link("elsewhere", "q/r");
  std::filesystem::create_hard_link("pack.zip", "hard link");
  const std::vector<std::string> entries = tmp.entries();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.archive + std::string(" of ") + row.file);
    const LogCapture own;
    Calls calls;

    EXPECT_FALSE(fs::writeZip(row.archive, {"gone", "a", row.file}, keepIn(reports)));

    EXPECT_EQ(calls.count("fopen"), 0U);
    EXPECT_EQ(own.all(), lines("error: Failed to add file to archive: " + tmp.path(row.canonical)));
    EXPECT_EQ(tmp.entries(), entries);
    EXPECT_EQ(tmp.read("pack.zip"), "precious");
  }
  EXPECT_EQ(reports, Reports());
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST_F(WriteZip, RemovesALinkToAnArchiveThatFails) {
  tmp.write("a", "1");
  tmp.link("pack.zip", "real.zip");
  Calls calls;
  calls.fail("mz_zip_writer_add_file");

  EXPECT_FALSE(fs::writeZip("pack.zip", {"a"}));

  EXPECT_EQ(tmp.entries(), lines("a", "real.zip"));
}

TEST_F(WriteZip, AddsACopyOfTheArchiveThatItReplaces) {
  tmp.write("pack.zip", "before");
  tmp.write("copy.zip", "before");

  EXPECT_TRUE(fs::writeZip("pack.zip", {"copy.zip"}));

  EXPECT_EQ(contentsOf("pack.zip"), (Contents{{"res/copy.zip", "before"}}));
}

TEST_F(WriteZip, ComparesOnlyARegularFileWithItsFiles) {
  tmp.link("pack.zip", "/dev/null");
  Calls calls;

  fs::writeZip("pack.zip", {"/dev/null"});

  EXPECT_EQ(calls.count("mz_zip_writer_init_file"), 1U);
}

// ---------------------------------------------------------------------------------------------
// Files that cannot be added

TEST_F(WriteZip, FailsIfAFileGrowsWhileItIsRead) {
  tmp.write("a", "1");
  Calls calls;
  calls.onCall("fread", [&] { tmp.write("a", "12"); });

  EXPECT_FALSE(fs::writeZip("pack.zip", {"a"}));

  EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + tmp.path("a")));
  EXPECT_EQ(tmp.entries(), lines("a"));
}

TEST_F(WriteZip, KeepsWhatWasReadBeforeAReadFails) {
  tmp.write("a", noise(100'000));
  Calls calls;
  calls.failNth("fread", 2);

  EXPECT_TRUE(fs::writeZip("pack.zip", {"a"}));

  EXPECT_EQ(contentsOf("pack.zip"), (Contents{{"res/a", noise(65'536)}}));
  expectSilence();
}

// ---------------------------------------------------------------------------------------------
// The calls

class WriteZip_Calls : public WriteZip {
 protected:
  void SetUp() override {
    tmp.write("a.ksx", "1");
    tmp.write("b.ksa", "2");
    tmp.link("c", "in/c");
    tmp.write("in/c", "3");
  }

  /// Writes "pack.zip" with reports between the calls.
  bool write(StringVector files) {
    return fs::writeZip("x/../pack.zip", files, [this](const fs::ZipProgress& report) {
      calls.note("report " + text(report.file));
    });
  }

  [[nodiscard]] std::string adding(const std::string& name, const std::string& file) const {
    return "mz_zip_writer_add_file " + name + " " + tmp.path(file) + " null 0 1";
  }

  Calls calls;
};

TEST_F(WriteZip_Calls, AreTheseForANewArchive) {
  EXPECT_TRUE(write({"a.ksx", "b.ksa", "gone", "c"}));

  EXPECT_EQ(calls.all(),
            lines("stat pack.zip", "mz_zip_zero_struct", "mz_zip_writer_init_file pack.zip 0",
                  "stat pack.zip",  //
                  "stat a.ksx", "lstat a.ksx", "realpath .", adding("a.ksx", "a.ksx"),
                  "report a.ksx",                                                         //
                  "stat b.ksa", "lstat b.ksa", adding("b.ksa", "b.ksa"), "report b.ksa",  //
                  "stat gone",                                                            //
                  "stat c", "lstat c", "realpath c", adding("res/c", "in/c"), "report res/c",
                  "mz_zip_writer_finalize_archive", "mz_zip_end"));
}

TEST_F(WriteZip_Calls, ResolveTheDirectoryOfSuccessiveFilesOnce) {
  tmp.link("here", "in");

  EXPECT_TRUE(write({"in/c", "here/c", "here/c", "a.ksx"}));

  EXPECT_EQ(calls.all(),
            lines("stat pack.zip", "mz_zip_zero_struct", "mz_zip_writer_init_file pack.zip 0",
                  "stat pack.zip",                                                          //
                  "stat in/c", "lstat in/c", "realpath in", adding("res/c", "in/c"),        //
                  "report res/c",                                                           //
                  "stat here/c", "lstat here/c", "realpath here", adding("res/c", "in/c"),  //
                  "report res/c",                                                           //
                  "stat here/c", "lstat here/c", adding("res/c", "in/c"), "report res/c",   //
                  "stat a.ksx", "lstat a.ksx", "realpath .", adding("a.ksx", "a.ksx"),      //
                  "report a.ksx", "mz_zip_writer_finalize_archive", "mz_zip_end"));
}

TEST_F(WriteZip_Calls, ResolveTheFileIfTheJoinedPathIsTooLong) {
  calls.answer("realpath in", "/" + std::string(PATH_MAX - 3, 'x'));

  EXPECT_TRUE(write({"in/c"}));

  EXPECT_EQ(calls.all(),
            lines("stat pack.zip", "mz_zip_zero_struct", "mz_zip_writer_init_file pack.zip 0",
                  "stat pack.zip", "stat in/c", "lstat in/c", "realpath in", "realpath in/c",
                  adding("res/c", "in/c"), "report res/c", "mz_zip_writer_finalize_archive",
                  "mz_zip_end"));
}

TEST_F(WriteZip_Calls, LookAtEachFileFirstIfThereIsAnArchive) {
  tmp.write("pack.zip", "old");

  EXPECT_TRUE(write({"a.ksx", "b.ksa"}));

  EXPECT_EQ(calls.all(),
            lines("stat pack.zip", "stat a.ksx", "stat b.ksa",  //
                  "mz_zip_zero_struct", "mz_zip_writer_init_file pack.zip 0", "stat a.ksx",
                  "lstat a.ksx", "realpath .", adding("a.ksx", "a.ksx"), "report a.ksx",  //
                  "stat b.ksa", "lstat b.ksa", adding("b.ksa", "b.ksa"),
                  "report b.ksa",  //
                  "mz_zip_writer_finalize_archive", "mz_zip_end"));
}

TEST_F(WriteZip_Calls, EndTheArchiveIfAFileCannotBeAdded) {
  calls.failNth("mz_zip_writer_add_file", 2);
  calls.fail("mz_zip_writer_finalize_archive");
  calls.fail("mz_zip_end");

  EXPECT_FALSE(write({"a.ksx", "c", "b.ksa"}));

  EXPECT_EQ(calls.all(), lines("stat pack.zip", "mz_zip_zero_struct",
                               "mz_zip_writer_init_file pack.zip 0", "stat pack.zip",  //
                               "stat a.ksx", "lstat a.ksx", "realpath .", adding("a.ksx", "a.ksx"),
                               "report a.ksx",  //
                               "stat c", "lstat c", "realpath c", adding("res/c", "in/c"),
                               "mz_zip_writer_finalize_archive", "mz_zip_end",  //
                               "stat pack.zip", "remove pack.zip"));
  EXPECT_EQ(log.all(), lines("error: Failed to add file to archive: " + tmp.path("in/c")));
}

TEST_F(WriteZip_Calls, DoNotEndAnArchiveThatCannotBeFinalized) {
  calls.fail("mz_zip_writer_finalize_archive");

  EXPECT_FALSE(write({}));

  EXPECT_EQ(
      calls.all(),
      lines("stat pack.zip", "mz_zip_zero_struct", "mz_zip_writer_init_file pack.zip 0",
            "stat pack.zip", "mz_zip_writer_finalize_archive", "stat pack.zip", "remove pack.zip"));
  EXPECT_TRUE(calls.endArchiveLeftOpen());
}

// ---------------------------------------------------------------------------------------------
// Each call fails

/// Writes "look.ksx" and "wood.png" to "pack.zip", over an old file.
bool writeBoth(FailureRun& run, Reports& reports) {
  run.tmp.write("look.ksx", "scene");
  run.tmp.write("wood.png", "wood");
  run.tmp.write("pack.zip", "old");
  return run.act([&] {
    return fs::writeZip("pack.zip", {"look.ksx", "wood.png"}, keepIn(reports));
  });
}

TEST(WriteZip_Failures, AreReported) {
  const std::pair<std::string, double> look("look.ksx", 0.0);
  const std::pair<std::string, double> wood("res/wood.png", 0.5);
  forEachFailure([&](FailureRun& run) {
    Reports reports;

    const bool written = writeBoth(run, reports);

    EXPECT_TRUE(run.sentinel.isUntouched());
    const auto expectFailure = [&](const std::string& line, const Reports& expected) {
      EXPECT_FALSE(written);
      EXPECT_EQ(run.log.all(), lines("error: " + line));
      EXPECT_EQ(reports, expected);
      EXPECT_EQ(run.tmp.entries(), lines("look.ksx", "wood.png"));
    };
    if (run.failed("mz_zip_writer_init_file")) {
      expectFailure("Failed to initialize archive: pack.zip", {});
    } else if (run.failed("mz_zip_writer_add_file look.ksx")) {
      expectFailure("Failed to add file to archive: " + run.tmp.path("look.ksx"), {});
    } else if (run.failed("mz_zip_writer_add_file res/wood.png")) {
      expectFailure("Failed to add file to archive: " + run.tmp.path("wood.png"), {look});
    } else if (run.failed("mz_zip_writer_finalize_archive")) {
      expectFailure("Failed to finalize archive: pack.zip", {look, wood});
      EXPECT_TRUE(run.calls.endArchiveLeftOpen());
    } else if (run.failed("mz_zip_end")) {
      expectFailure("Failed to close archive: pack.zip", {look, wood});
    } else if (run.failed("stat look.ksx", 2)) {
      EXPECT_TRUE(written);
      EXPECT_EQ(run.log.all(), lines("error: Cannot add non-existent file to archive: look.ksx"));
      EXPECT_EQ(reports, (Reports{wood}));
      EXPECT_EQ(contentsOf("pack.zip"), (Contents{{"res/wood.png", "wood"}}));
    } else if (run.failed("stat wood.png", 2)) {
      EXPECT_TRUE(written);
      EXPECT_EQ(run.log.all(), lines("error: Cannot add non-existent file to archive: wood.png"));
      EXPECT_EQ(reports, (Reports{look}));
      EXPECT_EQ(contentsOf("pack.zip"), (Contents{{"look.ksx", "scene"}}));
    } else {
      EXPECT_TRUE(written);
      EXPECT_EQ(run.log.all(), lines());
      EXPECT_EQ(reports, (Reports{look, wood}));
      EXPECT_EQ(namesIn("pack.zip"), lines("look.ksx", "res/wood.png"));
      // Failures to read are not reported.
      if (!selects("fread", run.failedCall()) && !selects("fseeko", run.failedCall())) {
        EXPECT_EQ(contentsOf("pack.zip"), (Contents{{"look.ksx", "scene"},  //
                                                    {"res/wood.png", "wood"}}));
      }
    }
  });
}

TEST(WriteZip_Failures, MayLeaveTheOldArchive) {
  forEachFailure([](FailureRun& run) {
    Reports reports;
    run.calls.fail("mz_zip_writer_init_file");

    const bool written = writeBoth(run, reports);

    EXPECT_FALSE(written);
    EXPECT_EQ(run.log.all(), lines("error: Failed to initialize archive: pack.zip"));
    EXPECT_EQ(reports, Reports());
    EXPECT_EQ(run.tmp.exists("pack.zip"), run.failed("stat pack.zip", 2) || run.failed("remove"));
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

TEST(WriteZip_Failures, MayLeaveThePartThatWasWritten) {
  forEachFailure([](FailureRun& run) {
    Reports reports;
    run.calls.fail("mz_zip_writer_add_file res/wood.png");

    const bool written = writeBoth(run, reports);

    // A file that counts as missing is not added.
    EXPECT_EQ(written, run.failed("stat wood.png", 2));
    if (!run.failedAny() || run.failed("realpath wood.png")) {
      EXPECT_EQ(run.log.all(),
                lines("error: Failed to add file to archive: " + run.tmp.path("wood.png")));
    }
    EXPECT_EQ(run.tmp.exists("pack.zip"),
              written || run.failed("stat pack.zip", 2) || run.failed("remove"));
    if (run.failed("remove")) {
      EXPECT_EQ(contentsOf("pack.zip"), (Contents{{"look.ksx", "scene"}}));
    }
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

TEST(WriteZip_Failures, MayLeaveWhatCouldNotBeFinalized) {
  forEachFailure([](FailureRun& run) {
    run.calls.fail("mz_zip_writer_finalize_archive");

    const bool written = run.act([] { return fs::writeZip("pack.zip", {}); });

    EXPECT_FALSE(written);
    EXPECT_EQ(run.calls.endArchiveLeftOpen(), !run.failed("mz_zip_writer_init_file"));
    EXPECT_EQ(run.tmp.exists("pack.zip"), run.failed("stat pack.zip", 3) || run.failed("remove"));
    EXPECT_TRUE(run.sentinel.isUntouched());
  });
}

TEST(WriteZip_Failures, LeakNothingIfTheyLast) {
  forEachLastingFailure([](FailureRun& run) {
    Reports reports;

    writeBoth(run, reports);

    run.calls.endArchiveLeftOpen();
  });
}

}  // namespace
}  // namespace vx::test
