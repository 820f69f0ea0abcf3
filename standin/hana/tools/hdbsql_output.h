#pragma once

#include <cstdio>
#include <string>

#include "base/wire.h"
#include "tools/hdbsql_options.h"

namespace standin {

/// Prints an answer with rows as hdbsql does.
void print_rows(const Hdbsql_Options& options, const Message& answer, double overall_microseconds, std::FILE* out);
/// "0 rows affected (overall time ...)" and a blank line.
void print_affected(const Message& answer, double overall_microseconds, std::FILE* out);

}  // namespace standin
