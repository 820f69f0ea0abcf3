#include "hana/common/hdbsql_error_msg_handler.h"

#include <string_view>

namespace sap_hana {

namespace {

constexpr std::string_view cancel_text = "Backup was canceled by user";
constexpr long unfinished_line_seconds = 60;

}  // namespace

HDBSQL_Error_Msg_Handler::HDBSQL_Error_Msg_Handler() : Text_Process_Handler(0, unfinished_line_seconds) {}

int HDBSQL_Error_Msg_Handler::handle_stdout_line(const char* line, std::size_t length) {
  if (line == nullptr || length == 0) return -1;
  if (std::string_view(line, length).find(cancel_text) != std::string_view::npos) is_canceled_ = true;
  return 0;
}

}  // namespace sap_hana
