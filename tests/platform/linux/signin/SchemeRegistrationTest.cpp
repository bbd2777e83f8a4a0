// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/signin/SchemeRegistration.h"

#include "platform/linux/support/DesktopEntry.h"
#include "tests/support/Program.h"
#include "tests/support/RunTask.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/WaitUntil.h"
#include "tests/support/fakes/ManualClock.h"
#include "tests/support/fakes/RecordingLogStore.h"

#include <QByteArray>
#include <QtGlobal>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace orvel::test {

namespace {

namespace fs = std::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

constexpr auto entryName = "app.orvel.OrvelAgent.SignIn.desktop";
constexpr auto url = "orvelagent://callback?code=a%20b+c&state=%C3%A9'#f";

std::string contentOf(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const fs::path& path, const std::string& content) {
    fs::create_directories(path.parent_path());
    std::ofstream(path) << content;
}

/// Writes a script that stores its argument in a file "url" beside it.
void writeProgram(const fs::path& path, const std::string& commands = "") {
    writeFile(
        path,
        "#!/bin/sh\n" + commands +
            "\nprintf %s \"$1\" >\"${0%/*}/new\"\nmv \"${0%/*}/new\" \"${0%/*}/url\"\n");
    fs::permissions(path, fs::perms::owner_all);
}

/// This process's threads.
std::set<fs::path> threads() {
    std::set<fs::path> result;
    for (const auto& entry : fs::directory_iterator("/proc/self/task")) {
        result.insert(entry.path());
    }
    return result;
}

/// Replaces an environment variable until destroyed.
class Variable final {
public:
    Variable(const char* name, const fs::path& value) : name_(name), before_(qgetenv(name)) {
        qputenv(name, QByteArray::fromStdString(value.string()));
    }
    ~Variable() { qputenv(name_, before_); }
    Variable(const Variable&) = delete;
    Variable& operator=(const Variable&) = delete;

private:
    const char* name_;
    QByteArray before_;
};

/// A desktop without entries and defaults.
class SchemeRegistrationTest : public testing::Test {
protected:
    SchemeRegistrationTest() {
        writeProgram(program());
        fs::create_directories(configuration());
    }

    [[nodiscard]] fs::path program() const { return folder_ / "agent" / "orvel-agent-callback"; }
    [[nodiscard]] fs::path configuration() const { return folder_ / "configuration"; }
    [[nodiscard]] fs::path usersEntry() const {
        return folder_ / "data" / "applications" / entryName;
    }
    [[nodiscard]] fs::path installedEntry() const {
        return folder_ / "system" / "applications" / entryName;
    }

    void start() {
        registration_->ensure([this] { ++ends_; });
        EXPECT_EQ(ends_, 0) << "called back before the call returned";
    }
    void ensure() {
        start();
        EXPECT_TRUE(waitUntil([this] { return ends_ > 0; }));
        processEvents();
        EXPECT_EQ(ends_, 1);
        ends_ = 0;
    }
    void use(const fs::path& program) {
        registration_ = std::make_unique<SchemeRegistration>(program, clock_, log_);
    }

    static std::string run(std::vector<std::string> arguments) {
        Program program({std::move(arguments), {}});
        EXPECT_EQ(program.wait(), 0);
        return program.output() + program.errors();
    }
    static std::string handler() {
        return run({"/usr/bin/xdg-mime", "query", "default", "x-scheme-handler/orvelagent"});
    }
    /// The argument that the program gets when the browser is redirected to the URL.
    static std::string handedOver(const fs::path& program) {
        // xdg-open uses scheme handlers only with a display.
        Program opening({{"/usr/bin/xdg-open", url}, {{"DISPLAY", ":0"}, {"BROWSER", "false"}}});
        EXPECT_EQ(opening.wait(), 0);
        const fs::path noted = program.parent_path() / "url";
        EXPECT_TRUE(waitUntil([&] { return fs::exists(noted); }));
        return contentOf(noted);
    }
    /// An entry for the program with this command.
    static std::string entry(const std::string& program, const std::string& command) {
        return "[Desktop Entry]\n"
               "Type=Application\n"
               "Name=Orvel Agent\n"
               "Comment=Takes a sign-in back from the browser\n"
               "TryExec=" +
               program + "\nExec=" + command +
               " %u\n"
               "NoDisplay=true\n"
               "StartupNotify=false\n"
               "MimeType=x-scheme-handler/orvelagent;\n";
    }
    void expectFailure(const std::string& reason) {
        ASSERT_EQ(log_.lines().size(), 1U);
        EXPECT_EQ(log_.lines().front().category, "auth");
        EXPECT_THAT(
            log_.lines().front().message,
            HasSubstr("could not register the sign-in's way back: " + reason));
    }

    TemporaryDirectory folder_;
    Variable dataHome_{"XDG_DATA_HOME", folder_ / "data"};
    Variable dataFolders_{"XDG_DATA_DIRS", folder_ / "system"};
    Variable configurationHome_{"XDG_CONFIG_HOME", configuration()};
    Variable configurationFolders_{"XDG_CONFIG_DIRS", folder_ / "system"};
    ManualClock clock_;
    RecordingLogStore log_;
    std::unique_ptr<SchemeRegistration> registration_ =
        std::make_unique<SchemeRegistration>(program(), clock_, log_);
    int ends_ = 0;
};

} // namespace

TEST_F(SchemeRegistrationTest, WritesTheUsersEntryAndMakesItTheDefault) {
    ensure();
    EXPECT_EQ(contentOf(usersEntry()), entry(program().string(), program().string()));
    EXPECT_EQ(handler(), std::string(entryName) + "\n");
    EXPECT_EQ(handedOver(program()), url);
    EXPECT_THAT(log_.lines(), IsEmpty());
    EXPECT_FALSE(clock_.untilNextTimer());
}

TEST_F(SchemeRegistrationTest, TheEntriesAreValid) {
    ensure();
    EXPECT_EQ(run({"/usr/bin/desktop-file-validate", usersEntry().string()}), "");
    EXPECT_EQ(run({"/usr/bin/desktop-file-validate", INSTALLED_DESKTOP_ENTRY}), "");
}

TEST(InstalledDesktopEntryTest, HasTheSameCommandAsTheAgentsEntry) {
    std::ifstream commands(INSTALLED_COMMANDS);
    int count = 0;
    for (std::string program, command;
         std::getline(commands, program) && std::getline(commands, command);
         ++count) {
        EXPECT_EQ(command, desktopEntryCommand(program));
    }
    EXPECT_EQ(count, 5);
}

TEST_F(SchemeRegistrationTest, AnInstalledEntryIsEnough) {
    writeFile(installedEntry(), entry(program().string(), program().string()));
    run({"/usr/bin/update-desktop-database", installedEntry().parent_path().string()});
    ASSERT_EQ(handler(), std::string(entryName) + "\n");
    ensure();
    EXPECT_FALSE(fs::exists(usersEntry()));
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SchemeRegistrationTest, AnInstalledEntryOfAnotherProgramIsNotEnough) {
    const fs::path other = folder_ / "other" / "orvel-agent-callback";
    writeProgram(other);
    writeFile(installedEntry(), entry(other.string(), other.string()));
    run({"/usr/bin/update-desktop-database", installedEntry().parent_path().string()});
    ensure();
    EXPECT_EQ(contentOf(usersEntry()), entry(program().string(), program().string()));
    EXPECT_EQ(handedOver(program()), url);
}

TEST_F(SchemeRegistrationTest, ReplacesAnEntryWhoseProgramIsMissing) {
    ensure();
    const fs::path moved = folder_ / "moved" / "orvel-agent-callback";
    fs::create_directories(moved.parent_path());
    fs::rename(program(), moved);
    use(moved);
    ensure();
    EXPECT_EQ(contentOf(usersEntry()), entry(moved.string(), moved.string()));
    EXPECT_EQ(handedOver(moved), url);
}

TEST_F(SchemeRegistrationTest, OnlyTheUserMayWriteTheEntryAndItsFolder) {
    const mode_t former = umask(0);
    ensure();
    umask(former);
    EXPECT_EQ(fs::status(usersEntry()).permissions(), fs::perms(0600));
    EXPECT_EQ(fs::status(usersEntry().parent_path()).permissions(), fs::perms(0700));
}

TEST_F(SchemeRegistrationTest, KeepsAWorkingEntry) {
    ensure();
    const std::string changed = contentOf(usersEntry()) + "# A comment of the user\n";
    writeFile(usersEntry(), changed);
    ensure();
    EXPECT_EQ(contentOf(usersEntry()), changed);
}

TEST_F(SchemeRegistrationTest, ReplacesAnEntryOfAnotherProgram) {
    // Such as one that another user has created at the mount point of an earlier AppImage.
    const fs::path other = folder_ / ".mount_OrvelA" / "usr" / "bin" / "orvel-agent-callback";
    writeProgram(other);
    const std::string ours = program().string();
    const std::string theirs = other.string();
    ensure();
    for (const std::string& replaced :
         {entry(theirs, theirs),
          entry(ours, theirs),
          entry(theirs, ours),
          entry(ours, ours + " --option"),
          std::string("[Desktop Entry]\nType=Application\nName=x\nExec=" + ours + " %u\n"),
          std::string("garbage"),
          std::string(),
          std::string(std::size_t{100} << 10U, '#')}) {
        writeFile(usersEntry(), replaced);
        ensure();
        EXPECT_EQ(contentOf(usersEntry()), entry(ours, ours)) << replaced.substr(0, 200);
    }
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SchemeRegistrationTest, ReplacesAnEntryThatCannotBeRead) {
    if (geteuid() == 0) {
        GTEST_SKIP() << "Root can read every file.";
    }
    ensure();
    const std::string written = contentOf(usersEntry());
    fs::permissions(usersEntry(), fs::perms::none);
    ensure();
    EXPECT_EQ(contentOf(usersEntry()), written);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SchemeRegistrationTest, ReplacesAnEntryThatOtherUsersMayWrite) {
    ensure();
    fs::permissions(usersEntry(), fs::perms::others_write, fs::perm_options::add);
    ensure();
    EXPECT_EQ(fs::status(usersEntry()).permissions() & fs::perms::others_write, fs::perms::none);
}

using SchemeRegistrationAsRootTest = SchemeRegistrationTest;

TEST_F(SchemeRegistrationAsRootTest, ReplacesAnEntryThatAnotherGroupMayWrite) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "Only root can give files to another group.";
    }
    ensure();
    fs::permissions(usersEntry(), fs::perms::group_write, fs::perm_options::add);
    const std::string changed = contentOf(usersEntry()) + "# A comment of the user\n";
    writeFile(usersEntry(), changed);
    ensure();
    EXPECT_EQ(contentOf(usersEntry()), changed) << "an entry for the private group is replaced";
    constexpr gid_t otherGroup = 65534;
    ASSERT_EQ(chown(usersEntry().c_str(), 0, otherGroup), 0);
    ensure();
    EXPECT_NE(contentOf(usersEntry()), changed);
    struct stat status {};
    ASSERT_EQ(stat(usersEntry().c_str(), &status), 0);
    EXPECT_EQ(status.st_gid, getegid());
}

TEST_F(SchemeRegistrationAsRootTest, ReplacesAnEntryOfAnotherUser) {
    if (geteuid() != 0) {
        GTEST_SKIP() << "Only root can give files to another user.";
    }
    constexpr uid_t otherUser = 65534;
    ensure();
    ASSERT_EQ(chown(usersEntry().c_str(), otherUser, otherUser), 0);
    ensure();
    struct stat status {};
    ASSERT_EQ(stat(usersEntry().c_str(), &status), 0);
    EXPECT_EQ(status.st_uid, geteuid());
}

TEST(SchemeProgramTest, IsTheAppImageOrElseTheCallbackProgram) {
    const TemporaryDirectory folder;
    const fs::path image = folder / "Agent.AppImage";
    const fs::path mount = folder / ".mount_OrvelA";
    writeFile(image, "image");
    const fs::path agent = mount / "usr" / "bin" / "orvel-agent";
    writeFile(agent, "agent");
    EXPECT_EQ(SchemeRegistration::program({agent, image, mount}), image);
    EXPECT_EQ(SchemeRegistration::program({agent, "", ""}), mount / "usr/bin/orvel-agent-callback");
    EXPECT_EQ(
        SchemeRegistration::program({"/usr/bin/orvel-agent", image, mount}),
        "/usr/bin/orvel-agent-callback");
}

TEST_F(SchemeRegistrationTest, ReplacesAnotherDefaultProgram) {
    writeFile(
        folder_ / "system" / "applications" / "other.desktop",
        "[Desktop Entry]\nType=Application\nName=Other\nExec=true %u\n"
        "MimeType=x-scheme-handler/orvelagent;\n");
    writeFile(
        configuration() / "mimeapps.list",
        "[Default Applications]\nx-scheme-handler/orvelagent=other.desktop\ntext/html=x.desktop\n");
    ASSERT_EQ(handler(), "other.desktop\n");
    ensure();
    EXPECT_EQ(handler(), std::string(entryName) + "\n");
    EXPECT_THAT(contentOf(configuration() / "mimeapps.list"), HasSubstr("text/html=x.desktop\n"));
}

TEST_F(SchemeRegistrationTest, AFolderMayHaveSpecialCharacters) {
    const fs::path odd = folder_ / R"(a b "c" $d `e` \f 'g' \\h)" / "orvel-agent-callback";
    writeProgram(odd);
    use(odd);
    ensure();
    EXPECT_EQ(run({"/usr/bin/desktop-file-validate", usersEntry().string()}), "");
    run({"/usr/bin/gio", "launch", usersEntry().string(), url});
    EXPECT_TRUE(waitUntil([&] { return fs::exists(odd.parent_path() / "url"); }));
    EXPECT_EQ(contentOf(odd.parent_path() / "url"), url);
    // The entry is found again.
    const std::string changed = contentOf(usersEntry()) + "# A comment of the user\n";
    writeFile(usersEntry(), changed);
    ensure();
    EXPECT_EQ(contentOf(usersEntry()), changed);
    EXPECT_THAT(log_.lines(), IsEmpty());
}

TEST_F(SchemeRegistrationTest, LaterCallsEndWithThePendingOne) {
    start();
    start();
    EXPECT_TRUE(waitUntil([this] { return ends_ == 2; }));
}

TEST_F(SchemeRegistrationTest, AMissingProgramIsLogged) {
    use(folder_ / "missing");
    ensure();
    expectFailure((folder_ / "missing").string() + ": No such file or directory");
    EXPECT_FALSE(fs::exists(usersEntry()));
}

TEST_F(SchemeRegistrationTest, AProgramWithControlCharactersInItsPathIsLogged) {
    const fs::path odd = folder_ / "two\nlines" / "orvel-agent-callback";
    writeProgram(odd);
    use(odd);
    ensure();
    expectFailure("The program's path contains a control character.");
    EXPECT_FALSE(fs::exists(usersEntry()));
}

TEST_F(SchemeRegistrationTest, AFolderThatCannotBeWrittenIsLogged) {
    writeFile(folder_ / "data", "in the way");
    ensure();
    expectFailure("Could not write " + usersEntry().string());
}

TEST_F(SchemeRegistrationTest, ADesktopWithoutItsProgramsIsLogged) {
    const Variable path("PATH", "/nonexistent");
    ensure();
    expectFailure("xdg-mime failed");
}

TEST_F(SchemeRegistrationTest, AProgramOfTheDesktopThatFailsIsLogged) {
    writeProgram(folder_ / "programs" / "xdg-mime", "exit 1");
    const Variable path("PATH", folder_ / "programs");
    ensure();
    expectFailure("xdg-mime failed");
}

TEST_F(SchemeRegistrationTest, ADesktopThatTakesTooLongIsLogged) {
    const fs::path door = folder_ / "door";
    ASSERT_EQ(mkfifo(door.c_str(), 0600), 0);
    // Blocks until the pipe's other end is opened and closed.
    writeProgram(folder_ / "programs" / "xdg-mime", "/bin/cat '" + door.string() + "'");
    const Variable path("PATH", folder_ / "programs");
    start();
    clock_.advance(tavrin::Seconds(9));
    processEvents();
    EXPECT_EQ(ends_, 0);
    clock_.advance(tavrin::Seconds(1));
    EXPECT_EQ(ends_, 1);
    expectFailure("the desktop takes too long");
    std::ofstream(door).close();
    processEvents();
    EXPECT_EQ(ends_, 1);
}

TEST_F(SchemeRegistrationTest, ADesktopThatAnswersTooLateIsIgnored) {
    const fs::path door = folder_ / "door";
    ASSERT_EQ(mkfifo(door.c_str(), 0600), 0);
    writeProgram(folder_ / "programs" / "xdg-mime", "/bin/cat '" + door.string() + "'");
    const Variable path("PATH", folder_ / "programs");
    const std::set<fs::path> before = threads();
    const auto hasNoNewThread = [&before] {
        return std::ranges::includes(before, threads());
    };
    start();
    clock_.advance(tavrin::Seconds(10));
    ASSERT_EQ(ends_, 1);
    ASSERT_FALSE(hasNoNewThread());
    std::ofstream(door).close();
    // The thread ends with its answer, which could start another thread to write the entry.
    ASSERT_TRUE(waitUntil(hasNoNewThread));
    processEvents();
    ASSERT_TRUE(waitUntil(hasNoNewThread));
    EXPECT_FALSE(fs::exists(usersEntry()));
}

TEST_F(SchemeRegistrationTest, DestroyingItDropsTheCompletion) {
    start();
    registration_.reset();
    processEvents();
    EXPECT_EQ(ends_, 0);
    EXPECT_FALSE(clock_.untilNextTimer());
}

} // namespace orvel::test
