// SPDX-License-Identifier: Apache-2.0
//
// Runs on every system, because the script needs only a POSIX shell.
#include "platform/macos/desktop/RelaunchScript.h"

#include "tests/support/TemporaryDirectory.h"

#include <QByteArray>
#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

namespace orvel::test {

namespace {

/// One character of each kind that is special in a shell.
constexpr auto bundle = "/Applications/A \"B\" $HOME `id` \\ 'C' ; *.app";

/// Runs the script with a fake `open`, and with a `sleep` that ends when the test says so.
class RelaunchScriptTest : public testing::Test {
protected:
    RelaunchScriptTest() {
        writeProgram(
            "open",
            R"(printf 'open')"
            "\n"
            R"(printf ' <%s>' "$@")"
            "\n"
            "echo\n");
        writeProgram("sleep", "echo \"sleep $1\"\nread -r line\n");
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(
            QStringLiteral("PATH"),
            QString::fromStdString(folder_.path().string()) + u':' +
                environment.value(QStringLiteral("PATH")));
        shell_.setProcessEnvironment(environment);
    }
    ~RelaunchScriptTest() override {
        shell_.kill();
        shell_.waitForFinished();
    }

    void start(qint64 process) {
        shell_.start(
            QStringLiteral("/bin/sh"),
            {QStringLiteral("-c"),
             QString::fromUtf8(relaunchScript),
             QString::fromUtf8(bundle),
             QString::number(process),
             QString::fromStdString((folder_ / "open").string())});
    }

    std::string nextLine() {
        while (!shell_.canReadLine() && shell_.waitForReadyRead()) {
        }
        return shell_.readLine().trimmed().toStdString();
    }

    void endSleep() { shell_.write("\n"); }

    QProcess shell_;

private:
    void writeProgram(std::string_view name, std::string_view text) {
        const std::filesystem::path file = folder_ / name;
        std::ofstream(file) << "#!/bin/sh\n" << text;
        std::filesystem::permissions(file, std::filesystem::perms::owner_all);
    }

    TemporaryDirectory folder_;
};

const std::string opening = "open <" + std::string(bundle) + ">";

} // namespace

TEST_F(RelaunchScriptTest, OpensTheBundleASecondAfterTheEndOfTheProcess) {
    QProcess process;
    process.start(QStringLiteral("cat"), QStringList());
    ASSERT_TRUE(process.waitForStarted());
    start(process.processId());
    EXPECT_EQ(nextLine(), "sleep 0.1");
    endSleep();
    EXPECT_EQ(nextLine(), "sleep 0.1") << "did not wait for the end";
    process.closeWriteChannel();
    ASSERT_TRUE(process.waitForFinished());
    endSleep();
    EXPECT_EQ(nextLine(), "sleep 1");
    endSleep();
    EXPECT_EQ(nextLine(), opening);
    ASSERT_TRUE(shell_.waitForFinished());
    EXPECT_EQ(shell_.exitCode(), 0);
    EXPECT_EQ(shell_.readAllStandardError().toStdString(), "");
}

TEST_F(RelaunchScriptTest, DoesNotWaitForEver) {
    // The process of the test itself, which does not end.
    start(QCoreApplication::applicationPid());
    int sleeps = 0;
    std::string line = nextLine();
    for (; line == "sleep 0.1"; line = nextLine()) {
        ++sleeps;
        endSleep();
    }
    EXPECT_EQ(sleeps, 600);
    EXPECT_EQ(line, "sleep 1");
    endSleep();
    EXPECT_EQ(nextLine(), opening);
}

} // namespace orvel::test
