#include "engine/sqlite.h"

namespace standin {

Statement& Statement::bind(int at, std::int64_t value) {
  sqlite3_bind_int64(handle_.get(), at, value);
  return *this;
}

Statement& Statement::bind(int at, std::string_view value) {
  sqlite3_bind_text(handle_.get(), at, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
  return *this;
}

Statement& Statement::bind_blob(int at, std::string_view value) {
  sqlite3_bind_blob(handle_.get(), at, value.data(), static_cast<int>(value.size()), SQLITE_TRANSIENT);
  return *this;
}

Statement& Statement::bind_null(int at) {
  sqlite3_bind_null(handle_.get(), at);
  return *this;
}

bool Statement::step() {
  const int result = handle_ ? sqlite3_step(handle_.get()) : SQLITE_ERROR;
  failed_ = result != SQLITE_ROW && result != SQLITE_DONE;
  return result == SQLITE_ROW;
}

bool Statement::run() {
  while (step()) {
  }
  const bool good = !failed_;
  if (handle_) sqlite3_reset(handle_.get());
  return good;
}

std::string Statement::text(int column) const {
  const void* const data = sqlite3_column_blob(handle_.get(), column);
  const int size = sqlite3_column_bytes(handle_.get(), column);
  return data == nullptr ? std::string() : std::string(static_cast<const char*>(data), static_cast<std::size_t>(size));
}

bool Sqlite::open(const std::string& path) {
  sqlite3* handle = nullptr;
  const int result = sqlite3_open_v2(path.c_str(), &handle,
                                     SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_FULLMUTEX, nullptr);
  handle_.reset(handle);
  if (result != SQLITE_OK) return false;
  sqlite3_busy_timeout(handle, busy_milliseconds);
  // A name in double quotes that nothing has is an error, not a text.
  sqlite3_db_config(handle, SQLITE_DBCONFIG_DQS_DML, 0, nullptr);
  sqlite3_db_config(handle, SQLITE_DBCONFIG_DQS_DDL, 0, nullptr);
  return true;
}

Statement Sqlite::prepare(std::string_view sql) {
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(handle_.get(), sql.data(), static_cast<int>(sql.size()), &statement, nullptr);
  return Statement(statement);
}

bool Sqlite::busy() const {
  const int code = sqlite3_errcode(handle_.get());
  return code == SQLITE_BUSY || code == SQLITE_LOCKED;
}

bool Sqlite::execute(const std::string& sql) {
  return sqlite3_exec(handle_.get(), sql.c_str(), nullptr, nullptr, nullptr) == SQLITE_OK;
}

}  // namespace standin
