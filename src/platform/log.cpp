#include "platform/log.h"

#include <ace/OS_NS_unistd.h>

#include <fstream>
#include <memory>

#include "platform/file_root.h"

namespace platform {

std::string cut_for_log(std::string_view text, std::size_t limit) {
  if (text.size() <= limit) return std::string(text);
  return std::string(text.substr(0, limit)) + "...";
}

void open_program_log(const char* program, const std::string& file) {
  ACE_Log_Msg* log = ACE_Log_Msg::instance();
  unsigned long flags = ACE_Log_Msg::STDERR;
  if (!file.empty()) {
    // ACE keeps a pointer to the stream and deletes it with its last instance.
    auto stream = std::make_unique<std::ofstream>(File_Root::current().real(file), std::ios::app);
    if (stream->is_open()) {
      log->msg_ostream(stream.release(), true);
      flags |= ACE_Log_Msg::OSTREAM;
    }
  }
  log->open(program, flags | ACE_Log_Msg::VERBOSE_LITE);
}

}  // namespace platform
