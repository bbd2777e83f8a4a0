// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <objc/objc.h>
#include <stdint.h>
MAC_API(10.12)
@protocol OS_os_log <NSObject>
@end
@class NSObject;
typedef NSObject<OS_os_log>* os_log_t;
typedef uint8_t os_log_type_t;
enum : os_log_type_t {
    OS_LOG_TYPE_DEFAULT = 0x00,
    OS_LOG_TYPE_INFO = 0x01,
    OS_LOG_TYPE_DEBUG = 0x02,
    OS_LOG_TYPE_ERROR = 0x10,
    OS_LOG_TYPE_FAULT = 0x11
};
STUB_EXTERN
os_log_t _Nonnull os_log_create(const char* _Nonnull subsystem, const char* _Nonnull category)
    MAC_API(10.12);
STUB_EXTERN bool os_log_type_enabled(os_log_t _Nonnull oslog, os_log_type_t type) MAC_API(10.12);
// The real macros use __builtin_os_log_format. This attribute checks formats in the same way.
STUB_EXTERN void
os_log_stub_(os_log_t _Nonnull log, os_log_type_t type, const char* _Nonnull format, ...)
    __attribute__((format(os_log, 3, 4))) MAC_API(10.12);
#define os_log_with_type(log, type, format, ...) os_log_stub_(log, type, "" format, ##__VA_ARGS__)
#define os_log(log, format, ...) os_log_with_type(log, OS_LOG_TYPE_DEFAULT, format, ##__VA_ARGS__)
#define os_log_info(log, format, ...) os_log_with_type(log, OS_LOG_TYPE_INFO, format, ##__VA_ARGS__)
#define os_log_debug(log, format, ...)                                                             \
    os_log_with_type(log, OS_LOG_TYPE_DEBUG, format, ##__VA_ARGS__)
#define os_log_error(log, format, ...)                                                             \
    os_log_with_type(log, OS_LOG_TYPE_ERROR, format, ##__VA_ARGS__)
#define os_log_fault(log, format, ...)                                                             \
    os_log_with_type(log, OS_LOG_TYPE_FAULT, format, ##__VA_ARGS__)
