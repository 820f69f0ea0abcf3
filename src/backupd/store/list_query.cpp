#include "backupd/store/list_query.h"

#include "platform/log.h"

namespace backupd {

namespace {

std::string parameter(std::size_t number) { return ":p" + std::to_string(number); }

std::string where_clause(const List_Query& query, Sql_Values& values) {
  std::string clause;
  const auto add = [&](const std::string& column, const char* comparison, const Sql_Value& value) {
    clause += (clause.empty() ? " WHERE " : " AND ") + column + comparison + parameter(values.size());
    values.push_back(value);
  };
  for (const auto& [column, value] : query.filters) add(column, " = ", value);
  for (const auto& [column, value] : query.exclusions) add(column, " <> ", value);
  return clause;
}

}  // namespace

Sql_Rows select_rows(Sql_Session& session, const std::string& table, const std::string& columns,
                     std::size_t column_count, const List_Query& query) {
  Sql_Values values;
  std::string sql = "SELECT " + columns + " FROM " + table + where_clause(query, values);
  sql += " ORDER BY " + query.order_column + (query.descending ? " DESC" : " ASC");
  sql += " LIMIT " + parameter(values.size());
  values.emplace_back(query.limit);
  sql += " OFFSET " + parameter(values.size());
  values.emplace_back(query.offset);
  return session.query(sql, values, column_count);
}

std::int64_t count_rows(Sql_Session& session, const std::string& table, const List_Query& query) {
  Sql_Values values;
  const std::string sql = "SELECT count(*) FROM " + table + where_clause(query, values);
  const auto row = session.first(sql, values, 1);
  return row ? row->number(0) : 0;
}

json_spirit::Object stored_object(const std::string& text) {
  json_spirit::Value value;
  std::string error;
  json_spirit::Load_Limits limits;
  limits.bytes = text.size() + 1;
  if (json_spirit::load_json(text, value, &error, limits) && value.is_object()) return value.get_obj();
  D3_ERROR("A stored document is damaged: %C\n", platform::cut_for_log(error).c_str());
  return {};
}

}  // namespace backupd
