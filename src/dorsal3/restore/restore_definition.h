#pragma once

#include <string>

#include "json/value.h"

namespace dorsal3 {

/// The job definition that carries a plan out; `plan` as the server made it. The same plan gives the same definition,
/// so that a restore that is asked for again does not leave another one behind.
[[nodiscard]] json_spirit::Object restore_definition(const json_spirit::Object& plan);

/// The time that HANA must reach for the plan to be fulfilled, UTC; empty when it does not tell one, as for a full
/// backup alone. The end of a delta needs no log behind it: HANA must get as far as its begin.
[[nodiscard]] std::string time_to_reach(const json_spirit::Object& plan);

}  // namespace dorsal3
