#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace backupd {

/// A value bound to a statement.
using Sql_Value = std::variant<std::nullptr_t, std::int64_t, std::string>;
using Sql_Values = std::vector<Sql_Value>;

/// One row of an answer, every column as text.
class Sql_Row {
 public:
  explicit Sql_Row(std::vector<std::optional<std::string>> columns) : columns_(std::move(columns)) {}
  [[nodiscard]] bool is_null(std::size_t column) const { return !columns_.at(column).has_value(); }
  /// Empty for a null.
  [[nodiscard]] std::string text(std::size_t column) const { return columns_.at(column).value_or(std::string()); }
  /// 0 for a null.
  [[nodiscard]] std::int64_t number(std::size_t column) const;

 private:
  std::vector<std::optional<std::string>> columns_;
};
using Sql_Rows = std::vector<Sql_Row>;

/// Runs statements. A statement that fails is logged once, and the session then refuses everything until the work that
/// it was lent for ends: so a caller may run several statements and ask failed() at the end. Parameters are written
/// ":a", ":b", ... in the statement, each name once, and bound by position. One thread at a time.
class Sql_Session {
 public:
  struct Impl;
  explicit Sql_Session(Impl& impl) : impl_(impl) {}
  Sql_Session(const Sql_Session&) = delete;
  Sql_Session& operator=(const Sql_Session&) = delete;

  /// All rows of a statement with `columns` columns; prepared once per session and text.
  [[nodiscard]] Sql_Rows query(const std::string& sql, const Sql_Values& values, std::size_t columns);
  /// The first row, if any.
  [[nodiscard]] std::optional<Sql_Row> first(const std::string& sql, const Sql_Values& values, std::size_t columns);
  /// Rows changed.
  std::int64_t execute(const std::string& sql, const Sql_Values& values = {});
  /// The next number of a counter, from 1, never given twice. Only inside Database::write.
  [[nodiscard]] std::int64_t next_number(std::string_view counter);

  [[nodiscard]] bool failed() const { return failed_; }

 private:
  void fail(const std::string& sql, const char* reason);

  Impl& impl_;
  bool failed_ = false;
};

/// The embedded database: one session that writes, several that read. Safe from any thread; nothing of the library
/// behind it is visible.
class Database {
 public:
  Database();
  ~Database();
  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  /// Opens (and makes) the file at `path` (documented path) and brings its schema to the present version. False with a
  /// reason.
  [[nodiscard]] bool open(const std::string& path, std::string& error, unsigned readers = 4);

  /// Runs `work` on a session that reads. False when a statement failed.
  [[nodiscard]] bool read(const std::function<void(Sql_Session&)>& work);
  /// Runs `work` as one transaction. It is durable when this returns true; nothing of it stays when `work` returns
  /// false or a statement failed.
  [[nodiscard]] bool write(const std::function<bool(Sql_Session&)>& work);

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace backupd
