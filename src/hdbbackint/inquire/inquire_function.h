#pragma once

#include "hdbbackint/call.h"

namespace hdbbackint {

/// Answers which versions there are, newest first.
void run_inquire(const Call& call);

/// The time of a backup record ("YYYY-MM-DD HH:MM:SS") as HANA reads it: "YYYY-MM-DDTHH:MM:SS.000Z". Empty for a record
/// without one.
[[nodiscard]] std::string inquire_timestamp(const std::string& backup_time);

}  // namespace hdbbackint
