#include "platform/log.h"

#include <ace/OS_NS_unistd.h>

#include "platform/log_file.h"

namespace platform {

namespace {

/// Of one character of UTF-8, after its first byte.
constexpr std::size_t most_following_bytes = 3;

bool is_following_byte(char byte) {
  constexpr unsigned kind_bits = 0xC0;
  constexpr unsigned following = 0x80;
  return (static_cast<unsigned char>(byte) & kind_bits) == following;
}

}  // namespace

std::string cut_for_log(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  // Such texts go into documents too, and half a character would make those unreadable.
  for (std::size_t back = 0; back < most_following_bytes && limit > 0 && is_following_byte(text[limit]); ++back)
    --limit;
  return std::string(text.substr(0, limit)) + "...";
}

void open_program_log(const char* program, const std::string& file) {
  unsigned long flags = ACE_Log_Msg::STDERR;
  if (!file.empty() && log_to_file(file)) flags |= ACE_Log_Msg::OSTREAM;
  ACE_Log_Msg::instance()->open(program, flags | ACE_Log_Msg::VERBOSE_LITE);
}

}  // namespace platform
