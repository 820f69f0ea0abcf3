#pragma once

#include <iosfwd>

#include "json/value.h"

namespace dorsal3 {

/// Writes the chain of logs of one database, as log_chain made it, for people: a table with one line a service, then
/// every gap and overlap.
void print_log_chain(const json_spirit::Object& database, std::ostream& out);

}  // namespace dorsal3
