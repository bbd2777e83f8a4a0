// SPDX-License-Identifier: Apache-2.0
#include "tools/scan/PreviewSession.h"

#include "core/Errors.h"
#include "core/FileDescriptor.h"
#include "core/JSON.h"
#include "core/RegularFile.h"
#include "core/Text.h"

#include <QString>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>
#include <boost/json/value.hpp>
#include <fcntl.h>
#include <fmt/format.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <fstream>
#include <iterator>
#include <string_view>
#include <utility>

namespace orvel {

namespace {

/// The reply arrives in the next turn of the event loop, so there is no need to cancel.
class PreviewTask final : public URLSession::Task {
public:
    void cancel() override {}
};

URLResponse success(boost::json::object data) {
    boost::json::object envelope;
    envelope.emplace("ok", true);
    envelope.emplace("data", std::move(data));
    URLResponse response;
    response.status = 200;
    response.body = boost::json::serialize(envelope);
    return response;
}

/// Such as the user's terminal, or "/dev/null".
bool isDevice(const std::filesystem::path& path) {
    struct stat status {};
    return stat(path.c_str(), &status) == 0 && S_ISCHR(status.st_mode) &&
           (status.st_uid == geteuid() || status.st_uid == 0);
}

/// The file contains message text, so only this user may read it.
std::FILE* openPrivately(const std::filesystem::path& path) {
    if (isDevice(path)) {
        std::FILE* device = std::fopen(path.c_str(), "we");
        if (device == nullptr) {
            throw tavrin::PlatformError::fromErrno(errno, "Could not write " + path.string());
        }
        return device;
    }
    tavrin::FileDescriptor descriptor = tavrin::openOwnFile(path, O_WRONLY, "Could not write");
    std::FILE* file = ftruncate(descriptor.get(), 0) == 0 ? fdopen(descriptor.get(), "w") : nullptr;
    if (file == nullptr) {
        throw tavrin::PlatformError::fromErrno(errno, "Could not write " + path.string());
    }
    static_cast<void>(descriptor.release());
    return file;
}

/// The same JSON, in which every character that can control a terminal is escaped. The serializer
/// escapes those of C0 itself.
std::string escapedForTerminal(std::string_view json) {
    std::string escaped;
    escaped.reserve(json.size());
    while (!json.empty()) {
        const std::size_t length = tavrin::controlCharacterLength(json);
        const std::string_view character = json.substr(0, std::max<std::size_t>(length, 1));
        if (length == 0) {
            escaped += character;
        } else {
            const char32_t scalar = QString::fromUtf8(character).toUcs4().value(0);
            escaped += fmt::format("\\u{:04x}", static_cast<std::uint32_t>(scalar));
        }
        json.remove_prefix(character.size());
    }
    return escaped;
}

} // namespace

void PreviewSession::FileCloser::operator()(std::FILE* file) const {
    if (file != stdout) {
        std::fclose(file);
    }
}

PreviewSession::PreviewSession(
    const std::optional<std::filesystem::path>& file, std::vector<std::string> knownHandles)
    : file_(file ? openPrivately(*file) : stdout),
      isTerminal_(isatty(fileno(file_.get())) == 1),
      knownHandles_(std::move(knownHandles)) {}

std::unique_ptr<URLSession::Task>
PreviewSession::start(URLRequest request, std::function<void(URLResult)> completion) {
    QMetaObject::invokeMethod(
        &callbackContext_,
        [this, request = std::move(request), completion = std::move(completion)] {
            completion(answer(request));
        },
        Qt::QueuedConnection);
    return std::make_unique<PreviewTask>();
}

URLResult PreviewSession::answer(const URLRequest& request) {
    const std::string_view url = request.url;
    if (url.ends_with("/api/v1/context/ingest")) {
        return acceptUpload(request.body.value_or(""));
    }
    if (url.ends_with("/api/v1/context/handle-digest")) {
        boost::json::object digest;
        digest.emplace("hints", boost::json::array(knownHandles_.begin(), knownHandles_.end()));
        return success(std::move(digest));
    }
    URLResponse notFound;
    notFound.status = 404;
    return notFound;
}

URLResult PreviewSession::acceptUpload(const std::string& body) {
    const boost::json::value payload = boost::json::parse(body);
    const boost::json::array& records = payload.at("records").as_array();
    std::string lines;
    for (const boost::json::value& record : records) {
        const std::string line = boost::json::serialize(record);
        lines += isTerminal_ ? escapedForTerminal(line) : line;
        lines += '\n';
    }
    const bool isWritten =
        std::fwrite(lines.data(), 1, lines.size(), file_.get()) == lines.size() &&
        std::fflush(file_.get()) == 0;
    if (!isWritten) {
        const auto error = tavrin::PlatformError::fromErrno(errno, "Could not write the preview");
        return tavrin::URLError(tavrin::URLErrorCode::Unknown, error.what());
    }
    boost::json::object ack;
    ack.emplace("acceptedWatermark", payload.at("watermark"));
    ack.emplace("accepted", records.size());
    return success(std::move(ack));
}

std::vector<std::string> readKnownHandles(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        throw tavrin::PlatformError::fromErrno(errno, "Could not read " + file.string());
    }
    const std::string text(std::istreambuf_iterator<char>(stream), {});
    boost::system::error_code error;
    boost::json::value json = boost::json::parse(text, error);
    if (error) {
        throw tavrin::JSONDecodingError(file.string() + " is not JSON: " + error.message() + ".");
    }
    boost::json::object object;
    object.emplace("hints", std::move(json));
    return tavrin::stringsAt(object, "hints");
}

} // namespace orvel
