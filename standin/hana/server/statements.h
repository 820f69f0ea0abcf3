#pragma once

#include "engine/accounts.h"
#include "engine/tables.h"
#include "server/instance.h"

namespace standin {

/// What a session is told whose database was stopped.
[[nodiscard]] Sql_Error connection_down();

/// A logged-on user's session in one database.
class Statements {
 public:
  Statements(Instance& instance, System_State& state, std::string database, std::string user)
      : instance_(instance),
        state_(state),
        database_(std::move(database)),
        user_(std::move(user)),
        tables_(state, database_) {}
  std::optional<Sql_Error> run(const std::string& sql, bool autocommit, Result& result);

 private:
  using Answer = std::optional<Sql_Error>;
  Answer select(const std::string& sql, Result& result);
  /// While the log area is full nothing can be written.
  Answer wait_for_log();
  Answer change(const std::string& sql, bool autocommit, Result& result);
  Answer backup(const std::string& sql, Token_Reader& reader);
  Answer backup_data(const std::string& sql, Token_Reader& reader);
  Answer backup_cancel(Token_Reader& reader);
  Answer recover(const std::string& sql, Token_Reader& reader);
  Answer alter_system(Token_Reader& reader);
  Answer create_database(Token_Reader& reader);
  Answer start_or_stop(bool start, const std::string& name);
  Answer read_database(Token_Reader& reader, std::string& name);
  bool may(std::initializer_list<std::string_view> privileges);

  Instance& instance_;
  System_State& state_;
  std::string database_;
  std::string user_;
  Table_Session tables_;
};

}  // namespace standin
