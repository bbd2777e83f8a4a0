// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/scan/IdentityEnricher.h"

#include "core/messages/Handle.h"
#include "core/messages/HandleNormalizer.h"

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
            const ContactBridge::Identity* identity = identityOf(handle);
            if (identity == nullptr) {
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

const ContactBridge::Identity* IdentityEnricher::identityOf(const std::string& handle) {
    const auto [entry, isNew] = known_.try_emplace(handle, nullptr);
    if (isNew) {
        const auto hint = tavrin::HandleNormalizer::matchHint(tavrin::Handle::classify(handle));
        const auto found = hint ? index_->find(*hint) : index_->end();
        if (found != index_->end()) {
            entry->second = &found->second;
        }
    }
    return entry->second;
}

} // namespace orvel
