// SPDX-License-Identifier: MIT
//
// The dates of files in archives, and the conversion of an entry's date. What the format cannot
// hold is limited only by the pinned copy of miniz.

#include "fs/vx_fs.h"
#include "tests/testing/archives.h"
#include "tests/testing/scoped.h"
#include "tests/testing/temp_dir.h"

#include <gtest/gtest.h>
#include <miniz.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <ostream>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>

namespace vx::test {
namespace {

using fs::readZip;
using fs::writeZip;

#ifdef VX_PINNED_MINIZ
constexpr bool kMinizIsPinned = true;
#else
constexpr bool kMinizIsPinned = false;
#endif

constexpr const char* kNeedsPinnedMiniz = "only the pinned copy of miniz does this";

std::tm utc(std::time_t time) {
  std::tm fields{};
  ::gmtime_r(&time, &fields);
  return fields;
}

std::uint16_t dateField(const std::tm& day) {
  return static_cast<std::uint16_t>((day.tm_year - 80) << 9 | (day.tm_mon + 1) << 5 | day.tm_mday);
}

std::uint16_t timeField(const std::tm& day) {
  return static_cast<std::uint16_t>(day.tm_hour << 11 | day.tm_min << 5 | day.tm_sec / 2);
}

// ---- Files into archives and out of them --------------------------------------------------------

struct FileDate {
  const char* label;
  std::int64_t time;
  const char* inArchive;
  std::int64_t extracted;
  bool needsPinnedMiniz;
};

void PrintTo(const FileDate& date, std::ostream* out) {
  *out << date.label;
}

class ZipDate : public testing::TestWithParam<FileDate> {
 protected:
  /// Gives the file the time; false where the file system cannot hold it.
  static bool setTime(const std::string& file, std::int64_t time) {
    if (time > std::numeric_limits<std::time_t>::max()) {
      return false;
    }
    const timespec when{static_cast<std::time_t>(time), 0};
    const std::array<timespec, 2> times = {when, when};
    return ::utimensat(AT_FDCWD, file.c_str(), times.data(), 0) == 0 && timeOf(file) == time;
  }

  static std::int64_t timeOf(const std::string& file) {
    struct stat status {};
    EXPECT_EQ(::stat(file.c_str(), &status), 0) << file;
    return status.st_mtime;
  }

  /// The date of the archive's first entry.
  [[nodiscard]] std::string dateInArchive() const {
    const std::string bytes = tmp.read("pack.zip");
    const auto field = [&](std::size_t offset) {
      return static_cast<unsigned char>(bytes.at(offset)) |
             static_cast<unsigned char>(bytes.at(offset + 1)) << 8;
    };
    const int time = field(10);
    const int date = field(12);
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%04d-%02d-%02d %02d:%02d:%02d", (date >> 9) + 1980,
                  date >> 5 & 15, date & 31, time >> 11, time >> 5 & 63, (time & 31) * 2);
    return text.data();
  }

  // The file system in memory holds every date.
  const TempDir tmp = TempDir::inMemory();
  const ScopedTimeZone utc{"UTC0"};
};

TEST_P(ZipDate, IsWrittenAndExtracted) {
  if (GetParam().needsPinnedMiniz && !kMinizIsPinned) {
    GTEST_SKIP() << kNeedsPinnedMiniz;
  }
  const std::string source = tmp.write("file", "text");
  if (!setTime(source, GetParam().time)) {
    GTEST_SKIP() << "the system cannot give a file this time";
  }

  ASSERT_TRUE(writeZip(tmp.path("pack.zip").c_str(), {source.c_str()}, {}));
  ASSERT_EQ(readZip(tmp.path("pack.zip").c_str(), tmp.path("out").c_str(), {}).size(), 1U);

  EXPECT_EQ(dateInArchive(), GetParam().inArchive);
  EXPECT_EQ(timeOf(tmp.path("out/res/file")), GetParam().extracted);
}

constexpr std::int64_t kFirst = 315'532'800;   // 1980-01-01 00:00:00
constexpr std::int64_t kLast = 4'354'819'198;  // 2107-12-31 23:59:58
constexpr std::int64_t kNoDate = 1LL << 60;    // of a year that does not fit into an int

INSTANTIATE_TEST_SUITE_P(
    Of, ZipDate,
    testing::Values(FileDate{"Year1970", 0, "1980-01-01 00:00:00", kFirst, true},
                    FileDate{"Before1970", -1, "1980-01-01 00:00:00", kFirst, true},
                    FileDate{"Year1979", kFirst - 1, "1980-01-01 00:00:00", kFirst, true},
                    FileDate{"Year1980", kFirst + 2, "1980-01-01 00:00:02", kFirst + 2, false},
                    FileDate{"Year2107", kLast - 2, "2107-12-31 23:59:56", kLast - 2, false},
                    FileDate{"Year2108", kLast + 2, "2107-12-31 23:59:58", kLast, true},
                    FileDate{"NoDate", kNoDate, "1980-01-01 00:00:00", kFirst, true}),
    [](const auto& row) { return std::string(row.param.label); });

// ---- The conversion of an entry's date ----------------------------------------------------------

constexpr std::time_t kHour = 3600;
constexpr std::time_t kBegin = 1'546'300'800;  // 2019-01-01
constexpr std::time_t kEnd = 1'861'920'000;    // 2029-01-01

/// An archive with an empty file for every hour of ten years.
const std::string& hours() {
  static const std::string bytes = [] {
    ZipMaker zip;
    for (std::time_t hour = kBegin; hour < kEnd; hour += kHour) {
      ZipEntry entry{.name = std::to_string(hour), .content = ""};
      entry.date = dateField(utc(hour));
      entry.time = timeField(utc(hour));
      zip.add(entry);
    }
    return zip.bytes();
  }();
  return bytes;
}

bool showsHour(std::time_t time, std::time_t hour) {
  std::tm local{};
  ::localtime_r(&time, &local);
  return ::timegm(&local) == hour;
}

/// Whether a clock change repeats or skips the hour.
bool isAmbiguous(std::time_t hour, std::time_t one, std::time_t other) {
  return showsHour(one, hour) == showsHour(other, hour) && std::abs(one - other) <= kHour;
}

class EntryDate : public testing::TestWithParam<const char*> {};

TEST_P(EntryDate, IsWhatMktimeMakesOfIt) {
  const ScopedTimeZone zone(GetParam());
  mz_zip_archive zip;
  mz_zip_zero_struct(&zip);
  ASSERT_TRUE(mz_zip_reader_init_mem(&zip, hours().data(), hours().size(), 0));

  mz_uint index = 0;
  for (std::time_t hour = kBegin; hour < kEnd; hour += kHour, ++index) {
    mz_zip_archive_file_stat entry;
    ASSERT_TRUE(mz_zip_reader_file_stat(&zip, index, &entry));
    std::tm fields = utc(hour);
    fields.tm_isdst = -1;
    const std::time_t expected = std::mktime(&fields);
    ASSERT_TRUE(entry.m_time == expected || isAmbiguous(hour, entry.m_time, expected))
        << entry.m_filename << ": " << entry.m_time << ", not " << expected;
  }

  mz_zip_reader_end(&zip);
}

// Written as rules, which need no files of time zones: Greenwich, Berlin, New York, Kathmandu, and
// Lord Howe, whose clocks change by half an hour.
INSTANTIATE_TEST_SUITE_P(In, EntryDate,
                         testing::Values("UTC0", "CET-1CEST,M3.5.0,M10.5.0/3",
                                         "EST5EDT,M3.2.0,M11.1.0", "<+0545>-5:45",
                                         "<+1030>-10:30<+11>-11,M10.1.0,M4.1.0"),
                         [](const auto& row) { return std::to_string(row.index); });

// The time zone is read once, as looking for it costs as much as extracting a small file.
TEST(EntryTimeZone, IsThatOfTheLastTzset) {
  if (!kMinizIsPinned) {
    GTEST_SKIP() << kNeedsPinnedMiniz;
  }
#ifndef __GLIBC__
  GTEST_SKIP() << "the localtime_r of musl calls tzset";
#endif
  const TempDir tmp;
  ZipEntry entry{.name = "a", .content = "text"};
  entry.date = dateField(utc(kBegin));
  tmp.write("pack.zip", ZipMaker().add(entry).bytes());
  const ScopedTimeZone zone("UTC0");
  const ScopedEnv later("TZ", "<+01>-1");

  ASSERT_EQ(readZip(tmp.path("pack.zip").c_str(), tmp.path().c_str()).size(), 1U);

  struct stat status {};
  ASSERT_EQ(::stat(tmp.path("a").c_str(), &status), 0);
  EXPECT_EQ(status.st_mtime, kBegin);
}

}  // namespace
}  // namespace vx::test
