// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <StubMacros.h>
#include <dispatch/dispatch.h>
#include <objc/objc.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

typedef long NSInteger;
typedef unsigned long NSUInteger;
typedef double NSTimeInterval;
typedef unsigned short unichar;
typedef double CGFloat;
typedef struct CGPoint {
    CGFloat x;
    CGFloat y;
} CGPoint;
typedef struct CGSize {
    CGFloat width;
    CGFloat height;
} CGSize;
typedef struct CGRect {
    CGPoint origin;
    CGSize size;
} CGRect;
typedef CGPoint NSPoint;
typedef CGSize NSSize;
typedef CGRect NSRect;
inline NSRect NSMakeRect(CGFloat x, CGFloat y, CGFloat w, CGFloat h) {
    return {{x, y}, {w, h}};
}
typedef struct _NSRange {
    NSUInteger location;
    NSUInteger length;
} NSRange;
typedef struct _NSZone NSZone;
typedef struct {
    NSInteger majorVersion;
    NSInteger minorVersion;
    NSInteger patchVersion;
} NSOperatingSystemVersion;

NS_ASSUME_NONNULL_BEGIN
@class NSString, NSArray<ObjectType>, NSDictionary<KeyType, ObjectType>, NSMethodSignature,
    NSInvocation, NSCoder, NSData, NSURL, NSError, NSNumber;

MAC_API(10.0)
@protocol NSObject
- (BOOL)isEqual:(nullable id)object;
@property(readonly) NSUInteger hash;
@property(readonly) Class superclass;
- (Class)class;
- (instancetype)self;
- (BOOL)isKindOfClass:(Class)aClass;
- (BOOL)isMemberOfClass:(Class)aClass;
- (BOOL)conformsToProtocol:(Protocol*)aProtocol;
- (BOOL)respondsToSelector:(SEL)aSelector;
@property(readonly, copy) NSString* description;
@end

MAC_API(10.0)
@protocol NSCopying
- (id)copyWithZone:(nullable NSZone*)zone;
@end

MAC_API(10.0)
@protocol NSMutableCopying
- (id)mutableCopyWithZone:(nullable NSZone*)zone;
@end

MAC_API(10.0)
@protocol NSCoding
- (void)encodeWithCoder:(NSCoder*)coder;
- (nullable instancetype)initWithCoder:(NSCoder*)coder;
@end

MAC_API(10.8)
@protocol NSSecureCoding <NSCoding>
@property(class, readonly) BOOL supportsSecureCoding;
@end

typedef struct {
    unsigned long state;
    id __unsafe_unretained _Nullable* _Nullable itemsPtr;
    unsigned long* _Nullable mutationsPtr;
    unsigned long extra[5];
} NSFastEnumerationState;

MAC_API(10.5)
@protocol NSFastEnumeration
- (NSUInteger)countByEnumeratingWithState:(NSFastEnumerationState*)state
                                  objects:(id __unsafe_unretained _Nullable[_Nonnull])buffer
                                    count:(NSUInteger)len;
@end

MAC_API(10.0)
__attribute__((objc_root_class))
@interface NSObject<NSObject> {
    Class isa;
}
+ (void)initialize;
- (instancetype)init;
+ (instancetype)new;
+ (instancetype)alloc;
- (void)dealloc;
- (id)copy;
- (id)mutableCopy;
+ (Class)class;
@end

typedef NSUInteger NSStringEncoding;
enum : NSStringEncoding {
    NSASCIIStringEncoding = 1,
    NSUTF8StringEncoding = 4,
    NSUTF16LittleEndianStringEncoding = 0x94000100
};
typedef NS_OPTIONS(NSUInteger, NSStringEncodingConversionOptions) {
    NSStringEncodingConversionAllowLossy = 1,
    NSStringEncodingConversionExternalRepresentation = 2,
};
typedef NS_OPTIONS(NSUInteger, NSStringCompareOptions) {
    NSCaseInsensitiveSearch = 1,
    NSLiteralSearch = 2,
};
typedef NSInteger NSComparisonResult;
enum : NSComparisonResult { NSOrderedAscending = -1, NSOrderedSame = 0, NSOrderedDescending = 1 };

MAC_API(10.0)
@interface NSString : NSObject <NSCopying, NSMutableCopying, NSSecureCoding>
@property(readonly) NSUInteger length;
- (unichar)characterAtIndex:(NSUInteger)index;
@property(nullable, readonly) const char* UTF8String NS_RETURNS_INNER_POINTER;
@property(readonly) const char* fileSystemRepresentation NS_RETURNS_INNER_POINTER;
- (BOOL)isEqualToString:(NSString*)aString;
- (BOOL)hasPrefix:(NSString*)str;
- (BOOL)hasSuffix:(NSString*)str;
- (NSComparisonResult)compare:(NSString*)string;
- (NSComparisonResult)caseInsensitiveCompare:(NSString*)string;
- (NSString*)stringByAppendingString:(NSString*)aString;
@property(readonly, copy) NSString* lowercaseString;
- (NSUInteger)lengthOfBytesUsingEncoding:(NSStringEncoding)enc;
- (NSUInteger)maximumLengthOfBytesUsingEncoding:(NSStringEncoding)enc;
- (BOOL)getBytes:(nullable void*)buffer
         maxLength:(NSUInteger)maxBufferCount
        usedLength:(nullable NSUInteger*)usedBufferCount
          encoding:(NSStringEncoding)encoding
           options:(NSStringEncodingConversionOptions)options
             range:(NSRange)range
    remainingRange:(nullable NSRange*)leftover MAC_API(10.5);
- (nullable NSData*)dataUsingEncoding:(NSStringEncoding)encoding;
- (nullable NSData*)dataUsingEncoding:(NSStringEncoding)encoding allowLossyConversion:(BOOL)lossy;
+ (instancetype)string;
+ (instancetype)stringWithString:(NSString*)string;
+ (nullable instancetype)stringWithUTF8String:(const char*)nullTerminatedCString;
- (nullable instancetype)initWithBytes:(const void*)bytes
                                length:(NSUInteger)len
                              encoding:(NSStringEncoding)encoding;
- (nullable instancetype)initWithData:(NSData*)data encoding:(NSStringEncoding)encoding;
+ (instancetype)stringWithFormat:(NSString*)format, ... NS_FORMAT_FUNCTION(1, 2);
@end

MAC_API(10.0)
@interface NSMutableString : NSString
- (void)appendString:(NSString*)aString;
@end

MAC_API(10.0)
@interface NSConstantString : NSString
@end

typedef NS_OPTIONS(NSUInteger, NSDataReadingOptions) {
    NSDataReadingMappedIfSafe = 1,
    NSDataReadingUncached = 2,
};
typedef NS_OPTIONS(NSUInteger, NSDataWritingOptions) {
    NSDataWritingAtomic = 1,
    NSDataWritingWithoutOverwriting MAC_API(10.8) = 2,
};
typedef NS_OPTIONS(NSUInteger, NSDataBase64EncodingOptions) {
    NSDataBase64Encoding64CharacterLineLength = 1,
};
typedef NS_OPTIONS(NSUInteger, NSDataBase64DecodingOptions) {
    NSDataBase64DecodingIgnoreUnknownCharacters = 1,
};

MAC_API(10.0)
@interface NSData : NSObject <NSCopying, NSMutableCopying, NSSecureCoding>
@property(readonly) NSUInteger length;
@property(readonly) const void* bytes NS_RETURNS_INNER_POINTER;
+ (instancetype)data;
+ (instancetype)dataWithBytes:(nullable const void*)bytes length:(NSUInteger)length;
+ (instancetype)dataWithBytesNoCopy:(void*)bytes
                             length:(NSUInteger)length
                       freeWhenDone:(BOOL)b MAC_API(10.2);
+ (nullable instancetype)dataWithContentsOfURL:(NSURL*)url
                                       options:(NSDataReadingOptions)readOptionsMask
                                         error:(NSError* _Nullable* _Nullable)errorPtr
    MAC_API(10.4);
- (BOOL)writeToURL:(NSURL*)url
           options:(NSDataWritingOptions)writeOptionsMask
             error:(NSError* _Nullable* _Nullable)errorPtr MAC_API(10.4);
- (void)enumerateByteRangesUsingBlock:
    (void(NS_NOESCAPE ^)(const void* bytes, NSRange byteRange, BOOL* stop))block MAC_API(10.9);
- (nullable instancetype)initWithBase64EncodedString:(NSString*)base64String
                                             options:(NSDataBase64DecodingOptions)options
    MAC_API(10.9);
@end

MAC_API(10.0)
@interface NSValue : NSObject <NSCopying, NSSecureCoding>
@end

MAC_API(10.0)
@interface NSNumber : NSValue
+ (NSNumber*)numberWithBool:(BOOL)value;
+ (NSNumber*)numberWithInt:(int)value;
+ (NSNumber*)numberWithLong:(long)value;
+ (NSNumber*)numberWithUnsignedLong:(unsigned long)value;
+ (NSNumber*)numberWithLongLong:(long long)value;
+ (NSNumber*)numberWithUnsignedLongLong:(unsigned long long)value;
+ (NSNumber*)numberWithDouble:(double)value;
+ (NSNumber*)numberWithInteger:(NSInteger)value MAC_API(10.5);
@property(readonly) BOOL boolValue;
@property(readonly) int intValue;
@property(readonly) long long longLongValue;
@property(readonly) double doubleValue;
@property(readonly) NSInteger integerValue MAC_API(10.5);
@end

MAC_API(10.0)
@interface NSArray<__covariant ObjectType>
    : NSObject <NSCopying, NSMutableCopying, NSSecureCoding, NSFastEnumeration>
@property(readonly) NSUInteger count;
- (ObjectType)objectAtIndex:(NSUInteger)index;
- (ObjectType)objectAtIndexedSubscript:(NSUInteger)idx MAC_API(10.8);
@property(nullable, nonatomic, readonly) ObjectType firstObject MAC_API(10.6);
- (BOOL)containsObject:(ObjectType)anObject;
+ (instancetype)array;
+ (instancetype)arrayWithObject:(ObjectType)anObject;
+ (instancetype)arrayWithObjects:(const ObjectType _Nonnull[_Nonnull])objects count:(NSUInteger)cnt;
@end

MAC_API(10.0)
@interface NSMutableArray<ObjectType> : NSArray <ObjectType>
- (void)addObject:(ObjectType)anObject;
+ (instancetype)arrayWithCapacity:(NSUInteger)numItems;
@end

MAC_API(10.0)
@interface NSDictionary<__covariant KeyType, __covariant ObjectType>
    : NSObject <NSCopying, NSMutableCopying, NSSecureCoding, NSFastEnumeration>
@property(readonly) NSUInteger count;
- (nullable ObjectType)objectForKey:(KeyType)aKey;
- (nullable ObjectType)objectForKeyedSubscript:(KeyType)key MAC_API(10.8);
@property(readonly, copy) NSArray<KeyType>* allKeys;
+ (instancetype)dictionary;
+ (nullable NSDictionary<NSString*, ObjectType>*)
    dictionaryWithContentsOfURL:(NSURL*)url
                          error:(NSError* _Nullable* _Nullable)error MAC_API(10.13);
+ (instancetype)dictionaryWithObjects:(const ObjectType _Nonnull[_Nullable])objects
                              forKeys:(const KeyType<NSCopying> _Nonnull[_Nullable])keys
                                count:(NSUInteger)cnt;
@end

MAC_API(10.0)
@interface NSMutableDictionary<KeyType, ObjectType> : NSDictionary <KeyType, ObjectType>
- (void)removeObjectForKey:(KeyType)aKey;
- (void)setObject:(ObjectType)anObject forKey:(KeyType<NSCopying>)aKey;
- (void)setObject:(nullable ObjectType)obj forKeyedSubscript:(KeyType<NSCopying>)key MAC_API(10.8);
@end

MAC_API(10.0)
@interface NSSet<__covariant ObjectType>
    : NSObject <NSCopying, NSMutableCopying, NSSecureCoding, NSFastEnumeration>
+ (instancetype)setWithObject:(ObjectType)object;
+ (instancetype)setWithArray:(NSArray<ObjectType>*)array;
@end

MAC_API(10.0)
@interface NSEnumerator<ObjectType> : NSObject <NSFastEnumeration>
- (nullable ObjectType)nextObject;
@property(readonly, copy) NSArray<ObjectType>* allObjects;
@end

MAC_API(10.0)
@interface NSURL : NSObject <NSSecureCoding, NSCopying>
+ (nullable instancetype)URLWithString:(NSString*)URLString;
+ (nullable instancetype)URLWithString:(NSString*)URLString
             encodingInvalidCharacters:(BOOL)encodingInvalidCharacters MAC_API(14.0);
+ (NSURL*)fileURLWithPath:(NSString*)path;
+ (NSURL*)fileURLWithPath:(NSString*)path isDirectory:(BOOL)isDir MAC_API(10.5);
- (nullable NSURL*)URLByAppendingPathComponent:(NSString*)pathComponent MAC_API(10.6);
@property(nullable, readonly, copy) NSURL* URLByDeletingLastPathComponent MAC_API(10.6);
@property(nullable, readonly, copy) NSString* absoluteString;
@property(nullable, readonly, copy) NSString* scheme;
@property(nullable, readonly, copy) NSString* user;
@property(nullable, readonly, copy) NSString* password;
@property(nullable, readonly, copy) NSString* host;
@property(nullable, readonly, copy) NSNumber* port;
@property(nullable, readonly, copy) NSString* path;
@property(nullable, readonly, copy) NSString* query;
@end

typedef NSString* NSErrorDomain;
typedef NSString* NSErrorUserInfoKey;
STUB_EXTERN const NSErrorDomain NSCocoaErrorDomain MAC_API(10.0);
STUB_EXTERN const NSErrorDomain NSPOSIXErrorDomain MAC_API(10.0);
STUB_EXTERN const NSErrorDomain NSOSStatusErrorDomain MAC_API(10.0);

MAC_API(10.2)
@interface NSError : NSObject <NSCopying, NSSecureCoding>
+ (instancetype)errorWithDomain:(NSErrorDomain)domain
                           code:(NSInteger)code
                       userInfo:(nullable NSDictionary<NSErrorUserInfoKey, id>*)dict;
@property(readonly, copy) NSErrorDomain domain;
@property(readonly) NSInteger code;
@property(readonly, copy) NSDictionary<NSErrorUserInfoKey, id>* userInfo;
@property(readonly, copy) NSString* localizedDescription;
@end

typedef NSString* NSExceptionName;
MAC_API(10.0)
@interface NSException : NSObject <NSCopying, NSSecureCoding>
@property(readonly, copy) NSExceptionName name;
@property(nullable, readonly, copy) NSString* reason;
@end

MAC_API(10.0)
@interface NSDate : NSObject <NSCopying, NSSecureCoding>
+ (instancetype)date;
+ (instancetype)dateWithTimeIntervalSince1970:(NSTimeInterval)secs;
+ (instancetype)dateWithTimeIntervalSinceNow:(NSTimeInterval)secs;
@property(readonly) NSTimeInterval timeIntervalSince1970;
@property(readonly) NSTimeInterval timeIntervalSinceNow;
- (NSTimeInterval)timeIntervalSinceDate:(NSDate*)anotherDate;
- (NSComparisonResult)compare:(NSDate*)other;
@end

typedef NS_ENUM(NSUInteger, NSPropertyListFormat) {
    NSPropertyListXMLFormat_v1_0 = 100,
    NSPropertyListBinaryFormat_v1_0 = 200,
};
typedef NS_OPTIONS(NSUInteger, NSPropertyListMutabilityOptions) {
    NSPropertyListImmutable = 0,
    NSPropertyListMutableContainers = 1,
};
typedef NSUInteger NSPropertyListWriteOptions;

MAC_API(10.0)
@interface NSPropertyListSerialization : NSObject
+ (nullable NSData*)dataWithPropertyList:(id)plist
                                  format:(NSPropertyListFormat)format
                                 options:(NSPropertyListWriteOptions)opt
                                   error:(out NSError* _Nullable* _Nullable)error MAC_API(10.6);
+ (nullable id)propertyListWithData:(NSData*)data
                            options:(NSPropertyListMutabilityOptions)opt
                             format:(nullable NSPropertyListFormat*)format
                              error:(out NSError* _Nullable* _Nullable)error MAC_API(10.6);
@end

MAC_API(10.0)
@interface NSUserDefaults : NSObject
@property(class, readonly, strong) NSUserDefaults* standardUserDefaults;
- (instancetype)init;
- (nullable instancetype)initWithSuiteName:(nullable NSString*)suitename MAC_API(10.9);
- (nullable id)objectForKey:(NSString*)defaultName;
- (void)setObject:(nullable id)value forKey:(NSString*)defaultName;
- (void)removeObjectForKey:(NSString*)defaultName;
- (nullable NSString*)stringForKey:(NSString*)defaultName;
- (nullable NSArray*)arrayForKey:(NSString*)defaultName;
- (nullable NSData*)dataForKey:(NSString*)defaultName;
- (nullable NSArray<NSString*>*)stringArrayForKey:(NSString*)defaultName;
- (NSInteger)integerForKey:(NSString*)defaultName;
- (double)doubleForKey:(NSString*)defaultName;
- (BOOL)boolForKey:(NSString*)defaultName;
- (void)setInteger:(NSInteger)value forKey:(NSString*)defaultName;
- (void)setDouble:(double)value forKey:(NSString*)defaultName;
- (void)setBool:(BOOL)value forKey:(NSString*)defaultName;
- (void)registerDefaults:(NSDictionary<NSString*, id>*)registrationDictionary;
- (void)removePersistentDomainForName:(NSString*)domainName;
- (NSDictionary<NSString*, id>*)dictionaryRepresentation;
- (BOOL)synchronize;
@end

typedef NSString* NSNotificationName;
MAC_API(10.0)
@interface NSNotification : NSObject <NSCopying, NSCoding>
@property(readonly, copy) NSNotificationName name;
@property(nullable, readonly, retain) id object;
@property(nullable, readonly, copy) NSDictionary* userInfo;
@end

typedef NSString* NSRunLoopMode;
STUB_EXTERN const NSRunLoopMode NSDefaultRunLoopMode MAC_API(10.0);
MAC_API(10.0)
@interface NSRunLoop : NSObject
@property(class, readonly, strong) NSRunLoop* currentRunLoop;
- (BOOL)runMode:(NSRunLoopMode)mode beforeDate:(NSDate*)limitDate;
@end

@class NSOperationQueue;
MAC_API(10.0)
@interface NSNotificationCenter : NSObject
@property(class, readonly, strong) NSNotificationCenter* defaultCenter;
- (void)addObserver:(id)observer
           selector:(SEL)aSelector
               name:(nullable NSNotificationName)aName
             object:(nullable id)anObject;
- (void)removeObserver:(id)observer;
- (void)postNotificationName:(NSNotificationName)aName object:(nullable id)anObject;
- (id<NSObject>)addObserverForName:(nullable NSNotificationName)name
                            object:(nullable id)obj
                             queue:(nullable NSOperationQueue*)queue
                        usingBlock:(void (^)(NSNotification* notification))block MAC_API(10.6);
@end

MAC_API(10.5)
@interface NSOperationQueue : NSObject
@property(class, readonly, strong) NSOperationQueue* mainQueue MAC_API(10.6);
@property NSInteger maxConcurrentOperationCount;
@property(nullable, assign) dispatch_queue_t underlyingQueue MAC_API(10.10);
@end

MAC_API(10.0)
@interface NSThread : NSObject
@property(class, readonly) BOOL isMainThread MAC_API(10.5);
@end

MAC_API(10.0)
@interface NSBundle : NSObject
@property(class, readonly, strong) NSBundle* mainBundle;
+ (nullable instancetype)bundleWithPath:(NSString*)path;
@property(nullable, readonly, copy) NSString* bundleIdentifier;
@property(readonly, copy) NSURL* bundleURL MAC_API(10.6);
@property(readonly, copy) NSString* bundlePath;
@property(nullable, readonly, copy) NSURL* resourceURL MAC_API(10.6);
@property(nullable, readonly, copy) NSURL* executableURL MAC_API(10.6);
@property(nullable, readonly, copy) NSDictionary<NSString*, id>* infoDictionary;
- (nullable id)objectForInfoDictionaryKey:(NSString*)key;
- (nullable NSURL*)URLForResource:(nullable NSString*)name
                    withExtension:(nullable NSString*)ext MAC_API(10.6);
@end

MAC_API(10.0)
@interface NSProcessInfo : NSObject
@property(class, readonly, strong) NSProcessInfo* processInfo;
@property(readonly, copy) NSArray<NSString*>* arguments;
@property(readonly, copy) NSDictionary<NSString*, NSString*>* environment;
@property(readonly) NSOperatingSystemVersion operatingSystemVersion MAC_API(10.10);
@property(readonly, copy) NSString* operatingSystemVersionString;
@property(readonly) int processIdentifier;
@property(readonly, copy) NSString* processName;
@property(readonly, copy) NSString* globallyUniqueString;
@end

MAC_API(10.0)
@interface NSFileManager : NSObject
@property(class, readonly, strong) NSFileManager* defaultManager;
- (BOOL)fileExistsAtPath:(NSString*)path;
@end

MAC_API(10.4)
@interface NSPredicate : NSObject <NSSecureCoding, NSCopying>
+ (NSPredicate*)predicateWithFormat:(NSString*)predicateFormat, ...;
+ (NSPredicate*)predicateWithFormat:(NSString*)predicateFormat
                      argumentArray:(nullable NSArray*)arguments;
@end

MAC_API(10.0)
@interface NSAttributedString : NSObject <NSCopying, NSMutableCopying, NSSecureCoding>
@property(readonly, copy) NSString* string;
@property(readonly) NSUInteger length;
- (instancetype)initWithString:(NSString*)str;
@end

MAC_API(10.0)
@interface NSMutableAttributedString : NSAttributedString
@end

MAC_API(10.0)
@interface NSCoder : NSObject
@end

MAC_API(10.2)
@interface NSKeyedUnarchiver : NSCoder
+ (nullable id)unarchivedObjectOfClass:(Class)cls
                              fromData:(NSData*)data
                                 error:(NSError* _Nullable* _Nullable)error MAC_API(10.13);
+ (nullable id)unarchivedObjectOfClasses:(NSSet<Class>*)classes
                                fromData:(NSData*)data
                                   error:(NSError* _Nullable* _Nullable)error MAC_API(10.13);
@end

MAC_API(10.2)
@interface NSKeyedArchiver : NSCoder
+ (nullable NSData*)archivedDataWithRootObject:(id)object
                         requiringSecureCoding:(BOOL)requiresSecureCoding
                                         error:(NSError* _Nullable* _Nullable)error MAC_API(10.13);
@end

STUB_EXTERN NSString* NSHomeDirectory(void) MAC_API(10.0);
STUB_EXTERN const NSNotificationName NSUserDefaultsDidChangeNotification MAC_API(10.0);
NS_ASSUME_NONNULL_END
#include <CoreFoundation/CoreFoundation.h>
#include <Foundation/InterApplication.h>
#include <Foundation/URLLoading.h>
