// SPDX-License-Identifier: Apache-2.0
#include "tests/e2e/ScanHome.h"

#include "core/messages/MessagesCollector.h"
#include "core/messages/SQLiteDatabase.h"

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <limits>
#include <stdexcept>

namespace orvel::test {

std::int64_t ScanHome::Run::count(std::string_view field) const {
    return summary.at(field).as_int64();
}

std::string ScanHome::Run::error() const {
    const boost::json::value* text = summary.if_contains("error");
    return text != nullptr ? std::string(text->as_string()) : std::string();
}

ScanHome::ScanHome() : database_(directory_ / "Library" / "Messages" / "chat.db") {
    std::filesystem::create_directories(database_.parent_path());
    std::filesystem::create_directories(temporary());
    std::ofstream(directory_ / "token") << token << '\n';
    restartService();
}

void ScanHome::makeSample(const std::vector<std::string>& arguments) {
    Program::Options options;
    options.arguments = {MAKE_SAMPLE_CHATDB, database_.string()};
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    Program program(options);
    if (program.wait() != 0) {
        throw std::runtime_error("make-sample-chatdb: " + program.errors());
    }
}

void ScanHome::restartService() {
    service_.reset();
    ++services_;
    store_ = directory_ / fmt::format("records-{}.sqlite", services_);
    capture_ = directory_ / fmt::format("traffic-{}", services_);
    service::LocalService::Options options;
    options.store = store_;
    options.certificates = directory_ / "certificates";
    options.tokens = {token};
    options.knownHandles = {"+14155550134"};
    options.capture = capture_;
    service_ = std::make_unique<service::LocalService>(std::move(options));
    service_->start();
}

Program::Options ScanHome::command(const std::vector<std::string>& arguments) const {
    Program::Options options;
    options.arguments = {
        ORVEL_SCAN,
        "--source",
        database_.string(),
        "--state",
        state().string(),
        "--scope",
        "allThreads",
        "--address-book",
        "none",
        "--backfill-pause",
        "0",
        "--retry-delays",
        "0,0,0"};
    const auto isGiven = [&arguments](std::string_view option) {
        return std::ranges::find(arguments, option) != arguments.end();
    };
    // The parser accepts each option once, so drop the defaults that the test overrides.
    for (auto argument = options.arguments.begin() + 1; argument != options.arguments.end();) {
        argument =
            isGiven(*argument) ? options.arguments.erase(argument, argument + 2) : argument + 2;
    }
    if (!isGiven("--preview")) {
        for (const std::string& argument :
             {std::string("--api-url"),
              service_->url(),
              std::string("--ca-file"),
              service_->caFile().string(),
              std::string("--token-file"),
              (directory_ / "token").string()}) {
            options.arguments.push_back(argument);
        }
    }
    if (!isGiven("--preview") || isGiven("--json")) {
        options.arguments.emplace_back("--json");
    }
    options.arguments.insert(options.arguments.end(), arguments.begin(), arguments.end());
    options.environment = {
        {"HOME", directory_.path().string()},
        {"TMPDIR", temporary().string()},
        {"XDG_CONFIG_HOME", (directory_ / "config").string()},
        {"DBUS_SESSION_BUS_ADDRESS", ""},
        {"https_proxy", ""},
        {"HTTPS_PROXY", ""},
        {"ALL_PROXY", ""},
        {"all_proxy", ""},
        {"ORVEL_TOKEN", ""}};
    return options;
}

ScanHome::Run ScanHome::scan(const std::vector<std::string>& arguments) const {
    Program program(command(arguments));
    return finish(program);
}

ScanHome::Run ScanHome::finish(Program& program) {
    Run run;
    run.status = program.wait();
    run.output = program.output();
    run.errors = program.errors();
    boost::system::error_code error;
    const boost::json::value summary = boost::json::parse(run.output, error);
    if (!error && summary.is_object()) {
        run.summary = summary.get_object();
    }
    return run;
}

void ScanHome::forgetProgress() const {
    std::filesystem::remove(state());
}

std::multiset<std::string> ScanHome::sendableGuids() const {
    std::multiset<std::string> guids;
    tavrin::MessagesCollector collector(
        std::make_shared<tavrin::SQLiteDatabase>(database_.string()));
    tavrin::MessagesCollector::Options options;
    options.scope = tavrin::ThreadScope::AllThreads;
    options.batchLimit = std::numeric_limits<std::int32_t>::max();
    for (const tavrin::MessageRecord& record : collector.collect(0, options).records) {
        guids.insert(record.guid);
    }
    return guids;
}

std::set<std::string> ScanHome::storedGuids() const {
    std::set<std::string> guids;
    for (const std::string& record : storedRecords()) {
        guids.emplace(boost::json::parse(record).at("guid").as_string());
    }
    return guids;
}

std::vector<std::string> ScanHome::storedRecords() const {
    std::vector<std::string> records;
    tavrin::SQLiteDatabase database(store_.string());
    database.query("SELECT json FROM records ORDER BY id", {}, [&](const auto& row) {
        records.push_back(row.string(0).value());
    });
    return records;
}

std::string ScanHome::traffic() const {
    std::ifstream file(capture_, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::string> ScanHome::leftovers() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(temporary())) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

} // namespace orvel::test
