// SPDX-License-Identifier: Apache-2.0
//
// The libraries that are loaded when they are first needed, on a system where they cannot be.
#include "tests/e2e/ScanHome.h"
#include "tests/support/Program.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace orvel {

namespace {

using test::Program;
using test::ScanHome;
using testing::HasSubstr;
using testing::IsEmpty;

class MissingLibraryTest : public testing::Test {
protected:
    MissingLibraryTest() {
        home_.makeSample({"--messages", "50", "--no-two-chat"});
        // Access to the contacts is granted.
        std::filesystem::create_directories(home_ / "config" / "orvel-agent");
        std::ofstream(home_ / "config" / "orvel-agent" / "defaults.conf")
            << "contacts.access=granted\n";
    }

    /// Runs a scan with an empty file in place of the library.
    [[nodiscard]] ScanHome::Run scanWithout(const std::string& library) const {
        std::filesystem::create_directories(home_ / "libraries");
        std::ofstream(home_ / "libraries" / library).flush();
        Program::Options command = home_.command({"--address-book", "system", "--verbose"});
        command.environment["LD_LIBRARY_PATH"] = (home_ / "libraries").string();
        Program program(command);
        return ScanHome::finish(program);
    }

    ScanHome home_;
};

} // namespace

TEST_F(MissingLibraryTest, WithoutTheAddressBookLibraryAScanUsesNoContacts) {
    const auto run = scanWithout(EBOOK_LIBRARY);
    EXPECT_EQ(run.status, 0) << run.errors;
    EXPECT_THAT(run.errors, HasSubstr("A library of the system is missing: "));
    EXPECT_THAT(run.errors, HasSubstr(EBOOK_LIBRARY));
    EXPECT_EQ(home_.service().storedCount(), home_.sendableGuids().size());
}

TEST_F(MissingLibraryTest, WithoutTheHTTPLibraryAScanReportsItAndSendsNothing) {
    const auto run = scanWithout(CURL_LIBRARY);
    EXPECT_EQ(run.status, 1);
    EXPECT_THAT(run.error(), HasSubstr("A library of the system is missing: "));
    EXPECT_THAT(run.error(), HasSubstr(CURL_LIBRARY));
    EXPECT_EQ(home_.service().requestCount(), 0U);
    EXPECT_THAT(home_.leftovers(), IsEmpty());
}

} // namespace orvel
