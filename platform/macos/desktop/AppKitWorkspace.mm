// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/desktop/AppKitWorkspace.h"

#include "platform/macos/support/FoundationConversions.h"

#import <AppKit/AppKit.h>

#include <cerrno>
#include <filesystem>
#include <system_error>
#include <utility>

namespace orvel {

namespace {

tavrin::PlatformError failure(const std::string& doing, const tavrin::PlatformError& error) {
    return {error.domain(), error.code(), doing + ": " + error.what()};
}

NSString* settingsURL(Workspace::SettingsPane pane) {
    switch (pane) {
    case Workspace::SettingsPane::FullDiskAccess:
        break;
    case Workspace::SettingsPane::Contacts:
        return @"x-apple.systempreferences:com.apple.preference.security?Privacy_Contacts";
    }
    return @"x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles";
}

} // namespace

AppKitWorkspace::AppKitWorkspace(NSWorkspace* workspace) : workspace_(workspace) {}

void AppKitWorkspace::openURL(std::string url, Completion completion) {
    constexpr auto doing = "Could not open the browser";
    NSURL* const address = [NSURL URLWithString:nsString(url)];
    // Other schemes could start arbitrary programs.
    if (address == nil || ![address.scheme.lowercaseString isEqualToString:@"https"]) {
        openings_.add(std::move(completion))
            .finish(tavrin::PlatformError(
                std::string(tavrin::posixErrorDomain),
                EINVAL,
                std::string(doing) + ": the address is not a valid https one"));
        return;
    }
    open(address, doing, std::move(completion));
}

void AppKitWorkspace::openSettings(SettingsPane pane, Completion completion) {
    open(
        [NSURL URLWithString:settingsURL(pane)],
        "Could not open the System Settings",
        std::move(completion));
}

void AppKitWorkspace::revealFile(std::string path, Completion completion) {
    const auto revealing = openings_.add(std::move(completion));
    std::error_code error;
    if (!std::filesystem::exists(path, error)) {
        revealing.finish(tavrin::PlatformError::fromErrno(
            error ? error.value() : ENOENT, "Could not show the file"));
        return;
    }
    [workspace_ activateFileViewerSelectingURLs:@[ fileURL(path) ]];
    revealing.finish(std::nullopt);
}

void AppKitWorkspace::open(NSURL* url, std::string doing, Completion completion) {
    const auto opening = openings_.add(std::move(completion));
    [workspace_ openURL:url
            configuration:[NSWorkspaceOpenConfiguration configuration]
        completionHandler:^(NSRunningApplication*, NSError* error) {
          if (error == nil) {
              opening.finish(std::nullopt);
          } else {
              opening.finish(failure(doing, platformError(error)));
          }
        }];
}

} // namespace orvel
