#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "chains/chain_system.h"

namespace chains {

/// The content of a database: pages by volume and number.
using Pages = std::map<std::pair<std::string, std::uint64_t>, std::string>;

/// What comes of these sets of one database when each is laid over those before it. Every object is read back by
/// hdbbackint, as HANA has it do.
[[nodiscard]] Pages restored_from(const Chain_System& system, const std::vector<json_spirit::Object>& chain);

/// The content of a full backup that HANA made to files.
[[nodiscard]] Pages read_from_files(const Chain_System& system, const std::string& database, std::uint64_t id);

}  // namespace chains
