#pragma once

#include <string>

namespace sap_hana {

/// Directory of everything that this module keeps on the host: "/var/opt/tarvex/dorsal3/$COMPONENT/hana", with
/// "$COMPONENT" replaced.
[[nodiscard]] std::string hana_state_directory();

/// What the name of every configuration file of a log backup begins with.
inline constexpr const char* ondemand_conf_prefix = "log_backup";

/// True for a file name that a live configuration may have: a "." marks a copy that was set aside.
[[nodiscard]] bool is_live_ondemand_conf(const std::string& file_name);

/// The configuration file of an instance's log backup, or, with a database, of that database's:
/// "<state directory>/log_backup_<SID>_<instance name>[_<database>]", each part encoded so that it is one segment
/// without ".". False, with a message, without a SID or an instance name.
[[nodiscard]] bool ondemand_conf_path(const std::string& sid, const std::string& instance_name,
                                      const std::string& database, std::string& path);

}  // namespace sap_hana
