// SPDX-License-Identifier: MIT
//
// No guard: each inclusion takes NDEBUG as it then stands.

#undef assert
#ifdef NDEBUG
#define assert(condition) ((void)0)
#else
#define assert(condition) \
  ((condition) ? (void)0 : __assert_rtn(__func__, __FILE__, __LINE__, #condition))
#endif

#ifdef __cplusplus
extern "C"
#endif
    void
    __assert_rtn(const char* function, const char* file, int line, const char* condition)
        __attribute__((noreturn));
