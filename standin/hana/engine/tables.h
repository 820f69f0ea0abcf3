#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "engine/sql_text.h"
#include "engine/system_state.h"

namespace standin {

struct Cell {
  char type = '0';  ///< 't' text, 'n' number, 'b' binary in hexadecimal, '0' NULL
  std::string text;
};

struct Result {
  bool has_rows = false;
  std::vector<std::string> columns;
  std::vector<std::vector<Cell>> rows;
  std::int64_t affected = 0;
};

/// Runs a SELECT on the database's tables with the schemas that `attach` adds.
std::optional<Sql_Error> run_select(const std::string& tables_file, const std::string& sql,
                                    const std::function<bool(Sqlite&)>& attach, Result& result);

/// Opens a database's tables; makes the one that every database has.
bool open_tables(Sqlite& sqlite, const std::string& tables_file);
/// Runs a statement as the redo log holds it.
std::optional<Sql_Error> replay_statement(Sqlite& sqlite, const std::string& statement);

/// A user's open transaction in a database: changes are kept in the redo log when it commits.
class Table_Session {
 public:
  Table_Session(System_State& state, std::string database) : state_(state), database_(std::move(database)) {}
  std::optional<Sql_Error> change(const std::string& sql, bool autocommit, Result& result);
  std::optional<Sql_Error> select(const std::string& sql, Result& result);
  std::optional<Sql_Error> commit();
  void rollback();
  [[nodiscard]] bool in_transaction() const { return !pending_.empty(); }

 private:
  bool open();
  System_State& state_;
  std::string database_;
  Sqlite sqlite_;
  bool opened_ = false;
  std::vector<std::string> pending_;
};

}  // namespace standin
