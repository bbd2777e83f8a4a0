// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/XdgWorkspace.h"

#include "platform/linux/DebuggerProbe.h"
#include "platform/linux/DesktopProgram.h"

#include <QObject>

#include <fmt/format.h>

#include <cerrno>
#include <string_view>
#include <utility>
#include <variant>

namespace orvel {

namespace {

constexpr tavrin::Seconds longestStart(5);

/// Only the characters that a URL may have: others are for a shell somewhere on the way.
bool isHttpsURL(std::string_view url) {
    constexpr auto characters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789"
                                "-._~:/?#[]@!$&'()*+,;=%";
    return url.starts_with("https://") &&
           url.find_first_not_of(characters) == std::string_view::npos;
}

std::optional<tavrin::PlatformError>
errorOf(const std::variant<FinishedProgram, tavrin::PlatformError>& result) {
    if (const auto* error = std::get_if<tavrin::PlatformError>(&result)) {
        return tavrin::PlatformError(
            error->domain(),
            error->code(),
            fmt::format("Could not open the browser: {}", error->what()));
    }
    const int status = std::get<FinishedProgram>(result).status;
    if (status == 0) {
        return std::nullopt;
    }
    return tavrin::PlatformError(
        "xdg-open",
        status,
        fmt::format("Could not open the browser: xdg-open ended with status {}", status));
}

} // namespace

XdgWorkspace::XdgWorkspace(Clock& clock) : clock_(clock), context_(std::make_unique<QObject>()) {}

XdgWorkspace::~XdgWorkspace() = default;

void XdgWorkspace::openURL(std::string url, Completion completion) {
    const std::uint64_t opening = ++lastOpening_;
    openings_[opening].completion = std::move(completion);
    if (!isHttpsURL(url)) {
        QMetaObject::invokeMethod(
            context_.get(),
            [this, opening] {
                finish(
                    opening,
                    tavrin::PlatformError(
                        std::string(tavrin::posixErrorDomain),
                        EINVAL,
                        "Could not open the browser: the address is not a valid https one"));
            },
            Qt::QueuedConnection);
        return;
    }
    openings_[opening].timer =
        clock_.schedule(longestStart, [this, opening] { finish(opening, std::nullopt); });
    runDesktopProgram(
        {"xdg-open", std::move(url)},
        ProgramOutput::Dropped,
        context_.get(),
        [this, opening](const auto& result) { finish(opening, errorOf(result)); });
}

void XdgWorkspace::openSettings(SettingsPane, Completion) {}

void XdgWorkspace::revealFile(std::string, Completion) {}

std::optional<Workspace::RunningApplication> XdgWorkspace::runningCopy(const std::string&) {
    return std::nullopt;
}

void XdgWorkspace::activateCopy(const RunningApplication&) {}

std::unique_ptr<Workspace::Subscription> XdgWorkspace::onActivation(std::function<void()>) {
    return nullptr;
}

bool XdgWorkspace::shouldReduceMotion() const {
    return false;
}

std::unique_ptr<Workspace::Subscription> XdgWorkspace::onReduceMotionChange(std::function<void()>) {
    return nullptr;
}

void XdgWorkspace::activate() {}

void XdgWorkspace::scheduleRelaunch() {}

void XdgWorkspace::terminate() {}

bool XdgWorkspace::isDebuggerAttached() const {
    return orvel::isDebuggerAttached();
}

void XdgWorkspace::finish(
    std::uint64_t opening, const std::optional<tavrin::PlatformError>& error) {
    if (const auto found = openings_.extract(opening); !found.empty()) {
        // May destroy this object.
        found.mapped().completion(error);
    }
}

} // namespace orvel
