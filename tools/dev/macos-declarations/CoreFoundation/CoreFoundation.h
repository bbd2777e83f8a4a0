// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <objc/objc.h>
typedef signed int SInt32;
typedef unsigned long CFTypeID;
typedef long CFIndex;
typedef SInt32 OSStatus;
@class NSString, NSDictionary, NSData, NSNumber, NSArray;
typedef const void* CFTypeRef;
typedef const struct __attribute__((objc_bridge(NSString))) __CFString* CFStringRef;
typedef const struct __attribute__((objc_bridge(NSDictionary))) __CFDictionary* CFDictionaryRef;
typedef const struct __attribute__((objc_bridge(NSData))) __CFData* CFDataRef;
typedef const struct __attribute__((objc_bridge(NSArray))) __CFArray* CFArrayRef;
typedef const struct __attribute__((objc_bridge(NSNumber))) __CFBoolean* CFBooleanRef;
STUB_EXTERN const CFBooleanRef _Null_unspecified kCFBooleanTrue MAC_API(10.0);
STUB_EXTERN const CFBooleanRef _Null_unspecified kCFBooleanFalse MAC_API(10.0);
typedef const struct __attribute__((objc_bridge(NSNumber))) __CFNumber* CFNumberRef;
typedef unsigned char Boolean;
typedef struct __attribute__((objc_bridge(id))) __CFError* CFErrorRef;
typedef const struct __CFAllocator* CFAllocatorRef;
STUB_EXTERN CFTypeID CFGetTypeID(CFTypeRef _Null_unspecified cf) MAC_API(10.0);
STUB_EXTERN CFTypeID CFBooleanGetTypeID(void) MAC_API(10.0);
STUB_EXTERN Boolean CFNumberIsFloatType(CFNumberRef _Null_unspecified number) MAC_API(10.0);
STUB_EXTERN void CFRelease(CFTypeRef _Null_unspecified cf) MAC_API(10.0);
STUB_EXTERN CFTypeRef _Null_unspecified CFRetain(CFTypeRef _Null_unspecified cf) MAC_API(10.0);
#define CF_RETURNS_RETAINED __attribute__((cf_returns_retained))
