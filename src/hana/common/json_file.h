#pragma once

#include <sys/types.h>

#include <string>

#include "json/value.h"

namespace sap_hana {

/// Reads a file that holds one JSON document. False when it cannot be read or is none; logs nothing: a foreign file
/// beside ours is no failure. `flags` chooses among dialects that do not exist here and is not looked at.
[[nodiscard]] bool load_json(const std::string& path, json_spirit::Value& value, int flags);

/// Writes a document beside, syncs and renames it. False, with a message, when it cannot be written. `flags` and
/// `pretty` choose among forms that are not used here: the text has no blanks.
[[nodiscard]] bool dump_json(const std::string& path, const json_spirit::Value& value, int flags, bool pretty,
                             mode_t mode);

}  // namespace sap_hana
