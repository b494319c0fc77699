// SPDX-License-Identifier: MIT

#pragma once

typedef float float_t;
typedef double double_t;

#define FP_NAN 1
#define FP_INFINITE 2
#define FP_ZERO 3
#define FP_NORMAL 4
#define FP_SUBNORMAL 5
#define HUGE_VAL __builtin_huge_val()
#define INFINITY __builtin_inff()
#define NAN __builtin_nanf("")

#define fpclassify(x) __builtin_fpclassify(FP_NAN, FP_INFINITE, FP_NORMAL, FP_SUBNORMAL, FP_ZERO, x)
#define isfinite(x) __builtin_isfinite(x)
#define isgreater(x, y) __builtin_isgreater(x, y)
#define isgreaterequal(x, y) __builtin_isgreaterequal(x, y)
#define isinf(x) __builtin_isinf(x)
#define isless(x, y) __builtin_isless(x, y)
#define islessequal(x, y) __builtin_islessequal(x, y)
#define islessgreater(x, y) __builtin_islessgreater(x, y)
#define isnan(x) __builtin_isnan(x)
#define isnormal(x) __builtin_isnormal(x)
#define isunordered(x, y) __builtin_isunordered(x, y)
#define signbit(x) __builtin_signbit(x)

// A function for each of its three types.
#define VX_OF_ONE(name)   \
  double name(double x);  \
  float name##f(float x); \
  long double name##l(long double x);
#define VX_OF_TWO(name)            \
  double name(double x, double y); \
  float name##f(float x, float y); \
  long double name##l(long double x, long double y);

#ifdef __cplusplus
extern "C" {
#endif

VX_OF_ONE(acos)
VX_OF_ONE(acosh)
VX_OF_ONE(asin)
VX_OF_ONE(asinh)
VX_OF_ONE(atan)
VX_OF_ONE(atanh)
VX_OF_ONE(cbrt)
VX_OF_ONE(ceil)
VX_OF_ONE(cos)
VX_OF_ONE(cosh)
VX_OF_ONE(erf)
VX_OF_ONE(erfc)
VX_OF_ONE(exp)
VX_OF_ONE(exp2)
VX_OF_ONE(expm1)
VX_OF_ONE(fabs)
VX_OF_ONE(floor)
VX_OF_ONE(lgamma)
VX_OF_ONE(log)
VX_OF_ONE(log10)
VX_OF_ONE(log1p)
VX_OF_ONE(log2)
VX_OF_ONE(logb)
VX_OF_ONE(nearbyint)
VX_OF_ONE(rint)
VX_OF_ONE(round)
VX_OF_ONE(sin)
VX_OF_ONE(sinh)
VX_OF_ONE(sqrt)
VX_OF_ONE(tan)
VX_OF_ONE(tanh)
VX_OF_ONE(tgamma)
VX_OF_ONE(trunc)
VX_OF_TWO(atan2)
VX_OF_TWO(copysign)
VX_OF_TWO(fdim)
VX_OF_TWO(fmax)
VX_OF_TWO(fmin)
VX_OF_TWO(fmod)
VX_OF_TWO(hypot)
VX_OF_TWO(nextafter)
VX_OF_TWO(pow)
VX_OF_TWO(remainder)
double fma(double x, double y, double z);
float fmaf(float x, float y, float z);
long double fmal(long double x, long double y, long double z);
double frexp(double x, int* exponent);
float frexpf(float x, int* exponent);
long double frexpl(long double x, int* exponent);
int ilogb(double x);
int ilogbf(float x);
int ilogbl(long double x);
double ldexp(double x, int exponent);
float ldexpf(float x, int exponent);
long double ldexpl(long double x, int exponent);
long long llrint(double x);
long long llrintf(float x);
long long llrintl(long double x);
long long llround(double x);
long long llroundf(float x);
long long llroundl(long double x);
long lrint(double x);
long lrintf(float x);
long lrintl(long double x);
long lround(double x);
long lroundf(float x);
long lroundl(long double x);
double modf(double x, double* whole);
float modff(float x, float* whole);
long double modfl(long double x, long double* whole);
double nan(const char* tag);
float nanf(const char* tag);
long double nanl(const char* tag);
double nexttoward(double x, long double y);
float nexttowardf(float x, long double y);
long double nexttowardl(long double x, long double y);
double remquo(double x, double y, int* quotient);
float remquof(float x, float y, int* quotient);
long double remquol(long double x, long double y, int* quotient);
double scalbln(double x, long exponent);
float scalblnf(float x, long exponent);
long double scalblnl(long double x, long exponent);
double scalbn(double x, int exponent);
float scalbnf(float x, int exponent);
long double scalbnl(long double x, int exponent);

#ifdef __cplusplus
}
#endif

#undef VX_OF_ONE
#undef VX_OF_TWO
