// SPDX-License-Identifier: MIT
//
// Repeats each operation in a separate process, so that valgrind can count its instructions and
// strace its system calls (./dev counts).
//
// Each operation runs in two processes, and the second one repeats it twice as often. The
// difference between the two excludes start-up, preparation and first-time initialization.

#include "bench/vx_inputs.h"
#include "bench/vx_miniz.h"
#include "core/vx_path.h"
#include "core/vx_string.h"
#include "core/vx_string_vector.h"
#include "fs/vx_fs.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <string_view>
#include <utility>

#if __has_include(<gnu/libc-version.h>)
#include <gnu/libc-version.h>
#endif

#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vx::bench {

/// Performs the operation `times` times.
using Repeat = std::function<void(int times)>;

}  // namespace vx::bench

/// valgrind finds this function by name and counts only the instructions inside it.
extern "C" [[gnu::noinline]] void vx_measured(const vx::bench::Repeat& repeat, int times) {
  repeat(times);
}

namespace vx::bench {
namespace {

/// Calls `act` with the number of each repetition.
template <class Act>
Repeat repeating(Act act) {
  return [act = std::move(act)](int times) {
    for (int i = 0; i < times; ++i) {
      act(i);
    }
  };
}

/// Prevents the compiler from removing the computation of `value`.
template <class Value>
void keep(const Value& value) {
  asm volatile("" : : "g"(&value) : "memory");
}

void expect(bool good) {
  if (!good) {
    std::fprintf(stderr, "an operation failed\n");
    std::abort();
  }
}

// ---- Temporary directory -----------------------------------------------------------------------

/// A temporary directory. Its path always has the same length, because the counts depend on it.
class Scratch {
 public:
  /// @param most  The largest number of repetitions.
  explicit Scratch(int most) : most_(most) {
    std::string name = "/tmp/vx_counts_XXXXXX";
    expect(::mkdtemp(name.data()) != nullptr);
    path_ = name;
  }
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  ~Scratch() { std::filesystem::remove_all(path_); }

  [[nodiscard]] String path(std::string_view name) const {
    return String(std::string_view(path_ + "/" + std::string(name)));
  }

  /// Creates a directory and returns its path.
  [[nodiscard]] String directory(std::string_view name) const {
    const String made = path(name);
    std::filesystem::create_directories(made.buf());
    return made;
  }

  /// Creates a file and its missing parent directories. Returns its path.
  [[nodiscard]] String file(std::string_view name, std::string_view content) const {
    const String made = path(name);
    std::filesystem::create_directories(std::filesystem::path(made.buf()).parent_path());
    std::ofstream(made.buf(), std::ios::binary) << content;
    return made;
  }

  /// Returns a path for each repetition. All have the same length.
  template <class Make>
  [[nodiscard]] StringVector numbered(Make make) const {
    StringVector made;
    for (int i = 0; i < most_; ++i) {
      made.push_back(make("entry_" + std::to_string(1000 + i)));
    }
    return made;
  }

 private:
  int most_;
  std::string path_;
};

String at(const StringVector& list, int index) {
  return list[static_cast<std::size_t>(index)];
}

// ---- Strings -----------------------------------------------------------------------------------

Repeat stringCopy(const Scratch& /*scratch*/) {
  return repeating([text = String(kLiteral)](int) {
    const String copy = text;  // NOLINT(performance-unnecessary-copy-initialization): measured
    keep(copy);
  });
}

Repeat stringLiteral(const Scratch& /*scratch*/) {
  return repeating([](int) {
    const char* text = kLiteral;
    keep(text);
    const String made(text);
    keep(made);
  });
}

Repeat stringAppend(const Scratch& /*scratch*/) {
  return repeating([](int) {
    String text;
    for (int i = 0; i < 8; ++i) {
      text << kPiece;
    }
    keep(text);
  });
}

Repeat stringSplit(const Scratch& /*scratch*/) {
  return repeating([text = String(std::string_view(sixteenJoined("|")))](int) {
    keep(text.split('|', /*skipEmpty=*/true, /*trim=*/false));
  });
}

Repeat stringJoin(const Scratch& /*scratch*/) {
  StringVector names;
  for (const std::string& name : sixteenNames()) {
    names.push_back(String(std::string_view(name)));
  }
  return repeating([names, separator = String(", ")](int) { keep(names.join(separator)); });
}

Repeat comparison(Pair pair) {
  return repeating([a = String(pair.a), b = String(pair.b)](int) { keep(a.compareNoCase(b)); });
}

// ---- Paths -------------------------------------------------------------------------------------

Repeat normalForm(const char* path) {
  return repeating([text = String(path)](int) { keep(Path::normalize(text)); });
}

template <class Question>
Repeat queryPath(const Path& path, Question question) {
  return repeating([path, question](int) { keep(question(path)); });
}

Path normalPath() {
  return Path(kNormal, /*normalizeFirst=*/false);
}

Repeat pathExt(const Scratch& /*scratch*/) {
  return queryPath(normalPath(), [](const Path& path) { return path.ext(/*withDot=*/true); });
}

Repeat pathFile(const Scratch& /*scratch*/) {
  return queryPath(normalPath(), [](const Path& path) { return path.file(/*withExt=*/true); });
}

Repeat pathDir(const Scratch& /*scratch*/) {
  return repeating([path = String(kNormal)](int) { keep(Path::dir(path, /*isDir=*/false)); });
}

Repeat joinOfTwo(const Scratch& /*scratch*/) {
  return repeating(
      [base = String(kBase), name = String(kName)](int) { keep(Path::join(base, name)); });
}

Repeat canonicalForm(const Scratch& scratch) {
  const String lib = scratch.directory("usr/lib");
  expect(fs::isFile(scratch.file("usr/share/doc/libc6/copyright", "")));
  const Path path(lib + "/../share/doc/./libc6/copyright", /*normalizeFirst=*/false);
  return queryPath(path, [](const Path& asked) { return asked.canonical(); });
}

// ---- Files and directories ---------------------------------------------------------------------

template <bool (*kQuery)(String)>
Repeat queryFile(const Scratch& scratch) {
  return repeating([path = scratch.file("a.png", "")](int) { keep(kQuery(path)); });
}

template <bool (*kQuery)(String)>
Repeat queryDirectory(const Scratch& scratch) {
  return repeating([path = scratch.directory("a")](int) { keep(kQuery(path)); });
}

template <bool (*kQuery)(String)>
Repeat queryMissing(const Scratch& scratch) {
  return repeating([path = scratch.path("none")](int) { keep(kQuery(path)); });
}

Repeat makeNewLevels(const Scratch& scratch) {
  const StringVector paths =
      scratch.numbered([&](const std::string& name) { return scratch.path(tenLevels(name)); });
  return repeating([paths](int i) { expect(fs::mkDir(at(paths, i))); });
}

Repeat makeExisting(const Scratch& scratch) {
  return repeating([path = scratch.directory(tenLevels("top"))](int) { expect(fs::mkDir(path)); });
}

Repeat removeDirectory(const Scratch& scratch) {
  const StringVector paths =
      scratch.numbered([&](const std::string& name) { return scratch.directory(name); });
  return repeating([paths](int i) { expect(fs::rmDir(at(paths, i))); });
}

StringVector manyFiles(const Scratch& scratch) {
  return scratch.numbered([&](const std::string& name) { return scratch.file(name, "text"); });
}

Repeat removeFile(const Scratch& scratch) {
  return repeating([paths = manyFiles(scratch)](int i) { expect(fs::rmFile(at(paths, i))); });
}

Repeat moveOverAFile(const Scratch& scratch) {
  return repeating([sources = manyFiles(scratch), to = scratch.file("to.txt", "old")](int i) {
    expect(fs::moveFile(at(sources, i), to));
  });
}

template <std::size_t kSize>
Repeat copyOverAFile(const Scratch& scratch) {
  std::mt19937 random(kSize);
  return repeating([from = scratch.file("from", text(random, kSize)),
                    to = scratch.file("to", "old")](int) { expect(fs::copyFile(from, to)); });
}

Repeat listHundred(const Scratch& scratch) {
  const String directory = scratch.directory("textures");
  for (std::size_t i = 100; i < 200; ++i) {
    const auto name = "textures/texture_" + std::to_string(i) + kListedExtensions.at(i % 4);
    expect(fs::isFile(scratch.file(name, "")));
  }
  return repeating([directory, wanted = StringVector{"png"}](int) {
    expect(fs::listFiles(directory, wanted).size() == 25);
  });
}

Repeat resolveMiss(const Scratch& scratch) {
  StringVector directories;
  for (int i = 0; i < 8; ++i) {
    directories.push_back(scratch.directory("search_" + std::to_string(i)));
  }
  StringVector extensions;
  for (const char* const extension : kImageExtensions) {
    extensions.push_back(extension);
  }
  const String reference = Path::join(scratch.directory("scene"), "wood.*");
  return repeating(
      [=](int) { expect(fs::resolvePath(reference, directories, extensions).isEmpty()); });
}

// ---- Archives ----------------------------------------------------------------------------------

StringVector tenTexts(const Scratch& scratch) {
  constexpr std::size_t kSize = 16384;
  std::mt19937 random(kSize);
  StringVector files;
  for (int i = 0; i < 10; ++i) {
    files.push_back(scratch.file("text_" + std::to_string(i), text(random, kSize)));
  }
  return files;
}

Repeat writeTen(const Scratch& scratch) {
  return repeating([files = tenTexts(scratch), archive = scratch.path("a.zip")](int) {
    expect(fs::writeZip(archive, files, {}));
  });
}

Repeat readTen(const Scratch& scratch) {
  const String archive = scratch.path("a.zip");
  expect(fs::writeZip(archive, tenTexts(scratch), {}));
  const StringVector outs =
      scratch.numbered([&](const std::string& name) { return scratch.path("out_" + name); });
  return repeating(
      [archive, outs](int i) { expect(fs::readZip(archive, at(outs, i), {}).size() == 10); });
}

// ---- All operations ----------------------------------------------------------------------------

struct Operation {
  const char* name;
  /// The number of repetitions in the first process.
  int times;
  /// Prepares the input in an empty directory.
  Repeat (*prepare)(const Scratch& scratch);
};

constexpr int kQuick = 1000;
constexpr int kSlow = 50;
constexpr int kSlowest = 5;

constexpr std::array kOperations = {
    Operation{"string copy", kQuick, stringCopy},
    Operation{"string literal 24", kQuick, stringLiteral},
    Operation{"string append 8", kQuick, stringAppend},
    Operation{"string split 16", kQuick, stringSplit},
    Operation{"string join 16", kQuick, stringJoin},
    Operation{"compareNoCase 24", kQuick,
              [](const Scratch& /*scratch*/) { return comparison(kLong); }},
    Operation{"compareNoCase 3", kQuick,
              [](const Scratch& /*scratch*/) { return comparison(kShort); }},
    Operation{"normal form, mixed", kQuick,
              [](const Scratch& /*scratch*/) { return normalForm(kMixed); }},
    Operation{"normal form, already normal", kQuick,
              [](const Scratch& /*scratch*/) { return normalForm(kNormal); }},
    Operation{"ext of a path", kQuick, pathExt},
    Operation{"file of a path", kQuick, pathFile},
    Operation{"dir of a path", kQuick, pathDir},
    Operation{"join of two", kQuick, joinOfTwo},
    Operation{"canonical", kSlow, canonicalForm},
    Operation{"isFile of a file", kSlow, queryFile<fs::isFile>},
    Operation{"isDir of a directory", kSlow, queryDirectory<fs::isDir>},
    Operation{"exists of a file", kSlow, queryFile<fs::exists>},
    Operation{"exists of a directory", kSlow, queryDirectory<fs::exists>},
    Operation{"exists of nothing", kSlow, queryMissing<fs::exists>},
    Operation{"resolvePath wildcard miss", kSlowest, resolveMiss},
    Operation{"listFiles 100", kSlowest, listHundred},
    Operation{"mkDir, 10 new levels", kSlow, makeNewLevels},
    Operation{"mkDir, all there", kSlow, makeExisting},
    Operation{"rmDir", kSlow, removeDirectory},
    Operation{"rmFile", kSlow, removeFile},
    Operation{"moveFile over a file", kSlow, moveOverAFile},
    Operation{"copyFile 1 KiB over a file", kSlow, copyOverAFile<1024>},
    Operation{"copyFile 1 MiB over a file", kSlowest, copyOverAFile<1024 * 1024>},
    Operation{"writeZip 10 x 16 KiB", kSlowest, writeTen},
    Operation{"readZip 10 x 16 KiB", kSlowest, readTen},
};

/// Runs the operation in a child process and prints the child's process ID. The parent removes the
/// directory, because its system calls are not counted.
void run(const Operation& operation, int times) {
  const Scratch scratch(2 * operation.times);
  std::fflush(stdout);
  const pid_t child = ::fork();
  expect(child >= 0);
  if (child == 0) {
    const Repeat repeat = operation.prepare(scratch);
    vx_measured(repeat, times);
    ::_exit(EXIT_SUCCESS);
  }
  int status = 0;
  expect(::waitpid(child, &status, 0) == child && status == 0);
  std::printf("%d\t%d\t%s\n", child, times, operation.name);
}

/// Prints what the counts depend on in addition to our own sources.
void printEnvironment() {
#ifdef __clang__
  std::printf("compiler\t%s\n", __VERSION__);
#else
  std::printf("compiler\tGCC %s\n", __VERSION__);
#endif
  std::printf("flags\t%s\n", VX_COUNTED_FLAGS);
#ifdef __GLIBC__
  std::printf("C library\tglibc %s\n", ::gnu_get_libc_version());
#else
  std::printf("C library\tnot glibc\n");
#endif
#ifdef _LIBCPP_VERSION
  std::printf("C++ library\tlibc++ %d\n", _LIBCPP_VERSION);
#else
  std::printf("C++ library\tlibstdc++ %d\n", __GLIBCXX__);
#endif
  std::printf("miniz\t%s\n", minizInUse().c_str());
  // Libraries select functions by the processor's features. valgrind hides those newer than AVX2.
#ifdef __x86_64__
  const bool hasAvx2 = __builtin_cpu_supports("avx2") != 0;  // NOLINT(*-implicit-bool-conversion)
  std::printf("processor\tx86-64 %s AVX2\n", hasAvx2 ? "with" : "without");
#else
  std::printf("processor\tnot x86-64\n");
#endif
}

}  // namespace
}  // namespace vx::bench

int main(int argc, char** argv) {
  if (argc == 2 && std::string_view(argv[1]) == "--environment") {
    vx::bench::printEnvironment();
    return EXIT_SUCCESS;
  }
  for (const auto& operation : vx::bench::kOperations) {
    vx::bench::run(operation, operation.times);
    vx::bench::run(operation, 2 * operation.times);
  }
  return EXIT_SUCCESS;
}
