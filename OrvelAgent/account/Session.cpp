// SPDX-License-Identifier: Apache-2.0
#include "OrvelAgent/account/Session.h"

#include "core/JSON.h"
#include "core/Text.h"

#include <boost/json/object.hpp>

namespace orvel {

namespace {

/// A text of the service that the user sees in one line.
std::optional<std::string> shownTextAt(const boost::json::object& object, std::string_view key) {
    std::optional<std::string> text = tavrin::optionalStringAt(object, key);
    if (text) {
        text = tavrin::onOneLine(tavrin::shownText(*text));
    }
    return text;
}

} // namespace

std::string accountOf(
    const std::optional<std::string>& uid,
    const std::optional<std::string>& email,
    const std::optional<std::string>& handle) {
    for (const auto* name : {&uid, &email, &handle}) {
        if (*name && !(*name)->empty()) {
            return **name;
        }
    }
    return {};
}

void Session::merge(const Profile& profile) {
    const auto replace = [](std::optional<std::string>& old,
                            const std::optional<std::string>& now) {
        if (now) {
            old = now;
        }
    };
    replace(uid, profile.uid);
    replace(email, profile.email);
    replace(handle, profile.handle);
}

void tag_invoke(
    const boost::json::value_from_tag&, boost::json::value& json, const Session& session) {
    boost::json::object& object = json.emplace_object();
    object["refreshToken"] = session.refreshToken.text();
    const auto add = [&object](const char* key, const std::optional<std::string>& value) {
        if (value) {
            object[key] = *value;
        }
    };
    add("uid", session.uid);
    add("email", session.email);
    add("handle", session.handle);
}

Session tag_invoke(const boost::json::value_to_tag<Session>&, const boost::json::value& json) {
    const boost::json::object& object = tavrin::asObject(json);
    return {
        tavrin::Secret(tavrin::stringAt(object, "refreshToken")),
        tavrin::optionalStringAt(object, "uid"),
        shownTextAt(object, "email"),
        shownTextAt(object, "handle")};
}

Profile tag_invoke(const boost::json::value_to_tag<Profile>&, const boost::json::value& json) {
    const boost::json::object& object = tavrin::asObject(json);
    Profile profile{
        tavrin::optionalStringAt(object, "uid"),
        shownTextAt(object, "email"),
        shownTextAt(object, "handle")};
    if (profile.handle && profile.handle->empty()) {
        profile.handle.reset();
    }
    return profile;
}

} // namespace orvel
