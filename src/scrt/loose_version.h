#pragma once

#include <string_view>

/// Compares dotted versions part by part as numbers ("1.00.62.380697" is older than "1.00.100"). A missing part is
/// older than a present one; a part that is no number counts by its leading digits. Below 0, 0 or above 0.
[[nodiscard]] int compare_loose_versions(std::string_view left, std::string_view right);
