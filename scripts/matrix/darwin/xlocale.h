// SPDX-License-Identifier: MIT
//
// The functions that take a locale, as libc++ calls them on macOS.

#pragma once

#include <locale.h>
#include <wctype.h>

typedef struct _xlocale* locale_t;

#define LC_COLLATE_MASK (1 << 0)
#define LC_CTYPE_MASK (1 << 1)
#define LC_MESSAGES_MASK (1 << 2)
#define LC_MONETARY_MASK (1 << 3)
#define LC_NUMERIC_MASK (1 << 4)
#define LC_TIME_MASK (1 << 5)
#define LC_ALL_MASK ((1 << 6) - 1)
#define LC_GLOBAL_LOCALE ((locale_t)-1)
#define MB_CUR_MAX_L(locale) 6

#ifdef __cplusplus
extern "C" {
#endif

locale_t duplocale(locale_t locale);
int freelocale(locale_t locale);
locale_t newlocale(int mask, const char* name, locale_t base);
locale_t uselocale(locale_t locale);

int asprintf_l(char** to, locale_t locale, const char* format, ...);
wint_t btowc_l(int c, locale_t locale);
int isalnum_l(int c, locale_t locale);
int isdigit_l(int c, locale_t locale);
int islower_l(int c, locale_t locale);
int isupper_l(int c, locale_t locale);
int isxdigit_l(int c, locale_t locale);
int iswctype_l(wint_t c, wctype_t type, locale_t locale);
struct lconv* localeconv_l(locale_t locale);
size_t mbrlen_l(const char* text, size_t size, mbstate_t* state, locale_t locale);
size_t mbrtowc_l(wchar_t* to, const char* from, size_t size, mbstate_t* state, locale_t locale);
size_t mbsnrtowcs_l(wchar_t* to, const char** from, size_t bytes, size_t size, mbstate_t* state,
                    locale_t locale);
size_t mbsrtowcs_l(wchar_t* to, const char** from, size_t size, mbstate_t* state, locale_t locale);
int mbtowc_l(wchar_t* to, const char* from, size_t size, locale_t locale);
int snprintf_l(char* to, size_t size, locale_t locale, const char* format, ...);
int sscanf_l(const char* text, locale_t locale, const char* format, ...);
int strcoll_l(const char* a, const char* b, locale_t locale);
size_t strftime_l(char* to, size_t size, const char* format, const struct tm* date,
                  locale_t locale);
double strtod_l(const char* text, char** end, locale_t locale);
float strtof_l(const char* text, char** end, locale_t locale);
long double strtold_l(const char* text, char** end, locale_t locale);
long long strtoll_l(const char* text, char** end, int base, locale_t locale);
unsigned long long strtoull_l(const char* text, char** end, int base, locale_t locale);
size_t strxfrm_l(char* to, const char* from, size_t size, locale_t locale);
int tolower_l(int c, locale_t locale);
int toupper_l(int c, locale_t locale);
wint_t towlower_l(wint_t c, locale_t locale);
wint_t towupper_l(wint_t c, locale_t locale);
size_t wcrtomb_l(char* to, wchar_t c, mbstate_t* state, locale_t locale);
int wcscoll_l(const wchar_t* a, const wchar_t* b, locale_t locale);
size_t wcsnrtombs_l(char* to, const wchar_t** from, size_t size, size_t bytes, mbstate_t* state,
                    locale_t locale);
size_t wcsxfrm_l(wchar_t* to, const wchar_t* from, size_t size, locale_t locale);
int wctob_l(wint_t c, locale_t locale);

#ifdef __cplusplus
}
#endif
