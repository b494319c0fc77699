// SPDX-License-Identifier: MIT

#pragma once

#include <sys/types.h>

#define CLOCKS_PER_SEC 1000000UL
#define TIME_UTC 1

typedef enum { CLOCK_REALTIME = 0, CLOCK_MONOTONIC = 6 } clockid_t;

struct timespec {
  time_t tv_sec;
  long tv_nsec;
};

struct tm {
  int tm_sec;
  int tm_min;
  int tm_hour;
  int tm_mday;
  int tm_mon;
  int tm_year;
  int tm_wday;
  int tm_yday;
  int tm_isdst;
  long tm_gmtoff;
  char* tm_zone;
};

#ifdef __cplusplus
extern "C" {
#endif

char* asctime(const struct tm* date);
clock_t clock(void);
int clock_gettime(clockid_t clock, struct timespec* time);
char* ctime(const time_t* time);
double difftime(time_t later, time_t sooner);
struct tm* gmtime(const time_t* time);
struct tm* localtime(const time_t* time);
struct tm* localtime_r(const time_t* time, struct tm* date);
time_t mktime(struct tm* date);
int nanosleep(const struct timespec* wanted, struct timespec* rest);
size_t strftime(char* to, size_t size, const char* format, const struct tm* date);
time_t time(time_t* time);
int timespec_get(struct timespec* time, int base);

#ifdef __cplusplus
}
#endif
