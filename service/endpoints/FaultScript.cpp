// SPDX-License-Identifier: Apache-2.0
#include "service/endpoints/FaultScript.h"

#include "service/endpoints/Endpoints.h"
#include "service/http/Envelope.h"

#include <boost/json.hpp>

#include <algorithm>
#include <utility>

namespace orvel::service {

Fault Fault::answer(int status, std::string body) {
    Fault fault;
    fault.reply.emplace();
    fault.reply->status = status;
    fault.reply->body = std::move(body);
    return fault;
}

Fault Fault::refusal(int status, std::string code, std::string sentence) {
    Fault fault;
    fault.reply = refused(Refusal(status, std::move(code), std::move(sentence)));
    return fault;
}

Fault Fault::identityError(int status, std::string_view message) {
    Fault fault;
    fault.reply = service::identityError(status, message);
    return fault;
}

Fault Fault::delayed(std::chrono::milliseconds delay) {
    Fault fault;
    fault.delay = delay;
    return fault;
}

Fault Fault::reset() {
    Fault fault = acceptThenReset();
    fault.reply.emplace();
    return fault;
}

Fault Fault::cutOff() {
    Fault fault = acceptThenCutOff();
    fault.reply = success({});
    return fault;
}

Fault Fault::acceptThenReset() {
    Fault fault;
    fault.delivery = Reply::Delivery::Reset;
    return fault;
}

Fault Fault::acceptThenCutOff() {
    Fault fault;
    fault.delivery = Reply::Delivery::CutOff;
    return fault;
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
