// listDirs and listFiles.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/child.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <filesystem>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <dirent.h>
#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

using testing::IsEmpty;
using testing::UnorderedElementsAre;

using Texts = std::vector<std::string>;

Texts listedDirs(const std::string& dir) {
  return texts(fs::listDirs(vxText(dir)));
}

Texts listedFiles(const std::string& dir, StringVector exts) {
  return texts(fs::listFiles(vxText(dir), exts));
}

/// The names in a directory but "." and "..", in the system's order.
Texts namesIn(const std::string& dir) {
  Texts names;
  DIR* const directory = ::opendir(dir.c_str());
  EXPECT_NE(directory, nullptr);
  while (const dirent* const entry = ::readdir(directory)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") {
      names.push_back(name);
    }
  }
  ::closedir(directory);
  return names;
}

std::ptrdiff_t openDescriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return std::distance(begin(all), end(all));
}

/// The n-th call for an entry fails, as at an error of the disk.
RecordedCalls::Script failsAtCall(int n) {
  return [n, made = 0]() mutable -> std::optional<int> {
    return ++made == n ? std::optional(EIO) : std::nullopt;
  };
}

// ---------------------------------------------------------------------------------------------
// Which directories are listed

class Listing : public SilentFsTest {
 protected:
  static void expectNothingListed(const std::string& dir) {
    EXPECT_THAT(listedDirs(dir), IsEmpty()) << dir;
    EXPECT_THAT(listedFiles(dir, {"png", ""}), IsEmpty()) << dir;
  }
};

TEST_F(Listing, OfAnEmptyDirectoryIsEmpty) {
  tmp.mkdir("d");

  expectNothingListed("d");
}

TEST_F(Listing, OfTheEmptyPathIsEmptyAndAsksNothing) {
  tmp.write("a.png", "");
  tmp.mkdir("b");
  RecordedCalls calls;

  expectNothingListed("");

  EXPECT_EQ(calls.all(), lines());
}

TEST_F(Listing, OfWhatIsNoDirectoryIsEmptyAndOpensNothing) {
  tmp.write("f", "text");
  tmp.link("dangling", "gone");
  RecordedCalls calls;

  for (const char* const dir : {"missing", "f", "dangling", "f/below"}) {
    expectNothingListed(dir);
  }

  EXPECT_EQ(calls.count("opendir"), 0U);
}

TEST_F(Listing, OfADirectoryThatMayNotBeReadIsEmpty) {
  tmp.write("locked/a.png", "");
  tmp.mkdir("locked/b");
  ASSERT_EQ(::chmod("locked", 0111), 0);

  runAsUnprivileged([&] {
    ASSERT_TRUE(fs::isDir("locked"));

    expectNothingListed("locked");

    expectSilence();
  });
}

TEST_F(Listing, OfADirectoryThatCannotBeOpenedIsEmpty) {
  tmp.write("d/a.png", "");
  tmp.mkdir("d/b");
  for (const int code : {EACCES, EMFILE, ENOMEM}) {
    RecordedCalls calls;
    calls.fail("opendir d", code);

    EXPECT_THAT(listedDirs("d"), IsEmpty()) << errnoText(code);

    EXPECT_EQ(calls.all(), lines("stat d", "opendir d"));
    expectNothingListed("d");
  }
}

TEST_F(Listing, WithoutADescriptorLeftIsEmpty) {
  tmp.write("d/a.png", "");
  tmp.mkdir("d/b");

  runInChild([&] {
    // Also so that the sanitizers have seen every type: a first look at one takes descriptors.
    ASSERT_EQ(listedDirs("d"), lines("d/b"));
    ASSERT_EQ(listedFiles("d", {"png"}), lines("d/a.png"));
    rlimit before{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
    const int next = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    ASSERT_NE(next, -1);
    ::close(next);
    const rlimit limit{static_cast<rlim_t>(next), before.rlim_max};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &limit), 0);

    const StringVector dirs = fs::listDirs("d");
    const StringVector files = fs::listFiles("d", {"png"});

    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_THAT(texts(dirs), IsEmpty());
    EXPECT_THAT(texts(files), IsEmpty());
    expectSilence();
  });
}

TEST_F(Listing, OfASocketIsEmpty) {
  ASSERT_EQ(::mknod("socket", S_IFSOCK | 0600, 0), 0);

  expectNothingListed("socket");
}

TEST_F(Listing, TestsTheNormalFormAndOpensTheTextAsWritten) {
  tmp.write("d/a.png", "");
  RecordedCalls calls;

  expectNothingListed("missing/../d");

  EXPECT_EQ(calls.all(), lines("stat d", "opendir missing/../d",  //
                               "stat d", "opendir missing/../d"));
}

TEST_F(Listing, OfALinkIsThatOfTheDirectoryUnderTheLinksName) {
  tmp.write("d/a.png", "");
  tmp.mkdir("d/b");
  tmp.link("link", "d");

  EXPECT_EQ(listedDirs("link"), lines("link/b"));
  EXPECT_EQ(listedFiles("link", {"png"}), lines("link/a.png"));
}

// ---------------------------------------------------------------------------------------------
// The walk

TEST_F(Listing, JoinsTheDirectoryAsWrittenAndTheName) {
  tmp.write("data/photo.png", "");
  tmp.mkdir("data/sub");

  for (const std::string dir : {"data", "./data", ".//data", "data/.", "data/../data"}) {
    EXPECT_EQ(listedDirs(dir), lines(dir + "/sub"));
    EXPECT_EQ(listedFiles(dir, {"png"}), lines(dir + "/photo.png"));
  }
  for (const std::string separators : {"/", "//"}) {
    EXPECT_EQ(listedDirs("data" + separators), lines("data/sub"));
    EXPECT_EQ(listedFiles("data" + separators, {"png"}), lines("data/photo.png"));
  }
  EXPECT_EQ(listedDirs(tmp.path("data")), lines(tmp.path("data/sub")));
}

TEST_F(Listing, OfTheCurrentDirectoryKeepsItsDot) {
  tmp.write("photo.png", "");
  tmp.mkdir("sub");

  EXPECT_EQ(listedDirs("."), lines("./sub"));
  EXPECT_EQ(listedFiles("./", {"png"}), lines("./photo.png"));
}

TEST_F(Listing, OfTheRootHasOneSeparator) {
  const Texts found = listedDirs("/");

  EXPECT_THAT(found, testing::Contains("/proc"));
  EXPECT_THAT(found, testing::Each(testing::Not(testing::StartsWith("//"))));
}

TEST_F(Listing, DoesNotDescend) {
  tmp.write("d/a/deep.png", "");
  tmp.mkdir("d/a/b");

  EXPECT_EQ(listedDirs("d"), lines("d/a"));
  EXPECT_THAT(listedFiles("d", {"png"}), IsEmpty());
}

TEST_F(Listing, KeepsTheOrderOfTheSystemInALargeDirectory) {
  constexpr std::size_t kEntries = 20'000;
  constexpr std::size_t kFilesPerDirectory = 100;
  tmp.mkdir("d");
  tmp.write("one", "");
  for (std::size_t i = 0; i < kEntries; ++i) {
    const std::string name = "d/" + std::to_string(i);
    if (i % kFilesPerDirectory == 0) {
      ASSERT_EQ(::mkdir(name.c_str(), 0755), 0);
    } else {
      // Names of one and the same file, which are made much faster than files.
      ASSERT_EQ(::link("one", (name + ".png").c_str()), 0);
    }
  }
  Texts directories;
  Texts files;
  for (const std::string& name : namesIn("d")) {
    (name.ends_with(".png") ? files : directories).push_back("d/" + name);
  }
  ASSERT_EQ(directories.size() + files.size(), kEntries);
  ASSERT_FALSE(std::is_sorted(files.begin(), files.end()));

  EXPECT_TRUE(listedDirs("d") == directories);
  EXPECT_TRUE(listedFiles("d", {"png"}) == files);
}

TEST_F(Listing, AsksOnceForTheDirectoryAndOnceForEachEntry) {
  constexpr std::size_t kFiles = 7;
  constexpr std::size_t kDirs = 3;
  constexpr std::size_t kEntries = kFiles + kDirs;
  for (std::size_t i = 0; i < kFiles; ++i) {
    tmp.write("d/" + std::to_string(i) + ".png", "");
  }
  for (std::size_t i = 0; i < kDirs; ++i) {
    tmp.mkdir("d/" + std::to_string(i));
  }
  const auto expectCalls = [](RecordedCalls& calls) {
    EXPECT_EQ(calls.count("stat "), kEntries + 1);
    EXPECT_EQ(calls.count("opendir "), 1U);
    EXPECT_EQ(calls.count("readdir"), kEntries + 3);  // "." and ".." and the end
    EXPECT_EQ(calls.count("closedir"), 1U);
  };
  {
    RecordedCalls calls;
    EXPECT_EQ(listedDirs("d").size(), kDirs);
    expectCalls(calls);
  }
  {
    RecordedCalls calls;
    EXPECT_EQ(listedFiles("d", {"png"}).size(), kFiles);
    expectCalls(calls);
  }
  {
    // However many filters there are, none included.
    RecordedCalls calls;
    EXPECT_THAT(listedFiles("d", {}), IsEmpty());
    expectCalls(calls);
  }
}

TEST_F(Listing, AsksForTheNormalFormOfTheJoinedPath) {
  tmp.write("d/a.png", "");
  RecordedCalls calls;

  EXPECT_EQ(listedFiles(".//d/", {"png"}), lines(".//d/a.png"));

  Texts made = calls.all();
  ASSERT_EQ(made.size(), 8U);
  EXPECT_EQ(made[0], "stat d");
  EXPECT_EQ(made[1], "opendir .//d/");
  EXPECT_EQ(made.back(), "closedir");
  EXPECT_EQ(std::count(made.begin(), made.end(), "stat d/a.png"), 1);
  EXPECT_EQ(calls.count("stat"), 2U);
}

TEST_F(Listing, DoesNotBelieveTheEntrysOwnType) {
  tmp.mkdir("d/a.png");
  tmp.write("d/b.png", "");
  for (const unsigned char type : {DT_UNKNOWN, DT_DIR, DT_REG, DT_LNK}) {
    RecordedCalls calls;
    calls.reportEntryType(type);

    EXPECT_EQ(listedDirs("d"), lines("d/a.png"));
    EXPECT_EQ(listedFiles("d", {"png"}), lines("d/b.png"));
  }
}

TEST_F(Listing, FollowsLinks) {
  tmp.mkdir("e");
  tmp.write("f", "text");
  tmp.link("d/dir.png", "../e");
  tmp.link("d/file.png", "../f");
  tmp.link("d/dangling.png", "missing");
  tmp.link("d/loop.png", "loop.png");

  EXPECT_EQ(listedDirs("d"), lines("d/dir.png"));
  EXPECT_THAT(listedFiles("d", {"png"}),
              UnorderedElementsAre("d/file.png", "d/dangling.png", "d/loop.png"));
}

TEST_F(Listing, SortsSpecialEntriesByTheDirectoryBit) {
  tmp.mkdir("d");
  ASSERT_EQ(::mknod("d/socket.png", S_IFSOCK | 0600, 0), 0);
  ASSERT_EQ(::mkfifo("d/fifo.png", 0600), 0);

  EXPECT_EQ(listedDirs("d"), lines("d/socket.png"));
  EXPECT_EQ(listedFiles("d", {"png"}), lines("d/fifo.png"));
}

TEST_F(Listing, TakesAnEntryThatVanishesDuringTheWalkForAFile) {
  tmp.mkdir("d/gone.png");
  RecordedCalls calls;
  calls.before("stat d/gone.png", [&] { std::filesystem::remove("d/gone.png"); });

  EXPECT_EQ(listedFiles("d", {"png"}), lines("d/gone.png"));
}

TEST_F(Listing, TakesAnEntryThatMayNotBeExaminedForAFile) {
  tmp.mkdir("d/dir.png");
  ASSERT_EQ(::chmod("d", 0444), 0);

  runAsUnprivileged([&] {
    EXPECT_THAT(listedDirs("d"), IsEmpty());
    EXPECT_EQ(listedFiles("d", {"png"}), lines("d/dir.png"));
  });
}

TEST_F(Listing, SkipsOnlyTheTwoDotEntries) {
  for (const char* const name : {"d/...", "d/..a", "d/.a", "d/. ", "d/.hidden.d"}) {
    tmp.mkdir(name);
  }
  for (const char* const name : {"d/.hidden.png", "d/..png"}) {
    tmp.write(name, "");
  }

  EXPECT_THAT(listedDirs("d"),
              UnorderedElementsAre("d/...", "d/..a", "d/.a", "d/. ", "d/.hidden.d"));
  EXPECT_THAT(listedFiles("d", {"png"}), UnorderedElementsAre("d/.hidden.png", "d/..png"));
}

TEST_F(Listing, DoesNotAskForTheTwoDotEntries) {
  tmp.mkdir("d");
  RecordedCalls calls;

  expectNothingListed("d");

  EXPECT_EQ(calls.all(), lines("stat d", "opendir d", "readdir", "readdir", "readdir", "closedir",
                               "stat d", "opendir d", "readdir", "readdir", "readdir", "closedir"));
}

TEST_F(Listing, TakesNamesAsBytes) {
  tmp.mkdir("d/a b\n\\\xff");
  tmp.write("d/\xfe line\nbreak.png", "");

  EXPECT_EQ(listedDirs("d"), lines("d/a b\n\\\xff"));
  EXPECT_EQ(listedFiles("d", {"png"}), lines("d/\xfe line\nbreak.png"));
}

TEST_F(Listing, EndsEarlyAtAnErrorInTheMiddle) {
  tmp.mkdir("d");
  for (int i = 0; i < 10; ++i) {
    tmp.mkdir("d/" + std::to_string(i));
    tmp.write("d/" + std::to_string(i) + ".png", "");
  }
  const Texts names = namesIn("d");
  const auto before = openDescriptors();
  for (int readable = 0; readable <= 22; ++readable) {
    Texts both;
    {
      RecordedCalls calls;
      calls.script("readdir", failsAtCall(readable + 1));
      both = listedDirs("d");
      EXPECT_EQ(calls.count("readdir"), static_cast<std::size_t>(readable) + 1);
      EXPECT_EQ(calls.all().back(), "closedir");
    }
    {
      RecordedCalls calls;
      calls.script("readdir", failsAtCall(readable + 1));
      const Texts files = listedFiles("d", {"png"});
      EXPECT_EQ(calls.all().back(), "closedir");
      both.insert(both.end(), files.begin(), files.end());
    }

    // What has been read before is listed; among it may be "." and "..".
    const auto listed = static_cast<int>(both.size());
    EXPECT_LE(listed, readable);
    EXPECT_GE(listed, readable - 2);
    for (int i = 0; i < listed; ++i) {
      EXPECT_THAT(both, testing::Contains("d/" + names[static_cast<std::size_t>(i)]));
    }
  }
  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Listing, LeavesNoDescriptorOpen) {
  tmp.write("d/a.png", "");
  tmp.write("f", "text");
  const auto before = openDescriptors();

  EXPECT_THAT(listedDirs("d"), IsEmpty());
  EXPECT_EQ(listedFiles("d", {"png"}), lines("d/a.png"));
  expectNothingListed("f");
  expectNothingListed("missing/../d");

  EXPECT_EQ(openDescriptors(), before);
}

TEST_F(Listing, LeavesTheCallersValuesAlone) {
  tmp.write("d/a.png", "");
  const String dir = ".//d";
  const StringVector exts = {"PNG", ".png"};

  (void)fs::listDirs(dir);
  (void)fs::listFiles(dir, exts);

  EXPECT_EQ(dir, ".//d");
  EXPECT_EQ(texts(exts), lines("PNG", ".png"));
}

// ---------------------------------------------------------------------------------------------
// listDirs

class ListDirs : public SilentFsTest {};

TEST_F(ListDirs, ListsSubdirectoriesOnly) {
  tmp.mkdir("d/a");
  tmp.mkdir("d/b.png");
  tmp.mkdir("d/.hidden");
  tmp.write("d/file", "");
  tmp.write("d/photo.png", "");

  EXPECT_THAT(listedDirs("d"), UnorderedElementsAre("d/a", "d/b.png", "d/.hidden"));
}

// ---------------------------------------------------------------------------------------------
// listFiles

class ListFiles : public SilentFsTest {};

TEST_F(ListFiles, TakesAFilterInAnyCaseWithOrWithoutItsDot) {
  tmp.write("d/photo.png", "");
  tmp.write("d/PHOTO.PNG", "");
  tmp.write("d/photo.jpg", "");

  for (const char* const filter : {"png", ".png", "PNG", ".PNG", "pNg"}) {
    EXPECT_THAT(listedFiles("d", {filter}), UnorderedElementsAre("d/photo.png", "d/PHOTO.PNG"))
        << filter;
  }
}

TEST_F(ListFiles, ComparesTheWholeExtension) {
  tmp.write("d/photo.png", "");

  for (const char* const filter :
       {"pn", "ng", "pngx", "..png", "*.png", " png", "png ", "photo.png", "o.png"}) {
    EXPECT_THAT(listedFiles("d", {filter}), IsEmpty()) << filter;
  }
}

TEST_F(ListFiles, TakesTheLastExtensionOfTheName) {
  tmp.write("d/a.tar.gz", "");

  EXPECT_EQ(listedFiles("d", {"gz"}), lines("d/a.tar.gz"));
  EXPECT_THAT(listedFiles("d", {"tar", "tar.gz", ".tar.gz"}), IsEmpty());
}

TEST_F(ListFiles, DoesNotTakeTheDirectorysExtension) {
  tmp.write("d.png/file", "");

  EXPECT_THAT(listedFiles("d.png", {"png"}), IsEmpty());
}

TEST_F(ListFiles, KnowsTheLetterCaseOfAsciiOnly) {
  tmp.write("d/f.\xc3\xa4", "");  // a with two dots, against A with two dots

  EXPECT_THAT(listedFiles("d", {"\xc3\x84"}), IsEmpty());
  EXPECT_EQ(listedFiles("d", {"\xc3\xa4"}), lines("d/f.\xc3\xa4"));
}

TEST_F(ListFiles, NeverListsASubdirectory) {
  tmp.mkdir("d/photo.png");

  EXPECT_THAT(listedFiles("d", {"png", ".png"}), IsEmpty());
}

TEST_F(ListFiles, ListsNothingWithoutFilters) {
  tmp.write("d/photo.png", "");
  tmp.write("d/README", "");

  EXPECT_THAT(listedFiles("d", {}), IsEmpty());
}

TEST_F(ListFiles, ListsAFileOnceForEachFilterThatTakesIt) {
  tmp.write("d/a.png", "");
  tmp.write("d/b.png", "");
  tmp.write("d/c.jpg", "");
  Texts expected;
  for (const std::string& name : namesIn("d")) {
    const int times = name == "c.jpg" ? 1 : 3;
    expected.insert(expected.end(), static_cast<std::size_t>(times), "d/" + name);
  }

  EXPECT_EQ(listedFiles("d", {"png", ".PNG", "jpg", "png"}), expected);
}

TEST_F(ListFiles, TakesTheEmptyFilterForNoExtension) {
  tmp.write("d/README", "");
  tmp.write("d/.profile", "");
  tmp.write("d/wood.", "");
  tmp.write("d/photo.png", "");

  EXPECT_THAT(listedFiles("d", {""}), UnorderedElementsAre("d/README", "d/.profile", "d/wood."));
}

TEST_F(ListFiles, TakesTheDotAloneForAnEmptyExtension) {
  tmp.write("d/README", "");
  tmp.write("d/wood.", "");

  EXPECT_EQ(listedFiles("d", {"."}), lines("d/wood."));
}

TEST_F(ListFiles, TakesTheNameOfAHiddenFileForNoExtension) {
  tmp.write("d/.png", "");

  EXPECT_THAT(listedFiles("d", {"png", ".png"}), IsEmpty());
}

}  // namespace
}  // namespace vx::test
