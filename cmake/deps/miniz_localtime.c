/* The local time for miniz. The C library has one place for the answers of all threads, where two
   that write archives at once would find each other's; here every thread has its own. A time that
   has no date gets the first one, where miniz would follow a null pointer. */

#include <string.h>
#include <time.h>

struct tm* miniz_localtime(const time_t* time);

struct tm* miniz_localtime(const time_t* time) {
  static __thread struct tm date;
  if (localtime_r(time, &date) == NULL) {
    memset(&date, 0, sizeof date);
  }
  return &date;
}
