// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <stdint.h>
#include <sys/types.h>
typedef struct _copyfile_state* copyfile_state_t;
typedef uint32_t copyfile_flags_t;
#define COPYFILE_DATA (1 << 3)
#define COPYFILE_EXCL (1 << 17)
#define COPYFILE_CLONE (1 << 24)
#define COPYFILE_STATE_STATUS_CB 6
#define COPYFILE_STATE_STATUS_CTX 7
#define COPYFILE_COPY_DATA 4
#define COPYFILE_PROGRESS 4
#define COPYFILE_CONTINUE 0
#define COPYFILE_QUIT 2
typedef int (*copyfile_callback_t)(
    int what, int stage, copyfile_state_t state, const char* from, const char* to, void* context);
STUB_EXTERN copyfile_state_t copyfile_state_alloc(void) MAC_API(10.5);
STUB_EXTERN int copyfile_state_free(copyfile_state_t state) MAC_API(10.5);
STUB_EXTERN int copyfile_state_set(copyfile_state_t state, uint32_t flag, const void* source)
    MAC_API(10.5);
STUB_EXTERN int fcopyfile(int from, int to, copyfile_state_t state, copyfile_flags_t flags)
    MAC_API(10.5);
