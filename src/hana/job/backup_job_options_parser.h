#pragma once

#include <vector>

#include "job/job_options.h"
#include "json/json_state.h"
#include "json/yajl_parser_t.h"

namespace sap_hana {

/// Reads Backup_Job_Options. An unknown key of the top object has the meaning of the known key before it.
class Backup_Job_Options_Parser : public YAJL_Parser<Job_Options> {
 public:
  Backup_Job_Options_Parser();

  bool handle_number_i(const char* text, std::size_t length) override;
  bool handle_string_i(const char* text, std::size_t length) override;
  bool handle_start_map_i() override;
  bool handle_map_key_i(const char* text, std::size_t length) override;
  bool handle_end_map_i() override;
  Result result() override { return result_; }

 private:
  enum Key_Bit : unsigned { COMPRESSION_BIT = 1, COMPRESSION_LEVEL_BIT = 2 };
  static const Key2_Value_T<unsigned int> key_table_1[];

  Result result_;
  std::vector<JSON_State> states_;
};

}  // namespace sap_hana
