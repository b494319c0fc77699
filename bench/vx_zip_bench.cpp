// SPDX-License-Identifier: MIT
//
// Compares reading and writing archives with plain loops over miniz, and with other libraries and
// programs.

#include "bench/vx_inputs.h"
#include "bench/vx_miniz.h"
#include "bench/vx_workload.h"
#include "fs/vx_fs.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <map>
#include <memory>
#include <ostream>
#include <random>
#include <string>
#include <vector>

#include <archive.h>
#include <archive_entry.h>
#include <fcntl.h>
#include <limits.h>
#include <minizip/unzip.h>
#include <minizip/zip.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>
#include <zip.h>

extern char** environ;

namespace {

using vx::bench::Workload;

constexpr std::size_t kBlock = 64 * 1024;

struct CloseFile {
  void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// ---- Input files -------------------------------------------------------------------------------

std::string noise(std::mt19937& random, std::size_t size) {
  std::string made(size, '\0');
  std::generate(made.begin(), made.end(), [&] { return static_cast<char>(random()); });
  return made;
}

template <std::string (*kGenerate)(std::mt19937&, std::size_t)>
void fill(std::ostream& file, std::mt19937& random, std::size_t size) {
  file << kGenerate(random, size);
}

const Workload& workload(const std::string& name) {
  static std::map<std::string, std::unique_ptr<Workload>> made;
  auto& slot = made[name];
  if (slot == nullptr) {
    constexpr std::size_t kLarge = 64 * 1024 * 1024;
    constexpr auto kText = fill<vx::bench::text>;
    slot = name == "64 MiB text"      ? std::make_unique<Workload>(kText, 1, kLarge)
           : name == "64 MiB noise"   ? std::make_unique<Workload>(fill<noise>, 1, kLarge)
           : name == "2,000 x 16 KiB" ? std::make_unique<Workload>(kText, 2000, 16 * 1024)
                                      : std::make_unique<Workload>(kText, 20000, 200);
    slot->makeArchive();
  }
  return *slot;
}

// ---- Writing ----------------------------------------------------------------------------------

/// The system calls that the library makes for each file in addition to those of miniz.
enum class Checks { None, OfTheLibrary };

/// Computes canonical paths of the inputs. As in the library, the directory is resolved once.
template <Checks kChecks>
class Inputs {
 public:
  explicit Inputs(const Workload& work) {
    if constexpr (kChecks == Checks::OfTheLibrary) {
      char canonical[PATH_MAX];
      directory_ = ::realpath(work.in().c_str(), canonical) != nullptr ? canonical : "";
    }
  }

  /// Returns the path for opening `file`, or an empty path if it is not a regular file.
  [[nodiscard]] std::string checked(const std::string& file) const {
    struct stat status;
    const bool isFile =
        kChecks == Checks::None || (::stat(file.c_str(), &status) == 0 && S_ISREG(status.st_mode));
    return isFile ? resolved(file) : std::string();
  }

  /// Like `checked`, but does not test that `file` is a regular file.
  [[nodiscard]] std::string resolved(const std::string& file) const {
    if constexpr (kChecks == Checks::None) {
      return file;
    }
    struct stat status;
    const bool isLink = ::lstat(file.c_str(), &status) != 0 || S_ISLNK(status.st_mode);
    return isLink ? std::string() : directory_ + file.substr(file.rfind('/'));
  }

 private:
  std::string directory_;
};

template <Checks kChecks>
bool writePlainC(const Workload& work) {
  const Inputs<kChecks> inputs(work);
  mz_zip_archive zip;
  mz_zip_zero_struct(&zip);
  bool good = mz_zip_writer_init_file(&zip, work.written().c_str(), 0) != MZ_FALSE;
  for (const std::string& file : work.files()) {
    const std::string input = inputs.checked(file);
    good = good && mz_zip_writer_add_file(&zip, Workload::entryName(file).c_str(), input.c_str(),
                                          nullptr, 0, MZ_BEST_SPEED) != MZ_FALSE;
  }
  return good && mz_zip_writer_finalize_archive(&zip) != MZ_FALSE && mz_zip_end(&zip) != MZ_FALSE;
}

bool writeVx(const Workload& work) {
  return vx::fs::writeZip(work.written().c_str(), work.list(), {});
}

template <Checks kChecks>
bool writeLibzip(const Workload& work) {
  const Inputs<kChecks> inputs(work);
  int error = 0;
  zip_t* const zip = zip_open(work.written().c_str(), ZIP_CREATE | ZIP_TRUNCATE, &error);
  if (zip == nullptr) {
    return false;
  }
  for (const std::string& file : work.files()) {
    zip_source_t* const source = zip_source_file(zip, inputs.checked(file).c_str(), 0, -1);
    const zip_int64_t index =
        zip_file_add(zip, Workload::entryName(file).c_str(), source, ZIP_FL_ENC_UTF_8);
    zip_set_file_compression(zip, static_cast<zip_uint64_t>(index), ZIP_CM_DEFLATE, 1);
  }
  return zip_close(zip) == 0;
}

template <Checks kChecks>
bool writeMinizip(const Workload& work) {
  const Inputs<kChecks> inputs(work);
  const zipFile zip = zipOpen64(work.written().c_str(), APPEND_STATUS_CREATE);
  std::vector<char> buffer(kBlock);
  for (const std::string& file : work.files()) {
    const zip_fileinfo info{};
    zipOpenNewFileInZip64(zip, Workload::entryName(file).c_str(), &info, nullptr, 0, nullptr, 0,
                          nullptr, Z_DEFLATED, 1, 0);
    const File in(std::fopen(inputs.checked(file).c_str(), "rb"));
    while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), in.get())) {
      zipWriteInFileInZip(zip, buffer.data(), static_cast<unsigned>(got));
    }
    zipCloseFileInZip(zip);
  }
  return zipClose(zip, nullptr) == ZIP_OK;
}

template <Checks kChecks>
bool writeLibarchive(const Workload& work) {
  const Inputs<kChecks> inputs(work);
  archive* const zip = archive_write_new();
  archive_write_set_format_zip(zip);
  archive_write_set_options(zip, "zip:compression=deflate,zip:compression-level=1");
  archive_write_open_filename(zip, work.written().c_str());
  std::vector<char> buffer(kBlock);
  for (const std::string& file : work.files()) {
    struct stat status;
    ::stat(file.c_str(), &status);
    archive_entry* const entry = archive_entry_new();
    archive_entry_set_pathname(entry, Workload::entryName(file).c_str());
    archive_entry_copy_stat(entry, &status);
    archive_write_header(zip, entry);
    const File in(std::fopen(inputs.resolved(file).c_str(), "rb"));
    while (const std::size_t got = std::fread(buffer.data(), 1, buffer.size(), in.get())) {
      archive_write_data(zip, buffer.data(), got);
    }
    archive_entry_free(entry);
  }
  const bool good = archive_write_close(zip) == ARCHIVE_OK;
  archive_write_free(zip);
  return good;
}

/// Runs a program in `directory` and discards its output.
bool run(std::vector<std::string> arguments, const std::string& directory) {
  std::vector<char*> pointers;
  for (std::string& argument : arguments) {
    pointers.push_back(argument.data());
  }
  pointers.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
  pid_t child = 0;
  const int failed =
      ::posix_spawnp(&child, pointers[0], &actions, nullptr, pointers.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  int status = -1;
  return failed == 0 && ::waitpid(child, &status, 0) == child && status == 0;
}

bool writeZipProgram(const Workload& work) {
  return run({"zip", "-1", "-q", "-r", work.written(), "."}, work.in());
}

bool writeBsdtar(const Workload& work) {
  return run({"bsdtar", "-c", "--format", "zip", "--options", "zip:compression-level=1", "-f",
              work.written(), "."},
             work.in());
}

bool writePython(const Workload& work) {
  return run(
      {"python3", "-c",
       "import os, sys, zipfile\n"
       "with zipfile.ZipFile(sys.argv[1], 'w', zipfile.ZIP_DEFLATED, compresslevel=1) as z:\n"
       "    for name in os.listdir('.'):\n"
       "        z.write(name, 'res/' + name)\n",
       work.written()},
      work.in());
}

// ---- Reading ----------------------------------------------------------------------------------

/// Makes the stat calls of the library for a file with this parent directory.
template <Checks kChecks>
bool mayExtract(const std::string& directory, const char* path) {
  if constexpr (kChecks == Checks::None) {
    return true;
  }
  struct stat status;
  return ::stat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) &&
         (::stat(path, &status) != 0 || S_ISREG(status.st_mode));
}

template <Checks kChecks>
bool readPlainC(const Workload& work) {
  mz_zip_archive zip;
  mz_zip_zero_struct(&zip);
  if (mz_zip_reader_init_file(&zip, work.archive().c_str(), 0) == MZ_FALSE) {
    return false;
  }
  const std::string directory = work.out() + "/res";
  ::mkdir(directory.c_str(), 0777);
  bool good = true;
  for (mz_uint i = 0; i < mz_zip_reader_get_num_files(&zip); ++i) {
    char name[512];
    char full[4096];
    mz_zip_reader_get_filename(&zip, i, name, sizeof name);
    std::snprintf(full, sizeof full, "%s/%s", work.out().c_str(), name);
    if (mz_zip_reader_is_file_supported(&zip, i) != MZ_FALSE &&
        mz_zip_reader_is_file_a_directory(&zip, i) == MZ_FALSE) {
      good = good && mayExtract<kChecks>(directory, full) &&
             mz_zip_reader_extract_to_file(&zip, i, full, 0) != MZ_FALSE;
    }
  }
  return mz_zip_reader_end(&zip) != MZ_FALSE && good;
}

bool readVx(const Workload& work) {
  return !vx::fs::readZip(work.archive().c_str(), work.out().c_str(), {}).empty();
}

// For the libraries that do not set the times of extracted files, unlike miniz.
void setTime(const std::string& path, std::time_t time) {
  const utimbuf times{.actime = time, .modtime = time};
  ::utime(path.c_str(), &times);
}

template <Checks kChecks>
bool readLibzip(const Workload& work) {
  int error = 0;
  zip_t* const zip = zip_open(work.archive().c_str(), ZIP_RDONLY, &error);
  if (zip == nullptr) {
    return false;
  }
  const std::string directory = work.out() + "/res";
  ::mkdir(directory.c_str(), 0777);
  std::vector<char> buffer(kBlock);
  const zip_int64_t count = zip_get_num_entries(zip, 0);
  for (zip_int64_t i = 0; i < count; ++i) {
    const auto index = static_cast<zip_uint64_t>(i);
    const std::string path = work.out() + "/" + zip_get_name(zip, index, 0);
    if (!mayExtract<kChecks>(directory, path.c_str())) {
      return false;
    }
    zip_file_t* const in = zip_fopen_index(zip, index, 0);
    File out(std::fopen(path.c_str(), "wb"));
    for (zip_int64_t got = 0; (got = zip_fread(in, buffer.data(), buffer.size())) > 0;) {
      std::fwrite(buffer.data(), 1, static_cast<std::size_t>(got), out.get());
    }
    zip_fclose(in);
    out.reset();
    zip_stat_t status;
    zip_stat_index(zip, index, 0, &status);
    setTime(path, status.mtime);
  }
  return zip_close(zip) == 0;
}

std::time_t localTime(const tm_unz& date) {
  std::tm time{};
  time.tm_sec = static_cast<int>(date.tm_sec);
  time.tm_min = static_cast<int>(date.tm_min);
  time.tm_hour = static_cast<int>(date.tm_hour);
  time.tm_mday = static_cast<int>(date.tm_mday);
  time.tm_mon = static_cast<int>(date.tm_mon);
  time.tm_year = static_cast<int>(date.tm_year) - 1900;
  time.tm_isdst = -1;
  return std::mktime(&time);
}

template <Checks kChecks>
bool readMinizip(const Workload& work) {
  const unzFile zip = unzOpen64(work.archive().c_str());
  const std::string directory = work.out() + "/res";
  ::mkdir(directory.c_str(), 0777);
  std::vector<char> buffer(kBlock);
  int at = unzGoToFirstFile(zip);
  for (; at == UNZ_OK; at = unzGoToNextFile(zip)) {
    char name[512];
    unz_file_info64 info;
    unzGetCurrentFileInfo64(zip, &info, name, sizeof name, nullptr, 0, nullptr, 0);
    unzOpenCurrentFile(zip);
    const std::string path = work.out() + "/" + name;
    if (!mayExtract<kChecks>(directory, path.c_str())) {
      return false;
    }
    File out(std::fopen(path.c_str(), "wb"));
    for (int got = 0; (got = unzReadCurrentFile(zip, buffer.data(),
                                                static_cast<unsigned>(buffer.size()))) > 0;) {
      std::fwrite(buffer.data(), 1, static_cast<std::size_t>(got), out.get());
    }
    unzCloseCurrentFile(zip);
    out.reset();
    setTime(path, localTime(info.tmu_date));
  }
  unzClose(zip);
  return at == UNZ_END_OF_LIST_OF_FILE;
}

template <Checks kChecks>
bool readLibarchive(const Workload& work) {
  archive* const zip = archive_read_new();
  archive_read_support_format_zip_seekable(zip);
  archive_read_open_filename(zip, work.archive().c_str(), kBlock);
  archive* const disk = archive_write_disk_new();
  archive_write_disk_set_options(disk, ARCHIVE_EXTRACT_TIME);
  const std::string directory = work.out() + "/res";
  ::mkdir(directory.c_str(), 0777);
  archive_entry* entry = nullptr;
  int at = ARCHIVE_OK;
  while ((at = archive_read_next_header(zip, &entry)) == ARCHIVE_OK) {
    const std::string path = work.out() + "/" + archive_entry_pathname(entry);
    if (!mayExtract<kChecks>(directory, path.c_str())) {
      return false;
    }
    archive_entry_set_pathname(entry, path.c_str());
    archive_read_extract2(zip, entry, disk);
  }
  archive_write_free(disk);
  archive_read_free(zip);
  return at == ARCHIVE_EOF;
}

bool readUnzip(const Workload& work) {
  return run({"unzip", "-q", "-o", work.archive(), "-d", work.out()}, work.in());
}

bool readBsdtar(const Workload& work) {
  return run({"bsdtar", "-x", "-f", work.archive(), "-C", work.out()}, work.in());
}

bool readPython(const Workload& work) {
  return run(
      {"python3", "-c", "import sys, zipfile; zipfile.ZipFile(sys.argv[1]).extractall(sys.argv[2])",
       work.archive(), work.out()},
      work.in());
}

// ---- Registration -----------------------------------------------------------------------------

using Act = bool (*)(const Workload&);

void timeWriting(benchmark::State& state, const std::string& name, Act act) {
  const Workload& work = workload(name);
  for (auto _ : state) {
    if (!act(work)) {
      state.SkipWithError("the archive could not be written");
    }
    state.PauseTiming();
    std::filesystem::remove(work.written());
    state.ResumeTiming();
  }
}

void timeReading(benchmark::State& state, const std::string& name, Act act) {
  const Workload& work = workload(name);
  for (auto _ : state) {
    state.PauseTiming();
    std::filesystem::remove_all(work.out());
    std::filesystem::create_directory(work.out());
    state.ResumeTiming();
    if (!act(work)) {
      state.SkipWithError("the archive could not be read");
    }
  }
  std::filesystem::remove_all(work.out());
}

struct Contender {
  const char* name;
  Act write;
  Act read;
};

constexpr Contender kContenders[] = {
    {"plain C", writePlainC<Checks::OfTheLibrary>, readPlainC<Checks::OfTheLibrary>},
    {"miniz", writePlainC<Checks::None>, readPlainC<Checks::None>},
    {"vx", writeVx, readVx},
    {"libzip", writeLibzip<Checks::None>, readLibzip<Checks::None>},
    {"minizip", writeMinizip<Checks::None>, readMinizip<Checks::None>},
    {"libarchive", writeLibarchive<Checks::None>, readLibarchive<Checks::None>},
    {"libzip with the checks", writeLibzip<Checks::OfTheLibrary>, readLibzip<Checks::OfTheLibrary>},
    {"minizip with the checks", writeMinizip<Checks::OfTheLibrary>,
     readMinizip<Checks::OfTheLibrary>},
    {"libarchive with the checks", writeLibarchive<Checks::OfTheLibrary>,
     readLibarchive<Checks::OfTheLibrary>},
    {"zip, unzip", writeZipProgram, readUnzip},
    {"bsdtar", writeBsdtar, readBsdtar},
    {"Python zipfile", writePython, readPython},
};

}  // namespace

int main(int argc, char** argv) {
  for (const char* const name :
       {"64 MiB text", "64 MiB noise", "2,000 x 16 KiB", "20,000 x 200 B"}) {
    for (const Contender& contender : kContenders) {
      const auto add = [&](const std::string& family, auto benchmarkOf, Act act) {
        benchmark::RegisterBenchmark((family + name + "/" + contender.name).c_str(), benchmarkOf,
                                     std::string(name), act)
            ->UseRealTime()
            ->Unit(benchmark::kMillisecond);
      };
      add("writeZip ", timeWriting, contender.write);
      add("readZip ", timeReading, contender.read);
    }
  }
  benchmark::AddCustomContext("miniz", vx::bench::minizInUse());
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}
