// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/CurlTransfer.h"

#include "core/Errors.h"
#include "core/OutOfMemory.h"
#include "platform/URLRequests.h"
#include "platform/linux/network/CurlErrors.h"
#include "platform/linux/support/OpenSSL.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

using tavrin::URLErrorCode;

/// The limit on all headers of a reply, including interim replies.
constexpr std::size_t maximumHeaderBytes = std::size_t{256} << 10U;

/// The index at which a TLS context stores its transfer.
int transferIndex() {
    static const int index = OpenSSL::get().cryptoGetExNewIndex(
        CRYPTO_EX_INDEX_SSL_CTX, 0, nullptr, nullptr, nullptr, nullptr);
    return index;
}

std::string_view withoutBlanks(std::string_view text) {
    constexpr std::string_view blanks = " \t\r\n";
    text.remove_prefix(std::min(text.find_first_not_of(blanks), text.size()));
    return text.substr(0, text.find_last_not_of(blanks) + 1);
}

bool equalsIgnoringCase(std::string_view left, std::string_view right) {
    const auto lower = [](char character) {
        return character >= 'A' && character <= 'Z' ? static_cast<char>(character + ('a' - 'A'))
                                                    : character;
    };
    return std::ranges::equal(left, right, {}, lower, lower);
}

/// Whether the line of a reply's head names another transfer coding than "chunked".
bool namesOtherCoding(std::string_view line) {
    const std::size_t colon = line.find(':');
    return colon != std::string_view::npos &&
           equalsIgnoringCase(withoutBlanks(line.substr(0, colon)), "Transfer-Encoding") &&
           !equalsIgnoringCase(withoutBlanks(line.substr(colon + 1)), "chunked");
}

} // namespace

CurlTransfer::CurlTransfer(
    std::uint64_t exchange,
    URLRequest request,
    const std::optional<std::filesystem::path>& systemCertificates,
    const ExtraCertificates& extraCertificates)
    : exchange_(exchange),
      request_(std::move(request)),
      extraCertificates_(extraCertificates),
      easy_(Curl::get().easyInit()) {
    if (!easy_) {
        throw tavrin::OutOfMemory();
    }
    set(CURLOPT_PRIVATE, this);
    set(CURLOPT_HEADERFUNCTION, onHeader);
    set(CURLOPT_HEADERDATA, this);
    set(CURLOPT_WRITEFUNCTION, onBody);
    set(CURLOPT_WRITEDATA, this);

    // One request on the wire: see `CurlURLSession`.
    set(CURLOPT_FRESH_CONNECT, 1L);
    set(CURLOPT_FORBID_REUSE, 1L);
    set(CURLOPT_HTTP_VERSION, long{CURL_HTTP_VERSION_1_1});
    set(CURLOPT_FOLLOWLOCATION, 0L);
    set(CURLOPT_PROTOCOLS_STR, "https");
    set(CURLOPT_HEADEROPT, long{CURLHEADER_SEPARATE});
    set(CURLOPT_SUPPRESS_CONNECT_HEADERS, 1L);

    set(CURLOPT_NOSIGNAL, 1L);
    // Otherwise cancelling a DNS lookup waits for its end and blocks all other transfers.
    set(CURLOPT_QUICK_EXIT, 1L);

    setRequest();
    setTimeout();
    setSecurity(systemCertificates);
}

CurlTransfer::~CurlTransfer() {
    wipe(request_);
    for (const curl_slist* line = headers_.get(); line != nullptr; line = line->next) {
        tavrin::wipe(line->data, std::strlen(line->data));
    }
    tavrin::wipe(response_.body);
}

void CurlTransfer::setRequest() {
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

    // Suppress the headers that libcurl adds by default.
    appendHeader("Expect:");
    appendHeader("Content-Type:");
    for (const auto& [name, value] : request_.headers) {
        // libcurl sends a header without a value only in this form.
        const std::string_view separator = value.empty() ? ";" : ": ";
        // Reserve the full size, so that no reallocation leaves a copy in freed memory.
        std::string line;
        line.reserve(name.size() + separator.size() + value.size());
        line.append(name).append(separator).append(value);
        appendHeader(line);
        tavrin::wipe(line);
    }
    set(CURLOPT_HTTPHEADER, headers_.get());
}

void CurlTransfer::setTimeout() {
    // libcurl treats 0 as no limit.
    const double milliseconds =
        std::clamp(request_.timeout.count() * 1000, 1.0, static_cast<double>(INT_MAX));
    set(CURLOPT_TIMEOUT_MS, static_cast<long>(milliseconds));
    set(CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(milliseconds));
}

void CurlTransfer::setSecurity(const std::optional<std::filesystem::path>& systemCertificates) {
    set(CURLOPT_SSLVERSION, long{CURL_SSLVERSION_TLSv1_2});
    set(CURLOPT_SSL_VERIFYPEER, 1L);
    set(CURLOPT_SSL_VERIFYHOST, 2L);
    if (systemCertificates) {
        set(CURLOPT_CAINFO, systemCertificates->c_str());
    }
    // Makes libcurl read the system's certificates once instead of for each connection, where that
    // takes most of the time. libcurl can do so only without a certificate folder.
    const char* file = nullptr;
    Curl::get().easyGetinfo(easy_.get(), CURLINFO_CAINFO, &file);
    if (file != nullptr) {
        set(CURLOPT_CAPATH, static_cast<const char*>(nullptr));
    }
    set(CURLOPT_SSL_CTX_FUNCTION, onTLSContext);
    set(CURLOPT_SSL_CTX_DATA, this);
}

void CurlTransfer::appendHeader(const std::string& line) {
    curl_slist* const longer = Curl::get().slistAppend(headers_.get(), line.c_str());
    if (longer == nullptr) {
        throw tavrin::OutOfMemory();
    }
    // `longer` is the same list, or a new one if there was none.
    static_cast<void>(headers_.release());
    headers_.reset(longer);
}

URLResult CurlTransfer::takeResult(CURLcode code) {
    if (hasOtherCoding_) {
        return urlError(URLErrorCode::CannotDecodeContentData);
    }
    if (code != CURLE_OK) {
        CurlFailure failure{code, 0, 0};
        Curl::get().easyGetinfo(easy_.get(), CURLINFO_OS_ERRNO, &failure.systemError);
        Curl::get().easyGetinfo(easy_.get(), CURLINFO_SSL_VERIFYRESULT, &failure.verifyResult);
        if (code == CURLE_OUT_OF_MEMORY) {
            return tavrin::URLError(URLErrorCode::Unknown, tavrin::OutOfMemory().what());
        }
        return urlError(urlErrorCode(failure));
    }
    long status = 0;
    Curl::get().easyGetinfo(easy_.get(), CURLINFO_RESPONSE_CODE, &status);
    response_.status = static_cast<int>(status);
    const char* redirect = nullptr;
    Curl::get().easyGetinfo(easy_.get(), CURLINFO_REDIRECT_URL, &redirect);
    response_.redirect = redirect == nullptr ? "" : redirect;
    if (!isComplete()) {
        return urlError(URLErrorCode::NetworkConnectionLost);
    }
    return std::move(response_);
}

bool CurlTransfer::isComplete() const {
    if (!hasAllHeaders_ || response_.status < 200) {
        return false;
    }
    const bool mayHaveBody =
        request_.method != "HEAD" && response_.status != 204 && response_.status != 304;
    curl_off_t length = -1;
    Curl::get().easyGetinfo(easy_.get(), CURLINFO_CONTENT_LENGTH_DOWNLOAD_T, &length);
    curl_header* chunked = nullptr;
    Curl::get().easyHeader(easy_.get(), "Transfer-Encoding", 0, CURLH_HEADER, -1, &chunked);
    // Without a length, the connection's end marks the end of the body, which is trustworthy only
    // after close_notify.
    return !mayHaveBody || length >= 0 || chunked != nullptr || hasCloseNotify_;
}

std::size_t
CurlTransfer::onHeader(char* data, std::size_t, std::size_t size, void* transfer) noexcept {
    auto& self = *static_cast<CurlTransfer*>(transfer);
    const std::string_view line(data, size);
    if (line.starts_with("HTTP/")) {
        self.hasAllHeaders_ = false;
    } else if (line == "\r\n" || line == "\n") {
        self.hasAllHeaders_ = true;
    } else if (namesOtherCoding(line)) {
        // libcurl decodes compressed layers that the request did not ask for, and looks neither at
        // the time limit nor at a cancellation before that piece of the reply is decoded. A few
        // bytes can occupy the worker, and with it every other exchange, for hours.
        self.hasOtherCoding_ = true;
        return 0;
    }
    self.headerBytes_ += size;
    return self.headerBytes_ <= maximumHeaderBytes ? size : 0;
}

std::size_t
CurlTransfer::onBody(char* data, std::size_t, std::size_t size, void* transfer) noexcept {
    auto& self = *static_cast<CurlTransfer*>(transfer);
    if (self.request_.receiver) {
        long status = 0;
        Curl::get().easyGetinfo(self.easy_.get(), CURLINFO_RESPONSE_CODE, &status);
        if (status == 200) {
            return self.request_.receiver({data, size}) ? size : 0;
        }
    }
    try {
        if (size <= URLSession::maximumReplyBytes - self.response_.body.size()) {
            std::string& body = self.response_.body;
            if (size > body.capacity() - body.size()) {
                // Grow by hand: the old buffer may contain a token and must be wiped.
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
        // Too long for this machine's memory.
    }
    return 0;
}

CURLcode CurlTransfer::onTLSContext(CURL*, void* context, void* transfer) noexcept {
    auto* const tls = static_cast<SSL_CTX*>(context);
    if (!static_cast<CurlTransfer*>(transfer)->extraCertificates_.addTo(tls)) {
        return CURLE_SSL_CACERT_BADFILE;
    }
    const OpenSSL& openSSL = OpenSSL::get();
    if (openSSL.sslCtxSetExData(tls, transferIndex(), transfer) != 1) {
        return CURLE_OUT_OF_MEMORY;
    }
    openSSL.sslCtxSetInfoCallback(tls, onTLSEvent);
    return CURLE_OK;
}

void CurlTransfer::onTLSEvent(const SSL* session, int where, int value) noexcept {
    if (where == SSL_CB_READ_ALERT && (value & 0xFF) == SSL_AD_CLOSE_NOTIFY) {
        const OpenSSL& openSSL = OpenSSL::get();
        void* const transfer =
            openSSL.sslCtxGetExData(openSSL.sslGetSSLCtx(session), transferIndex());
        static_cast<CurlTransfer*>(transfer)->hasCloseNotify_ = true;
    }
}

} // namespace orvel
