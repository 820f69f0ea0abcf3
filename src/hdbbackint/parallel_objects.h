#pragma once

#include <cstddef>
#include <functional>

namespace hdbbackint {

/// Calls `serve` for 0 to `count` - 1, up to `parallel` at once, taking them in order: none is put off until a later
/// one is done. Returns when all are.
void serve_in_order(std::size_t count, std::size_t parallel, const std::function<void(std::size_t index)>& serve);

}  // namespace hdbbackint
