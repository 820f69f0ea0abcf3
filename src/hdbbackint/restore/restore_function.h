#pragma once

#include "hdbbackint/call.h"

namespace hdbbackint {

/// Restores every object of the call and answers each.
void run_restore(const Call& call);

}  // namespace hdbbackint
