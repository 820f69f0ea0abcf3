#include "job/default_backup_job_source_parser.h"

#include <cerrno>
#include <new>
#include <string>

#include "platform/log.h"

namespace {

enum Depth : std::size_t { top_depth = 1, entries_depth = 2 };

}  // namespace

const Key2_Value_T<unsigned> Default_Backup_Job_Source_Parser::key_table_[] = {
    {"id", 2, ID_BIT}, {"name", 4, NAME_BIT}, {"entries", 7, ENTRIES_BIT}, {nullptr, 0, 0}};

Default_Backup_Job_Source_Parser::Default_Backup_Job_Source_Parser()
    : source_(new (std::nothrow) Default_Backup_Job_Source) {
  if (source_ == nullptr) {
    errno = ENOMEM;
    err_ = JSON_PARSER_E_NO_MEM;
    return;
  }
  result_.reset(source_);
}

bool Default_Backup_Job_Source_Parser::handle_start_map_i() {
  if (source_ == nullptr || !states_.empty()) return source_ != nullptr && refuse_type();
  states_.push_back({true, 0, 0});
  return true;
}

bool Default_Backup_Job_Source_Parser::handle_map_key_i(const char* text, std::size_t length) {
  if (states_.empty()) {
    err_ = JSON_PARSER_E_INVALID_LEVEL;
    return false;
  }
  states_.back().key = find_key(key_table_, text, length);
  if (states_.back().key != 0) return true;
  err_ = JSON_PARSER_E_UNKNOWN_KEY;
  return false;
}

bool Default_Backup_Job_Source_Parser::handle_string_i(const char* text, std::size_t length) {
  if (states_.empty()) return refuse_type();
  const std::string value(text, length);
  if (states_.size() == entries_depth) {
    source_->add_entry(value);
    return true;
  }
  JSON_State& top = states_.back();
  if (top.key == ID_BIT)
    source_->id(value);
  else if (top.key == NAME_BIT)
    source_->name(value);
  else
    return refuse_type();
  top.masks |= top.key;
  return true;
}

bool Default_Backup_Job_Source_Parser::handle_start_array_i() {
  if (states_.size() != top_depth || states_.back().key != ENTRIES_BIT) return refuse_type();
  states_.push_back({false, 0, 0});
  return true;
}

bool Default_Backup_Job_Source_Parser::handle_end_array_i() {
  if (states_.size() != entries_depth) {
    err_ = JSON_PARSER_E_INVALID_LEVEL;
    return false;
  }
  states_.pop_back();
  states_.back().masks |= ENTRIES_BIT;
  return true;
}

bool Default_Backup_Job_Source_Parser::handle_end_map_i() {
  if (states_.size() != top_depth) {
    err_ = JSON_PARSER_E_INVALID_LEVEL;
    return false;
  }
  const std::uint64_t seen = states_.back().masks;
  for (const auto* row = key_table_; row->value != 0; ++row)
    if ((REQUIRED_BITS & row->value) != 0 && (seen & row->value) == 0) {
      D3_ERROR("Failed to parse backup job definition source, lack of '%C'.\n", row->key);
      err_ = JSON_PARSER_E_EXPECT_KEY;
    }
  if (err_ != JSON_PARSER_E_OK) return false;
  states_.pop_back();
  return true;
}
