// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/RowInserter.h"

#include <fmt/format.h>

#include <cstddef>

namespace orvel {

RowInserter::RowInserter(const DatabaseConnection& connection, std::string_view table)
    : connection_(connection), table_(table) {
    DatabaseStatement columns(
        connection, fmt::format("SELECT name FROM pragma_table_info('{}')", table));
    while (columns.step()) {
        columns_.insert(columns.text(0));
    }
}

void RowInserter::insert(std::initializer_list<Field> fields) {
    if (!statement_) {
        prepare(fields);
    }
    std::size_t index = 0;
    for (const Field& field : fields) {
        if (const int parameter = parameters_[index++]; parameter != 0) {
            statement_->bind(parameter, field.value);
        }
    }
    statement_->step();
    statement_->reset();
}

void RowInserter::prepare(std::initializer_list<Field> fields) {
    std::string names;
    std::string placeholders;
    int parameter = 0;
    for (const Field& field : fields) {
        if (!columns_.contains(field.column)) {
            parameters_.push_back(0);
            continue;
        }
        parameters_.push_back(++parameter);
        names += (parameter > 1 ? ", " : "") + std::string(field.column);
        placeholders += parameter > 1 ? ", ?" : "?";
    }
    statement_.emplace(
        connection_, fmt::format("INSERT INTO {} ({}) VALUES ({})", table_, names, placeholders));
}

} // namespace orvel
