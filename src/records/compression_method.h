#pragma once

#include <cstddef>

/// How a backup stream is compressed.
enum Compression_Method {
  COMPR_NONE = 0,
  COMPR_AUTO = 1,  ///< picked by measuring the stream
  COMPR_LZOP = 2,
  COMPR_ZSTD = 3,
  COMPR_MAX = 4  ///< bound, not a method
};

/// "none", "auto", "lzop", "zstd"; an unknown name gives COMPR_NONE with a warning in the log. `name` needs no
/// terminator.
[[nodiscard]] Compression_Method compression_name_to_value(const char* name, std::size_t length);
/// Null for a value without a name.
[[nodiscard]] const char* compression_value_to_name(Compression_Method method);
