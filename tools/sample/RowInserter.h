// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <SQLiteCpp/SQLiteCpp.h>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace orvel {

/// Inserts rows into a table through one prepared statement. All rows must have the same fields.
/// Fields whose column the table lacks are skipped. The connection must outlive the object.
class RowInserter final {
public:
    using Value =
        std::variant<std::monostate, std::int64_t, std::string_view, std::span<const std::uint8_t>>;

    struct Field {
        std::string_view column;
        Value value;
    };

    RowInserter(const SQLite::Database& connection, std::string_view table);

    void insert(std::initializer_list<Field> fields);

private:
    void prepare(std::initializer_list<Field> fields);
    void bind(int parameter, const Value& value);

    const SQLite::Database& connection_;
    std::string table_;
    std::set<std::string, std::less<>> columns_;
    std::optional<SQLite::Statement> statement_;
    /// The parameter of each field, or 0 if the table lacks its column.
    std::vector<int> parameters_;
};

} // namespace orvel
