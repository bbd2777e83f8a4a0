// SPDX-License-Identifier: Apache-2.0
#include "tools/sample/RowInserter.h"

#include <fmt/format.h>

#include <cstddef>

namespace orvel {

RowInserter::RowInserter(const SQLite::Database& connection, std::string_view table)
    : connection_(connection), table_(table) {
    SQLite::Statement columns(
        connection, fmt::format("SELECT name FROM pragma_table_info('{}')", table));
    while (columns.executeStep()) {
        columns_.insert(columns.getColumn(0));
    }
}

void RowInserter::insert(std::initializer_list<Field> fields) {
    if (!statement_) {
        prepare(fields);
    }
    std::size_t index = 0;
    for (const Field& field : fields) {
        if (const int parameter = parameters_[index++]; parameter != 0) {
            bind(parameter, field.value);
        }
    }
    statement_->exec();
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

void RowInserter::bind(int parameter, const Value& value) {
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        statement_->bind(parameter, *number);
    } else if (const auto* text = std::get_if<std::string_view>(&value)) {
        statement_->bind(parameter, std::string(*text));
    } else if (const auto* blob = std::get_if<std::span<const std::uint8_t>>(&value)) {
        // A null pointer would become NULL instead of an empty blob.
        const void* bytes = blob->empty() ? "" : static_cast<const void*>(blob->data());
        statement_->bindNoCopy(parameter, bytes, static_cast<int>(blob->size()));
    } else {
        statement_->bind(parameter);
    }
}

} // namespace orvel
