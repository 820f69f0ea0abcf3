#include "server/recovery_statement.h"

#include "base/clock.h"
#include "base/text.h"

namespace standin {

namespace {

constexpr const char* catalog_clause_since = "1.00.100";

using Answer = std::optional<Sql_Error>;

Answer read_source(const Layout& layout, Token_Reader& reader, Recovery_Request& request) {
  if (!reader.accept_words({"USING", "SOURCE"})) return std::nullopt;
  std::string source;
  const Sql_Error problem = reader.error();
  if (!reader.accept_text(source)) return reader.error();
  const std::size_t at = source.rfind('@');
  if ((at != std::string::npos) != layout.multi() || source.empty()) return problem;
  request.source_database = source.substr(0, at);
  // A single container has the name of its system.
  request.source_sid = at == std::string::npos ? source : source.substr(at + 1);
  return request.source_database.empty() || request.source_sid.empty() ? Answer(problem) : std::nullopt;
}

Answer read_backup_id(Token_Reader& reader, Recovery_Request& request) {
  if (reader.peek().kind != Token::number) return reader.error();
  const auto id = parse_number(reader.peek().value);
  if (!id || *id < 0) return reader.error();
  request.backup_id = *id;
  reader.next();
  return std::nullopt;
}

bool accept_catalog_clause(const Layout& layout, Token_Reader& reader) {
  return !version_below(layout.version, catalog_clause_since) && reader.accept_words({"USING", "CATALOG", "BACKINT"});
}

Answer read_data(const Layout& layout, Token_Reader& reader, Recovery_Request& request) {
  if (auto error = read_source(layout, reader, request)) return error;
  if (!reader.accept("USING")) return reader.error();
  if (reader.accept("BACKINT")) {
    request.kind = Recovery_Request::full_by_prefix;
    request.backint_catalog = true;
    if (!reader.accept("(") || !reader.accept_text(request.prefix) || !reader.accept(")")) return reader.error();
  } else {
    if (!reader.accept("BACKUP_ID")) return reader.error();
    if (auto error = read_backup_id(reader, request)) return error;
    request.backint_catalog = accept_catalog_clause(layout, reader);
  }
  return reader.accept_words({"CLEAR", "LOG"}) ? std::nullopt : Answer(reader.error());
}

Answer read_until(const Layout& layout, Token_Reader& reader, Recovery_Request& request) {
  request.kind = Recovery_Request::until_timestamp;
  std::string time;
  if (!reader.accept_words({"UNTIL", "TIMESTAMP"}) || !reader.accept_text(time)) return reader.error();
  const auto seconds = seconds_of_utc_text(time);
  if (!seconds) return Sql_Error{303, "invalid DATE, TIME or TIMESTAMP value: " + time};
  request.until_seconds = *seconds;
  if (!reader.accept_words({"CLEAR", "LOG"})) return reader.error();
  if (auto error = read_source(layout, reader, request)) return error;
  request.backint_catalog = accept_catalog_clause(layout, reader);
  if (!reader.accept_words({"USING", "BACKUP_ID"})) return reader.error();
  if (auto error = read_backup_id(reader, request)) return error;
  if (!reader.accept_words({"CHECK", "ACCESS", "ALL"})) return reader.error();
  request.ignore_deltas = reader.accept_words({"IGNORE", "DELTA", "DATA", "BACKUPS"});
  return std::nullopt;
}

}  // namespace

Answer parse_recovery(const Layout& layout, const std::string& sql, Token_Reader& reader, Recovery_Request& request) {
  request = {};
  request.text = std::string(trim(sql));
  const bool data = reader.accept("DATA");
  if (!data && !reader.accept("DATABASE")) return reader.error();
  if (reader.accept("FOR") && !reader.accept_name(request.database)) return reader.error();
  if (auto error = data ? read_data(layout, reader, request) : read_until(layout, reader, request)) return error;
  return reader.at_end() ? std::nullopt : Answer(reader.error());
}

}  // namespace standin
