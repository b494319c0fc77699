// SPDX-License-Identifier: MIT
//
// mkDir, rmDir and rmFile.

#include "fs/vx_fs.h"
#include "tests/fs/fs_test.h"
#include "tests/testing/calls.h"
#include "tests/testing/failures.h"
#include "tests/testing/scoped.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace vx::test {
namespace {

const std::string kTooLong(300, 'n');

std::string notCreated(const std::string& directory, int code) {
  return "error: Failed to create dir: " + directory + " [err: " + errnoText(code) + "].";
}

std::string notRemoved(const std::string& directory, int code) {
  return "error: Failed to remove dir: " + directory + " [err: " + errnoText(code) + "].";
}

// ---------------------------------------------------------------------------------------------
// mkDir

class MkDir : public FsTest {};

TEST_F(MkDir, GivesThePermissionsThatTheUmaskLeaves) {
  const ScopedUmask mask(027);

  EXPECT_TRUE(fs::mkDir("a/b"));

  for (const char* const path : {"a", "a/b"}) {
    EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0750)) << path;
  }
}

TEST_F(MkDir, RefusesTheEmptyPath) {
  Calls calls;

  EXPECT_FALSE(fs::mkDir(""));

  EXPECT_EQ(calls.all(), lines());
  expectSilence();
}

TEST_F(MkDir, LeavesAnExistingDirectoryAlone) {
  createOneOfEachKind(tmp);
  Calls calls;

  // A socket counts as a directory.
  for (const char* const path : {"dir", "link-to-dir", "socket", "/", ".", "..", "missing/.."}) {
    EXPECT_TRUE(fs::mkDir(path)) << path;
  }

  EXPECT_EQ(calls.count("mkdir"), 0U);
  expectSilence();
}

TEST_F(MkDir, RefusesWhatIsNoDirectory) {
  createOneOfEachKind(tmp);
  Calls calls;

  for (const char* const path : {"file", "link-to-file", "fifo", "/dev/null"}) {
    EXPECT_FALSE(fs::mkDir(path)) << path;
  }

  EXPECT_EQ(calls.count("mkdir"), 0U);
  expectSilence();
  EXPECT_EQ(tmp.read("file"), "text");
}

TEST_F(MkDir, ChecksEachDirectoryBeforeItCreatesIt) {
  struct Row {
    const char* path;
    std::vector<std::string> calls;
  };
  const Row rows[] = {
      {".//present/", {"stat present", "stat present"}},
      {"a/b", {"stat a/b", "stat a", "mkdir a 0777", "stat a/b", "mkdir a/b 0777"}},
      {"present/x", {"stat present/x", "stat present", "stat present/x", "mkdir present/x 0777"}},
      {"../vx", {"stat ../vx", "stat ..", "stat ../vx", "mkdir ../vx 0777"}},
      {"//vx//a/", {"stat /vx/a", "stat /vx", "mkdir /vx 0777", "stat /vx/a", "mkdir /vx/a 0777"}},
      // A backslash in front starts at the root and remains part of the first name.
      {"\\a/b", {"stat \\a/b", "stat /\\a", "mkdir /\\a 0777", "stat /\\a/b", "mkdir /\\a/b 0777"}},
      // It is looked for in the path as given.
      {"\\x/../vx", {"stat vx", "stat /vx", "mkdir /vx 0777"}},
  };
  tmp.mkdir("present");
  for (const Row& row : rows) {
    Calls calls;
    calls.succeed("mkdir");

    EXPECT_TRUE(fs::mkDir(row.path)) << row.path;

    EXPECT_EQ(calls.all(), row.calls);
  }
}

TEST_F(MkDir, CreatesMissingParents) {
  EXPECT_TRUE(fs::mkDir(".//a/./gone/..//b/"));
  EXPECT_TRUE(fs::mkDir(vxText(tmp.path("a/c"))));
  tmp.link("link", "a");
  EXPECT_TRUE(fs::mkDir("link/d"));

  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("a/", "a/b/", "a/c/", "a/d/", "link"));
}

TEST_F(MkDir, CreatesThePathUpToANul) {
  EXPECT_TRUE(fs::mkDir(vxText(std::string("a/b\0c/d", 7))));

  EXPECT_EQ(tmp.entries(), lines("a/", "a/b/"));
}

TEST_F(MkDir, TakesNamesAsBytes) {
  EXPECT_TRUE(fs::mkDir("a b/line\nbreak/\xff\xfe"));
  EXPECT_TRUE(fs::mkDir("./\\a"));
  EXPECT_TRUE(fs::mkDir("b\\c"));

  EXPECT_EQ(tmp.entries(),
            lines("\\a/", "a b/", "a b/line\nbreak/", "a b/line\nbreak/\xff\xfe/",  //
                  "b\\c/"));
}

TEST_F(MkDir, CapturesWhatASuccessLeavesInErrno) {
  Calls calls;
  calls.succeed("mkdir", EINTR);

  EXPECT_TRUE(fs::mkDir("a"));

  EXPECT_TRUE(capturedErrorIs(EINTR, "mkDir"));
  EXPECT_EQ(log.all(), lines());
}

TEST_F(MkDir, ClearsTheErrorRightBeforeEachCreation) {
  Calls calls;
  calls.onCall("stat a", [&] { EXPECT_TRUE(sentinel.isUntouched()); });
  calls.onCall("mkdir", [] {
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(currentErrorIs(0, "", ""));
  });

  EXPECT_TRUE(fs::mkDir("a/b"));

  EXPECT_EQ(calls.count("mkdir"), 2U);
}

TEST_F(MkDir, CannotSplitARootThatIsNotFound) {
  struct Row {
    const char* path;
    std::string normalized;
  };
  for (const Row& row : {Row{"//./", "/"}, Row{"a/..", "."}}) {
    const Sandbox own;
    Calls calls;
    calls.fail("stat", ENOENT);

    EXPECT_FALSE(fs::mkDir(row.path));

    EXPECT_EQ(calls.all(), lines("stat " + row.normalized));
    EXPECT_EQ(own.log.all(), lines("error: Cannot split path for mkDir: " + row.normalized + "."));
    EXPECT_TRUE(own.sentinel.isUntouched());
  }
}

TEST_F(MkDir, NamesTheDirectoryThatCannotBeCreated) {
  struct Row {
    std::string path;
    std::string named;
    int code;
  };
  const Row rows[] = {
      {"file/x/y", "file", EEXIST},
      {"./dir//../file/x/", "file", EEXIST},
      {tmp.path("file/x"), tmp.path("file"), EEXIST},
      {"100%s%n/x", "100%s%n", EEXIST},
      {"dangling", "dangling", EEXIST},
      {"loop/x", "loop", EEXIST},
      {"socket/x", "socket/x", ENOTDIR},
      {"dir/" + kTooLong + "/x", "dir/" + kTooLong, ENAMETOOLONG},
  };
  createOneOfEachKind(tmp);
  tmp.write("100%s%n", "");
  const std::vector<std::string> entries = tmp.entries();
  for (const Row& row : rows) {
    SCOPED_TRACE(row.path);
    const LogCapture own;
    errno = EIO;

    EXPECT_FALSE(fs::mkDir(vxText(row.path)));

    EXPECT_EQ(own.all(), lines(notCreated(row.named, row.code)));
    EXPECT_TRUE(capturedErrorIs(row.code, "mkDir"));
    EXPECT_EQ(tmp.entries(), entries);
  }
}

TEST_F(MkDir, FailsWhenAnotherProcessCreatesADirectory) {
  Calls calls;
  calls.onCall("mkdir a", [&] { tmp.mkdir("a"); });

  EXPECT_FALSE(fs::mkDir("a/b"));

  EXPECT_EQ(calls.all(), lines("stat a/b", "stat a", "mkdir a 0777"));
  EXPECT_EQ(log.all(), lines(notCreated("a", EEXIST)));
  EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
  EXPECT_EQ(tmp.entries(), lines("a/"));
}

TEST_F(MkDir, ReportsEachFailingCall) {
  forEachFailure([](FailureRun& run) {
    run.tmp.mkdir("a");

    const bool made = run.act([] { return fs::mkDir("a/b/c"); });

    // A directory that cannot be examined counts as missing.
    if (run.failed("stat a")) {
      EXPECT_FALSE(made);
      EXPECT_EQ(run.log.all(), lines(notCreated("a", EEXIST)));
      EXPECT_TRUE(capturedErrorIs(EEXIST, "mkDir"));
      EXPECT_EQ(run.tmp.entries(), lines("a/"));
      return;
    }
    // Directories created before a failure remain.
    if (run.failed("mkdir")) {
      const bool isFirst = run.failed("mkdir a/b");
      EXPECT_FALSE(made);
      EXPECT_EQ(run.log.all(), lines(notCreated(isFirst ? "a/b" : "a/b/c", run.error())));
      EXPECT_TRUE(capturedErrorIs(run.error(), "mkDir"));
      EXPECT_EQ(run.tmp.entries(), isFirst ? lines("a/") : lines("a/", "a/b/"));
      return;
    }
    EXPECT_TRUE(made);
    EXPECT_EQ(run.log.all(), lines());
    EXPECT_TRUE(currentErrorIs(0, "mkDir", ""));
    EXPECT_EQ(run.tmp.entries(), lines("a/", "a/b/", "a/b/c/"));
  });
}

// ---------------------------------------------------------------------------------------------
// rmDir

class RmDir : public FsTest {
 protected:
  void expectFailure(const std::string& directory, int code) const {
    EXPECT_EQ(log.all(), lines(notRemoved(directory, code)));
    EXPECT_TRUE(capturedErrorIs(code, "rmDir"));
  }
};

TEST_F(RmDir, RefusesTheEmptyPath) {
  Calls calls;

  EXPECT_FALSE(fs::rmDir(""));

  EXPECT_EQ(calls.all(), lines());
  expectSilence();
}

TEST_F(RmDir, RefusesAFile) {
  createOneOfEachKind(tmp);
  tmp.write("100%s%n", "");
  const std::vector<std::string> entries = tmp.entries();

  EXPECT_FALSE(fs::rmDir("./dir//x/../../file/"));
  EXPECT_FALSE(fs::rmDir("link-to-file"));
  EXPECT_FALSE(fs::rmDir("fifo"));
  EXPECT_FALSE(fs::rmDir("100%s%n"));

  EXPECT_EQ(log.all(), lines("error: rmDir called for file: file.",          //
                             "error: rmDir called for file: link-to-file.",  //
                             "error: rmDir called for file: fifo.",          //
                             "error: rmDir called for file: 100%s%n."));
  EXPECT_TRUE(sentinel.isUntouched());
  EXPECT_EQ(tmp.entries(), entries);
}

TEST_F(RmDir, SucceedsWhereNoDirectoryIsFound) {
  createOneOfEachKind(tmp);
  Calls calls;

  for (const std::string& path : {std::string("missing"), std::string("file/x"),
                                  std::string("dangling"), std::string("loop"), kTooLong}) {
    EXPECT_TRUE(fs::rmDir(vxText(path))) << path;
  }

  EXPECT_EQ(calls.count("rmdir"), 0U);
  expectSilence();
}

TEST_F(RmDir, SucceedsInARemovedCurrentDirectory) {
  const RemovedCurrentDir removed;
  Calls calls;

  EXPECT_TRUE(fs::rmDir("."));

  EXPECT_EQ(calls.count("rmdir"), 0U);
  expectSilence();
}

TEST_F(RmDir, RemovesTheCanonicalPath) {
  tmp.mkdir("a/b");
  Calls calls;

  EXPECT_TRUE(fs::rmDir("x/.././a//b/"));

  EXPECT_EQ(calls.all(), lines("stat a/b", "stat a/b", "realpath a/b", "rmdir " + tmp.path("a/b")));
  EXPECT_EQ(log.all(), lines());
  EXPECT_EQ(tmp.entries(), lines("a/"));
}

TEST_F(RmDir, CapturesWhatASuccessLeavesInErrno) {
  tmp.mkdir("d");
  Calls calls;
  calls.succeed("rmdir", EINTR);

  EXPECT_TRUE(fs::rmDir("d"));

  EXPECT_TRUE(capturedErrorIs(EINTR, "rmDir"));
  EXPECT_EQ(log.all(), lines());
}

TEST_F(RmDir, ClearsTheErrorRightBeforeTheRemoval) {
  tmp.mkdir("d");
  Calls calls;
  calls.onCall("stat", [&] { EXPECT_TRUE(sentinel.isUntouched()); });
  calls.onCall("rmdir", [] {
    EXPECT_EQ(errno, 0);
    EXPECT_TRUE(currentErrorIs(0, "", ""));
  });
  errno = EIO;

  EXPECT_TRUE(fs::rmDir("d"));

  EXPECT_EQ(calls.count("rmdir"), 1U);
}

TEST_F(RmDir, KeepsADirectoryThatIsNotEmpty) {
  tmp.write("d/.f", "text");

  EXPECT_FALSE(fs::rmDir("d"));

  EXPECT_EQ(log.all(), lines("error: Failed to remove dir: " + tmp.path("d") +
                             " [err: Directory not empty]."));
  EXPECT_TRUE(capturedErrorIs(ENOTEMPTY, "rmDir"));
  EXPECT_EQ(tmp.entries(), lines("d/", "d/.f"));
}

TEST_F(RmDir, RemovesTheTargetOfALink) {
  tmp.mkdir("d");
  tmp.link("link", "d");

  EXPECT_TRUE(fs::rmDir("link"));

  EXPECT_EQ(tmp.entries(), lines("link"));
}

TEST_F(RmDir, NamesTheTargetThatALinkHasAfterTheFailure) {
  tmp.mkdir("d");
  tmp.mkdir("e");
  tmp.link("link", "d");
  Calls calls;
  calls.onCall("rmdir", [&]() -> std::optional<int> {
    std::filesystem::remove("link");
    tmp.link("link", "e");
    return EBUSY;
  });

  EXPECT_FALSE(fs::rmDir("link"));

  expectFailure(tmp.path("e"), EBUSY);
}

TEST_F(RmDir, ReportsTheErrorOfTheRemovalAlone) {
  tmp.mkdir("d");
  tmp.link("link", "d");
  Calls calls;
  calls.onCall("rmdir", [&]() -> std::optional<int> {
    std::filesystem::remove("d");  // the canonical path in the message cannot be found any more
    return EBUSY;
  });

  EXPECT_FALSE(fs::rmDir("link"));

  expectFailure(tmp.path("link"), EBUSY);
}

TEST_F(RmDir, FailsForTheRoot) {
  EXPECT_FALSE(fs::rmDir("/"));

  expectFailure("/", EBUSY);
}

TEST_F(RmDir, CannotRemoveASocketItTakesForADirectory) {
  createOneOfEachKind(tmp);

  EXPECT_FALSE(fs::rmDir("socket"));

  expectFailure(tmp.path("socket"), ENOTDIR);
  EXPECT_TRUE(tmp.exists("socket"));
}

TEST_F(RmDir, ReportsEachFailingCall) {
  forEachFailure([](FailureRun& run) {
    const std::string directory = run.tmp.mkdir("d");

    const bool removed = run.act([] { return fs::rmDir("d"); });

    if (run.failed("rmdir")) {
      EXPECT_FALSE(removed);
      EXPECT_EQ(run.log.all(), lines(notRemoved(directory, run.error())));
      EXPECT_TRUE(capturedErrorIs(run.error(), "rmDir"));
      EXPECT_EQ(run.tmp.entries(), lines("d/"));
      return;
    }
    EXPECT_TRUE(removed);
    // A directory that cannot be examined counts as missing; the first stat call looks for a file.
    if (run.failed("stat d", 2)) {
      run.expectSilence();
      EXPECT_EQ(run.tmp.entries(), lines("d/"));
      return;
    }
    EXPECT_EQ(run.log.all(), lines());
    EXPECT_TRUE(currentErrorIs(0, "rmDir", ""));
    EXPECT_EQ(run.tmp.entries(), lines());
  });
}

// ---------------------------------------------------------------------------------------------
// rmFile, which never reports anything

class RmFile : public SilentFsTest {};

TEST_F(RmFile, RemovesWhatIsNoDirectory) {
  createOneOfEachKind(tmp);

  EXPECT_TRUE(fs::rmFile("link-to-file"));
  EXPECT_TRUE(tmp.exists("file"));
  EXPECT_TRUE(fs::rmFile("file"));
  EXPECT_TRUE(fs::rmFile("fifo"));

  EXPECT_EQ(tmp.entries(), lines("dangling", "dir/", "link-to-dir", "loop", "socket"));
}

TEST_F(RmFile, SucceedsWhereNoFileIsFound) {
  createOneOfEachKind(tmp);
  const std::vector<std::string> entries = tmp.entries();
  Calls calls;

  for (const char* const path :
       {"", "./missing/", "dir", "link-to-dir", "socket", "dangling", "loop"}) {
    EXPECT_TRUE(fs::rmFile(path)) << path;
  }

  EXPECT_EQ(calls.count("remove"), 0U);
  EXPECT_EQ(calls.all().front(), "stat missing");  // nothing is asked about the empty path
  EXPECT_EQ(tmp.entries(), entries);
}

TEST_F(RmFile, ChecksTheNormalFormAndRemovesThePathAsGiven) {
  tmp.write("d/f", "text");
  Calls calls;

  EXPECT_TRUE(fs::rmFile("./d//f"));

  EXPECT_EQ(calls.all(), lines("stat d/f", "remove ./d//f"));
}

TEST_F(RmFile, FailsWhereOnlyTheNormalFormNamesTheFile) {
  tmp.write("f", "text");

  EXPECT_FALSE(fs::rmFile("missing/../f"));
  EXPECT_FALSE(fs::rmFile("f/"));

  EXPECT_EQ(tmp.read("f"), "text");
}

TEST_F(RmFile, FailsWhenTheRemovalFails) {
  forEachFailure([](FailureRun& run) {
    run.tmp.write("f", "text");

    const bool removed = run.act([] { return fs::rmFile("f"); });

    EXPECT_EQ(removed, !run.failed("remove"));
    EXPECT_EQ(run.tmp.exists("f"), run.failedAny());
    run.expectSilence();
  });
}

}  // namespace
}  // namespace vx::test
