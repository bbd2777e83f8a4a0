// SPDX-License-Identifier: Apache-2.0
#include "service/LocalService.h"

#include "service/Bundle.h"
#include "service/accounts/AuthorizationCodes.h"
#include "service/accounts/BearerTokens.h"
#include "service/endpoints/AccountEndpoints.h"
#include "service/endpoints/ContextEndpoints.h"
#include "service/endpoints/ControlEndpoints.h"
#include "service/endpoints/IdentityEndpoints.h"
#include "service/endpoints/LinkPage.h"
#include "service/endpoints/Router.h"
#include "service/endpoints/StatusPage.h"
#include "service/endpoints/UpdateEndpoints.h"
#include "service/http/CertificateAuthority.h"
#include "service/http/Envelope.h"
#include "service/http/HTTPSServer.h"
#include "service/http/TrafficCapture.h"
#include "service/records/KnownHandles.h"
#include "service/records/RecordStore.h"

#include <boost/json.hpp>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <utility>

namespace orvel::service {

class LocalService::Implementation final {
public:
    explicit Implementation(Options options);

    void start();
    void stop();

    FaultScript faults;
    RecordStore store;
    IdentityProvider identities;
    AuthorizationCodes codes;
    BearerTokens tokens;
    const CertificateAuthority authority;
    const std::string apiKey;
    const std::string updatePublicKey;
    std::atomic<std::uint16_t> port;

    [[nodiscard]] std::size_t requestCount() const;
    [[nodiscard]] std::size_t requestCount(std::string_view path) const;
    [[nodiscard]] bool waitForRequests(std::size_t count, std::chrono::milliseconds limit) const;

private:
    [[nodiscard]] Reply answer(const Request& request);
    [[nodiscard]] Reply answerContract(const Request& request);
    void count(const Request& request);
    void wait(std::chrono::milliseconds delay);
    [[nodiscard]] boost::json::object statistics() const;

    const KnownHandles knownHandles_;
    /// The agent's endpoints: counted, captured and subject to faults.
    Router contract_;
    /// The endpoints for people and test programs.
    Router operator_;
    std::unique_ptr<TrafficCapture> capture_;
    std::mutex logMutex_;
    const std::function<void(std::string_view)> log_;

    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    bool isStopping_ = false;
    std::size_t requestCount_ = 0;
    std::map<std::string, std::size_t, std::less<>> pathCounts_;

    /// Last, so that it stops before the members that its threads use are destroyed.
    HTTPSServer server_;
};

LocalService::Implementation::Implementation(Options options)
    : store(options.store),
      identities(options.store, std::move(options.accounts), options.idTokenLifetime, options.now),
      codes(std::move(options.now)),
      tokens(std::move(options.tokens), identities),
      authority(std::move(options.certificates), std::chrono::system_clock::now()),
      apiKey(std::move(options.apiKey)),
      updatePublicKey(std::move(options.updatePublicKey)),
      port(options.port),
      knownHandles_(options.knownHandles),
      contract_(tokens),
      operator_(tokens),
      log_(std::move(options.log)),
      server_(authority.serverCertificate(), authority.serverKey(), [this](const Request& request) {
          return answer(request);
      }) {
    addAccountEndpoints(contract_, codes, identities, tokens);
    addContextEndpoints(contract_, store, knownHandles_);
    addIdentityEndpoints(contract_, identities, apiKey);
    addLinkPage(contract_, identities.accounts(), codes);
    if (options.updates) {
        addUpdateEndpoints(contract_, std::move(*options.updates));
    }
    addStatusPage(operator_, store);
    if (options.hasControl) {
        addControlEndpoints(operator_, faults, identities, [this] { return statistics(); });
    }
    if (options.capture) {
        capture_ = std::make_unique<TrafficCapture>(std::move(*options.capture));
    }
}

void LocalService::Implementation::start() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = false;
    }
    port = server_.start(port);
}

void LocalService::Implementation::stop() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    changed_.notify_all();
    server_.stop();
}

Reply LocalService::Implementation::answer(const Request& request) {
    const bool isForOperator = operator_.hasPath(request.path);
    auto reply = isForOperator ? operator_.serve(request) : answerContract(request);
    if (log_) {
        // An unknown path is the client's text and could contain personal data.
        const auto path = (isForOperator ? operator_ : contract_).addedPath(request.path);
        const std::lock_guard lock(logMutex_);
        log_(
            request.method + " " + path.value_or("(unknown path)") + " " +
            std::to_string(reply.status));
    }
    return reply;
}

Reply LocalService::Implementation::answerContract(const Request& request) {
    count(request);
    if (capture_) {
        // Without a bearer token, the body holds the credentials. A request to an unknown path may
        // have been meant for such an endpoint.
        using enum TrafficCapture::Body;
        capture_->append(request, contract_.wantsBearerToken(request.path) ? Kept : LeftOut);
    }
    auto fault = faults.take(request.path);
    if (!fault) {
        return contract_.serve(request);
    }
    wait(fault->delay);
    auto reply = fault->reply ? std::move(*fault->reply) : contract_.serve(request);
    reply.delivery = fault->delivery;
    return reply;
}

void LocalService::Implementation::count(const Request& request) {
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

void LocalService::Implementation::wait(std::chrono::milliseconds delay) {
    std::unique_lock lock(mutex_);
    changed_.wait_for(lock, delay, [this] { return isStopping_; });
}

std::size_t LocalService::Implementation::requestCount() const {
    const std::lock_guard lock(mutex_);
    return requestCount_;
}

std::size_t LocalService::Implementation::requestCount(std::string_view path) const {
    const std::lock_guard lock(mutex_);
    const auto found = pathCounts_.find(path);
    return found == pathCounts_.end() ? 0 : found->second;
}

bool LocalService::Implementation::waitForRequests(
    std::size_t count, std::chrono::milliseconds limit) const {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, limit, [this, count] { return requestCount_ >= count; });
}

boost::json::object LocalService::Implementation::statistics() const {
    const auto totals = store.totals();
    boost::json::object json{
        {"records", totals.records},
        {"batches", totals.batches},
        {"diagnosticLines", totals.diagnosticLines},
        {"pendingFaults", faults.pending()},
    };
    const std::lock_guard lock(mutex_);
    json["requests"] = requestCount_;
    json["requestsByPath"] = boost::json::value_from(pathCounts_);
    return json;
}

LocalService::LocalService(Options options)
    : implementation_(std::make_unique<Implementation>(std::move(options))) {}

LocalService::~LocalService() {
    implementation_->stop();
}

void LocalService::start() {
    implementation_->start();
}

void LocalService::stop() {
    implementation_->stop();
}

void LocalService::script(Fault fault, std::size_t times) {
    implementation_->faults.add(std::move(fault), times);
}

void LocalService::clearFaults() {
    implementation_->faults.clear();
}

void LocalService::expireToken(std::string token) {
    implementation_->tokens.expire(std::move(token));
}

std::string LocalService::mintCode(std::string challenge, std::string uid) {
    return implementation_->codes.mint(std::move(challenge), std::move(uid));
}

IdentityProvider::Tokens LocalService::signIn(const std::string& uid) {
    return implementation_->identities.startSession(uid);
}

std::size_t LocalService::revokeSessions(
    const std::string& uid, const std::string& message, bool endsIDTokens) {
    return implementation_->identities.revokeSessions(uid, message, endsIDTokens);
}

std::size_t LocalService::expireIDTokens() {
    return implementation_->identities.expireIDTokens();
}

void LocalService::setUserDisabled(const std::string& uid, bool isDisabled) {
    implementation_->identities.setUserDisabled(uid, isDisabled);
}

void LocalService::writeBundle(const std::filesystem::path& folder) const {
    const auto& key = implementation_->apiKey;
    BundleInformation information;
    information.host = "127.0.0.1:" + std::to_string(port());
    information.apiKey = key.empty() ? "any" : key;
    information.caFile = caFile();
    if (!implementation_->updatePublicKey.empty()) {
        information.updates = {url().append(updateFeedPath), implementation_->updatePublicKey};
    }
    service::writeBundle(folder, information);
}

std::uint16_t LocalService::port() const {
    return implementation_->port;
}

std::string LocalService::url() const {
    return "https://127.0.0.1:" + std::to_string(port());
}

std::filesystem::path LocalService::caFile() const {
    return implementation_->authority.certificateFile();
}

std::size_t LocalService::requestCount() const {
    return implementation_->requestCount();
}

std::size_t LocalService::requestCount(std::string_view path) const {
    return implementation_->requestCount(path);
}

bool LocalService::waitForRequests(std::size_t count, std::chrono::milliseconds limit) const {
    return implementation_->waitForRequests(count, limit);
}

std::size_t LocalService::storedCount() const {
    return static_cast<std::size_t>(implementation_->store.totals().records);
}

const RecordStore& LocalService::store() const {
    return implementation_->store;
}

} // namespace orvel::service
