// SPDX-License-Identifier: Apache-2.0
#include "core/UpdateStatement.h"

#include <array>
#include <utility>

namespace tavrin {

std::string signedBytes(const UpdateStatement& statement) {
    using Field = std::pair<std::string_view, std::string_view>;
    const std::array fields = {
        Field("version", statement.version),
        Field("shortVersion", statement.shortVersion),
        Field("notes", statement.notes),
        Field("channel", statement.channel),
        Field("minimumSystemVersion", statement.minimumSystemVersion),
        Field("system", statement.system),
        Field("architecture", statement.architecture),
        Field("type", statement.type),
        Field("url", statement.url),
        Field("length", statement.length),
        Field("sha256", statement.sha256)};
    std::string bytes = "orvel-update-item-1\n";
    for (const auto& [name, value] : fields) {
        bytes.append(name).append(":");
        bytes.append(std::to_string(value.size())).append(":");
        bytes.append(value).append("\n");
    }
    return bytes;
}

} // namespace tavrin
