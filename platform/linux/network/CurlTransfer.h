// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "platform/URLSession.h"
#include "platform/linux/network/Curl.h"
#include "platform/linux/network/ExtraCertificates.h"

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>

namespace orvel {

/// One exchange. Constructed on the main thread, then used by the worker only. libcurl keeps
/// pointers to it.
class CurlTransfer final {
public:
    /// Borrows the extra certificates. `systemCertificates` is a PEM file that replaces the
    /// system's certificates.
    CurlTransfer(
        std::uint64_t exchange,
        URLRequest request,
        const std::optional<std::filesystem::path>& systemCertificates,
        const ExtraCertificates& extraCertificates);
    /// Overwrites everything sent and received, because it may contain tokens.
    ~CurlTransfer();
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

    [[nodiscard]] std::uint64_t exchange() const { return exchange_; }
    [[nodiscard]] CURL* easy() const { return easy_.get(); }

    /// Call once, when libcurl has finished.
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
    void setSecurity(const std::optional<std::filesystem::path>& systemCertificates);
    void appendHeader(const std::string& line);
    /// Detects truncated replies that libcurl reports as complete.
    [[nodiscard]] bool isComplete() const;

    static std::size_t onHeader(char* data, std::size_t, std::size_t size, void* transfer) noexcept;
    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* transfer) noexcept;
    static CURLcode onTLSContext(CURL*, void* context, void* transfer) noexcept;
    static void onTLSEvent(const SSL* session, int where, int value) noexcept;

    std::uint64_t exchange_;
    URLRequest request_;
    const ExtraCertificates& extraCertificates_;
    std::unique_ptr<curl_slist, LazyRelease<&Curl::slistFreeAll>> headers_;
    URLResponse response_;
    std::size_t headerBytes_ = 0;
    bool hasAllHeaders_ = false;
    /// Whether the reply has another transfer coding than "chunked".
    bool hasOtherCoding_ = false;
    /// Whether the server sent TLS's close_notify.
    bool hasCloseNotify_ = false;
    /// Destroyed first: refers to the other members.
    std::unique_ptr<CURL, LazyRelease<&Curl::easyCleanup>> easy_;
};

} // namespace orvel
