// Concern: what paths say about themselves, as tables of named rows and as laws that every path
// keeps. What they name in the file system is the concern of vx_path_status_test.cpp and
// vx_path_canonical_test.cpp.

#include "core/vx_path.h"

#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/scoped_cwd.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <iomanip>
#include <sstream>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace std::string_view_literals;

using vx::Path;
using vx::String;
using vx::StringVector;
using vx::test::ErrorStateSentinel;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::ScopedCurrentDir;
using vx::test::TempDir;
using vx::test::text;
using vx::test::texts;

static_assert(!std::is_polymorphic_v<Path>);
static_assert(sizeof(Path) == sizeof(String));
static_assert(std::is_copy_constructible_v<Path> && std::is_copy_assignable_v<Path>);
static_assert(!std::is_convertible_v<String, Path>);
static_assert(!std::is_convertible_v<const char*, Path>);

// ---- Paths for the laws ------------------------------------------------------------------------

/// Every text up to seven characters of a letter, a dot and a separator, and some odd ones.
std::vector<std::string> oddPaths() {
  std::vector<std::string> paths = {""};
  for (std::size_t i = 0; paths[i].size() < 7; ++i) {
    for (const char next : {'a', '.', '/'}) {
      paths.push_back(paths[i] + next);
    }
  }
  for (const char* const odd :
       {"wood.tar.gz", "a/wood.t.png/", ".profile.bak", " ", " / ", "a b/c d.e f", "\\a\\b.c",
        "C:\\a.b", "a\nb/c\n.d", "~/a", "\xC3\xA4/\xFF.\xE4", "/very/../long/./path//name.ext/",
        "*.*", "./wood.*"}) {
    paths.emplace_back(odd);
  }
  paths.push_back(std::string(5000, 'a').append("/../").append(300, '.'));
  return paths;
}

template <class Law>
void expectOfEveryPath(Law law) {
  for (const std::string& path : oddPaths()) {
    SCOPED_TRACE("path: \"" + path + '"');
    law(String(path.c_str()));
    if (testing::Test::HasFailure()) {
      return;
    }
  }
}

/// The normal form, told the plain way: a list of components on which ".." takes the last one away.
std::string plainNormalForm(const std::string& path) {
  if (path.empty()) {
    return "";
  }
  const bool isAbsolute = path.front() == '/';
  std::vector<std::string> kept;
  std::string component;
  for (const char c : path + '/') {
    if (c != '/') {
      component += c;
      continue;
    }
    if (component == ".." && !kept.empty() && kept.back() != "..") {
      kept.pop_back();
    } else if (component == ".." ? !isAbsolute : !component.empty() && component != ".") {
      kept.push_back(component);
    }
    component.clear();
  }
  std::string normal = isAbsolute ? "/" : "";
  for (std::size_t i = 0; i < kept.size(); ++i) {
    normal += (i == 0 ? "" : "/") + kept[i];
  }
  return normal.empty() ? "." : normal;
}

// ---- The normal form ---------------------------------------------------------------------------

TEST(PathNormalized, FollowsItsRules) {
  struct Row {
    const char* name;
    const char* path;
    const char* normal;
  };
  const Row rows[] = {
      {"the empty path", "", ""},
      {"the root", "/", "/"},
      {"two slashes", "//", "/"},
      {"many slashes", "////", "/"},
      {"a name", "a", "a"},
      {"a name below the root", "/a", "/a"},
      {"two slashes at the front", "//a", "/a"},
      {"runs of slashes", "a//b///c", "a/b/c"},
      {"a slash at the end", "a/b/", "a/b"},
      {"slashes at the end", "/a//", "/a"},
      {"a dot", ".", "."},
      {"a dot and a slash", "./", "."},
      {"dots only", "././.", "."},
      {"a dot at the front", "./a", "a"},
      {"a dot within", "a/./b", "a/b"},
      {"a dot at the end", "a/b/.", "a/b"},
      {"a dot below the root", "/.", "/"},
      {"everything at once", "a//b/./c/", "a/b/c"},
      {"a parent", "a/b/../c", "a/c"},
      {"a parent at the end", "a/b/..", "a"},
      {"a path that folds away", "a/..", "."},
      {"a path that folds away to its end", "a/b/../../", "."},
      {"a path below the root that folds away", "/a/..", "/"},
      {"a parent of the root", "/..", "/"},
      {"a parent of the root before a name", "/../a", "/a"},
      {"parents of the root", "/../../a/../..", "/"},
      {"a parent alone", "..", ".."},
      {"a parent and a slash", "../", ".."},
      {"parents at the front", "../../a", "../../a"},
      {"a parent behind a dot", "./../a", "../a"},
      {"more parents than names", "a/../../b", "../b"},
      {"many more parents than names", "a/b/../../../../c", "../../c"},
      {"a name between parents", "../a/../b", "../b"},
      {"three levels up from a directory", "/x/y/z/../../../", "/"},
      {"three levels up from a deeper one", "/app/Contents/MacOS/sub/../../../", "/app"},
      {"three dots are a name", "a/.../b", "a/.../b"},
      {"a name that begins with dots", "..a/../.b", ".b"},
      {"a backslash is no separator", "a\\..\\b", "a\\..\\b"},
      {"a tilde is a name", "~/a", "~/a"},
      {"white space is kept", " a / b ", " a / b "},
      {"bytes beyond ASCII are kept", "\xC3\xA4//\xFF", "\xC3\xA4/\xFF"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(text(Path::normalize(row.path)), row.normal);
    EXPECT_EQ(text(Path(row.path, true).normalized()), row.normal);
    EXPECT_EQ(text(Path(row.path, false).normalized()), row.normal);
  }
}

TEST(PathNormalized, IsWhatThePlainRuleMakesOfEveryPath) {
  expectOfEveryPath([](const String& path) {
    EXPECT_EQ(text(Path::normalize(path)), plainNormalForm(text(path)));
  });
}

TEST(PathNormalized, IsItsOwnNormalForm) {
  expectOfEveryPath([](const String& path) {
    const String once = Path::normalize(path);
    EXPECT_EQ(Path::normalize(once), once);
  });
}

TEST(PathNormalized, IsTheSameHandleForATextThatIsNormalAlready) {
  expectOfEveryPath([](const String& path) {
    const String normal = Path::normalize(path);
    EXPECT_EQ(static_cast<const void*>(normal.buf()) == path.buf(), normal == path);
  });
}

TEST(PathNormalized, IsRelativeExactlyWhenThePathIs) {
  expectOfEveryPath([](const String& path) {
    EXPECT_EQ(Path(Path::normalize(path), false).isRel(), Path(path, false).isRel());
  });
}

TEST(PathNormalized, LeavesThePathItWasMadeFromAlone) {
  const String path("a//b");

  EXPECT_EQ(Path::normalize(path), "a/b");

  EXPECT_EQ(path, "a//b");
}

TEST(PathNormalized, TakesVeryLongPaths) {
  std::string path;
  for (int i = 0; i < 5000; ++i) {
    path += "name/../";
  }

  EXPECT_EQ(Path::normalize((path + "last/").c_str()), "last");
  EXPECT_EQ(Path::normalize(path.c_str()), ".");
}

// ---- The flag of the constructor ---------------------------------------------------------------

TEST(Path, WorksOnItsNormalFormWhenToldToNormalise) {
  expectOfEveryPath([](const String& written) {
    const Path path(written, true);
    const Path normal(Path::normalize(written), false);
    EXPECT_EQ(path.normalized(), normal.normalized());
    EXPECT_EQ(texts(path.components()), texts(normal.components()));
    EXPECT_EQ(path.file(true), normal.file(true));
    EXPECT_EQ(path.file(false), normal.file(false));
    EXPECT_EQ(path.ext(true), normal.ext(true));
    EXPECT_EQ(path.ext(false), normal.ext(false));
    EXPECT_EQ(path.isRel(), normal.isRel());
  });
}

TEST(Path, TellsNormalisedAndWrittenApart) {
  const String written("wood.png/x.y/..");

  EXPECT_EQ(Path(written, true).file(true), "wood.png");
  EXPECT_EQ(Path(written, true).file(false), "wood");
  EXPECT_EQ(Path(written, true).ext(true), ".png");
  EXPECT_EQ(texts(Path(written, true).components()), lines("wood.png"));
  EXPECT_EQ(Path(written, false).file(true), "..");
  EXPECT_EQ(Path(written, false).ext(true), "");
  EXPECT_EQ(texts(Path(written, false).components()), lines("wood.png", "x.y", ".."));
}

TEST(Path, IsAValue) {
  const Path path("a/b.c", true);
  const Path copy = path;
  Path assigned("x", false);

  assigned = path;

  EXPECT_EQ(copy.file(true), "b.c");
  EXPECT_EQ(assigned.file(true), "b.c");
  EXPECT_EQ(path.file(true), "b.c");
}

// ---- Components --------------------------------------------------------------------------------

TEST(PathComponents, AreTheNamedLevelsInOrder) {
  using Levels = std::vector<std::string>;
  struct Row {
    const char* name;
    const char* path;
    Levels normalised;
    Levels written;
  };
  const Row rows[] = {
      {"the empty path", "", {}, {}},
      {"the root", "/", {}, {}},
      {"a dot", ".", {}, {}},
      {"slashes only", "///", {}, {}},
      {"dots and slashes only", "/./.", {}, {}},
      {"an absolute path", "/a/b/c", {"a", "b", "c"}, {"a", "b", "c"}},
      {"a relative path", "a/b", {"a", "b"}, {"a", "b"}},
      {"slashes at the end", "a/b//", {"a", "b"}, {"a", "b"}},
      {"runs of slashes", "//a///b", {"a", "b"}, {"a", "b"}},
      {"dots", "./a/./b/.", {"a", "b"}, {"a", "b"}},
      {"a parent at the front", "../a", {"..", "a"}, {"..", "a"}},
      {"a parent alone", "..", {".."}, {".."}},
      {"a parent within", "a/../b", {"b"}, {"a", "..", "b"}},
      {"a parent of the root", "/../a", {"a"}, {"..", "a"}},
      {"a path that folds away", "a/..", {}, {"a", ".."}},
      {"names of dots", ".a/...", {".a", "..."}, {".a", "..."}},
      {"a leading backslash", "\\a/b", {"\\a", "b"}, {"\\a", "b"}},
      {"white space", " /a b", {" ", "a b"}, {" ", "a b"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(texts(Path(row.path, true).components()), row.normalised);
    EXPECT_EQ(texts(Path(row.path, false).components()), row.written);
  }
}

TEST(PathComponents, MakeTheNormalFormAgain) {
  expectOfEveryPath([](const String& written) {
    const Path path(written, true);
    const String joined = String(path.isRel() ? "" : "/") + path.components().join("/");
    const bool isNamed = !path.components().empty() || !path.isRel();
    EXPECT_EQ(isNamed ? joined : path.normalized(), path.normalized());
  });
}

// ---- The file name and its extension -----------------------------------------------------------

struct FileRow {
  const char* name;
  const char* path;
  const char* file;
  const char* stem;
  const char* extension;  // with its dot
};

const FileRow kFiles[] = {
    {"a file", "a/wood.png", "wood.png", "wood", ".png"},
    {"a bare file", "wood.png", "wood.png", "wood", ".png"},
    {"a file below the root", "/wood.png", "wood.png", "wood", ".png"},
    {"several dots", "a/wood.t.png", "wood.t.png", "wood.t", ".png"},
    {"a dot at the end", "wood.", "wood.", "wood", "."},
    {"two dots at the end", "wood..", "wood..", "wood.", "."},
    {"no dot", "a/wood", "wood", "wood", ""},
    {"a dot in the directory only", "a.b/wood", "wood", "wood", ""},
    {"a hidden file", "a/.profile", ".profile", ".profile", ""},
    {"a hidden file with an extension", ".profile.bak", ".profile.bak", ".profile", ".bak"},
    {"a name that begins with two dots", "..a", "..a", ".", ".a"},
    {"three dots", "...", "...", "..", "."},
    {"a slash at the end", "a/b/", "b", "b", ""},
    {"an extension before slashes", "a/b.c//", "b.c", "b", ".c"},
    {"a dot", ".", ".", ".", ""},
    {"two dots", "..", "..", "..", ""},
    {"a dot behind a directory", "a/.", ".", ".", ""},
    {"two dots behind a directory", "a/..", "..", "..", ""},
    {"two dots and a slash", "../", "..", "..", ""},
    {"the root", "/", "", "", ""},
    {"slashes only", "//", "", "", ""},
    {"the empty path", "", "", "", ""},
    {"a pattern", "./wood.*", "wood.*", "wood", ".*"},
    {"the letter case is kept", "A.PNG", "A.PNG", "A", ".PNG"},
    {"white space", "a b/c d.e f", "c d.e f", "c d", ".e f"},
    {"a backslash is no separator", "a\\b.c", "a\\b.c", "a\\b", ".c"},
    {"bytes beyond ASCII", "a/\xC3\xA4.\xFF", "\xC3\xA4.\xFF", "\xC3\xA4", ".\xFF"},
};

std::string_view withoutDot(std::string_view extension) {
  return extension.empty() ? extension : extension.substr(1);
}

TEST(PathFile, IsTheLastComponentWithOrWithoutItsExtension) {
  for (const FileRow& row : kFiles) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(text(Path(row.path, false).file(true)), row.file);
    EXPECT_EQ(text(Path(row.path, false).file(false)), row.stem);
  }
}

TEST(PathFile, IsAsInTheNormalFormWhenToldToNormalise) {
  EXPECT_EQ(Path("a//wood.png/.", true).file(true), "wood.png");
  EXPECT_EQ(Path("a//wood.png/x/..", true).file(false), "wood");
  EXPECT_EQ(Path("a/..", true).file(true), ".");
  EXPECT_EQ(Path("/a/..", true).file(true), "");
}

TEST(PathExt, IsWhatFollowsTheLastDot) {
  for (const FileRow& row : kFiles) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(text(Path(row.path, false).ext(true)), row.extension);
    EXPECT_EQ(text(Path(row.path, false).ext(false)), withoutDot(row.extension));
    EXPECT_EQ(text(Path::ext(row.path, true)), row.extension);
    EXPECT_EQ(text(Path::ext(row.path, false)), withoutDot(row.extension));
  }
}

TEST(PathExt, TakesAPathAsWrittenInItsStaticForm) {
  EXPECT_EQ(Path::ext("wood.png/x/..", true), "");
  EXPECT_EQ(Path("wood.png/x/..", true).ext(true), ".png");
}

TEST(PathExt, MakesTheFileNameTogetherWithTheStem) {
  expectOfEveryPath([](const String& written) {
    for (const bool normalizeFirst : {false, true}) {
      const Path path(written, normalizeFirst);
      EXPECT_EQ(path.file(false) + path.ext(true), path.file(true));
      EXPECT_EQ(text(path.ext(false)), withoutDot(path.ext(true).view()));
    }
  });
}

TEST(PathExt, HasADotInFrontOnlyWhenItIsNotEmpty) {
  expectOfEveryPath([](const String& path) {
    const String extension = Path::ext(path, true);
    EXPECT_EQ(extension.startsWith(".", false), !extension.isEmpty());
    EXPECT_EQ(Path::ext(path, false).view().find('.'), std::string_view::npos);
  });
}

// ---- Another extension -------------------------------------------------------------------------

TEST(PathChangeExt, ReplacesTheExtensionAndNothingElse) {
  struct Row {
    const char* name;
    const char* path;
    const char* newExtension;
    const char* changed;
  };
  const Row rows[] = {
      {"an extension", "a/b.txt", ".bak", "a/b.bak"},
      {"an absolute path", "/a/scene.ksz", ".ksx", "/a/scene.ksx"},
      {"no extension", "a/b", ".bak", "a/b.bak"},
      {"several dots", "b.tar.gz", ".x", "b.tar.x"},
      {"to nothing", "b.txt", "", "b"},
      {"nothing to nothing", "b", "", "b"},
      {"a dot at the end", "b.", ".x", "b.x"},
      {"a dot at the end to nothing", "b.", "", "b"},
      {"a hidden file", ".profile", ".x", ".profile.x"},
      {"a hidden file to nothing", ".profile", "", ".profile"},
      {"an extension without its dot", "report.txt", "bak", "report.bak"},
      {"no extension and one without its dot", "b", "bak", "b.bak"},
      {"a dot at the end and one without its dot", "b.", "x", "b.x"},
      {"a hidden file and one without its dot", ".profile", "x", ".profile.x"},
      {"several dots in the new one", "b.txt", ".tar.gz", "b.tar.gz"},
      {"several dots, the first one missing", "b.txt", "tar.gz", "b.tar.gz"},
      {"a dot only", "a.txt", ".", "a."},
      {"a slash at the end", "out/report.txt/", ".bak", "out/report.bak"},
      {"slashes at the end", "a//b.txt//", ".x", "a//b.x"},
      {"a slash at the end of a name without extension", "a/b/", ".x", "a/b.x"},
      {"a slash at the end, to nothing", "b.txt/", "", "b"},
      {"a slash at the end, nothing to nothing", "b/", "", "b"},
      {"a dot in the directory only", "a.b/c", ".x", "a.b/c.x"},
      {"what is not normal", "./a/../b.txt", ".x", "./a/../b.x"},
      {"three dots", "...", ".x", "...x"},
      {"the same", "b.txt", ".txt", "b.txt"},
      {"bytes beyond ASCII", "\xC3\xA4.\xFF", ".\xFE", "\xC3\xA4.\xFE"},
      {"the empty path", "", ".x", ""},
      {"the root", "/", ".x", "/"},
      {"slashes only", "//", ".x", "//"},
      {"a dot", ".", ".x", "."},
      {"two dots", "..", ".x", ".."},
      {"a dot behind a directory", "a/.", ".x", "a/."},
      {"two dots behind a directory", "a.b/..", ".x", "a.b/.."},
      {"a dot and a slash", "./", ".x", "./"},
      {"two dots and a slash", "../", "", "../"},
      {"a dot and slashes behind a directory", "a.b/.//", "x", "a.b/.//"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(text(Path::changeExt(row.path, row.newExtension)), row.changed);
  }
}

TEST(PathChangeExt, GivesTheOwnExtensionBackToEveryPath) {
  expectOfEveryPath([](const String& path) {
    const String file = Path(path, false).file(true);
    const bool isNamed = file != "" && file != "." && file != "..";
    const std::string_view written = path.view();
    const std::string_view kept =
        isNamed ? written.substr(0, written.find_last_not_of('/') + 1) : written;

    EXPECT_EQ(text(Path::changeExt(path, Path::ext(path, true))), kept);
  });
}

TEST(PathChangeExt, AddsTheDotThatTheNewExtensionLacks) {
  expectOfEveryPath([](const String& path) {
    EXPECT_EQ(Path::changeExt(path, "new"), Path::changeExt(path, ".new"));
  });
}

TEST(PathChangeExt, GivesTheNewExtensionToEveryPathWithAFileName) {
  expectOfEveryPath([](const String& path) {
    const String file = Path(path, false).file(true);
    const bool isNamed = file != "" && file != "." && file != "..";

    const String changed = Path::changeExt(path, ".new");

    EXPECT_EQ(changed == path, !isNamed);
    EXPECT_EQ(Path::ext(changed, true), isNamed ? ".new" : "");
  });
}

TEST(PathChangeExt, LeavesItsArgumentAlone) {
  const String path("b.txt");

  EXPECT_EQ(Path::changeExt(path, ".bak"), "b.bak");

  EXPECT_EQ(path, "b.txt");
}

// ---- The directory -----------------------------------------------------------------------------

TEST(PathStaticDir, IsTheTextBeforeTheLastComponentOrTheWholeInNormalForm) {
  struct Row {
    const char* name;
    const char* path;
    const char* before;
    const char* itself;
  };
  const Row rows[] = {
      {"a relative path", "a/b", "a", "a/b"},
      {"a name", "a", "", "a"},
      {"a name below the root", "/a", "/", "/a"},
      {"an absolute path", "/a/b", "/a", "/a/b"},
      {"a dot before the name", "./a", ".", "a"},
      {"a pattern", "./wood.*", ".", "wood.*"},
      {"a dot within", "a/./b", "a/.", "a/b"},
      {"parents as written", "../a/../b", "../a/..", "../b"},
      {"a parent before the name", "../a", "..", "../a"},
      {"a slash at the end", "a/b/", "a", "a/b"},
      {"slashes at the end of a name", "a//", "", "a"},
      {"runs of slashes", "a//b", "a", "a/b"},
      {"a slash at the end below the root", "/a/", "/", "/a"},
      {"two slashes at the front", "//a", "/", "/a"},
      {"the root", "/", "/", "/"},
      {"slashes only", "//", "/", "/"},
      {"a dot", ".", "", "."},
      {"two dots", "..", "", ".."},
      {"two dots behind a directory", "a/..", "a", "."},
      {"the empty path", "", "", ""},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(text(Path::dir(row.path, false)), row.before);
    EXPECT_EQ(text(Path::dir(row.path, true)), row.itself);
  }
}

TEST(PathStaticDir, DoesNotLookAtTheFileSystem) {
  const TempDir tmp;
  tmp.mkdir("a/b");
  tmp.write("f", "text");
  const ScopedCurrentDir inside(tmp.path());

  EXPECT_EQ(Path::dir("a/b", false), "a");
  EXPECT_EQ(Path::dir("a/b", true), "a/b");
  EXPECT_EQ(Path::dir("f", true), "f");
  EXPECT_EQ(Path::dir("missing/x", true), "missing/x");
}

TEST(PathStaticDir, IsTheNormalFormOfEveryPathTakenForADirectory) {
  expectOfEveryPath(
      [](const String& path) { EXPECT_EQ(Path::dir(path, true), Path::normalize(path)); });
}

TEST(PathStaticDir, MakesTheNormalFormTogetherWithTheFileName) {
  expectOfEveryPath([](const String& path) {
    const String together = Path::join(Path::dir(path, false), Path(path, false).file(true));
    EXPECT_EQ(Path::normalize(together), Path::normalize(path));
  });
}

// ---- Joining -----------------------------------------------------------------------------------

TEST(PathJoin, PutsOneSeparatorAtEachJoint) {
  struct Row {
    const char* name;
    StringVector parts;
    const char* joined;
  };
  const Row rows[] = {
      {"nothing", {}, ""},
      {"one part", {"a"}, "a"},
      {"one part with slashes", {"/a//"}, "/a//"},
      {"two parts", {"a", "b"}, "a/b"},
      {"three parts", {"/a", "b", "c.d"}, "/a/b/c.d"},
      {"a slash at the end of the first", {"a/", "b"}, "a/b"},
      {"a slash at the front of the second", {"a", "/b"}, "a/b"},
      {"slashes on both sides", {"a//", "//b"}, "a/b"},
      {"an absolute second part", {"/a", "/b/c"}, "/a/b/c"},
      {"the root", {"/", "b"}, "/b"},
      {"the root and an absolute part", {"/", "/b"}, "/b"},
      {"slashes and a part", {"//", "b"}, "/b"},
      {"slashes at the front of the first", {"//a", "b"}, "//a/b"},
      {"an empty last part", {"a", ""}, "a"},
      {"an empty last part behind a slash", {"a/", ""}, "a/"},
      {"an empty first part", {"", "b"}, "b"},
      {"an empty first part before an absolute one", {"", "/b"}, "/b"},
      {"an empty part within", {"a", "", "b"}, "a/b"},
      {"empty parts only", {"", "", ""}, ""},
      {"a slash at the end of the last", {"a", "b/"}, "a/b/"},
      {"dots are kept", {"./a", "../b"}, "./a/../b"},
      {"a last part of a slash only", {"foo", "/"}, "foo"},
      {"a last part of slashes only", {"foo", "//"}, "foo"},
      {"a slash at the end before a slash", {"foo/", "/"}, "foo/"},
      {"a part of a slash only within", {"a", "/", "b"}, "a/b"},
      {"a part of a slash only before an empty one", {"a", "/", ""}, "a"},
      {"an empty first part before a slash", {"", "/"}, "/"},
      {"an empty first part and two slashes", {"", "/", "/"}, "/"},
      {"slashes only", {"/", "/"}, "/"},
      {"the root and a slash before a name", {"/", "/", "b"}, "/b"},
      {"a dot", {".", "b"}, "./b"},
      {"what is within a part is kept", {"a//b/.", "c//d"}, "a//b/./c//d"},
      {"white space", {" a ", " b "}, " a / b "},
      {"a backslash is no separator", {"a\\", "\\b"}, "a\\/\\b"},
      {"an entry name in an archive", {"res", "wood.png"}, "res/wood.png"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    EXPECT_EQ(text(Path::join(row.parts)), row.joined);
  }
}

TEST(PathJoin, TakesStringsAndTextsInAnyMixture) {
  const String dir("/dir");
  const String file("file");
  const char* const literal = "literal";
  char name[] = "name";
  char* const listed = name;

  EXPECT_EQ((Path::join<String, char*>(dir, listed)), "/dir/name");
  EXPECT_EQ((Path::join<String, const char*>(dir, literal)), "/dir/literal");
  EXPECT_EQ((Path::join<const char*, String>("res", file)), "res/file");
  EXPECT_EQ((Path::join<String, String>(dir, file)), "/dir/file");
  EXPECT_EQ(Path::join(dir, listed), "/dir/name");
  EXPECT_EQ(Path::join(dir, "a literal"), "/dir/a literal");
  EXPECT_EQ(Path::join("res", file), "res/file");
  EXPECT_EQ(Path::join(dir, file, literal), "/dir/file/literal");
  EXPECT_EQ(Path::join(dir), "/dir");
}

TEST(PathJoin, IsTheSameForSeparatePartsAsForAVector) {
  for (const char* const first : {"", "/", "a", "/a/", "a//", ".."}) {
    for (const char* const second : {"", "/", "b", "/b", "//b/", "."}) {
      SCOPED_TRACE(testing::Message() << first << " and " << second);
      const String joined = Path::join(StringVector{first, second});
      EXPECT_EQ((Path::join<String, const char*>(first, second)), joined);
      EXPECT_EQ((Path::join<const char*, String>(first, second)), joined);
      EXPECT_EQ((Path::join<String, String>(first, second)), joined);
    }
  }
}

TEST(PathJoin, TakesATextUpToItsNul) {
  EXPECT_EQ((Path::join<String, const char*>("a", "b\0c")), "a/b");
}

TEST(PathJoin, TakesANullPointerForAnEmptyPart) {
  const char* const null = nullptr;

  EXPECT_EQ(Path::join("a", null), "a");
  EXPECT_EQ(Path::join(null, "/b"), "/b");
}

TEST(PathJoin, LeavesItsPartsAlone) {
  const String dir("a//");
  const String file("//b");

  EXPECT_EQ(Path::join(dir, file), "a/b");

  EXPECT_EQ(dir, "a//");
  EXPECT_EQ(file, "//b");
}

// ---- Relative or not ---------------------------------------------------------------------------

TEST(PathIsRel, IsTrueUnlessThePathBeginsAtTheRoot) {
  struct Row {
    const char* path;
    bool isRel;
  };
  const Row rows[] = {
      {"", true},    {"a", true},   {"a/b", true}, {".", true},    {"..", true},
      {"./a", true}, {"~/a", true}, {"\\a", true}, {" /a", true},  {"C:/", true},
      {"/", false},  {"//", false}, {"/a", false}, {"/..", false}, {"//a", false},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(Path(row.path, true).isRel(), row.isRel);
    EXPECT_EQ(Path(row.path, false).isRel(), row.isRel);
  }
}

// ---- Nothing else happens ----------------------------------------------------------------------

void askEverything(const String& written, bool flag) {
  const Path path(written, flag);
  static_cast<void>(path.normalized());
  static_cast<void>(path.canonical());
  static_cast<void>(path.components());
  static_cast<void>(path.dir());
  static_cast<void>(path.file(flag));
  static_cast<void>(path.ext(flag));
  static_cast<void>(path.isDir());
  static_cast<void>(path.isFile());
  static_cast<void>(path.isRel());
  static_cast<void>(path.exists());
  static_cast<void>(Path::normalize(written));
  static_cast<void>(Path::dir(written, flag));
  static_cast<void>(Path::ext(written, flag));
  static_cast<void>(Path::isDir(written, flag));
  static_cast<void>(Path::isFile(written, flag));
  static_cast<void>(Path::changeExt(written, ".x"));
  static_cast<void>(Path::join(written, "x"));
}

TEST(Path_Equality, ComparesTheTextAsTaken) {
  EXPECT_EQ(Path("a//b", true), Path("a/b", false));
  EXPECT_NE(Path("a//b", false), Path("a/b", false));
  EXPECT_NE(Path("a/B", false), Path("a/b", false));
}

TEST(Path_Print, WritesTheTextAsTaken) {
  std::ostringstream stream;

  stream << Path("a//b", false) << std::setw(4) << Path("./c", true);

  EXPECT_EQ(stream.str(), "a//b   c");
  EXPECT_EQ(format_as(Path("a//b", false)), "a//b");
}

TEST(Path, NeitherLogsNorTouchesTheErrorState) {
  const TempDir tmp;
  tmp.link("loop", "loop");
  tmp.write("file", "text");
  const ScopedCurrentDir inside(tmp.path());
  const LogCapture log;
  const ErrorStateSentinel sentinel;

  for (const char* const written : {"", "/", ".", "a/../b.c", "loop/x", "missing/x", "file/x"}) {
    askEverything(written, false);
    askEverything(written, true);
  }

  EXPECT_EQ(log.all(), lines());
  EXPECT_TRUE(sentinel.isUntouched());
}

}  // namespace
