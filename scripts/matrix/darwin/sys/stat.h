// SPDX-License-Identifier: MIT

#pragma once

#include <sys/types.h>
#include <time.h>

#define S_IFMT 0170000
#define S_IFDIR 0040000
#define S_IFREG 0100000
#define S_IFLNK 0120000
#define S_ISDIR(mode) (((mode)&S_IFMT) == S_IFDIR)
#define S_ISREG(mode) (((mode)&S_IFMT) == S_IFREG)
#define S_ISLNK(mode) (((mode)&S_IFMT) == S_IFLNK)
#define S_IRWXU 0000700
#define S_IRWXG 0000070
#define S_IRWXO 0000007

struct stat {
  dev_t st_dev;
  mode_t st_mode;
  nlink_t st_nlink;
  ino_t st_ino;
  uid_t st_uid;
  gid_t st_gid;
  dev_t st_rdev;
  struct timespec st_atimespec;
  struct timespec st_mtimespec;
  struct timespec st_ctimespec;
  struct timespec st_birthtimespec;
  off_t st_size;
  blkcnt_t st_blocks;
  blksize_t st_blksize;
  uint32_t st_flags;
  uint32_t st_gen;
  int32_t st_lspare;
  int64_t st_qspare[2];
};
#define st_mtime st_mtimespec.tv_sec

#ifdef __cplusplus
extern "C" {
#endif

int stat(const char* path, struct stat* status);
int lstat(const char* path, struct stat* status);
int fstat(int file, struct stat* status);
int mkdir(const char* path, mode_t mode);
int chmod(const char* path, mode_t mode);

#ifdef __cplusplus
}
#endif
