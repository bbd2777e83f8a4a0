// SPDX-License-Identifier: Apache-2.0
#include "platform/macos/storage/FoundationBundle.h"

#include "core/Errors.h"
#include "platform/macos/support/FoundationConversions.h"

#include <cstdlib>
#include <string>

namespace orvel {

namespace {

NSDictionary<NSString*, id>* informationIn(const std::filesystem::path& folder) {
    NSError* error = nil;
    NSDictionary<NSString*, id>* const information =
        [NSDictionary dictionaryWithContentsOfURL:fileURL(folder / "Info.plist") error:&error];
    if (information == nil) {
        throw platformError(error);
    }
    return information;
}

NSDictionary<NSString*, id>* informationOf(NSBundle* bundle) {
    NSDictionary<NSString*, id>* const information = [bundle.infoDictionary copy];
    return information != nil ? information : @{};
}

NSURL* resourcesOf(NSBundle* bundle) {
    NSURL* const resources = bundle.resourceURL;
    return resources != nil ? resources : bundle.bundleURL;
}

} // namespace

std::unique_ptr<FoundationBundle> FoundationBundle::ofThisProgram() {
    const char* named = std::getenv("ORVEL_AGENT_BUNDLE");
    return ofProgram(NSBundle.mainBundle, named != nullptr ? named : "");
}

std::unique_ptr<FoundationBundle>
FoundationBundle::ofProgram(NSBundle* main, const std::filesystem::path& named) {
    if (main.bundleIdentifier != nil) {
        return std::make_unique<FoundationBundle>(main);
    }
    if (!named.empty()) {
        return std::make_unique<FoundationBundle>(named);
    }
    // Without a bundle, the main bundle is the program's folder.
    return std::make_unique<FoundationBundle>(pathOf(main.bundleURL).parent_path() / "resources");
}

FoundationBundle::FoundationBundle(const std::filesystem::path& folder)
    : information_(informationIn(folder)), resources_(fileURL(folder)) {}

FoundationBundle::FoundationBundle(NSBundle* bundle)
    : information_(informationOf(bundle)), resources_(resourcesOf(bundle)) {}

std::optional<std::string> FoundationBundle::infoString(std::string_view key) const {
    @autoreleasepool {
        const id value = information_[nsString(key)];
        if (![value isKindOfClass:[NSString class]]) {
            return std::nullopt;
        }
        return utf8(value);
    }
}

std::string FoundationBundle::identifier() const {
    return infoString("CFBundleIdentifier").value_or("");
}

std::optional<std::string>
FoundationBundle::resource(std::string_view name, std::string_view extension) const {
    @autoreleasepool {
        const std::filesystem::path file =
            resourceFolder() / (std::string(name) + "." + std::string(extension));
        // Callers treat missing and unreadable resources alike.
        NSData* const content = [NSData dataWithContentsOfURL:fileURL(file) options:0 error:nil];
        if (content == nil) {
            return std::nullopt;
        }
        return std::string(static_cast<const char*>(content.bytes), content.length);
    }
}

std::filesystem::path FoundationBundle::resourceFolder() const {
    return pathOf(resources_);
}

} // namespace orvel
