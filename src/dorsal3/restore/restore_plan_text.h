#pragma once

#include <ostream>

#include "json/value.h"

namespace dorsal3 {

/// A plan as text: target, what happens to it, sets with their objects, statement, notes and refusals.
void print_restore_plan(const json_spirit::Object& plan, std::ostream& out);

/// What will be down, and what will be lost, in a sentence each.
[[nodiscard]] std::string what_stops(const json_spirit::Object& plan);
[[nodiscard]] std::string what_is_overwritten(const json_spirit::Object& plan);

}  // namespace dorsal3
