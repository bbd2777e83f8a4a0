// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <stdint.h>
#define CLONE_NOFOLLOW 0x0001
#define CLONE_NOOWNERCOPY 0x0002
STUB_EXTERN int fclonefileat(int source, int directory, const char* name, uint32_t flags)
    MAC_API(10.12);
STUB_EXTERN int clonefile(const char* source, const char* destination, uint32_t flags)
    MAC_API(10.12);
