// SPDX-License-Identifier: Apache-2.0
#include "core/Errors.h"
#include "core/Text.h"
#include "tools/update/UpdateSigningKey.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>
#include <sys/utsname.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <string_view>

namespace {

using namespace orvel;

constexpr int failed = 1;
constexpr int wrongUsage = 2;

struct Arguments {
    std::string newKeyFile;
    std::string keyFile;
    std::string updateFile;
    std::string publicKey;
    std::string signature;
    bool writesItem = false;
    std::string version;
    std::string shortVersion;
    std::string url;
    std::string notesFile;
    std::string type;
    std::string architecture;
    std::string minimumSystemVersion;
    std::string channel;
};

std::string content(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(stream), {});
    if (!stream.is_open() || stream.bad()) {
        throw tavrin::PlatformError::fromErrno(errno, "Could not read " + file);
    }
    return text;
}

std::string escaped(std::string_view text) {
    static const std::map<char, std::string_view> entities{
        {'&', "&amp;"}, {'<', "&lt;"}, {'>', "&gt;"}, {'"', "&quot;"}};
    std::string result;
    for (const char character : text) {
        const auto entity = entities.find(character);
        result += entity == entities.end() ? std::string_view(&character, 1) : entity->second;
    }
    return result;
}

/// Accepts the versions that the agent can compare. The agent's own check is stricter.
std::string versionComplaint(const std::string& text) {
    const auto isDigit = [](char character) {
        return character >= '0' && character <= '9';
    };
    const bool isVersion =
        !text.empty() && isDigit(text.front()) && std::ranges::all_of(text, [&](char character) {
            return isDigit(character) || (character >= 'a' && character <= 'z') ||
                   (character >= 'A' && character <= 'Z') ||
                   std::string_view(".-_+").find(character) != std::string_view::npos;
        });
    return isVersion ? "" : "A version begins with a digit and has letters, digits and .-_+ only.";
}

std::string urlComplaint(const std::string& text) {
    return text.starts_with("https://") ? "" : "The agent loads updates from https:// only.";
}

std::string typeOf(const std::string& file) {
    const std::string extension = std::filesystem::path(file).extension();
    return extension == ".AppImage" ? "application/vnd.appimage"
           : extension == ".deb"    ? "application/vnd.debian.binary-package"
                                    : "";
}

std::string machine() {
    utsname system{};
    uname(&system);
    return static_cast<const char*>(system.machine);
}

std::string element(std::string_view name, std::string_view text) {
    return text.empty() ? "" : fmt::format("    <{0}>{1}</{0}>\n", name, escaped(text));
}

std::string item(const Arguments& arguments, std::string_view attributes) {
    std::string notes;
    if (!arguments.notesFile.empty()) {
        notes = content(arguments.notesFile);
        if (!tavrin::isValidUTF8(notes)) {
            throw std::runtime_error("The notes are not UTF-8 text.");
        }
    }
    const std::string shown =
        arguments.shortVersion.empty() ? arguments.version : arguments.shortVersion;
    return "<item>\n" + element("title", "Version " + shown) +
           element("sparkle:version", arguments.version) +
           element("sparkle:shortVersionString", arguments.shortVersion) +
           element("sparkle:minimumSystemVersion", arguments.minimumSystemVersion) +
           element("sparkle:channel", arguments.channel) + element("description", notes) +
           fmt::format(
               "    <enclosure url=\"{}\" type=\"{}\"\n"
               "               sparkle:os=\"linux\" sparkle:arch=\"{}\"\n"
               "               {}/>\n</item>\n",
               escaped(arguments.url),
               escaped(arguments.type),
               escaped(arguments.architecture),
               attributes);
}

std::string run(Arguments& arguments) {
    if (!arguments.newKeyFile.empty()) {
        const UpdateSigningKey key = UpdateSigningKey::generate();
        key.save(arguments.newKeyFile);
        return key.publicKey() + "\n";
    }
    if (!arguments.signature.empty()) {
        if (arguments.publicKey.empty()) {
            arguments.publicKey = UpdateSigningKey::load(arguments.keyFile).publicKey();
        }
        if (!isSignedUpdate(
                arguments.publicKey, arguments.signature, content(arguments.updateFile))) {
            throw std::runtime_error("The signature is not valid.");
        }
        return "The signature is valid.\n";
    }
    const UpdateSigningKey key = UpdateSigningKey::load(arguments.keyFile);
    if (arguments.updateFile.empty()) {
        return key.publicKey() + "\n";
    }
    const std::string update = content(arguments.updateFile);
    if (update.empty()) {
        throw std::runtime_error("The update is empty.");
    }
    const std::string attributes =
        fmt::format("sparkle:edSignature=\"{}\" length=\"{}\"", key.sign(update), update.size());
    return arguments.writesItem ? item(arguments, attributes) : attributes + "\n";
}

void declareOptions(CLI::App& app, Arguments& arguments) {
    auto* update = app.add_option("UPDATE", arguments.updateFile, "The file to sign or to verify")
                       ->type_name("")
                       ->check(CLI::ExistingFile.description(""));
    auto* generate =
        app.add_option(
               "--generate-keys",
               arguments.newKeyFile,
               "Generate a key pair: write the private key to a new file, print the public key")
            ->type_name("FILE")
            ->excludes(update);
    auto* key = app.add_option(
                       "--key",
                       arguments.keyFile,
                       "The file with the private key; without UPDATE, print its public key")
                    ->type_name("FILE")
                    ->excludes(generate);
    auto* verify = app.add_option(
                          "--verify",
                          arguments.signature,
                          "Check UPDATE against this signature instead of signing it")
                       ->type_name("SIGNATURE")
                       ->needs(update);
    app.add_option(
           "--public-key", arguments.publicKey, "With --verify: the public key, instead of --key")
        ->type_name("KEY")
        ->needs(verify)
        ->excludes(key);

    auto* writesItem =
        app.add_flag("--item", arguments.writesItem, "Print a complete item for the update feed")
            ->needs(update)
            ->excludes(verify);
    app.add_option(
           "--version", arguments.version, "The version that the agent compares, such as 1.2.0")
        ->type_name("VERSION")
        ->check(CLI::Validator(versionComplaint, ""))
        ->needs(writesItem);
    app.add_option(
           "--short-version", arguments.shortVersion, "The version shown to the user, if different")
        ->type_name("TEXT")
        ->needs(writesItem);
    app.add_option("--url", arguments.url, "The download address of the update")
        ->type_name("URL")
        ->check(CLI::Validator(urlComplaint, ""))
        ->needs(writesItem);
    app.add_option("--notes", arguments.notesFile, "The release notes, as plain text")
        ->type_name("FILE")
        ->check(CLI::ExistingFile.description(""))
        ->needs(writesItem);
    app.add_option(
           "--type", arguments.type, "MIME type; by default that of an .AppImage or .deb file")
        ->type_name("TYPE")
        ->needs(writesItem);
    app.add_option(
           "--arch", arguments.architecture, "The output of uname -m; by default this machine's")
        ->type_name("ARCH")
        ->needs(writesItem);
    app.add_option(
           "--minimum-system-version",
           arguments.minimumSystemVersion,
           "The oldest C library that the update runs with, such as 2.36")
        ->type_name("VERSION")
        ->check(CLI::Validator(versionComplaint, ""))
        ->needs(writesItem);
    app.add_option("--channel", arguments.channel, "Offer the update on this channel only")
        ->type_name("NAME")
        ->needs(writesItem);
}

/// Checks combinations of options and fills in defaults. Throws `CLI::ParseError`.
void checkAndComplete(Arguments& arguments) {
    if (arguments.newKeyFile.empty() && arguments.keyFile.empty() && arguments.publicKey.empty()) {
        throw CLI::RequiredError("One of --generate-keys, --key and --public-key");
    }
    if (!arguments.writesItem) {
        return;
    }
    if (arguments.version.empty() || arguments.url.empty()) {
        throw CLI::RequiredError("With --item, --version and --url");
    }
    if (arguments.type.empty()) {
        arguments.type = typeOf(arguments.updateFile);
        if (arguments.type.empty()) {
            throw CLI::RequiredError("For other file extensions, --type");
        }
    }
    if (arguments.architecture.empty()) {
        arguments.architecture = machine();
    }
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Signs updates of the agent with Ed25519.", "sign-update");
    app.footer(
        "Keep the private key where no build and no server can read it. Set the public key in the\n"
        "build as ORVEL_UPDATE_PUBLIC_KEY.\n\n"
        "Exit status: 0 success, 1 failure or invalid signature, 2 wrong usage.");
    Arguments arguments;
    declareOptions(app, arguments);
    try {
        app.parse(argc, argv);
        checkAndComplete(arguments);
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        app.exit(error);
        return wrongUsage;
    }
    try {
        const std::string output = run(arguments);
        if (std::fputs(output.c_str(), stdout) < 0 || std::fflush(stdout) != 0) {
            throw tavrin::PlatformError::fromErrno(errno, "Could not write the result");
        }
        return 0;
    } catch (const std::exception& error) {
        fmt::print(stderr, "sign-update: {}\n", error.what());
        return failed;
    }
}
