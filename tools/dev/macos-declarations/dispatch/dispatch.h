// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <objc/objc.h>
#include <stdint.h>
@protocol NSObject;
@class NSObject;
MAC_API(10.8)
@protocol OS_dispatch_object <NSObject>
@end
MAC_API(10.8)
@protocol OS_dispatch_queue <OS_dispatch_object>
@end
MAC_API(10.8)
@protocol OS_dispatch_semaphore <OS_dispatch_object>
@end
NS_ASSUME_NONNULL_BEGIN
typedef NSObject<OS_dispatch_queue>* dispatch_queue_t;
typedef NSObject<OS_dispatch_semaphore>* dispatch_semaphore_t;
typedef uint64_t dispatch_time_t;
typedef void (^dispatch_block_t)(void);
#define DISPATCH_TIME_NOW (0ull)
#define DISPATCH_TIME_FOREVER (~0ull)
#define NSEC_PER_SEC 1000000000ull
#define NSEC_PER_MSEC 1000000ull
#define QOS_CLASS_UTILITY 0x11
#define DISPATCH_QUEUE_SERIAL nil
typedef NSObject<OS_dispatch_object>* dispatch_queue_attr_t;
STUB_EXTERN dispatch_queue_t dispatch_get_main_queue(void) MAC_API(10.6);
STUB_EXTERN dispatch_queue_t dispatch_get_global_queue(intptr_t identifier, uintptr_t flags)
    MAC_API(10.6);
STUB_EXTERN dispatch_queue_t dispatch_queue_create(
    const char* _Nullable label, dispatch_queue_attr_t _Nullable attr) MAC_API(10.6);
STUB_EXTERN void dispatch_async(dispatch_queue_t queue, dispatch_block_t block) MAC_API(10.6);
STUB_EXTERN void dispatch_sync(dispatch_queue_t queue, dispatch_block_t NS_NOESCAPE block)
    MAC_API(10.6);
STUB_EXTERN dispatch_time_t dispatch_time(dispatch_time_t when, int64_t delta) MAC_API(10.6);
STUB_EXTERN void
dispatch_after(dispatch_time_t when, dispatch_queue_t queue, dispatch_block_t block) MAC_API(10.6);
STUB_EXTERN dispatch_semaphore_t dispatch_semaphore_create(intptr_t value) MAC_API(10.6);
STUB_EXTERN intptr_t dispatch_semaphore_wait(dispatch_semaphore_t dsema, dispatch_time_t timeout)
    MAC_API(10.6);
STUB_EXTERN intptr_t dispatch_semaphore_signal(dispatch_semaphore_t dsema) MAC_API(10.6);
MAC_API(10.8)
@protocol OS_dispatch_source <OS_dispatch_object>
@end
typedef NSObject<OS_dispatch_source>* dispatch_source_t;
typedef const struct dispatch_source_type_s* dispatch_source_type_t;
STUB_EXTERN const struct dispatch_source_type_s _dispatch_source_type_timer MAC_API(10.6);
#define DISPATCH_SOURCE_TYPE_TIMER (&_dispatch_source_type_timer)
#define DISPATCH_TIMER_STRICT 0x1
#define DISPATCH_WALLTIME_NOW (~1ull)
struct timespec;
STUB_EXTERN dispatch_source_t dispatch_source_create(
    dispatch_source_type_t type, uintptr_t handle, uintptr_t mask, dispatch_queue_t _Nullable queue)
    MAC_API(10.6);
STUB_EXTERN void dispatch_source_set_timer(
    dispatch_source_t source, dispatch_time_t start, uint64_t interval, uint64_t leeway)
    MAC_API(10.6);
STUB_EXTERN void
dispatch_source_set_event_handler(dispatch_source_t source, dispatch_block_t _Nullable handler)
    MAC_API(10.6);
STUB_EXTERN void dispatch_source_cancel(dispatch_source_t source) MAC_API(10.6);
STUB_EXTERN void dispatch_activate(NSObject<OS_dispatch_object>* object) MAC_API(10.12);
STUB_EXTERN dispatch_time_t dispatch_walltime(const struct timespec* _Nullable when, int64_t delta)
    MAC_API(10.6);
NS_ASSUME_NONNULL_END
