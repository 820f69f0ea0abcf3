#pragma once

#include <ace/Basic_Types.h>

#include <string>

// Plain facts about HANA systems, their instances on this host and their databases.

namespace sap_hana {

/// Basic facts of one HANA system.
struct System_Base_Info {
  std::string sid;        ///< system id, such as "HDB"
  std::string localhost;  ///< the name HANA was installed with on this host
  std::string version;    ///< dotted, such as "2.00.059.00"; empty when it could not be read
  bool multi_container = false;
};

/// One installed instance on this host.
struct System_Instance_Info {
  System_Base_Info system_info;
  ACE_UINT16 instance_number = 0;
  std::string instance_name;   ///< name of the instance's directory, such as "HDB00"
  std::string version;         ///< version of the instance's software
  std::string dir_executable;  ///< directory of the instance's programs, where hdbsql lies
};

/// One database of a system.
struct Database_Info {
  System_Instance_Info instance_info;
  bool active = false;  ///< started and taking logons
  std::string name;     ///< "SYSTEMDB" for the system database
  std::string description;
  std::string os_user;  ///< owner of the database's files
  std::string os_group;
};

}  // namespace sap_hana
