// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/log/SpdlogLogStore.h"

#include "core/Text.h"
#include "platform/linux/log/LineOutput.h"

#include <fmt/format.h>
#include <spdlog/logger.h>
#include <spdlog/sinks/base_sink.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <mutex>
#include <utility>
#include <vector>

namespace orvel {

namespace {

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

/// Escapes control characters, which could break the line or control a terminal.
std::string escaped(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    while (!text.empty()) {
        const std::size_t control = tavrin::controlCharacterLength(text);
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

/// Instead of spdlog's sink, which waits for a terminal that the user has stopped.
class StandardErrorSink final : public spdlog::sinks::base_sink<std::mutex> {
protected:
    void sink_it_(const spdlog::details::log_msg& message) override {
        spdlog::memory_buf_t line;
        formatter_->format(message, line);
        output_.write({line.data(), line.size()});
    }
    void flush_() override {}

private:
    LineOutput output_{STDERR_FILENO};
};

std::size_t bytesOf(const LogEntry& entry) {
    return entry.category.size() + entry.message.size();
}

} // namespace

SpdlogLogStore::SpdlogLogStore(Options options)
    : subsystem_(tavrin::repairedUTF8(options.subsystem)),
      journal_(options.journal),
      standardErrorLevel_(options.standardErrorLevel) {
    if (standardErrorLevel_) {
        standardError_ =
            std::make_unique<spdlog::logger>("", std::make_shared<StandardErrorSink>());
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
        const auto now = keep(level, std::move(keptCategory), std::move(keptMessage));
        journal_.send(
            {{"MESSAGE", messageLine},
             {"PRIORITY", priority(level)},
             {"SUBSYSTEM", subsystem_},
             {"CATEGORY", categoryLine},
             {"SYSLOG_IDENTIFIER", program_invocation_short_name}});
        if (standardErrorLevel_ && level >= *standardErrorLevel_) {
            standardError_->log(
                now,
                spdlog::source_loc(),
                spdlog::level::info,
                fmt::format("{} {}: {}", name(level), categoryLine, messageLine));
        }
    } catch (...) {
        // Out of memory: drop the line, because `write` must not throw.
    }
}

void SpdlogLogStore::readEntries(tavrin::Date start, std::function<void(Entries)> completion) {
    reading_.run([this, start, completion = std::move(completion)]() mutable {
        std::vector<LogEntry> found;
        {
            const std::lock_guard lock(mutex_);
            const auto first = std::ranges::find_if(
                entries_, [start](const LogEntry& entry) { return entry.date >= start; });
            found.assign(first, entries_.end());
        }
        callbackContext_.post(
            [found = std::move(found), completion = std::move(completion)]() mutable {
                completion(std::move(found));
            });
    });
}

std::chrono::system_clock::time_point
SpdlogLogStore::keep(LogLevel level, std::string category, std::string message) {
    const std::lock_guard lock(mutex_);
    // Taken while locked, so that later lines have later dates.
    const auto now = std::chrono::system_clock::now();
    entries_.push_back(
        {std::chrono::time_point_cast<tavrin::Seconds>(now),
         level,
         subsystem_,
         std::move(category),
         std::move(message)});
    bytes_ += bytesOf(entries_.back());
    while (entries_.size() > maximumLines || bytes_ > maximumBytes) {
        bytes_ -= bytesOf(entries_.front());
        entries_.pop_front();
    }
    return now;
}

} // namespace orvel
