#pragma once

#include <iosfwd>

#include "json/value.h"

namespace dorsal3 {

/// Writes the chains of one database, as database_chains made them, as a tree with one line a set.
void print_chains(const json_spirit::Object& database, std::ostream& out);

}  // namespace dorsal3
