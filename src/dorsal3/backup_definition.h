#pragma once

#include <string>
#include <vector>

#include "dorsal3/resources.h"

namespace dorsal3 {

/// What a backup request comes down to.
struct Backup_Request {
  Resource resource;
  std::vector<std::string> databases;
  std::string type = "full";  ///< "full", "incremental" or "differential"
  json_spirit::Object pool;
  std::string compression = "none";
  int compression_level = 1;
};

/// The job definition document of the request (docs/formats/job-definition.md). Its id follows from its content, so
/// that asking for the same backup twice finds the same definition.
[[nodiscard]] json_spirit::Object backup_definition(const Backup_Request& request);

}  // namespace dorsal3
