#pragma once

#include <string>

#include "records/pool_info.h"

/// Reads a pool's record from backupd. `name`, when not null, must be the pool's name too. A pool that backupd serves
/// itself gets its url below the server's own. The arguments without a name choose among kinds of pool that do not
/// exist here and are not looked at. False when there is no such pool or no answer; the cause is logged. Any thread.
[[nodiscard]] bool get_pool_info(const std::string& uuid, const char* name, Pool_Info& info, bool, int, const char*,
                                 bool, const char*, const char*, bool);
