// Concern: the canonical form, in trees with links, holes and limits.

#include "core/vx_path.h"
#include "tests/testing/child.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <climits>
#include <filesystem>
#include <string>

#include <sys/stat.h>
#include <unistd.h>

namespace {

using vx::Path;
using vx::test::runAsUnprivileged;
using vx::test::runInChild;
using vx::test::ScopedCurrentDir;
using vx::test::TempDir;
using vx::test::text;

std::string canonical(const std::string& path, bool normalizeFirst) {
  return text(Path(path.c_str(), normalizeFirst).canonical());
}

/// A tree with the current directory at its top:
///
///   dir/sub/   file   d -> dir   to-dir -> dir   to-sub -> dir/sub   to-file -> file
///   far -> to-sub   dir/up -> ../file   dangling -> missing/target
///   loop -> loop   ping -> pong   pong -> ping
class PathCanonicalTest : public testing::Test {
 protected:
  PathCanonicalTest() {
    tmp.mkdir("dir/sub");
    tmp.write("file", "text");
    tmp.link("d", "dir");
    tmp.link("to-dir", "dir");
    tmp.link("to-sub", "dir/sub");
    tmp.link("to-file", tmp.path("file"));
    tmp.link("far", "to-sub");
    tmp.link("dir/up", "../file");
    tmp.link("dangling", "missing/target");
    tmp.link("loop", "loop");
    tmp.link("ping", "pong");
    tmp.link("pong", "ping");
  }

  TempDir tmp;
  ScopedCurrentDir inside{tmp.path()};
};

TEST_F(PathCanonicalTest, ResolvesWhatExistsAndAppendsWhatDoesNot) {
  struct Row {
    const char* name;
    const char* path;
    const char* written;     // below the current directory
    const char* normalised;  // the same with the constructor's flag set
  };
  const Row rows[] = {
      {"the empty path", "", "", ""},
      {"a dot", ".", "", ""},
      {"a dot and slashes", ".//", "", ""},
      {"a directory", "dir", "/dir", "/dir"},
      {"a directory with a slash", "dir/sub/", "/dir/sub", "/dir/sub"},
      {"a file", "file", "/file", "/file"},
      {"a path that is not normal", "./dir//sub/../sub/.", "/dir/sub", "/dir/sub"},
      {"a missing name", "new", "/new", "/new"},
      {"a missing name with a slash", "new/", "/new", "/new"},
      {"a missing name behind a dot", "./new", "/new", "/new"},
      {"several missing levels", "new/x/y", "/new/x/y", "/new/x/y"},
      {"missing levels below a directory", "dir/sub/x/y/z", "/dir/sub/x/y/z", "/dir/sub/x/y/z"},
      {"missing levels that are not normal", "dir/x//./y/../z/", "/dir/x/z", "/dir/x/z"},
      {"missing levels that fold away", "dir/x/y/../..", "/dir", "/dir"},
      {"missing levels that lead higher", "dir/sub/x/../../../file", "/file", "/file"},
      {"a link to a directory", "to-dir", "/dir", "/dir"},
      {"below a link", "to-dir/sub", "/dir/sub", "/dir/sub"},
      {"missing below a link", "to-dir/x/y", "/dir/x/y", "/dir/x/y"},
      {"missing below a link whose name is one letter", "d/x", "/dir/x", "/dir/x"},
      {"a link to a file", "to-file", "/file", "/file"},
      {"a link to a link", "far", "/dir/sub", "/dir/sub"},
      {"missing below a link to a link", "far/x", "/dir/sub/x", "/dir/sub/x"},
      {"a link within a link", "to-dir/up", "/file", "/file"},
      {"the parent of a link", "to-sub/..", "/dir", ""},
      {"beside a link, missing", "to-sub/../x", "/dir/x", "/x"},
      {"beside a link, existing", "to-sub/../up", "/file", "/up"},
      {"missing beside a link in the missing rest", "to-sub/x/../../y", "/dir/y", "/y"},
      {"a dangling link", "dangling", "/dangling", "/dangling"},
      {"below a dangling link", "dangling/x", "/dangling/x", "/dangling/x"},
      {"a link to itself", "loop", "/loop", "/loop"},
      {"below a link to itself", "loop/x/y", "/loop/x/y", "/loop/x/y"},
      {"a loop of two links", "ping/x", "/ping/x", "/ping/x"},
      {"a file in the middle", "file/x/y", "/file/x/y", "/file/x/y"},
      {"a file with a slash", "file/", "/file", "/file"},
      {"a parent of a file", "file/../dir", "/dir", "/dir"},
      {"a link to a file in the middle", "to-file/x", "/file/x", "/file/x"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string below = tmp.path() + (*row.path == '\0' ? "" : "/") + row.path;

    EXPECT_EQ(canonical(row.path, false), tmp.path() + row.written);
    EXPECT_EQ(canonical(row.path, true), tmp.path() + row.normalised);
    EXPECT_EQ(canonical(below, false), tmp.path() + row.written);
    EXPECT_EQ(canonical(below, true), tmp.path() + row.normalised);
  }
}

TEST_F(PathCanonicalTest, ResolvesAtAndBelowTheRoot) {
  EXPECT_EQ(canonical("/", true), "/");
  EXPECT_EQ(canonical("///", false), "/");
  EXPECT_EQ(canonical("/..", false), "/");
  EXPECT_EQ(canonical("/no such entry", true), "/no such entry");
  EXPECT_EQ(canonical("/no such entry/x/../y/", false), "/no such entry/y");
  EXPECT_EQ(canonical("/no such entry/../..", false), "/");
}

TEST_F(PathCanonicalTest, LeadsOutOfTheCurrentDirectory) {
  const std::string above = tmp.path().substr(0, tmp.path().rfind('/'));
  const ScopedCurrentDir deeper(tmp.path("dir"));

  EXPECT_EQ(canonical("..", true), tmp.path());
  EXPECT_EQ(canonical("../file", true), tmp.path("file"));
  EXPECT_EQ(canonical("../new/x", true), tmp.path("new/x"));
  EXPECT_EQ(canonical("../../no such entry", true), above + "/no such entry");
}

TEST_F(PathCanonicalTest, IsOfTheCurrentDirectoryNotOfTheLinkThatLedThere) {
  const ScopedCurrentDir throughALink(tmp.path("to-sub"));

  EXPECT_EQ(canonical("", true), tmp.path("dir/sub"));
  EXPECT_EQ(canonical("x", true), tmp.path("dir/sub/x"));
}

TEST_F(PathCanonicalTest, IsItsOwnCanonicalForm) {
  for (const char* const path :
       {"", ".", "..", "/", "dir/sub", "new/x/..", "to-sub/..", "to-sub/../x", "far/x", "dangling",
        "loop/x", "file/x", "file/../dir", "/no such entry/x", "../../../../../../../../.."}) {
    SCOPED_TRACE(path);
    for (const bool flag : {false, true}) {
      const std::string once = canonical(path, flag);
      EXPECT_EQ(once.substr(0, 1), "/");
      EXPECT_EQ(canonical(once, false), once);
      EXPECT_EQ(text(Path::normalize(once.c_str())), once);
    }
  }
}

TEST_F(PathCanonicalTest, CreatesNothing) {
  const std::vector<std::string> before = tmp.entries();

  EXPECT_EQ(canonical("new/x/y", true), tmp.path("new/x/y"));
  EXPECT_EQ(canonical("dangling", true), tmp.path("dangling"));

  EXPECT_EQ(tmp.entries(), before);
}

// ---- Limits ------------------------------------------------------------------------------------

TEST_F(PathCanonicalTest, AppendsAnOverlongComponent) {
  const std::string overlong(256, 'x');

  EXPECT_EQ(canonical(overlong, true), tmp.path(overlong));
  EXPECT_EQ(canonical("to-dir/" + overlong + "/y", true), tmp.path("dir/" + overlong + "/y"));
  EXPECT_EQ(canonical("to-dir/" + overlong + "/../y", false), tmp.path("dir/y"));
}

TEST_F(PathCanonicalTest, AppendsMoreThanTheSystemTakesForAPath) {
  std::string missing;
  for (int i = 0; i < 600; ++i) {
    missing += "/ten chars";
  }
  ASSERT_GT(missing.size(), std::size_t{PATH_MAX});

  EXPECT_EQ(canonical("to-dir" + missing, true), tmp.path("dir" + missing));
  EXPECT_EQ(canonical(tmp.path("to-dir") + missing, true), tmp.path("dir" + missing));
  EXPECT_EQ(canonical(missing, true), missing);
}

TEST_F(PathCanonicalTest, ShortensAPathThatIsLongOnlyAsWritten) {
  std::string detour = "to-sub";
  while (detour.size() <= PATH_MAX) {
    detour += "/../sub";
  }

  EXPECT_EQ(canonical(detour + "/x", false), tmp.path("dir/sub/x"));
}

// ---- Without rights ----------------------------------------------------------------------------

TEST_F(PathCanonicalTest, AppendsWhatLiesInADirectoryThatMayNotBeEntered) {
  tmp.mkdir("locked/inner");
  tmp.link("locked/link", "inner");
  tmp.link("to-locked", "locked");
  std::filesystem::permissions(tmp.path("locked"), std::filesystem::perms::none);

  runAsUnprivileged([this] {
    EXPECT_EQ(canonical("to-locked", true), tmp.path("locked"));
    EXPECT_EQ(canonical("to-locked/inner/x", true), tmp.path("locked/inner/x"));
    EXPECT_EQ(canonical("to-locked/link", true), tmp.path("locked/link"));
  });
}

// ---- A current directory that has been removed -------------------------------------------------

TEST_F(PathCanonicalTest, IsTheNormalFormWhereTheCurrentDirectoryHasBeenRemoved) {
  const std::string gone = tmp.mkdir("gone");

  runInChild([&] {
    ASSERT_EQ(::chdir(gone.c_str()), 0);
    ASSERT_EQ(::rmdir(gone.c_str()), 0);

    for (const bool flag : {false, true}) {
      EXPECT_EQ(canonical("", flag), ".");
      EXPECT_EQ(canonical(".", flag), ".");
      EXPECT_EQ(canonical("./", flag), ".");
      EXPECT_EQ(canonical("x", flag), "x");
      EXPECT_EQ(canonical("./x//y/../z/", flag), "x/z");
      EXPECT_EQ(canonical("../x", flag), "../x");
    }
  });
}

TEST_F(PathCanonicalTest, OfAnAbsolutePathNeedsNoCurrentDirectory) {
  const std::string gone = tmp.mkdir("gone");

  runInChild([&] {
    ASSERT_EQ(::chdir(gone.c_str()), 0);
    ASSERT_EQ(::rmdir(gone.c_str()), 0);

    EXPECT_EQ(canonical(tmp.path("to-sub"), true), tmp.path("dir/sub"));
    EXPECT_EQ(canonical(tmp.path("to-sub/x"), true), tmp.path("dir/sub/x"));
  });
}

TEST_F(PathCanonicalTest, IsAbsoluteInACurrentDirectoryTooDeepForAPath) {
  const std::string level(200, 'x');

  runInChild([&] {
    std::string deep = tmp.path();
    while (deep.size() <= PATH_MAX) {
      ASSERT_EQ(::mkdir(level.c_str(), 0755), 0);
      ASSERT_EQ(::chdir(level.c_str()), 0);
      deep += '/' + level;
    }
    ASSERT_EQ(::mkdir("dir", 0755), 0);
    ASSERT_EQ(::symlink("dir", "link"), 0);

    EXPECT_EQ(canonical("", true), deep);
    EXPECT_EQ(canonical(".", false), deep);
    EXPECT_EQ(canonical("dir", true), deep + "/dir");
    EXPECT_EQ(canonical("./dir//", false), deep + "/dir");
    EXPECT_EQ(canonical("dir/../dir", false), deep + "/dir");
    EXPECT_EQ(canonical("dir/new", true), deep + "/dir/new");
    EXPECT_EQ(canonical("new/x/../y", false), deep + "/new/y");
    // The path is too long for the link to be resolved.
    EXPECT_EQ(canonical("link", true), deep + "/link");
    EXPECT_EQ(canonical("link/new", true), deep + "/link/new");
    EXPECT_EQ(canonical(tmp.path("to-sub"), true), tmp.path("dir/sub"));
  });
}

TEST_F(PathCanonicalTest, IsAbsoluteBelowADirectoryThatMayNotBeSearched) {
  tmp.mkdir("locked/work/dir");
  tmp.link("locked/work/link", "dir");
  const ScopedCurrentDir work(tmp.path("locked/work"));
  std::filesystem::permissions(tmp.path("locked"), std::filesystem::perms::none);

  runAsUnprivileged([this] {
    EXPECT_EQ(canonical("", true), tmp.path("locked/work"));
    EXPECT_EQ(canonical("dir", true), tmp.path("locked/work/dir"));
    EXPECT_EQ(canonical("dir/../dir/", false), tmp.path("locked/work/dir"));
    EXPECT_EQ(canonical("dir/new", true), tmp.path("locked/work/dir/new"));
    EXPECT_EQ(canonical("new/x", true), tmp.path("locked/work/new/x"));
    EXPECT_EQ(canonical("link", true), tmp.path("locked/work/link"));
    EXPECT_EQ(canonical("link/new", true), tmp.path("locked/work/link/new"));
  });
}

}  // namespace
