// SPDX-License-Identifier: Apache-2.0
#include "platform/linux/desktop/TraySelection.h"

#include <QSocketNotifier>
#include <QtGlobal>

#include <fmt/format.h>
#include <xcb/xcb.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <utility>

namespace orvel {

namespace {

template <typename Reply>
struct Free {
    void operator()(Reply* reply) const { std::free(reply); }
};

template <typename Reply>
std::unique_ptr<Reply, Free<Reply>> owned(Reply* reply) {
    return std::unique_ptr<Reply, Free<Reply>>(reply);
}

/// Wayland windows cannot be embedded in an X tray, even if the desktop has one.
bool usesX() {
    const bool isOnWayland = !qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
                             !qgetenv("QT_QPA_PLATFORM").startsWith("xcb");
    return !qEnvironmentVariableIsEmpty("DISPLAY") && !isOnWayland;
}

} // namespace

struct TraySelection::Display {
    Display() : connection(xcb_connect(nullptr, &screen)) {}
    ~Display() {
        notifier.reset();
        xcb_disconnect(connection);
    }
    Display(const Display&) = delete;
    Display& operator=(const Display&) = delete;

    [[nodiscard]] bool isUsable() const { return xcb_connection_has_error(connection) == 0; }

    [[nodiscard]] xcb_atom_t atom(const std::string& name) const {
        const auto reply = owned(xcb_intern_atom_reply(
            connection,
            xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(name.size()), name.c_str()),
            nullptr));
        return reply ? reply->atom : xcb_atom_t{XCB_ATOM_NONE};
    }

    [[nodiscard]] xcb_window_t root() const {
        xcb_screen_iterator_t screens = xcb_setup_roots_iterator(xcb_get_setup(connection));
        for (int i = 0; i < screen; ++i) {
            xcb_screen_next(&screens);
        }
        return screens.data->root;
    }

    /// The selection's owner; none when there is no tray.
    [[nodiscard]] xcb_window_t owner() const {
        const auto reply = owned(xcb_get_selection_owner_reply(
            connection, xcb_get_selection_owner(connection, selection), nullptr));
        return reply ? reply->owner : xcb_window_t{XCB_WINDOW_NONE};
    }

    int screen = 0;
    xcb_connection_t* connection;
    xcb_atom_t selection = XCB_ATOM_NONE;
    std::unique_ptr<QSocketNotifier> notifier;
};

TraySelection::TraySelection(std::function<void()> changed) : changed_(std::move(changed)) {
    if (!usesX()) {
        return;
    }
    display_ = std::make_unique<Display>();
    if (!display_->isUsable()) {
        display_.reset();
        return;
    }
    display_->selection = display_->atom(fmt::format("_NET_SYSTEM_TRAY_S{}", display_->screen));
    // A new tray announces itself to the root window.
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(
        display_->connection, display_->root(), XCB_CW_EVENT_MASK, &events);
    askForOwner();
    processEvents();
    display_->notifier = std::make_unique<QSocketNotifier>(
        xcb_get_file_descriptor(display_->connection), QSocketNotifier::Read);
    QObject::connect(
        display_->notifier.get(), &QSocketNotifier::activated, display_->notifier.get(), [this] {
            processEvents();
            // A closed connection stays readable, so stop watching it.
            display_->notifier->setEnabled(display_->isUsable());
            changed_();
        });
}

TraySelection::~TraySelection() = default;

bool TraySelection::takeEvents() {
    bool mayHaveChanged = false;
    while (const auto event = owned(xcb_poll_for_event(display_->connection))) {
        constexpr int sentFlag = 0x80;
        const int type = event->response_type & ~sentFlag;
        mayHaveChanged = mayHaveChanged || type == XCB_CLIENT_MESSAGE || type == XCB_DESTROY_NOTIFY;
    }
    return mayHaveChanged;
}

void TraySelection::processEvents() {
    // Repeat, because waiting for a reply may have read further events.
    while (takeEvents()) {
        askForOwner();
    }
}

void TraySelection::askForOwner() {
    xcb_window_t owner = display_->owner();
    xcb_window_t watched = XCB_WINDOW_NONE;
    while (owner != XCB_WINDOW_NONE && owner != watched) {
        // Watch for the owner's end. It may have ended before the watch began, so ask again.
        const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(display_->connection, owner, XCB_CW_EVENT_MASK, &events);
        watched = std::exchange(owner, display_->owner());
    }
    isOwned_ = owner != XCB_WINDOW_NONE;
}

} // namespace orvel
