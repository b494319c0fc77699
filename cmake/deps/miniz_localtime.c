/* The local time for miniz. The C library has one place for the answers of all threads, where two
   that write archives at once would find each other's; here every thread has its own. */

#include <time.h>

struct tm* miniz_localtime(const time_t* time);

struct tm* miniz_localtime(const time_t* time) {
  static __thread struct tm date;
  return localtime_r(time, &date);
}
