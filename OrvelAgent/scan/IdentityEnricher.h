// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/scan/ContactBridge.h"
#include "core/messages/MessageRecord.h"

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvel {

/// Gives records the names and e-mail addresses of their participants. Remembers each handle's
/// identity, since threads repeat the same few. One thread at a time.
class IdentityEnricher final {
public:
    explicit IdentityEnricher(std::shared_ptr<const ContactBridge::IdentityIndex> index);

    /// Replaces both maps of every record; with an empty index the records stay as they are.
    void enrich(std::vector<tavrin::MessageRecord>& records);

private:
    const ContactBridge::Identity* identityOf(const std::string& handle);

    std::shared_ptr<const ContactBridge::IdentityIndex> index_;
    std::unordered_map<std::string, const ContactBridge::Identity*> known_;
};

} // namespace orvel
