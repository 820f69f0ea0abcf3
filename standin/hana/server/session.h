#pragma once

#include "base/wire.h"
#include "server/statements.h"

namespace standin {

/// Serves one connection of a tool until it ends.
void serve_connection(Instance& instance, int fd);

}  // namespace standin
