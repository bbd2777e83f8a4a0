// SPDX-License-Identifier: Apache-2.0
#include "tests/support/UpdateFolder.h"

#include "tests/support/FileContent.h"
#include "tests/support/Program.h"

#include <stdexcept>
#include <utility>
#include <vector>

namespace orvel::test {

namespace {

/// The output of the program.
std::string outputOf(std::vector<std::string> arguments) {
    Program::Options options;
    options.arguments = std::move(arguments);
    Program program(options);
    if (program.wait() != 0) {
        throw std::runtime_error(options.arguments.front() + ": " + program.errors());
    }
    return program.output();
}

} // namespace

UpdateFolder::UpdateFolder(std::string signUpdate, std::filesystem::path folder)
    : signUpdate_(std::move(signUpdate)),
      folder_(std::move(folder)),
      keyFile_(folder_.parent_path() / "key.pem"),
      publicKey_(outputOf({signUpdate_, "--generate-keys", keyFile_})) {
    // The line feed.
    publicKey_.pop_back();
    std::filesystem::create_directory(folder_);
}

void UpdateFolder::publish(const std::string& update, const std::string& serviceURL) const {
    writeFile(appImage(), update);
    const std::string item = outputOf(
        {signUpdate_,
         "--key",
         keyFile_,
         appImage(),
         "--item",
         "--version",
         "9.0.0",
         "--url",
         serviceURL + "/updates/Agent.AppImage"});
    writeFile(
        folder_ / "appcast.xml",
        "<rss version='2.0' "
        "xmlns:sparkle='http://www.andymatuschak.org/xml-namespaces/sparkle'><channel>" +
            item + "</channel></rss>");
}

} // namespace orvel::test
