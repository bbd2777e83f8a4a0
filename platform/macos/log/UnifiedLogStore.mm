// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/log/UnifiedLogStore.h"

#include "core/Text.h"
#include "platform/macos/support/FoundationConversions.h"

#import <Foundation/Foundation.h>
#import <OSLog/OSLog.h>

#include <algorithm>
#include <cstdio>
#include <utility>
#include <vector>

namespace orvel {

namespace {

os_log_type_t typeOf(LogLevel level) {
    switch (level) {
    case LogLevel::Debug:
        return OS_LOG_TYPE_DEBUG;
    case LogLevel::Info:
        return OS_LOG_TYPE_INFO;
    case LogLevel::Default:
        return OS_LOG_TYPE_DEFAULT;
    case LogLevel::Error:
    case LogLevel::Undefined:
    case LogLevel::Fault:
        break;
    }
    return OS_LOG_TYPE_ERROR;
}

LogLevel levelOf(OSLogEntryLogLevel level) {
    switch (level) {
    case OSLogEntryLogLevelDebug:
        return LogLevel::Debug;
    case OSLogEntryLogLevelInfo:
        return LogLevel::Info;
    case OSLogEntryLogLevelNotice:
        return LogLevel::Default;
    case OSLogEntryLogLevelError:
        return LogLevel::Error;
    case OSLogEntryLogLevelFault:
        return LogLevel::Fault;
    case OSLogEntryLogLevelUndefined:
        break;
    }
    return LogLevel::Undefined;
}

/// Replaces NUL by its symbol (U+2400): how the system's log treats NUL is not documented.
std::string withVisibleNULs(std::string text) {
    for (auto nul = text.find('\0'); nul != std::string::npos; nul = text.find('\0', nul)) {
        text.replace(nul, 1, "\u2400");
    }
    return text;
}

/// Replaces control characters by spaces.
std::string escaped(std::string text) {
    for (char& character : text) {
        if (static_cast<unsigned char>(character) < 0x20 || character == 0x7F) {
            character = ' ';
        }
    }
    return text;
}

constexpr tavrin::Date latest{tavrin::Seconds(253'402'300'799.0)};

/// More than the rounding error of a date converted by the system.
constexpr tavrin::Seconds greatestRounding(0.001);

LogStore::Entries entriesFrom(tavrin::Date start) {
    NSError* error = nil;
    OSLogStore* const store = [OSLogStore storeWithScope:OSLogStoreCurrentProcessIdentifier
                                                   error:&error];
    if (store == nil) {
        return platformError(error);
    }
    // How the system treats dates before 1970 or after the year 9999 is not documented.
    const tavrin::Date date =
        std::clamp(start, tavrin::Date() + greatestRounding, latest) - greatestRounding;
    OSLogPosition* const position = [store positionWithDate:nsDate(date)];
    OSLogEnumerator* const found = [store entriesEnumeratorWithOptions:0
                                                              position:position
                                                             predicate:nil
                                                                 error:&error];
    if (found == nil) {
        return platformError(error);
    }
    std::vector<LogEntry> entries;
    for (OSLogEntry* const entry in found) {
        if (![entry isKindOfClass:[OSLogEntryLog class]]) {
            continue;
        }
        auto* const line = static_cast<OSLogEntryLog*>(entry);
        const tavrin::Date written = dateOf(line.date);
        // The position is slightly too early, because one at the date could skip an entry of that
        // date.
        if (entries.empty() && written < start) {
            continue;
        }
        entries.push_back(
            {written,
             levelOf(line.level),
             utf8(line.subsystem),
             utf8(line.category),
             utf8(line.composedMessage)});
    }
    return entries;
}

} // namespace

UnifiedLogStore::UnifiedLogStore(Options options)
    : options_(std::move(options)),
      reading_(dispatch_queue_create("orvel.log", DISPATCH_QUEUE_SERIAL)) {}

void UnifiedLogStore::write(LogLevel level, std::string_view category, std::string_view message) {
    try {
        @autoreleasepool {
            const std::string keptCategory = tavrin::repairedUTF8(category);
            const std::string keptMessage = tavrin::repairedUTF8(message);
            const os_log_t log = logOf(keptCategory);
            os_log_with_type(
                log, typeOf(level), "%{public}@", nsString(withVisibleNULs(keptMessage)));
            if (options_.standardErrorLevel && level >= *options_.standardErrorLevel) {
                const std::string line = std::string(name(level)) + " " + escaped(keptCategory) +
                                         ": " + escaped(keptMessage) + "\n";
                std::fwrite(line.data(), 1, line.size(), stderr);
            }
        }
    } catch (...) {
        // Out of memory: drop the line, because writing never throws.
    }
}

void UnifiedLogStore::readEntries(tavrin::Date start, std::function<void(Entries)> completion) {
    const auto call = reads_.add(std::move(completion));
    dispatch_async(reading_, ^{
      @autoreleasepool {
          call.finish(entriesFrom(start));
      }
    });
}

os_log_t UnifiedLogStore::logOf(const std::string& category) {
    const std::lock_guard lock(mutex_);
    const auto found = logs_.find(category);
    if (found != logs_.end()) {
        return found->second;
    }
    const os_log_t log = os_log_create(options_.subsystem.c_str(), category.c_str());
    logs_.emplace(category, log);
    return log;
}

} // namespace orvel
