// SPDX-License-Identifier: MIT

#pragma once

typedef void* nl_catd;

#define NL_CAT_LOCALE 1

#ifdef __cplusplus
extern "C" {
#endif

int catclose(nl_catd catalogue);
char* catgets(nl_catd catalogue, int set, int message, const char* otherwise);
nl_catd catopen(const char* name, int flags);

#ifdef __cplusplus
}
#endif
