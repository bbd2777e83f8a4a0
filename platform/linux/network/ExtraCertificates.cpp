// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/network/ExtraCertificates.h"

#include "core/Errors.h"
#include "platform/linux/support/ReadFile.h"

#include <cerrno>
#include <cstddef>
#include <string>

namespace orvel {

namespace {

constexpr std::size_t maximumFileBytes = std::size_t{4} << 20U;

} // namespace

ExtraCertificates::ExtraCertificates(const std::vector<std::filesystem::path>& files) {
    for (const std::filesystem::path& file : files) {
        append(file);
    }
}

void ExtraCertificates::append(const std::filesystem::path& file) {
    const std::string content = readFile(file, maximumFileBytes);
    const OpenSSL& openSSL = OpenSSL::get();
    const std::unique_ptr<BIO, LazyRelease<&OpenSSL::bioFree>> source(
        openSSL.bioNewMemBuf(content.data(), static_cast<int>(content.size())));
    const std::size_t before = certificates_.size();
    while (X509* const certificate =
               openSSL.pemReadBioX509(source.get(), nullptr, nullptr, nullptr)) {
        certificates_.emplace_back(certificate);
    }
    const unsigned long reason = openSSL.errPeekLastError();
    openSSL.errClearError();
    // OpenSSL reports the end of the file as a missing start line.
    if (ERR_GET_REASON(reason) != PEM_R_NO_START_LINE || certificates_.size() == before) {
        throw tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain),
            EBADMSG,
            "Could not read the certificates in " + file.string() + ".");
    }
}

bool ExtraCertificates::addTo(SSL_CTX* context) const {
    const OpenSSL& openSSL = OpenSSL::get();
    X509_STORE* const store = openSSL.sslCtxGetCertStore(context);
    for (const auto& certificate : certificates_) {
        if (openSSL.x509StoreAddCert(store, certificate.get()) != 1) {
            return false;
        }
    }
    return true;
}

} // namespace orvel
