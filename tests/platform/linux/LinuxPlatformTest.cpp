// SPDX-License-Identifier: Apache-2.0
#include "core/Errors.h"
#include "platform/Platform.h"
#include "platform/linux/network/LibraryVariables.h"
#include "tests/support/LocalServer.h"
#include "tests/support/TemporaryDirectory.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QEventLoop>
#include <QtGlobal>

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::test {

namespace {

/// Uses a temporary bundle folder, set in the environment.
class LinuxPlatformTest : public testing::Test {
protected:
    LinuxPlatformTest() {
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString(folder_.path().string()));
        qputenv("ORVEL_AGENT_BUNDLE", QByteArray::fromStdString(folder_.path().string()));
        writeInformation("");
    }
    ~LinuxPlatformTest() override { qunsetenv("ORVEL_AGENT_BUNDLE"); }

    void writeInformation(const std::string& extraCertificates) {
        write(
            "Info.plist",
            "<plist version=\"1.0\"><dict><key>CFBundleIdentifier</key><string>app.test</string>"
            "<key>TLS_EXTRA_CA</key><string>" +
                extraCertificates + "</string></dict></plist>");
    }

    std::filesystem::path write(const std::string& name, const std::string& content) {
        std::ofstream(folder_ / name) << content;
        return folder_ / name;
    }

    /// Whether a platform with these options gets the server's reply.
    bool reaches(const LocalServer& server) {
        const Platform platform = makePlatform(options_);
        URLRequest request;
        request.url = server.url();
        std::optional<URLResult> result;
        const auto task = platform.urlSession->start(
            std::move(request), [&result](URLResult given) { result = std::move(given); });
        while (!result) {
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
        }
        return std::holds_alternative<URLResponse>(*result);
    }

    TemporaryDirectory folder_;
    PlatformOptions options_;
};

using LinuxPlatformDeathTest = LinuxPlatformTest;

void answer(LocalServer::Connection& connection) {
    connection.readRequest();
    connection.reply(200, "ok");
}

} // namespace

TEST_F(LinuxPlatformTest, HasEveryPort) {
    const Platform platform = makePlatform(options_);
    EXPECT_NE(platform.logStore, nullptr);
    EXPECT_NE(platform.clock, nullptr);
    EXPECT_NE(platform.fileCopier, nullptr);
    EXPECT_NE(platform.urlSession, nullptr);
    EXPECT_NE(platform.addressBook, nullptr);
    EXPECT_NE(platform.workspace, nullptr);
    EXPECT_NE(platform.keychain, nullptr);
    EXPECT_NE(platform.webAuthenticationSession, nullptr);
    EXPECT_EQ(platform.bundle->identifier(), "app.test");
}

TEST_F(LinuxPlatformTest, LogsUnderTheBundlesIdentifier) {
    const Platform platform = makePlatform(options_);
    platform.logStore->write(LogLevel::Debug, "test", "one");
    std::optional<LogStore::Entries> entries;
    platform.logStore->readEntries(
        tavrin::Date(), [&entries](LogStore::Entries given) { entries = std::move(given); });
    while (!entries) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    EXPECT_EQ(std::get<std::vector<LogEntry>>(*entries).at(0).subsystem, "app.test");
}

TEST_F(LinuxPlatformTest, StartsThisProgramAtLogin) {
    const Platform platform = makePlatform(options_);
    bool isDone = false;
    platform.loginItem->registerItem([&isDone](const auto& error) {
        isDone = true;
        EXPECT_FALSE(error);
    });
    while (!isDone) {
        QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents);
    }
    std::ifstream entry(folder_ / "autostart/app.test.desktop");
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").string();
    bool isFound = false;
    for (std::string line; std::getline(entry, line);) {
        isFound = isFound || line == "TryExec=" + program;
    }
    EXPECT_TRUE(isFound);
}

TEST_F(LinuxPlatformTest, KeepsTheUserDefaultsInTheConfigurationFolder) {
    makePlatform(options_).userDefaults->set("k", 1);
    EXPECT_TRUE(std::filesystem::exists(folder_ / "orvel-agent" / "defaults.conf"));
    EXPECT_EQ(storedValue<std::int64_t>(*makePlatform(options_).userDefaults, "k"), 1);
}

TEST_F(LinuxPlatformTest, KeepsUserDefaultsInAnotherFileOnRequest) {
    makeUserDefaults(folder_ / "other.conf")->set("k", 1);
    EXPECT_EQ(storedValue<std::int64_t>(*makeUserDefaults(folder_ / "other.conf"), "k"), 1);
    EXPECT_FALSE(storedValue<std::int64_t>(*makePlatform(options_).userDefaults, "k"));
}

TEST_F(LinuxPlatformTest, TrustsTheExtraCertificatesOfTheBundleAndOfTheOptions) {
    LocalServer server(answer);
    EXPECT_FALSE(reaches(server));
    const std::filesystem::path authority = write("authority.pem", server.authority());
    writeInformation(authority.string());
    EXPECT_TRUE(reaches(server));
    writeInformation("authority.pem");
    EXPECT_TRUE(reaches(server));
    writeInformation("");
    options_.extraCertificates = {authority};
    EXPECT_TRUE(reaches(server));
}

TEST_F(LinuxPlatformTest, NamesTheFileThatCannotBeRead) {
    writeInformation("missing.pem");
    EXPECT_THROW(makePlatform(options_), tavrin::PlatformError);
    std::filesystem::remove(folder_ / "Info.plist");
    EXPECT_THROW(makePlatform(options_), tavrin::PlatformError);
    writeInformation("");
    std::filesystem::create_directory(folder_ / "orvel-agent");
    write("orvel-agent/defaults.conf", "damaged");
    EXPECT_THROW(makePlatform(options_), tavrin::PlatformError);
}

TEST_F(LinuxPlatformDeathTest, RemovesTheVariablesThatRecordSecretsOrLoadCode) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            for (const char* name : library_variables::removed) {
                qputenv(name, "value");
            }
            for (const char* name : library_variables::kept) {
                qputenv(name, "value");
            }
            cleanEnvironment();
            const bool areRemoved =
                std::ranges::none_of(library_variables::removed, qEnvironmentVariableIsSet);
            const bool areKept =
                std::ranges::all_of(library_variables::kept, qEnvironmentVariableIsSet);
            std::_Exit(areRemoved && areKept ? 0 : 1);
        },
        testing::ExitedWithCode(0),
        "");
}

// Runs in its own process, because the change cannot be undone for later tests.
TEST_F(LinuxPlatformDeathTest, PreventsCoreDumpsOnRequest) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const bool isForbidden : {true, false}) {
        EXPECT_EXIT(
            {
                options_.forbidsCoreDumps = isForbidden;
                rlimit limit{};
                getrlimit(RLIMIT_CORE, &limit);
                limit.rlim_cur = limit.rlim_max;
                setrlimit(RLIMIT_CORE, &limit);
                const Platform platform = makePlatform(options_);
                getrlimit(RLIMIT_CORE, &limit);
                const bool isPrevented = limit.rlim_cur == 1 || prctl(PR_GET_DUMPABLE) == 0;
                std::_Exit(isPrevented == isForbidden ? 0 : 1);
            },
            testing::ExitedWithCode(0),
            "");
    }
}

TEST_F(LinuxPlatformTest, PreventsCoreDumpsInARelease) {
#ifdef NDEBUG
    constexpr bool isRelease = true;
#else
    constexpr bool isRelease = false;
#endif
    EXPECT_EQ(options_.forbidsCoreDumps, isRelease);
}

} // namespace orvel::test
