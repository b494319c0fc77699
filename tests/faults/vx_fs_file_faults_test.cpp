// The stdio family, the status queries, copyFile and moveFile with each of their calls failing
// once.

#include "fs/vx_fs.h"
#include "tests/faults/scenario.h"

#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <utility>
#include <vector>

namespace vx::test {
namespace {

/// A stream that is opened on the file "f" before the watch begins and closed after it has ended.
class Stream {
 public:
  Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;
  ~Stream() { close(); }

  std::function<void(const TempDir&)> arrange() {
    return
        [this](const TempDir& tmp) { file_ = std::fopen(tmp.write("f", "text").c_str(), "r+b"); };
  }

  /// Calls `use`, whose result is shown with the error that it leaves.
  template <class Use>
  ScenarioCall calling(Use use) {
    return [this, use](CallWatch& watch) {
      errno = 0;
      const auto result = use(file_);
      const int code = errno;
      watch.stop();
      close();
      return shown(static_cast<long long>(result)) + ", errno " + std::to_string(code);
    };
  }

  /// As above for a call that closes the stream, whatever its result.
  template <class Use>
  ScenarioCall closing(Use use) {
    return calling([this, use](FILE* file) {
      file_ = nullptr;
      return use(file);
    });
  }

 private:
  void close() {
    if (file_ != nullptr) {
      std::fclose(file_);
      file_ = nullptr;
    }
  }

  FILE* file_ = nullptr;
};

Rule failure(std::string call, const std::string& result) {
  return {std::move(call), {.result = result + ", errno {code}", .disk = {"f: text"}}};
}

/// Shows whether a stream came of it, and the error that was left.
ScenarioCall opening(std::function<FILE*()> open) {
  return [open](CallWatch& watch) {
    errno = 0;
    FILE* const file = open();
    const int code = errno;
    watch.stop();
    if (file != nullptr) {
      std::fclose(file);
      return std::string("a stream");
    }
    return "null, errno " + std::to_string(code);
  };
}

// ---- Standard I/O: the library call's result and its errno, and nothing else -------------------

TEST(FailingCalls, Fopen) {
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.write("f", "text"); },
      .call = opening([] { return fs::Fopen("f", "rb"); }),
      .clean = {.result = "a stream", .disk = {"f: text"}},
      .rules = {failure("fopen f", "null")},
      .calls = {"fopen f"},
  });
}

TEST(FailingCalls, Freopen) {
  FILE* before = nullptr;
  checkEveryFailure({
      .arrange =
          [&](const TempDir& tmp) { before = std::fopen(tmp.write("f", "text").c_str(), "rb"); },
      .call = opening([&] { return fs::Freopen("f", "rb", before); }),
      .clean = {.result = "a stream", .disk = {"f: text"}},
      .rules = {failure("freopen f", "null")},
      .calls = {"freopen f"},
  });
}

TEST(FailingCalls, Fclose) {
  Stream stream;
  checkEveryFailure({
      .arrange = stream.arrange(),
      .call = stream.closing([](FILE* file) { return fs::Fclose(file); }),
      .clean = {.result = "0, errno 0", .disk = {"f: text"}},
      .rules = {failure("fclose", "-1")},
      .calls = {"fclose"},
  });
}

TEST(FailingCalls, Fseek) {
  Stream stream;
  checkEveryFailure({
      .arrange = stream.arrange(),
      .call = stream.calling([](FILE* file) { return fs::Fseek(file, 1, SEEK_SET); }),
      .clean = {.result = "0, errno 0", .disk = {"f: text"}},
      .rules = {failure("fseeko", "-1")},
      .calls = {"fseeko"},
  });
}

TEST(FailingCalls, Ftell) {
  Stream stream;
  checkEveryFailure({
      .arrange = stream.arrange(),
      .call = stream.calling([](FILE* file) { return fs::Ftell(file); }),
      .clean = {.result = "0, errno 0", .disk = {"f: text"}},
      .rules = {failure("ftello", "-1")},
      .calls = {"ftello"},
  });
}

TEST(FailingCalls, Fread) {
  Stream stream;
  std::array<char, 8> buffer{};
  checkEveryFailure({
      .arrange = stream.arrange(),
      .call = stream.calling([&](FILE* file) { return fs::Fread(buffer.data(), 2, 2, file); }),
      .clean = {.result = "2, errno 0", .disk = {"f: text"}},
      .rules = {failure("fread", "0")},
      .calls = {"fread"},
  });
}

TEST(FailingCalls, Fwrite) {
  Stream stream;
  checkEveryFailure({
      .arrange = stream.arrange(),
      .call = stream.calling([](FILE* file) { return fs::Fwrite("TE", 1, 2, file); }),
      .clean = {.result = "2, errno 0", .disk = {"f: TExt"}},
      .rules = {failure("fwrite", "0")},
      .calls = {"fwrite"},
  });
}

TEST(FailingCalls, Fflush) {
  Stream stream;
  checkEveryFailure({
      .arrange = stream.arrange(),
      .call = stream.calling([](FILE* file) { return fs::Fflush(file); }),
      .clean = {.result = "0, errno 0", .disk = {"f: text"}},
      .rules = {failure("fflush", "-1")},
      .calls = {"fflush"},
  });
}

TEST(FailingCalls, Fremove) {
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.write("f", "text"); },
      .call = calling([] { return fs::Fremove("f"); }),
      .clean = {.result = "true"},
      .rules = {{"remove f", {.result = "false", .disk = {"f: text"}}}},
      .calls = {"remove f"},
  });
}

TEST(FailingCalls, Frename) {
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.write("f", "text"); },
      .call = calling([] { return static_cast<long long>(fs::Frename("f", "g")); }),
      .clean = {.result = "0", .disk = {"g: text"}},
      .rules = {{"rename f g", {.result = "-1", .disk = {"f: text"}}}},
      .calls = {"rename f g"},
  });
}

// ---- Status queries: what cannot be examined does not exist ------------------------------------

TEST(FailingCalls, IsDir) {
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.mkdir("d"); },
      .call = calling([] { return fs::isDir("d/"); }),
      .clean = {.result = "true", .disk = {"d/"}},
      .rules = {{"stat d", {.result = "false", .disk = {"d/"}}}},
      .calls = {"stat d"},
  });
}

TEST(FailingCalls, IsFile) {
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.write("f", "text"); },
      .call = calling([] { return fs::isFile("./f"); }),
      .clean = {.result = "true", .disk = {"f: text"}},
      .rules = {{"stat f", {.result = "false", .disk = {"f: text"}}}},
      .calls = {"stat f"},
  });
}

TEST(FailingCalls, ExistsOfADirectory) {
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.mkdir("d"); },
      .call = calling([] { return fs::exists("d"); }),
      .clean = {.result = "true", .disk = {"d/"}},
      // The second query finds a directory, which is no file.
      .rules = {{"stat d", {.result = "false", .disk = {"d/"}}}},
      .calls = {"stat d"},
  });
}

TEST(FailingCalls, ExistsOfAFile) {
  const Outcome clean = {.result = "true", .disk = {"f: text"}};
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.write("f", "text"); },
      .call = calling([] { return fs::exists("f"); }),
      .clean = clean,
      .rules = {{"stat f#1", clean}, {"stat f#2", {.result = "false", .disk = {"f: text"}}}},
      .calls = {"stat f", "stat f"},
  });
}

// ---- Copy and move -----------------------------------------------------------------------------

/// The calls by which the file streams of the C++ library copy, which are its own choice. The state
/// of the streams is not looked at: what was copied until a call failed stays, with true.
std::vector<Rule> rulesOfFileStreams(const std::string& source, const Outcome& clean) {
  const Outcome nothing = {.result = "true", .disk = {"dst: ", source}};
  const Outcome cutShort = {.result = "true", .disk = {"dst: *", source}};
#ifdef _LIBCPP_VERSION
  return {
      {"fopen src", nothing},
      {"fopen dst", {.result = "false", .disk = {source}}},
      {"fread*", cutShort},
      {"fwrite*", cutShort},
      // As the streams are closed: the last bytes then go with the closing itself.
      {"fflush", clean},
      {"fseeko", clean},
  };
#else
  const std::vector<int> final = allCodesBut({EINTR});
  return {
      {"fopen64 src", nothing},
      {"fopen64 dst", {.result = "false", .disk = {source}}},
      // Taken up again where a signal has interrupted it.
      {"read*", clean, {EINTR}},
      {"read*", cutShort, final},
      {"write*", clean, {EINTR}},
      {"write*", cutShort, final},
  };
#endif
}

TEST(FailingCalls, CopyFile) {
  const std::string source = "src: 140000";
  const Outcome clean = {.result = "true", .disk = {"dst: 140000", source}};
  std::vector<Rule> rules = {
      {"stat src", {.result = "false", .disk = {"dst: old", source}}},
      // Opening the destination empties it in place of the removal.
      {"stat dst#1", clean},
      {"remove dst",
       {.result = "false",
        .log = {"error: File copy failed, could not delete destination file: dst"},
        .disk = {"dst: old", source}}},
      {"fclose", clean},
      // The copy is there, but it cannot be seen.
      {"stat dst#2", {.result = "false", .disk = clean.disk}},
  };
  for (Rule& rule : rulesOfFileStreams(source, clean)) {
    rules.push_back(std::move(rule));
  }
  checkEveryFailure({
      .arrange =
          [](const TempDir& tmp) {
            tmp.write("src", sequence(140000));
            tmp.write("dst", "old");
          },
      .call = calling([] { return fs::copyFile("src", "dst"); }),
      .clean = clean,
      .rules = std::move(rules),
  });
}

TEST(FailingCalls, CopyFileOntoItself) {
  const std::vector<std::string> warning = {"warning: Cannot copy 'f' to itself."};
  checkEveryFailure({
      .arrange = [](const TempDir& tmp) { tmp.write("F", "text"); },
      .call = calling([] { return fs::copyFile("f", "F"); }),
      .clean = {.result = "true", .log = warning, .disk = {"F: text"}},
      .rules = {{"stat F", {.result = "false", .log = warning, .disk = {"F: text"}}}},
      .calls = {"stat F"},
  });
}

constexpr const char* kOldFile = "dst.txt: old";
constexpr const char* kNewFile = "dst.txt: new";
constexpr const char* kSource = "src: new";
constexpr const char* kStaleBackup = "dst.bak: stale";
constexpr const char* kBackup = "dst.bak: old";

void arrangeMove(const TempDir& tmp) {
  tmp.write("src", "new");
  tmp.write("dst.txt", "old");
  tmp.write("dst.bak", "stale");
}

TEST(FailingCalls, MoveFile) {
  const Outcome clean = {.result = "true", .disk = {kNewFile}};
  checkEveryFailure({
      .arrange = arrangeMove,
      .call = calling([] { return fs::moveFile("src", "dst.txt"); }),
      .clean = clean,
      .rules =
          {
              {"stat src", {.result = "false", .disk = {kStaleBackup, kOldFile, kSource}}},
              // The old file then replaces what bears the backup's name.
              {"remove dst.bak#1", clean},
              // The source then replaces the old file.
              {"rename dst.txt dst.bak", clean},
              {"rename src dst.txt", {.result = "false", .disk = {kOldFile, kSource}}},
              {"remove dst.bak#2", {.result = "true", .disk = {kBackup, kNewFile}}},
          },
      .calls = {"stat src", "remove dst.bak", "rename dst.txt dst.bak", "rename src dst.txt",
                "remove dst.bak"},
  });
}

TEST(FailingCalls, MoveFileThatCannotBeDone) {
  const Outcome clean = {.result = "false", .disk = {kOldFile, kSource}};
  checkEveryFailure({
      .arrange = arrangeMove,
      .call = calling([] { return fs::moveFile("src", "dst.txt"); }),
      .clean = clean,
      .rules =
          {
              {"stat src", {.result = "false", .disk = {kStaleBackup, kOldFile, kSource}}},
              {"remove dst.bak", clean},
              // Then what is renamed back is the backup of nothing: it is missing.
              {"rename dst.txt dst.bak", clean},
              {"rename dst.bak dst.txt", {.result = "false", .disk = {kBackup, kSource}}},
          },
      .always = {"rename src dst.txt"},
      .calls = {"stat src", "remove dst.bak", "rename dst.txt dst.bak", "rename dst.bak dst.txt"},
  });
}

}  // namespace
}  // namespace vx::test
