#pragma once

#include <string>

#include "json/value.h"

namespace agentd {

/// Which restore a pair of staged files belongs to (docs/formats/restore-catalog.md): as their names have it, and as
/// the params of "staged.remove" do.
struct Staged_Name {
  std::string origin_sid;
  std::string origin_database;
  std::string target_sid;
  std::string target_database;

  /// "catalog_<origin SID>_<origin database>_": how the names of all files of the origin begin.
  [[nodiscard]] std::string origin_start() const;
  /// Names without a directory; each part is encoded, so that none leaves it.
  [[nodiscard]] std::string catalog_file() const;
  [[nodiscard]] std::string restore_file() const;
  [[nodiscard]] json_spirit::Object params() const;

  /// Out of the name of a catalog file; false for any other name.
  [[nodiscard]] static bool from_file(const std::string& file, Staged_Name& name);
  /// False with what is wrong.
  [[nodiscard]] static bool from_params(const json_spirit::Object& params, Staged_Name& name, std::string& error);

  friend bool operator==(const Staged_Name&, const Staged_Name&) = default;
};

inline constexpr const char* staged_catalog_start = "catalog_";
inline constexpr const char* staged_restore_start = "restore_";

}  // namespace agentd
