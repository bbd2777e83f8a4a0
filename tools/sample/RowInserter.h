// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "tools/sample/DatabaseConnection.h"

#include <functional>
#include <initializer_list>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace orvel {

/// Inserts rows into a table through one prepared statement. All rows must have the same fields.
/// Fields whose column the table lacks are skipped. The connection must outlive the object.
class RowInserter final {
public:
    struct Field {
        std::string_view column;
        DatabaseStatement::Value value;
    };

    RowInserter(const DatabaseConnection& connection, std::string_view table);

    void insert(std::initializer_list<Field> fields);

private:
    void prepare(std::initializer_list<Field> fields);

    const DatabaseConnection& connection_;
    std::string table_;
    std::set<std::string, std::less<>> columns_;
    std::optional<DatabaseStatement> statement_;
    /// The parameter of each field, or 0 if the table lacks its column.
    std::vector<int> parameters_;
};

} // namespace orvel
