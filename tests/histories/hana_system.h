#pragma once

#include <ctime>
#include <set>
#include <string>
#include <string_view>

namespace histories {

/// A database of one of a host's systems.
struct Database {
  std::string sid;
  std::string name;
  bool operator==(const Database&) const = default;
};

/// "SYSTEMDB" tells nothing in a message.
[[nodiscard]] inline std::string label_of(const Database& database) { return database.name + "@" + database.sid; }

/// A system of the stand-in HANA on a host, started. Its time stands still from before the start: what would wait for a
/// time must not.
class Hana_System {
 public:
  static constexpr const char* usual_version = "2.00.059.00.1632920961";
  /// Before 1.00.100: it has no deltas, and no catalog but its own for a recovery.
  static constexpr const char* old_version = "1.00.97.00.1434028111";

  struct Kind {
    const char* version = usual_version;
    bool single_container = false;
    [[nodiscard]] bool is_old() const { return std::string_view(version) == old_version; }
  };
  /// When so much time passes, HANA saves its logs.
  static constexpr std::time_t log_timeout = 3600;
  static constexpr const char* system_database = "SYSTEMDB";
  static constexpr const char* user = "SYSTEM";
  static constexpr const char* password = "manager";

  /// Installs and starts it below `root` at a time, as `set_time` takes it. Each system has a number of its own.
  Hana_System(std::string root, const std::string& sid, unsigned number, const Kind& kind, const std::string& time);
  /// Stops it and takes it off the host.
  ~Hana_System();
  Hana_System(const Hana_System&) = delete;
  Hana_System& operator=(const Hana_System&) = delete;

  [[nodiscard]] const std::string& sid() const { return sid_; }
  [[nodiscard]] unsigned number() const { return number_; }
  [[nodiscard]] const Kind& kind() const { return kind_; }
  /// "HDB00"
  [[nodiscard]] std::string instance() const { return "HDB" + number_text(); }
  /// "PRD_HDB00", its name at backupd and at the agent.
  [[nodiscard]] std::string name() const { return sid_ + "_" + instance(); }
  /// The one that takes statements on others, or the only one.
  [[nodiscard]] std::string main_database() const { return kind_.single_container ? sid_ : system_database; }
  [[nodiscard]] std::string landscape_id() const;

  /// How often its log writer has looked at the databases; 0 while it does not answer.
  [[nodiscard]] long log_looks() const;
  /// As the stand-in's clock file has it.
  void set_time(const std::string& time) const;
  /// Makes an empty tenant and starts it; its name, which is the wanted one unless there is or was one of that name.
  std::string add_tenant(const std::string& wanted = {});
  void start_tenant(const std::string& tenant) const;
  void stop_tenant(const std::string& tenant) const;
  /// SQL in a database, its answer as comma-separated values without quotes; throws when HANA refuses.
  std::string sql(const std::string& statement, const std::string& database) const;

 private:
  [[nodiscard]] std::string number_text() const;
  [[nodiscard]] std::string directory() const { return root_ + "/usr/sap/" + sid_ + "/" + instance(); }

  const std::string root_;
  const std::string sid_;
  const unsigned number_;
  const Kind kind_;
  std::set<std::string> tenants_;  ///< ever
  int numbered_ = 0;               ///< of them
};

}  // namespace histories
