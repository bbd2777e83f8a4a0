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

/// Overwrites what may hold tokens.
void wipe(URLRequest& request);

/// One exchange: made on the main thread, then the worker's alone. libcurl keeps pointers to it.
class CurlTransfer final {
public:
    /// Borrows the certificates. `systemCertificates` is a PEM file in place of the system's own.
    CurlTransfer(
        std::uint64_t exchange,
        URLRequest request,
        const std::optional<std::filesystem::path>& systemCertificates,
        const ExtraCertificates& extraCertificates);
    /// Overwrites what was sent and received: tokens travel in all of it.
    ~CurlTransfer();
    CurlTransfer(const CurlTransfer&) = delete;
    CurlTransfer& operator=(const CurlTransfer&) = delete;

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
    void setSecurity(const std::optional<std::filesystem::path>& systemCertificates);
    void appendHeader(const std::string& line);
    /// libcurl takes some replies that were cut off for whole ones.
    [[nodiscard]] bool isWhole() const;

    static std::size_t onHeader(char* data, std::size_t, std::size_t size, void* transfer) noexcept;
    static std::size_t onBody(char* data, std::size_t, std::size_t size, void* transfer) noexcept;
    static CURLcode onTLSContext(CURL*, void* context, void* transfer) noexcept;
    static void onTLSEvent(const SSL* session, int where, int value) noexcept;

    std::uint64_t exchange_;
    URLRequest request_;
    const ExtraCertificates& extraCertificates_;
    std::unique_ptr<curl_slist, CurlRelease<&Curl::slistFreeAll>> headers_;
    URLResponse response_;
    std::size_t headerBytes_ = 0;
    bool hasAllHeaders_ = false;
    /// Whether the server has announced the end of the data over TLS.
    bool hasFarewell_ = false;
    /// Destroyed first: it refers to the others.
    std::unique_ptr<CURL, CurlRelease<&Curl::easyCleanup>> easy_;
};

} // namespace orvel
