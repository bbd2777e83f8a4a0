// SPDX-License-Identifier: Apache-2.0
#include "tests/campaign/FailingScans.h"

#include "tests/campaign/UnfinishedSettings.h"

#include <fmt/format.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <stdexcept>
#include <vector>

namespace orvel::test {

namespace {

constexpr int messages = 40;
/// Much more than a scan takes on a busy machine.
constexpr std::chrono::minutes longestScan(2);

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

/// The library that ended the program because it got no memory. None if something else did.
const char* libraryOfAbort(const FailingScans::Run& run) {
    if (run.status == 128 + SIGTRAP && run.errors.find("GLib-ERROR") != std::string::npos) {
        return "GLib";
    }
    return nullptr;
}

bool isReportOfSanitizer(const std::string& errors) {
    return errors.find("Sanitizer") != std::string::npos ||
           errors.find("runtime error:") != std::string::npos;
}

} // namespace

FailingScans::FailingScans() {
    home_.makeSample(
        {"--messages", std::to_string(messages), "--seed", "1", "--no-two-chat", "--keep-wal"});
    const std::multiset<std::string> guids = home_.sendableGuids();
    expected_ = {guids.begin(), guids.end()};
    calls_.replaceSystemCertificates(home_.service().caFile());
}

std::vector<std::string> FailingScans::folders() const {
    return {home_.temporary().string(), home_.state().parent_path().string()};
}

CallCounts FailingScans::count() {
    reset();
    Program::Options options = home_.command();
    options.environment.merge(calls_.counting());
    Program program(options);
    const Run run = ScanHome::finish(program);
    if (run.status != 0) {
        throw std::runtime_error("a scan without a fault failed: " + run.errors);
    }
    return calls_.counts();
}

CampaignResult FailingScans::run(const CallFault& fault, const Check& check) {
    result_ = {};
    story_ = describe(fault);
    reset();
    Program::Options options = home_.command();
    options.environment.merge(calls_.with(fault));
    if (fault.kind == CallKind::Allocate) {
        // Libraries do not free everything when they get no memory.
        options.environment["ASAN_OPTIONS"] += ":detect_leaks=0";
    }
    Program program(options);
    if (!program.waitFor(longestScan)) {
        find("the scan does not end");
        return result_;
    }
    const Run run = ScanHome::finish(program);
    checkEnd(fault, run);
    if (check) {
        if (const std::string wrong = check(fault, run); !wrong.empty()) {
            find(wrong);
        }
    }

    // Without the write-ahead log of the database, a scan succeeds and leaves the newest messages
    // to the next one.
    const bool isComplete = run.status == 0 && home_.storedGuids() == expected_;
    const std::size_t before = home_.service().requestCount(ScanHome::ingestPath);
    const Run next = home_.scan();
    if (next.status != 0) {
        find(fmt::format(
            "the next scan ended with status {}: {}{}", next.status, next.error(), next.errors));
    }
    if (isComplete && home_.service().requestCount(ScanHome::ingestPath) != before) {
        find("the scan sent everything, but the next one sent something again");
    }
    const std::vector<std::string> records = home_.storedRecords();
    const std::set<std::string> stored = home_.storedGuids();
    if (stored != expected_) {
        find(fmt::format("{} of {} messages are stored", stored.size(), expected_.size()));
    }
    if (records.size() != stored.size()) {
        find(fmt::format("{} records for {} messages", records.size(), stored.size()));
    }
    checkFiles("after the next scan");
    return result_;
}

void FailingScans::reset() {
    home_.restartService();
    home_.forgetProgress();
}

void FailingScans::checkEnd(const CallFault& fault, const Run& run) {
    if (isReportOfSanitizer(run.errors)) {
        find("a sanitizer reports: " + run.errors);
    }
    if (const char* library = libraryOfAbort(run); library != nullptr && allowsAborts_) {
        ++aborts_[library];
        return;
    }
    // The status of wrong usage is that of a file in the arguments that cannot be read.
    if (run.status < 0 || run.status > 2) {
        find(fmt::format("the scan ended with status {}: {}", run.status, run.errors));
        return;
    }
    if ((run.error() + run.errors).find("bad_alloc") != std::string::npos) {
        find("no sentence for the user: " + run.error() + run.errors);
    }
    if (run.status != 0 && run.error().empty() && firstLine(run.errors).empty()) {
        find(fmt::format("the scan ended with status {} without a sentence", run.status));
    }
    // A copy that cannot be removed is removed by the next scan.
    if (fault.kind != CallKind::Remove) {
        checkFiles("after the fault");
    }
}

void FailingScans::checkFiles(const std::string& when) {
    for (const std::string& name : home_.leftovers()) {
        find(fmt::format("left behind among the temporary files {}: {}", when, name));
    }
    const std::set<std::string> known{"state.conf", "state.conf.inuse"};
    for (const auto& entry : std::filesystem::directory_iterator(home_.state().parent_path())) {
        const std::string name = entry.path().filename();
        if (name.starts_with("state") && !known.contains(name) &&
            !mayStayBehind(name, "state.conf")) {
            find(fmt::format("left behind beside the progress {}: {}", when, name));
        }
    }
}

void FailingScans::find(const std::string& what) {
    result_.findings.push_back(fmt::format("{} ({})", what, story_));
}

} // namespace orvel::test
