#pragma once

#include "hana/common/text_process_handler.h"

namespace sap_hana {

/// Runs with the data backup's command and notices that the backup was cancelled by a user.
class HDBSQL_Error_Msg_Handler : public Text_Process_Handler {
 public:
  HDBSQL_Error_Msg_Handler();
  int handle_stdout_line(const char* line, std::size_t length) override;
  [[nodiscard]] bool is_canceled() const { return is_canceled_; }

 private:
  bool is_canceled_ = false;
};

}  // namespace sap_hana
