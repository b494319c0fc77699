// mkDir, rmDir, listDirs and listFiles with each of their calls failing once.

#include "fs/vx_fs.h"
#include "tests/faults/scenario.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace vx::test {
namespace {

TEST(FailingCalls, MkDir) {
  const Outcome clean = {.result = "true", .error = "0 mkDir: ", .disk = {"a/", "a/b/", "a/b/c/"}};
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.mkdir("a"); },
      .call = calling([] { return fs::mkDir("a/b/c"); }),
      .clean = clean,
      .rules =
          {
              // What cannot be examined does not exist.
              {"stat a/b/c#1", clean},
              {"stat a",
               {.result = "false",
                .log = {"error: Failed to create dir: a [err: File exists]."},
                .error = "17 mkDir: File exists",
                .disk = {"a/"}}},
              {"stat a/b", clean},
              {"mkdir a/b",
               {.result = "false",
                .log = {"error: Failed to create dir: a/b [err: {text}]."},
                .error = "{code} mkDir: {text}",
                .disk = {"a/"}}},
              {"stat a/b/c#2", clean},
              // Levels made before a failure stay.
              {"mkdir a/b/c",
               {.result = "false",
                .log = {"error: Failed to create dir: a/b/c [err: {text}]."},
                .error = "{code} mkDir: {text}",
                .disk = {"a/", "a/b/"}}},
          },
      .calls = {"stat a/b/c", "stat a", "stat a/b", "mkdir a/b", "stat a/b/c", "mkdir a/b/c"},
  });
}

TEST(FailingCalls, RmDir) {
  const Outcome clean = {.result = "true", .error = "0 rmDir: "};
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.mkdir("d"); },
      .call = calling([] { return fs::rmDir("d"); }),
      .clean = clean,
      .rules =
          {
              {"stat d#1", clean},
              // Where nothing is, nothing is left to do.
              {"stat d#2", {.result = "true", .disk = {"d/"}}},
              // The canonical form is then found level by level.
              {"realpath d", clean},
              {"rmdir {tmp}/d",
               {.result = "false",
                .log = {"error: Failed to remove dir: {tmp}/d [err: {text}]."},
                .error = "{code} rmDir: {text}",
                .disk = {"d/"}}},
          },
      .calls = {"stat d", "stat d", "realpath d", "rmdir {tmp}/d"},
  });
}

TEST(FailingCalls, RmDirOfAFullDirectory) {
  const std::string full = "Failed to remove dir: {tmp}/d [err: Directory not empty].";
  const Outcome clean = {.result = "false",
                         .log = {"error: " + full},
                         .error = "39 rmDir: Directory not empty",
                         .disk = {"d/", "d/f: text"}};
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.write("d/f", "text"); },
      .call = calling([] { return fs::rmDir("d"); }),
      .clean = clean,
      .rules =
          {
              {"stat d#1", clean},
              {"stat d#2", {.result = "true", .disk = clean.disk}},
              {"realpath d", clean},
              {"rmdir {tmp}/d",
               {.result = "false",
                .log = {"error: Failed to remove dir: {tmp}/d [err: {text}]."},
                .error = "{code} rmDir: {text}",
                .disk = clean.disk}},
          },
  });
}

TEST(FailingCalls, RmFile) {
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.write("f", "text"); },
      .call = calling([] { return fs::rmFile("f"); }),
      .clean = {.result = "true"},
      .rules =
          {
              {"stat f", {.result = "true", .disk = {"f: text"}}},
              {"remove f", {.result = "false", .disk = {"f: text"}}},
          },
      .calls = {"stat f", "remove f"},
  });
}

// The listings rely on the system to deliver "." and ".." before all else, which no rule of the
// module's does: an entry is numbered by its place.

TEST(FailingCalls, ListDirs) {
  const std::vector<std::string> disk = {"d/", "d/a/", "d/b/"};
  const Outcome clean = {.result = "d/{first}, d/{second}", .disk = disk};
  const Outcome nothing = {.result = "", .disk = disk};
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            tmp.mkdir("d/a");
            tmp.mkdir("d/b");
          },
      .call = calling([] { return fs::listDirs("d"); }),
      .clean = clean,
      .rules =
          {
              {"stat d", nothing},
              {"opendir d", nothing},
              // An error ends the list early.
              {"readdir#1", nothing},
              // The places of "." and ".." are the file system's choice.
              {"readdir#2", {.result = "*", .disk = disk}},
              {"readdir#3", {.result = "*", .disk = disk}},
              {"readdir#4", {.result = "*d/*", .disk = disk}},
              {"readdir#5", clean},
              // What cannot be examined is no directory.
              {"stat d/a", {.result = "d/b", .disk = disk}},
              {"stat d/b", {.result = "d/a", .disk = disk}},
              {"closedir", clean},
          },
  });
}

TEST(FailingCalls, ListFiles) {
  const std::vector<std::string> disk = {"d/", "d/a.txt: text", "d/b.txt: text"};
  const Outcome clean = {.result = "d/{first}, d/{second}", .disk = disk};
  const Outcome nothing = {.result = "", .disk = disk};
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            tmp.write("d/a.txt", "text");
            tmp.write("d/b.txt", "text");
          },
      .call = calling([] { return fs::listFiles("d", {"txt"}); }),
      .clean = clean,
      .rules =
          {
              {"stat d", nothing},
              {"opendir d", nothing},
              {"readdir#1", nothing},
              // The places of "." and ".." are the file system's choice.
              {"readdir#2", {.result = "*", .disk = disk}},
              {"readdir#3", {.result = "*", .disk = disk}},
              {"readdir#4", {.result = "*d/*", .disk = disk}},
              {"readdir#5", clean},
              {"stat d/a.txt", clean},
              {"stat d/b.txt", clean},
              {"closedir", clean},
          },
  });
}

TEST(FailingCalls, ListFilesAmongDirectories) {
  const Outcome nothing = {.result = "", .disk = {"d/", "d/a.txt/"}};
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.mkdir("d/a.txt"); },
      .call = calling([] { return fs::listFiles("d", {"txt"}); }),
      .clean = nothing,
      .rules =
          {
              {"stat d", nothing},
              {"opendir d", nothing},
              {"readdir*", nothing},
              // What cannot be examined is no directory, so it is listed.
              {"stat d/a.txt", {.result = "d/a.txt", .disk = nothing.disk}},
              {"closedir", nothing},
          },
  });
}

}  // namespace
}  // namespace vx::test
