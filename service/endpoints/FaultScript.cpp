// SPDX-License-Identifier: Apache-2.0
#include "service/endpoints/FaultScript.h"

#include "service/endpoints/Endpoints.h"
#include "service/http/Envelope.h"

#include <boost/json.hpp>

#include <algorithm>
#include <utility>

namespace orvel::service {

Fault Fault::answer(int status, std::string body) {
    return {.reply = Reply{.status = status, .body = std::move(body)}};
}

Fault Fault::refusal(int status, std::string code, std::string sentence) {
    return {.reply = refused(Refusal(status, std::move(code), std::move(sentence)))};
}

Fault Fault::identityError(int status, std::string_view message) {
    return {.reply = service::identityError(status, message)};
}

Fault Fault::delayed(std::chrono::milliseconds delay) {
    return {.delay = delay};
}

Fault Fault::reset() {
    return {.reply = Reply(), .delivery = Reply::Delivery::Reset};
}

Fault Fault::cutOff() {
    return {.reply = success({}), .delivery = Reply::Delivery::CutOff};
}

Fault Fault::acceptThenReset() {
    return {.delivery = Reply::Delivery::Reset};
}

Fault Fault::acceptThenCutOff() {
    return {.delivery = Reply::Delivery::CutOff};
}

void FaultScript::add(Fault fault, std::size_t times) {
    if (times == 0) {
        return;
    }
    const std::lock_guard lock(mutex_);
    entries_.push_back({std::move(fault), times});
}

void FaultScript::clear() {
    const std::lock_guard lock(mutex_);
    entries_.clear();
}

std::optional<Fault> FaultScript::take(std::string_view path) {
    const std::lock_guard lock(mutex_);
    const auto entry = std::ranges::find_if(entries_, [path](const Entry& candidate) {
        return candidate.fault.path.empty() || candidate.fault.path == path;
    });
    if (entry == entries_.end()) {
        return std::nullopt;
    }
    Fault fault = entry->fault;
    if (--entry->times == 0) {
        entries_.erase(entry);
    }
    return fault;
}

std::size_t FaultScript::pending() const {
    const std::lock_guard lock(mutex_);
    std::size_t count = 0;
    for (const auto& entry : entries_) {
        count += entry.times;
    }
    return count;
}

} // namespace orvel::service
