// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <CoreFoundation/CoreFoundation.h>
enum : OSStatus {
    errSecSuccess = 0,
    errSecUserCanceled = -128,
    errSecMissingEntitlement = -34018,
    errSecAuthFailed = -25293,
    errSecDuplicateItem = -25299,
    errSecItemNotFound = -25300,
    errSecInteractionNotAllowed = -25308,
};
STUB_EXTERN const CFStringRef _Nonnull kSecClass MAC_API(10.6);
STUB_EXTERN const CFStringRef _Nonnull kSecClassGenericPassword MAC_API(10.6);
STUB_EXTERN const CFStringRef _Nonnull kSecAttrService MAC_API(10.6);
STUB_EXTERN const CFStringRef _Nonnull kSecAttrAccount MAC_API(10.6);
STUB_EXTERN const CFStringRef _Nonnull kSecAttrLabel MAC_API(10.6);
STUB_EXTERN const CFStringRef _Nonnull kSecAttrAccessible MAC_API(10.9);
STUB_EXTERN const CFStringRef _Nonnull kSecAttrAccessibleAfterFirstUnlock MAC_API(10.9);
STUB_EXTERN const CFStringRef _Nonnull kSecAttrAccessibleAfterFirstUnlockThisDeviceOnly
    MAC_API(10.9);
STUB_EXTERN const CFStringRef _Nonnull kSecAttrSynchronizable MAC_API(10.9);
STUB_EXTERN const CFStringRef _Nonnull kSecValueData MAC_API(10.6);
STUB_EXTERN const CFStringRef _Nonnull kSecReturnData MAC_API(10.6);
STUB_EXTERN const CFStringRef _Nonnull kSecMatchLimit MAC_API(10.6);
STUB_EXTERN const CFStringRef _Nonnull kSecMatchLimitOne MAC_API(10.6);
STUB_EXTERN const CFStringRef _Nonnull kSecUseDataProtectionKeychain MAC_API(10.15);
STUB_EXTERN OSStatus SecItemCopyMatching(
    CFDictionaryRef _Nonnull query, CFTypeRef _Nullable* _Nullable CF_RETURNS_RETAINED result)
    MAC_API(10.6);
STUB_EXTERN OSStatus SecItemAdd(
    CFDictionaryRef _Nonnull attributes, CFTypeRef _Nullable* _Nullable CF_RETURNS_RETAINED result)
    MAC_API(10.6);
STUB_EXTERN OSStatus SecItemUpdate(
    CFDictionaryRef _Nonnull query, CFDictionaryRef _Nonnull attributesToUpdate) MAC_API(10.6);
STUB_EXTERN OSStatus SecItemDelete(CFDictionaryRef _Nonnull query) MAC_API(10.6);
STUB_EXTERN CFStringRef _Nullable SecCopyErrorMessageString(
    OSStatus status, void* _Nullable reserved) CF_RETURNS_RETAINED MAC_API(10.3);

typedef struct __SecTrust* SecTrustRef;
typedef struct __attribute__((objc_bridge(id))) __SecCertificate* SecCertificateRef;
STUB_EXTERN SecCertificateRef _Nullable SecCertificateCreateWithData(
    CFAllocatorRef _Nullable allocator, CFDataRef _Nonnull data) CF_RETURNS_RETAINED MAC_API(10.6);
STUB_EXTERN OSStatus SecTrustSetAnchorCertificates(
    SecTrustRef _Nonnull trust, CFArrayRef _Nullable anchorCertificates) MAC_API(10.3);
STUB_EXTERN OSStatus SecTrustSetAnchorCertificatesOnly(
    SecTrustRef _Nonnull trust, Boolean anchorCertificatesOnly) MAC_API(10.6);
STUB_EXTERN bool SecTrustEvaluateWithError(
    SecTrustRef _Nonnull trust, CFErrorRef _Nullable* _Nullable CF_RETURNS_RETAINED error)
    MAC_API(10.14);
