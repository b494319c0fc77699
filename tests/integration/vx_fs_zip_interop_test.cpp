// SPDX-License-Identifier: MIT
//
// Archives that other programs read and write: Python's zipfile, unzip and zip.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/child.h"
#include "tests/testing/scoped.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <vector>

namespace vx::test {
namespace {

using testing::AllOf;
using testing::AnyOf;
using testing::Each;
using testing::HasSubstr;
using testing::SizeIs;
using testing::StartsWith;
using testing::UnorderedElementsAre;

bool isInstalled(const std::vector<std::string>& command) {
  return runProgram(command).exitCode == 0;
}

class ZipInterop : public FsTest {
 protected:
  /// Runs the program and returns its output.
  [[nodiscard]] static std::string outputOf(const std::vector<std::string>& command) {
    const ChildEnd end = runProgram(command);
    EXPECT_EQ(end.exitCode, 0) << end.out << end.err;
    return end.out;
  }

 private:
  ScopedEnv utf8_{"LC_ALL", "C.UTF-8"};
};

// ---------------------------------------------------------------------------------------------
// Archives of writeZip

class WriteZip_Interop : public ZipInterop {
 protected:
  void SetUp() override {
    if (!isInstalled({"python3", "-c", "import zipfile"}) || !isInstalled({"unzip", "-v"})) {
      GTEST_SKIP() << "python3 with its zipfile, and unzip, are needed";
    }
  }

  static std::string listedByPython() {
    return outputOf({"python3", "-c",
                     "import zipfile\n"
                     "with zipfile.ZipFile('pack.zip') as z:\n"
                     "    for entry in z.infolist():\n"
                     "        print(ascii(entry.filename), ascii(z.read(entry)))\n"});
  }
};

TEST_F(WriteZip_Interop, PythonFindsTheSameNamesAndBytes) {
  tmp.write("scene.ksx", "scene");
  tmp.write("look.ksa", "look");
  tmp.write("a/wood.png", "from a");
  tmp.write("b/wood.png", "from b");
  tmp.write("empty", "");
  tmp.write("a name with spaces", std::string("\0\xFF\r\n", 4));
  tmp.write("D\xC3\xA4mmerung \xE2\x82\xAC.jpg", "1");
  tmp.write(".hidden", "2");
  tmp.write("line\nbreak", "3");
  tmp.write("back\\slash", "4");

  EXPECT_TRUE(fs::writeZip(
      "pack.zip",
      {"scene.ksx", "look.ksa", "a/wood.png", "b/wood.png", "empty", "a name with spaces",
       "D\xC3\xA4mmerung \xE2\x82\xAC.jpg", ".hidden", "line\nbreak", "back\\slash"}));

  EXPECT_EQ(listedByPython(),
            "'scene.ksx' b'scene'\n"
            "'look.ksa' b'look'\n"
            "'res/wood.png' b'from a'\n"
            "'res/wood.png' b'from b'\n"
            "'res/empty' b''\n"
            "'res/a name with spaces' b'\\x00\\xff\\r\\n'\n"
            "'res/D\\xe4mmerung \\u20ac.jpg' b'1'\n"
            "'res/.hidden' b'2'\n"
            "'res/line\\nbreak' b'3'\n"
            "'res/back\\\\slash' b'4'\n");
}

TEST_F(WriteZip_Interop, AnArchiveWithoutEntriesIsRead) {
  EXPECT_TRUE(fs::writeZip("pack.zip", {}));

  EXPECT_EQ(listedByPython(), "");
  const ChildEnd unzip = runProgram({"unzip", "-t", "pack.zip"});
  EXPECT_THAT(unzip.out + unzip.err, HasSubstr("zipfile is empty"));
}

TEST_F(WriteZip_Interop, AThousandEntriesAreRead) {
  StringVector files;
  for (std::size_t i = 0; i < 1'000; ++i) {
    tmp.write("src/" + std::to_string(i), std::string(i, 'x'));
    files.push_back(vxText("src/" + std::to_string(i)));
  }

  EXPECT_TRUE(fs::writeZip("pack.zip", files));

  EXPECT_EQ(
      outputOf({"python3", "-c",
                "import zipfile\n"
                "with zipfile.ZipFile('pack.zip') as z:\n"
                "    print(len(z.namelist()), z.testzip(), z.getinfo('res/999').file_size)\n"}),
      "1000 None 999\n");
  EXPECT_THAT(outputOf({"unzip", "-t", "pack.zip"}), HasSubstr("No errors detected"));
}

// unzip changes names beyond ASCII, since miniz does not state the system of origin.
TEST_F(WriteZip_Interop, UnzipExtractsTheSameTree) {
  const std::string wood = noise(500'000);
  const std::string prose(500'000, 'x');
  tmp.write("scene.ksx", "scene");
  tmp.write("wood.png", wood);
  tmp.write("a text.txt", prose);
  tmp.write("\xFF\xFE", "1");

  EXPECT_TRUE(fs::writeZip("pack.zip", {"scene.ksx", "wood.png", "a text.txt", "\xFF\xFE"}));

  EXPECT_EQ(outputOf({"unzip", "-q", "pack.zip", "-d", "out"}), "");
  EXPECT_EQ(tmp.read("out/scene.ksx"), "scene");
  EXPECT_EQ(tmp.read("out/res/wood.png"), wood);
  EXPECT_EQ(tmp.read("out/res/a text.txt"), prose);
}

// ---------------------------------------------------------------------------------------------
// Archives of other programs

class ReadZip_Interop : public ZipInterop {
 protected:
  void SetUp() override {
    tmp.write("src/look.ksa", "look");
    tmp.write("src/res/wood.png", wood);
    tmp.write("src/res/prose.txt", prose);
    tmp.write("src/res/deep/er/empty", "");
    tmp.write("src/a name with spaces", "1");
    tmp.write("src/D\xC3\xA4mmerung/\xE2\x82\xAC.jpg", "22");
    tmp.write("src/.hidden", "333");
  }

  /// Extracts the archive and expects the tree, listed and on disk.
  void expectTheTree(const std::string& archive) const {
    EXPECT_THAT(texts(fs::readZip(vxText(archive), "out")),
                UnorderedElementsAre("out/look.ksa", "out/res/wood.png", "out/res/prose.txt",
                                     "out/res/deep/er/empty", "out/a name with spaces",
                                     "out/D\xC3\xA4mmerung/\xE2\x82\xAC.jpg", "out/.hidden"));
    EXPECT_EQ(tmp.read("out/look.ksa"), "look");
    EXPECT_EQ(tmp.read("out/res/wood.png"), wood);
    EXPECT_EQ(tmp.read("out/res/prose.txt"), prose);
    EXPECT_EQ(tmp.read("out/res/deep/er/empty"), "");
    EXPECT_EQ(tmp.read("out/a name with spaces"), "1");
    EXPECT_EQ(tmp.read("out/D\xC3\xA4mmerung/\xE2\x82\xAC.jpg"), "22");
    EXPECT_EQ(tmp.read("out/.hidden"), "333");
    EXPECT_EQ(log.all(), lines());
  }

  const std::string wood = noise(300'000);
  const std::string prose = std::string(300'000, 'x');
};

class ReadZip_Python : public ReadZip_Interop {
 protected:
  void SetUp() override {
    ReadZip_Interop::SetUp();
    if (!isInstalled({"python3", "-c", "import zipfile, bz2, lzma"})) {
      GTEST_SKIP() << "python3 with its zipfile, bz2 and lzma is needed";
    }
  }

  /// Packs "src" into the archive `way`.
  static void pack(const std::string& way) {
    const char* const script = R"(
import os, sys, zipfile
way = sys.argv[1]
archive = os.path.abspath(way)
os.chdir('src')

class Pipe:  # cannot seek back: the sizes come after the data
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
    EXPECT_EQ(outputOf({"python3", "-c", script, way}), "");
  }
};

TEST_F(ReadZip_Python, ExtractsTheSameTree) {
  for (const char* const way :
       {"stored", "deflated", "directories", "zip64", "piped", "commented", "prefixed"}) {
    SCOPED_TRACE(way);
    std::filesystem::remove_all("out");
    pack(way);

    expectTheTree(way);
  }
}

TEST_F(ReadZip_Python, WarnsOfEachEntryOfAnUnknownMethod) {
  for (const char* const way : {"bzip2", "lzma"}) {
    const LogCapture own;
    pack(way);

    EXPECT_EQ(texts(fs::readZip(way, "out")), lines());

    EXPECT_THAT(own.all(),
                UnorderedElementsAre(
                    "warning: Unaupported file in archive: look.ksa",
                    "warning: Unaupported file in archive: res/wood.png",
                    "warning: Unaupported file in archive: res/prose.txt",
                    "warning: Unaupported file in archive: res/deep/er/empty",
                    "warning: Unaupported file in archive: a name with spaces",
                    "warning: Unaupported file in archive: D\xC3\xA4mmerung/\xE2\x82\xAC.jpg",
                    "warning: Unaupported file in archive: .hidden"));
  }
}

class ReadZip_Zip : public ReadZip_Interop {
 protected:
  void SetUp() override {
    ReadZip_Interop::SetUp();
    if (!isInstalled({"zip", "-v"})) {
      GTEST_SKIP() << "the program zip is not installed";
    }
  }

  /// Packs "src" into "pack.zip".
  void pack(const std::string& options) const {
    std::filesystem::remove("pack.zip");
    const ScopedCurrentDir inside("src");
    EXPECT_EQ(outputOf({"sh", "-c", "zip -q -r " + options + " ../pack.zip ."}), "");
  }
};

TEST_F(ReadZip_Zip, ExtractsTheSameTree) {
  for (const char* const options : {"", "-0 -D", "-9 -fz"}) {
    SCOPED_TRACE(options);
    std::filesystem::remove_all("out");
    pack(options);

    expectTheTree("pack.zip");
  }
}

TEST_F(ReadZip_Zip, WarnsOfEachEncryptedEntry) {
  pack("-D -P secret");

  const std::vector<std::string> extracted = texts(fs::readZip("pack.zip", "out"));

  // An empty file need not be encrypted.
  EXPECT_THAT(extracted, AnyOf(lines(), lines("out/res/deep/er/empty")));
  EXPECT_THAT(log.all(), AllOf(SizeIs(7 - extracted.size()), Each(StartsWith("warning: "))));
}

TEST_F(ReadZip_Zip, MakesAFileOfALink) {
  tmp.link("src/link", "look.ksa");
  pack("-y");

  fs::readZip("pack.zip", "out");

  EXPECT_EQ(tmp.read("out/link"), "look.ksa");
  EXPECT_EQ(log.all(), lines());
}

}  // namespace
}  // namespace vx::test
