// Concern: archives found in the wild, damaged and hostile ones among them: each entry comes out
// with the right bytes or with its one line in the log, and nothing is written outside the output
// directory.
//
// The archives are not part of this tree. The environment variable VX_ZIP_CORPUS names their
// folder.

#include "fs/vx_fs.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"
#include "tests/testing/zip_corpus.h"
#include "tests/testing/zip_prediction.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <map>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {

void PrintTo(const CorpusArchive& archive, std::ostream* out) {
  *out << archive.file;
}

}  // namespace vx::test

namespace {

using testing::IsEmpty;
using vx::fs::readZip;
using vx::test::Corpus;
using vx::test::CorpusArchive;
using vx::test::corpusArchives;
using vx::test::corpusEntries;
using vx::test::CorpusEntry;
using vx::test::findCorpus;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::Prediction;
using vx::test::runAsUnprivileged;
using vx::test::sha256Of;
using vx::test::TempDir;
using vx::test::texts;

namespace fs = std::filesystem;

constexpr rlim_t kMostSeconds = 30;
constexpr rlim_t kMostMemory = 512UL * 1024 * 1024;   // beside what the test itself takes
constexpr rlim_t kLargestFile = 128UL * 1024 * 1024;  // twice the largest file that is to come out

/// The address space that this process takes, in bytes.
rlim_t addressSpace() {
  rlim_t pages = 0;
  std::ifstream("/proc/self/statm") >> pages;
  return pages * static_cast<rlim_t>(::sysconf(_SC_PAGESIZE));
}

void limit(decltype(RLIMIT_CPU) resource, rlim_t most) {
  const rlimit both{most, most};
  ASSERT_EQ(::setrlimit(resource, &both), 0);
}

void limitEverything() {
  limit(RLIMIT_CPU, kMostSeconds);
  limit(RLIMIT_AS, addressSpace() + kMostMemory);
  limit(RLIMIT_FSIZE, kLargestFile);
  std::signal(SIGXFSZ, SIG_IGN);  // a write beyond the limit fails, as on a full disk
}

/// What tells whether something has been created, changed or removed at a path.
std::string stateOf(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) {
    return "nothing";
  }
  std::string state = std::to_string(status.st_ino);
  if (!S_ISDIR(status.st_mode)) {
    state += " " + std::to_string(status.st_size) + " " + std::to_string(status.st_mtim.tv_sec) +
             " " + std::to_string(status.st_mtim.tv_nsec);
  }
  return state;
}

std::map<std::string, std::string> statesOf(const std::set<std::string>& paths) {
  std::map<std::string, std::string> states;
  for (const std::string& path : paths) {
    states[path] = stateOf(path);
  }
  return states;
}

/// Expands one archive in the middle of a directory of its own, in which whatever leads out a
/// little way is seen.
class ZipCorpus : public testing::TestWithParam<CorpusArchive> {
 protected:
  void SetUp() override {
    const std::string original = findCorpus().folder + "/" + GetParam().file;
    ASSERT_EQ(sha256Of(original), GetParam().sha256) << "not the archive that the manifest means";
    fs::copy_file(original, archive());
    for (const char* const level : {".", "a", "a/b", "a/b/out"}) {
      fs::permissions(tmp.path(level), fs::perms::all);
    }
  }

  [[nodiscard]] std::string archive() const { return tmp.path("a/b/pack.zip"); }

  /// Where the names of the entries would lead if nobody looked at them.
  [[nodiscard]] std::set<std::string> temptations(const std::vector<CorpusEntry>& entries) const {
    std::set<std::string> places;
    for (const CorpusEntry& entry : entries) {
      const std::string name = Prediction::printed(entry.name);
      std::string slashed = name;
      std::replace(slashed.begin(), slashed.end(), '\\', '/');
      for (const std::string& place : {outDir + "/" + name, outDir + "/" + slashed, "/" + name}) {
        const std::string normal = fs::path(place).lexically_normal().string();
        if (!(normal + "/").starts_with(outDir + "/")) {
          places.insert(normal);
        }
      }
    }
    return places;
  }

  /// Everything in the working directory but the output directory and what is in it.
  [[nodiscard]] std::vector<std::string> around() const {
    std::vector<std::string> names = tmp.entries();
    std::erase_if(names, [](const std::string& name) { return name.starts_with("a/b/out/"); });
    return names;
  }

  void expectFiles(const Prediction& prediction) const {
    std::set<std::string> expected;
    for (const std::string& directory : prediction.directories()) {
      expected.insert(directory.substr(tmp.path().size() + 1) + "/");
    }
    for (const auto& [path, file] : prediction.files()) {
      if (file.mayBeMissing && !fs::exists(path)) {
        continue;
      }
      expected.insert(path.substr(tmp.path().size() + 1));
      if (!file.sha256.empty()) {
        EXPECT_EQ(sha256Of(path), file.sha256) << path;
      }
      if (file.partialSize) {
        EXPECT_EQ(fs::file_size(path), *file.partialSize) << path;
      }
    }
    std::vector<std::string> found = tmp.entries();
    std::erase_if(found, [](const std::string& name) { return !name.starts_with("a/b/out/"); });
    std::erase(found, "a/b/out/");
    EXPECT_EQ(found, std::vector<std::string>(expected.begin(), expected.end()));
  }

  /// Readers disagree about what is in it, but whatever is listed has the bytes that some entry of
  /// its name is known to have.
  void expectKnownBytes(const std::vector<CorpusEntry>& entries,
                        const std::vector<std::string>& listed) const {
    const Prediction prediction(archive(), outDir);
    for (const std::string& path : listed) {
      std::set<std::string> known;
      for (const CorpusEntry& entry : entries) {
        if (prediction.destinationOf(Prediction::printed(entry.name)) == path) {
          known.insert(entry.sha256);
        }
      }
      EXPECT_TRUE(known.contains("") || known.empty() || known.contains(sha256Of(path))) << path;
    }
  }

  TempDir tmp;
  std::string outDir = tmp.mkdir("a/b/out");
};

TEST_P(ZipCorpus, ExpandsToWhatIsKnownOfIt) {
  const std::vector<CorpusEntry> entries = corpusEntries(GetParam());
  const std::set<std::string> places = temptations(entries);
  const std::map<std::string, std::string> statesBefore = statesOf(places);

  runAsUnprivileged([&] {
    limitEverything();
    const LogCapture log;

    const std::vector<std::string> listed = texts(readZip(archive().c_str(), outDir.c_str(), {}));

    if (!GetParam().isOpened) {
      EXPECT_EQ(log.all(), lines("error: Failed to initialize archive: " + archive()));
      EXPECT_THAT(listed, IsEmpty());
      EXPECT_TRUE(fs::is_empty(outDir));
    } else if (GetParam().isDisputed) {
      expectKnownBytes(entries, listed);
    } else {
      Prediction prediction(archive(), outDir);
      for (const CorpusEntry& entry : entries) {
        prediction.add(entry);
      }
      EXPECT_EQ(log.all(), prediction.log());
      EXPECT_EQ(listed, prediction.listed());
      expectFiles(prediction);
    }
  });

  EXPECT_EQ(around(), lines("a/", "a/b/", "a/b/pack.zip"));
  EXPECT_EQ(sha256Of(archive()), GetParam().sha256);
  EXPECT_EQ(statesOf(places), statesBefore);
}

GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(ZipCorpus);
INSTANTIATE_TEST_SUITE_P(Archive, ZipCorpus, testing::ValuesIn(corpusArchives()),
                         [](const testing::TestParamInfo<CorpusArchive>& parameter) {
                           std::string name = parameter.param.file;
                           std::replace_if(
                               name.begin(), name.end(),
                               [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
                           return name + "_" + std::to_string(parameter.index);
                         });

TEST(ZipCorpusFolder, HoldsArchives) {
  const Corpus corpus = findCorpus();
  if (!corpus.whyNot.empty()) {
    GTEST_SKIP() << "no archives from the wild are tried: " << corpus.whyNot;
  }

  EXPECT_FALSE(corpusArchives().empty());
}

}  // namespace
