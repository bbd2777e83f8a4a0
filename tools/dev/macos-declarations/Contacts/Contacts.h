// SPDX-License-Identifier: Apache-2.0
#pragma once
#include <Foundation/Foundation.h>
NS_ASSUME_NONNULL_BEGIN
typedef NS_ENUM(NSInteger, CNEntityType) { CNEntityTypeContacts = 0 };
typedef NS_ENUM(NSInteger, CNAuthorizationStatus) {
    CNAuthorizationStatusNotDetermined = 0,
    CNAuthorizationStatusRestricted = 1,
    CNAuthorizationStatusDenied = 2,
    CNAuthorizationStatusAuthorized = 3,
};
STUB_EXTERN NSString* const CNErrorDomain MAC_API(10.11);
typedef NS_ENUM(NSInteger, CNErrorCode) {
    CNErrorCodeAuthorizationDenied = 100,
};
MAC_API(10.11)
@protocol CNKeyDescriptor <NSObject, NSSecureCoding, NSCopying>
@end
@interface NSString (Contacts) <CNKeyDescriptor>
@end
MAC_API(10.11) @interface CNPhoneNumber : NSObject<NSCopying, NSSecureCoding>
- (instancetype)init NS_UNAVAILABLE;
+ (nullable instancetype)phoneNumberWithStringValue:(NSString*)stringValue;
@property(readonly, copy, nonatomic) NSString* stringValue;
@end
MAC_API(10.11)
@interface CNLabeledValue<ValueType : id <NSCopying, NSSecureCoding>>
    : NSObject <NSCopying, NSSecureCoding>
@property(readonly, copy, nonatomic) NSString* identifier;
@property(readonly, copy, nonatomic, nullable) NSString* label;
@property(readonly, copy, nonatomic) ValueType value;
+ (NSString*)localizedStringForLabel:(NSString*)label;
+ (instancetype)labeledValueWithLabel:(nullable NSString*)label value:(ValueType)value;
@end
MAC_API(10.11) @interface CNContact : NSObject<NSCopying, NSMutableCopying, NSSecureCoding>
@property(readonly, copy, nonatomic) NSString* identifier;
@property(readonly, copy, nonatomic) NSString* givenName;
@property(readonly, copy, nonatomic) NSString* familyName;
@property(readonly, copy, nonatomic) NSString* nickname;
@property(readonly, copy, nonatomic) NSString* organizationName;
@property(readonly, copy, nonatomic) NSArray<CNLabeledValue<CNPhoneNumber*>*>* phoneNumbers;
@property(readonly, copy, nonatomic) NSArray<CNLabeledValue<NSString*>*>* emailAddresses;
- (BOOL)isKeyAvailable:(NSString*)key;
@end
MAC_API(10.11) @interface CNMutableContact : CNContact
@property(copy, nonatomic) NSString* givenName;
@property(copy, nonatomic) NSString* familyName;
@property(copy, nonatomic) NSString* organizationName;
@property(copy, nonatomic) NSArray<CNLabeledValue<CNPhoneNumber*>*>* phoneNumbers;
@property(copy, nonatomic) NSArray<CNLabeledValue<NSString*>*>* emailAddresses;
@end
MAC_API(10.11) @interface CNFetchRequest : NSObject
@end
MAC_API(10.11) @interface CNContactFetchRequest : CNFetchRequest<NSSecureCoding>
- (instancetype)init NS_UNAVAILABLE;
+ (instancetype)new NS_UNAVAILABLE;
- (instancetype)initWithKeysToFetch:(NSArray<id<CNKeyDescriptor>>*)keysToFetch
    NS_DESIGNATED_INITIALIZER;
@property(nonatomic, copy) NSArray<id<CNKeyDescriptor>>* keysToFetch;
@property(nonatomic) BOOL unifyResults;
@end
MAC_API(10.11) @interface CNContactStore : NSObject
+ (CNAuthorizationStatus)authorizationStatusForEntityType:(CNEntityType)entityType;
- (void)requestAccessForEntityType:(CNEntityType)entityType
                 completionHandler:
                     (void (^)(BOOL granted, NSError* _Nullable error))completionHandler;
- (BOOL)enumerateContactsWithFetchRequest:(CNContactFetchRequest*)fetchRequest
                                    error:(NSError* _Nullable __autoreleasing* _Nullable)error
                               usingBlock:(void(NS_NOESCAPE ^)(CNContact* contact, BOOL* stop))
                                              block;
@end
STUB_EXTERN NSString* const CNContactGivenNameKey MAC_API(10.11);
STUB_EXTERN NSString* const CNContactFamilyNameKey MAC_API(10.11);
STUB_EXTERN NSString* const CNContactNicknameKey MAC_API(10.11);
STUB_EXTERN NSString* const CNContactOrganizationNameKey MAC_API(10.11);
STUB_EXTERN NSString* const CNContactPhoneNumbersKey MAC_API(10.11);
STUB_EXTERN NSString* const CNContactEmailAddressesKey MAC_API(10.11);
STUB_EXTERN NSString* const CNContactStoreDidChangeNotification MAC_API(10.11);
NS_ASSUME_NONNULL_END
