#pragma once

#include <string>

#include "json/value.h"

/// One database instance of this host, as the agent's registry keeps it.
struct Instance {
  std::string type;                   ///< which module handles it: "hana"
  std::string name;                   ///< unique within the type
  std::string uuid;                   ///< given by the host
  json_spirit::Object options;        ///< properties that the module's handler found
  json_spirit::Object logon_options;  ///< how to log on, kept by the host; secrets are secure strings
};
