// SPDX-License-Identifier: Apache-2.0
#pragma once

// The part of the system's public interface that our Objective-C++ uses, to type-check it on other
// systems. Handwritten from the public documentation, for tools/dev/check-macos only, never linked
// and never shipped. Add missing declarations with the first version of macOS that has them. A
// selector without a version has that of its class. tools/dev/check-macos requires a version for
// everything else.

#define MAC_API(v) __attribute__((availability(macos, introduced = v)))
#define MAC_DEPRECATED(i, d, msg)                                                                  \
    __attribute__((availability(macos, introduced = i, deprecated = d, message = msg)))
// The version of the framework (2.0 or later), which the compiler cannot check.
#define SPARKLE_API(v)
#define NS_ASSUME_NONNULL_BEGIN _Pragma("clang assume_nonnull begin")
#define NS_ASSUME_NONNULL_END _Pragma("clang assume_nonnull end")
#define NS_UNAVAILABLE __attribute__((unavailable))
#define NS_DESIGNATED_INITIALIZER __attribute__((objc_designated_initializer))
#define NS_REQUIRES_NIL_TERMINATION __attribute__((sentinel(0, 1)))
#define NS_FORMAT_FUNCTION(F, A) __attribute__((format(__NSString__, F, A)))
#define NS_RETURNS_INNER_POINTER __attribute__((objc_returns_inner_pointer))
#define NS_NOESCAPE __attribute__((noescape))
#define NS_ENUM(_t, _n)                                                                            \
    enum _n : _t _n;                                                                               \
    enum __attribute__((enum_extensibility(open))) _n : _t
// In C++, option sets are plain integers.
#define NS_OPTIONS(_t, _n)                                                                         \
    _t _n;                                                                                         \
    enum __attribute__((flag_enum, enum_extensibility(open))) : _n
#define NS_ERROR_ENUM(_d, _n)                                                                      \
    enum _n : NSInteger _n;                                                                        \
    enum __attribute__((ns_error_domain(_d))) _n : NSInteger
#if defined(__cplusplus)
#define STUB_EXTERN extern "C"
#else
#define STUB_EXTERN extern
#endif
