#pragma once

#include <string>

#include "dorsal3/outcome.h"
#include "dorsal3/verb.h"
#include "json/value.h"
#include "platform/secure_string.h"

// The tenant that a restore goes into is created before it, when that is wanted. `plan` is the restore's. One thread.

namespace dorsal3 {

/// Whether the plan says that its target is to be created.
[[nodiscard]] bool plans_creation(const json_spirit::Object& plan);

/// Has the target's host create it, not started; `password` becomes that of its user SYSTEM. False with `failure` when
/// it was not created, when nobody knows, or when the operator does not want to go on.
[[nodiscard]] bool create_tenant(Context& context, const json_spirit::Object& plan, const secure_string& password,
                                 Failure& failure);

/// Tells in an outcome of the restore that came after it that the tenant was created, and that it stays when the
/// restore went wrong.
void mention_creation(const json_spirit::Object& plan, Outcome& outcome);

}  // namespace dorsal3
