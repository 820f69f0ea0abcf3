#pragma once

#include <optional>
#include <string>

namespace standin {

/// Where one instance lies. "Documented" paths begin with /usr/sap or /var; `real` puts the root before them.
struct Layout {
  std::string root;    ///< without trailing '/', empty for none
  std::string sid;     ///< "PRD"
  std::string number;  ///< "00"
  std::string host;
  std::string version;
  std::string mode;   ///< "multi" or "single"
  std::string store;  ///< real folder of what the hosts of a system share; empty: this host's own

  [[nodiscard]] bool multi() const { return mode == "multi"; }
  [[nodiscard]] std::string real(const std::string& documented) const { return root + documented; }
  [[nodiscard]] std::string instance_name() const { return "HDB" + number; }
  [[nodiscard]] std::string system_directory() const { return "/usr/sap/" + sid; }
  [[nodiscard]] std::string instance_directory() const { return system_directory() + "/HDB" + number; }
  [[nodiscard]] std::string host_directory() const { return instance_directory() + "/" + host; }
  [[nodiscard]] std::string global_directory() const { return system_directory() + "/SYS/global/hdb"; }
  [[nodiscard]] std::string backint_link() const { return global_directory() + "/opt/hdbbackint"; }
  /// "SYSTEMDB", "DB_<name>", or "" in a single container.
  [[nodiscard]] std::string database_folder(const std::string& database) const;
  [[nodiscard]] std::string backint_directory(const std::string& database) const;
  /// The system database's own lies in the trace directory itself.
  [[nodiscard]] std::string trace_directory(const std::string& database) const;
  [[nodiscard]] std::string configuration(const std::string& file) const;
  /// Real path of this host's own state.
  [[nodiscard]] std::string state(const std::string& file) const;
  /// Real path of the state that all hosts of the system share: databases, catalog, list of hosts.
  [[nodiscard]] std::string shared(const std::string& file) const;
  [[nodiscard]] int port(int last_two) const;
  [[nodiscard]] std::string daemon_name() const { return "hdb.sap" + sid + "_HDB" + number; }
};

/// Reads the settings that the installer left.
bool load_settings(Layout& layout);
/// This process's clock goes as the instance's.
void live_in_time_of(const Layout& layout);
/// The instance that the running program belongs to, by its own path; its clock goes as the instance's. `number`
/// chooses for the host control's tools.
std::optional<Layout> own_layout(const std::string& number = {});
std::optional<Layout> find_layout(const std::string& root, const std::string& sid);

}  // namespace standin
