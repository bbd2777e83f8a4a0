// SPDX-License-Identifier: Apache-2.0
#include "service/LocalService.h"

#include "service/endpoints/Endpoints.h"
#include "service/endpoints/Page.h"
#include "service/support/PrivateFile.h"

#include <boost/json.hpp>

#include <utility>

namespace orvel::service {

LocalService::LocalService(Options options)
    : options_(std::move(options)),
      port_(options_.port),
      store_(options_.store),
      identities_(options_.store, options_.accounts, options_.idTokenLifetime, options_.now),
      codes_(options_.now),
      tokens_(options_.tokens, identities_),
      pages_(options_.now),
      authority_(options_.certificates, std::chrono::system_clock::now()),
      knownHandles_(options_.knownHandles),
      contract_(tokens_, pages_),
      operator_(tokens_, pages_),
      server_(
          authority_,
          {.handle = [this](const Request& request) { return answer(request); },
           .isTrusted = [this](const Request& request) { return tokens_.accepts(request); },
           .accountOf = options_.accountOf}) {
    addAccountEndpoints(contract_, codes_, identities_, tokens_);
    addContextEndpoints(contract_, store_, knownHandles_);
    addIdentityEndpoints(contract_, identities_, options_.apiKey);
    addLinkEndpoints(contract_, identities_.accounts(), codes_);
    if (options_.updates) {
        addUpdateEndpoints(contract_, *options_.updates);
    }
    addPageEndpoints(operator_, pages_);
    addStatusEndpoints(operator_, store_);
    if (options_.hasControl) {
        addControlEndpoints(operator_, faults_, identities_, [this] { return statistics(); });
    }
    if (options_.capture) {
        capture_.emplace(*options_.capture);
    }
}

void LocalService::start() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = false;
    }
    port_ = server_.start(port_);
}

void LocalService::stop() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    changed_.notify_all();
    server_.stop();
}

Reply LocalService::answer(const Request& request) {
    const bool isForOperator = operator_.hasPath(request.path);
    auto reply = isForOperator ? operator_.serve(request) : answerContract(request);
    if (options_.log) {
        logReply(request, isForOperator ? operator_ : contract_, reply);
    }
    return reply;
}

void LocalService::logReply(const Request& request, const Router& router, const Reply& reply) {
    // An unknown path is the client's text and could contain personal data.
    const auto path = router.addedPath(request.path).value_or("(unknown path)");
    const auto line = request.method + " " + path + " " + std::to_string(reply.status);
    const std::lock_guard lock(logMutex_);
    options_.log(reply.failure.empty() ? line : line + ": " + reply.failure);
}

std::string LocalService::mintPageLink() {
    return url().append(PageAccess::path).append("?key=") + pages_.mintKey();
}

std::string LocalService::openPages() {
    Request request;
    request.headers.emplace_back("Host", "127.0.0.1:" + std::to_string(port()));
    return pages_.open(request, pages_.mintKey()).value_or("");
}

Reply LocalService::answerContract(const Request& request) {
    count(request);
    if (capture_) {
        // At a path without bearer tokens, the body holds the credentials. A request to an unknown
        // path may have been meant for such an endpoint.
        using enum TrafficCapture::Sender;
        const bool isAuthorized =
            contract_.wantsBearerToken(request.path) && tokens_.accepts(request);
        capture_->append(request, isAuthorized ? Authorized : Stranger);
    }
    auto fault = faults_.take(request.path);
    if (!fault) {
        return contract_.serve(request);
    }
    wait(fault->delay);
    auto reply = fault->reply ? std::move(*fault->reply) : contract_.serve(request);
    reply.delivery = fault->delivery;
    return reply;
}

void LocalService::count(const Request& request) {
    {
        const std::lock_guard lock(mutex_);
        ++requestCount_;
        // Counting unknown paths would let any client grow the map.
        if (const auto path = contract_.addedPath(request.path)) {
            ++pathCounts_[*path];
        }
    }
    changed_.notify_all();
}

void LocalService::wait(std::chrono::milliseconds delay) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, delay, [this] { return isStopping_; });
}

std::size_t LocalService::requestCount() const {
    const std::lock_guard lock(mutex_);
    return requestCount_;
}

std::size_t LocalService::requestCount(std::string_view path) const {
    const std::lock_guard lock(mutex_);
    const auto found = pathCounts_.find(path);
    return found == pathCounts_.end() ? 0 : found->second;
}

bool LocalService::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this, count] { return requestCount_ >= count; });
}

boost::json::object LocalService::statistics() const {
    const auto totals = store_.totals();
    boost::json::object json{
        {"records", totals.records},
        {"batches", totals.batches},
        {"diagnosticLines", totals.diagnosticLines},
        {"pendingFaults", faults_.pending()},
    };
    const std::lock_guard lock(mutex_);
    json["requests"] = requestCount_;
    json["requestsByPath"] = boost::json::value_from(pathCounts_);
    return json;
}

void LocalService::writeBundle(const std::filesystem::path& folder) const {
    const auto host = "127.0.0.1:" + std::to_string(port());
    std::vector<std::pair<std::string_view, std::string>> items{
        // An identifier per service: the agent keeps its session under it, and a session is only
        // valid with the service that issued it.
        {"CFBundleIdentifier", ORVEL_BUNDLE_IDENTIFIER ".LocalService"},
        {"CFBundleDisplayName", ORVEL_DISPLAY_NAME},
        {"CFBundleShortVersionString", ORVEL_VERSION},
        {"CFBundleVersion", ORVEL_VERSION},
        {"API_HOST", host},
        {"WEB_HOST", host},
        {"FIREBASE_API_KEY", options_.apiKey.empty() ? "any" : options_.apiKey},
        {"IDENTITY_TOOLKIT_URL", url() + "/identity/v1/"},
        {"SECURE_TOKEN_URL", url() + "/identity/v1/token"},
        {"TLS_EXTRA_CA", std::filesystem::absolute(caFile()).string()},
    };
    if (!options_.updatePublicKey.empty()) {
        items.emplace_back("SUFeedURL", url().append(updateFeedPath));
        items.emplace_back("SUPublicEDKey", options_.updatePublicKey);
    }
    std::string list =
        "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
    for (const auto& [key, value] : items) {
        list.append("    <key>").append(key).append("</key>\n    <string>");
        list.append(escaped(value)).append("</string>\n");
    }
    list += "</dict>\n</plist>\n";
    makePrivateDirectory(folder);
    replacePrivateFile(folder / "Info.plist", list);
}

} // namespace orvel::service
