// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <sys/types.h>
#define CTL_KERN 1
#define KERN_PROC 14
#define KERN_PROC_PID 1
#define P_TRACED 0x00000800
struct extern_proc {
    int p_flag;
};
struct kinfo_proc {
    struct extern_proc kp_proc;
};
STUB_EXTERN int sysctl(int*, unsigned int, void*, size_t*, void*, size_t) MAC_API(10.0);
STUB_EXTERN int sysctlbyname(const char*, void*, size_t*, void*, size_t) MAC_API(10.0);
