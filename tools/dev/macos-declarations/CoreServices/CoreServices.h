// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <stdint.h>
typedef uint32_t AEEventClass;
typedef uint32_t AEEventID;
enum { kCoreEventClass = 0x61657674 };
enum { kAEReopenApplication = 0x72617070 };
