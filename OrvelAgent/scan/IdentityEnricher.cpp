// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/IdentityEnricher.h"

#include <utility>

namespace orvel {

IdentityEnricher::IdentityEnricher(std::shared_ptr<const ContactBridge::IdentityIndex> index)
    : index_(std::move(index)) {}

void IdentityEnricher::enrich(std::vector<tavrin::MessageRecord>& records) {
    if (!index_ || index_->empty()) {
        return;
    }
    for (tavrin::MessageRecord& record : records) {
        tavrin::ParticipantNames names;
        tavrin::ParticipantEmails emails;
        for (const std::string& handle : record.participants) {
            const std::optional<ContactBridge::Identity>& identity = identityOf(handle);
            if (!identity) {
                continue;
            }
            if (identity->name) {
                names.insert_or_assign(handle, *identity->name);
            }
            if (!identity->emails.empty()) {
                emails.insert_or_assign(handle, identity->emails);
            }
        }
        record = std::move(record).withIdentities(std::move(names), std::move(emails));
    }
}

const std::optional<ContactBridge::Identity>&
IdentityEnricher::identityOf(const std::string& handle) {
    const auto [entry, isNew] = known_.try_emplace(handle);
    if (isNew) {
        entry->second = ContactBridge::identity(handle, *index_);
    }
    return entry->second;
}

} // namespace orvel
