#pragma once

#include <cstdint>
#include <vector>

#include "job/default_backup_job_source.h"
#include "job/job_source.h"
#include "json/json_state.h"
#include "json/yajl_parser_t.h"

/// Reads a Default_Backup_Job_Source: {"id": text, "name": text, "entries": [text, ...]}. "id" and "entries" are
/// needed; another key is refused with JSON_PARSER_E_UNKNOWN_KEY, another type with JSON_PARSER_E_INVALID_VALUE_TYPE.
class Default_Backup_Job_Source_Parser : public YAJL_Parser<Job_Source> {
 public:
  Default_Backup_Job_Source_Parser();

  bool handle_null_i() override { return refuse_type(); }
  bool handle_boolean_i(bool) override { return refuse_type(); }
  bool handle_number_i(const char*, std::size_t) override { return refuse_type(); }
  bool handle_string_i(const char* text, std::size_t length) override;
  bool handle_start_map_i() override;
  bool handle_map_key_i(const char* text, std::size_t length) override;
  bool handle_end_map_i() override;
  bool handle_start_array_i() override;
  bool handle_end_array_i() override;
  Result result() override { return result_; }

 private:
  enum Key_Bit : unsigned { ID_BIT = 1, NAME_BIT = 2, ENTRIES_BIT = 4, REQUIRED_BITS = ID_BIT | ENTRIES_BIT };
  static const Key2_Value_T<unsigned> key_table_[];

  Result result_;
  Default_Backup_Job_Source* source_;  ///< result_'s; null when it could not be allocated
  std::vector<JSON_State> states_;
};
