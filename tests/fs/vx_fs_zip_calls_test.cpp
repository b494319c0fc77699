// Concern: the calls to miniz, their arguments and their order, on every path through reading; and
// what is on disk where one of them fails.

#include "fs/vx_fs.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"
#include "tests/testing/zip_calls.h"
#include "tests/testing/zip_maker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <vector>

namespace {

using testing::Contains;
using testing::IsEmpty;
using vx::fs::readZip;
using vx::test::ErrorStateSentinel;
using vx::test::lines;
using vx::test::TempDir;
using vx::test::texts;
using vx::test::ZipCall;
using vx::test::ZipCalls;
using vx::test::ZipMaker;

using Lines = std::vector<std::string>;

/// The given lists, one after the other.
template <class... More>
Lines joined(Lines first, const More&... more) {
  (first.insert(first.end(), more.begin(), more.end()), ...);
  return first;
}

// ---- Reading ------------------------------------------------------------------------------------

/// Expands an archive of the files "a", "b" and "c" into "out", unless a test does otherwise.
class ReadCalls : public testing::Test {
 protected:
  Lines expand() { return texts(readZip(archive.c_str(), tmp.path("out").c_str(), {})); }

  [[nodiscard]] std::string out(const std::string& name) const { return tmp.path("out/" + name); }

  [[nodiscard]] Lines opening() const {
    return lines("zero_struct", "reader_init_file " + archive + " 0");
  }

  /// The calls by which the name of the entry is asked, after the count.
  static Lines asked(int index, std::size_t size) {
    const std::string i = std::to_string(index);
    return lines("get_num_files", "get_filename " + i + " null 0",
                 "get_filename " + i + " buffer " + std::to_string(size));
  }

  /// All calls for a file of a name of one character that lands in "out".
  [[nodiscard]] Lines extracted(int index, const std::string& name) const {
    const std::string i = std::to_string(index);
    return joined(asked(index, 2), lines("is_file_supported " + i, "is_file_a_directory " + i,
                                         "extract_to_file " + i + " " + out(name) + " 0"));
  }

  static Lines closing() { return lines("get_num_files", "reader_end"); }

  TempDir tmp;
  std::string archive =
      tmp.write("pack.zip", ZipMaker().file("a", "1").file("b", "2").file("c", "3").bytes());
  ErrorStateSentinel error;
  ZipCalls calls;
};

TEST_F(ReadCalls, AreTheseForEveryKindOfEntry) {
  tmp.write("pack.zip", ZipMaker()
                            .directory("d/")
                            .file("d/file", "text")
                            .add({.name = "secret", .content = "x", .flags = 1})
                            .file("../out", "x")
                            .file("scene.ksx", "scene")
                            .file("pack.zip", "x")
                            .bytes());
  tmp.link("out/pack.zip", "../pack.zip");

  EXPECT_EQ(expand(), lines(out("d/file"), tmp.path("pack.ksx")));

  EXPECT_EQ(calls.all(),
            joined(opening(),  //
                   asked(0, 3), lines("is_file_supported 0", "is_file_a_directory 0"), asked(1, 7),
                   lines("is_file_supported 1", "is_file_a_directory 1",
                         "extract_to_file 1 " + out("d/file") + " 0"),
                   asked(2, 7),
                   lines("is_file_supported 2", "warning: Unaupported file in archive: secret"),
                   asked(3, 7),
                   lines("is_file_supported 3", "warning: Unaupported file in archive: ../out"),
                   asked(4, 10),
                   lines("is_file_supported 4", "is_file_a_directory 4",
                         "extract_to_file 4 " + tmp.path("pack.ksx") + " 0"),
                   asked(5, 9),
                   lines("is_file_supported 5", "is_file_a_directory 5",
                         "error: Failed to extract file " + out("pack.zip") + " from archive."),
                   closing()));
}

TEST_F(ReadCalls, AreTheseForAnEmptyArchive) {
  tmp.write("pack.zip", ZipMaker().bytes());

  EXPECT_THAT(expand(), IsEmpty());

  EXPECT_EQ(calls.all(), joined(opening(), closing()));
}

TEST_F(ReadCalls, AreNoneForAMissingArchive) {
  EXPECT_THAT(texts(readZip(tmp.path("gone").c_str(), "", {})), IsEmpty());

  EXPECT_EQ(calls.all(), lines("error: Cannot expand non-existent archive: " + tmp.path("gone")));
}

TEST_F(ReadCalls, AreNoneWithoutAnOutputDirectory) {
  tmp.write("out", "in the way");

  EXPECT_THAT(expand(), IsEmpty());

  EXPECT_EQ(calls.all(), lines("error: Failed to create archive output dir: " + tmp.path("out")));
}

TEST_F(ReadCalls, BeginOnceTheOutputDirectoryStands) {
  bool isThere = false;
  calls.before(ZipCall::ZeroStruct, 1, [&] { isThere = tmp.exists("out"); });

  expand();

  EXPECT_TRUE(isThere);
}

TEST_F(ReadCalls, TakeTheCanonicalPathOfTheArchive) {
  const std::string link = tmp.link("link.zip", "pack.zip");

  readZip(link.c_str(), tmp.path("out").c_str(), {});

  EXPECT_EQ(calls.all("reader_init_file"), lines("reader_init_file " + archive + " 0"));
}

TEST_F(ReadCalls, EndWithTheFailureToInitialize) {
  calls.fail(ZipCall::ReaderInitFile);

  EXPECT_THAT(expand(), IsEmpty());

  EXPECT_EQ(calls.all(),
            joined(opening(), lines("error: Failed to initialize archive: " + archive)));
  EXPECT_TRUE(tmp.exists("out"));
}

TEST_F(ReadCalls, GoOnAfterANameOfAnotherSize) {
  calls.answer(ZipCall::GetFilename, 4, 3);

  EXPECT_EQ(expand(), lines(out("a"), out("c")));

  EXPECT_EQ(calls.all(), joined(opening(), extracted(0, "a"), asked(1, 2),
                                lines("error: Failed to extract filename 1 from archive."),
                                extracted(2, "c"), closing()));
}

TEST_F(ReadCalls, GoOnAfterANameThatCannotBeHad) {
  calls.answer(ZipCall::GetFilename, 2, 0);

  EXPECT_EQ(expand(), lines(out("b"), out("c")));

  EXPECT_EQ(calls.all("error: "), lines("error: Failed to extract filename 0 from archive."));
}

TEST_F(ReadCalls, GiveRoomForASizeOfZero) {
  calls.answer(ZipCall::GetFilename, 1, 0);
  calls.answer(ZipCall::GetFilename, 2, 0);

  EXPECT_EQ(expand(), lines(out("b"), out("c")));

  EXPECT_EQ(calls.all("get_filename 0"), lines("get_filename 0 null 0", "get_filename 0 buffer 0"));
  EXPECT_EQ(calls.all("error: "),
            lines("error: Failed to extract file " + tmp.path("out") + " from archive."));
}

TEST_F(ReadCalls, GiveRoomForASizeOfSixtyFourKilobytes) {
  calls.answer(ZipCall::GetFilename, 1, 65'536);
  calls.answer(ZipCall::GetFilename, 2, 65'536);

  EXPECT_EQ(expand(), lines(out("b"), out("c")));

  EXPECT_THAT(calls.all("get_filename 0"), Contains("get_filename 0 buffer 65536"));
}

TEST_F(ReadCalls, GoOnAfterAnEntryThatIsNotSupported) {
  calls.fail(ZipCall::IsFileSupported, 2);

  EXPECT_EQ(expand(), lines(out("a"), out("c")));

  EXPECT_EQ(calls.all(),
            joined(opening(), extracted(0, "a"), asked(1, 2),
                   lines("is_file_supported 1", "warning: Unaupported file in archive: b"),
                   extracted(2, "c"), closing()));
}

TEST_F(ReadCalls, GoOnAfterADirectory) {
  calls.answer(ZipCall::IsFileADirectory, 2, MZ_TRUE);

  EXPECT_EQ(expand(), lines(out("a"), out("c")));

  EXPECT_EQ(calls.all(), joined(opening(), extracted(0, "a"), asked(1, 2),
                                lines("is_file_supported 1", "is_file_a_directory 1"),
                                extracted(2, "c"), closing()));
  EXPECT_EQ(tmp.entries(), lines("out/", "out/a", "out/b/", "out/c", "pack.zip"));
}

TEST_F(ReadCalls, GoOnAfterADirectoryThatCannotBeMade) {
  calls.answer(ZipCall::IsFileADirectory, 2, MZ_TRUE);
  tmp.write("out/b", "in the way");

  EXPECT_EQ(expand(), lines(out("a"), out("c")));

  EXPECT_EQ(calls.all(), joined(opening(), extracted(0, "a"), asked(1, 2),
                                lines("is_file_supported 1", "is_file_a_directory 1",
                                      "error: Failed to create archive subdir: " + out("b")),
                                extracted(2, "c"), closing()));
}

TEST_F(ReadCalls, GoOnAfterAFileWhoseDirectoryCannotBeMade) {
  tmp.write("pack.zip", ZipMaker().file("b/x", "1").file("c", "3").bytes());
  tmp.write("out/b", "in the way");

  EXPECT_EQ(expand(), lines(out("c")));

  EXPECT_EQ(calls.all(), joined(opening(), asked(0, 4),
                                lines("is_file_supported 0", "is_file_a_directory 0",
                                      "error: Failed to create archive subdir: " + out("b/x")),
                                extracted(1, "c"), closing()));
}

TEST_F(ReadCalls, ExtractOnceTheDirectoryOfTheFileStands) {
  tmp.write("pack.zip", ZipMaker().file("d/e/x", "1").bytes());
  bool isThere = false;
  calls.before(ZipCall::ExtractToFile, 1, [&] { isThere = tmp.exists("out/d/e"); });

  expand();

  EXPECT_TRUE(isThere);
}

TEST_F(ReadCalls, GoOnAfterAFileThatCannotBeExtracted) {
  calls.fail(ZipCall::ExtractToFile, 2);

  EXPECT_EQ(expand(), lines(out("a"), out("c")));

  EXPECT_EQ(calls.all(),
            joined(opening(), extracted(0, "a"), extracted(1, "b"),
                   lines("error: Failed to extract file " + out("b") + " from archive."),
                   extracted(2, "c"), closing()));
}

TEST_F(ReadCalls, ListWhatWasExtractedWhenTheEndFails) {
  calls.fail(ZipCall::ReaderEnd);

  EXPECT_EQ(expand(), lines(out("a"), out("b"), out("c")));

  EXPECT_EQ(calls.all(), joined(opening(), extracted(0, "a"), extracted(1, "b"), extracted(2, "c"),
                                closing(), lines("error: Failed to close archive: " + archive)));
}

TEST_F(ReadCalls, AskForTheCountBeforeEveryEntry) {
  calls.answer(ZipCall::GetNumFiles, 3, 2);

  EXPECT_EQ(expand(), lines(out("a"), out("b")));

  EXPECT_EQ(calls.all(), joined(opening(), extracted(0, "a"), extracted(1, "b"), closing()));
}

TEST_F(ReadCalls, LeaveTheCurrentErrorAloneWhicheverFails) {
  tmp.mkdir("out");
  calls.answer(ZipCall::GetFilename, 2, 0);
  calls.fail(ZipCall::IsFileSupported);
  calls.fail(ZipCall::ExtractToFile);
  calls.fail(ZipCall::ReaderEnd);

  EXPECT_THAT(expand(), IsEmpty());

  EXPECT_TRUE(error.isUntouched());
  EXPECT_EQ(calls.all("error: ").size() + calls.all("warning: ").size(), 4U);
}

}  // namespace
