#pragma once

#include "agent/instance/instance_manager.h"
#include "json/value.h"

namespace agentd {

/// What backups and restores need of the instance's installation: rows {"name", "ok", "message"} for its programs
/// ("installation"), for the place where it looks for a Backint agent ("backint link") and for a statement by which its
/// next start would be a recovery ("pending recovery"). An instance whose record tells neither has no row. Changes
/// nothing.
[[nodiscard]] json_spirit::Array check_installation(const Instance& instance);

/// A row of a check.
[[nodiscard]] json_spirit::Object check_row(const char* name, bool ok, const std::string& message);

}  // namespace agentd
