#include "hana/common/text_process_handler.h"

namespace sap_hana {

Text_Process_Handler::~Text_Process_Handler() = default;

int Text_Process_Handler::handle_stdout_line(const char*, std::size_t) { return 0; }

int Text_Process_Handler::handle_stderr_line(const char* line, std::size_t length) {
  return handle_stdout_line(line, length);
}

int Text_Process_Handler::handle_stdout_segment(const char* data, std::size_t length) {
  return handle_stdout_line(data, length);
}

int Text_Process_Handler::handle_stdout_close() { return 0; }
int Text_Process_Handler::handle_stderr_close() { return 0; }

}  // namespace sap_hana
