// SPDX-License-Identifier: MIT

#pragma once

#include <stddef.h>

#define EXIT_FAILURE 1
#define EXIT_SUCCESS 0
#define MB_CUR_MAX 6
#define RAND_MAX 0x7fffffff

typedef struct {
  int quot;
  int rem;
} div_t;
typedef struct {
  long quot;
  long rem;
} ldiv_t;
typedef struct {
  long long quot;
  long long rem;
} lldiv_t;

#ifdef __cplusplus
extern "C" {
#endif

void _Exit(int status) __attribute__((noreturn));
void abort(void) __attribute__((noreturn));
int abs(int value);
void* aligned_alloc(size_t alignment, size_t size);
int at_quick_exit(void (*function)(void));
int atexit(void (*function)(void));
double atof(const char* text);
int atoi(const char* text);
long atol(const char* text);
long long atoll(const char* text);
void* bsearch(const void* key, const void* base, size_t count, size_t size,
              int (*compare)(const void*, const void*));
void* calloc(size_t count, size_t size);
div_t div(int value, int by);
void exit(int status) __attribute__((noreturn));
void free(void* block);
char* getenv(const char* name);
long labs(long value);
ldiv_t ldiv(long value, long by);
long long llabs(long long value);
lldiv_t lldiv(long long value, long long by);
void* malloc(size_t size);
int mblen(const char* text, size_t size);
size_t mbstowcs(wchar_t* to, const char* from, size_t size);
int mbtowc(wchar_t* to, const char* from, size_t size);
int posix_memalign(void** block, size_t alignment, size_t size);
void qsort(void* base, size_t count, size_t size, int (*compare)(const void*, const void*));
void quick_exit(int status) __attribute__((noreturn));
int rand(void);
void* realloc(void* block, size_t size);
char* realpath(const char* path, char* resolved);
int setenv(const char* name, const char* value, int overwrite);
void srand(unsigned seed);
double strtod(const char* text, char** end);
float strtof(const char* text, char** end);
long strtol(const char* text, char** end, int base);
long double strtold(const char* text, char** end);
long long strtoll(const char* text, char** end, int base);
unsigned long strtoul(const char* text, char** end, int base);
unsigned long long strtoull(const char* text, char** end, int base);
int system(const char* command);
size_t wcstombs(char* to, const wchar_t* from, size_t size);
int wctomb(char* to, wchar_t c);

#ifdef __cplusplus
}
#endif
