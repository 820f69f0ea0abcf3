#pragma once

#include <string>
#include <string_view>

// Directories of a pool: the objects of one backup lie in "<host uuid>/<landscape id>/<database>/<backup id>". Who
// stores them, who stops a backup and who sweeps a pool must all mean the same one.

/// A name as one segment of such a path: as it stands when it consists of letters, digits and "-_$#", as the names of
/// databases that HANA knows without quotes do, else with all other bytes as %XX; cut after 160 bytes. Empty for an
/// empty name, of which nothing is stored.
[[nodiscard]] std::string dataset_segment(std::string_view name);

/// The segment that was used for the name before: it had '_' as %5F too.
[[nodiscard]] std::string former_dataset_segment(std::string_view name);

/// The name that a segment of either kind stands for, as far as it was not cut.
[[nodiscard]] std::string dataset_name(std::string_view segment);
/// True for a segment that is so long that it may be the beginning of a name only.
[[nodiscard]] bool is_cut_dataset_segment(std::string_view segment);
