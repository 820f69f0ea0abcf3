#pragma once

#include <cstdint>
#include <vector>

#include "hana/job/restore_job_source.h"
#include "job/job_source.h"
#include "json/json_state.h"
#include "json/yajl_parser_t.h"

namespace sap_hana {

/// Reads a Restore_Job_Source. A key that is unknown at its level has the meaning of the known key before it.
class Restore_Job_Source_Parser : public YAJL_Parser<Job_Source> {
 public:
  Restore_Job_Source_Parser();

  bool handle_string_i(const char* text, std::size_t length) override;
  bool handle_start_map_i() override;
  bool handle_map_key_i(const char* text, std::size_t length) override;
  bool handle_end_map_i() override;
  bool handle_start_array_i() override;
  bool handle_end_array_i() override;
  Result result() override { return result_; }

 private:
  enum Key_Bit : unsigned {
    ID_BIT = 1,
    NAME_BIT = 2,
    ENTRIES_BIT = 4,
    ORIGINAL_BIT = 8,
    ORIGINAL_DATABASE_BIT = 16,
    RESTORE_AS_BIT = 32,
    RESTORE_AS_DATABASE_BIT = 64,
    CATALOG_UUID_BIT = 128,
    RESTORE_AS_TIMEPOINT_BIT = 256,
    RESTORE_AS_LIFELINE_BIT = 512,
    ORIGINAL_SID_BIT = 1024,
    COMMON_BIT = ID_BIT | NAME_BIT | ENTRIES_BIT,
    ORIGINAL_COMMON_BIT = ORIGINAL_DATABASE_BIT | ORIGINAL_SID_BIT
  };
  enum Depth : std::size_t { TOP_DEPTH = 1, ENTRY_DEPTH = 3, PART_DEPTH = 4 };

  static const Key2_Value_T<unsigned int> key_table_1[];
  static const Key2_Value_T<unsigned int> key_table_2[];
  static const Key2_Value_T<unsigned int> key_table_origin[];
  static const Key2_Value_T<unsigned int> key_table_restore[];

  [[nodiscard]] const Key2_Value_T<unsigned int>* current_table() const;
  [[nodiscard]] bool set_top_text(const std::string& text);
  [[nodiscard]] bool set_entry_text(const std::string& text);
  [[nodiscard]] bool set_part_text(const std::string& text);
  [[nodiscard]] bool end_document();
  [[nodiscard]] bool end_entry();
  [[nodiscard]] bool end_original();
  [[nodiscard]] bool fail(int code);

  Result result_;
  Restore_Job_Source* source_;  ///< result_'s; null when it could not be allocated
  std::vector<JSON_State> states_;
  Restore_Job_Source::Entry_Item item_;
};

}  // namespace sap_hana
