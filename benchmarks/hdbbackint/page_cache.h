#pragma once

#include <filesystem>
#include <optional>
#include <string_view>

namespace benchmarks {

/// What the page cache holds of a file before it is read.
enum class Cache_State { warm, cold };

/// "warm" or "cold".
[[nodiscard]] std::optional<Cache_State> cache_state_of(std::string_view name);

/// Brings the file into the state and looks whether it is there: a figure of a file that is half in memory says
/// nothing. Throws std::runtime_error with the reason. What lies below a virtual disk is out of its reach.
void put_into_state(const std::filesystem::path& file, Cache_State state);

}  // namespace benchmarks
