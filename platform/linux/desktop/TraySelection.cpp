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

/// Windows of the other kind cannot be put into an X tray, even where there is one for others.
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

    /// Of the selection; none when there is no tray.
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
    // A new tray makes itself known to the root window.
    const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
    xcb_change_window_attributes(
        display_->connection, display_->root(), XCB_CW_EVENT_MASK, &events);
    askForOwner();
    look();
    display_->notifier = std::make_unique<QSocketNotifier>(
        xcb_get_file_descriptor(display_->connection), QSocketNotifier::Read);
    QObject::connect(
        display_->notifier.get(), &QSocketNotifier::activated, display_->notifier.get(), [this] {
            look();
            // A display that is gone is readable for ever; this program is about to follow it.
            display_->notifier->setEnabled(display_->isUsable());
            changed_();
        });
}

TraySelection::~TraySelection() = default;

bool TraySelection::takeEvents() {
    bool isOfInterest = false;
    while (const auto event = owned(xcb_poll_for_event(display_->connection))) {
        constexpr int wasSent = 0x80;
        const int type = event->response_type & ~wasSent;
        isOfInterest = isOfInterest || type == XCB_CLIENT_MESSAGE || type == XCB_DESTROY_NOTIFY;
    }
    return isOfInterest;
}

void TraySelection::look() {
    // Again after each answer, with which further events may have been read.
    while (takeEvents()) {
        askForOwner();
    }
}

void TraySelection::askForOwner() {
    xcb_window_t owner = display_->owner();
    xcb_window_t watched = XCB_WINDOW_NONE;
    while (owner != XCB_WINDOW_NONE && owner != watched) {
        // To be told of its end; which may have come before this, so ask again.
        const std::uint32_t events = XCB_EVENT_MASK_STRUCTURE_NOTIFY;
        xcb_change_window_attributes(display_->connection, owner, XCB_CW_EVENT_MASK, &events);
        watched = std::exchange(owner, display_->owner());
    }
    isOwned_ = owner != XCB_WINDOW_NONE;
}

} // namespace orvel
