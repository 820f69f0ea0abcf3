#include "platform/log.h"

#include <ace/OS_NS_unistd.h>

#include "platform/log_file.h"

namespace platform {

std::string cut_for_log(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  return std::string(text.substr(0, limit)) + "...";
}

void open_program_log(const char* program, const std::string& file) {
  unsigned long flags = ACE_Log_Msg::STDERR;
  if (!file.empty() && log_to_file(file)) flags |= ACE_Log_Msg::OSTREAM;
  ACE_Log_Msg::instance()->open(program, flags | ACE_Log_Msg::VERBOSE_LITE);
}

}  // namespace platform
