#pragma once

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "engine/volume_reader.h"

namespace standin {

/// Takes a stream of text: a log's or a catalog's.
struct Text_Stream {
  Text_Stream()
      : reader([this](std::uint64_t number, bool, const char* page) {
          pages.resize(std::max<std::size_t>(pages.size(), (number + 1) * page_bytes));
          std::memcpy(pages.data() + number * page_bytes, page, page_bytes);
          return true;
        }) {}
  Text_Stream(const Text_Stream&) = delete;
  Text_Stream& operator=(const Text_Stream&) = delete;
  /// Nothing when the stream is not whole.
  std::optional<std::string> text() {
    const auto bytes = static_cast<std::size_t>(reader.number("bytes"));
    if (!reader.finish() || bytes > pages.size()) return std::nullopt;
    return pages.substr(0, bytes);
  }
  std::string pages;
  Volume_Reader reader;
};

}  // namespace standin
