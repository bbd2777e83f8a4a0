// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/SpdlogLogStore.h"

#include <fmt/format.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <string_view>
#include <vector>

namespace orvel {

namespace {

/// spdlog has no default level. Only the order counts: the line's own text names the level.
spdlog::level::level_enum spdlogLevel(LogLevel level) {
    switch (level) {
    case LogLevel::Debug:
        return spdlog::level::debug;
    case LogLevel::Info:
        return spdlog::level::info;
    case LogLevel::Default:
        return spdlog::level::warn;
    case LogLevel::Error:
        return spdlog::level::err;
    }
    return spdlog::level::err;
}

std::string_view name(LogLevel level) {
    switch (level) {
    case LogLevel::Debug:
        return "debug";
    case LogLevel::Info:
        return "info";
    case LogLevel::Default:
        return "default";
    case LogLevel::Error:
        return "error";
    }
    return "error";
}

/// The length of the character at the front if it could break the line or steer a terminal: a
/// control character, or a line or paragraph separator. 0 for any other.
std::size_t controlLength(std::string_view text) {
    const auto first = static_cast<unsigned char>(text.front());
    if (first < 0x20 || first == 0x7F) {
        return 1;
    }
    // U+0080 to U+009F.
    if (first == 0xC2 && text.size() > 1 && static_cast<unsigned char>(text[1]) < 0xA0) {
        return 2;
    }
    if (text.starts_with("\u2028") || text.starts_with("\u2029")) {
        return 3;
    }
    return 0;
}

void appendEscaped(fmt::memory_buffer& line, std::string_view text) {
    while (!text.empty()) {
        const std::size_t control = controlLength(text);
        if (control == 0) {
            line.push_back(text.front());
            text.remove_prefix(1);
            continue;
        }
        if (text.front() == '\n') {
            line.append(std::string_view("\\n"));
        } else {
            for (const char byte : text.substr(0, control)) {
                fmt::format_to(fmt::appender(line), "\\x{:02x}", static_cast<unsigned char>(byte));
            }
        }
        text.remove_prefix(control);
    }
}

} // namespace

SpdlogLogStore::SpdlogLogStore(std::optional<LogLevel> standardErrorLevel) {
    std::vector<spdlog::sink_ptr> sinks;
    if (standardErrorLevel) {
        auto standardError = std::make_shared<spdlog::sinks::stderr_sink_mt>();
        standardError->set_level(spdlogLevel(*standardErrorLevel));
        sinks.push_back(std::move(standardError));
    }
    logger_ = std::make_unique<spdlog::logger>("", sinks.begin(), sinks.end());
    logger_->set_level(spdlog::level::trace);
    logger_->set_pattern("%Y-%m-%dT%H:%M:%S.%e%z %v");
    // A line that cannot be written is dropped; there is nowhere left to say so.
    logger_->set_error_handler([](const std::string&) {});
}

SpdlogLogStore::~SpdlogLogStore() = default;

void SpdlogLogStore::write(LogLevel level, std::string_view category, std::string_view message) {
    if (logger_->sinks().empty()) {
        return;
    }
    try {
        fmt::memory_buffer line;
        line.append(name(level));
        line.push_back(' ');
        appendEscaped(line, category);
        line.append(std::string_view(": "));
        appendEscaped(line, message);
        logger_->log(spdlogLevel(level), std::string_view(line.data(), line.size()));
    } catch (...) {
        // Out of memory: the line is dropped, writing never throws.
    }
}

} // namespace orvel
