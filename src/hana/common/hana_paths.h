#pragma once

#include <ace/Basic_Types.h>

#include <string>
#include <string_view>

// Names and paths of an SAP HANA installation: the one place that knows them. Documented paths, before the file root is
// put on. Everything is safe from any thread.

namespace sap_hana {

inline constexpr std::string_view system_database_name = "SYSTEMDB";
inline constexpr std::string_view sap_base_directory = "/usr/sap";
/// List of the start services of this host.
inline constexpr std::string_view sap_services_file = "/usr/sap/sapservices";
/// Group of everything that belongs to SAP systems.
inline constexpr const char* sap_group = "sapsys";

/// A system id: a capital letter, then two capital letters or digits.
[[nodiscard]] bool is_sid(std::string_view text);
/// "HDB" and two digits.
[[nodiscard]] bool is_instance_name(std::string_view text);
/// Name of the instance directory: 0 is "HDB00".
[[nodiscard]] std::string instance_name_of(ACE_UINT16 number);
/// The number in an instance name; false, and `number` left alone, when it is not one.
[[nodiscard]] bool instance_number_of(std::string_view instance_name, ACE_UINT16& number);
/// Name under which the agent and the backup server keep an instance: "<SID>_<instance name>".
[[nodiscard]] std::string generate_instance_manager_name(std::string_view sid, std::string_view instance_name);
/// The operating system user of a system: "hdbadm".
[[nodiscard]] std::string system_user(std::string_view sid);

/// "/usr/sap/<SID>"
[[nodiscard]] std::string system_directory(std::string_view sid);
/// "/usr/sap/<SID>/HDB<NN>"
[[nodiscard]] std::string instance_directory(std::string_view sid, std::string_view instance_name);
/// "/usr/sap/<SID>/HDB<NN>/exe"
[[nodiscard]] std::string executable_directory(std::string_view sid, std::string_view instance_name);
/// "/usr/sap/<SID>/HDB<NN>/<host>"
[[nodiscard]] std::string host_directory(std::string_view sid, std::string_view instance_name, std::string_view host);
/// "/usr/sap/<SID>/HDB<NN>/<host>/trace"
[[nodiscard]] std::string trace_directory(std::string_view sid, std::string_view instance_name, std::string_view host);
/// "/usr/sap/<SID>/HDB<NN>/exe/manifest"
[[nodiscard]] std::string instance_manifest(std::string_view sid, std::string_view instance_name);
/// "/usr/sap/<SID>/SYS/exe/hdb/manifest"
[[nodiscard]] std::string system_manifest(std::string_view sid);
/// "/usr/sap/<SID>/SYS/profile"
[[nodiscard]] std::string profile_directory(std::string_view sid);
/// "/usr/sap/<SID>/SYS/global/hdb/custom/config/<file>", the system layer of the configuration.
[[nodiscard]] std::string system_configuration(std::string_view sid, std::string_view file);
/// "/usr/sap/<SID>/home"
[[nodiscard]] std::string system_user_home(std::string_view sid);

/// Folder below a trace, configuration or Backint directory that belongs to one database: "DB_<name>".
[[nodiscard]] std::string database_folder(std::string_view database);

/// Where HANA makes the pipes of a database: "/usr/sap/<SID>/SYS/global/hdb/backint/SYSTEMDB", ".../DB_<name>", and
/// ".../backint" for a system without tenants. False, with a message, for names that cannot be a path segment.
[[nodiscard]] bool database_pipe_path(const std::string& sid, const std::string& database, bool multi_container,
                                      std::string& path);

/// Lock file that everybody takes who stops, restores or starts a tenant database.
[[nodiscard]] std::string database_restore_lock(std::string_view sid, std::string_view database);

}  // namespace sap_hana
