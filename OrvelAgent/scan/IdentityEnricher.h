// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "OrvelAgent/scan/ContactBridge.h"
#include "core/messages/MessageRecord.h"

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

namespace orvel {

/// Adds the names and e-mail addresses of the participants to records. Caches the identity of each
/// handle. Use it on one thread at a time.
class IdentityEnricher final {
public:
    explicit IdentityEnricher(std::shared_ptr<const ContactBridge::IdentityIndex> index);

    /// Replaces both maps of every record. Does nothing if the index is empty.
    void enrich(std::vector<tavrin::MessageRecord>& records);

private:
    const std::optional<ContactBridge::Identity>& identityOf(const std::string& handle);

    std::shared_ptr<const ContactBridge::IdentityIndex> index_;
    std::unordered_map<std::string, std::optional<ContactBridge::Identity>> known_;
};

} // namespace orvel
