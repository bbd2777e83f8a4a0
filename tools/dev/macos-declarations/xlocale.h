// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <ctype.h>
#include <locale.h>
// These macros access the locale, which may be null.
#undef isdigit_l
#undef isxdigit_l
// Functions that libc++ needs but the substituted C library lacks.
STUB_EXTERN struct lconv* localeconv_l(locale_t locale) MAC_API(10.4);
STUB_EXTERN int asprintf_l(char** text, locale_t locale, const char* format, ...) MAC_API(10.4);
STUB_EXTERN int
snprintf_l(char* text, decltype(sizeof(0)) size, locale_t locale, const char* format, ...)
    MAC_API(10.4);
STUB_EXTERN int sscanf_l(const char* text, locale_t locale, const char* format, ...) MAC_API(10.4);
