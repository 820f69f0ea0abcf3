#include "hdbbackint/stream/stored_decoder.h"

#include <lzo/lzo1x.h>
#include <zstd.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>

#include "hdbbackint/stream/buffer.h"
#include "hdbbackint/stream/lzop_format.h"
#include "hdbbackint/stream/stream_limits.h"

namespace hdbbackint {

namespace {

/// Objects of ours need far less; a damaged one must not ask for more.
constexpr int largest_window_log = 23;
constexpr std::size_t input_bytes = 128U << 10;
/// Of zstd: the mark, a byte of flags, window, dictionary and content size.
constexpr std::size_t longest_frame_header = 18;

/// What every decoder shares: reading exactly as much as the format asks for.
class Decoder : public Byte_Input {
 public:
  explicit Decoder(Byte_Input& stored) : stored_(stored) {}
  [[nodiscard]] const std::string& error() const override { return error_; }

 protected:
  ssize_t fail(const std::string& why) {
    error_ = why;
    return -1;
  }
  ssize_t damaged(const std::string& how) { return fail("the stored object is damaged: " + how); }
  ssize_t read_stored(char* data, std::size_t size) {
    const ssize_t got = stored_.read(data, size);
    return got < 0 ? fail(stored_.error()) : got;
  }
  /// All of `size`, else -1: `how` says in what way the object is damaged when it ends before.
  ssize_t read_whole(char* data, std::size_t size, const char* how) {
    std::size_t filled = 0;
    while (filled < size) {
      const ssize_t got = read_stored(data + filled, size - filled);
      if (got < 0) return -1;
      if (got == 0) return damaged(how);
      filled += static_cast<std::size_t>(got);
    }
    return 0;
  }

 private:
  Byte_Input& stored_;
  std::string error_;
};

class Plain_Decoder : public Decoder {
 public:
  using Decoder::Decoder;
  ssize_t read(char* data, std::size_t size) override { return read_stored(data, size); }
};

class Zstd_Decoder : public Decoder {
 public:
  explicit Zstd_Decoder(Byte_Input& stored) : Decoder(stored), context_(ZSTD_createDCtx()) {
    if (!context_) throw std::bad_alloc();
    ZSTD_DCtx_setParameter(context_.get(), ZSTD_d_windowLogMax, largest_window_log);
  }

  ssize_t read(char* data, std::size_t size) override {
    ZSTD_outBuffer out{data, size, 0};
    while (out.pos == 0) {
      if (in_.pos == in_.size && !refill()) return -1;
      // The end is sound only between frames.
      if (in_.size == 0) return in_frame_ ? damaged("it ends within a zstd frame") : 0;
      if (!in_frame_ && !begin_frame()) return -1;
      const std::size_t result = ZSTD_decompressStream(context_.get(), &out, &in_);
      if (ZSTD_isError(result)) return damaged(ZSTD_getErrorName(result));
      given_ += out.pos;
      in_frame_ = result != 0;
      if (!in_frame_ && promised_ < ZSTD_CONTENTSIZE_ERROR && given_ != promised_)
        return damaged("a zstd frame holds less than it says");
    }
    return static_cast<ssize_t>(out.pos);
  }

 private:
  bool refill() {
    // Output may still be held back although the input is used up.
    in_ = {buffer_.reserve(input_bytes), 0, 0};
    return read_more();
  }

  /// Behind what is there; nothing at the end, which is asked for once.
  bool read_more() {
    if (at_end_) return true;
    const ssize_t got = read_stored(buffer_.data() + in_.size, input_bytes - in_.size);
    if (got < 0) return false;
    at_end_ = got == 0;
    in_.size += static_cast<std::size_t>(got);
    return true;
  }

  /// Learns how many bytes the frame has: the library does not look when its last block is empty.
  bool begin_frame() {
    while (in_.size - in_.pos < longest_frame_header && !at_end_) {
      std::memmove(buffer_.data(), buffer_.data() + in_.pos, in_.size - in_.pos);
      in_ = {buffer_.data(), in_.size - in_.pos, 0};
      if (!read_more()) return false;
    }
    // What is no frame is an error of the next step.
    promised_ = ZSTD_getFrameContentSize(buffer_.data() + in_.pos, in_.size - in_.pos);
    given_ = 0;
    return true;
  }

  struct Release {
    void operator()(ZSTD_DCtx* context) const { ZSTD_freeDCtx(context); }
  };
  std::unique_ptr<ZSTD_DCtx, Release> context_;
  Buffer buffer_;
  ZSTD_inBuffer in_{nullptr, 0, 0};
  bool in_frame_ = false;
  bool at_end_ = false;
  unsigned long long promised_ = 0;  ///< bytes of the frame; ZSTD_CONTENTSIZE_ERROR or above when it does not say
  unsigned long long given_ = 0;
};

class Lzop_Decoder : public Decoder {
 public:
  using Decoder::Decoder;

  ssize_t read(char* data, std::size_t size) override {
    if (!header_read_ && read_header() < 0) return -1;
    if (given_ == held_ && !at_end_ && read_block() < 0) return -1;
    const std::size_t count = std::min(size, held_ - given_);
    if (count == 0) return 0;  // an empty object has no block, and so no memory
    std::memcpy(data, block_.data() + given_, count);
    given_ += count;
    return static_cast<ssize_t>(count);
  }

 private:
  static std::uint32_t be32(const char* at) {
    std::uint32_t value = 0;
    for (int i = 0; i < 4; ++i) value = value << 8 | static_cast<unsigned char>(at[i]);
    return value;
  }
  static std::uint32_t adler32(const char* data, std::size_t size) {
    return lzo_adler32(lzop::adler32_start, reinterpret_cast<const unsigned char*>(data), size);
  }

  ssize_t read_header() {
    constexpr std::size_t fields_bytes = 25;  // up to the length of the name, which is empty
    constexpr std::size_t header_bytes = sizeof lzop::magic + fields_bytes + 4;
    char header[header_bytes];
    if (read_whole(header, header_bytes, "its header is cut") < 0) return -1;
    const char* fields = header + sizeof lzop::magic;
    const bool sound = std::memcmp(header, lzop::magic, sizeof lzop::magic) == 0 &&
                       be32(fields + fields_bytes) == adler32(fields, fields_bytes);
    if (!sound) return damaged("its header is not that of an lzop object");
    header_read_ = true;
    return 0;
  }

  ssize_t read_block() {
    char head[12];
    if (read_whole(head, 4, "it ends without an end mark") < 0) return -1;
    const std::uint32_t raw_size = be32(head);
    if (raw_size == 0) return finish();
    if (read_whole(head + 4, 8, "a block is cut") < 0) return -1;
    const std::uint32_t stored_size = be32(head + 4);
    if (raw_size > block_bytes || stored_size > raw_size) return damaged("a block has an impossible length");
    char* stored = stored_.reserve(block_bytes);
    char* raw = block_.reserve(block_bytes);
    if (read_whole(stored, stored_size, "a block is cut") < 0) return -1;
    lzo_uint decoded = raw_size;
    if (stored_size == raw_size) {
      std::memcpy(raw, stored, raw_size);
    } else if (lzo1x_decompress_safe(reinterpret_cast<const unsigned char*>(stored), stored_size,
                                     reinterpret_cast<unsigned char*>(raw), &decoded, nullptr) != LZO_E_OK) {
      return damaged("a block cannot be decompressed");
    }
    if (decoded != raw_size || adler32(raw, raw_size) != be32(head + 8)) {
      return damaged("the checksum of a block differs");
    }
    held_ = raw_size;
    given_ = 0;
    return 0;
  }

  ssize_t finish() {
    char more = 0;
    const ssize_t got = read_stored(&more, 1);
    if (got != 0) return got < 0 ? -1 : damaged("more bytes follow its end mark");
    at_end_ = true;
    return 0;
  }

  Buffer stored_;
  Buffer block_;
  std::size_t held_ = 0;
  std::size_t given_ = 0;
  bool header_read_ = false;
  bool at_end_ = false;
};

}  // namespace

std::unique_ptr<Byte_Input> make_stored_decoder(Compression_Method method, Byte_Input& stored) {
  switch (method) {
    case COMPR_NONE:
      return std::make_unique<Plain_Decoder>(stored);
    case COMPR_ZSTD:
      return std::make_unique<Zstd_Decoder>(stored);
    case COMPR_LZOP:
      return std::make_unique<Lzop_Decoder>(stored);
    case COMPR_AUTO:
    case COMPR_MAX:
      break;
  }
  return nullptr;
}

}  // namespace hdbbackint
