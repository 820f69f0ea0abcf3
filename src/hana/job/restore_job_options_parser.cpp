#include "hana/job/restore_job_options_parser.h"

#include <cerrno>
#include <new>

#include "hana/job/restore_job_options.h"

namespace sap_hana {

namespace {

constexpr std::size_t top_depth = 1;

}  // namespace

const Key2_Value_T<unsigned int> Restore_Job_Options_Parser::key_table_1[] = {{"ignore_delta", 12, IGNORE_DELTA_BIT},
                                                                              {nullptr, 0, 0}};

Restore_Job_Options_Parser::Restore_Job_Options_Parser() {
  auto* const options = new (std::nothrow) Restore_Job_Options;
  if (options == nullptr) {
    errno = ENOMEM;
    return;
  }
  result_.reset(options);
}

bool Restore_Job_Options_Parser::handle_start_map_i() {
  states_.push_back({true, 0, 0});
  return true;
}

bool Restore_Job_Options_Parser::handle_map_key_i(const char* text, std::size_t length) {
  if (states_.empty()) {
    err_ = JSON_PARSER_E_INVALID_LEVEL;
    return false;
  }
  if (states_.size() != top_depth) return true;
  if (const unsigned bit = find_key(key_table_1, text, length); bit != 0) states_.back().key = bit;
  return true;
}

bool Restore_Job_Options_Parser::handle_boolean_i(bool value) {
  if (states_.size() != top_depth) return refuse_type();
  JSON_State& state = states_.back();
  if (!state.obj || state.key == 0) return true;
  if (state.key == IGNORE_DELTA_BIT && !result_.null()) static_cast<Restore_Job_Options&>(*result_).ignore_delta(value);
  state.masks |= state.key;
  return true;
}

bool Restore_Job_Options_Parser::handle_string_i(const char* /*text*/, std::size_t /*length*/) {
  if (!states_.empty()) err_ = JSON_PARSER_E_INVALID_VALUE_TYPE;
  return false;
}

bool Restore_Job_Options_Parser::handle_end_map_i() {
  if (states_.empty()) {
    err_ = JSON_PARSER_E_INVALID_LEVEL;
    return false;
  }
  states_.pop_back();
  return true;
}

}  // namespace sap_hana
