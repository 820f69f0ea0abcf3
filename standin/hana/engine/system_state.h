#pragma once

#include <optional>
#include <string>
#include <vector>

#include "base/layout.h"
#include "engine/sqlite.h"

namespace standin {

struct Service {
  std::string name;
  int volume = 0;
  int port = 0;
  int sql_port = 0;
  std::int64_t ballast_pages = 0;
  std::uint64_t seed = 0;  ///< what its ballast is made from
};

struct Database {
  std::string name;
  std::string status;  ///< as M_DATABASES tells it: YES, NO, STARTING, STOPPING
  std::vector<Service> services;
};

inline constexpr const char* system_database = "SYSTEMDB";

/// What the instance knows of itself, in one SQLite file. Each user opens a connection of its own.
class System_State {
 public:
  [[nodiscard]] bool open(const Layout& layout);
  Sqlite& sqlite() { return sqlite_; }
  [[nodiscard]] const Layout& layout() const { return layout_; }
  std::vector<Database> databases();
  std::optional<Database> database(const std::string& name);
  [[nodiscard]] bool add_database(const std::string& name, const std::vector<std::string>& services,
                                  std::int64_t ballast_pages);
  /// Also writes databases.lst.
  [[nodiscard]] bool set_status(const std::string& name, const std::string& status);
  /// How often the database was stopped: a session does not outlive its database.
  std::int64_t stops_of(const std::string& name);
  /// Of a database whose recovery has begun to change it and has not ended well: it cannot be started.
  [[nodiscard]] bool set_broken(const std::string& name, bool broken);
  bool is_broken(const std::string& name);
  [[nodiscard]] bool write_database_list();
  /// File with the database's tables.
  [[nodiscard]] std::string tables_file(const std::string& database) const;

 private:
  Layout layout_;
  Sqlite sqlite_;
};

}  // namespace standin
