// SPDX-License-Identifier: MIT

#pragma once

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

void* memchr(const void* block, int c, size_t size);
int memcmp(const void* a, const void* b, size_t size);
void* memcpy(void* to, const void* from, size_t size);
void* memmove(void* to, const void* from, size_t size);
void* memset(void* block, int c, size_t size);
char* strcat(char* to, const char* from);
char* strchr(const char* text, int c);
int strcmp(const char* a, const char* b);
int strcoll(const char* a, const char* b);
char* strcpy(char* to, const char* from);
size_t strcspn(const char* text, const char* bytes);
char* strdup(const char* text);
char* strerror(int code);
// The form of POSIX: the text is in the buffer, the result a status.
int strerror_r(int code, char* buffer, size_t size);
size_t strlen(const char* text);
char* strncat(char* to, const char* from, size_t size);
int strncmp(const char* a, const char* b, size_t size);
char* strncpy(char* to, const char* from, size_t size);
char* strpbrk(const char* text, const char* bytes);
char* strrchr(const char* text, int c);
size_t strspn(const char* text, const char* bytes);
char* strstr(const char* text, const char* part);
char* strtok(char* text, const char* bytes);
size_t strxfrm(char* to, const char* from, size_t size);

#ifdef __cplusplus
}
#endif
