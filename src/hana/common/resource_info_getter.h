#pragma once

#include <ace/Basic_Types.h>

#include <string>
#include <vector>

#include "json/value.h"

namespace sap_hana {

/// Reads the record of a HANA resource from backupd.
class Resource_Info_Getter {
 public:
  /// One HANA instance of a resource; a system on several hosts has one each.
  struct Instance_Info {
    std::string host_uuid;
    std::string sid;
    std::string uuid;
    std::string instance_name;
    std::string instance_mgr_name;  ///< name under which backupd and the agent keep the instance
    ACE_UINT16 instance_number = 0;
    json_spirit::Object ext_attrs;
    bool mdc = false;  ///< the system runs with tenant databases
  };
  using Instances_Info = std::vector<Instance_Info>;

  explicit Resource_Info_Getter(const std::string& resource_uuid) : resource_uuid_(resource_uuid) {}

  /// The record as backupd keeps it. False with a message; `info` is then left alone.
  [[nodiscard]] bool get_info(json_spirit::Object& info) const;
  /// Base facts of the resource's first instance. What was read before a failure stays in the arguments.
  [[nodiscard]] bool base_info(std::string& sid, std::string& instance_name, std::string& instance_mgr_name,
                               ACE_UINT16& instance_number) const;
  /// Appends every instance. True with nothing appended when the resource has none; what was appended before a failure
  /// stays.
  [[nodiscard]] bool get_instances_info(Instances_Info& instances) const;

 private:
  std::string resource_uuid_;
};

using Instances_Info = Resource_Info_Getter::Instances_Info;

}  // namespace sap_hana
