#include "records/dataset_directory.h"

#include <charconv>

#include "platform/files.h"

namespace {

/// Two names that are cut to one segment are told apart by their backups' ids.
constexpr std::size_t segment_limit_bytes = 160;
constexpr std::size_t digits_of_byte = 2;
constexpr int hexadecimal = 16;

bool is_plain(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_' ||
         c == '$' || c == '#';
}

/// The byte that stands as %XX at the beginning of `text`. False for anything else.
bool read_byte(std::string_view text, char& byte) {
  if (text.size() <= digits_of_byte || text.front() != '%') return false;
  unsigned char value = 0;
  const char* const end = text.data() + 1 + digits_of_byte;
  const auto read = std::from_chars(text.data() + 1, end, value, hexadecimal);
  if (read.ec != std::errc() || read.ptr != end) return false;
  byte = static_cast<char>(value);
  return true;
}

}  // namespace

std::string dataset_segment(std::string_view name) {
  std::string segment;
  for (const char c : name) segment += is_plain(c) ? std::string(1, c) : platform::encode_file_name({&c, 1});
  return segment.substr(0, segment_limit_bytes);
}

std::string former_dataset_segment(std::string_view name) {
  return platform::encode_file_name(name).substr(0, segment_limit_bytes);
}

std::string dataset_name(std::string_view segment) {
  std::string name;
  for (std::size_t at = 0; at < segment.size(); ++at) {
    char byte = segment[at];
    if (read_byte(segment.substr(at), byte)) at += digits_of_byte;
    name += byte;
  }
  return name;
}

bool is_cut_dataset_segment(std::string_view segment) { return segment.size() >= segment_limit_bytes; }
