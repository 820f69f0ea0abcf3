#include "hdbbackint/stream/block_encoder.h"

#include <lzo/lzo1x.h>
#include <zstd.h>

#include <algorithm>
#include <cstring>

#include "hdbbackint/stream/lzop_format.h"
#include "hdbbackint/stream/stream_limits.h"

namespace hdbbackint {

namespace {

/// From here on zstd's tables would outgrow what a process may take beside a database.
constexpr int first_bounded_zstd_level = 5;
constexpr int bounded_hash_log = 18;
constexpr int bounded_chain_log = 18;
/// From this level on lzo compresses with its slow and thorough method.
constexpr int first_thorough_lzo_level = 7;
constexpr int most_thorough_lzo_level = 9;
constexpr std::size_t lzo_block_head_bytes = 12;
constexpr std::size_t lzo_memory_bytes = std::max<std::size_t>(LZO1X_1_MEM_COMPRESS, LZO1X_999_MEM_COMPRESS);

/// The most that lzo1x makes of `size` bytes.
constexpr std::size_t lzo_bound(std::size_t size) { return size + size / 16 + 64 + 3; }

static_assert(block_bytes % lzop::largest_block_bytes == 0);
constexpr std::size_t lzo_blocks = block_bytes / lzop::largest_block_bytes;
constexpr std::size_t lzo_output_bytes = lzo_blocks * (lzo_block_head_bytes + lzo_bound(lzop::largest_block_bytes));

void put_be16(std::string& text, std::uint16_t value) {
  text += static_cast<char>(value >> 8);
  text += static_cast<char>(value);
}
void put_be32(std::string& text, std::uint32_t value) {
  put_be16(text, static_cast<std::uint16_t>(value >> 16));
  put_be16(text, static_cast<std::uint16_t>(value));
}
void put_be32(char* to, std::uint32_t value) {
  for (int i = 0; i < 4; ++i) to[i] = static_cast<char>(value >> (24 - 8 * i));
}

std::uint32_t adler32(const char* data, std::size_t size) {
  return lzo_adler32(lzop::adler32_start, reinterpret_cast<const unsigned char*>(data), size);
}

/// Writes one block of the container, at most lzop::largest_block_bytes of data, to `to`. Bytes written, 0 on failure.
std::size_t put_lzop_block(int level, const char* data, std::size_t size, char* to, unsigned char* work, int& result) {
  char* body = to + lzo_block_head_bytes;
  auto* out = reinterpret_cast<unsigned char*>(body);
  const auto* from = reinterpret_cast<const unsigned char*>(data);
  lzo_uint compressed = 0;
  result = level >= first_thorough_lzo_level
               ? lzo1x_999_compress_level(from, size, out, &compressed, work, nullptr, 0, nullptr,
                                          std::min(level, most_thorough_lzo_level))
               : lzo1x_1_compress(from, size, out, &compressed, work);
  if (result != LZO_E_OK) return 0;
  // A block that compression does not make smaller is stored as it is.
  if (compressed >= size) {
    std::memcpy(body, data, size);
    compressed = size;
  }
  put_be32(to, static_cast<std::uint32_t>(size));
  put_be32(to + 4, static_cast<std::uint32_t>(compressed));
  put_be32(to + 8, adler32(data, size));
  return lzo_block_head_bytes + compressed;
}

std::string make_lzop_header() {
  std::string fields;
  put_be16(fields, lzop::version);
  put_be16(fields, lzop::library_version);
  put_be16(fields, lzop::version_needed);
  fields += static_cast<char>(lzop::method_lzo1x);
  fields += static_cast<char>(lzop::level);
  put_be32(fields, lzop::flag_adler32_of_data | lzop::flag_made_on_unix);
  put_be32(fields, lzop::file_mode);
  put_be32(fields, 0);  // modification time, two words: the record has the real one
  put_be32(fields, 0);
  fields += '\0';  // no name
  std::string header(reinterpret_cast<const char*>(lzop::magic), sizeof lzop::magic);
  header += fields;
  put_be32(header, adler32(fields.data(), fields.size()));
  return header;
}

std::string make_empty_zstd_frame() {
  char frame[64];
  const std::size_t size = ZSTD_compress(frame, sizeof frame, "", 0, 1);
  return ZSTD_isError(size) ? std::string() : std::string(frame, size);
}

}  // namespace

struct Block_Encoder::Zstd {
  ZSTD_CCtx* context = ZSTD_createCCtx();
  int level = 0;
  bool ready = false;
  Zstd() {
    if (context == nullptr) throw std::bad_alloc();
  }
  ~Zstd() { ZSTD_freeCCtx(context); }
  Zstd(const Zstd&) = delete;
  Zstd& operator=(const Zstd&) = delete;

  void prepare(int wanted) {
    if (ready && level == wanted) return;
    ZSTD_CCtx_reset(context, ZSTD_reset_session_and_parameters);
    ZSTD_CCtx_setParameter(context, ZSTD_c_compressionLevel, std::clamp(wanted, ZSTD_minCLevel(), ZSTD_maxCLevel()));
    ZSTD_CCtx_setParameter(context, ZSTD_c_checksumFlag, 1);
    if (wanted >= first_bounded_zstd_level) {
      ZSTD_CCtx_setParameter(context, ZSTD_c_hashLog, bounded_hash_log);
      ZSTD_CCtx_setParameter(context, ZSTD_c_chainLog, bounded_chain_log);
    }
    level = wanted;
    ready = true;
  }
};

Block_Encoder::Block_Encoder() = default;
Block_Encoder::~Block_Encoder() = default;

bool Block_Encoder::encode(Compression_Method method, int level, const char* data, std::size_t size, Buffer& out,
                           std::size_t& out_size, std::string& error) {
  if (method == COMPR_ZSTD) return encode_zstd(level, data, size, out, out_size, error);
  if (method == COMPR_LZOP) return encode_lzop(level, data, size, out, out_size, error);
  error = "compression method " + std::to_string(method) + " does not compress blocks";
  return false;
}

std::size_t Block_Encoder::memory_bytes() const {
  return lzo_memory_.capacity() + (zstd_ ? ZSTD_sizeof_CCtx(zstd_->context) : 0);
}

bool Block_Encoder::encode_zstd(int level, const char* data, std::size_t size, Buffer& out, std::size_t& out_size,
                                std::string& error) {
  if (!zstd_) zstd_ = std::make_unique<Zstd>();
  zstd_->prepare(level);
  char* to = out.reserve(ZSTD_compressBound(block_bytes));
  const std::size_t result = ZSTD_compress2(zstd_->context, to, out.capacity(), data, size);
  if (ZSTD_isError(result)) {
    error = std::string("zstd cannot compress: ") + ZSTD_getErrorName(result);
    return false;
  }
  out_size = result;
  return true;
}

bool Block_Encoder::encode_lzop(int level, const char* data, std::size_t size, Buffer& out, std::size_t& out_size,
                                std::string& error) {
  char* to = out.reserve(lzo_output_bytes);
  auto* work = reinterpret_cast<unsigned char*>(lzo_memory_.reserve(lzo_memory_bytes));
  out_size = 0;
  for (std::size_t at = 0; at < size; at += lzop::largest_block_bytes) {
    int result = LZO_E_OK;
    out_size +=
        put_lzop_block(level, data + at, std::min(lzop::largest_block_bytes, size - at), to + out_size, work, result);
    if (result != LZO_E_OK) {
      error = "lzo cannot compress: error " + std::to_string(result);
      return false;
    }
  }
  return true;
}

std::string_view stored_header(Compression_Method method) {
  static const std::string lzop_header = make_lzop_header();
  return method == COMPR_LZOP ? std::string_view(lzop_header) : std::string_view();
}

std::string_view stored_trailer(Compression_Method method, bool has_blocks) {
  static const std::string empty_frame = make_empty_zstd_frame();
  constexpr std::string_view lzop_end("\0\0\0\0", 4);
  if (method == COMPR_LZOP) return lzop_end;
  return method == COMPR_ZSTD && !has_blocks ? std::string_view(empty_frame) : std::string_view();
}

std::string_view stored_suffix(Compression_Method method) {
  if (method == COMPR_LZOP) return ".lzo";
  return method == COMPR_ZSTD ? std::string_view(".zst") : std::string_view();
}

}  // namespace hdbbackint
