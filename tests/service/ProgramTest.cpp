// SPDX-License-Identifier: Apache-2.0
#include "core/TokenVariable.h"
#include "tests/platform/RealBundle.h"
#include "tests/service/ServiceTest.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

// Some systems' headers do not declare it.
extern "C" char** environ;

namespace orvel::test {
namespace {

using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A pipe whose reading end stays here; the writing end goes to the program.
class Pipe final {
public:
    Pipe() {
        if (pipe(ends_.data()) != 0) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        for (const int end : ends_) {
            fcntl(end, F_SETFD, FD_CLOEXEC);
        }
    }
    ~Pipe() {
        close(ends_[0]);
        closeWriteEnd();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    [[nodiscard]] int writeEnd() const { return ends_[1]; }

    void closeWriteEnd() {
        if (ends_[1] >= 0) {
            close(ends_[1]);
            ends_[1] = -1;
        }
    }

    /// The next line with its line feed, or the rest of the output.
    std::string line() {
        std::string text;
        for (char character = 0; read(ends_[0], &character, 1) == 1 && character != '\n';) {
            text += character;
        }
        return text;
    }

    std::string rest() {
        std::string text;
        std::array<char, 4096> buffer{};
        for (ssize_t count = 0; (count = read(ends_[0], buffer.data(), buffer.size())) > 0;) {
            text.append(buffer.data(), static_cast<std::size_t>(count));
        }
        return text;
    }

private:
    std::array<int, 2> ends_{-1, -1};
};

/// A running `orvel-local-service`.
class Program final {
public:
    explicit Program(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), ORVEL_LOCAL_SERVICE);
        std::vector<char*> pointers;
        for (auto& argument : arguments) {
            pointers.push_back(argument.data());
        }
        pointers.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, output.writeEnd(), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, errors.writeEnd(), STDERR_FILENO);
        const int result =
            posix_spawn(&pid_, ORVEL_LOCAL_SERVICE, &actions, nullptr, pointers.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (result != 0) {
            throw std::system_error(result, std::generic_category(), ORVEL_LOCAL_SERVICE);
        }
        output.closeWriteEnd();
        errors.closeWriteEnd();
    }
    ~Program() {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            exitStatus();
        }
    }
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;

    void signal(int number) const { kill(pid_, number); }

    /// Waits for the program to exit. -1 if a signal ended it.
    int exitStatus() {
        int status = 0;
        waitpid(pid_, &status, 0);
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    Pipe output;
    Pipe errors;

private:
    pid_t pid_ = -1;
};

class ProgramTest : public testing::Test {
protected:
    [[nodiscard]] std::vector<std::string> arguments(std::vector<std::string> more = {}) const {
        std::vector<std::string> all{
            "--exit-with-parent",
            "--store",
            (directory_ / "store.sqlite").string(),
            "--cert-dir",
            (directory_ / "certificates").string()};
        all.insert(all.end(), more.begin(), more.end());
        return all;
    }

    /// A client for the service at the next ready line.
    [[nodiscard]] Client client(Program& program) const {
        const auto line = program.output.line();
        const std::string before = "orvel-local-service ready at ";
        const auto after =
            " (certificate authority: " + (directory_ / "certificates/authority.pem").string() +
            ")";
        EXPECT_TRUE(line.starts_with(before) && line.ends_with(after)) << line;
        Client client;
        client.url = line.substr(before.size(), line.size() - before.size() - after.size());
        client.caFile = directory_ / "certificates/authority.pem";
        return client;
    }

    /// The link in the next line.
    static std::string pageLink(Program& program) {
        const auto line = program.output.line();
        const std::string before = "Open the pages with this link, which works once: ";
        EXPECT_TRUE(line.starts_with(before)) << line;
        return line.substr(std::min(before.size(), line.size()));
    }

    /// Opens the link and returns the reply's status.
    static long open(Client client, const std::string& link) {
        client.url = link;
        return client.get("").status;
    }

    [[nodiscard]] std::string storedToken() const {
        std::string token;
        std::getline(std::ifstream(directory_ / "token"), token);
        return token;
    }

    TemporaryDirectory directory_;
};

TEST_F(ProgramTest, ServesAtTheAddressOfItsReadyLine) {
    Program program(arguments({"--port", "0", "--token", "token"}));
    const auto client = this->client(program);
    EXPECT_THAT(client.url, StartsWith("https://127.0.0.1:"));

    const auto reply = client.post(ingestPath, batch({"a"}));

    EXPECT_EQ(200, reply.status) << reply.problem;
    EXPECT_EQ("POST /api/v1/context/ingest 200", program.errors.line());
}

TEST_F(ProgramTest, MakesATokenIfItGetsNone) {
    Program program(arguments({"--port", "0"}));
    auto client = this->client(program);
    static_cast<void>(pageLink(program));
    EXPECT_EQ(
        "Send records with orvel-scan --token-file " + (directory_ / "token").string(),
        program.output.line());
    EXPECT_EQ("unauthorized", client.post(digestPath, "{}").code());

    client.token = storedToken();
    EXPECT_EQ(200, client.post(digestPath, "{}").status);
}

TEST_F(ProgramTest, KeepsTheTokenThatItMade) {
    {
        Program program(arguments({"--port", "0"}));
        static_cast<void>(client(program));
    }
    const auto token = storedToken();
    EXPECT_NE("", token);

    Program program(arguments({"--port", "0"}));
    static_cast<void>(client(program));

    EXPECT_EQ(token, storedToken());
}

TEST_F(ProgramTest, TakesATokenFromTheEnvironment) {
    setenv("ORVEL_TOKEN", "from-variable", 1);
    Program program(arguments({"--port", "0"}));
    unsetenv("ORVEL_TOKEN");
    auto client = this->client(program);

    client.token = "from-variable";
    EXPECT_EQ(200, client.post(digestPath, "{}").status);
    EXPECT_FALSE(std::filesystem::exists(directory_ / "token"));
}

TEST_F(ProgramTest, PrintsALinkToItsPagesAndAnotherOnASignal) {
    Program program(arguments({"--port", "0", "--token", "token"}));
    const auto client = this->client(program);
    const auto first = pageLink(program);
    EXPECT_THAT(first, StartsWith(client.url + "/open?key=orvel-page-"));
    EXPECT_EQ(200, open(client, first));
    EXPECT_EQ(403, open(client, first));

    program.signal(SIGUSR1);

    const auto second = pageLink(program);
    EXPECT_NE(first, second);
    EXPECT_EQ(200, open(client, second));
    EXPECT_EQ("GET /open 200", program.errors.line());
}

TEST_F(ProgramTest, ItsFilesAreForThisUserOnly) {
    Program program(arguments(
        {"--port",
         "0",
         "--capture",
         (directory_ / "traffic").string(),
         "--bundle-out",
         (directory_ / "bundle").string()}));
    static_cast<void>(client(program));
    static_cast<void>(pageLink(program));

    for (const auto& entry : std::filesystem::recursive_directory_iterator(directory_.path())) {
        using std::filesystem::perms;
        const auto others = entry.status().permissions() & (perms::group_all | perms::others_all);
        EXPECT_EQ(perms::none, others) << entry.path();
    }
}

TEST_F(ProgramTest, ExitsCleanlyOnEachStopSignal) {
    for (const int signal : {SIGTERM, SIGINT, SIGHUP}) {
        Program program(arguments({"--port", "0", "--quiet", "--token", "token"}));
        static_cast<void>(client(program));
        static_cast<void>(pageLink(program));

        program.signal(signal);

        EXPECT_EQ(0, program.exitStatus()) << signal;
        EXPECT_EQ("", program.output.rest()) << signal;
        EXPECT_EQ("", program.errors.rest()) << signal;
    }
}

TEST_F(ProgramTest, AcceptsItsOptions) {
    std::ofstream(directory_ / "tokens") << "one\n\ntwo\n";
    std::ofstream(directory_ / "handles.json") << R"(["friend@example.org"])";
    Program program(arguments(
        {"--port",
         "0",
         "--token",
         "three",
         "--token-file",
         (directory_ / "tokens").string(),
         "--known-handles",
         (directory_ / "handles.json").string(),
         "--control",
         "--capture",
         (directory_ / "traffic").string()}));
    auto client = this->client(program);
    EXPECT_EQ("unauthorized", client.post(digestPath, "{}").code());
    for (const auto* token : {"one", "two", "three"}) {
        client.token = token;
        EXPECT_THAT(client.post(digestPath, "{}").body, HasSubstr(R"(["friend@example.org"])"));
    }
    EXPECT_EQ(200, client.get("/control/stats").status);
    EXPECT_LT(0U, std::filesystem::file_size(directory_ / "traffic"));
}

TEST_F(ProgramTest, AcceptsItsSignInOptions) {
    std::ofstream(directory_ / "accounts.json") << R"([{"uid":"only-one"}])";
    const auto bundle = directory_ / "deep/bundle";
    Program program(arguments(
        {"--port",
         "0",
         "--accounts",
         (directory_ / "accounts.json").string(),
         "--api-key",
         "the-key",
         "--bundle-out",
         bundle.string(),
         "--updates",
         directory_.path().string(),
         "--update-public-key",
         "the-update-key"}));
    auto client = this->client(program);
    auto browser = client;
    browser.url = pageLink(program);
    const auto opened = browser.get("").headers;
    const auto cookie = opened.substr(opened.find("__Host-orvel-"));
    client.cookie = cookie.substr(0, cookie.find(';'));

    const auto page = client.get("/link?challenge=" + std::string(43, 'a')).body;
    EXPECT_THAT(page, HasSubstr(R"(<button id="account-1" name="account" value="only-one">)"));
    EXPECT_THAT(page, Not(HasSubstr("account-2")));
    EXPECT_THAT(client.post("/identity/v1/token", "{}").body, HasSubstr("API key not valid."));
    const auto information = makeRealBundle(bundle);
    EXPECT_EQ(client.url, "https://" + information->infoString("API_HOST").value_or(""));
    EXPECT_EQ("the-key", information->infoString("FIREBASE_API_KEY"));
    EXPECT_EQ(client.url + "/updates/appcast.xml", information->infoString("SUFeedURL"));
    EXPECT_EQ("the-update-key", information->infoString("SUPublicEDKey"));
    EXPECT_EQ(200, client.get("/updates/accounts.json").status);
}

TEST_F(ProgramTest, ReportsWhyItCannotStart) {
    Program first(arguments({"--port", "0"}));
    const auto url = client(first).url;
    const auto port = url.substr(url.rfind(':') + 1);
    std::ofstream(directory_ / "empty").close();
    std::ofstream(directory_ / "object.json") << "{}";
    std::filesystem::create_symlink(directory_ / "nowhere", directory_ / "link");
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases{
        {{"--port", port}, "port " + port + ": Address already in use."},
        {{"--token-file", (directory_ / "empty").string()}, "it holds no token."},
        {{"--token-file", (directory_ / "nowhere").string()}, "it holds no token."},
        {{"--known-handles", (directory_ / "nowhere").string()}, "it cannot be read."},
        {{"--known-handles", (directory_ / "object.json").string()},
         "it is not a JSON array of strings."},
        {{"--capture", (directory_ / "no/traffic").string()}, "No such file or directory."},
        {{"--accounts", (directory_ / "nowhere").string()}, "it cannot be read."},
        {{"--accounts", (directory_ / "object.json").string()}, "it is not a JSON array."},
        {{"--capture", (directory_ / "link").string()}, "Too many levels of symbolic links."},
        {{"--port", "0", "--bundle-out", (directory_ / "empty/bundle").string()},
         "Not a directory."},
    };
    for (const auto& [options, problem] : cases) {
        Program program(arguments(options));
        ASSERT_EQ("", program.output.line());
        EXPECT_EQ(1, program.exitStatus());
        EXPECT_THAT(program.errors.rest(), HasSubstr(problem));
    }
}

TEST_F(ProgramTest, RefusesFoldersThatOthersCanWriteTo) {
    const auto shared = directory_ / "shared";
    std::filesystem::create_directory(shared);
    chmod(shared.c_str(), 01777);
    const auto own = (directory_ / "own").string();
    const std::vector<std::vector<std::string>> cases{
        {"--store", (shared / "store").string(), "--cert-dir", own},
        {"--store", own, "--cert-dir", shared.string()},
        {"--store", own, "--cert-dir", own + "-too", "--bundle-out", shared.string()},
    };
    for (auto options : cases) {
        options.insert(options.end(), {"--port", "0", "--token", "token", "--exit-with-parent"});
        Program program(options);
        EXPECT_EQ(1, program.exitStatus());
        EXPECT_THAT(
            program.errors.rest(),
            HasSubstr(shared.string() + " cannot be used: other users may change its files."));
    }
    EXPECT_TRUE(std::filesystem::is_empty(shared));
}

TEST_F(ProgramTest, RefusesInvalidOptions) {
    Program program({"--nonsense"});
    EXPECT_EQ(2, program.exitStatus());
    Program withoutUpdates({"--update-public-key", "key"});
    EXPECT_EQ(2, withoutUpdates.exitStatus());
}

TEST_F(ProgramTest, RefusesInvalidLifetimes) {
    for (const auto* lifetime : {"0", "-1", "86401", "1.5", "soon"}) {
        Program program(arguments({"--id-token-lifetime", lifetime}));
        EXPECT_EQ(2, program.exitStatus()) << lifetime;
    }
}

TEST_F(ProgramTest, PrintsItsHelp) {
    Program program({"--help"});
    EXPECT_EQ(0, program.exitStatus());
    const auto help = program.output.rest();
    EXPECT_THAT(help, HasSubstr("POST /control/faults"));
    EXPECT_THAT(help, HasSubstr(tavrin::TokenVariable::advice));
    // The help breaks lines.
    std::string onOneLine;
    std::istringstream words(help);
    for (std::string word; words >> word;) {
        onOneLine += word + ' ';
    }
    EXPECT_THAT(onOneLine, HasSubstr("a macOS application use their own Info.plist "));
}

} // namespace
} // namespace orvel::test
