#include "hana/common/system_instance_lister.h"

#include <cerrno>
#include <vector>

#include "hana/common/hana_paths.h"
#include "hana/common/installation.h"
#include "hana/common/system_control.h"
#include "platform/files.h"
#include "platform/log.h"

namespace sap_hana {

namespace {

std::string version_of(const std::string& manifest) {
  std::string text;
  return platform::read_file(manifest, text) ? version_in_manifest(text) : std::string();
}

System_Instance_Info describe_instance(const std::string& sid, const std::string& instance_name, bool multi_container) {
  System_Instance_Info info;
  info.system_info.sid = sid;
  info.system_info.localhost = local_host_name(sid, instance_name);
  info.system_info.multi_container = multi_container;
  info.instance_name = instance_name;
  static_cast<void>(instance_number_of(instance_name, info.instance_number));
  info.dir_executable = executable_directory(sid, instance_name);
  info.version = version_of(instance_manifest(sid, instance_name));
  info.system_info.version = version_of(system_manifest(sid));
  // Both manifests tell of one software; on an instance of its own either may be missing.
  if (info.version.empty()) info.version = info.system_info.version;
  if (info.system_info.version.empty()) info.system_info.version = info.version;
  if (info.version.empty())
    D3_WARNING("The version of HANA instance %C is not known: no manifest tells it\n",
               generate_instance_manager_name(sid, instance_name).c_str());
  return info;
}

}  // namespace

bool System_Instance_Lister::list(std::list<System_Instance_Info>& infos) {
  const std::string base(sap_base_directory);
  std::vector<std::string> names;
  if (!platform::list_directory(base, names)) {
    if (errno == ENOENT) return true;
    D3_ERROR("Failed to list the SAP systems of this host in '%C': %m\n", base.c_str());
    return false;
  }
  for (const std::string& sid : names) {
    const std::vector<std::string> instances = installed_instances(sid);
    if (instances.empty()) continue;
    const bool multi_container = System_Controller(sid).is_multi_container();
    for (const std::string& instance_name : instances)
      infos.push_back(describe_instance(sid, instance_name, multi_container));
  }
  return true;
}

bool System_Instance_Lister::list(System_Instance_Info& info, const std::string& sid,
                                  const std::string& instance_name) {
  if (!is_installed(sid, instance_name)) {
    D3_ERROR("HANA instance '%C' of system '%C' is not installed on this host\n",
             platform::cut_for_log(instance_name).c_str(), platform::cut_for_log(sid).c_str());
    return false;
  }
  info = describe_instance(sid, instance_name, System_Controller(sid).is_multi_container());
  return true;
}

}  // namespace sap_hana
