// The standard I/O wrappers: first the one library call that each makes, replaced at link time,
// then what they do to real files.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/fs/recorded_calls.h"
#include "tests/testing/child.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

template <class... Arguments>
std::string callText(const char* name, const Arguments&... arguments) {
  std::ostringstream text;
  text << name;
  ((text << ' ' << arguments), ...);
  return text.str();
}

/// While it lives, the stream calls are recorded, do nothing, and answer with what is set here.
struct ScriptedStdio {
  ScriptedStdio() { active = this; }
  ScriptedStdio(const ScriptedStdio&) = delete;
  ScriptedStdio& operator=(const ScriptedStdio&) = delete;
  ~ScriptedStdio() { active = nullptr; }

  template <class Result>
  static Result answer(std::string call, Result ScriptedStdio::*result) {
    active->calls.push_back(std::move(call));
    errno = active->error;
    return active->*result;
  }

  static inline ScriptedStdio* active = nullptr;

  FILE* stream = nullptr;
  int status = 0;
  off_t position = 0;
  std::size_t items = 0;
  int error = 0;
  std::vector<std::string> calls;
};

}  // namespace
}  // namespace vx::test

// NOLINTBEGIN(*-reserved-identifier, readability-identifier-naming)
extern "C" {

FILE* __real_fopen(const char* path, const char* mode);
FILE* __real_freopen(const char* path, const char* mode, FILE* stream);
int __real_fclose(FILE* stream);
int __real_fseeko(FILE* stream, off_t offset, int whence);
off_t __real_ftello(FILE* stream);
std::size_t __real_fread(void* buffer, std::size_t size, std::size_t count, FILE* stream);
std::size_t __real_fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream);
int __real_fflush(FILE* stream);

FILE* __wrap_fopen(const char* path, const char* mode) {
  using vx::test::callText, vx::test::ScriptedStdio;
  return ScriptedStdio::active == nullptr
             ? __real_fopen(path, mode)
             : ScriptedStdio::answer(callText("fopen", path, mode), &ScriptedStdio::stream);
}

FILE* __wrap_freopen(const char* path, const char* mode, FILE* stream) {
  using vx::test::callText, vx::test::ScriptedStdio;
  return ScriptedStdio::active == nullptr
             ? __real_freopen(path, mode, stream)
             : ScriptedStdio::answer(callText("freopen", path, mode, stream),
                                     &ScriptedStdio::stream);
}

int __wrap_fclose(FILE* stream) {
  using vx::test::callText, vx::test::ScriptedStdio;
  return ScriptedStdio::active == nullptr
             ? __real_fclose(stream)
             : ScriptedStdio::answer(callText("fclose", stream), &ScriptedStdio::status);
}

int __wrap_fseeko(FILE* stream, off_t offset, int whence) {
  using vx::test::callText, vx::test::ScriptedStdio;
  return ScriptedStdio::active == nullptr
             ? __real_fseeko(stream, offset, whence)
             : ScriptedStdio::answer(callText("fseeko", stream, offset, whence),
                                     &ScriptedStdio::status);
}

off_t __wrap_ftello(FILE* stream) {
  using vx::test::callText, vx::test::ScriptedStdio;
  return ScriptedStdio::active == nullptr
             ? __real_ftello(stream)
             : ScriptedStdio::answer(callText("ftello", stream), &ScriptedStdio::position);
}

std::size_t __wrap_fread(void* buffer, std::size_t size, std::size_t count, FILE* stream) {
  using vx::test::callText, vx::test::ScriptedStdio;
  return ScriptedStdio::active == nullptr
             ? __real_fread(buffer, size, count, stream)
             : ScriptedStdio::answer(callText("fread", buffer, size, count, stream),
                                     &ScriptedStdio::items);
}

std::size_t __wrap_fwrite(const void* buffer, std::size_t size, std::size_t count, FILE* stream) {
  using vx::test::callText, vx::test::ScriptedStdio;
  return ScriptedStdio::active == nullptr
             ? __real_fwrite(buffer, size, count, stream)
             : ScriptedStdio::answer(callText("fwrite", buffer, size, count, stream),
                                     &ScriptedStdio::items);
}

int __wrap_fflush(FILE* stream) {
  using vx::test::callText, vx::test::ScriptedStdio;
  return ScriptedStdio::active == nullptr
             ? __real_fflush(stream)
             : ScriptedStdio::answer(callText("fflush", stream), &ScriptedStdio::status);
}

}  // extern "C"
// NOLINTEND(*-reserved-identifier, readability-identifier-naming)

namespace vx::test {
namespace {

// An `errno` that none of these calls would set by itself: found afterwards, it has been passed on.
constexpr int kErrno = EDOM;

// Streams that scripted calls are given and answer with; nothing is done to them.
FILE* const someStream = stdin;
FILE* const otherStream = stdout;

// ---------------------------------------------------------------------------------------------
// The call and its result

class StdioCall : public SilentFsTest {};

TEST_F(StdioCall, FopenOpensTheTextAsWritten) {
  ScriptedStdio stdio;
  stdio.stream = someStream;
  stdio.error = kErrno;
  errno = 0;

  FILE* const opened = fs::Fopen("./a//..\\b", "rb+");

  EXPECT_EQ(errno, kErrno);
  EXPECT_EQ(opened, someStream);
  EXPECT_EQ(stdio.calls, lines("fopen ./a//..\\b rb+"));
}

TEST_F(StdioCall, FopenPassesTheFailureOn) {
  ScriptedStdio stdio;
  stdio.error = kErrno;
  errno = 0;

  FILE* const opened = fs::Fopen("a", "r");

  EXPECT_EQ(errno, kErrno);
  EXPECT_EQ(opened, nullptr);
  EXPECT_EQ(stdio.calls, lines("fopen a r"));
}

TEST_F(StdioCall, FreopenReopensTheStreamOnTheTextAsWritten) {
  ScriptedStdio stdio;
  stdio.stream = otherStream;
  stdio.error = kErrno;
  errno = 0;

  FILE* const opened = fs::Freopen("./a//b", "w", someStream);

  EXPECT_EQ(errno, kErrno);
  EXPECT_EQ(opened, otherStream);
  EXPECT_EQ(stdio.calls, lines(callText("freopen ./a//b w", someStream)));
}

TEST_F(StdioCall, FreopenPassesTheFailureOn) {
  ScriptedStdio stdio;
  stdio.error = kErrno;
  errno = 0;

  FILE* const opened = fs::Freopen("a", "w", someStream);

  EXPECT_EQ(errno, kErrno);
  EXPECT_EQ(opened, nullptr);
}

TEST_F(StdioCall, FclosePassesItsResultOn) {
  for (const int status : {0, EOF}) {
    ScriptedStdio stdio;
    stdio.status = status;
    stdio.error = kErrno;
    errno = 0;

    const int result = fs::Fclose(someStream);

    EXPECT_EQ(errno, kErrno);
    EXPECT_EQ(result, status);
    EXPECT_EQ(stdio.calls, lines(callText("fclose", someStream)));
  }
}

TEST_F(StdioCall, FremoveTurnsTheResultIntoSuccess) {
  RecordedCalls calls;
  calls.pretend("remove ./a//b");
  calls.fail("remove missing", kErrno);

  EXPECT_TRUE(fs::Fremove("./a//b"));
  errno = 0;
  const bool failed = fs::Fremove("missing");

  EXPECT_EQ(errno, kErrno);
  EXPECT_FALSE(failed);
  EXPECT_EQ(calls.all(), lines("remove ./a//b", "remove missing"));
}

TEST_F(StdioCall, FrenamePassesItsResultOn) {
  RecordedCalls calls;
  calls.pretend("rename ./a//b c/./d");
  calls.fail("rename c missing/d", kErrno);

  EXPECT_EQ(fs::Frename("./a//b", "c/./d"), 0);
  errno = 0;
  const int failed = fs::Frename("c", "missing/d");

  EXPECT_EQ(errno, kErrno);
  EXPECT_EQ(failed, -1);
  EXPECT_EQ(calls.all(), lines("rename ./a//b c/./d", "rename c missing/d"));
}

TEST_F(StdioCall, FseekTakesOffsetsOf64Bits) {
  for (const long long offset :
       {0LL, -5'000'000'000LL, 5'000'000'000LL, std::numeric_limits<long long>::max()}) {
    for (const int whence : {SEEK_SET, SEEK_CUR, SEEK_END}) {
      ScriptedStdio stdio;

      EXPECT_EQ(fs::Fseek(someStream, offset, whence), 0);

      EXPECT_EQ(stdio.calls, lines(callText("fseeko", someStream, offset, whence)));
    }
  }
}

TEST_F(StdioCall, FseekPassesTheFailureOn) {
  ScriptedStdio stdio;
  stdio.status = -1;
  stdio.error = kErrno;
  errno = 0;

  const int result = fs::Fseek(someStream, 1, SEEK_SET);

  EXPECT_EQ(errno, kErrno);
  EXPECT_EQ(result, -1);
}

TEST_F(StdioCall, FtellAnswersPositionsOf64Bits) {
  for (const long long position : {0LL, 6'000'000'000LL, -1LL}) {
    ScriptedStdio stdio;
    stdio.position = position;
    stdio.error = kErrno;
    errno = 0;

    const long long result = fs::Ftell(someStream);

    EXPECT_EQ(errno, kErrno);
    EXPECT_EQ(result, position);
    EXPECT_EQ(stdio.calls, lines(callText("ftello", someStream)));
  }
}

TEST_F(StdioCall, FreadPassesItsArgumentsAndItsResultOn) {
  ScriptedStdio stdio;
  stdio.items = 5;
  stdio.error = kErrno;
  std::array<char, 21> buffer{};
  void* const bytes = buffer.data();
  errno = 0;

  const std::size_t read = fs::Fread(bytes, 3, 7, someStream);

  EXPECT_EQ(errno, kErrno);
  EXPECT_EQ(read, 5U);
  EXPECT_EQ(stdio.calls, lines(callText("fread", bytes, 3, 7, someStream)));
}

TEST_F(StdioCall, FwritePassesItsArgumentsAndItsResultOn) {
  ScriptedStdio stdio;
  stdio.items = 5;
  stdio.error = kErrno;
  const std::array<char, 21> buffer{};
  const void* const bytes = buffer.data();
  errno = 0;

  const std::size_t written = fs::Fwrite(bytes, 3, 7, someStream);

  EXPECT_EQ(errno, kErrno);
  EXPECT_EQ(written, 5U);
  EXPECT_EQ(stdio.calls, lines(callText("fwrite", bytes, 3, 7, someStream)));
}

TEST_F(StdioCall, FflushPassesItsResultOn) {
  FILE* const all = nullptr;
  for (FILE* const stream : {someStream, all}) {
    for (const int status : {0, EOF}) {
      ScriptedStdio stdio;
      stdio.status = status;
      stdio.error = kErrno;
      errno = 0;

      const int result = fs::Fflush(stream);

      EXPECT_EQ(errno, kErrno);
      EXPECT_EQ(result, status);
      EXPECT_EQ(stdio.calls, lines(callText("fflush", stream)));
    }
  }
}

// ---------------------------------------------------------------------------------------------
// Real files

class Stdio : public SilentFsTest {};

TEST_F(Stdio, WritesAndReadsBackBytes) {
  const std::string bytes("line\r\n\0\xff end", 12);
  FILE* const out = fs::Fopen("f", "wb");
  ASSERT_NE(out, nullptr);
  EXPECT_EQ(fs::Fwrite(bytes.data(), 1, bytes.size(), out), bytes.size());
  EXPECT_EQ(fs::Fclose(out), 0);

  FILE* const in = fs::Fopen("f", "rb");
  ASSERT_NE(in, nullptr);
  std::string read(bytes.size() + 1, '?');
  read.resize(fs::Fread(read.data(), 1, read.size(), in));
  EXPECT_EQ(fs::Fclose(in), 0);

  EXPECT_EQ(read, bytes);
}

TEST_F(Stdio, FopenOfAMissingFileIsNull) {
  errno = 0;

  FILE* const opened = fs::Fopen("missing", "r");

  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(opened, nullptr);
}

TEST_F(Stdio, FreopenMovesTheStreamToAnotherFile) {
  FILE* const stream = fs::Fopen("a", "w");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fs::Fwrite("1", 1, 1, stream), 1U);

  EXPECT_EQ(fs::Freopen("b", "w", stream), stream);

  EXPECT_EQ(fs::Fwrite("2", 1, 1, stream), 1U);
  EXPECT_EQ(fs::Fclose(stream), 0);
  EXPECT_EQ(tmp.read("a"), "1");
  EXPECT_EQ(tmp.read("b"), "2");
}

TEST_F(Stdio, FreopenThatFailsClosesTheStream) {
  runInChild([] {
    // A stream that needs no memory, which a failure would leave to nobody.
    const int descriptor = ::fileno(stdin);
    ASSERT_EQ(::dup2(::open("/dev/null", O_RDONLY), descriptor), descriptor);

    EXPECT_EQ(fs::Freopen("missing/b", "r", stdin), nullptr);

    EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
  });
}

TEST_F(Stdio, FcloseReportsBytesThatCouldNotBeWrittenAndClosesAllTheSame) {
  FILE* const stream = fs::Fopen("/dev/full", "w");
  ASSERT_NE(stream, nullptr);
  const int descriptor = ::fileno(stream);
  EXPECT_EQ(fs::Fwrite("x", 1, 1, stream), 1U);
  errno = 0;

  const int result = fs::Fclose(stream);

  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(result, EOF);
  EXPECT_EQ(::fcntl(descriptor, F_GETFD), -1);
}

TEST_F(Stdio, FflushWritesOutWhatIsBuffered) {
  FILE* const stream = fs::Fopen("f", "w");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fs::Fwrite("text", 1, 4, stream), 4U);
  EXPECT_EQ(tmp.read("f"), "");

  EXPECT_EQ(fs::Fflush(stream), 0);

  EXPECT_EQ(tmp.read("f"), "text");
  EXPECT_EQ(fs::Fclose(stream), 0);
}

TEST_F(Stdio, FflushOfNullWritesOutAllStreams) {
  FILE* const a = fs::Fopen("a", "w");
  FILE* const b = fs::Fopen("b", "w");
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_EQ(fs::Fwrite("1", 1, 1, a), 1U);
  EXPECT_EQ(fs::Fwrite("2", 1, 1, b), 1U);

  EXPECT_EQ(fs::Fflush(nullptr), 0);

  EXPECT_EQ(tmp.read("a"), "1");
  EXPECT_EQ(tmp.read("b"), "2");
  EXPECT_EQ(fs::Fclose(a), 0);
  EXPECT_EQ(fs::Fclose(b), 0);
}

TEST_F(Stdio, FflushReportsBytesThatCouldNotBeWritten) {
  FILE* const stream = fs::Fopen("/dev/full", "w");
  ASSERT_NE(stream, nullptr);
  EXPECT_EQ(fs::Fwrite("x", 1, 1, stream), 1U);
  errno = 0;

  const int result = fs::Fflush(stream);

  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(result, EOF);
  (void)fs::Fclose(stream);
}

TEST_F(Stdio, FreadCountsWholeItems) {
  tmp.write("f", "0123456789");
  FILE* const stream = fs::Fopen("f", "r");
  ASSERT_NE(stream, nullptr);
  std::array<char, 12> buffer{};

  EXPECT_EQ(fs::Fread(buffer.data(), 4, 3, stream), 2U);

  EXPECT_EQ(fs::Fclose(stream), 0);
}

TEST_F(Stdio, FwriteToAStreamForReadingWritesNothing) {
  tmp.write("f", "text");
  FILE* const stream = fs::Fopen("f", "r");
  ASSERT_NE(stream, nullptr);

  EXPECT_EQ(fs::Fwrite("ab", 1, 2, stream), 0U);

  EXPECT_EQ(fs::Fclose(stream), 0);
  EXPECT_EQ(tmp.read("f"), "text");
}

TEST_F(Stdio, RenamedFileIsGoneUnderItsOldName) {
  tmp.write("old", "text");

  EXPECT_EQ(fs::Frename("old", "new"), 0);
  EXPECT_FALSE(fs::Fremove("old"));

  EXPECT_EQ(tmp.read("new"), "text");
  EXPECT_TRUE(fs::Fremove("new"));
  EXPECT_EQ(tmp.entries(), lines());
}

TEST_F(Stdio, FrenameReplacesWhatIsThere) {
  tmp.write("from", "new");
  tmp.write("to", "old");

  EXPECT_EQ(fs::Frename("from", "to"), 0);

  EXPECT_EQ(tmp.entries(), lines("to"));
  EXPECT_EQ(tmp.read("to"), "new");
}

TEST_F(Stdio, FrenameOfAMissingFileIsMinusOne) {
  errno = 0;

  const int result = fs::Frename("missing", "to");

  EXPECT_EQ(errno, ENOENT);
  EXPECT_EQ(result, -1);
}

TEST_F(Stdio, FremoveRemovesAnEmptyDirectoryButNoOther) {
  tmp.mkdir("empty");
  tmp.write("full/f", "text");

  EXPECT_TRUE(fs::Fremove("empty"));
  EXPECT_FALSE(fs::Fremove("full"));

  EXPECT_EQ(tmp.entries(), lines("full/", "full/f"));
}

TEST_F(Stdio, OffsetsGoBeyondFourGibibytes) {
  constexpr long long kGibibyte = 1LL << 30;
  FILE* const stream = fs::Fopen("sparse", "w+b");
  ASSERT_NE(stream, nullptr);
  for (const long long offset : {3 * kGibibyte, 5 * kGibibyte}) {
    EXPECT_EQ(fs::Fseek(stream, offset, SEEK_SET), 0);
    EXPECT_EQ(fs::Fwrite("x", 1, 1, stream), 1U);
    EXPECT_EQ(fs::Ftell(stream), offset + 1);
  }

  EXPECT_EQ(fs::Fseek(stream, 0, SEEK_END), 0);
  EXPECT_EQ(fs::Ftell(stream), 5 * kGibibyte + 1);
  EXPECT_EQ(fs::Fseek(stream, -2 * kGibibyte - 1, SEEK_CUR), 0);
  char byte = '?';
  EXPECT_EQ(fs::Fread(&byte, 1, 1, stream), 1U);

  EXPECT_EQ(byte, 'x');
  EXPECT_EQ(fs::Ftell(stream), 3 * kGibibyte + 1);
  EXPECT_EQ(fs::Fclose(stream), 0);
  struct stat status {};
  ASSERT_EQ(::stat("sparse", &status), 0);
  EXPECT_EQ(status.st_size, 5 * kGibibyte + 1);
}

TEST_F(Stdio, PositionOfAPipeCannotBeHad) {
  std::array<int, 2> ends{};
  ASSERT_EQ(::pipe(ends.data()), 0);
  FILE* const stream = ::fdopen(ends[0], "r");
  ASSERT_NE(stream, nullptr);
  errno = 0;

  const long long position = fs::Ftell(stream);

  EXPECT_EQ(errno, ESPIPE);
  EXPECT_EQ(position, -1);
  EXPECT_EQ(fs::Fseek(stream, 0, SEEK_SET), -1);
  EXPECT_EQ(fs::Fclose(stream), 0);
  ::close(ends[1]);
}

}  // namespace
}  // namespace vx::test
