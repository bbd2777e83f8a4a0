// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log/SpdlogLogStore.h"

#include "core/Text.h"
#include "platform/linux/log/JournalSocket.h"
#include "platform/linux/log/RecentLines.h"

#include <QObject>
#include <QThreadPool>

#include <fmt/format.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/stdout_sinks.h>

#include <cerrno>
#include <utility>
#include <vector>

namespace orvel {

namespace {

/// spdlog has no default level. Only the order matters: the line's text names the level.
spdlog::level::level_enum spdlogLevel(LogLevel level) {
    switch (level) {
    case LogLevel::Debug:
        return spdlog::level::debug;
    case LogLevel::Info:
        return spdlog::level::info;
    case LogLevel::Default:
        return spdlog::level::warn;
    case LogLevel::Error:
    case LogLevel::Undefined:
    case LogLevel::Fault:
        break;
    }
    return spdlog::level::err;
}

/// The journal's priorities are those of syslog.
std::string_view priority(LogLevel level) {
    switch (level) {
    case LogLevel::Debug:
        return "7";
    case LogLevel::Info:
        return "6";
    case LogLevel::Default:
        return "5";
    case LogLevel::Error:
    case LogLevel::Undefined:
    case LogLevel::Fault:
        break;
    }
    return "3";
}

/// The text as well-formed UTF-8, truncated to the limit.
std::string bounded(std::string_view text) {
    if (text.size() <= SpdlogLogStore::maximumTextBytes) {
        return tavrin::repairedUTF8(text);
    }
    constexpr std::string_view ellipsis = "\u2026";
    std::size_t end = SpdlogLogStore::maximumTextBytes - ellipsis.size();
    // Do not cut within a character.
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) {
        --end;
    }
    return tavrin::repairedUTF8(text.substr(0, end)).append(ellipsis);
}

/// The length of the first character if it is a control character or a line or paragraph separator,
/// which could break the line or control a terminal; 0 otherwise.
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

std::string escaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t control = controlLength(text);
        if (control == 0) {
            result.push_back(text.front());
            text.remove_prefix(1);
            continue;
        }
        if (text.front() == '\n') {
            result.append("\\n");
        } else {
            for (const char byte : text.substr(0, control)) {
                fmt::format_to(
                    std::back_inserter(result), "\\x{:02x}", static_cast<unsigned char>(byte));
            }
        }
        text.remove_prefix(control);
    }
    return result;
}

} // namespace

SpdlogLogStore::SpdlogLogStore(Options options)
    : subsystem_(tavrin::repairedUTF8(options.subsystem)),
      recentLines_(std::make_unique<RecentLines>(subsystem_)),
      journal_(std::make_unique<JournalSocket>(options.journal)),
      callbackContext_(std::make_unique<QObject>()),
      reading_(std::make_unique<QThreadPool>()) {
    // One thread, so that results arrive in call order.
    reading_->setMaxThreadCount(1);
    if (options.standardErrorLevel) {
        standardError_ =
            std::make_unique<spdlog::logger>("", std::make_shared<spdlog::sinks::stderr_sink_mt>());
        standardError_->set_level(spdlogLevel(*options.standardErrorLevel));
        standardError_->set_pattern("%Y-%m-%dT%H:%M:%S.%e%z %v");
        // Drop lines that cannot be written: there is nowhere else to report the failure.
        standardError_->set_error_handler([](const std::string&) {});
    }
}

SpdlogLogStore::~SpdlogLogStore() = default;

void SpdlogLogStore::write(LogLevel level, std::string_view category, std::string_view message) {
    try {
        std::string keptCategory = bounded(category);
        std::string keptMessage = bounded(message);
        const std::string categoryLine = escaped(keptCategory);
        const std::string messageLine = escaped(keptMessage);
        const auto now =
            recentLines_->append(level, std::move(keptCategory), std::move(keptMessage));
        journal_->send(
            {{"MESSAGE", messageLine},
             {"PRIORITY", priority(level)},
             {"SUBSYSTEM", subsystem_},
             {"CATEGORY", categoryLine},
             {"SYSLOG_IDENTIFIER", program_invocation_short_name}});
        if (standardError_) {
            standardError_->log(
                now,
                spdlog::source_loc(),
                spdlogLevel(level),
                fmt::format("{} {}: {}", name(level), categoryLine, messageLine));
        }
    } catch (...) {
        // Out of memory: drop the line, because `write` must not throw.
    }
}

void SpdlogLogStore::readEntries(tavrin::Date start, std::function<void(Entries)> completion) {
    reading_->start([this, start, completion = std::move(completion)]() mutable {
        auto deliver = [entries = Entries(recentLines_->entriesFrom(start)),
                        completion = std::move(completion)]() mutable {
            completion(std::move(entries));
        };
        QMetaObject::invokeMethod(callbackContext_.get(), std::move(deliver), Qt::QueuedConnection);
    });
}

} // namespace orvel
