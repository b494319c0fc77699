// SPDX-License-Identifier: MIT
//
// readZip of archives made to do harm. Each is extracted in a child with limits on its time, memory
// and files. The child has to end by itself, to write nothing outside the output directory, to list
// only files with the right bytes, and to log one line for each entry that it does not extract.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/archives.h"
#include "tests/testing/child.h"
#include "tests/testing/memory_use.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

namespace vx::test {
namespace {

/// Whether the environment asks for the long runs.
bool isSoaking() {
  return std::getenv("VX_SOAK") != nullptr;
}

void limit(decltype(RLIMIT_AS) resource, rlim_t most) {
  const rlimit both{most, most};
  ASSERT_EQ(::setrlimit(resource, &both), 0);
}

void limitResources() {
  limit(RLIMIT_FSIZE, rlim_t{64} << 20U);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  limit(RLIMIT_AS, rlim_t{1} << 30U);  // sanitizers reserve far more than they use
#endif
  if (isSoaking()) {
    ::alarm(1800);  // in place of the limit that every child has
  }
}

/// Extracts archives from "in/pack.zip" into "in/out".
class ReadZip_Hostile : public FsTest {
 protected:
  using Files = std::vector<std::string>;

  /// `check` runs in the child too, and gets the files that are listed.
  void extract(const std::string& bytes, const std::function<void(const Files& listed)>& check) {
    constexpr long kMostGrowth = 256L << 10U;  // in KiB
    tmp.write("in/pack.zip", bytes);
    runInChild([&] {
      limitResources();
      const long before = peakKibibytes();
      const Files listed = texts(fs::readZip("in/pack.zip", "in/out"));
      EXPECT_LT(peakKibibytes() - before, kMostGrowth);
      check(listed);
    });
    EXPECT_EQ(tmp.read("in/pack.zip"), bytes);
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator("."), {}), 1);
    for (const auto& entry : std::filesystem::directory_iterator("in")) {
      const std::string name = entry.path().filename().string();
      EXPECT_TRUE(name == "pack.zip" || name == "pack.ksx" || name == "out") << name;
    }
    tmp.removeDir("in");  // deeper than a process may have descriptors
  }

  void expectRejection(const std::string& bytes) {
    extract(bytes, [&](const Files& listed) {
      EXPECT_EQ(listed, lines());
      EXPECT_EQ(log.all(),
                lines("error: Failed to initialize archive: " + tmp.path("in/pack.zip")));
      EXPECT_TRUE(std::filesystem::is_empty("in/out"));
    });
  }

  /// The archive may be rejected. Otherwise each of its two entries is a directory, which is not
  /// listed, or a file with one of the contents, or has its line.
  void expectHarmless(const std::string& bytes, const std::string& oneContent,
                      const std::string& otherContent) {
    extract(bytes, [&](const Files& listed) {
      if (log.all() == lines("error: Failed to initialize archive: " + tmp.path("in/pack.zip"))) {
        EXPECT_EQ(listed, lines());
        EXPECT_TRUE(std::filesystem::is_empty("in/out"));
        return;
      }
      const auto directories =
          std::count_if(std::filesystem::directory_iterator("in/out"), {},
                        [](const auto& entry) { return entry.is_directory(); });
      EXPECT_EQ(listed.size() + log.all().size() + static_cast<std::size_t>(directories), 2U);
      for (const std::string& file : listed) {
        EXPECT_TRUE(file.starts_with("in/out/")) << file;
        const std::string content = tmp.read(file);
        EXPECT_TRUE(content == oneContent || content == otherContent) << file;
      }
    });
  }
};

/// The offset of the header number `index` with this signature.
std::size_t offsetOf(const std::string& bytes, std::string_view signature, std::size_t index = 0) {
  std::size_t offset = bytes.find(signature);
  for (std::size_t i = 0; i < index; ++i) {
    offset = bytes.find(signature, offset + 1);
  }
  EXPECT_NE(offset, std::string::npos);
  return offset;
}

// ---------------------------------------------------------------------------------------------
// Damaged archives

TEST_F(ReadZip_Hostile, SurvivesExtremesInEveryHeaderField) {
  struct Header {
    const char* signature;
    std::size_t index;
    std::vector<std::size_t> widths;  // of its fields
  };
  const Header headers[] = {
      {"PK\3\4", 0, {4, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2}},
      {"PK\3\4", 1, {4, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2}},
      {"PK\1\2", 0, {4, 2, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2, 2, 2, 2, 4, 4}},
      {"PK\1\2", 1, {4, 2, 2, 2, 2, 2, 2, 4, 4, 4, 2, 2, 2, 2, 2, 4, 4}},
      {"PK\5\6", 0, {4, 2, 2, 2, 2, 4, 4, 2}},
      {"PK\6\6", 0, {4, 8, 2, 2, 4, 4, 8, 8, 8, 8}},
      {"PK\6\7", 0, {4, 4, 8, 4}},
  };
  const std::string text(300, 't');
  ZipMaker zip;
  // No name has a separator, so every directory is an entry.
  zip.file("first.txt", "the first text")
      .add({.name = "second.txt", .content = text, .method = kDeflated, .data = deflated(text)});
  const std::string plain = zip.bytes();
  const std::string zip64 = zip.zip64End().bytes();
  for (const std::string& bytes : {plain, zip64}) {
    extract(bytes, [&](const Files& listed) {
      EXPECT_EQ(listed, lines("in/out/first.txt", "in/out/second.txt"));
      EXPECT_EQ(log.all(), lines());
    });
  }
  for (const Header& header : headers) {
    const bool isOfZip64 = std::string_view(header.signature).starts_with("PK\6");
    const std::string& bytes = isOfZip64 ? zip64 : plain;
    std::size_t offset = offsetOf(bytes, header.signature, header.index);
    for (const std::size_t width : header.widths) {
      const std::string zero(width, '\0');
      const std::string one = '\1' + std::string(width - 1, '\0');
      const std::string most(width, '\xff');
      for (const std::string& value : {zero, one, most}) {
        SCOPED_TRACE("the " + std::to_string(width) + " bytes at " + std::to_string(offset) +
                     ", the first is " + std::to_string(static_cast<unsigned char>(value.front())));
        std::string changed = bytes;
        expectHarmless(changed.replace(offset, width, value), "the first text", text);
      }
      offset += width;
    }
  }
}

TEST_F(ReadZip_Hostile, StopsAFileThatClaimsAnotherSize) {
  const std::string zeros(60'000, '\0');
  ZipMaker zip;
  zip.add({.name = "4 GiB",
           .content = "short",
           .method = kDeflated,
           .data = deflated("short"),
           .size = 0xFFFFFFFEU})
      .add({.name = "10 bytes",
            .content = zeros,
            .method = kDeflated,
            .data = deflated(zeros),
            .size = 10});

  extract(zip.bytes(), [&](const Files& listed) {
    EXPECT_EQ(listed, lines());
    EXPECT_EQ(log.all(), lines("error: Failed to extract file in/out/4 GiB from archive.",
                               "error: Failed to extract file in/out/10 bytes from archive."));
    EXPECT_LE(std::filesystem::file_size("in/out/4 GiB"), 5U);
    EXPECT_LT(std::filesystem::file_size("in/out/10 bytes"), 60'000U);
  });
}

TEST_F(ReadZip_Hostile, RejectsAnArchiveCutAtAnyByte) {
  ZipMaker zip;
  zip.file("a.txt", "the first")
      .add({.name = "b.txt",
            .content = "the second",
            .method = kDeflated,
            .data = deflated("the second")});
  const std::string plain = zip.bytes();
  const std::string zip64 = zip.zip64End().bytes();
  for (std::size_t length = 0; length < plain.size(); ++length) {
    SCOPED_TRACE("of length " + std::to_string(length));
    expectRejection(plain.substr(0, length));
    expectRejection(plain.substr(plain.size() - length));
  }
  for (std::size_t length = 0; length < zip64.size(); ++length) {
    SCOPED_TRACE("64-bit, of length " + std::to_string(length));
    expectRejection(zip64.substr(0, length));
  }
}

// ---------------------------------------------------------------------------------------------
// Names of the greatest length

TEST_F(ReadZip_Hostile, SurvivesNamesOf65535Bytes) {
  constexpr std::size_t kLongest = 65'535;
  const auto repeated = [](std::string_view part, std::string_view end) {
    std::string name;
    while (name.size() + part.size() + end.size() <= kLongest) {
      name += part;
    }
    name.insert(0, kLongest - name.size() - end.size(), 'n');
    return name += end;
  };
  const std::string component = repeated("n", "");
  const std::string levels = repeated("a/", "z");
  const std::string dots = repeated("/.", "/z");
  const std::string up = repeated("/..", "/z");
  const std::string directives = repeated("%s%n", "");
  struct Row {
    std::string name;
    std::vector<std::string> log;
  };
  const Row rows[] = {
      {component, {"error: Failed to extract file in/out/" + component + " from archive."}},
      {levels, {"error: Failed to create archive subdir: in/out/" + levels}},
      {dots, {"error: Failed to extract file in/out/" + dots + " from archive."}},
      {up, {"warning: Unaupported file in archive: " + up}},
      {directives, {"error: Failed to extract file in/out/" + directives + " from archive."}},
      // A directory, which exists
      {std::string(kLongest, '/'), {}},
      // The output directory, which no file replaces
      {std::string(kLongest, '\0'), {"error: Failed to extract file in/out from archive."}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name.substr(0, 10));
    extract(ZipMaker().file(row.name, "hostile").file("after.txt", "after").bytes(),
            [&](const Files& listed) {
              EXPECT_EQ(listed, lines("in/out/after.txt"));
              EXPECT_EQ(tmp.read("in/out/after.txt"), "after");
              std::vector<std::string> logged = log.all();
              std::erase_if(logged, [](const std::string& line) {
                return line.starts_with("error: Failed to create dir: ");
              });
              EXPECT_TRUE(logged == row.log) << "lines: " << logged.size();
            });
  }

  extract(ZipMaker().file(repeated("s", ".ksx"), "scene").bytes(), [&](const Files& listed) {
    EXPECT_EQ(listed, lines(tmp.path("in/pack.ksx")));
    EXPECT_EQ(log.all(), lines());
    EXPECT_EQ(tmp.read("in/pack.ksx"), "scene");
  });
}

// ---------------------------------------------------------------------------------------------
// Overlapping entries

/// The archive with its central header number `index` pointing to the local header at `offset`.
std::string pointed(std::string bytes, std::size_t index, std::size_t offset) {
  constexpr std::size_t kOffsetField = 42;
  const std::size_t field = offsetOf(bytes, "PK\1\2", index) + kOffsetField;
  for (std::size_t i = 0; i < 4; ++i) {
    bytes.at(field + i) = static_cast<char>(static_cast<unsigned char>(offset >> (8 * i)));
  }
  return bytes;
}

TEST_F(ReadZip_Hostile, ExtractsEntriesThatShareTheirData) {
  constexpr std::size_t kEntries = 200;
  const std::string zeros(65'535, '\0');
  const std::string data = deflated(zeros);
  ZipMaker zip;
  zip.add({.name = "0", .content = zeros, .method = kDeflated, .data = data});
  for (std::size_t i = 1; i < kEntries; ++i) {
    zip.add({.name = std::to_string(i),
             .content = {},
             .method = kDeflated,
             .crc = crc32Of(zeros),
             .packedSize = static_cast<std::uint32_t>(data.size()),
             .size = static_cast<std::uint32_t>(zeros.size())});
  }
  std::string bytes = zip.bytes();
  for (std::size_t i = 1; i < kEntries; ++i) {
    bytes = pointed(bytes, i, 0);
  }

  extract(bytes, [&](const Files& listed) {
    EXPECT_EQ(log.all(), lines());
    ASSERT_EQ(listed.size(), kEntries);
    for (std::size_t i = 0; i < kEntries; ++i) {
      EXPECT_EQ(listed[i], "in/out/" + std::to_string(i));
      EXPECT_TRUE(tmp.read(listed[i]) == zeros) << listed[i];
    }
  });
}

TEST_F(ReadZip_Hostile, ExtractsAnEntryInsideAnother) {
  const std::string inner = ZipMaker().file("inner.txt", "inner text").bytes();
  const std::string bytes =
      ZipMaker().file("outer.bin", inner).file("inner.txt", "inner text").bytes();

  // The header in the middle is that of the archive inside.
  extract(pointed(bytes, 2, offsetOf(bytes, "PK\3\4", 1)), [&](const Files& listed) {
    EXPECT_EQ(log.all(), lines());
    EXPECT_EQ(listed, lines("in/out/outer.bin", "in/out/inner.txt"));
    EXPECT_EQ(tmp.read("in/out/outer.bin"), inner);
    EXPECT_EQ(tmp.read("in/out/inner.txt"), "inner text");
  });
}

TEST_F(ReadZip_Hostile, RefusesTheHeadersOfOthers) {
  const std::string bytes = ZipMaker().file("a", "one").file("b", "two").bytes();
  const std::size_t second = offsetOf(bytes, "PK\3\4", 1);

  extract(pointed(bytes, 0, offsetOf(bytes, "PK\1\2")), [&](const Files& listed) {
    EXPECT_EQ(log.all(), lines("error: Failed to extract file in/out/a from archive."));
    EXPECT_EQ(listed, lines("in/out/b"));
    EXPECT_EQ(tmp.read("in/out/b"), "two");
  });
  extract(pointed(pointed(bytes, 0, second), 1, 0), [&](const Files& listed) {
    EXPECT_EQ(log.all(), lines("error: Failed to extract file in/out/a from archive.",
                               "error: Failed to extract file in/out/b from archive."));
    EXPECT_EQ(listed, lines());
  });
}

// ---------------------------------------------------------------------------------------------
// Many entries

std::size_t manyEntries() {
  return isSoaking() ? 100'000 : 2'000;
}

TEST_F(ReadZip_Hostile, ExtractsManyEntriesAndRefusesMany) {
  const std::size_t count = manyEntries();
  ZipMaker zip;
  zip.zip64End();
  for (std::size_t i = 0; i < count; ++i) {
    zip.file(std::to_string(i), std::to_string(i)).file("../" + std::to_string(i), "out");
  }

  extract(zip.bytes(), [&](const Files& listed) {
    const std::vector<std::string> logged = log.all();
    ASSERT_EQ(listed.size(), count);
    ASSERT_EQ(logged.size(), count);
    for (std::size_t i = 0; i < count; ++i) {
      const std::string name = std::to_string(i);
      ASSERT_EQ(listed[i], "in/out/" + name);
      ASSERT_EQ(tmp.read(listed[i]), name);
      ASSERT_EQ(logged[i], "warning: Unaupported file in archive: ../" + name);
    }
  });
}

TEST_F(ReadZip_Hostile, ListsManyEntriesOfOneName) {
  const std::size_t count = manyEntries() / 10;  // some disks replace files slowly
  ZipMaker zip;
  for (std::size_t i = 1; i <= count; ++i) {
    zip.file("same", std::to_string(i));
  }

  extract(zip.bytes(), [&](const Files& listed) {
    EXPECT_EQ(log.all(), lines());
    EXPECT_EQ(listed, std::vector<std::string>(count, "in/out/same"));
    EXPECT_EQ(tmp.read("in/out/same"), std::to_string(count));
  });
}

}  // namespace
}  // namespace vx::test
