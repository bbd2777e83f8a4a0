// SPDX-License-Identifier: Apache-2.0
#include "tests/platform/RealAddressBook.h"

#include "platform/macos/contacts/ContactsAddressBook.h"
#include "platform/macos/support/FoundationConversions.h"

#import <Contacts/Contacts.h>

#include <atomic>

namespace orvel::test {

namespace {

/// The state of the test's store. A global, because a class method also reads it.
struct Contacts {
    std::atomic<CNAuthorizationStatus> status = CNAuthorizationStatusNotDetermined;
    std::atomic<bool> userAllows = true;
    std::atomic<int> questions = 0;
    std::atomic<bool> isBroken = false;
    NSArray<CNContact*>* cards = @[];
};

Contacts* contacts = nullptr;

/// Has only the values of these keys, like a contact from the framework.
CNContact* fetched(CNContact* whole, NSArray<id<CNKeyDescriptor>>* keys) {
    CNMutableContact* const contact = [[CNMutableContact alloc] init];
    if ([keys containsObject:CNContactGivenNameKey]) {
        contact.givenName = whole.givenName;
    }
    if ([keys containsObject:CNContactFamilyNameKey]) {
        contact.familyName = whole.familyName;
    }
    if ([keys containsObject:CNContactOrganizationNameKey]) {
        contact.organizationName = whole.organizationName;
    }
    if ([keys containsObject:CNContactPhoneNumbersKey]) {
        contact.phoneNumbers = whole.phoneNumbers;
    }
    if ([keys containsObject:CNContactEmailAddressesKey]) {
        contact.emailAddresses = whole.emailAddresses;
    }
    return contact;
}

CNContact* contactOf(const ContactCard& card) {
    CNMutableContact* const contact = [[CNMutableContact alloc] init];
    contact.givenName = nsString(card.givenName);
    contact.familyName = nsString(card.familyName);
    contact.organizationName = nsString(card.organizationName);
    NSMutableArray<CNLabeledValue<CNPhoneNumber*>*>* const phoneNumbers = [NSMutableArray array];
    for (const std::string& number : card.phoneNumbers) {
        CNPhoneNumber* const phoneNumber =
            [CNPhoneNumber phoneNumberWithStringValue:nsString(number)];
        if (phoneNumber != nil) {
            [phoneNumbers addObject:[CNLabeledValue labeledValueWithLabel:nil value:phoneNumber]];
        }
    }
    contact.phoneNumbers = phoneNumbers;
    NSMutableArray<CNLabeledValue<NSString*>*>* const addresses = [NSMutableArray array];
    for (const std::string& address : card.emailAddresses) {
        [addresses addObject:[CNLabeledValue labeledValueWithLabel:nil value:nsString(address)]];
    }
    contact.emailAddresses = addresses;
    return contact;
}

} // namespace

} // namespace orvel::test

/// Replaces the user's contacts and the system's question.
@interface OrvelTestContactStore : CNContactStore
@end

@implementation OrvelTestContactStore

+ (CNAuthorizationStatus)authorizationStatusForEntityType:(CNEntityType)entityType {
    return orvel::test::contacts->status;
}

- (void)requestAccessForEntityType:(CNEntityType)entityType
                 completionHandler:(void (^)(BOOL granted, NSError* error))completionHandler {
    orvel::test::Contacts& contacts = *orvel::test::contacts;
    if (contacts.status == CNAuthorizationStatusNotDetermined) {
        ++contacts.questions;
        contacts.status =
            contacts.userAllows ? CNAuthorizationStatusAuthorized : CNAuthorizationStatusDenied;
    }
    const BOOL isGranted = contacts.status == CNAuthorizationStatusAuthorized;
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
      completionHandler(isGranted, nil);
    });
}

- (BOOL)enumerateContactsWithFetchRequest:(CNContactFetchRequest*)fetchRequest
                                    error:(NSError**)error
                               usingBlock:(void(NS_NOESCAPE ^)(CNContact* contact, BOOL* stop))
                                              block {
    BOOL stops = NO;
    for (CNContact* contact in orvel::test::contacts->cards) {
        block(orvel::test::fetched(contact, fetchRequest.keysToFetch), &stops);
    }
    if (orvel::test::contacts->isBroken) {
        if (error != nullptr) {
            *error = [NSError errorWithDomain:CNErrorDomain
                                         code:CNErrorCodeAuthorizationDenied
                                     userInfo:nil];
        }
        return NO;
    }
    return YES;
}

@end

namespace orvel::test {

namespace {

class ContactsSubject final : public AddressBookSubject {
public:
    ContactsSubject() { contacts = &contacts_; }
    ~ContactsSubject() override { contacts = nullptr; }

    AddressBook& addressBook() override { return addressBook_; }
    void add(const std::vector<ContactCard>& cards) override {
        NSMutableArray<CNContact*>* const all = [contacts_.cards mutableCopy];
        for (const ContactCard& card : cards) {
            [all addObject:contactOf(card)];
        }
        contacts_.cards = all;
    }
    void setUserAllows(bool userAllows) override { contacts_.userAllows = userAllows; }
    [[nodiscard]] int questions() const override { return contacts_.questions; }
    void breakPart() override { contacts_.isBroken = true; }
    void setBroken(bool isBroken) override { contacts_.isBroken = isBroken; }
    [[nodiscard]] bool isRestrictedWhenBroken() const override { return false; }

private:
    Contacts contacts_;
    ContactsAddressBook addressBook_{[[OrvelTestContactStore alloc] init]};
};

} // namespace

std::unique_ptr<AddressBookSubject> makeRealAddressBook() {
    return std::make_unique<ContactsSubject>();
}

} // namespace orvel::test
