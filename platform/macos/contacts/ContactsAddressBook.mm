// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/contacts/ContactsAddressBook.h"

#include "platform/macos/support/FoundationConversions.h"

#import <Contacts/Contacts.h>

#include <utility>

namespace orvel {

namespace {

NSArray<id<CNKeyDescriptor>>* keysOf(AddressBook::Fields fields) {
    switch (fields) {
    case AddressBook::Fields::Identifiers:
        break;
    case AddressBook::Fields::IdentifiersAndNames:
        return @[
            CNContactGivenNameKey,
            CNContactFamilyNameKey,
            CNContactOrganizationNameKey,
            CNContactPhoneNumbersKey,
            CNContactEmailAddressesKey
        ];
    }
    return @[ CNContactPhoneNumbersKey, CNContactEmailAddressesKey ];
}

/// Reads only the fetched properties: the framework throws for others.
ContactCard cardOf(CNContact* contact, AddressBook::Fields fields) {
    ContactCard card;
    if (fields == AddressBook::Fields::IdentifiersAndNames) {
        card.givenName = utf8(contact.givenName);
        card.familyName = utf8(contact.familyName);
        card.organizationName = utf8(contact.organizationName);
    }
    for (CNLabeledValue<CNPhoneNumber*>* phoneNumber in contact.phoneNumbers) {
        card.phoneNumbers.push_back(utf8(phoneNumber.value.stringValue));
    }
    for (CNLabeledValue<NSString*>* emailAddress in contact.emailAddresses) {
        card.emailAddresses.push_back(utf8(emailAddress.value));
    }
    return card;
}

AddressBook::Cards read(CNContactStore* store, AddressBook::Fields fields) {
    CNContactFetchRequest* request =
        [[CNContactFetchRequest alloc] initWithKeysToFetch:keysOf(fields)];
    __block std::vector<ContactCard> cards;
    NSError* error = nil;
    const BOOL isRead = [store enumerateContactsWithFetchRequest:request
                                                           error:&error
                                                      usingBlock:^(CNContact* contact, BOOL*) {
                                                        cards.push_back(cardOf(contact, fields));
                                                      }];
    if (!isRead) {
        return {{}, platformError(error)};
    }
    return {std::move(cards)};
}

} // namespace

ContactsAddressBook::ContactsAddressBook(CNContactStore* store) : store_(store) {}

AddressBook::AuthorizationStatus ContactsAddressBook::authorizationStatus() const {
    // The port has the same numbers, even for a status that this SDK does not define.
    return static_cast<AuthorizationStatus>(
        [[store_ class] authorizationStatusForEntityType:CNEntityTypeContacts]);
}

void ContactsAddressBook::requestAccess(std::function<void(bool)> completion) {
    requests_.push_back(std::move(completion));
    if (requests_.size() > 1) {
        return;
    }
    const auto question = questions_.add([this](bool isGranted) { answerRequests(isGranted); });
    [store_ requestAccessForEntityType:CNEntityTypeContacts
                     completionHandler:^(BOOL granted, NSError*) {
                       question.finish(granted == YES);
                     }];
}

void ContactsAddressBook::enumerateCards(Fields fields, std::function<void(Cards)> completion) {
    const auto enumeration = enumerations_.add(std::move(completion));
    const AuthorizationStatus status = authorizationStatus();
    if (status != AuthorizationStatus::Authorized && status != AuthorizationStatus::Limited) {
        // Reading would ask the user for access. Only `requestAccess` may do that.
        enumeration.finish(
            {{},
             tavrin::PlatformError(
                 utf8(CNErrorDomain),
                 CNErrorCodeAuthorizationDenied,
                 "The address book may not be read.")});
        return;
    }
    CNContactStore* const store = store_;
    dispatch_async(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), ^{
      enumeration.finish(read(store, fields));
    });
}

void ContactsAddressBook::answerRequests(bool isGranted) {
    for (const auto& completion : std::exchange(requests_, {})) {
        completion(isGranted);
    }
}

} // namespace orvel
