#include "hana/common/name_server_config_parser.h"

#include <set>
#include <string_view>
#include <vector>

#include "hana/common/hana_paths.h"
#include "hana/common/ini_file.h"
#include "hana/common/installation.h"
#include "platform/log.h"

namespace sap_hana {

namespace {

constexpr const char* configuration_file = "nameserver.ini";
constexpr const char* landscape = "landscape";
constexpr std::string_view roles_prefix = "roles_";

std::string_view without_port(std::string_view host) { return host.substr(0, host.rfind(':')); }

void add_hosts(const Ini_File& ini, const char* key, std::set<std::string>& hosts) {
  const std::string* value = ini.find(landscape, key);
  if (value == nullptr) return;
  std::string_view rest(*value);
  while (!rest.empty()) {
    const std::size_t end = rest.find_first_of(" \t,");
    if (end != 0) hosts.emplace(without_port(rest.substr(0, end)));
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
  }
}

/// The hosts that belong to the system now. The roles of a host that was removed can stay in the file, so they count
/// only where no list of hosts stands.
std::set<std::string> hosts_of(const Ini_File& ini) {
  std::set<std::string> hosts;
  for (const char* key : {"worker", "standby"}) add_hosts(ini, key, hosts);
  const auto* keys = ini.section(landscape);
  if (!hosts.empty() || keys == nullptr) return hosts;
  for (const auto& [key, value] : *keys)
    if (key.starts_with(roles_prefix)) hosts.insert(key.substr(roles_prefix.size()));
  return hosts;
}

bool is_this_host(const std::string& sid, std::string_view host) {
  for (const std::string& instance_name : installed_instances(sid))
    if (same_host(local_host_name(sid, instance_name), host)) return true;
  return false;
}

}  // namespace

bool Name_Server_Config_Parser::is_cluster(bool& cluster) {
  Ini_File ini;
  if (!read_system_configuration(sid_, configuration_file, ini)) return false;
  cluster = hosts_of(ini).size() > 1;
  return true;
}

bool Name_Server_Config_Parser::is_active_master(bool& master) {
  Ini_File ini;
  if (!read_system_configuration(sid_, configuration_file, ini)) return false;
  const std::string* active = ini.find(landscape, "active_master");
  if (active != nullptr && !active->empty()) {
    master = is_this_host(sid_, without_port(*active));
    return true;
  }
  if (hosts_of(ini).size() > 1) {
    D3_ERROR("The active master of HANA system %C is not known: '%C' has no active_master\n", sid_.c_str(),
             system_configuration(sid_, configuration_file).c_str());
    return false;
  }
  master = true;
  return true;
}

}  // namespace sap_hana
