#include "hana/job/backup_job_options_parser.h"

#include <cerrno>
#include <new>

#include "hana/job/backup_job_options.h"
#include "platform/log.h"
#include "scrt/numbers.h"

namespace sap_hana {

namespace {

constexpr std::size_t top_depth = 1;

}  // namespace

const Key2_Value_T<unsigned int> Backup_Job_Options_Parser::key_table_1[] = {
    {"compression", 11, COMPRESSION_BIT}, {"compression_level", 17, COMPRESSION_LEVEL_BIT}, {nullptr, 0, 0}};

Backup_Job_Options_Parser::Backup_Job_Options_Parser() {
  auto* const options = new (std::nothrow) Backup_Job_Options;
  if (options == nullptr) {
    errno = ENOMEM;
    D3_EMERGENCY("Unexpected error in %N:%l, result_ is NULL:\n%?\n");
    return;
  }
  result_.reset(options);
}

bool Backup_Job_Options_Parser::handle_start_map_i() {
  states_.push_back({true, 0, 0});
  return true;
}

bool Backup_Job_Options_Parser::handle_map_key_i(const char* text, std::size_t length) {
  if (states_.empty()) {
    err_ = JSON_PARSER_E_INVALID_LEVEL;
    return false;
  }
  if (states_.size() != top_depth) return true;
  if (const unsigned bit = find_key(key_table_1, text, length); bit != 0) states_.back().key = bit;
  return true;
}

bool Backup_Job_Options_Parser::handle_string_i(const char* text, std::size_t length) {
  if (states_.size() != top_depth) return refuse_type();
  if (result_.null()) {
    D3_EMERGENCY("Unexpected error in %N:%l, result_ is NULL:\n%?\n");
    return false;
  }
  JSON_State& state = states_.back();
  if (!state.obj || state.key == 0) return true;
  if (state.key != COMPRESSION_BIT) return refuse_type();
  static_cast<Backup_Job_Options&>(*result_).compression_ = compression_name_to_value(text, length);
  state.masks |= COMPRESSION_BIT;
  return true;
}

bool Backup_Job_Options_Parser::handle_number_i(const char* text, std::size_t length) {
  if (states_.size() != top_depth) return refuse_type();
  if (result_.null()) {
    D3_EMERGENCY("Unexpected error in %N:%l, result_ is NULL:\n%?\n");
    return false;
  }
  JSON_State& state = states_.back();
  if (!state.obj || state.key == 0) return true;
  if (state.key == COMPRESSION_LEVEL_BIT)
    static_cast<Backup_Job_Options&>(*result_).compression_level_ = natoi(text, length);
  state.masks |= state.key;
  return true;
}

bool Backup_Job_Options_Parser::handle_end_map_i() {
  if (states_.empty()) {
    err_ = JSON_PARSER_E_INVALID_LEVEL;
    return false;
  }
  states_.pop_back();
  return true;
}

}  // namespace sap_hana
