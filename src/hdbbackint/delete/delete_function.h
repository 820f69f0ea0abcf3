#pragma once

#include "hdbbackint/call.h"

namespace hdbbackint {

/// Deletes every object of the call and answers each. An object that a kept backup set holds stays.
void run_delete(const Call& call);

}  // namespace hdbbackint
