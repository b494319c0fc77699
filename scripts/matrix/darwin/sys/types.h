// SPDX-License-Identifier: MIT
//
// The types of macOS on 64-bit processors.

#pragma once

#include <stddef.h>
#include <stdint.h>

typedef int32_t dev_t;
typedef uint64_t ino_t;
typedef uint16_t mode_t;
typedef uint16_t nlink_t;
typedef uint32_t uid_t;
typedef uint32_t gid_t;
typedef int32_t pid_t;
typedef int64_t off_t;
typedef long ssize_t;
typedef long time_t;
typedef unsigned long clock_t;
typedef int64_t blkcnt_t;
typedef int32_t blksize_t;
