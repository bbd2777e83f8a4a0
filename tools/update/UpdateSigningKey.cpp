// SPDX-License-Identifier: Apache-2.0
#include "tools/update/UpdateSigningKey.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <optional>
#include <stdexcept>

namespace orvel {

namespace {

using tavrin::FileDescriptor;
using tavrin::PlatformError;

constexpr std::size_t keySize = 32;
constexpr std::size_t signatureSize = 64;
constexpr std::size_t hashSize = 32;

struct Release {
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
    void operator()(std::FILE* file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, Release>;

template <std::size_t size>
using Bytes = std::array<unsigned char, size>;

/// Without the terminating zero that OpenSSL appends.
constexpr std::size_t encodedSize(std::size_t size) {
    return (size + 2) / 3 * 4;
}

template <std::size_t size>
std::string encoded(const Bytes<size>& bytes) {
    Bytes<encodedSize(size) + 1> text{};
    EVP_EncodeBlock(text.data(), bytes.data(), int{size});
    return {text.begin(), text.end() - 1};
}

template <std::size_t size>
std::optional<Bytes<size>> decoded(std::string_view text) {
    Bytes<encodedSize(size) / 4 * 3> padded{};
    if (text.size() != encodedSize(size) ||
        EVP_DecodeBlock(
            padded.data(),
            reinterpret_cast<const unsigned char*>(text.data()),
            static_cast<int>(text.size())) != int{padded.size()}) {
        return std::nullopt;
    }
    Bytes<size> bytes{};
    std::copy_n(padded.begin(), size, bytes.begin());
    // Refuse other encodings of the same bytes.
    return encoded(bytes) == text ? std::optional(bytes) : std::nullopt;
}

void check(bool holds, const char* message) {
    if (!holds) {
        throw std::runtime_error(message);
    }
}

/// OpenSSL's default would ask for the password at the terminal.
int noPassword(char*, int, int, void*) {
    return -1;
}

} // namespace

UpdateSigningKey::UpdateSigningKey(evp_pkey_st* key) : key_(key, EVP_PKEY_free) {
    check(key != nullptr, "OpenSSL could not create a key.");
}

UpdateSigningKey UpdateSigningKey::generate() {
    return UpdateSigningKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
}

UpdateSigningKey UpdateSigningKey::load(const std::filesystem::path& file) {
    const File stream(std::fopen(file.c_str(), "re"));
    struct stat status {};
    if (!stream || fstat(fileno(stream.get()), &status) != 0) {
        throw PlatformError::fromErrno(errno, "Could not read " + file.string());
    }
    constexpr mode_t others = 0077;
    check(
        (status.st_mode & others) == 0,
        "The private key can be read by other users: make it mode 600.");
    EVP_PKEY* const key = PEM_read_PrivateKey(stream.get(), nullptr, noPassword, nullptr);
    ERR_clear_error();
    check(key != nullptr, "The file contains no private key without a password.");
    UpdateSigningKey loaded(key);
    check(EVP_PKEY_is_a(key, "ED25519") == 1, "The private key is not an Ed25519 key.");
    return loaded;
}

void UpdateSigningKey::save(const std::filesystem::path& file) const {
    FileDescriptor descriptor(open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!descriptor.isOpen()) {
        throw PlatformError::fromErrno(errno, "Could not create " + file.string());
    }
    const File stream(fdopen(descriptor.get(), "w"));
    static_cast<void>(descriptor.release());
    const bool isWritten =
        stream &&
        PEM_write_PrivateKey(stream.get(), key_.get(), nullptr, nullptr, 0, nullptr, nullptr) ==
            1 &&
        std::fflush(stream.get()) == 0 && fsync(fileno(stream.get())) == 0;
    if (!isWritten) {
        const int error = errno;
        unlink(file.c_str());
        throw PlatformError::fromErrno(error, "Could not write " + file.string());
    }
}

std::string UpdateSigningKey::publicKey() const {
    Bytes<keySize> bytes{};
    std::size_t size = bytes.size();
    check(
        EVP_PKEY_get_raw_public_key(key_.get(), bytes.data(), &size) == 1,
        "OpenSSL could not export the public key.");
    return encoded(bytes);
}

std::string UpdateSigningKey::sign(std::string_view content) const {
    const std::unique_ptr<EVP_MD_CTX, Release> context(EVP_MD_CTX_new());
    Bytes<signatureSize> signature{};
    std::size_t size = signature.size();
    check(
        context && EVP_DigestSignInit(context.get(), nullptr, nullptr, nullptr, key_.get()) == 1 &&
            EVP_DigestSign(
                context.get(),
                signature.data(),
                &size,
                reinterpret_cast<const unsigned char*>(content.data()),
                content.size()) == 1,
        "OpenSSL could not sign.");
    return encoded(signature);
}

std::string sha256(std::string_view content) {
    Bytes<hashSize> hash{};
    check(
        EVP_Q_digest(
            nullptr, "SHA256", nullptr, content.data(), content.size(), hash.data(), nullptr) == 1,
        "OpenSSL could not compute a hash.");
    std::string digits;
    for (const unsigned char byte : hash) {
        digits += fmt::format("{:02x}", byte);
    }
    return digits;
}

bool isSignedUpdate(
    std::string_view publicKey, std::string_view signature, std::string_view content) {
    const auto keyBytes = decoded<keySize>(publicKey);
    const auto signatureBytes = decoded<signatureSize>(signature);
    if (!keyBytes || !signatureBytes) {
        return false;
    }
    const std::shared_ptr<EVP_PKEY> key(
        EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, keyBytes->data(), keyBytes->size()),
        EVP_PKEY_free);
    const std::unique_ptr<EVP_MD_CTX, Release> context(EVP_MD_CTX_new());
    const bool isValid =
        key && context &&
        EVP_DigestVerifyInit(context.get(), nullptr, nullptr, nullptr, key.get()) == 1 &&
        EVP_DigestVerify(
            context.get(),
            signatureBytes->data(),
            signatureBytes->size(),
            reinterpret_cast<const unsigned char*>(content.data()),
            content.size()) == 1;
    ERR_clear_error();
    return isValid;
}

} // namespace orvel
