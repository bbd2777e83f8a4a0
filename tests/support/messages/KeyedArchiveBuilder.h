// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvel::test {

/// Writes an attributed string the way a keyed archiver does: its text as an object of its own,
/// unless told otherwise.
class KeyedArchiveBuilder final {
public:
    /// A string, which stands for itself.
    KeyedArchiveBuilder& string(std::string_view text);
    /// An object with the text under "NS.string", as for a mutable string.
    KeyedArchiveBuilder& stringObject(std::string_view text);
    /// An object with the text's bytes under "NS.bytes".
    KeyedArchiveBuilder& bytesObject(std::string_view text);
    /// The class of the attributed string and those it derives from.
    KeyedArchiveBuilder& classes(std::vector<std::string> names);
    /// One more string among the objects, to which nothing refers.
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
