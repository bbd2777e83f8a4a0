// SPDX-License-Identifier: Apache-2.0
#pragma once
typedef struct objc_class* Class;
struct objc_object {
    Class isa;
};
typedef struct objc_object* id;
typedef struct objc_selector* SEL;
#if defined(__OBJC_BOOL_IS_BOOL) && __OBJC_BOOL_IS_BOOL
typedef bool BOOL;
#else
typedef signed char BOOL;
#endif
#define YES __objc_yes
#define NO __objc_no
#define nil __DARWIN_NULL_STUB
#define Nil __DARWIN_NULL_STUB
#define __DARWIN_NULL_STUB nullptr
