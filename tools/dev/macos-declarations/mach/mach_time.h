// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <stdint.h>
struct mach_timebase_info {
    uint32_t numer;
    uint32_t denom;
};
typedef struct mach_timebase_info mach_timebase_info_data_t;
STUB_EXTERN int mach_timebase_info(mach_timebase_info_data_t* info) MAC_API(10.0);
STUB_EXTERN uint64_t mach_absolute_time(void) MAC_API(10.0);
STUB_EXTERN uint64_t mach_continuous_time(void) MAC_API(10.12);
