#include "hdbbackint/stream/method_choice.h"

#include <string>

#include "hdbbackint/stream/block_encoder.h"

namespace hdbbackint {

namespace {

constexpr std::size_t whole_percent = 100;
/// Compression costs time on both ways; below this it does not pay.
constexpr std::size_t largest_worthwhile_percent = 95;
/// How much larger lzop's result may be for its speed.
constexpr std::size_t lzop_allowance_percent = 110;

/// Compressed size of the sample; false when it cannot be compressed.
bool measure(Compression_Method method, int level, const std::vector<std::string_view>& sample, std::size_t& total) {
  Block_Encoder encoder;
  Buffer out;
  total = 0;
  for (const std::string_view block : sample) {
    std::size_t size = 0;
    std::string error;
    if (!encoder.encode(method, level, block.data(), block.size(), out, size, error)) return false;
    total += size;
  }
  return true;
}

}  // namespace

Compression_Method choose_method(const std::vector<std::string_view>& sample, int level) {
  std::size_t raw = 0;
  for (const std::string_view block : sample) raw += block.size();
  if (raw == 0) return COMPR_NONE;
  std::size_t lzop = 0;
  std::size_t zstd = 0;
  if (!measure(COMPR_LZOP, level, sample, lzop) || !measure(COMPR_ZSTD, level, sample, zstd)) return COMPR_NONE;
  const std::size_t worthwhile = raw * largest_worthwhile_percent / whole_percent;
  if (lzop > worthwhile && zstd > worthwhile) return COMPR_NONE;
  return lzop <= zstd * lzop_allowance_percent / whole_percent ? COMPR_LZOP : COMPR_ZSTD;
}

}  // namespace hdbbackint
