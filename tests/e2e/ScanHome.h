// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "service/LocalService.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"

#include <boost/json/object.hpp>

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace orvel::test {

/// A person's home with a Messages database, a place for progress and temporary files, and a
/// running service that the person has an account with.
class ScanHome final {
public:
    /// How one run of `orvel-scan` ended.
    struct Run {
        int status = -1;
        std::string output;
        std::string errors;
        /// The summary, when there is one.
        boost::json::object summary;

        [[nodiscard]] std::int64_t count(std::string_view field) const;
        [[nodiscard]] std::string error() const;
    };

    static constexpr const char* ingestPath = "/api/v1/context/ingest";
    /// Long enough that it can be searched for.
    static constexpr const char* token = "e2e-bearer-token-0123456789";

    ScanHome();

    /// Makes the database with `make-sample-chatdb`; the arguments follow the path.
    void makeSample(const std::vector<std::string>& arguments);

    /// A new service with an empty store, in place of the old one.
    void restartService();
    [[nodiscard]] service::LocalService& service() { return *service_; }

    /// The command line of a scan of everything, without pauses; later arguments override.
    [[nodiscard]] Program::Options command(const std::vector<std::string>& arguments = {}) const;
    [[nodiscard]] Run scan(const std::vector<std::string>& arguments = {}) const;
    [[nodiscard]] static Run finish(Program& program);

    void forgetProgress() const;

    /// The guids of all messages that a scan of everything sends.
    [[nodiscard]] std::multiset<std::string> sendableGuids() const;
    /// What the service keeps: the guids, and the records in the order in which they came.
    [[nodiscard]] std::set<std::string> storedGuids() const;
    [[nodiscard]] std::vector<std::string> storedRecords() const;
    /// All requests that the service saw, as they came over the wire.
    [[nodiscard]] std::string traffic() const;
    /// What is left in the folder for temporary files.
    [[nodiscard]] std::vector<std::string> leftovers() const;

    [[nodiscard]] std::filesystem::path database() const { return database_; }
    [[nodiscard]] std::filesystem::path state() const { return directory_ / "state.conf"; }
    [[nodiscard]] std::filesystem::path temporary() const { return directory_ / "temporary"; }
    [[nodiscard]] std::filesystem::path operator/(std::string_view name) const {
        return directory_ / name;
    }

private:
    TemporaryDirectory directory_;
    std::filesystem::path database_;
    std::filesystem::path store_;
    std::filesystem::path capture_;
    int services_ = 0;
    std::unique_ptr<service::LocalService> service_;
};

} // namespace orvel::test
