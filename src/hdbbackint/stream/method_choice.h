#pragma once

#include <cstddef>
#include <string_view>
#include <vector>

#include "records/compression_method.h"

namespace hdbbackint {

/// Picks the method for COMPR_AUTO by compressing `sample`, the first blocks of the stream: none where nothing is won,
/// lzop where zstd would win little more, else zstd.
[[nodiscard]] Compression_Method choose_method(const std::vector<std::string_view>& sample, int level);

}  // namespace hdbbackint
