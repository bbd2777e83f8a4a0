// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/AutostartLoginItem.h"

#include "core/FileDescriptor.h"
#include "platform/linux/support/OwnProgram.h"
#include "tests/platform/LoginItemCalls.h"
#include "tests/support/Program.h"
#include "tests/support/TemporaryDirectory.h"
#include "tests/support/UnprivilegedUser.h"

#include <QByteArray>
#include <QtGlobal>

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace orvel::test {

namespace {

using Status = LoginItem::Status;

constexpr auto entryName = "app.test.desktop";

class AutostartLoginItemTest : public testing::Test {
protected:
    [[nodiscard]] std::unique_ptr<LoginItem> make(const std::filesystem::path& program) const {
        return std::make_unique<AutostartLoginItem>(
            AutostartLoginItem::Options{folder(), "app.test", "Test \\ Agent", program});
    }

    std::optional<tavrin::PlatformError> registerItem() {
        return resultOf(*item_, &LoginItem::registerItem);
    }
    std::optional<tavrin::PlatformError> unregisterItem() {
        return resultOf(*item_, &LoginItem::unregisterItem);
    }
    std::variant<Status, tavrin::PlatformError> statusResult() { return statusOf(*item_); }
    Status status() { return std::get<Status>(statusResult()); }

    [[nodiscard]] std::filesystem::path folder() const { return folder_ / "config/autostart"; }
    [[nodiscard]] std::filesystem::path file() const { return folder() / entryName; }

    [[nodiscard]] std::string content() const {
        std::ifstream stream(file(), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

    void write(const std::string& content) {
        std::filesystem::create_directories(folder());
        std::ofstream(file(), std::ios::binary) << content;
    }

    [[nodiscard]] std::vector<std::string> names() const {
        std::vector<std::string> names;
        for (const auto& entry : std::filesystem::directory_iterator(folder())) {
            names.push_back(entry.path().filename().string());
        }
        return names;
    }

    TemporaryDirectory folder_;
    std::unique_ptr<LoginItem> item_ = make("/usr/bin/true");
};

/// Runs the command and returns its output if it fails.
std::string complaints(const std::vector<std::string>& arguments) {
    Program program({arguments, {}});
    const int status = program.wait();
    return status == 0 ? program.output() + program.errors()
                       : std::to_string(status) + program.output() + program.errors();
}

} // namespace

TEST_F(AutostartLoginItemTest, WritesAnEntryThatStartsTheAgent) {
    registerItem();
    EXPECT_EQ(
        content(),
        "[Desktop Entry]\n"
        "Type=Application\n"
        "Name=Test \\\\ Agent\n"
        "Icon=app.test\n"
        "TryExec=/usr/bin/true\n"
        "Exec=/usr/bin/true\n"
        "StartupNotify=false\n"
        "X-GNOME-Autostart-enabled=true\n");
    EXPECT_EQ(names(), std::vector<std::string>{entryName});
}

TEST_F(AutostartLoginItemTest, TheDesktopStartsTheProgramFromAnyPath) {
    // The program reports its start through a pipe, so that the test needs no sleep.
    const std::filesystem::path pipe = folder_ / "pipe";
    ASSERT_EQ(mkfifo(pipe.c_str(), S_IRUSR | S_IWUSR), 0);
    const tavrin::FileDescriptor reading(open(pipe.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    for (const std::string_view name :
         {"plain",
          "two words",
          "\"double\" 'single'",
          "back\\slash\\\\n",
          "$HOME `true` $(true)",
          "100%f %% %",
          "<a>|b&c;d*e?f#g(h)~",
          "equals=sign",
          " blanks around ",
          "\xC3\xA9t\xC3\xA9 \xF0\x9F\x8F\x96"}) {
        const std::filesystem::path place = folder_ / name;
        std::filesystem::create_directory(place);
        const std::filesystem::path program = place / name;
        std::ofstream(program) << "#!/bin/sh\nprintf '%s' \"$0\" > '" << pipe.string() << "'\n";
        std::filesystem::permissions(program, std::filesystem::perms::owner_all);
        item_ = make(program);
        ASSERT_EQ(registerItem(), std::nullopt) << name;
        EXPECT_EQ(status(), Status::Enabled) << name;

        EXPECT_EQ(complaints({"/usr/bin/env", "desktop-file-validate", file().string()}), "")
            << name;
        EXPECT_EQ(complaints({"/usr/bin/env", "gio", "launch", file().string()}), "") << name;
        pollfd waiting{reading.get(), POLLIN, 0};
        ASSERT_EQ(poll(&waiting, 1, 10'000), 1) << name;
        std::string started(4'096, '\0');
        const ssize_t length = read(reading.get(), started.data(), started.size());
        ASSERT_GT(length, 0);
        EXPECT_EQ(started.substr(0, static_cast<std::size_t>(length)), program.string());
    }
}

TEST_F(AutostartLoginItemTest, TheEntryCannotBeExecuted) {
    registerItem();
    constexpr auto forbidden = static_cast<std::filesystem::perms>(07133);
    EXPECT_EQ(
        std::filesystem::status(file()).permissions() & forbidden, std::filesystem::perms::none);
}

TEST_F(AutostartLoginItemTest, OnlyTheUserMayWriteTheEntryAndItsFolder) {
    const mode_t former = umask(0);
    EXPECT_EQ(registerItem(), std::nullopt);
    umask(former);
    const auto modeOf = [](const std::filesystem::path& path) {
        return std::filesystem::status(path).permissions();
    };
    EXPECT_EQ(modeOf(file()), std::filesystem::perms(0600));
    EXPECT_EQ(modeOf(folder()), std::filesystem::perms(0700));
    EXPECT_EQ(modeOf(folder().parent_path()), std::filesystem::perms(0700));
}

TEST_F(AutostartLoginItemTest, ReplacesAnEntryThatOthersMayHaveWritten) {
    write("[Desktop Entry]\nTryExec=/usr/bin/env\nExec=/usr/bin/env\n");
    chmod(file().c_str(), 0646);
    EXPECT_EQ(resultOf(*item_, &LoginItem::repairItem), std::nullopt);
    EXPECT_THAT(content(), testing::HasSubstr("\nExec=/usr/bin/true\n"));
    EXPECT_EQ(std::filesystem::status(file()).permissions(), std::filesystem::perms(0600));
}

TEST_F(AutostartLoginItemTest, RejectsControlCharactersInThePath) {
    for (const char* path :
         {"/usr/bin/a\tb", "/usr/bin/a\nExec=b", "/usr/bin/a\r", "/a\x1F/b", "/a\x7F/b"}) {
        item_ = make(path);
        const std::optional<tavrin::PlatformError> error = registerItem();
        ASSERT_TRUE(error) << path;
        EXPECT_EQ(error->code(), EINVAL);
        EXPECT_STREQ(error->what(), "The program's path contains a control character.");
        EXPECT_EQ(status(), Status::NotRegistered);
    }
}

TEST_F(AutostartLoginItemTest, RepairsAnEntryOfAProgramThatHasMoved) {
    make("/earlier/orvel-agent")->registerItem([](const auto&) {});
    const std::string before = content();
    EXPECT_EQ(resultOf(*item_, &LoginItem::repairItem), std::nullopt);
    EXPECT_NE(content(), before);
    EXPECT_THAT(content(), testing::HasSubstr("\nTryExec=/usr/bin/true\nExec=/usr/bin/true\n"));
    EXPECT_EQ(status(), Status::Enabled);
}

TEST_F(AutostartLoginItemTest, RepairingKeepsWhatTheUserHasChanged) {
    for (const std::string content_ :
         {"[Desktop Entry]\nTryExec=/earlier/orvel-agent\nHidden=true\n",
          "[Desktop Entry]\nTryExec=/earlier\nX-GNOME-Autostart-enabled=false\n",
          "[Desktop Entry]\nTryExec=/usr/bin/true\nExec=nice /usr/bin/true\n",
          "[Desktop Entry]\nTryExec=/usr/bin/env\nExec=/usr/bin/env\n",
          "[Desktop Entry]\nExec=sh -c /earlier/orvel-agent\n",
          "garbage"}) {
        write(content_);
        EXPECT_EQ(resultOf(*item_, &LoginItem::repairItem), std::nullopt);
        EXPECT_EQ(content(), content_);
    }
}

TEST_F(AutostartLoginItemTest, ReplacesAnEntryThatCannotBeRead) {
    registerItem();
    const std::string written = content();
    write("[Desktop Entry]\n");
    std::filesystem::permissions(file(), std::filesystem::perms::none);
    EXPECT_EQ(registerItem(), std::nullopt);
    EXPECT_EQ(content(), written);
    EXPECT_NE(
        std::filesystem::status(file()).permissions() & std::filesystem::perms::owner_read,
        std::filesystem::perms::none);
}

TEST_F(AutostartLoginItemTest, RejectsAPathThatNoEntryCanContain) {
    item_ = make("/usr/bin/\xFF");
    const std::optional<tavrin::PlatformError> error = registerItem();
    ASSERT_TRUE(error);
    EXPECT_EQ(error->code(), EILSEQ);
    EXPECT_EQ(status(), Status::NotRegistered);
}

TEST_F(AutostartLoginItemTest, ReportsThatTheUserSwitchedItOff) {
    const std::vector<std::pair<std::string, Status>> cases = {
        {"[Desktop Entry]\nHidden=true\n", Status::Disabled},
        {"[Desktop Entry]\nHidden=false\n", Status::Enabled},
        {"[Desktop Entry]\nX-GNOME-Autostart-enabled = false\n", Status::Disabled},
        {"[Desktop Entry]\nX-GNOME-Autostart-enabled=true\n", Status::Enabled},
        {"[Other]\nHidden=true\n[Desktop Entry]\n", Status::Enabled},
        {"[Desktop Entry]\n#Hidden=true\n", Status::Enabled},
        {"", Status::Enabled},
        {"garbage", Status::Disabled},
    };
    for (const auto& [content, expected] : cases) {
        write(content);
        EXPECT_EQ(status(), expected) << content;
    }
}

TEST_F(AutostartLoginItemTest, RegisteringSwitchesItOnAgain) {
    write("[Desktop Entry]\nHidden=true\n");
    EXPECT_EQ(registerItem(), std::nullopt);
    EXPECT_EQ(status(), Status::Enabled);
}

TEST_F(AutostartLoginItemTest, ACallTakesEffectAfterTheItemsDestruction) {
    item_->registerItem([](const auto&) {});
    item_.reset();
    EXPECT_TRUE(std::filesystem::exists(file()));
}

TEST_F(AutostartLoginItemTest, ReportsAFolderThatCannotBeWritten) {
    std::filesystem::create_directories(folder());
    write("[Desktop Entry]\nHidden=true\n");
    // The parent folders must be accessible, so that only this folder fails.
    std::filesystem::permissions(folder_.path(), std::filesystem::perms::all);
    std::filesystem::permissions(folder(), std::filesystem::perms(0555));
    const std::string before = content();
    {
        const UnprivilegedUser user;
        const std::optional<tavrin::PlatformError> written = registerItem();
        ASSERT_TRUE(written);
        EXPECT_THAT(written->what(), testing::HasSubstr("Could not write "));
        EXPECT_THAT(written->what(), testing::HasSubstr("ermission denied"));
        const std::optional<tavrin::PlatformError> removed = unregisterItem();
        ASSERT_TRUE(removed);
        EXPECT_EQ(removed->code(), EACCES);
        EXPECT_THAT(removed->what(), testing::HasSubstr("Could not remove "));
    }
    std::filesystem::permissions(folder(), std::filesystem::perms(0755));
    EXPECT_EQ(content(), before);
    EXPECT_EQ(names(), std::vector<std::string>{entryName});
}

TEST_F(AutostartLoginItemTest, ReportsAFolderThatCannotBeCreated) {
    std::ofstream(folder_ / "config") << "no folder";
    const std::optional<tavrin::PlatformError> error = registerItem();
    ASSERT_TRUE(error);
    EXPECT_THAT(error->what(), testing::HasSubstr("Could not write "));
}

TEST_F(AutostartLoginItemTest, ReportsAnEntryThatCannotBeRead) {
    std::filesystem::create_directories(file());
    EXPECT_EQ(std::get<tavrin::PlatformError>(statusResult()).code(), EISDIR);
}

TEST_F(AutostartLoginItemTest, TheFolderIsInTheUsersConfiguration) {
    const QByteArray former = qgetenv("XDG_CONFIG_HOME");
    qputenv("XDG_CONFIG_HOME", "/nonexistent/config");
    const std::filesystem::path folder = AutostartLoginItem::defaultFolder();
    qputenv("XDG_CONFIG_HOME", former);
    EXPECT_EQ(folder, "/nonexistent/config/autostart");
}

TEST(OwnProgramTest, IsTheExecutableUnlessThatIsInsideAnImage) {
    const TemporaryDirectory folder;
    const std::filesystem::path image = folder / "Agent.AppImage";
    std::ofstream(image) << "image";
    std::filesystem::create_symlink(image, folder / "link");
    const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe");
    const std::filesystem::path inside = executable.parent_path();
    std::filesystem::create_directory_symlink(inside, folder / "mounted");
    struct Case {
        std::filesystem::path image;
        std::filesystem::path mount;
        std::filesystem::path expected;
    };
    const std::vector<Case> cases = {
        {"", "", executable},
        {image, inside, image},
        {image, folder / "mounted", image},
        {folder / "link", inside, image},
        {image, folder.path(), executable},
        {image, inside.string() + "-other", executable},
        {image, "", executable},
        {folder / "missing", inside, executable},
        {std::filesystem::relative(image), inside, executable},
    };
    for (const auto& [appImage, mount, expected] : cases) {
        qputenv("APPIMAGE", QByteArray::fromStdString(appImage.string()));
        qputenv("APPDIR", QByteArray::fromStdString(mount.string()));
        const ProgramTraces traces = ProgramTraces::ofThisProcess();
        EXPECT_EQ(ownProgram(traces), expected) << appImage << " in " << mount;
        EXPECT_EQ(ownAppImage(traces).value_or(executable), expected) << appImage;
    }
    qunsetenv("APPIMAGE");
    qunsetenv("APPDIR");
}

} // namespace orvel::test
