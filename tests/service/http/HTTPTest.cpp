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

TEST(HTTPTest, SplitsTargets) {
    struct Case {
        std::string target;
        std::string path;
        std::string query;
    };
    const std::vector<Case> cases{
        {"/", "/", ""},
        {"/a?", "/a", ""},
        {"/a?b=%41?c", "/a", "b=%41?c"},
        {"/%41%2fb+c", "/A/b+c", ""},
        {"/%00", std::string("/\0", 2), ""},
        {"/%4", "/%4", ""},
        {"/%zz", "/%zz", ""},
        {"", "", ""},
    };
    for (const auto& item : cases) {
        Request request;
        request.setTarget(item.target);
        EXPECT_EQ(item.path, request.path) << item.target;
        EXPECT_EQ(item.query, request.query) << item.target;
    }
}

TEST(HTTPTest, ReadsCookies) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", ""},
        {"a", ""},
        {"a=1", "1"},
        {"b=2; a=1; c=3", "1"},
        {"aa=2;a=1", "1"},
        {"b=a=1", ""},
        {"a=1=2", "1=2"},
        {";;; a=1", "1"},
        {"A=1", ""},
    };
    for (const auto& [cookies, value] : cases) {
        Request request;
        request.headers.emplace_back("Cookie", cookies);
        EXPECT_EQ(value, request.cookie("a")) << cookies;
    }
    EXPECT_EQ("", Request().cookie("a"));
}

} // namespace
} // namespace orvel::service
