#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace sap_hana {

/// Names of the instances of a system that lie on this host, sorted. Empty when there is none or `sid` is no system id.
[[nodiscard]] std::vector<std::string> installed_instances(const std::string& sid);

/// True when `instance_name` of `sid` is installed on this host.
[[nodiscard]] bool is_installed(const std::string& sid, const std::string& instance_name);

/// The host name that an instance was installed with on this host: from the list of start services, else from the
/// instance's profiles, else the kernel's.
[[nodiscard]] std::string local_host_name(const std::string& sid, const std::string& instance_name);

/// The host in the "pf=" argument of the instance's line in the text of the list of start services; empty without one.
[[nodiscard]] std::string host_in_services(std::string_view text, std::string_view sid, std::string_view instance_name);

/// "fullversion" of a manifest's text without its build part; empty without one.
[[nodiscard]] std::string version_in_manifest(std::string_view text);

/// Whether two host names mean one host: the parts before the first dot, without letter case; a whole name where both
/// have a domain.
[[nodiscard]] bool same_host(std::string_view left, std::string_view right);

/// Host names of the instance's host folders, sorted: those that have a "trace" folder.
[[nodiscard]] std::vector<std::string> host_folders(const std::string& sid, const std::string& instance_name);

}  // namespace sap_hana
