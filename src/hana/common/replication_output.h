#pragma once

#include <string_view>

#include "hana/common/replication_state_getter.h"

namespace sap_hana {

/// What hdbnsutil prints about replication: "mode" and "operation mode" at the start of their lines, followed by ':'
/// (or
/// '=' in its machine-readable form). True when there is a mode and it is not empty.
[[nodiscard]] bool parse_replication_state(std::string_view text, Replication_State_Getter::Replication_State& state);

}  // namespace sap_hana
