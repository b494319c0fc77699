// readZip and readKsz with each of their calls failing once, and with each of the calls that the
// archive library makes for them.

#include "fs/vx_fs.h"
#include "tests/faults/scenario.h"

#include <gtest/gtest.h>
#include <miniz.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

namespace vx::test {
namespace {

struct Entry {
  const char* name;
  std::string content;
};

/// An archive of these entries, written by the archive library in memory.
void writeArchive(const TempDir& tmp, const char* path, const std::vector<Entry>& entries) {
  mz_zip_archive zip;
  mz_zip_zero_struct(&zip);
  ASSERT_NE(mz_zip_writer_init_heap(&zip, 0, 0), MZ_FALSE);
  for (const Entry& entry : entries) {
    ASSERT_NE(mz_zip_writer_add_mem(&zip, entry.name, entry.content.data(), entry.content.size(),
                                    MZ_BEST_SPEED),
              MZ_FALSE);
  }
  void* bytes = nullptr;
  std::size_t size = 0;
  ASSERT_NE(mz_zip_writer_finalize_heap_archive(&zip, &bytes, &size), MZ_FALSE);
  tmp.write(path, {static_cast<const char*>(bytes), size});
  mz_free(bytes);
  mz_zip_writer_end(&zip);
}

/// `base` without a file and with one more line.
Outcome lacking(Outcome base, const std::string& listed, const std::string& onDisk,
                const std::string& line) {
  const std::size_t at = base.result.find(listed);
  const bool isFirst = at == 0;
  base.result.erase(isFirst ? 0 : at - 2, listed.size() + 2);
  std::erase_if(base.disk,
                [&](const std::string& entry) { return entry.starts_with(onDisk + ": "); });
  base.maybe = {onDisk};
  base.log.push_back(line);
  return base;
}

Outcome logging(Outcome base, const std::vector<std::string>& lines) {
  base.log = lines;
  return base;
}

// ---- Reading -----------------------------------------------------------------------------------

const std::string kPack = "pack.zip: {a.txt: 3000, sub/: , sub/b.txt: tiny, look.KSX: scene}";

const Outcome kAllRead = {.result = "out/a.txt, out/sub/b.txt, {tmp}/pack.ksx",
                          .error = "0 mkDir: ",
                          .disk = {"out/", "out/a.txt: 3000", "out/sub/", "out/sub/b.txt: tiny",
                                   "pack.ksx: scene", kPack}};

/// What an entry that is not extracted takes from that.
Outcome withoutA(const std::string& line) {
  return lacking(kAllRead, "out/a.txt", "out/a.txt", line);
}
Outcome withoutB(const std::string& line) {
  return lacking(kAllRead, "out/sub/b.txt", "out/sub/b.txt", line);
}
Outcome withoutScene(const std::string& line) {
  return lacking(kAllRead, "{tmp}/pack.ksx", "pack.ksx", line);
}

void arrangePack(const TempDir& tmp) {
  writeArchive(
      tmp, "pack.zip",
      {{"a.txt", sequence(3000)}, {"sub/", ""}, {"sub/b.txt", "tiny"}, {"look.KSX", "scene"}});
}

const std::vector<int> kNotMissing = allCodesBut({ENOENT});

TEST(FailingCalls, ReadZip) {
  const std::string name = "error: Failed to extract filename ";
  const std::string kind = "warning: Unaupported file in archive: ";
  const std::string level = "error: Failed to create dir: ";
  const std::string place = "error: Failed to create archive subdir: ";
  const std::string file = "error: Failed to extract file ";
  checkEveryFailure({
      .arrange = arrangePack,
      .call = calling([] { return fs::readZip("pack.zip", "out", {}); }),
      .clean = kAllRead,
      .rules =
          {
              {"stat pack.zip",
               {.result = "",
                .log = {"error: Cannot expand non-existent archive: pack.zip"},
                .disk = {kPack}}},
              {"realpath pack.zip", kAllRead},
              // The output directory
              {"stat out#1", kAllRead},
              {"stat out#2", kAllRead},
              {"mkdir out",
               {.result = "",
                .log = {level + "out [err: {text}].",
                        "error: Failed to create archive output dir: out"},
                .error = "{code} mkDir: {text}",
                .disk = {kPack}}},
              {"mz_zip_reader_init_file {tmp}/pack.zip",
               {.result = "",
                .log = {"error: Failed to initialize archive: {tmp}/pack.zip"},
                .error = "0 mkDir: ",
                .disk = {"out/", kPack}}},
              // What is missing cannot be the archive, even where nothing is known of that.
              {"stat {tmp}/pack.zip", kAllRead},
              // An archive that tells no number has no further entries.
              {"mz_zip_reader_get_num_files#1",
               {.result = "", .error = "0 mkDir: ", .disk = {"out/", kPack}}},
              {"mz_zip_reader_get_num_files#2",
               {.result = "out/a.txt",
                .error = "0 mkDir: ",
                .disk = {"out/", "out/a.txt: 3000", kPack}}},
              {"mz_zip_reader_get_num_files#3",
               {.result = "out/a.txt",
                .error = "0 mkDir: ",
                .disk = {"out/", "out/a.txt: 3000", "out/sub/", kPack}}},
              {"mz_zip_reader_get_num_files#4",
               {.result = "out/a.txt, out/sub/b.txt",
                .error = "0 mkDir: ",
                .disk = {"out/", "out/a.txt: 3000", "out/sub/", "out/sub/b.txt: tiny", kPack}}},
              {"mz_zip_reader_get_num_files#5", kAllRead},
              // The entry "a.txt"
              {"mz_zip_reader_get_filename size#1", withoutA(name + "0 from archive.")},
              {"mz_zip_reader_get_filename text#1", withoutA(name + "0 from archive.")},
              {"mz_zip_reader_is_file_supported#1", withoutA(kind + "a.txt")},
              {"mz_zip_reader_is_file_a_directory#1", kAllRead},
              {"stat out#3", kAllRead},
              {"stat out#4", withoutA(place + "out/a.txt")},
              {"stat out/a.txt", kAllRead, {ENOENT}},
              {"stat out/a.txt", withoutA(file + "out/a.txt from archive."), kNotMissing},
              {"mz_zip_reader_extract_to_file out/a.txt",
               withoutA(file + "out/a.txt from archive.")},
              // The entry "sub/", whose directory the next entry makes in its place
              {"mz_zip_reader_get_filename size#2", logging(kAllRead, {name + "1 from archive."})},
              {"mz_zip_reader_get_filename text#2", logging(kAllRead, {name + "1 from archive."})},
              {"mz_zip_reader_is_file_supported#2", logging(kAllRead, {kind + "sub/"})},
              {"mz_zip_reader_is_file_a_directory#2",
               logging(kAllRead, {file + "out/sub/ from archive."})},
              {"stat out/sub#1", kAllRead},
              {"stat out#5",
               logging(kAllRead, {level + "out [err: File exists].", place + "out/sub/"})},
              {"stat out/sub#2", kAllRead},
              {"mkdir out/sub",
               logging(kAllRead, {level + "out/sub [err: {text}].", place + "out/sub/"})},
              // The entry "sub/b.txt"
              {"mz_zip_reader_get_filename size#3", withoutB(name + "2 from archive.")},
              {"mz_zip_reader_get_filename text#3", withoutB(name + "2 from archive.")},
              {"mz_zip_reader_is_file_supported#3", withoutB(kind + "sub/b.txt")},
              {"mz_zip_reader_is_file_a_directory#3", kAllRead},
              {"stat out/sub#3", kAllRead},
              {"stat out/sub#4", withoutB(place + "out/sub/b.txt")},
              {"stat out/sub/b.txt", kAllRead, {ENOENT}},
              {"stat out/sub/b.txt", withoutB(file + "out/sub/b.txt from archive."), kNotMissing},
              {"mz_zip_reader_extract_to_file out/sub/b.txt",
               withoutB(file + "out/sub/b.txt from archive.")},
              // The entry "look.KSX", which lies beside the archive
              {"mz_zip_reader_get_filename size#4", withoutScene(name + "3 from archive.")},
              {"mz_zip_reader_get_filename text#4", withoutScene(name + "3 from archive.")},
              {"mz_zip_reader_is_file_supported#4", withoutScene(kind + "look.KSX")},
              {"mz_zip_reader_is_file_a_directory#4", kAllRead},
              {"stat {tmp}#1", kAllRead},
              {"stat {tmp}#2", withoutScene(place + "{tmp}/pack.ksx")},
              {"stat {tmp}/pack.ksx", kAllRead, {ENOENT}},
              {"stat {tmp}/pack.ksx", withoutScene(file + "{tmp}/pack.ksx from archive."),
               kNotMissing},
              {"mz_zip_reader_extract_to_file {tmp}/pack.ksx",
               withoutScene(file + "{tmp}/pack.ksx from archive.")},
              // The list is returned all the same.
              {"mz_zip_reader_end",
               logging(kAllRead, {"error: Failed to close archive: {tmp}/pack.zip"})},
          },
  });
}

// An archive is never extracted onto itself, whatever cannot be found out about it.
TEST(FailingCalls, ReadZipOntoTheArchiveItself) {
  const std::string archive = "pack.zip: {pack.zip: trap}";
  const std::string refused = "error: Failed to extract file {tmp}/pack.zip from archive.";
  const Outcome clean = {.result = "", .log = {refused}, .disk = {archive}};
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            writeArchive(tmp, "pack.zip", {{"pack.zip", "trap"}});
          },
      .call = calling([] { return fs::readZip("./pack.zip", "", {}); }),
      .clean = clean,
      .rules =
          {
              {"stat pack.zip#1",
               {.result = "",
                .log = {"error: Cannot expand non-existent archive: pack.zip"},
                .disk = {archive}}},
              {"stat pack.zip#2", clean},
              {"realpath pack.zip", clean},
              {"stat {tmp}#1", clean},
              {"stat {tmp}#2",
               {.result = "",
                .log = {"error: Failed to create archive output dir: {tmp}"},
                .disk = {archive}}},
              {"mz_zip_reader_init_file {tmp}/pack.zip",
               logging(clean, {"error: Failed to initialize archive: {tmp}/pack.zip"})},
              {"stat {tmp}/pack.zip#1", clean},
              {"mz_zip_reader_get_num_files#1", logging(clean, {})},
              {"mz_zip_reader_get_num_files#2", clean},
              {"mz_zip_reader_get_filename*",
               logging(clean, {"error: Failed to extract filename 0 from archive."})},
              {"mz_zip_reader_is_file_supported",
               logging(clean, {"warning: Unaupported file in archive: pack.zip"})},
              {"mz_zip_reader_is_file_a_directory", clean},
              {"stat {tmp}#3", clean},
              {"stat {tmp}#4",
               logging(clean, {"error: Failed to create archive subdir: {tmp}/pack.zip"})},
              {"stat {tmp}/pack.zip#2", clean, kNotMissing},
              // A system that denies that the archive is there is believed.
              {"stat {tmp}/pack.zip#2",
               {.result = "*", .disk = {}, .maybe = {"pack.zip"}},
               {ENOENT}},
              {"mz_zip_reader_end",
               logging(clean, {refused, "error: Failed to close archive: {tmp}/pack.zip"})},
          },
  });
}

TEST(FailingCalls, ReadZipOverAFile) {
  const std::string archive = "pack.zip: {a.txt: new}";
  const std::vector<std::string> before = {"a.txt: old", archive};
  const Outcome clean = {.result = "{tmp}/a.txt", .disk = {"a.txt: new", archive}};
  const Outcome refused = {.result = "",
                           .log = {"error: Failed to extract file {tmp}/a.txt from archive."},
                           .disk = before};
  const auto nothing = [&](const std::string& line) {
    return Outcome{.result = "", .log = {line}, .disk = before};
  };
  Outcome damaged = refused;
  damaged.disk = {"a.txt: *", archive};
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            writeArchive(tmp, "pack.zip", {{"a.txt", "new"}});
            tmp.write("a.txt", "old");
          },
      .call = calling([] { return fs::readZip("pack.zip", "", {}); }),
      .clean = clean,
      .rules =
          {
              {"stat pack.zip#1", nothing("error: Cannot expand non-existent archive: pack.zip")},
              {"stat pack.zip#2", clean},
              {"realpath pack.zip", clean},
              {"stat {tmp}#1", clean},
              {"stat {tmp}#2", nothing("error: Failed to create archive output dir: {tmp}")},
              {"mz_zip_reader_init_file {tmp}/pack.zip",
               nothing("error: Failed to initialize archive: {tmp}/pack.zip")},
              // A file that may be the archive for all that is known is left alone.
              {"stat {tmp}/pack.zip", refused},
              {"mz_zip_reader_get_num_files#1", {.result = "", .disk = before}},
              {"mz_zip_reader_get_num_files#2", clean},
              {"mz_zip_reader_get_filename*",
               nothing("error: Failed to extract filename 0 from archive.")},
              {"mz_zip_reader_is_file_supported",
               nothing("warning: Unaupported file in archive: a.txt")},
              {"mz_zip_reader_is_file_a_directory", clean},
              {"stat {tmp}#3", clean},
              {"stat {tmp}#4", nothing("error: Failed to create archive subdir: {tmp}/a.txt")},
              {"stat {tmp}/a.txt", clean, {ENOENT}},
              {"stat {tmp}/a.txt", refused, kNotMissing},
              // Extraction that fails half-way has replaced the file already.
              {"mz_zip_reader_extract_to_file {tmp}/a.txt", damaged},
              {"mz_zip_reader_end",
               logging(clean, {"error: Failed to close archive: {tmp}/pack.zip"})},
          },
  });
}

TEST(FailingCalls, ReadKsz) {
  const std::string archive = "pack.ksz: {look.ksx: scene}";
  const Outcome clean = {.result = "true", .disk = {"pack.ksx: scene", archive}};
  const auto fails = [&](const std::string& line) {
    return Outcome{.result = "false", .log = {line}, .disk = {archive}, .maybe = {"pack.ksx"}};
  };
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            writeArchive(tmp, "pack.ksz", {{"look.ksx", "scene"}});
          },
      .call = calling([] { return fs::readKsz("pack.ksz", {}); }),
      .clean = clean,
      .rules =
          {
              {"stat pack.ksz#1", fails("error: Cannot expand non-existent archive: pack.ksz")},
              {"stat pack.ksz#2", clean},
              {"realpath pack.ksz", clean},
              {"stat {tmp}#1", clean},
              {"stat {tmp}#2", fails("error: Failed to create archive output dir: {tmp}")},
              {"mz_zip_reader_init_file {tmp}/pack.ksz",
               fails("error: Failed to initialize archive: {tmp}/pack.ksz")},
              {"stat {tmp}/pack.ksz", clean},
              {"mz_zip_reader_get_num_files#1", {.result = "false", .disk = {archive}}},
              {"mz_zip_reader_get_num_files#2", clean},
              {"mz_zip_reader_get_filename*",
               fails("error: Failed to extract filename 0 from archive.")},
              {"mz_zip_reader_is_file_supported",
               fails("warning: Unaupported file in archive: look.ksx")},
              {"mz_zip_reader_is_file_a_directory", clean},
              {"stat {tmp}#3", clean},
              {"stat {tmp}#4", fails("error: Failed to create archive subdir: {tmp}/pack.ksx")},
              {"stat {tmp}/pack.ksx", clean, {ENOENT}},
              {"stat {tmp}/pack.ksx",
               fails("error: Failed to extract file {tmp}/pack.ksx from archive."), kNotMissing},
              {"mz_zip_reader_extract_to_file {tmp}/pack.ksx",
               fails("error: Failed to extract file {tmp}/pack.ksx from archive.")},
              {"mz_zip_reader_end",
               logging(clean, {"error: Failed to close archive: {tmp}/pack.ksz"})},
          },
  });
}

}  // namespace
}  // namespace vx::test
