// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <stdint.h>
typedef enum : uint16_t {
    tls_protocol_version_TLSv12 MAC_API(10.15) = 0x0303,
    tls_protocol_version_TLSv13 MAC_API(10.15) = 0x0304,
} tls_protocol_version_t;
