#pragma once

#include <string>

#include "json/value.h"

namespace agentd {

/// Looks at a definition document before any module sees it: names and times of a source entry, of a backup (a text) or
/// of a restore (an object), become part of statements and paths, so only HANA's own plain identifiers pass; the id
/// becomes a file's name. False with what, why and what to do in `refusal`.
[[nodiscard]] bool names_are_safe(const json_spirit::Object& definition, std::string& refusal);

/// [A-Z_][A-Z0-9_]*, at most 127 bytes.
[[nodiscard]] bool is_plain_database_name(const std::string& name);

}  // namespace agentd
