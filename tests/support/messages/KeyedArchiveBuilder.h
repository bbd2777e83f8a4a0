// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvel::test {

/// Writes an attributed string like a keyed archiver. By default its text is a separate object.
class KeyedArchiveBuilder final {
public:
    /// Stores the text directly as a string.
    KeyedArchiveBuilder& string(std::string_view text);
    /// Stores an object with the text under "NS.string", as for a mutable string.
    KeyedArchiveBuilder& stringObject(std::string_view text);
    /// Stores an object with the text's bytes under "NS.bytes".
    KeyedArchiveBuilder& bytesObject(std::string_view text);
    /// The class of the attributed string and its superclasses.
    KeyedArchiveBuilder& classes(std::vector<std::string> names);
    /// Adds an unreferenced string to the objects.
    KeyedArchiveBuilder& with(std::string_view text);

    [[nodiscard]] std::string binary() const;
    [[nodiscard]] std::string xml() const;

private:
    enum class Form { String, StringObject, BytesObject };

    [[nodiscard]] void* makeList() const;

    Form form_ = Form::String;
    std::string text_;
    std::vector<std::string> classes_ = {"NSAttributedString", "NSObject"};
    std::vector<std::string> others_;
};

} // namespace orvel::test
