// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/storage/PlistBundle.h"

#include "core/Errors.h"
#include "core/PropertyList.h"
#include "core/Text.h"
#include "core/WriteAccess.h"
#include "platform/linux/support/ReadFile.h"

#include <fmt/format.h>
#include <plist/plist.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

namespace orvel {

namespace {

struct FreeMemory {
    void operator()(void* memory) const { std::free(memory); }
};

/// Another user could make the agent send its messages elsewhere, also with a folder that is put
/// beside the program's own. One that can replace the program needs no such folder.
std::filesystem::path trusted(std::filesystem::path folder) {
    const std::filesystem::path file = folder / "Info.plist";
    if ((tavrin::canOthersChange(file) || tavrin::canOthersChange(folder)) &&
        !tavrin::canOthersChange(std::filesystem::read_symlink("/proc/self/exe"))) {
        throw tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain),
            EPERM,
            fmt::format(
                "{} is not used, because another user may have written it. Move the program to a "
                "folder that only you and root may write to, like all folders above it.",
                file.string()));
    }
    return folder;
}

} // namespace

std::filesystem::path PlistBundle::defaultFolder() {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread writes the environment
    const char* named = std::getenv("ORVEL_AGENT_BUNDLE");
    return folderOf(std::filesystem::read_symlink("/proc/self/exe"), named == nullptr ? "" : named);
}

std::filesystem::path
PlistBundle::folderOf(const std::filesystem::path& executable, const std::filesystem::path& named) {
    const std::filesystem::path prefix = executable.parent_path().parent_path();
    const std::filesystem::path installed = prefix / "share" / "orvel-agent";
    if (std::filesystem::exists(installed)) {
        return installed;
    }
    return named.empty() ? prefix / "resources" : named;
}

PlistBundle::Information PlistBundle::parse(std::string_view propertyList) {
    constexpr tavrin::PropertyListLimits limits{maximumFileBytes, 10'000, 16};
    const tavrin::PropertyList root = tavrin::parsePropertyList(
        {reinterpret_cast<const std::uint8_t*>(propertyList.data()), propertyList.size()}, limits);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT) {
        throw tavrin::PlatformError(
            std::string(tavrin::posixErrorDomain),
            EBADMSG,
            "The information property list is not a property list with a dictionary.");
    }
    plist_dict_iter made = nullptr;
    plist_dict_new_iter(root.get(), &made);
    const std::unique_ptr<void, FreeMemory> iterator(made);
    Information information;
    while (true) {
        char* name = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(root.get(), iterator.get(), &name, &value);
        const std::unique_ptr<char, FreeMemory> key(name);
        if (value == nullptr) {
            return information;
        }
        if (plist_get_node_type(value) == PLIST_STRING) {
            std::uint64_t length = 0;
            const char* text = plist_get_string_ptr(value, &length);
            information.insert_or_assign(
                tavrin::repairedUTF8(key.get()), tavrin::repairedUTF8({text, length}));
        }
    }
}

PlistBundle::PlistBundle(std::filesystem::path folder)
    : folder_(trusted(std::move(folder))),
      information_(parse(readFile(folder_ / "Info.plist", maximumFileBytes))) {}

std::optional<std::string> PlistBundle::infoString(std::string_view key) const {
    const auto found = information_.find(key);
    return found == information_.end() ? std::nullopt : std::optional(found->second);
}

std::string PlistBundle::identifier() const {
    return infoString("CFBundleIdentifier").value_or("");
}

std::optional<std::string>
PlistBundle::resource(std::string_view name, std::string_view extension) const {
    try {
        return readFile(
            folder_ / (std::string(name) + "." + std::string(extension)), maximumFileBytes);
    } catch (const tavrin::PlatformError&) {
        // The file is missing or unreadable.
        return std::nullopt;
    }
}

} // namespace orvel
