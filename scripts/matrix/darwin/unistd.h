// SPDX-License-Identifier: MIT

#pragma once

#include <sys/types.h>

#define R_OK 4
#define W_OK 2
#define X_OK 1
#define F_OK 0

#ifdef __cplusplus
extern "C" {
#endif

int access(const char* path, int mode);
int close(int file);
char* getcwd(char* buffer, size_t size);
pid_t getpid(void);
ssize_t read(int file, void* to, size_t size);
ssize_t readlink(const char* path, char* buffer, size_t size);
int rmdir(const char* path);
int unlink(const char* path);
ssize_t write(int file, const void* from, size_t size);

#ifdef __cplusplus
}
#endif
