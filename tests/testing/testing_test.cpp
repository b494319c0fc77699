// SPDX-License-Identifier: MIT
//
// The helpers of the tests.

#include "core/vx_error.h"
#include "core/vx_log.h"
#include "fs/vx_fs.h"
#include "tests/testing/archives.h"
#include "tests/testing/calls.h"
#include "tests/testing/child.h"
#include "tests/testing/dialog_program.h"
#include "tests/testing/error_state.h"
#include "tests/testing/failures.h"
#include "tests/testing/isolation.h"
#include "tests/testing/log_capture.h"
#include "tests/testing/memory_use.h"
#include "tests/testing/sandbox.h"
#include "tests/testing/scoped.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <dirent.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace vx::test {
namespace {

namespace stdfs = std::filesystem;

TEST(TempDir, IsFreshEmptyAndCanonical) {
  const TempDir first;
  const TempDir second;

  EXPECT_NE(first.path(), second.path());
  EXPECT_EQ(stdfs::canonical(first.path()).string(), first.path());
  EXPECT_EQ(first.path("x/y"), first.path() + "/x/y");
  EXPECT_EQ(first.entries(), lines());
}

TEST(TempDir, IsInMemoryWhereTheSystemHasSuchAPlace) {
  if (!stdfs::is_directory("/dev/shm")) {
    GTEST_SKIP() << "this system has no directory in memory";
  }
  EXPECT_TRUE(TempDir::inMemory().path().starts_with("/dev/shm/"));
}

TEST(TempDir, IsCanonicalBehindALink) {
  const TempDir tmp;
  tmp.mkdir("real");
  const ScopedEnv behindALink("TMPDIR", tmp.link("link", "real"));

  const TempDir inside;

  EXPECT_TRUE(inside.path().starts_with(tmp.path("real/")));
}

TEST(TempDir, ListsWhatIsPutIntoIt) {
  const TempDir tmp;

  EXPECT_EQ(tmp.write("a/b.txt", std::string("x\0y", 3)), tmp.path("a/b.txt"));
  EXPECT_EQ(tmp.mkdir("c/d"), tmp.path("c/d"));
  EXPECT_EQ(tmp.link("c/link", "../a"), tmp.path("c/link"));

  EXPECT_EQ(tmp.entries(), lines("a/", "a/b.txt", "c/", "c/d/", "c/link"));
  EXPECT_EQ(tmp.read("a/b.txt"), std::string("x\0y", 3));
  EXPECT_TRUE(tmp.exists("c/link"));
  EXPECT_FALSE(tmp.exists("missing"));
  EXPECT_THROW(static_cast<void>(tmp.read("missing")), std::runtime_error);
}

TEST(TempDir, IsRemovedWithEverythingInIt) {
  std::string path;
  {
    const TempDir tmp;
    path = tmp.path();
    tmp.write("a/b/c.txt", "text");
    tmp.link("up", "..");
    tmp.link("dangling", "missing");
  }
  EXPECT_FALSE(stdfs::exists(path));
  EXPECT_TRUE(stdfs::exists(stdfs::path(path).parent_path()));
}

TEST(TempDir, IsRemovedWithUnreadableDirectories) {
  const TempDir outer;
  stdfs::permissions(outer.path(), stdfs::perms::all);

  runAsUnprivileged([&] {
    const ScopedEnv below("TMPDIR", outer.path());
    {
      const TempDir tmp;
      tmp.write("locked/inner/file", "text");
      stdfs::permissions(tmp.path("locked/inner"), stdfs::perms::none);
      stdfs::permissions(tmp.path("locked"), stdfs::perms::none);
    }
    EXPECT_EQ(outer.entries(), lines());
  });
}

TEST(TempDir, RemovesATreeDeeperThanItsDescriptors) {
  const TempDir outer;

  runInChild([&] {
    const ScopedEnv below("TMPDIR", outer.path());
    const rlimit few{.rlim_cur = 32, .rlim_max = 32};
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &few), 0);
    const TempDir tmp;
    const ScopedCurrentDir inside(tmp.path());
    for (int level = 0; level < 200; ++level) {
      ASSERT_EQ(::mkdir("d", 0755), 0);
      ASSERT_EQ(::chdir("d"), 0);
    }
    ASSERT_EQ(::chdir(tmp.path().c_str()), 0);
    tmp.removeDir("d");
    EXPECT_EQ(tmp.entries(), lines());
  });

  EXPECT_EQ(outer.entries(), lines());
}

TEST(ScopedEnv, RestoresAVariable) {
  const ScopedEnv outer("VX_TEST_VARIABLE", "outer");
  {
    const ScopedEnv inner("VX_TEST_VARIABLE", "inner");
    EXPECT_STREQ(std::getenv("VX_TEST_VARIABLE"), "inner");
  }
  EXPECT_STREQ(std::getenv("VX_TEST_VARIABLE"), "outer");
  {
    const ScopedEnv inner("VX_TEST_VARIABLE", nullptr);
    EXPECT_EQ(std::getenv("VX_TEST_VARIABLE"), nullptr);
  }
  EXPECT_STREQ(std::getenv("VX_TEST_VARIABLE"), "outer");
}

TEST(ScopedEnv, UnsetsAVariableThatWasNotSet) {
  const ScopedEnv outer("VX_TEST_VARIABLE", nullptr);
  { const ScopedEnv inner("VX_TEST_VARIABLE", "inner"); }

  EXPECT_EQ(std::getenv("VX_TEST_VARIABLE"), nullptr);
}

TEST(ScopedTimeZone, RestoresTheTimeZone) {
  const ScopedTimeZone outer("<+01>-1");
  {
    const ScopedTimeZone inner("<+02>-2");
    EXPECT_EQ(timezone, -7200);
  }
  EXPECT_EQ(timezone, -3600);
}

TEST(ScopedCurrentDir, RestoresTheCurrentDirectory) {
  const TempDir tmp;
  const stdfs::path before = stdfs::current_path();
  {
    const ScopedCurrentDir inside(tmp.path());
    EXPECT_EQ(stdfs::current_path().string(), tmp.path());
    stdfs::remove(tmp.path());
  }
  EXPECT_EQ(stdfs::current_path(), before);
}

TEST(ScopedCurrentDir, RefusesADirectoryThatIsMissing) {
  const stdfs::path before = stdfs::current_path();

  EXPECT_THROW(ScopedCurrentDir("/no such entry"), std::system_error);

  EXPECT_EQ(stdfs::current_path(), before);
}

TEST(LogCapture, KeepsTheLinesInOrder) {
  const LogCapture log;

  vx::logError("first");
  vx::logWarning("second");
  vx::logError("third");

  EXPECT_EQ(log.all(), lines("error: first", "warning: second", "error: third"));
}

TEST(LogCapture, RestoresThePreviousCapture) {
  const LogCapture outer;
  {
    const LogCapture inner;
    vx::logError("inner");
    EXPECT_EQ(inner.all(), lines("error: inner"));
  }
  vx::logError("outer");

  EXPECT_EQ(outer.all(), lines("error: outer"));
}

TEST(ErrorStateSentinel, SeesEveryChange) {
  const ErrorStateSentinel sentinel;
  EXPECT_TRUE(sentinel.isUntouched());
  const long long code = vx::os::currentErrorCode();
  const vx::String context = vx::os::currentErrorContext();
  const vx::String message = vx::os::currentErrorMessage();

  vx::os::setCurrentError(code + 1, context, message);
  EXPECT_FALSE(sentinel.isUntouched());
  vx::os::setCurrentError(code, context + "x", message);
  EXPECT_FALSE(sentinel.isUntouched());
  vx::os::setCurrentError(code, context, message + "x");
  EXPECT_FALSE(sentinel.isUntouched());
  vx::os::clearCurrentError();
  EXPECT_FALSE(sentinel.isUntouched());
  vx::os::setCurrentError(code, context, message);
  EXPECT_TRUE(sentinel.isUntouched());
}

TEST(ErrorStateSentinel, RestoresTheErrorBefore) {
  { const ErrorStateSentinel sentinel; }
  EXPECT_TRUE(currentErrorIs(0, "", ""));

  const ErrorStateSentinel outer;
  { const ErrorStateSentinel inner; }
  EXPECT_TRUE(outer.isUntouched());
}

TEST(ScopedUmask, RestoresTheMask) {
  const ScopedUmask outer(022);
  { const ScopedUmask inner(077); }

  EXPECT_EQ(::umask(022), 022U);
}

TEST(LiveBlocks, CountsWhatIsAllocatedAndFreed) {
  // Compilers may leave out calls of functions that they know.
  void* (*const volatile allocate)(std::size_t) = std::malloc;
  void (*const volatile release)(void*) = std::free;
  void* const before = allocate(4);
  LiveBlocks blocks;
  void* const kept = allocate(100);
  release(allocate(20));
  release(before);
  blocks.stop();
  void* const unseen = allocate(4);

  EXPECT_EQ(blocks.use().allocations, 2U);
  EXPECT_EQ(blocks.use().bytes, 120U);
  EXPECT_EQ(blocks.use().frees, 2U);
  EXPECT_EQ(blocks.count(), 1U);
  release(kept);
  EXPECT_EQ(blocks.count(), 0U);
  release(unseen);
}

TEST(PeakKibibytes, RemainsAfterTheMemoryIsFreed) {
  runInChild([] {
    // Compilers may leave out a block whose size they know.
    const volatile std::size_t size = std::size_t{64} << 20U;
    const long before = peakKibibytes();
    { EXPECT_EQ(std::string(size, 'x').back(), 'x'); }

    EXPECT_GE(peakKibibytes() - before, 60 << 10);
  });
}

TEST(Child, ExitsWith0IfItsAssertionsHold) {
  const ChildEnd end = endOfChild([] { EXPECT_TRUE(true); });

  EXPECT_FALSE(end.wasKilled());
  EXPECT_EQ(end.exitCode, 0);
}

TEST(Child, ExitsWith1IfAnAssertionFails) {
  EXPECT_EQ(endOfChild([] { ADD_FAILURE() << "on purpose, in a child"; }).exitCode, 1);
  EXPECT_EQ(endOfChild([] { FAIL() << "on purpose, in a child"; }).exitCode, 1);
  EXPECT_EQ(endOfChild([] { throw std::runtime_error("on purpose"); }).exitCode, 1);
}

TEST(Child, ReportsExitCodeOrSignal) {
  const ChildEnd killed = endOfChild([] { ::raise(SIGKILL); });
  const ChildEnd left = endOfChild([] { ::_exit(3); });

  EXPECT_TRUE(killed.wasKilled());
  EXPECT_EQ(killed.signal, SIGKILL);
  EXPECT_FALSE(left.wasKilled());
  EXPECT_EQ(left.exitCode, 3);
}

TEST(Child, FailsTheTestIfItEndsBadly) {
  EXPECT_NONFATAL_FAILURE(runInChild([] { ::_exit(1); }), "assertions have failed in the child");
  EXPECT_NONFATAL_FAILURE(runInChild([] { ::raise(SIGKILL); }), "killed by signal 9");
  EXPECT_NONFATAL_FAILURE(runAsUnprivileged([] { ::_exit(1); }), "assertions have failed");
}

TEST(Child, DoesNotChangeTheParent) {
  const stdfs::path before = stdfs::current_path();
  int value = 1;

  runInChild([&] {
    value = 2;
    ASSERT_EQ(::chdir("/"), 0);
  });

  EXPECT_EQ(value, 1);
  EXPECT_EQ(stdfs::current_path(), before);
}

TEST(Child, HasNoRightsWhenItIsUnprivileged) {
  const TempDir tmp;
  tmp.write("locked/file", "text");
  stdfs::permissions(tmp.path("locked"), stdfs::perms::none);

  runAsUnprivileged([&] {
    EXPECT_NE(::geteuid(), 0U);
    EXPECT_EQ(::access(tmp.path("locked").c_str(), F_OK), 0);
    EXPECT_EQ(::access(tmp.path("locked/file").c_str(), F_OK), -1);
    EXPECT_EQ(::setuid(0), -1);
  });
}

TEST(RunProgram, KeepsWhatTheProgramWrites) {
  const ChildEnd end = runProgram({"sh", "-c", "cat; echo out; echo err >&2; exit 3"});

  EXPECT_EQ(end.exitCode, 3);
  EXPECT_EQ(end.out, "out\n");
  EXPECT_EQ(end.err, "err\n");
}

TEST(RunProgram, ReportsExitCodeOrSignal) {
  EXPECT_EQ(runProgram({"sh", "-c", "kill -9 $$"}).signal, SIGKILL);
  EXPECT_EQ(runProgram({"no such program"}).exitCode, 127);
}

TEST(RunOnTerminal, GivesTheProgramATerminal) {
  const ChildEnd end =
      runOnTerminal({"sh", "-c", "test -t 0 && test -t 1 && test -t 2 && echo yes"});

  EXPECT_EQ(end.exitCode, 0);
  EXPECT_EQ(end.out, "yes\r\n");
}

TEST(RunOnTerminal, GivesTheTerminalItsWidth) {
  EXPECT_EQ(runOnTerminal({"stty", "size"}).out, "24 80\r\n");
  EXPECT_EQ(runOnTerminal({"stty", "size"}, 31).out, "24 31\r\n");
}

TEST(DialogProgram, IsRunInPlaceOfTheRealOne) {
  const DialogProgram zenity;
  EXPECT_EQ(zenity.arguments(), lines());

  EXPECT_EQ(runProgram({"zenity", "--title", "two words"}).exitCode, 1);
  EXPECT_EQ(zenity.arguments(), lines("--title", "two words"));
  zenity.answer("/tmp/a.png");
  EXPECT_EQ(runProgram({"zenity"}).out, "/tmp/a.png\n");
  EXPECT_EQ(runProgram({"zenity", "--version"}).out, "3.44.0\n");
}

TEST(RunWithOwnMounts, HidesTheMountsFromTheParent) {
  if (!canMount()) {
    GTEST_SKIP() << kCannotMount;
  }
  const TempDir tmp;
  tmp.mkdir("mounted");

  runWithOwnMounts([&] {
    mountMemory(tmp.path("mounted"), "size=64k");
    tmp.write("mounted/file", "text");
    makeReadOnly(tmp.path("mounted"));
    EXPECT_EQ(::unlink(tmp.path("mounted/file").c_str()), -1);
    EXPECT_EQ(errno, EROFS);
  });

  EXPECT_EQ(tmp.entries(), lines("mounted/"));
}

TEST(RunInRoot, ChangesTheRootOfTheChildOnly) {
  if (!canChangeRoot()) {
    GTEST_SKIP() << kCannotChangeRoot;
  }
  const TempDir tmp;
  tmp.write("file", "text");

  runInRoot(tmp.path(), [&] {
    EXPECT_EQ(stdfs::current_path(), "/");
    EXPECT_TRUE(stdfs::exists("/file"));
    EXPECT_FALSE(stdfs::exists(tmp.path()));
  });

  EXPECT_TRUE(stdfs::exists(tmp.path()));
}

TEST(ZipMaker, WritesWhatContentsOfReads) {
  const TempDir tmp;
  const ZipEntry packed{
      .name = "p", .content = "packed", .method = kDeflated, .data = deflated("packed")};

  for (const ZipMaker& archive : {ZipMaker(), ZipMaker().zip64End()}) {
    const std::string path = tmp.write(
        "a.zip", ZipMaker(archive).file("a/b.txt", "text").directory("c/").add(packed).bytes());

    EXPECT_EQ(contentsOf(path),
              (std::vector<ZipContent>{{"a/b.txt", "text"}, {"c/", ""}, {"p", "packed"}}));
    EXPECT_EQ(namesIn(path), lines("a/b.txt", "c/", "p"));
  }
}

TEST(ContentsOf, ThrowsForADamagedArchive) {
  const TempDir tmp;
  const std::string noArchive = tmp.write("no.zip", "text");
  const std::string damaged =
      tmp.write("damaged.zip", ZipMaker().add({.name = "f", .content = "text", .crc = 0}).bytes());

  EXPECT_THROW(static_cast<void>(namesIn(noArchive)), std::runtime_error);
  EXPECT_THROW(static_cast<void>(contentsOf(damaged)), std::runtime_error);
  EXPECT_EQ(namesIn(damaged), lines("f"));
}

// ---------------------------------------------------------------------------------------------
// The engine. `vx::fs::mkDir` and the like stand for any code under test.

TEST(Calls, AreRecordedWithTheirArguments) {
  const Sandbox box;
  Calls calls;

  ::mkdir("a", 0750);
  ::rename("a", "b");
  std::remove("b");

  EXPECT_EQ(calls.all(), lines("mkdir a 0750", "rename a b", "remove b"));
  EXPECT_EQ(calls.all("rename"), lines("rename a b"));
  EXPECT_EQ(calls.count("mkdir"), 1U);
}

TEST(Calls, IncludeThoseOfFileStreams) {
  const Sandbox box;
  Calls calls;

  std::ofstream("f") << "text";

#ifdef __GLIBCXX__
  EXPECT_EQ(calls.all(), lines("fopen f w", "fclose"));
  EXPECT_EQ(calls.count("write") + calls.count("writev"), 1U);
#else
  EXPECT_EQ(calls.all("fopen"), lines("fopen f w"));
  EXPECT_EQ(calls.all("fclose"), lines("fclose"));
  EXPECT_GE(calls.count("fwrite"), 1U);
#endif
}

TEST(Calls, LeaveOutThoseOfHelpersAndActions) {
  const Sandbox box;
  Calls calls;
  calls.onCall("mkdir a", [&] { box.tmp.mkdir("b"); });

  ::mkdir("a", 0777);

  EXPECT_EQ(box.tmp.entries(), lines("a/", "b/"));
  EXPECT_EQ(calls.all(), lines("mkdir a 0777"));
}

TEST(Calls, AreSelectedUpToTheEndOfAWord) {
  const Sandbox box;
  Calls calls;
  calls.fail("mkdir a", EACCES);

  EXPECT_EQ(::mkdir("a", 0777), -1);
  EXPECT_EQ(errno, EACCES);
  EXPECT_EQ(::mkdir("ab", 0777), 0);
  EXPECT_EQ(box.tmp.entries(), lines("ab/"));
}

TEST(Calls, FailTheThirdTime) {
  const Sandbox box;
  box.tmp.write("f", "");
  Calls calls;
  calls.failNth("readdir", 3, EIO);
  DIR* const directory = ::opendir(".");

  EXPECT_NE(::readdir(directory), nullptr);
  EXPECT_NE(::readdir(directory), nullptr);
  EXPECT_EQ(::readdir(directory), nullptr);
  EXPECT_EQ(errno, EIO);
  ::closedir(directory);
}

TEST(Calls, MayBeAnsweredWithoutBeingMade) {
  const Sandbox box;
  Calls calls;
  calls.succeed("mkdir", EINTR);
  calls.answer("stat d", S_IFDIR);
  calls.answer("readlink", "target");
  calls.onCall("rmdir", []() -> std::optional<int> { return ENOSPC; });

  struct stat status {};
  std::array<char, 100> target{};
  EXPECT_EQ(::mkdir("a", 0777), 0);
  EXPECT_EQ(errno, EINTR);
  EXPECT_EQ(::stat("d", &status), 0);
  EXPECT_TRUE(S_ISDIR(status.st_mode));
  EXPECT_EQ(status.st_nlink, 1U);
  EXPECT_EQ(::readlink("link", target.data(), target.size()), 6);
  EXPECT_STREQ(target.data(), "target");
  EXPECT_EQ(::rmdir("a"), -1);
  EXPECT_EQ(errno, ENOSPC);
  EXPECT_EQ(box.tmp.entries(), lines());
}

TEST(Calls, OfMinizHideTheCallsTheyMake) {
  const Sandbox box;
  box.tmp.write("a.zip", "no archive");
  Calls calls;

  EXPECT_TRUE(vx::fs::readZip("a.zip", "out", {}).empty());

  EXPECT_EQ(calls.all("mz_zip_reader_init_file").size(), 1U);
  EXPECT_EQ(calls.all("fopen").size(), 1U);
  const std::vector<std::string> all = calls.all();
  EXPECT_EQ(std::count(all.begin(), all.end(), "fopen " + box.tmp.path("a.zip") + " rb"), 0);
}

TEST(Calls, OfDialogsAreCancelledOrAnswered) {
  Calls calls;
  EXPECT_EQ(vx::fs::browseFile("Pick", "/", "Images", {"*.png"}), "");

  calls.answer("tinyfd_openFileDialog", "/a.png");
  EXPECT_EQ(vx::fs::browseFile("Pick", "/", "", {}), "/a.png");

  EXPECT_EQ(calls.all("tinyfd_openFileDialog").front(),
            "tinyfd_openFileDialog <Pick> </> 1 <*.png> <Images (*.png)> 0");
}

TEST(Calls, KillTheProcess) {
  const Sandbox box;

  const ChildEnd end = endOfChild([] {
    Calls calls;
    calls.kill("mkdir", 2);
    ::mkdir("a", 0777);
    ::mkdir("b", 0777);
  });

  EXPECT_EQ(end.signal, SIGKILL);
  EXPECT_EQ(box.tmp.entries(), lines("a/"));
}

TEST(ForEachFailure, FailsEachCallOnceWithEachError) {
  std::map<std::string, std::set<int>> failed;

  forEachFailure([&](FailureRun& run) {
    run.act([] { return vx::fs::mkDir("a"); });
    failed[run.failedCall()].insert(run.error());
  });

  EXPECT_EQ(failed.size(), 3U);  // with "", the run without a failure
  EXPECT_EQ(failed["stat a"].size(), 10U);
  EXPECT_EQ(failed["mkdir a 0777"].size(), 10U);
}

TEST(ForEachFailure, NumbersEqualCalls) {
  std::set<int> numbers;

  forEachFailure([&](FailureRun& run) {
    run.act([] { return vx::fs::mkDir("a"); });
    for (const int number : {1, 2, 3}) {
      if (run.failed("stat a", number)) {
        numbers.insert(number);
      }
    }
  });

  EXPECT_EQ(numbers, (std::set{1, 2}));
}

TEST(ForEachFailure, LeavesOutCallsThatTheBodyAnswers) {
  forEachFailure([&](FailureRun& run) {
    run.calls.fail("mkdir", EACCES);

    EXPECT_FALSE(run.act([] { return vx::fs::mkDir("a"); }));

    EXPECT_FALSE(run.failed("mkdir"));
  });
}

TEST(ForEachFailure, AttributesACallWithinMinizToThatCall) {
  std::set<std::string> failed;

  forEachFailure([&](FailureRun& run) {
    run.tmp.write("a.zip", "no archive");
    run.act([] { return vx::fs::readZip("a.zip", "out", {}); });
    if (run.failedCall().starts_with("fopen")) {
      EXPECT_TRUE(run.failed("mz_zip_reader_init_file"));
      EXPECT_FALSE(run.failed("fopen"));
      failed.insert("fopen");
    }
  });

  EXPECT_EQ(failed.size(), 1U);
}

TEST(ForEachFailure, FindsALeak) {
  static std::vector<int> descriptors;
  static std::unique_ptr<int> block;

  EXPECT_NONFATAL_FAILURE(forEachFailure([](FailureRun& run) {
                            descriptors.push_back(run.act([] { return ::dup(0); }));
                          }),
                          "a descriptor is left open");
  EXPECT_NONFATAL_FAILURE(
      forEachFailure([](FailureRun& run) { run.act([] { block = std::make_unique<int>(0); }); }),
      "blocks of memory are left behind");
  for (const int descriptor : descriptors) {
    ::close(descriptor);
  }
}

TEST(ForEachLastingFailure, FailsAllLaterCallsToo) {
  forEachLastingFailure([](FailureRun& run) {
    const bool made = run.act([] { return ::mkdir("a", 0777) == 0 || ::mkdir("b", 0777) == 0; });

    EXPECT_EQ(made, !run.failedAny() || run.failed("mkdir b"));
  });
}

}  // namespace
}  // namespace vx::test
