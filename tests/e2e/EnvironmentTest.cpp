// SPDX-License-Identifier: Apache-2.0
//
// Variables of the environment that would make a library record secrets or load code.
#include "tests/e2e/ScanHome.h"
#include "tests/support/Program.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace orvel {

namespace {

using test::Program;
using test::ScanHome;

class EnvironmentTest : public testing::Test {
protected:
    EnvironmentTest() { home_.makeSample({"--messages", "50", "--no-two-chat"}); }

    [[nodiscard]] ScanHome::Run scanWith(const std::map<std::string, std::string>& variables) {
        Program::Options command = home_.command();
        command.environment.insert(variables.begin(), variables.end());
        Program program(command);
        return ScanHome::finish(program);
    }

    ScanHome home_;
};

} // namespace

TEST_F(EnvironmentTest, TheKeysOfConnectionsAreNotRecorded) {
    const std::filesystem::path keys = home_ / "keys";
    const auto run = scanWith({{"SSLKEYLOGFILE", keys.string()}});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_GT(home_.service().requestCount(), 0U);
    EXPECT_FALSE(std::filesystem::exists(keys));
}

TEST_F(EnvironmentTest, NoLibraryOfAConfigurationIsLoaded) {
    const std::filesystem::path configuration = home_ / "openssl.cnf";
    const std::filesystem::path mark = home_ / "loaded";
    std::ofstream(configuration)
        << "openssl_conf = start\n[start]\nproviders = providers\n"
        << "[providers]\ndefault = default_provider\nmark = mark_provider\n"
        << "[default_provider]\nactivate = 1\n"
        << "[mark_provider]\nmodule = " << MARKING_MODULE << "\nactivate = 1\n";
    const auto run = scanWith(
        {{"OPENSSL_CONF", configuration.string()}, {"MARKING_MODULE_MARK", mark.string()}});
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_FALSE(std::filesystem::exists(mark));
}

} // namespace orvel
