// SPDX-License-Identifier: Apache-2.0
#include "core/Errors.h"
#include "core/Text.h"
#include "core/UpdateStatement.h"
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
/// Of the updates that are signed here.
constexpr std::string_view targetSystem = "linux";

/// The texts of an item that are given as options.
struct Fields {
    std::string version;
    std::string shortVersion;
    std::string url;
    std::string type;
    std::string architecture;
    std::string minimumSystemVersion;
    std::string channel;
};

struct Arguments {
    std::string newKeyFile;
    std::string keyFile;
    std::string updateFile;
    std::string publicKey;
    std::string signature;
    bool writesItem = false;
    Fields item;
    std::string notesFile;
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

/// Whether an XML document can contain the characters, and an XML reader keeps them.
bool isXMLText(std::string_view text) {
    const auto isControl = [](char character) {
        return static_cast<unsigned char>(character) < 0x20 && character != '\n' &&
               character != '\t';
    };
    return tavrin::isValidUTF8(text) && std::ranges::none_of(text, isControl) &&
           text.find("\uFFFE") == std::string_view::npos &&
           text.find("\uFFFF") == std::string_view::npos;
}

/// Accepts what an XML reader returns unchanged, so that the agent sees the bytes that were signed.
std::string fieldComplaint(const std::string& text) {
    if (!isXMLText(text) || tavrin::onOneLine(text) != text || tavrin::trimmed(text) != text) {
        return "It is not one line of UTF-8 text without spaces around it.";
    }
    return text.size() > tavrin::maximumUpdateFieldBytes
               ? fmt::format("It has more than {} bytes.", tavrin::maximumUpdateFieldBytes)
               : "";
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

std::string fileAttributes(const UpdateSigningKey& key, const std::string& update) {
    return fmt::format("sparkle:edSignature=\"{}\" length=\"{}\"", key.sign(update), update.size());
}

/// The release notes as an XML reader returns them. Throws `std::runtime_error` for notes that the
/// agent would not accept.
std::string readNotes(const std::string& file) {
    if (file.empty()) {
        return "";
    }
    const std::string text = content(file);
    std::string notes;
    for (std::size_t index = 0; index < text.size(); ++index) {
        const bool isLineEnd = text[index] == '\r' && text.substr(index + 1, 1) == "\n";
        if (!isLineEnd) {
            notes += text[index];
        }
    }
    if (!isXMLText(notes)) {
        throw std::runtime_error("The notes are not UTF-8 text without control characters.");
    }
    notes = tavrin::trimmed(notes);
    if (notes.size() > tavrin::maximumUpdateNotesBytes) {
        throw std::runtime_error(
            fmt::format("The notes have more than {} bytes.", tavrin::maximumUpdateNotesBytes));
    }
    return notes;
}

std::string item(
    const Fields& fields,
    const std::string& notes,
    const std::string& update,
    const UpdateSigningKey& key) {
    const std::string hash = sha256(update);
    const std::string length = std::to_string(update.size());
    const std::string itemSignature = key.sign(tavrin::signedBytes(
        {.version = fields.version,
         .shortVersion = fields.shortVersion,
         .notes = notes,
         .channel = fields.channel,
         .minimumSystemVersion = fields.minimumSystemVersion,
         .system = targetSystem,
         .architecture = fields.architecture,
         .type = fields.type,
         .url = fields.url,
         .length = length,
         .sha256 = hash}));
    const std::string shown = fields.shortVersion.empty() ? fields.version : fields.shortVersion;
    return "<item>\n" + element("title", "Version " + shown) +
           element("sparkle:version", fields.version) +
           element("sparkle:shortVersionString", fields.shortVersion) +
           element("sparkle:minimumSystemVersion", fields.minimumSystemVersion) +
           element("sparkle:channel", fields.channel) + element("description", notes) +
           fmt::format(
               "    <enclosure url=\"{}\" type=\"{}\"\n"
               "               sparkle:os=\"{}\" sparkle:arch=\"{}\"\n"
               "               {}\n"
               "               xmlns:orvel=\"{}\"\n"
               "               orvel:sha256=\"{}\"\n"
               "               orvel:itemSignature=\"{}\"/>\n</item>\n",
               escaped(fields.url),
               escaped(fields.type),
               targetSystem,
               escaped(fields.architecture),
               fileAttributes(key, update),
               tavrin::updateNamespace,
               hash,
               itemSignature);
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
    return arguments.writesItem ? item(arguments.item, readNotes(arguments.notesFile), update, key)
                                : fileAttributes(key, update) + "\n";
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
           "--version",
           arguments.item.version,
           "The version that the agent compares, such as 1.2.0")
        ->type_name("VERSION")
        ->check(CLI::Validator(versionComplaint, ""))
        ->check(CLI::Validator(fieldComplaint, ""))
        ->needs(writesItem);
    app.add_option(
           "--short-version",
           arguments.item.shortVersion,
           "The version shown to the user, if different")
        ->type_name("TEXT")
        ->check(CLI::Validator(fieldComplaint, ""))
        ->needs(writesItem);
    app.add_option("--url", arguments.item.url, "The download address of the update")
        ->type_name("URL")
        ->check(CLI::Validator(urlComplaint, ""))
        ->check(CLI::Validator(fieldComplaint, ""))
        ->needs(writesItem);
    app.add_option("--notes", arguments.notesFile, "The release notes, as plain text")
        ->type_name("FILE")
        ->check(CLI::ExistingFile.description(""))
        ->needs(writesItem);
    app.add_option(
           "--type", arguments.item.type, "MIME type; by default that of an .AppImage or .deb file")
        ->type_name("TYPE")
        ->check(CLI::Validator(fieldComplaint, ""))
        ->needs(writesItem);
    app.add_option(
           "--arch",
           arguments.item.architecture,
           "The output of uname -m; by default this machine's")
        ->type_name("ARCH")
        ->check(CLI::Validator(fieldComplaint, ""))
        ->needs(writesItem);
    app.add_option(
           "--minimum-system-version",
           arguments.item.minimumSystemVersion,
           "The oldest C library that the update runs with, such as 2.36")
        ->type_name("VERSION")
        ->check(CLI::Validator(versionComplaint, ""))
        ->check(CLI::Validator(fieldComplaint, ""))
        ->needs(writesItem);
    app.add_option("--channel", arguments.item.channel, "Offer the update on this channel only")
        ->type_name("NAME")
        ->check(CLI::Validator(fieldComplaint, ""))
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
    if (arguments.item.version.empty() || arguments.item.url.empty()) {
        throw CLI::RequiredError("With --item, --version and --url");
    }
    if (arguments.item.type.empty()) {
        arguments.item.type = typeOf(arguments.updateFile);
        if (arguments.item.type.empty()) {
            throw CLI::RequiredError("For other file extensions, --type");
        }
    }
    if (arguments.item.architecture.empty()) {
        arguments.item.architecture = machine();
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
