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

/// A home folder with a Messages database, files for the progress and temporary files, and a
/// running service with an account.
class ScanHome final {
public:
    /// The result of one run of `orvel-scan`.
    struct Run {
        int status = -1;
        std::string output;
        std::string errors;
        /// The summary, or empty if none was printed.
        boost::json::object summary;

        [[nodiscard]] std::int64_t count(std::string_view field) const;
        [[nodiscard]] std::string error() const;
    };

    static constexpr const char* ingestPath = "/api/v1/context/ingest";
    /// Long enough to search for.
    static constexpr const char* token = "e2e-bearer-token-0123456789";

    ScanHome();

    /// Runs `make-sample-chatdb` with the path of the database and the arguments.
    void makeSample(const std::vector<std::string>& arguments);

    /// Replaces the service by one with an empty store.
    void restartService();
    [[nodiscard]] service::LocalService& service() { return *service_; }

    /// The command line of a complete scan without pauses. `arguments` override its options.
    [[nodiscard]] Program::Options command(const std::vector<std::string>& arguments = {}) const;
    [[nodiscard]] Run scan(const std::vector<std::string>& arguments = {}) const;
    [[nodiscard]] static Run finish(Program& program);

    void forgetProgress() const;

    /// The guids of all messages that a complete scan sends.
    [[nodiscard]] std::multiset<std::string> sendableGuids() const;
    /// The stored guids, and the stored records in the order of their arrival.
    [[nodiscard]] std::set<std::string> storedGuids() const;
    [[nodiscard]] std::vector<std::string> storedRecords() const;
    /// All captured requests.
    [[nodiscard]] std::string traffic() const;
    /// The remaining temporary files.
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
