#include "hana/job/restore_job_source_parser.h"

#include <cerrno>
#include <new>
#include <string>

#include "platform/log.h"

namespace sap_hana {

const Key2_Value_T<unsigned int> Restore_Job_Source_Parser::key_table_1[] = {
    {"id", 2, ID_BIT}, {"name", 4, NAME_BIT}, {"entries", 7, ENTRIES_BIT}, {nullptr, 0, 0}};

const Key2_Value_T<unsigned int> Restore_Job_Source_Parser::key_table_2[] = {{"original", 8, ORIGINAL_BIT},
                                                                             {"restore_as", 10, RESTORE_AS_BIT},
                                                                             {"catalog_uuid", 12, CATALOG_UUID_BIT},
                                                                             {nullptr, 0, 0}};

const Key2_Value_T<unsigned int> Restore_Job_Source_Parser::key_table_origin[] = {
    {"database", 8, ORIGINAL_DATABASE_BIT}, {"sid", 3, ORIGINAL_SID_BIT}, {nullptr, 0, 0}};

const Key2_Value_T<unsigned int> Restore_Job_Source_Parser::key_table_restore[] = {
    {"database", 8, RESTORE_AS_DATABASE_BIT},
    {"timepoint", 9, RESTORE_AS_TIMEPOINT_BIT},
    {"lifeline", 8, RESTORE_AS_LIFELINE_BIT},
    {nullptr, 0, 0}};

Restore_Job_Source_Parser::Restore_Job_Source_Parser() : source_(new (std::nothrow) Restore_Job_Source) {
  if (source_ == nullptr)
    errno = ENOMEM;
  else
    result_.reset(source_);
}

bool Restore_Job_Source_Parser::fail(int code) {
  err_ = code;
  return false;
}

bool Restore_Job_Source_Parser::handle_start_map_i() {
  states_.push_back({true, 0, 0});
  return true;
}

bool Restore_Job_Source_Parser::handle_start_array_i() {
  states_.push_back({false, 0, 0});
  return true;
}

const Key2_Value_T<unsigned int>* Restore_Job_Source_Parser::current_table() const {
  switch (states_.size()) {
    case TOP_DEPTH:
      return key_table_1;
    case ENTRY_DEPTH:
      return key_table_2;
    case PART_DEPTH:
      if (states_[ENTRY_DEPTH - 1].key == ORIGINAL_BIT) return key_table_origin;
      if (states_[ENTRY_DEPTH - 1].key == RESTORE_AS_BIT) return key_table_restore;
      return nullptr;
    default:
      return nullptr;
  }
}

bool Restore_Job_Source_Parser::handle_map_key_i(const char* text, std::size_t length) {
  if (states_.empty()) return fail(JSON_PARSER_E_INVALID_LEVEL);
  const Key2_Value_T<unsigned int>* const table = current_table();
  if (table == nullptr) return true;
  if (const unsigned bit = find_key(table, text, length); bit != 0) states_.back().key = bit;
  return true;
}

bool Restore_Job_Source_Parser::handle_string_i(const char* text, std::size_t length) {
  switch (states_.size()) {
    case TOP_DEPTH:
      return set_top_text(std::string(text, length));
    case ENTRY_DEPTH:
      return set_entry_text(std::string(text, length));
    case PART_DEPTH:
      return set_part_text(std::string(text, length));
    default:
      return refuse_type();
  }
}

bool Restore_Job_Source_Parser::set_top_text(const std::string& text) {
  JSON_State& state = states_.back();
  if (!state.obj || state.key == 0) return true;
  if (state.key != ID_BIT && state.key != NAME_BIT) return refuse_type();
  if (source_ != nullptr) state.key == ID_BIT ? source_->id(text) : source_->name(text);
  state.masks |= state.key;
  return true;
}

bool Restore_Job_Source_Parser::set_entry_text(const std::string& text) {
  JSON_State& state = states_.back();
  if (state.key == 0) return true;
  if (state.key != CATALOG_UUID_BIT) return refuse_type();
  item_.catalog_uuid = text;
  state.masks |= state.key;
  return true;
}

bool Restore_Job_Source_Parser::set_part_text(const std::string& text) {
  JSON_State& state = states_.back();
  switch (state.key) {
    case 0:
      return true;
    case ORIGINAL_DATABASE_BIT:
      item_.origin.database = text;
      break;
    case ORIGINAL_SID_BIT:
      item_.origin.sid = text;
      break;
    case RESTORE_AS_DATABASE_BIT:
      item_.target.database = text;
      break;
    case RESTORE_AS_TIMEPOINT_BIT:
      item_.target.timepoint = text;
      break;
    case RESTORE_AS_LIFELINE_BIT:
      item_.target.lifeline = text;
      break;
    default:
      return refuse_type();
  }
  state.masks |= state.key;
  return true;
}

bool Restore_Job_Source_Parser::handle_end_array_i() {
  if (states_.empty()) return fail(JSON_PARSER_E_INVALID_LEVEL);
  states_.pop_back();
  if (!states_.empty() && states_.back().key == ENTRIES_BIT) states_.back().masks |= ENTRIES_BIT;
  return true;
}

bool Restore_Job_Source_Parser::handle_end_map_i() {
  bool complete = true;
  switch (states_.size()) {
    case 0:
      return fail(JSON_PARSER_E_INVALID_LEVEL);
    case TOP_DEPTH:
      complete = end_document();
      break;
    case ENTRY_DEPTH:
      if (states_[TOP_DEPTH - 1].key == ENTRIES_BIT) complete = end_entry();
      break;
    case PART_DEPTH:
      if (states_[ENTRY_DEPTH - 1].key == ORIGINAL_BIT) complete = end_original();
      break;
    default:
      break;
  }
  if (!complete) return fail(JSON_PARSER_E_EXPECT_KEY);
  states_.pop_back();
  return true;
}

bool Restore_Job_Source_Parser::end_document() {
  bool complete = true;
  for (const auto* row = key_table_1; row->value != 0; ++row)
    if ((COMMON_BIT & row->value) != 0 && (states_.back().masks & row->value) == 0) {
      D3_ERROR("Failed to parse HANA restore job definition source, lack of '%s'.\n", row->key);
      complete = false;
    }
  return complete;
}

bool Restore_Job_Source_Parser::end_entry() {
  if (item_.catalog_uuid.empty() && item_.target.timepoint.empty()) {
    D3_ERROR("Failed to parse HANA restore job definitionsource, lack of catalog uuid or time.\n");
    return false;
  }
  if (item_.origin.database.empty()) {
    D3_ERROR("Failed to parse HANA restore job definitionsource, lack of origin database.\n");
    return false;
  }
  if (item_.target.database.empty()) item_.target.database = item_.origin.database;
  if (source_ != nullptr) source_->add_entry_item(item_);
  item_.reset();
  return true;
}

bool Restore_Job_Source_Parser::end_original() {
  bool complete = true;
  for (const auto* row = key_table_origin; row->value != 0; ++row)
    if ((ORIGINAL_COMMON_BIT & row->value) != 0 && (states_.back().masks & row->value) == 0) {
      D3_ERROR("Failed to parse HANA restore job definition origin source, lack of '%s'.\n", row->key);
      complete = false;
    }
  return complete;
}

}  // namespace sap_hana
