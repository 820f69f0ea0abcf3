#pragma once

#include <vector>

#include "job/job_options.h"
#include "json/json_state.h"
#include "json/yajl_parser_t.h"

namespace sap_hana {

/// Reads Restore_Job_Options. An unknown key of the top object has the meaning of the known key before it; a string
/// anywhere stops the parse.
class Restore_Job_Options_Parser : public YAJL_Parser<Job_Options> {
 public:
  Restore_Job_Options_Parser();

  bool handle_boolean_i(bool value) override;
  bool handle_string_i(const char* text, std::size_t length) override;
  bool handle_start_map_i() override;
  bool handle_map_key_i(const char* text, std::size_t length) override;
  bool handle_end_map_i() override;
  Result result() override { return result_; }

 private:
  enum Key_Bit : unsigned { IGNORE_DELTA_BIT = 1 };
  static const Key2_Value_T<unsigned int> key_table_1[];

  Result result_;
  std::vector<JSON_State> states_;
};

}  // namespace sap_hana
