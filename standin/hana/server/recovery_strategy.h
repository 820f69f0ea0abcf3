#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "catalog/catalog_image.h"

namespace standin {

/// One log backup that a recovery needs.
struct Log_Piece {
  Catalog_Image::File file;
  Catalog_Image::Log log;
  std::int64_t branch = 0;
  std::int64_t backup_id = 0;
};

/// Which backups a recovery takes, and how far they reach.
struct Recovery_Plan {
  std::vector<Catalog_Image::Entry> data;               ///< the full one, then deltas in the order they are put on it
  std::map<std::int64_t, std::vector<Log_Piece>> logs;  ///< of each volume, by position
  std::int64_t position = 0;  ///< of the log up to which every volume has it, or the data backups' own
  /// All that was committed before is there; nothing when the logs go on behind the target.
  std::optional<std::int64_t> short_at_ms;
};

struct Strategy_Request {
  std::int64_t backup_id = 0;
  bool with_logs = false;  ///< deltas and logs up to `limit_ms`, which belongs to the target
  bool with_deltas = false;
  std::int64_t limit_ms = 0;
};

/// The error's text, empty when there is a way.
std::string find_strategy(const Catalog_Image& image, const Strategy_Request& request, Recovery_Plan& plan);

}  // namespace standin
