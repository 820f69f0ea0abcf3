#pragma once

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>
#include <vector>

#include "json/value.h"

namespace backupd {

/// One stored object of a backup set.
struct Plan_Object {
  std::string name;  ///< as HANA's stream was called
  std::string ebid;
  std::string path;              ///< within the pool
  std::int64_t size = 0;         ///< bytes from HANA
  std::int64_t stored_size = 0;  ///< bytes on the pool
};

/// A backup set, as far as a restore asks for it.
struct Plan_Set {
  std::string uuid;
  std::string type;
  std::string lifeline;
  std::string incarnation;
  std::string first_time;  ///< UTC; a second later than HANA began
  std::string last_time;   ///< UTC
  std::string pool_uuid;   ///< empty: it lies on no pool any more
  std::int64_t backup_id = 0;
  std::int64_t source_size = 0;
  std::int64_t stored_size = 0;
  std::vector<Plan_Object> objects;

  [[nodiscard]] static Plan_Set read(const json_spirit::Object& document);

  [[nodiscard]] bool is_full() const;
  [[nodiscard]] bool is_delta() const;
  /// HANA's id of the backup that a delta builds on; none when the names do not tell.
  [[nodiscard]] std::optional<std::int64_t> base_id() const;
  /// Whether a catalog that begins with this set lists `other`: that one had ended by then.
  [[nodiscard]] bool knows(const Plan_Set& other) const {
    return other.backup_id <= backup_id && other.last_time < first_time;
  }
  /// UTC; when HANA began it.
  [[nodiscard]] std::string begin() const;
  /// UTC; of a log: all of that second is in it. HANA ends a segment a moment before it saves it.
  [[nodiscard]] std::string whole_until() const;
};

/// "full backup of 2026-11-20 08:00:00 (7e0f7a52-...)"
[[nodiscard]] std::string set_label(const Plan_Set& set);

inline constexpr char type_full[] = "full";
inline constexpr char type_incremental[] = "incremental";
inline constexpr char type_differential[] = "differential";

}  // namespace backupd
