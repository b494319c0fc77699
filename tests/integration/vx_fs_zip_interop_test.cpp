// Concern: that other programs read what we write, and that we read what they write, with the same
// names and bytes.

#include "fs/vx_fs.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"
#include "tests/testing/zip_maker.h"
#include "tests/testing/zip_program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::UnorderedElementsAreArray;
using vx::StringVector;
using vx::fs::readZip;
using vx::fs::writeZip;
using vx::test::canRun;
using vx::test::LogCapture;
using vx::test::noise;
using vx::test::ProgramEnd;
using vx::test::runProgram;
using vx::test::TempDir;
using vx::test::texts;

/// Reads an archive and compares its entries, in order, with pairs of a name and a file.
constexpr const char* kCheck = R"(
import sys, zipfile
archive, rest = sys.argv[1], sys.argv[2:]
expected = list(zip(rest[0::2], rest[1::2]))
with zipfile.ZipFile(archive) as z:
    assert z.testzip() is None, z.testzip()
    assert z.namelist() == [name for name, _ in expected], z.namelist()
    for info, (name, path) in zip(z.infolist(), expected):
        with open(path, 'rb') as f:
            assert z.read(info) == f.read(), name
)";

/// Packs the tree in the current directory in a way that is named.
constexpr const char* kPack = R"(
import os, sys, zipfile
archive, way = sys.argv[1:]

class Pipe:  # no way back: the sizes come after the data
    def __init__(self, file): self.file = file
    def write(self, data): return self.file.write(data)
    def flush(self): self.file.flush()

method = {'stored': zipfile.ZIP_STORED, 'bzip2': zipfile.ZIP_BZIP2,
          'lzma': zipfile.ZIP_LZMA}.get(way, zipfile.ZIP_DEFLATED)
with open(archive, 'wb') as f:
    if way == 'prefixed':
        f.write(b'#!/bin/sh\nexit 0\n' * 100)
    with zipfile.ZipFile(Pipe(f) if way == 'piped' else f, 'w', method) as z:
        if way == 'commented':
            z.comment = b'a comment on the archive'
        for directory, names, files in sorted(os.walk('.')):
            if way == 'directories' and directory != '.':
                z.write(directory)
            for name in sorted(files):
                path = os.path.join(directory, name)
                info = zipfile.ZipInfo.from_file(path)
                info.compress_type = method
                if way == 'commented':
                    info.comment = b'a comment on the entry'
                    info.extra = b'\xfe\xca\x04\x00abcd'
                with open(path, 'rb') as src, z.open(info, 'w', force_zip64=way == 'zip64') as dst:
                    dst.write(src.read())
)";

class ZipInterop : public testing::Test {
 protected:
  ProgramEnd python(const char* script, std::vector<std::string> arguments) const {
    arguments.insert(arguments.begin(), {"python3", "-c", script});
    return runProgram(tmp.path(), arguments);
  }

  [[nodiscard]] std::string archive() const { return tmp.path("pack.zip"); }

  TempDir tmp;
  LogCapture log;
};

// ---- Other programs read what we write ----------------------------------------------------------

class OurArchive : public ZipInterop {
 protected:
  void SetUp() override {
    if (!canRun({"python3", "-c", "import zipfile"}) || !canRun({"unzip", "-v"})) {
      GTEST_SKIP() << "python3 with its zipfile, and unzip, are needed";
    }
  }

  /// Adds a file whose entry is to bear the given name.
  void add(const std::string& entry, const std::string& relative, const std::string& content) {
    const std::string path = tmp.write("src/" + relative, content);
    files_.push_back(path.c_str());
    expected_.insert(expected_.end(), {entry, path});
  }

  bool write() { return writeZip(archive().c_str(), files_, {}); }

  /// Expects Python to find the entries, with the content of the files.
  void expectPythonToRead() const {
    std::vector<std::string> arguments = expected_;
    arguments.insert(arguments.begin(), archive());
    const ProgramEnd end = python(kCheck, arguments);
    EXPECT_EQ(end.exitCode, 0) << end.output;
  }

  void expectUnzipToPass() const {
    const ProgramEnd end = runProgram(tmp.path(), {"unzip", "-t", archive()});
    EXPECT_EQ(end.exitCode, 0) << end.output;
    EXPECT_THAT(end.output, HasSubstr("No errors detected"));
  }

 private:
  StringVector files_;
  std::vector<std::string> expected_;
};

TEST_F(OurArchive, IsReadWithTheSameNamesAndBytes) {
  add("scene.ksx", "p/scene.ksx", "scene");
  add("look.ksa", "p/look.ksa", "look");
  add("res/wood.png", "p/tex/wood.png", noise(500'000));
  add("res/prose.txt", "p/prose.txt", std::string(500'000, 'x'));
  add("res/empty", "p/empty", "");
  add("res/a name with spaces", "p/a name with spaces", "1");
  add("res/D\xC3\xA4mmerung \xE2\x82\xAC.jpg", "p/D\xC3\xA4mmerung \xE2\x82\xAC.jpg", "22");
  add("res/.hidden", "p/.hidden", "333");

  ASSERT_TRUE(write());

  expectPythonToRead();
  expectUnzipToPass();
}

// Names in ASCII only: unzip takes others for those of DOS, since miniz names no system of origin.
TEST_F(OurArchive, IsUnpackedToTheSameTree) {
  const std::string wood = noise(500'000);
  add("scene.ksx", "scene.ksx", "scene");
  add("res/wood.png", "wood.png", wood);
  add("res/a picture.jpg", "a picture.jpg", "picture");
  ASSERT_TRUE(write());

  const ProgramEnd end = runProgram(tmp.path(), {"unzip", "-q", archive(), "-d", tmp.path("out")});

  EXPECT_EQ(end.exitCode, 0) << end.output;
  EXPECT_EQ(tmp.read("out/scene.ksx"), "scene");
  EXPECT_EQ(tmp.read("out/res/wood.png"), wood);
  EXPECT_EQ(tmp.read("out/res/a picture.jpg"), "picture");
}

TEST_F(OurArchive, IsReadWithTwoEntriesOfOneName) {
  add("res/wood.png", "a/wood.png", "from a");
  add("res/wood.png", "b/wood.png", "from b");

  ASSERT_TRUE(write());

  expectPythonToRead();
  expectUnzipToPass();
}

TEST_F(OurArchive, IsReadWithLineBreaksAndBackslashesInNames) {
  add("res/line\nbreak", "line\nbreak", "1");
  add("res/back\\slash", "back\\slash", "2");

  ASSERT_TRUE(write());

  expectPythonToRead();
  expectUnzipToPass();
}

TEST_F(OurArchive, PassesUnzipWithNamesThatAreNotUtf8) {
  add("res/\xFF\xFE", "\xFF\xFE", "1");
  add("res/a\x80z", "a\x80z", "2");

  ASSERT_TRUE(write());

  expectUnzipToPass();
}

TEST_F(OurArchive, IsReadWithoutAnyEntries) {
  ASSERT_TRUE(write());

  expectPythonToRead();
  EXPECT_THAT(runProgram(tmp.path(), {"unzip", "-t", archive()}).output,
              HasSubstr("zipfile is empty"));
}

TEST_F(OurArchive, IsReadWithManyEntries) {
  for (int i = 0; i < 1'000; ++i) {
    const std::string name = std::to_string(i);
    add("res/" + name, name, std::string(static_cast<std::size_t>(i), 'x'));
  }

  ASSERT_TRUE(write());

  expectPythonToRead();
  expectUnzipToPass();
}

// ---- We read what other programs write ----------------------------------------------------------

class TheirArchive : public ZipInterop {
 protected:
  void SetUp() override {
    for (const auto& [name, content] : tree_) {
      tmp.write("src/" + name, content);
    }
  }

  /// Expands the archive and expects the whole tree, listed and on disk.
  void expectTheTree() {
    EXPECT_THAT(texts(readZip(archive().c_str(), tmp.path("out").c_str(), {})),
                UnorderedElementsAreArray(places()));

    for (const auto& [name, content] : tree_) {
      EXPECT_EQ(tmp.read("out/" + name), content) << name;
    }
    EXPECT_THAT(log.all(), IsEmpty());
  }

  [[nodiscard]] std::vector<std::string> names() const {
    std::vector<std::string> names;
    for (const auto& [name, content] : tree_) {
      names.push_back(name);
    }
    return names;
  }

  [[nodiscard]] std::vector<std::string> places() const {
    std::vector<std::string> places = names();
    for (std::string& place : places) {
      place = tmp.path(place.insert(0, "out/"));
    }
    return places;
  }

 private:
  std::vector<std::pair<std::string, std::string>> tree_ = {
      {"look.ksa", "look"},
      {"res/wood.png", noise(300'000)},
      {"res/prose.txt", std::string(300'000, 'x')},
      {"res/deep/er/empty", ""},
      {"a name with spaces", "1"},
      {"D\xC3\xA4mmerung/\xE2\x82\xAC.jpg", "22"},
      {".hidden", "333"},
  };
};

class PythonsArchive : public TheirArchive, public testing::WithParamInterface<const char*> {
 protected:
  void SetUp() override {
    TheirArchive::SetUp();
    if (!canRun({"python3", "-c", "import zipfile, bz2, lzma"})) {
      GTEST_SKIP() << "python3 with its zipfile, bz2 and lzma is needed";
    }
  }

  /// Packs the tree. Python runs in it, so that the names are relative.
  void pack(const std::string& way) const {
    const ProgramEnd end = runProgram(tmp.path("src"), {"python3", "-c", kPack, archive(), way});
    ASSERT_EQ(end.exitCode, 0) << end.output;
  }
};

TEST_P(PythonsArchive, IsExpandedToTheSameTree) {
  pack(GetParam());

  expectTheTree();
}

INSTANTIATE_TEST_SUITE_P(Written, PythonsArchive,
                         testing::Values("stored", "deflated", "directories", "zip64", "piped",
                                         "commented", "prefixed"),
                         [](const auto& parameter) { return std::string(parameter.param); });

class PythonsUnsupportedArchive : public PythonsArchive {};

TEST_P(PythonsUnsupportedArchive, IsWarnedAboutEntryByEntry) {
  pack(GetParam());

  EXPECT_THAT(texts(readZip(archive().c_str(), tmp.path("out").c_str(), {})), IsEmpty());

  std::vector<std::string> expected;
  for (const std::string& name : names()) {
    expected.push_back("warning: Unaupported file in archive: " + name);
  }
  EXPECT_THAT(log.all(), UnorderedElementsAreArray(expected));
}

INSTANTIATE_TEST_SUITE_P(Written, PythonsUnsupportedArchive, testing::Values("bzip2", "lzma"),
                         [](const auto& parameter) { return std::string(parameter.param); });

class ZipsArchive : public TheirArchive {
 protected:
  void SetUp() override {
    TheirArchive::SetUp();
    if (!canRun({"zip", "-v"})) {
      GTEST_SKIP() << "the program zip is not installed";
    }
  }

  void pack(std::vector<std::string> options) const {
    options.insert(options.begin(), {"zip", "-q", "-r"});
    options.insert(options.end(), {archive(), "."});
    const ProgramEnd end = runProgram(tmp.path("src"), options);
    ASSERT_EQ(end.exitCode, 0) << end.output;
  }
};

TEST_F(ZipsArchive, IsExpandedToTheSameTree) {
  pack({});

  expectTheTree();
}

TEST_F(ZipsArchive, IsExpandedWhenItIsStoredWithoutDirectories) {
  pack({"-0", "-D"});

  expectTheTree();
}

TEST_F(ZipsArchive, IsExpandedWhenItIsOfTheLargeKind) {
  pack({"-9", "-fz"});

  expectTheTree();
}

TEST_F(ZipsArchive, IsWarnedAboutWhenItIsEncrypted) {
  pack({"-D", "-P", "secret"});

  const std::vector<std::string> extracted =
      texts(readZip(archive().c_str(), tmp.path("out").c_str(), {}));

  // There is nothing to encrypt in an empty file.
  EXPECT_THAT(extracted, AnyOf(IsEmpty(), ElementsAre(tmp.path("out/res/deep/er/empty"))));
  EXPECT_EQ(log.warnings().size(), names().size() - extracted.size());
  EXPECT_THAT(log.errors(), IsEmpty());
}

TEST_F(ZipsArchive, GivesALinkAsAFileWithItsTarget) {
  tmp.link("src/link", "look.ksa");
  pack({"-y"});

  readZip(archive().c_str(), tmp.path("out").c_str(), {});

  EXPECT_EQ(tmp.read("out/link"), "look.ksa");
  EXPECT_THAT(log.all(), IsEmpty());
}

}  // namespace
