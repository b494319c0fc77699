// SPDX-License-Identifier: MIT
//
// The standard I/O wrappers, isDir, isFile and exists. None of them ever reports anything.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/child.h"
#include "tests/testing/failures.h"
#include "tests/testing/unobserved.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <stdexcept>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

// ---------------------------------------------------------------------------------------------
// Standard I/O

class StdioTest : public SilentFsTest {
 protected:
  /// Opens a stream without recording a call.
  FILE* opened(const std::string& path, const char* mode) {
    const Unobserved unobserved;
    FILE* const stream = std::fopen(tmp.path(path).c_str(), mode);
    if (stream == nullptr) {
      throw std::runtime_error("cannot open " + path);
    }
    return stream;
  }

  /// Expects `function` to make only this library call and to return its failure and its `errno`.
  template <class Result, class Function>
  static void expectFailure(const std::string& call, Result failure, Function function) {
    for (const int error : {EDOM, EINTR, EIO}) {
      Calls calls;
      calls.fail(call, error);
      errno = 0;

      const Result result = function();
      const int errorAfter = errno;

      EXPECT_EQ(result, failure);
      EXPECT_EQ(errorAfter, error);
      EXPECT_EQ(calls.all(), lines(call));
    }
  }
};

using Fopen = StdioTest;

TEST_F(Fopen, OpensThePathAsWritten) {
  tmp.write("d/f\\", "text");
  Calls calls;

  FILE* const stream = fs::Fopen("./d//f\\", "rb+");

  EXPECT_EQ(calls.all(), lines("fopen ./d//f\\ rb+"));
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(std::fgetc(stream), 't');
  EXPECT_EQ(std::fclose(stream), 0);
}

TEST_F(Fopen, ReturnsNullOnFailure) {
  FILE* const none = nullptr;

  expectFailure("fopen f r", none, [] { return fs::Fopen("f", "r"); });
}

using Freopen = StdioTest;

TEST_F(Freopen, MovesTheStreamToThePathAsWritten) {
  FILE* const stream = opened("a", "w");
  std::fputs("1", stream);
  Calls calls;

  EXPECT_EQ(fs::Freopen(".//b", "wb", stream), stream);

  EXPECT_EQ(calls.all(), lines("freopen .//b wb"));
  std::fputs("2", stream);
  EXPECT_EQ(std::fclose(stream), 0);
  EXPECT_EQ(tmp.read("a"), "1");
  EXPECT_EQ(tmp.read("b"), "2");
}

TEST_F(Freopen, ClosesTheStreamOnFailure) {
  runInChild([] {
    // A stream that needs no memory, since a failure does not release any.
    const int descriptor = ::fileno(stdin);
    ASSERT_EQ(::dup2(::open("/dev/null", O_RDONLY), descriptor), descriptor);

    EXPECT_EQ(fs::Freopen("missing/b", "r", stdin), nullptr);

    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
  });
}

TEST_F(Freopen, ReturnsNullOnFailure) {
  FILE* const none = nullptr;

  expectFailure("freopen f r", none, [&] { return fs::Freopen("f", "r", opened("old", "w")); });
}

using Fclose = StdioTest;

TEST_F(Fclose, WritesWhatIsBuffered) {
  FILE* const stream = opened("f", "w");
  const int descriptor = ::fileno(stream);
  std::fputs("text", stream);
  Calls calls;

  EXPECT_EQ(fs::Fclose(stream), 0);

  EXPECT_EQ(calls.all(), lines("fclose"));
  EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
  EXPECT_EQ(tmp.read("f"), "text");
}

TEST_F(Fclose, ReturnsEofOnFailure) {
  expectFailure("fclose", EOF, [&] { return fs::Fclose(opened("f", "w")); });
}

using Fremove = StdioTest;

TEST_F(Fremove, RemovesThePathAsWritten) {
  tmp.write("f", "text");
  tmp.mkdir("empty");
  Calls calls;

  EXPECT_TRUE(fs::Fremove(".//f"));
  EXPECT_TRUE(fs::Fremove("empty"));

  EXPECT_EQ(calls.all(), lines("remove .//f", "remove empty"));
  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(Fremove, ReturnsFalseOnFailure) {
  expectFailure("remove f", false, [] { return fs::Fremove("f"); });
}

using Frename = StdioTest;

TEST_F(Frename, ReturnsZeroOnSuccess) {
  tmp.write("from", "new");
  tmp.write("to", "old");
  Calls calls;

  EXPECT_EQ(fs::Frename("./from", ".//to"), 0);
  EXPECT_FALSE(fs::Fremove("from"));

  EXPECT_EQ(calls.all(), lines("rename ./from .//to", "remove from"));
  EXPECT_EQ(tmp.entries(), lines("to"));
  EXPECT_EQ(tmp.read("to"), "new");
}

TEST_F(Frename, ReturnsMinusOneOnFailure) {
  expectFailure("rename from to", -1, [] { return fs::Frename("from", "to"); });
}

using Fseek = StdioTest;

TEST_F(Fseek, GoesBeyondFourGibibytes) {
  constexpr long long kSize = 5LL << 30;
  tmp.write("f", "");
  std::filesystem::resize_file("f", kSize);
  FILE* const stream = opened("f", "r");

  EXPECT_EQ(fs::Fseek(stream, 3LL << 30, SEEK_SET), 0);
  EXPECT_EQ(fs::Ftell(stream), 3LL << 30);
  EXPECT_EQ(fs::Fseek(stream, -1, SEEK_END), 0);
  EXPECT_EQ(fs::Ftell(stream), kSize - 1);
  EXPECT_EQ(std::fgetc(stream), '\0');
  std::fclose(stream);
}

TEST_F(Fseek, TakesOffsetsOf64Bits) {
  FILE* const stream = opened("f", "w");
  for (const long long offset :
       {0LL, -5'000'000'000LL, 5'000'000'000LL, std::numeric_limits<long long>::max()}) {
    for (const int whence : {SEEK_SET, SEEK_CUR, SEEK_END}) {
      Calls calls;
      calls.succeed("fseeko");

      EXPECT_EQ(fs::Fseek(stream, offset, whence), 0);

      EXPECT_EQ(calls.all(),
                lines("fseeko " + std::to_string(offset) + " " + std::to_string(whence)));
    }
  }
  std::fclose(stream);
}

TEST_F(Fseek, ReturnsMinusOneOnFailure) {
  FILE* const stream = opened("f", "w");

  expectFailure("fseeko 1 0", -1, [&] { return fs::Fseek(stream, 1, SEEK_SET); });

  std::fclose(stream);
}

using Ftell = StdioTest;

TEST_F(Ftell, ReturnsPositionsOf64Bits) {
  FILE* const stream = opened("f", "w");
  for (const long long position : {0LL, 6'000'000'000LL}) {
    Calls calls;
    calls.answer("ftello", position);

    EXPECT_EQ(fs::Ftell(stream), position);

    EXPECT_EQ(calls.all(), lines("ftello"));
  }
  std::fclose(stream);
}

TEST_F(Ftell, ReturnsMinusOneOnFailure) {
  FILE* const stream = opened("f", "w");

  expectFailure("ftello", -1LL, [&] { return fs::Ftell(stream); });

  std::fclose(stream);
}

using Fread = StdioTest;

TEST_F(Fread, CountsWholeItems) {
  tmp.write("f", std::string("01\0\xff\r\n6789", 10));
  FILE* const stream = opened("f", "r");
  std::array<char, 12> buffer{};
  Calls calls;

  EXPECT_EQ(fs::Fread(buffer.data(), 4, 3, stream), 2U);

  EXPECT_EQ(calls.all(), lines("fread 4 3"));
  EXPECT_EQ(std::string(buffer.data(), 8), std::string("01\0\xff\r\n67", 8));
  std::fclose(stream);
}

TEST_F(Fread, ReturnsZeroOnFailure) {
  FILE* const stream = opened("f", "w+");
  std::array<char, 21> buffer{};

  expectFailure("fread 3 7", std::size_t{0},
                [&] { return fs::Fread(buffer.data(), 3, 7, stream); });

  std::fclose(stream);
}

using Fwrite = StdioTest;

TEST_F(Fwrite, CountsWholeItems) {
  const std::string bytes("01\0\xff\r\n", 6);
  FILE* const stream = opened("f", "w");
  Calls calls;

  EXPECT_EQ(fs::Fwrite(bytes.data(), 3, 2, stream), 2U);

  EXPECT_EQ(calls.all(), lines("fwrite 3 2"));
  std::fclose(stream);
  EXPECT_EQ(tmp.read("f"), bytes);
}

TEST_F(Fwrite, ReturnsTheItemsBeforeAFailure) {
  FILE* const stream = opened("f", "w");
  expectFailure("fwrite 1 2", std::size_t{0}, [&] { return fs::Fwrite("ab", 1, 2, stream); });
  Calls calls;
  calls.answer("fwrite", 1);

  EXPECT_EQ(fs::Fwrite("ab", 1, 2, stream), 1U);

  std::fclose(stream);
}

using Fflush = StdioTest;

TEST_F(Fflush, WritesWhatIsBuffered) {
  FILE* const stream = opened("f", "w");
  FILE* const other = opened("g", "w");
  std::fputs("text", stream);
  std::fputs("text", other);
  Calls calls;

  EXPECT_EQ(fs::Fflush(stream), 0);

  EXPECT_EQ(calls.all(), lines("fflush"));
  EXPECT_EQ(tmp.read("f"), "text");
  EXPECT_EQ(tmp.read("g"), "");
  EXPECT_EQ(fs::Fflush(nullptr), 0);  // all streams
  EXPECT_EQ(tmp.read("g"), "text");
  std::fclose(stream);
  std::fclose(other);
}

TEST_F(Fflush, ReturnsEofOnFailure) {
  FILE* const stream = opened("f", "w");

  expectFailure("fflush", EOF, [&] { return fs::Fflush(stream); });

  std::fclose(stream);
}

// ---------------------------------------------------------------------------------------------
// isDir, isFile and exists

enum class Kind { None, Directory, File };

/// Returns what the three queries say together. Fails if they contradict each other.
Kind kindOf(const std::string& path) {
  const bool isDir = fs::isDir(vxText(path));
  const bool isFile = fs::isFile(vxText(path));
  EXPECT_FALSE(isDir && isFile) << path;
  EXPECT_EQ(fs::exists(vxText(path)), isDir || isFile) << path;
  if (isDir) {
    return Kind::Directory;
  }
  return isFile ? Kind::File : Kind::None;
}

using StatusQueries = SilentFsTest;

TEST_F(StatusQueries, FollowLinksAndTakeTheNormalForm) {
  struct Row {
    std::string path;
    Kind kind;
  };
  createOneOfEachKind(tmp);
  tmp.mkdir("far/away");
  tmp.link("link", "far/away");
  tmp.write("dir/f", "text");
  const Row rows[] = {
      {"", Kind::None},
      {"dir", Kind::Directory},
      {tmp.path("dir"), Kind::Directory},
      {".", Kind::Directory},
      {"..", Kind::Directory},
      {"/", Kind::Directory},
      {"link-to-dir", Kind::Directory},
      {"socket", Kind::Directory},
      {"file", Kind::File},
      {tmp.path("file"), Kind::File},
      {"link-to-file", Kind::File},
      {"fifo", Kind::File},
      {"/dev/null", Kind::File},
      {"missing", Kind::None},
      {"missing/x", Kind::None},
      {"file/x", Kind::None},
      {"dangling", Kind::None},
      {"loop", Kind::None},
      {"loop/x", Kind::None},
      {std::string(300, 'n'), Kind::None},
      {std::string(5000, 'n'), Kind::None},
      {"dir/", Kind::Directory},
      {"./dir//.", Kind::Directory},
      {"file/", Kind::File},
      {"file/..", Kind::Directory},
      {"dir/./f", Kind::File},
      {"missing/../dir/f", Kind::File},
      // The parent directory of a link is the one that the link is in.
      {"link/../file", Kind::File},
      {"dir\\f", Kind::None},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(kindOf(row.path), row.kind) << row.path;
  }
}

TEST_F(StatusQueries, TestTheDirectoryBitAlone) {
  struct Row {
    mode_t type;
    Kind kind;
  };
  constexpr Row kRows[] = {
      {S_IFDIR, Kind::Directory},  {S_IFBLK, Kind::Directory},
      {S_IFSOCK, Kind::Directory}, {S_IFREG, Kind::File},
      {S_IFCHR, Kind::File},       {S_IFIFO, Kind::File},
      {S_IFLNK, Kind::File},       {0, Kind::File},
  };
  for (const Row& row : kRows) {
    for (const mode_t permissions : {0U, 0644U, 07777U}) {
      Calls calls;
      calls.answer("stat entry", row.type | permissions);

      EXPECT_EQ(kindOf("entry"), row.kind) << std::oct << (row.type | permissions);
    }
  }
}

TEST_F(StatusQueries, FindAFileBeyondFourGibibytes) {
  std::filesystem::resize_file(tmp.write("f", ""), 5LL << 30);

  EXPECT_EQ(kindOf("f"), Kind::File);
}

using Exists = SilentFsTest;

TEST_F(Exists, MakesASecondCallUnlessItFindsADirectory) {
  tmp.mkdir("d");
  tmp.write("f", "text");
  Calls calls;

  EXPECT_TRUE(fs::exists(".//d/"));
  EXPECT_TRUE(fs::exists(".//f/"));
  EXPECT_FALSE(fs::exists("./a b\n\\\xff"));
  EXPECT_FALSE(fs::exists(""));

  EXPECT_EQ(calls.all(),
            lines("stat d", "stat f", "stat f", "stat a b\n\\\xff", "stat a b\n\\\xff"));
}

TEST_F(Exists, FindsNoFileIfItsSecondCallFails) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("f", "text");

    const bool exists = run.act([] { return fs::exists("f"); });

    EXPECT_EQ(exists, !run.failed("stat f", 2));
    run.expectSilence();
  });
}

}  // namespace
}  // namespace vx::test
