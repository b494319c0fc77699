// SPDX-License-Identifier: MIT

/* Builds miniz.c with some of its macros and functions replaced. miniz.h is included first: its
   include guard keeps miniz.c from defining the replaced macros again. */

#include <miniz.h>

#include <stdint.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <utime.h>
#ifdef __linux__
#include <stdio_ext.h>
#endif

/* ---- Loads: miniz casts the address, which is undefined behaviour if it is not aligned. */

#if MINIZ_USE_UNALIGNED_LOADS_AND_STORES && MINIZ_LITTLE_ENDIAN
static mz_uint16 load16(const void* bytes) {
  mz_uint16 value;
  memcpy(&value, bytes, sizeof value);
  return value;
}

static mz_uint32 load32(const void* bytes) {
  mz_uint32 value;
  memcpy(&value, bytes, sizeof value);
  return value;
}

#undef MZ_READ_LE16
#undef MZ_READ_LE32
#define MZ_READ_LE16(p) load16(p)
#define MZ_READ_LE32(p) load32(p)
#endif

/* ---- Checksums: libdeflate is several times as fast as miniz. */

#ifdef USE_EXTERNAL_MZCRC
#include <libdeflate.h>

mz_ulong mz_crc32(mz_ulong crc, const mz_uint8* bytes, size_t length) {
  return libdeflate_crc32((uint32_t)crc, bytes, length);
}
#endif

/* ---- Times: both conversions are thread-safe and do not read the time zone file on each call. A
   new time zone takes effect after tzset(). */

static time_t clock_as_utc(const struct tm* local) {
  struct tm copy = *local;
  return timegm(&copy);
}

/* Seconds between local time and UTC at `time`; 0 for a time that has no date. */
static time_t utc_offset(time_t time) {
  struct tm local;
  return localtime_r(&time, &local) != NULL ? (time_t)local.tm_gmtoff : 0;
}

/* Like mktime, but may apply either offset in an hour that a clock change repeats or skips. */
static time_t time_of(const struct tm* local) {
  const time_t as_utc = clock_as_utc(local);
  const time_t guess = as_utc - utc_offset(as_utc);
  return as_utc - utc_offset(guess);
}

/* The years that an entry can hold, as struct tm counts them. */
enum { first_year = 1980 - 1900, last_year = 2107 - 1900 };

static struct tm date_in_range(struct tm date) {
  if (date.tm_year < first_year) {
    return (struct tm){.tm_year = first_year, .tm_mon = 0, .tm_mday = 1};
  }
  if (date.tm_year > last_year) {
    return (struct tm){.tm_year = last_year,
                       .tm_mon = 11,
                       .tm_mday = 31,
                       .tm_hour = 23,
                       .tm_min = 59,
                       .tm_sec = 59};
  }
  return date;
}

/* Like localtime, but limited to the dates that an entry can hold. A time without a date becomes
   the first one. */
static struct tm* date_of(const time_t* time) {
  static __thread struct tm date;
  struct tm local;
  if (localtime_r(time, &local) == NULL) {
    local = (struct tm){0};
  }
  date = date_in_range(local);
  return &date;
}

#define mktime(local) time_of(local)
#define localtime(time) date_of(time)

/* ---- Seeks: fseek makes a system call even if the target is in the buffer. */

enum { longest_gap = 4096 };

/* Skips `length` bytes by reading them. Fails if the last operation was a write. */
static int skip(FILE* file, size_t length) {
#ifdef __linux__
  char gap[longest_gap];
  return __freading(file) && fread(gap, 1, length, file) == length;
#else
  (void)file;
  (void)length;
  return 0;
#endif
}

static int seek(FILE* file, off_t offset, int whence) {
  if (whence == SEEK_SET) {
    const off_t gap = offset - ftello(file);
    if (gap > 0 && gap <= longest_gap && skip(file, (size_t)gap)) {
      return 0;
    }
  }
  return fseeko(file, offset, whence);
}

#define fseeko(file, offset, whence) seek(file, offset, whence)
#define fseeko64(file, offset, whence) seek(file, offset, whence)

/* ---- Replaced functions: miniz's versions are renamed. */

#define mz_zip_writer_init_file miniz_init_file
#define mz_zip_writer_add_file miniz_add_file
#define mz_zip_writer_finalize_archive miniz_finalize_archive

#include "miniz.c"

#undef mz_zip_writer_init_file
#undef mz_zip_writer_add_file
#undef mz_zip_writer_finalize_archive

/* miniz calls ftello before each write. Until the first seek, each ftello makes a system call. */
mz_bool mz_zip_writer_init_file(mz_zip_archive* zip, const char* path, mz_uint64 reserved) {
  if (!miniz_init_file(zip, path, reserved)) {
    return MZ_FALSE;
  }
  (fseeko)(zip->m_pState->m_pFile, 0, SEEK_CUR);
  return MZ_TRUE;
}

/* miniz's version makes 13 system calls for a small input, this one makes 5. */

static size_t read_input(void* file, mz_uint64 offset, void* buffer, size_t length) {
  (void)offset; /* Inputs are read sequentially. */
  return feof((FILE*)file) ? 0 : fread(buffer, 1, length, (FILE*)file);
}

mz_bool mz_zip_writer_add_file(mz_zip_archive* zip, const char* name, const char* path,
                               const void* comment, mz_uint16 comment_size,
                               mz_uint level_and_flags) {
  struct stat status;
  MZ_TIME_T modified;
  mz_bool added;
  FILE* const input = fopen(path, "rb");
  if (input == NULL) {
    return mz_zip_set_error(zip, MZ_ZIP_FILE_OPEN_FAILED);
  }
  setvbuf(input, NULL, _IONBF, 0); /* miniz has a larger buffer. */
  if (fstat(fileno(input), &status) != 0) {
    fclose(input);
    return mz_zip_set_error(zip, MZ_ZIP_FILE_STAT_FAILED);
  }
  modified = status.st_mtime;
  added = mz_zip_writer_add_read_buf_callback(zip, name, read_input, input,
                                              (mz_uint64)status.st_size, &modified, comment,
                                              comment_size, level_and_flags, NULL, 0, NULL, 0);
  fclose(input);
  return added;
}

/* Archives larger than 4 GiB: miniz switches to zip64 only if a file begins after the limit, and
   fails to finalise an archive whose last file crosses it. */

mz_bool mz_zip_writer_finalize_archive(mz_zip_archive* zip) {
  if (zip != NULL && zip->m_pState != NULL &&
      zip->m_archive_size + zip->m_pState->m_central_dir.m_size +
              MZ_ZIP_END_OF_CENTRAL_DIR_HEADER_SIZE >
          MZ_UINT32_MAX) {
    zip->m_pState->m_zip64 = MZ_TRUE;
  }
  return miniz_finalize_archive(zip);
}
