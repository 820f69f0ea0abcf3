#pragma once

#include <cstddef>
#include <cstdint>

// The container of the lzop tool: a header, blocks (length before, length after, checksum of the block before, data)
// and a length of 0 at the end. All numbers are big-endian.

namespace hdbbackint::lzop {

inline constexpr unsigned char magic[] = {0x89, 'L', 'Z', 'O', 0x00, 0x0d, 0x0a, 0x1a, 0x0a};
inline constexpr std::uint16_t version = 0x1040;
inline constexpr std::uint16_t library_version = 0x20a0;
inline constexpr std::uint16_t version_needed = 0x0940;
inline constexpr std::uint8_t method_lzo1x = 1;
inline constexpr std::uint8_t level = 5;
/// Each block carries the Adler-32 of its bytes before compression; made on Unix.
inline constexpr std::uint32_t flag_adler32_of_data = 0x00000001;
inline constexpr std::uint32_t flag_made_on_unix = 0x03000000;
inline constexpr std::uint32_t file_mode = 0100640;
/// The seed of every Adler-32.
inline constexpr std::uint32_t adler32_start = 1;
/// The lzop tool refuses larger blocks as those of another build of itself.
inline constexpr std::size_t largest_block_bytes = 256U << 10;

}  // namespace hdbbackint::lzop
