// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <filesystem>
#include <fstream>
#include <map>
#include <string>

namespace orvel::test {

inline std::string propertyList(const std::string& content) {
    return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + content + "</plist>";
}

inline std::string dictionary(const std::map<std::string, std::string>& entries) {
    std::string content = "<dict>";
    for (const auto& [key, value] : entries) {
        content += "<key>" + key + "</key><string>" + value + "</string>";
    }
    return propertyList(content + "</dict>");
}

inline void writeFile(const std::filesystem::path& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

} // namespace orvel::test
