#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "backupd/store/database.h"
#include "json/value.h"

namespace backupd {

constexpr std::int64_t list_default_limit = 1000;
constexpr std::int64_t list_largest_limit = 10000;

/// What a list shall hold. Column names come from this program, never from a request.
struct List_Query {
  std::vector<std::pair<std::string, Sql_Value>> filters;     ///< column, value; all must be equal
  std::vector<std::pair<std::string, Sql_Value>> exclusions;  ///< column, value; none may be equal
  std::string order_column = "id";
  bool descending = false;
  std::int64_t limit = list_default_limit;
  std::int64_t offset = 0;

  void where(std::string column, Sql_Value value) { filters.emplace_back(std::move(column), std::move(value)); }
  void where_not(std::string column, Sql_Value value) { exclusions.emplace_back(std::move(column), std::move(value)); }
  /// A filter for a request's parameter: none when it is empty.
  void where_given(const std::string& column, const std::string& value) {
    if (!value.empty()) where(column, value);
  }
};

/// A page of rows and how many there are in all.
struct List_Page {
  std::int64_t total = 0;
  json_spirit::Array rows;
};

/// `columns`: "a, b, c", `column_count` of them.
[[nodiscard]] Sql_Rows select_rows(Sql_Session& session, const std::string& table, const std::string& columns,
                                   std::size_t column_count, const List_Query& query);
[[nodiscard]] std::int64_t count_rows(Sql_Session& session, const std::string& table, const List_Query& query);

/// The object a stored document holds. The store wrote it, so a document that cannot be read is damage: it is logged,
/// and an empty object is returned.
[[nodiscard]] json_spirit::Object stored_object(const std::string& text);

}  // namespace backupd
