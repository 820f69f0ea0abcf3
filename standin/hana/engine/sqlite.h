#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace standin {

/// How long a statement waits for what another connection holds.
constexpr int busy_milliseconds = 30000;

class Statement {
 public:
  Statement() = default;
  explicit Statement(sqlite3_stmt* handle) : handle_(handle) {}
  Statement& bind(int at, std::int64_t value);
  Statement& bind(int at, std::string_view value);
  Statement& bind_blob(int at, std::string_view value);
  Statement& bind_null(int at);
  /// True while there is a row.
  bool step();
  /// For statements without rows.
  bool run();
  [[nodiscard]] std::int64_t number(int column) const { return sqlite3_column_int64(handle_.get(), column); }
  [[nodiscard]] std::string text(int column) const;
  [[nodiscard]] bool is_null(int column) const { return sqlite3_column_type(handle_.get(), column) == SQLITE_NULL; }
  [[nodiscard]] sqlite3_stmt* raw() const { return handle_.get(); }
  [[nodiscard]] bool failed() const { return failed_; }

 private:
  struct Finalize {
    void operator()(sqlite3_stmt* handle) const { sqlite3_finalize(handle); }
  };
  std::unique_ptr<sqlite3_stmt, Finalize> handle_;
  bool failed_ = false;
};

class Sqlite {
 public:
  Sqlite() = default;
  bool open(const std::string& path);
  Statement prepare(std::string_view sql);
  bool execute(const std::string& sql);
  /// Whether the last call failed over what another connection holds.
  [[nodiscard]] bool busy() const;
  [[nodiscard]] std::string error() const { return sqlite3_errmsg(handle_.get()); }
  [[nodiscard]] sqlite3* raw() const { return handle_.get(); }

 private:
  struct Close {
    void operator()(sqlite3* handle) const { sqlite3_close_v2(handle); }
  };
  std::unique_ptr<sqlite3, Close> handle_;
};

}  // namespace standin
