#pragma once

#include "hdbbackint/call.h"

namespace hdbbackint {

/// Saves every object of the call and answers each.
void run_backup(const Call& call);

}  // namespace hdbbackint
