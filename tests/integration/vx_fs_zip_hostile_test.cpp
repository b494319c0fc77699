// Concern: archives made to do harm. Each is expanded in a child of its own with limits on its
// time, memory and files; the child must end by itself, write nothing outside the output directory,
// give every file that it lists the right bytes, and log one line for every entry that it does not.

#include "fs/vx_fs.h"
#include "tests/testing/child.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/peak_memory.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"
#include "tests/testing/zip_maker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace {

using testing::AnyOf;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;
using testing::StartsWith;
using vx::fs::readZip;
using vx::test::crc32Of;
using vx::test::deflated;
using vx::test::kDeflated;
using vx::test::lines;
using vx::test::LogCapture;
using vx::test::peakKibibytes;
using vx::test::runInChild;
using vx::test::TempDir;
using vx::test::texts;
using vx::test::ZipMaker;

constexpr rlim_t kMemoryLimit = rlim_t{1} << 30U;
constexpr rlim_t kFileLimit = rlim_t{64} << 20U;
constexpr long kMemoryGrowthLimit = 256L << 10U;  // in KiB, as the system counts it

/// Whether the environment asks for the long runs.
bool isSoaking() {
  return std::getenv("VX_SOAK") != nullptr;
}

void limitTime() {
  constexpr unsigned kLongRun = 1800;
  if (isSoaking()) {
    ::alarm(kLongRun);  // in place of the limit that every child has
  }
}

void limitFiles() {
  const rlimit files{kFileLimit, kFileLimit};
  ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &files), 0);
}

/// Sanitizers reserve far more than they use; under them only the growth is looked at.
void limitMemory() {
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  const rlimit memory{kMemoryLimit, kMemoryLimit};
  ASSERT_EQ(::setrlimit(RLIMIT_AS, &memory), 0);
#endif
}

/// An archive in a directory of its own, "in", which it is expanded into as "in/out".
class HostileZip : public testing::Test {
 protected:
  struct Expansion {
    std::vector<std::string> listed;
    std::vector<std::string> log;
  };
  using Check = std::function<void(const Expansion&)>;

  /// Expands the archive in a child, where `check` runs too, and looks at what it leaves.
  void expand(const std::string& bytes, const Check& check) {
    const std::string archive = tmp.write("in/pack.zip", bytes);
    runInChild([&] {
      limitTime();
      limitFiles();
      limitMemory();
      const long before = peakKibibytes();
      const LogCapture log;
      const std::vector<std::string> listed = texts(readZip(archive.c_str(), out().c_str(), {}));
      EXPECT_LT(peakKibibytes() - before, kMemoryGrowthLimit);
      check({listed, log.all()});
    });
    EXPECT_EQ(tmp.read("in/pack.zip"), bytes);
    expectNothingOutside();
    tmp.removeDir("in");
  }

  [[nodiscard]] std::string out() const { return tmp.path("in/out"); }
  [[nodiscard]] std::string out(const std::string& name) const { return out() + '/' + name; }

  /// Whether these are the files listed, and their contents.
  void expectFiles(const Expansion& expansion, const std::vector<std::string>& names,
                   const std::vector<std::string>& contents) const {
    EXPECT_THAT(expansion.log, IsEmpty());
    ASSERT_THAT(expansion.listed, SizeIs(names.size()));
    for (std::size_t i = 0; i < names.size(); ++i) {
      ASSERT_EQ(expansion.listed[i], out(names[i]));
      ASSERT_TRUE(tmp.read("in/out/" + names[i]) == contents[i]) << names[i];
    }
  }

  [[nodiscard]] std::string rejection() const {
    return "error: Failed to initialize archive: " + tmp.path("in/pack.zip");
  }

  [[nodiscard]] std::string failure(const std::string& name) const {
    return "error: Failed to extract file " + out(name) + " from archive.";
  }

  TempDir tmp;

 private:
  void expectNothingOutside() const {
    for (const auto& entry : std::filesystem::directory_iterator(tmp.path())) {
      EXPECT_EQ(entry.path().filename(), "in");
    }
    for (const auto& entry : std::filesystem::directory_iterator(tmp.path("in"))) {
      EXPECT_THAT(entry.path().filename(), AnyOf("pack.zip", "pack.ksx", "out"));
    }
  }
};

// ---- Fields -------------------------------------------------------------------------------------

/// A stored and a deflated file. Their names hold no separator, so that every directory that an
/// archive with a changed field leaves stands for an entry.
class HostileField : public HostileZip {
 protected:
  static ZipMaker sound() {
    const std::string text(300, 't');
    return ZipMaker()
        .file("first.txt", "the first text")
        .add({.name = "second.txt", .content = text, .method = kDeflated, .data = deflated(text)});
  }

  static std::size_t offsetOf(const std::string& bytes, std::string_view signature,
                              std::size_t index) {
    std::size_t offset = bytes.find(signature);
    for (std::size_t i = 0; i < index; ++i) {
      offset = bytes.find(signature, offset + 1);
    }
    EXPECT_NE(offset, std::string::npos);
    return offset;
  }

  /// Sets the field to 0, to 1 and to its maximum, and each time expands what comes of it.
  void setField(const std::string& bytes, std::size_t offset, std::size_t width) {
    const std::string zero(width, '\0');
    std::string one = zero;
    one[0] = '\1';
    for (const std::string& value : {zero, one, std::string(width, '\xff')}) {
      std::string changed = bytes;
      changed.replace(offset, width, value);
      SCOPED_TRACE("the field of " + std::to_string(width) + " bytes at " + std::to_string(offset) +
                   ", beginning with " + std::to_string(static_cast<unsigned char>(value[0])));
      expand(changed, [this](const Expansion& expansion) { expectHarmless(expansion); });
    }
  }

  /// Sets each field of the header at `offset`, whose fields have these widths.
  void setFields(const std::string& bytes, std::size_t offset,
                 const std::vector<std::size_t>& widths) {
    for (const std::size_t width : widths) {
      setField(bytes, offset, width);
      offset += width;
    }
  }

 private:
  void expectHarmless(const Expansion& expansion) const {
    if (expansion.log == lines(rejection())) {
      EXPECT_THAT(expansion.listed, IsEmpty());
      EXPECT_TRUE(std::filesystem::is_empty(out()));
      return;
    }
    EXPECT_EQ(expansion.listed.size() + expansion.log.size() + directories(), 2);
    for (const std::string& file : expansion.listed) {
      EXPECT_THAT(file, StartsWith(out() + '/'));
      EXPECT_THAT(tmp.read(file.substr(tmp.path().size() + 1)),
                  AnyOf("the first text", std::string(300, 't')));
    }
  }

  [[nodiscard]] std::size_t directories() const {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::directory_iterator(out())) {
      count += entry.is_directory() ? 1U : 0U;
    }
    return count;
  }
};

const std::vector<std::size_t> kLocalHeader{4, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2};
const std::vector<std::size_t> kCentralHeader{4, 2, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2, 2, 2, 2, 4, 4};
const std::vector<std::size_t> kEnd{4, 2, 2, 2, 2, 4, 4, 2};
const std::vector<std::size_t> kZip64End{4, 8, 2, 2, 4, 4, 8, 8, 8, 8};
const std::vector<std::size_t> kZip64Locator{4, 4, 8, 4};

TEST_F(HostileField, LeftAloneGivesBothFiles) {
  expand(sound().bytes(), [this](const Expansion& expansion) {
    EXPECT_THAT(expansion.listed, ElementsAre(out("first.txt"), out("second.txt")));
    EXPECT_THAT(expansion.log, IsEmpty());
  });
  expand(sound().zip64End().bytes(), [this](const Expansion& expansion) {
    EXPECT_THAT(expansion.listed, ElementsAre(out("first.txt"), out("second.txt")));
    EXPECT_THAT(expansion.log, IsEmpty());
  });
}

TEST_F(HostileField, InALocalHeaderIsHarmless) {
  const std::string bytes = sound().bytes();

  setFields(bytes, offsetOf(bytes, "PK\3\4", 0), kLocalHeader);
  setFields(bytes, offsetOf(bytes, "PK\3\4", 1), kLocalHeader);
}

TEST_F(HostileField, InTheFirstCentralHeaderIsHarmless) {
  const std::string bytes = sound().bytes();

  setFields(bytes, offsetOf(bytes, "PK\1\2", 0), kCentralHeader);
}

TEST_F(HostileField, InTheLastCentralHeaderIsHarmless) {
  const std::string bytes = sound().bytes();

  setFields(bytes, offsetOf(bytes, "PK\1\2", 1), kCentralHeader);
}

TEST_F(HostileField, InTheEndIsHarmless) {
  const std::string bytes = sound().bytes();

  setFields(bytes, offsetOf(bytes, "PK\5\6", 0), kEnd);
}

TEST_F(HostileField, InTheEndOfA64BitArchiveIsHarmless) {
  const std::string bytes = sound().zip64End().bytes();

  setFields(bytes, offsetOf(bytes, "PK\6\6", 0), kZip64End);
  setFields(bytes, offsetOf(bytes, "PK\6\7", 0), kZip64Locator);
}

TEST_F(HostileField, ThatClaims4GiBOfContentFillsNoDisk) {
  ZipMaker zip;
  zip.add({.name = "lies.bin",
           .content = "short",
           .method = kDeflated,
           .data = deflated("short"),
           .size = 0xFFFFFFFEU});

  expand(zip.bytes(), [this](const Expansion& expansion) {
    EXPECT_THAT(expansion.listed, IsEmpty());
    EXPECT_EQ(expansion.log, lines(failure("lies.bin")));
    EXPECT_LE(std::filesystem::file_size(out("lies.bin")), 5);
  });
}

TEST_F(HostileField, ThatClaimsTooLittleContentEndsTheFileThere) {
  const std::string zeros(60000, '\0');
  ZipMaker zip;
  zip.add({.name = "lies.bin",
           .content = zeros,
           .method = kDeflated,
           .data = deflated(zeros),
           .size = 10});

  expand(zip.bytes(), [this](const Expansion& expansion) {
    EXPECT_THAT(expansion.listed, IsEmpty());
    EXPECT_EQ(expansion.log, lines(failure("lies.bin")));
    EXPECT_LT(std::filesystem::file_size(out("lies.bin")), 60000);
  });
}

// ---- Names --------------------------------------------------------------------------------------

constexpr std::size_t kLongestName = 65535;

std::string repeated(std::string_view part, std::string_view end) {
  std::string name;
  while (name.size() + part.size() + end.size() <= kLongestName) {
    name += part;
  }
  name.insert(0, kLongestName - name.size() - end.size(), 'n');
  return name += end;
}

/// An archive whose first entry bears the name; the one behind it must come out whatever happens.
class HostileName : public HostileZip {
 protected:
  /// `right` gives the lines that the entry is to leave, those of mkDir left out.
  void expandName(const std::string& name, const std::vector<std::string>& right) {
    ASSERT_EQ(name.size(), kLongestName);
    expand(ZipMaker().file(name, "hostile").file("after.txt", "after").bytes(),
           [&](const Expansion& expansion) {
             EXPECT_THAT(expansion.listed, ElementsAre(out("after.txt")));
             EXPECT_EQ(tmp.read("in/out/after.txt"), "after");
             std::vector<std::string> log = expansion.log;
             std::erase_if(log, [](const std::string& line) {
               return line.starts_with("error: Failed to create dir: ");
             });
             EXPECT_TRUE(log == right) << "lines: " << log.size();
           });
  }
};

TEST_F(HostileName, OfOneLongComponentCannotBeExtracted) {
  const std::string name = repeated("n", "");

  expandName(name, lines(failure(name)));
}

TEST_F(HostileName, OfManyLevelsCannotBeExtracted) {
  const std::string name = repeated("a/", "z");

  expandName(name, lines("error: Failed to create archive subdir: " + out(name)));
}

TEST_F(HostileName, OfSeparatorsAloneIsTheOutputDirectoryItself) {
  const std::string name(kLongestName, '/');

  // A directory, which is there.
  expandName(name, lines());
}

TEST_F(HostileName, OfDotsThatLeadNowhereCannotBeExtracted) {
  const std::string name = repeated("/.", "/z");

  expandName(name, lines(failure(name)));
}

TEST_F(HostileName, ThatGoesUpThousandsOfLevelsIsRefused) {
  const std::string name = repeated("/..", "/z");

  expandName(name, lines("warning: Unaupported file in archive: " + name));
}

TEST_F(HostileName, OfNulAloneIsTheEmptyName) {
  const std::string name(kLongestName, '\0');

  // The output directory itself, which no file replaces.
  expandName(name, lines("error: Failed to extract file " + out() + " from archive."));
}

TEST_F(HostileName, OfASceneGoesBesideTheArchive) {
  const std::string name = repeated("s", ".ksx");
  const std::string bytes = ZipMaker().file(name, "scene").bytes();

  expand(bytes, [this](const Expansion& expansion) {
    EXPECT_THAT(expansion.listed, ElementsAre(tmp.path("in/pack.ksx")));
    EXPECT_THAT(expansion.log, IsEmpty());
    EXPECT_EQ(tmp.read("in/pack.ksx"), "scene");
  });
}

TEST_F(HostileName, OfFormattingDirectivesIsLoggedAsItIs) {
  const std::string name = repeated("%s%n", "");

  expandName(name, lines(failure(name)));
}

// ---- Overlapping entries ------------------------------------------------------------------------

std::vector<std::string> numbers(std::size_t count) {
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < count; ++i) {
    texts.push_back(std::to_string(i));
  }
  return texts;
}

/// The bytes of an archive whose central header `index` points to the local header at `offset`.
std::string pointedTo(std::string bytes, std::size_t index, std::uint32_t offset) {
  constexpr std::size_t kOffsetField = 42;
  std::size_t header = bytes.find("PK\1\2");
  for (std::size_t i = 0; i < index; ++i) {
    header = bytes.find("PK\1\2", header + 1);
  }
  for (std::size_t i = 0; i < 4; ++i) {
    bytes.at(header + kOffsetField + i) =
        static_cast<char>(static_cast<unsigned char>(offset >> (8 * i)));
  }
  return bytes;
}

TEST_F(HostileZip, EntriesThatShareTheirDataAreAllExtracted) {
  constexpr std::size_t kEntries = 200;
  const std::string zeros(65535, '\0');
  ZipMaker zip;
  zip.add({.name = "0", .content = zeros, .method = kDeflated, .data = deflated(zeros)});
  for (std::size_t i = 1; i < kEntries; ++i) {
    zip.add({.name = std::to_string(i),
             .content = {},
             .method = kDeflated,
             .crc = crc32Of(zeros),
             .packedSize = static_cast<std::uint32_t>(deflated(zeros).size()),
             .size = static_cast<std::uint32_t>(zeros.size())});
  }
  std::string bytes = zip.bytes();
  for (std::size_t i = 1; i < kEntries; ++i) {
    bytes = pointedTo(bytes, i, 0);
  }

  expand(bytes, [&](const Expansion& expansion) {
    expectFiles(expansion, numbers(kEntries), std::vector<std::string>(kEntries, zeros));
  });
}

TEST_F(HostileZip, AnEntryInsideAnotherIsExtractedByItself) {
  const std::string inner = ZipMaker().file("inner.txt", "inner text").bytes();
  const std::string bytes =
      ZipMaker().file("outer.bin", inner).file("inner.txt", "inner text").bytes();
  const auto innerOffset = static_cast<std::uint32_t>(bytes.find("PK\3\4", 4));

  expand(pointedTo(bytes, 2, innerOffset), [&](const Expansion& expansion) {
    EXPECT_THAT(expansion.log, IsEmpty());
    EXPECT_THAT(expansion.listed, ElementsAre(out("outer.bin"), out("inner.txt")));
    EXPECT_EQ(tmp.read("in/out/outer.bin"), inner);
    EXPECT_EQ(tmp.read("in/out/inner.txt"), "inner text");
  });
}

TEST_F(HostileZip, AnEntryWhoseDataIsTheDirectoryOfTheArchiveIsNoneOfOurs) {
  ZipMaker zip;
  zip.file("first.txt", "first").file("second.txt", "second");
  const std::string bytes = zip.bytes();
  const auto directory = static_cast<std::uint32_t>(bytes.find("PK\1\2"));

  expand(pointedTo(bytes, 0, directory), [&](const Expansion& expansion) {
    EXPECT_EQ(expansion.log, lines(failure("first.txt")));
    EXPECT_THAT(expansion.listed, ElementsAre(out("second.txt")));
    EXPECT_EQ(tmp.read("in/out/second.txt"), "second");
  });
}

TEST_F(HostileZip, EntriesThatPointToOneAnotherFailByTheirChecksums) {
  const std::string bytes = ZipMaker().file("a", "one").file("b", "two").bytes();
  const auto second = static_cast<std::uint32_t>(bytes.find("PK\3\4", 4));

  expand(pointedTo(pointedTo(bytes, 0, second), 1, 0), [&](const Expansion& expansion) {
    EXPECT_EQ(expansion.log, lines(failure("a"), failure("b")));
    EXPECT_THAT(expansion.listed, IsEmpty());
  });
}

// ---- Truncation ---------------------------------------------------------------------------------

ZipMaker small() {
  return ZipMaker()
      .file("a.txt", "the first")
      .add({.name = "b.txt",
            .content = "the second",
            .method = kDeflated,
            .data = deflated("the second")});
}

TEST_F(HostileZip, CutShortAtAnyByteIsRejected) {
  const std::string bytes = small().bytes();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    SCOPED_TRACE("of length " + std::to_string(length));
    expand(bytes.substr(0, length), [this](const Expansion& expansion) {
      EXPECT_EQ(expansion.log, lines(rejection()));
      EXPECT_THAT(expansion.listed, IsEmpty());
      EXPECT_TRUE(std::filesystem::is_empty(out()));
    });
  }
}

TEST_F(HostileZip, A64BitArchiveCutShortAtAnyByteIsRejected) {
  const std::string bytes = small().zip64End().bytes();
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    SCOPED_TRACE("of length " + std::to_string(length));
    expand(bytes.substr(0, length), [this](const Expansion& expansion) {
      EXPECT_EQ(expansion.log, lines(rejection()));
      EXPECT_THAT(expansion.listed, IsEmpty());
    });
  }
}

TEST_F(HostileZip, WithoutItsFirstBytesGivesNoWrongFile) {
  const std::string bytes = small().bytes();
  for (std::size_t lost = 1; lost <= bytes.size(); ++lost) {
    SCOPED_TRACE("without " + std::to_string(lost) + " bytes");
    expand(bytes.substr(lost), [this](const Expansion& expansion) {
      EXPECT_EQ(expansion.log, lines(rejection()));
      EXPECT_THAT(expansion.listed, IsEmpty());
    });
  }
}

// ---- Many entries -------------------------------------------------------------------------------

/// A hundred thousand where that much is asked for, else as many as take a moment.
std::size_t manyEntries() {
  return isSoaking() ? 100000 : 2000;
}

TEST_F(HostileZip, OfManyEntriesIsExtractedWhole) {
  const std::vector<std::string> names = numbers(manyEntries());
  ZipMaker zip;
  zip.zip64End();
  for (const std::string& name : names) {
    zip.file(name, name);
  }

  expand(zip.bytes(), [&](const Expansion& expansion) { expectFiles(expansion, names, names); });
}

TEST_F(HostileZip, OfManyRefusedEntriesLogsEach) {
  const std::size_t count = manyEntries();
  ZipMaker zip;
  zip.zip64End();
  for (std::size_t i = 0; i < count; ++i) {
    zip.file("../" + std::to_string(i), "out");
  }

  expand(zip.bytes(), [&](const Expansion& expansion) {
    EXPECT_THAT(expansion.listed, IsEmpty());
    ASSERT_THAT(expansion.log, SizeIs(count));
    for (std::size_t i = 0; i < count; ++i) {
      ASSERT_EQ(expansion.log[i], "warning: Unaupported file in archive: ../" + std::to_string(i));
    }
  });
}

TEST_F(HostileZip, OfManyEntriesOfOneNameListsEach) {
  // Fewer: a disk may take its time over a file that is replaced.
  const std::size_t count = manyEntries() / 10;
  ZipMaker zip;
  for (const std::string& number : numbers(count)) {
    zip.file("same", number);
  }

  expand(zip.bytes(), [&](const Expansion& expansion) {
    EXPECT_THAT(expansion.log, IsEmpty());
    EXPECT_THAT(expansion.listed, SizeIs(count));
    EXPECT_THAT(expansion.listed, Each(out("same")));
    EXPECT_EQ(tmp.read("in/out/same"), std::to_string(count - 1));
  });
}

}  // namespace
