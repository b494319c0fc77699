// SPDX-License-Identifier: MIT

#pragma once

#include <sys/types.h>

typedef struct DIR DIR;

struct dirent {
  uint64_t d_ino;
  uint64_t d_seekoff;
  uint16_t d_reclen;
  uint16_t d_namlen;
  uint8_t d_type;
  char d_name[1024];
};

#ifdef __cplusplus
extern "C" {
#endif

DIR* opendir(const char* path);
struct dirent* readdir(DIR* directory);
int closedir(DIR* directory);

#ifdef __cplusplus
}
#endif
