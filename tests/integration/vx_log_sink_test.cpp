// SPDX-License-Identifier: MIT
//
// Operations whose lines go to a sink that uses this library itself, or that throws.

#include "core/vx_error.h"
#include "core/vx_log.h"
#include "fs/vx_fs.h"
#include "tests/testing/archives.h"
#include "tests/testing/child.h"
#include "tests/testing/error_state.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/temp_dir.h"
#include "tests/testing/texts.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <stdexcept>
#include <string>

#include <unistd.h>

namespace vx::test {
namespace {

class LogSinkOfAnApplication : public testing::Test {
 protected:
  ~LogSinkOfAnApplication() override { setLogSink(LogSink()); }

  void SetUp() override { os::clearCurrentError(); }
};

int lowestFreeDescriptor() {
  const int descriptor = ::dup(STDIN_FILENO);
  ::close(descriptor);
  return descriptor;
}

TEST_F(LogSinkOfAnApplication, KeepsTheErrorIfTheSinkCreatesADirectory) {
  const TempDir tmp;
  tmp.write("full/file", "text");
  const String logs(tmp.path("logs"));
  bool isCreated = false;
  setLogSink([&](LogLevel, String) { isCreated = fs::mkDir(logs); });

  EXPECT_FALSE(fs::rmDir(String(tmp.path("full"))));

  EXPECT_TRUE(isCreated);
  EXPECT_TRUE(currentErrorIs(ENOTEMPTY, "rmDir", errnoText(ENOTEMPTY)));
}

TEST_F(LogSinkOfAnApplication, IsNotCalledForItsOwnFailures) {
  runInChild([] {
    const TempDir tmp;
    const String blocked(tmp.write("file", "text") + "/logs");
    int calls = 0;
    setLogSink([&](LogLevel, String) {
      ++calls;
      EXPECT_FALSE(fs::mkDir(blocked));
    });
    ::close(STDERR_FILENO);

    EXPECT_FALSE(fs::mkDir(blocked));

    EXPECT_EQ(calls, 1);
  });
}

TEST_F(LogSinkOfAnApplication, StopsNoArchiveByThrowing) {
  const TempDir tmp;
  const std::string archive =
      tmp.write("in.zip", ZipMaker()
                              .add({.name = "bad.txt", .content = "x", .method = kBzip2})
                              .file("good.txt", "text")
                              .bytes());
  const String written(tmp.path("out.zip"));
  int calls = 0;
  setLogSink([&](LogLevel, String) {
    ++calls;
    throw std::runtime_error("disk full");
  });
  const int descriptorBefore = lowestFreeDescriptor();

  StringVector files = fs::readZip(String(archive), String(tmp.path("out")), nullptr);
  EXPECT_EQ(texts(files), lines(tmp.path("out/good.txt")));
  EXPECT_EQ(tmp.read("out/good.txt"), "text");
  files.push_back(String(tmp.path("missing.txt")));
  EXPECT_TRUE(fs::writeZip(written, files, nullptr));

  EXPECT_EQ(calls, 2);
  EXPECT_EQ(lowestFreeDescriptor(), descriptorBefore);
  EXPECT_EQ(fs::readZip(written, String(tmp.path("out")), nullptr).size(), 1U);
}

}  // namespace
}  // namespace vx::test
