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
STUB_EXTERN const CFBooleanRef _Null_unspecified kCFBooleanTrue;
STUB_EXTERN const CFBooleanRef _Null_unspecified kCFBooleanFalse;
STUB_EXTERN void CFRelease(CFTypeRef _Null_unspecified cf);
STUB_EXTERN CFTypeRef _Null_unspecified CFRetain(CFTypeRef _Null_unspecified cf);
#define CF_RETURNS_RETAINED __attribute__((cf_returns_retained))
