#pragma once

#include <map>
#include <string>
#include <vector>

enum Encryption_Algorithm { ENCRYPTION_NONE = 0 };

using Ext_Attrs_T = std::map<std::string, std::string>;
using Node_Addrs_T = std::vector<std::string>;

/// A storage pool as backupd describes it.
struct Pool_Info {
  std::string uuid;
  std::string name;
  std::string host_uuid;
  std::string url;  ///< "file:///dir", or "http[s]://host:port/q5/pools/<uuid>"
  bool device_exists = false;
  bool multidevice = false;
  bool server_side_encryption = false;
  Encryption_Algorithm cipher = ENCRYPTION_NONE;
  std::string key;
  std::string iv;
  std::string preferred_source_address;
  std::string tenant_access_key;
  Ext_Attrs_T ext_attrs;
  Node_Addrs_T node_addrs;
  std::string dedup_backend_type;
  Ext_Attrs_T default_s3;
  bool s3_enabled = false;
};
