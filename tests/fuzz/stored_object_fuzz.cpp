#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "fuzz/small_host.h"
#include "hdbbackint/stream/block_encoder.h"
#include "hdbbackint/stream/stored_decoder.h"
#include "hdbbackint/stream/stream_limits.h"

// An object as it may come back from a pool: the header of its container, its blocks and its end. The first byte picks
// the method, the rest is the object. How much is asked for at a time changes nothing; an object that is refused says
// why; and what is stored comes back.

namespace {

using namespace hdbbackint;

constexpr Compression_Method methods[] = {COMPR_NONE, COMPR_ZSTD, COMPR_LZOP};
/// A few bytes can stand for a stream of any length.
constexpr std::size_t longest_output = 4U << 20;
constexpr int level = 1;

class Text_Input : public Byte_Input {
 public:
  Text_Input(std::string_view text, std::size_t piece) : text_(text), piece_(piece) {}
  ssize_t read(char* data, std::size_t size) override {
    const std::size_t count = std::min({size, piece_, text_.size()});
    if (count != 0) std::memcpy(data, text_.data(), count);
    text_.remove_prefix(count);
    return static_cast<ssize_t>(count);
  }
  const std::string& error() const override { return none_; }

 private:
  std::string_view text_;
  std::size_t piece_;
  std::string none_;
};

struct Decoded {
  bool good = false;
  bool cut = false;  ///< the rest was not asked for
  std::string text;
};

Decoded decode(Compression_Method method, std::string_view stored, std::size_t piece, std::size_t wanted) {
  Text_Input input(stored, piece);
  const auto decoder = make_stored_decoder(method, input);
  fuzz::require(decoder != nullptr);
  Decoded decoded;
  std::string buffer(wanted, '\0');
  while (decoded.text.size() < longest_output) {
    const ssize_t got = decoder->read(buffer.data(), wanted);
    if (got < 0) {
      fuzz::require(!decoder->error().empty());
      return decoded;
    }
    if (got == 0) {
      decoded.good = true;
      return decoded;
    }
    decoded.text.append(buffer, 0, static_cast<std::size_t>(got));
  }
  decoded.cut = true;
  return decoded;
}

void read_in_two_ways(Compression_Method method, std::string_view stored) {
  constexpr std::size_t large = 64U << 10;
  const Decoded whole = decode(method, stored, stored.size() + 1, large);
  const Decoded pieces = decode(method, stored, 1 + stored.size() / 7, 4099);
  if (whole.cut || pieces.cut) return;
  fuzz::require(whole.good == pieces.good);
  if (whole.good) fuzz::require(whole.text == pieces.text);
}

/// Stores the bytes as hdbbackint does, in one block, and reads them back.
void store_and_read(Compression_Method method, std::string_view bytes) {
  if (method == COMPR_NONE || bytes.size() > block_bytes / 2) return;
  Block_Encoder encoder;
  Buffer block;
  std::size_t block_size = 0;
  std::string error;
  std::string stored(stored_header(method));
  if (!bytes.empty()) {
    fuzz::require(encoder.encode(method, level, bytes.data(), bytes.size(), block, block_size, error));
    stored.append(block.data(), block_size);
  }
  stored += stored_trailer(method, !bytes.empty());
  const Decoded decoded = decode(method, stored, stored.size(), stored.size() + 1);
  fuzz::require(decoded.good && decoded.text == bytes);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const Compression_Method method = methods[data[0] % std::size(methods)];
  const std::string_view rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  read_in_two_ways(method, rest);
  store_and_read(method, rest);
  return 0;
}
