// listDirs and listFiles with each of their calls failing once.

#include "fs/vx_fs.h"
#include "tests/faults/scenario.h"

#include <gtest/gtest.h>

#include <cerrno>

namespace vx::test {
namespace {

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
