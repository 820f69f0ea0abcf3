#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>

#include "hdbbackint/stream/buffer.h"
#include "records/compression_method.h"

namespace hdbbackint {

/// Compresses single blocks of a stream, each on its own, so that several threads can work on one stream and any
/// standard tool reads the result. Format of the stored object: docs/formats/stored-object.md. One thread.
class Block_Encoder {
 public:
  Block_Encoder();
  ~Block_Encoder();
  Block_Encoder(const Block_Encoder&) = delete;
  Block_Encoder& operator=(const Block_Encoder&) = delete;

  /// `method` is COMPR_LZOP or COMPR_ZSTD, `size` at most block_bytes. The compressed block stands in `out`,
  /// `out_size` bytes long. False with a reason.
  [[nodiscard]] bool encode(Compression_Method method, int level, const char* data, std::size_t size, Buffer& out,
                            std::size_t& out_size, std::string& error);
  /// Bytes that the compressors keep between blocks.
  [[nodiscard]] std::size_t memory_bytes() const;

 private:
  bool encode_zstd(int level, const char* data, std::size_t size, Buffer& out, std::size_t& out_size,
                   std::string& error);
  bool encode_lzop(int level, const char* data, std::size_t size, Buffer& out, std::size_t& out_size,
                   std::string& error);

  struct Zstd;
  std::unique_ptr<Zstd> zstd_;
  Buffer lzo_memory_;
};

/// What stands before the first and after the last block of an object; the trailer of a zstd object is empty, unless
/// it has no block at all.
[[nodiscard]] std::string_view stored_header(Compression_Method method);
[[nodiscard]] std::string_view stored_trailer(Compression_Method method, bool has_blocks);
/// Ending of the object's name on the pool: "", ".lzo", ".zst".
[[nodiscard]] std::string_view stored_suffix(Compression_Method method);

}  // namespace hdbbackint
