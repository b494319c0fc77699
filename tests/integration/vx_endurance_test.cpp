// SPDX-License-Identifier: MIT
//
// Every function called over and over in one process: its answers, the memory and the descriptors
// stay the same. 100,000 times where the environment variable VX_SOAK is set, else fewer times.

#include "core/vx_error.h"
#include "core/vx_log.h"
#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"
#include "tests/testing/calls.h"
#include "tests/testing/memory_use.h"
#include "tests/testing/scoped.h"
#include "tests/testing/temp_dir.h"

#include <gmock/gmock.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <string>
#include <utility>

#include <malloc.h>
#include <unistd.h>

#ifdef VX_TEST_SANITIZED_HEAP
// Declared here, since not every compiler that has it brings the header along.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace vx::test {
namespace {

constexpr int kOrdinaryCalls = 5'000;
constexpr int kSoakCalls = 100'000;

int wantedCalls() {
  return std::getenv("VX_SOAK") != nullptr ? kSoakCalls : kOrdinaryCalls;
}

// ---- What must stay the same -------------------------------------------------------------------

std::size_t allocatedBytes() {
#ifdef VX_TEST_SANITIZED_HEAP
  return __sanitizer_get_current_allocated_bytes();
#elif defined(__GLIBC__)
  const auto info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
#else
  return 0;  // musl does not tell: the pages are compared alone
#endif
}

std::size_t residentBytes() {
  std::size_t whole = 0;
  std::size_t resident = 0;
  std::ifstream("/proc/self/statm") >> whole >> resident;
  return resident * static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
}

std::size_t descriptors() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(all), end(all)));
}

// ---- What is called ----------------------------------------------------------------------------

/// A few functions, each called once. True when each has answered as it should.
struct Work {
  const char* name;
  bool (*once)();
};

void PrintTo(const Work& work, std::ostream* stream) {
  *stream << work.name;
}

bool makeFile(const char* path) {
  FILE* const stream = fs::Fopen(path, "wb");
  return stream != nullptr && fs::Fwrite("text", 1, 4, stream) == 4 && fs::Fclose(stream) == 0;
}

const Work kWorks[] = {
    {"OpeningAFile", [] { return makeFile("x"); }},
    {"ReopeningAStream",
     [] {
       FILE* stream = fs::Fopen("f.txt", "rb");
       stream = stream == nullptr ? nullptr : fs::Freopen("d/a.txt", "rb", stream);
       return stream != nullptr && fs::Fclose(stream) == 0;
     }},
    {"UsingAStream",
     [] {
       std::array<char, 4> buffer{};
       FILE* const stream = fs::Fopen("stream", "w+b");
       return stream != nullptr && fs::Fwrite("text", 1, 4, stream) == 4 &&
              fs::Fflush(stream) == 0 && fs::Fseek(stream, 0, SEEK_SET) == 0 &&
              fs::Fread(buffer.data(), 1, 4, stream) == 4 && fs::Ftell(stream) == 4 &&
              fs::Fclose(stream) == 0;
     }},
    {"RenamingAndRemoving",
     [] {
       return makeFile("x") && fs::Frename("x", "y") == 0 && fs::Fremove("y") && !fs::Fremove("y");
     }},
    {"StatusQueries",
     [] {
       return fs::isDir("d/.") && fs::isFile("./f.txt") && fs::exists("f.txt") &&
              !fs::exists("none");
     }},
    {"MakingDirectories",
     [] {
       return fs::mkDir("n/m/o") && fs::rmDir("n/m/o") && fs::rmDir("n/m") && fs::rmDir("n") &&
              fs::rmDir("n");
     }},
    {"FailingToMakeDirectories",
     [] {
       return !fs::mkDir("f.txt/x") && !fs::rmDir("d") && !fs::rmDir("f.txt") && !fs::mkDir("") &&
              !fs::mkDir(String("d/" + std::string(300, 'n')));
     }},
    {"RemovingFiles",
     [] { return makeFile("x") && fs::rmFile("x") && fs::rmFile("x") && fs::rmFile("d"); }},
    {"CopyingFiles",
     [] {
       return fs::copyFile("f.txt", "copy") && !fs::copyFile("none", "copy") &&
              fs::copyFile("copy", "COPY") == fs::isFile("COPY") &&
              !fs::copyFile("f.txt", "none/x");
     }},
    {"MovingFiles",
     [] {
       return makeFile("x") && makeFile("y.txt") && fs::moveFile("x", "y.txt") &&
              !fs::moveFile("x", "y.txt") && !fs::moveFile("y.txt", "none/x") &&
              fs::rmFile("y.txt");
     }},
    {"ListingDirectories",
     [] { return fs::listDirs("d").size() == 1 && fs::listDirs("none").empty(); }},
    {"ListingFiles",
     [] {
       return fs::listFiles("d", {"txt", ".TXT", "png"}).size() == 4 &&
              fs::listFiles("d", {}).empty();
     }},
    {"TheExecutable",
     [] {
       return fs::isFile(fs::exePath()) && fs::exeDir() == fs::appDir() &&
              fs::exeDir() == fs::resDir();
     }},
    {"StandardDirectories",
     [] {
       String current;
       String home;
       String temp;
       return fs::getCurrentDir(current) && fs::currentDir() == current && fs::getHomeDir(home) &&
              fs::homeDir() == home && fs::getTempDir(temp) && fs::tempDir() == temp;
     }},
    {"MakingProductDirectories",
     [] {
       String out;
       return fs::getKavraUserDir(out, /*create=*/true) &&
              fs::getKavraConfigDir(out, /*create=*/true) &&
              fs::getKavraOutputDir(out, /*create=*/true) &&
              fs::getKavraPreviewDir(out, /*create=*/true) && fs::rmDir("home/kavra/config") &&
              fs::rmDir("home/kavra/output") && fs::rmDir("home/kavra/preview") &&
              fs::rmDir("home/kavra");
     }},
    {"MissingProductDirectories",
     [] {
       const String current = fs::currentDir();
       return fs::kavraUserDir(/*create=*/false) == current &&
              fs::kavraConfigDir(/*create=*/false) == current &&
              fs::kavraOutputDir(/*create=*/false) == current &&
              fs::kavraPreviewDir(/*create=*/false) == current;
     }},
    {"TheHelpPage",
     [] {
       return fs::kavraNodeHelpPath(/*asUrl=*/true) ==
                  String("file://") + fs::kavraNodeHelpPath(/*asUrl=*/false) &&
              fs::rmDir("home/kavra");
     }},
    {"ReadingZip", [] { return fs::readZip("pack.zip", "out", {}).size() == 2; }},
    {"FailingToReadZip",
     [] {
       return fs::readZip("f.txt", "out", {}).empty() && fs::readZip("none", "out", {}).empty() &&
              fs::readZip("pack.zip", "f.txt", {}).empty() &&
              fs::readZip("damaged.zip", "out", {}).empty();
     }},
    {"WritingZip",
     [] {
       std::size_t reports = 0;
       return fs::writeZip("new.zip", {"f.txt", "none", "look.ksx"},
                           [&](const fs::ZipProgress& /*report*/) { ++reports; }) &&
              reports == 2;
     }},
    {"FailingToWriteZip",
     [] {
       return !fs::writeZip("none/x.zip", {"f.txt"}, {}) && !fs::writeZip("d", {"f.txt"}, {});
     }},
    {"Ksz",
     [] {
       return fs::writeKsz("new.ksz", {"f.txt", "look.ksx"},
                           [](const fs::KszProgress& /*report*/) {}) &&
              fs::readKsz("new.ksz", {});
     }},
    {"ResolvingReferences",
     [] {
       return !fs::resolvePath("f.txt", {}, {}).isEmpty() &&
              !fs::resolvePath("tex/a.txt", {"none", "d"}, {"txt"}).isEmpty() &&
              !fs::resolvePath("tex/a.*", {"d"}, {"*", "png", "txt"}).isEmpty() &&
              fs::resolvePath("tex/none.txt", {"d", "home"}, {"png"}).isEmpty();
     }},
    {"Dialogs",
     [] {
       Calls calls;
       calls.answer("tinyfd_openFileDialog", "/a|/b");
       calls.answer("tinyfd_saveFileDialog", "/a");
       return fs::browseFile("T", "", "Images", {"png", ".jpg", "*"}) == "/a" &&
              fs::browseFiles("T", "", "", {}).size() == 2 && fs::browseDir("T", "").isEmpty() &&
              fs::saveFile("T", "", "", {"png"}) == "/a";
     }},
    {"Paths",
     [] {
       const Path path("d/./e/../none/x.txt", /*normalizeFirst=*/true);
       return path.components().size() == 3 && path.file(/*withExt=*/false) == "x" &&
              path.ext(/*withDot=*/true) == ".txt" && path.dir() == "d/none" && !path.exists() &&
              path.canonical() == Path::join(fs::currentDir(), "d", "none", "x.txt") &&
              Path::changeExt("a/b.c", ".d") == "a/b.d";
     }},
    {"Texts",
     [] {
       String text = "one";
       text << "|" << String("two");
       StringVector pieces = text.split('|', /*skipEmpty=*/true, /*trim=*/true);
       pieces.push_back(text.replace('o', '0', /*firstOnly=*/true, /*ignoreCase=*/false));
       return pieces.join("+") == "one+two+0ne|two" &&
              text.fromLast('|', /*keepSeparator=*/true) == "|two";
     }},
    {"LogAndErrors",
     [] {
       logError("a line of %s", "one length");
       logWarning("%s", std::string(2000, 'x').c_str());
       os::setCurrentError(1, "context", "message");
       const bool isKept = os::currentErrorMessage() == "message";
       os::clearCurrentError();
       return isKept && os::currentErrorMessage().isEmpty();
     }},
    {"Sinks",
     [] {
       LogSink before = setLogSink([](LogLevel /*level*/, const String& /*line*/) {});
       setLogSink(std::move(before));
       return true;
     }},
};

class Endurance : public testing::TestWithParam<Work> {
 protected:
  Endurance() {
    tmp_.write("f.txt", "text");
    tmp_.write("look.ksx", "scene");
    tmp_.write("d/a.txt", "text");
    tmp_.write("d/b.txt", "text");
    tmp_.mkdir("d/e");
    tmp_.mkdir("home");
    EXPECT_TRUE(fs::writeZip("pack.zip", {"f.txt", "look.ksx"}, {}));
    writeDamaged(tmp_.read("pack.zip"));
  }
  ~Endurance() override { setLogSink(std::move(sink_)); }

  /// Calls that many times. False when one has answered wrongly.
  static bool call(int times) {
    for (int i = 0; i < times; ++i) {
      if (!GetParam().once()) {
        ADD_FAILURE() << "call " << i << " has answered wrongly";
        return false;
      }
    }
    return true;
  }

 private:
  /// An archive none of whose entries has a header.
  void writeDamaged(std::string bytes) const {
    for (std::size_t at = bytes.find("PK\3\4"); at != std::string::npos;
         at = bytes.find("PK\3\4")) {
      bytes[at] = 'x';
    }
    tmp_.write("damaged.zip", bytes);
  }

  const TempDir tmp_ = TempDir::inMemory();
  const ScopedCurrentDir inside_{tmp_.path()};
  const ScopedEnv home_{"HOME", "home"};
  const ScopedEnv userDir_{"KAVRA_USER_DIR", nullptr};
  LogSink sink_ = setLogSink([](LogLevel /*level*/, const String& /*line*/) {});
};

TEST_P(Endurance, KeepsAnswersMemoryAndDescriptors) {
  // A leak of the least that can be allocated, once a call, is sixteen bytes at the least.
  const int calls = wantedCalls();
  const auto allowed = static_cast<std::size_t>(calls) * 8;
  ASSERT_TRUE(call(100));  // until every cache is full
  const std::size_t bytesBefore = allocatedBytes();
  const std::size_t residentBefore = residentBytes();
  const std::size_t descriptorsBefore = descriptors();

  ASSERT_TRUE(call(calls));

  EXPECT_LE(allocatedBytes(), bytesBefore + allowed);
  EXPECT_EQ(descriptors(), descriptorsBefore);
#ifndef VX_TEST_SANITIZED_HEAP
  constexpr std::size_t kMebibyte = std::size_t{1024} * 1024;
  EXPECT_LE(residentBytes(), residentBefore + kMebibyte);
#else
  static_cast<void>(residentBefore);  // the sanitizers keep what was freed for a while
#endif
}

INSTANTIATE_TEST_SUITE_P(Of, Endurance, testing::ValuesIn(kWorks),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace vx::test
