// SPDX-License-Identifier: Apache-2.0
#include "service/http/HTTP.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace orvel::service {
namespace {

TEST(HTTPTest, ReadsItemsOfQueriesAndForms) {
    struct Case {
        std::string items;
        std::optional<std::string> query;
        std::optional<std::string> form;
    };
    const auto same = [](std::string items, std::optional<std::string> value) {
        return Case{std::move(items), value, value};
    };
    const std::vector<Case> cases{
        same("", std::nullopt),
        same("b=1", std::nullopt),
        same("aa=1", std::nullopt),
        same("a", ""),
        same("a=", ""),
        same("a=1", "1"),
        same("b=2&a=1&c=3", "1"),
        same("&&a=1&", "1"),
        same("%61=1", "1"),
        same("a=b=c", "b=c"),
        same("a=%41%2b%2F%26%c3%a9", "A+/&é"),
        same("a=%00", std::string(1, '\0')),
        same("a=%ff", "\xff"),
        same("a=\xff", "\xff"),
        {"a=x+y", "x+y", "x y"},
        same("a=1&a=2", std::nullopt),
        same("a=1&%61=1", std::nullopt),
        same("a=%", std::nullopt),
        same("a=%4", std::nullopt),
        same("a=%4g", std::nullopt),
        same("a=%g4", std::nullopt),
        same("a=%+4", std::nullopt),
    };
    for (const auto& item : cases) {
        Request request;
        request.query = item.items;
        request.body = item.items;
        EXPECT_EQ(item.query, request.queryValue("a")) << item.items;
        EXPECT_EQ(item.form, request.formValue("a")) << item.items;
    }
}

} // namespace
} // namespace orvel::service
