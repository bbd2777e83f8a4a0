// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/CurlURLSession.h"

#include "core/Errors.h"
#include "core/Secret.h"
#include "core/URLErrors.h"
#include "platform/HTTPSyntax.h"
#include "platform/linux/network/Curl.h"
#include "platform/linux/network/CurlErrors.h"
#include "platform/linux/network/PendingExchanges.h"
#include "platform/linux/support/OpenSSL.h"
#include "platform/linux/support/ReadFile.h"

#include <curl/curl.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <map>
#include <mutex>
#include <new>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

namespace orvel {

namespace {

using tavrin::URLErrorCode;

template <auto function>
struct OpenSSLRelease {
    template <typename T>
    void operator()(T* object) const {
        (OpenSSL::get().*function)(object);
    }
};

template <auto function>
struct CurlRelease {
    template <typename T>
    void operator()(T* object) const {
        (Curl::get().*function)(object);
    }
};

using Easy = std::unique_ptr<CURL, CurlRelease<&Curl::easyCleanup>>;
using Multi = std::unique_ptr<CURLM, CurlRelease<&Curl::multiCleanup>>;
using HeaderList = std::unique_ptr<curl_slist, CurlRelease<&Curl::slistFreeAll>>;
using ParsedURL = std::unique_ptr<CURLU, CurlRelease<&Curl::urlCleanup>>;
using Bio = std::unique_ptr<BIO, OpenSSLRelease<&OpenSSL::bioFree>>;
using Certificate = std::unique_ptr<X509, OpenSSLRelease<&OpenSSL::x509Free>>;
using Certificates = std::vector<Certificate>;

/// Of all headers of a reply, interim replies included.
constexpr std::size_t maximumHeaderBytes = std::size_t{256} << 10U;
constexpr std::size_t maximumCertificateFileBytes = std::size_t{4} << 20U;

/// libcurl's own tables, for as long as a worker needs them.
class CurlLibrary final {
public:
    CurlLibrary() {
        if (Curl::get().globalInit(CURL_GLOBAL_DEFAULT) != CURLE_OK) {
            throw std::bad_alloc();
        }
    }
    ~CurlLibrary() { Curl::get().globalCleanup(); }
    CurlLibrary(const CurlLibrary&) = delete;
    CurlLibrary& operator=(const CurlLibrary&) = delete;
};

void appendCertificates(Certificates& certificates, const std::filesystem::path& file) {
    const std::string content = readFile(file, maximumCertificateFileBytes);
    const OpenSSL& openSSL = OpenSSL::get();
    const Bio source(openSSL.bioNewMemBuf(content.data(), static_cast<int>(content.size())));
    const std::size_t before = certificates.size();
    while (
        Certificate certificate{openSSL.pemReadBioX509(source.get(), nullptr, nullptr, nullptr)}) {
        certificates.push_back(std::move(certificate));
    }
    const unsigned long reason = openSSL.errPeekLastError();
    openSSL.errClearError();
    // The end of the file shows as a missing start line.
    if (ERR_GET_REASON(reason) != PEM_R_NO_START_LINE || certificates.size() == before) {
        throw tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain),
            EBADMSG,
            "Could not read the certificates in " + file.string() + ".");
    }
}

void wipe(URLRequest& request) {
    for (auto& [name, value] : request.headers) {
        tavrin::wipe(value);
    }
    if (request.body) {
        tavrin::wipe(*request.body);
    }
}

/// Where a TLS context keeps the transfer it belongs to.
int transferIndex() {
    static const int index = OpenSSL::get().cryptoGetExNewIndex(
        CRYPTO_EX_INDEX_SSL_CTX, 0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

/// Why the request cannot be sent at all.
std::optional<tavrin::URLError> refusal(const URLRequest& request) {
    if (!request.url.starts_with("https://")) {
        return urlError(URLErrorCode::UnsupportedURL);
    }
    try {
        Curl::get();
        OpenSSL::get();
    } catch (const tavrin::PlatformError& missing) {
        return tavrin::URLError(URLErrorCode::Unknown, missing.what());
    }
    const ParsedURL parsed(Curl::get().url());
    if (hasControlCharacter(request.url) ||
        Curl::get().urlSet(parsed.get(), CURLUPART_URL, request.url.c_str(), CURLU_DISALLOW_USER) !=
            CURLUE_OK) {
        return urlError(URLErrorCode::BadURL);
    }
    const bool isWellFormed =
        isToken(request.method) && std::ranges::all_of(request.headers, [](const auto& header) {
            return isToken(header.first) && !hasControlCharacter(header.second);
        });
    if (!isWellFormed) {
        // A line break in a token must not become a header of its own.
        return tavrin::URLError(
            URLErrorCode::Unknown, "The request has a header that cannot be sent.");
    }
    return std::nullopt;
}

} // namespace

/// One exchange: made on the main thread, then the worker's alone. libcurl keeps pointers to it.
class CurlURLSession::Transfer final {
public:
    Transfer(std::uint64_t exchange, URLRequest request, const State& state);
    /// Overwrites what was sent and received: tokens travel in all of it.
    ~Transfer();
    Transfer(const Transfer&) = delete;
    Transfer& operator=(const Transfer&) = delete;

    [[nodiscard]] std::uint64_t exchange() const { return exchange_; }
    [[nodiscard]] CURL* easy() const { return easy_.get(); }

    /// Call once, when libcurl is done.
    [[nodiscard]] URLResult takeResult(CURLcode code);

private:
    template <typename T>
    void set(CURLoption option, T value) {
        if (const CURLcode code = Curl::get().easySetopt(easy_.get(), option, value);
            code != CURLE_OK) {
            throw std::runtime_error(std::string("libcurl: ") + Curl::get().easyStrerror(code));
        }
    }

    void setRequest();
    void setTimeout();
    void setSecurity(const State& state);
    void appendHeader(const std::string& line);
    /// libcurl takes some replies that were cut off for whole ones.
    [[nodiscard]] bool isWhole() const;

    static std::size_t onHeader(char* data, std::size_t, std::size_t size, void* transfer) noexcept;
    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* transfer) noexcept;
    static CURLcode onTLSContext(CURL*, void* context, void* transfer) noexcept;
    static void onTLSEvent(const SSL* session, int where, int value) noexcept;

    std::uint64_t exchange_;
    URLRequest request_;
    const Certificates& extraCertificates_;
    HeaderList headers_;
    URLResponse response_;
    std::size_t headerBytes_ = 0;
    bool hasAllHeaders_ = false;
    /// Whether TLS has said that nothing more comes.
    bool hasFarewell_ = false;
    /// Destroyed first: it refers to the others.
    Easy easy_;
};

/// The thread on which libcurl works.
class CurlURLSession::Worker final {
public:
    /// Borrows the exchanges.
    explicit Worker(PendingExchanges& pending);
    /// Ends what is in flight.
    ~Worker();
    Worker(const Worker&) = delete;
    Worker& operator=(const Worker&) = delete;

    void start(std::unique_ptr<Transfer> transfer);
    void cancel(std::uint64_t exchange);

private:
    void run();
    /// Gives false when it is time to stop.
    bool takeOrders();
    void finish(CURL* easy, CURLcode code);

    PendingExchanges& pending_;
    CurlLibrary library_;
    Multi multi_;

    std::mutex mutex_;
    std::vector<std::unique_ptr<Transfer>> started_;
    std::vector<std::uint64_t> cancelled_;
    bool isStopping_ = false;

    /// The thread's own.
    std::map<std::uint64_t, std::unique_ptr<Transfer>> transfers_;
    std::thread thread_;
};

struct CurlURLSession::State {
    Trust trust;
    Certificates extraCertificates;
    PendingExchanges pending;
    /// From the first request on.
    std::optional<Worker> worker;
};

class CurlURLSession::CurlTask final : public Task {
public:
    CurlTask(std::weak_ptr<State> state, std::uint64_t exchange)
        : state_(std::move(state)), exchange_(exchange) {}

    void cancel() override {
        const auto state = state_.lock();
        if (state && state->pending.cancel(exchange_) && state->worker) {
            state->worker->cancel(exchange_);
        }
    }

private:
    std::weak_ptr<State> state_;
    std::uint64_t exchange_;
};

CurlURLSession::CurlURLSession(Trust trust) : state_(std::make_shared<State>()) {
    for (const std::filesystem::path& file : trust.extraCertificates) {
        appendCertificates(state_->extraCertificates, file);
    }
    state_->trust = std::move(trust);
}

CurlURLSession::~CurlURLSession() = default;

std::unique_ptr<URLSession::Task>
CurlURLSession::start(URLRequest request, std::function<void(URLResult)> completion) {
    const std::uint64_t exchange = state_->pending.add(std::move(completion));
    if (auto error = refusal(request)) {
        wipe(request);
        state_->pending.finish(exchange, std::move(*error));
    } else {
        if (!state_->worker) {
            state_->worker.emplace(state_->pending);
        }
        state_->worker->start(std::make_unique<Transfer>(exchange, std::move(request), *state_));
    }
    return std::make_unique<CurlTask>(state_, exchange);
}

CurlURLSession::Transfer::Transfer(std::uint64_t exchange, URLRequest request, const State& state)
    : exchange_(exchange),
      request_(std::move(request)),
      extraCertificates_(state.extraCertificates),
      easy_(Curl::get().easyInit()) {
    if (!easy_) {
        throw std::bad_alloc();
    }
    set(CURLOPT_PRIVATE, this);
    set(CURLOPT_HEADERFUNCTION, onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, onBody);
    set(CURLOPT_WRITEDATA, this);

    // One request on the wire: see the class.
    set(CURLOPT_FRESH_CONNECT, 1L);
    set(CURLOPT_FORBID_REUSE, 1L);
    set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_PROTOCOLS_STR, "https");
    set(CURLOPT_HEADEROPT, long{CURLHEADER_SEPARATE});
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);

    set(CURLOPT_NOSIGNAL, 1L);
    // Otherwise giving up a lookup waits for it to end, and with it every other transfer.
    set(CURLOPT_QUICK_EXIT, 1L);

    setRequest();
    setTimeout();
    setSecurity(state);
}

CurlURLSession::Transfer::~Transfer() {
    wipe(request_);
    for (const curl_slist* line = headers_.get(); line != nullptr; line = line->next) {
        tavrin::wipe(line->data, std::strlen(line->data));
    }
    tavrin::wipe(response_.body);
}

void CurlURLSession::Transfer::setRequest() {
    set(CURLOPT_URL, request_.url.c_str());
    if (request_.method == "HEAD") {
        set(CURLOPT_NOBODY, 1L);
    } else if (request_.body || request_.method == "POST") {
        const std::string_view body = request_.body ? *request_.body : std::string_view();
        set(CURLOPT_POST, 1L);
        set(CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        set(CURLOPT_POSTFIELDS, request_.body ? request_.body->data() : "");
    }
    set(CURLOPT_CUSTOMREQUEST, request_.method.c_str());

    // What libcurl would add by itself and nobody asked for.
    appendHeader("Expect:");
    appendHeader("Content-Type:");
    for (const auto& [name, value] : request_.headers) {
        // libcurl leaves a header without a value out, unless it ends like this.
        const std::string_view separator = value.empty() ? ";" : ": ";
        // Without a buffer that would keep a part of it.
        std::string line;
        line.reserve(name.size() + separator.size() + value.size());
        line.append(name).append(separator).append(value);
        appendHeader(line);
        tavrin::wipe(line);
    }
    set(CURLOPT_HTTPHEADER, headers_.get());
}

void CurlURLSession::Transfer::setTimeout() {
    // 0 would be no limit at all.
    const double milliseconds =
        std::clamp(request_.timeout.count() * 1000, 1.0, static_cast<double>(INT_MAX));
    set(CURLOPT_TIMEOUT_MS, static_cast<long>(milliseconds));
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(milliseconds));
}

void CurlURLSession::Transfer::setSecurity(const State& state) {
    set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (state.trust.systemCertificates) {
        set(CURLOPT_CAINFO, state.trust.systemCertificates->c_str());
    }
    // libcurl reads the system's certificates once, instead of for each connection where that takes
    // most of the time, unless there is a folder to look into besides the file.
    const char* file = nullptr;
    Curl::get().easyGetinfo(easy_.get(), CURLINFO_CAINFO, &file);
    if (file != nullptr) {
        set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    set(CURLOPT_SSL_CTX_FUNCTION, onTLSContext);
    set(CURLOPT_SSL_CTX_DATA, this);
}

void CurlURLSession::Transfer::appendHeader(const std::string& line) {
    curl_slist* const longer = Curl::get().slistAppend(headers_.get(), line.c_str());
    if (longer == nullptr) {
        throw std::bad_alloc();
    }
    // The list's own start when it was empty; the same list otherwise.
    static_cast<void>(headers_.release());
    headers_.reset(longer);
}

URLResult CurlURLSession::Transfer::takeResult(CURLcode code) {
    if (code != CURLE_OK) {
        CurlFailure failure{code, 0, 0};
        Curl::get().easyGetinfo(easy_.get(), CURLINFO_OS_ERRNO, &failure.systemError);
        Curl::get().easyGetinfo(easy_.get(), CURLINFO_SSL_VERIFYRESULT, &failure.verifyResult);
        return urlError(urlErrorCode(failure));
    }
    long status = 0;
    Curl::get().easyGetinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    response_.status = static_cast<int>(status);
    const char* redirect = nullptr;
    Curl::get().easyGetinfo(easy_.get(), CURLINFO_REDIRECT_URL, &redirect);
    response_.redirect = redirect == nullptr ? "" : redirect;
    if (!isWhole()) {
        return urlError(URLErrorCode::NetworkConnectionLost);
    }
    return std::move(response_);
}

bool CurlURLSession::Transfer::isWhole() const {
    if (!hasAllHeaders_ || response_.status < 200) {
        return false;
    }
    const bool mayHaveBody =
        request_.method != "HEAD" && response_.status != 204 && response_.status != 304;
    curl_off_t length = -1;
    Curl::get().easyGetinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    curl_header* chunked = nullptr;
    Curl::get().easyHeader(easy_.get(), "Transfer-Encoding", 0, CURLH_HEADER, -1, &chunked);
    // Otherwise the end of the connection is the end of the body, and may have come too early.
    return !mayHaveBody || length >= 0 || chunked != nullptr || hasFarewell_;
}

std::size_t CurlURLSession::Transfer::onHeader(
    char* data, std::size_t, std::size_t size, void* transfer) noexcept {
    auto& self = *static_cast<Transfer*>(transfer);
    const std::string_view line(data, size);
    if (line.starts_with("HTTP/")) {
        self.hasAllHeaders_ = false;
    } else if (line == "\r\n" || line == "\n") {
        self.hasAllHeaders_ = true;
    }
    self.headerBytes_ += size;
    return self.headerBytes_ <= maximumHeaderBytes ? size : 0;
}

std::size_t CurlURLSession::Transfer::onBody(
    char* data, std::size_t, std::size_t size, void* transfer) noexcept {
    auto& self = *static_cast<Transfer*>(transfer);
    if (self.request_.receiver) {
        long status = 0;
        Curl::get().easyGetinfo(self.easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        if (status == 200) {
            return self.request_.receiver({data, size}) ? size : 0;
        }
    }
    try {
        if (size <= maximumReplyBytes - self.response_.body.size()) {
            std::string& body = self.response_.body;
            if (size > body.capacity() - body.size()) {
                // What it has outgrown may hold a token.
                std::string longer;
                longer.reserve(std::max(2 * body.capacity(), body.size() + size));
                longer += body;
                tavrin::wipe(body);
                body = std::move(longer);
            }
            body.append(data, size);
            return size;
        }
    } catch (const std::bad_alloc&) {
        // Too long for this machine.
    }
    return 0;
}

CURLcode CurlURLSession::Transfer::onTLSContext(CURL*, void* context, void* transfer) noexcept {
    const OpenSSL& openSSL = OpenSSL::get();
    auto* const tls = static_cast<SSL_CTX*>(context);
    X509_STORE* const store = openSSL.sslCtxGetCertStore(tls);
    for (const Certificate& certificate : static_cast<Transfer*>(transfer)->extraCertificates_) {
        if (openSSL.x509StoreAddCert(store, certificate.get()) != 1) {
            return CURLE_SSL_CACERT_BADFILE;
        }
    }
    if (openSSL.sslCtxSetExData(tls, transferIndex(), transfer) != 1) {
        return CURLE_OUT_OF_MEMORY;
    }
    openSSL.sslCtxSetInfoCallback(tls, onTLSEvent);
    return CURLE_OK;
}

void CurlURLSession::Transfer::onTLSEvent(const SSL* session, int where, int value) noexcept {
    if (where == SSL_CB_READ_ALERT && (value & 0xFF) == SSL_AD_CLOSE_NOTIFY) {
        const OpenSSL& openSSL = OpenSSL::get();
        void* const transfer =
            openSSL.sslCtxGetExData(openSSL.sslGetSSLCtx(session), transferIndex());
        static_cast<Transfer*>(transfer)->hasFarewell_ = true;
    }
}

CurlURLSession::Worker::Worker(PendingExchanges& pending)
    : pending_(pending), multi_(Curl::get().multiInit()) {
    if (!multi_) {
        throw std::bad_alloc();
    }
    // The thread inherits the mask: signals are for the others.
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    thread_ = std::thread([this] { run(); });
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
}

CurlURLSession::Worker::~Worker() {
    {
        const std::lock_guard lock(mutex_);
        isStopping_ = true;
    }
    Curl::get().multiWakeup(multi_.get());
    thread_.join();
}

void CurlURLSession::Worker::start(std::unique_ptr<Transfer> transfer) {
    {
        const std::lock_guard lock(mutex_);
        started_.push_back(std::move(transfer));
    }
    Curl::get().multiWakeup(multi_.get());
}

void CurlURLSession::Worker::cancel(std::uint64_t exchange) {
    {
        const std::lock_guard lock(mutex_);
        cancelled_.push_back(exchange);
    }
    Curl::get().multiWakeup(multi_.get());
}

void CurlURLSession::Worker::run() {
    while (takeOrders()) {
        int running = 0;
        Curl::get().multiPerform(multi_.get(), &running);
        int remaining = 0;
        while (const CURLMsg* message = Curl::get().multiInfoRead(multi_.get(), &remaining)) {
            if (message->msg == CURLMSG_DONE) {
                finish(message->easy_handle, message->data.result);
            }
        }
        Curl::get().multiPoll(multi_.get(), nullptr, 0, INT_MAX, nullptr);
    }
    for (const auto& [exchange, transfer] : transfers_) {
        Curl::get().multiRemoveHandle(multi_.get(), transfer->easy());
    }
    transfers_.clear();
}

bool CurlURLSession::Worker::takeOrders() {
    std::vector<std::unique_ptr<Transfer>> started;
    std::vector<std::uint64_t> cancelled;
    {
        const std::lock_guard lock(mutex_);
        if (isStopping_) {
            return false;
        }
        started.swap(started_);
        cancelled.swap(cancelled_);
    }
    for (std::unique_ptr<Transfer>& transfer : started) {
        if (Curl::get().multiAddHandle(multi_.get(), transfer->easy()) == CURLM_OK) {
            transfers_.emplace(transfer->exchange(), std::move(transfer));
        } else {
            pending_.finish(transfer->exchange(), urlError(URLErrorCode::Unknown));
        }
    }
    for (const std::uint64_t exchange : cancelled) {
        if (const auto found = transfers_.extract(exchange); !found.empty()) {
            Curl::get().multiRemoveHandle(multi_.get(), found.mapped()->easy());
        }
    }
    return true;
}

void CurlURLSession::Worker::finish(CURL* easy, CURLcode code) {
    Transfer* transfer = nullptr;
    Curl::get().easyGetinfo(easy, CURLINFO_PRIVATE, &transfer);
    // The message does not outlive this call.
    Curl::get().multiRemoveHandle(multi_.get(), easy);
    const auto own = transfers_.extract(transfer->exchange());
    pending_.finish(own.key(), own.mapped()->takeResult(code));
}

} // namespace orvel
