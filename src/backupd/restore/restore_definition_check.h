#pragma once

#include <string>

#include "backupd/outcome.h"
#include "json/value.h"

namespace backupd {

/// Checks what a definition of a restore says beyond what all definitions do: docs/formats/restore-source.md,
/// restore-options.md. Names of databases and systems go into a statement of HANA's, so they must be plain.
[[nodiscard]] Outcome check_restore_source(const json_spirit::Object& source);
[[nodiscard]] Outcome check_restore_options(const json_spirit::Object& options);
/// {"resource_uuid"}: the system that is restored into.
[[nodiscard]] Outcome check_restore_target(const json_spirit::Object& target, std::string& resource_uuid);

/// Three capital letters or digits, the first a letter.
[[nodiscard]] bool is_system_id(const std::string& text);

}  // namespace backupd
