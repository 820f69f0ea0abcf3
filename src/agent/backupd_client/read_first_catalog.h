#pragma once

#include "json/value.h"

/// Reads a list of backupd ({"total", "rows"}) and gives its first row; null and true when there is none, at once.
/// `path` is percent-encoded, with its query. `retries` attempts at most (one at least), none later than `timeout`
/// seconds after the first (negative: no limit); only a missing answer and 5xx are tried again. An answer that is an
/// object without "rows" is the record itself. False otherwise; the cause is logged. Any thread.
[[nodiscard]] bool read_first_catalog(const char* path, json_spirit::Value& value, int retries, int timeout);
