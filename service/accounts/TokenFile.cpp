// SPDX-License-Identifier: Apache-2.0
#include "service/accounts/TokenFile.h"

#include "core/FileDescriptor.h"
#include "service/support/Cryptography.h"
#include "service/support/PrivateFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <optional>
#include <string_view>

namespace orvel::service {

namespace {

constexpr std::string_view prefix = "orvel-token-";

std::optional<std::string> storedToken(const std::filesystem::path& file) {
    const tavrin::FileDescriptor opened(
        open(file.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat status {};
    if (!opened.isOpen() || fstat(opened.get(), &status) != 0 || !S_ISREG(status.st_mode) ||
        status.st_uid != geteuid() || (status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        return std::nullopt;
    }
    std::array<char, 256> bytes{};
    const auto count = read(opened.get(), bytes.data(), bytes.size());
    std::string token(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    token.resize(token.find_last_not_of("\r\n") + 1);
    const bool isWhole = token.starts_with(prefix) && isSHA256(token.substr(prefix.size()));
    return isWhole ? std::optional(std::move(token)) : std::nullopt;
}

} // namespace

std::string loadOrCreateToken(const std::filesystem::path& file) {
    makePrivateDirectory(std::filesystem::absolute(file).parent_path());
    if (auto token = storedToken(file)) {
        return *token;
    }
    auto token = randomToken(prefix);
    replacePrivateFile(file, token + "\n");
    return token;
}

} // namespace orvel::service
