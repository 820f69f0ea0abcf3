#include "backupd/http/body_reader.h"

#include <algorithm>
#include <limits>

#include "platform/log.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr std::size_t quoted_limit = 200;

std::string quoted(std::string_view text) { return "\"" + platform::cut_for_log(text, quoted_limit) + "\""; }

}  // namespace

const json_spirit::Value* Body_Reader::member(std::string_view key, Need need) {
  known_.push_back(key);
  const json_spirit::Value* value = body_.find(key);
  if (value == nullptr && need == Need::required)
    refuse("the key " + quoted(key) + " of " + what_ + " is missing; add it");
  return outcome_.ok() ? value : nullptr;
}

void Body_Reader::text(std::string_view key, std::string& out, Need need) {
  const json_spirit::Value* value = member(key, need);
  if (value == nullptr) return;
  if (!value->is_string()) return wrong_type(key, *value, "string");
  if (need == Need::required && value->get_str().empty())
    return refuse("the key " + quoted(key) + " of " + what_ + " is empty; give it a value");
  if (value->get_str().find('\0') != std::string::npos)
    return refuse("the key " + quoted(key) + " of " + what_ + " holds a null byte; remove it");
  out = value->get_str();
}

void Body_Reader::number(std::string_view key, std::int64_t& out, Need need) {
  const json_spirit::Value* value = member(key, need);
  if (value == nullptr) return;
  if (value->type() != json_spirit::int_type) return wrong_type(key, *value, "integer");
  if (value->is_uint64() || value->get_int64() < 0)
    return refuse("the key " + quoted(key) + " of " + what_ + " is out of range; it holds 0 to " +
                  std::to_string(std::numeric_limits<std::int64_t>::max()));
  out = value->get_int64();
}

void Body_Reader::flag(std::string_view key, bool& out, Need need) {
  const json_spirit::Value* value = member(key, need);
  if (value == nullptr) return;
  if (value->type() != json_spirit::bool_type) return wrong_type(key, *value, "boolean");
  out = value->get_bool();
}

void Body_Reader::object(std::string_view key, json_spirit::Object& out, Need need) {
  const json_spirit::Value* value = member(key, need);
  if (value == nullptr) return;
  if (!value->is_object()) return wrong_type(key, *value, "object");
  out = value->get_obj();
}

void Body_Reader::array(std::string_view key, json_spirit::Array& out, Need need) {
  const json_spirit::Value* value = member(key, need);
  if (value == nullptr) return;
  if (!value->is_array()) return wrong_type(key, *value, "array");
  out = value->get_array();
}

void Body_Reader::uuid(std::string_view key, std::string& out, Need need) {
  std::string found = out;
  text(key, found, need);
  if (!outcome_.ok()) return;
  if (!found.empty() && !is_uuid(found))
    return refuse("the key " + quoted(key) + " of " + what_ + " is no UUID: " + quoted(found));
  out = found;
}

Outcome Body_Reader::finish() const {
  if (!outcome_.ok()) return outcome_;
  for (const auto& [key, value] : body_)
    if (std::find(known_.begin(), known_.end(), key) == known_.end())
      return Outcome::refuse(Outcome::bad_request,
                             "the key " + quoted(key) + " is not one of " + what_ + "; correct or remove it");
  return outcome_;
}

void Body_Reader::wrong_type(std::string_view key, const json_spirit::Value& found, const char* wanted) {
  refuse("the key " + quoted(key) + " of " + what_ + " is of type " + json_spirit::type_name(found.type()) +
         ", expected " + wanted);
}

void Body_Reader::refuse(std::string message) {
  if (outcome_.ok()) outcome_ = Outcome::refuse(Outcome::bad_request, std::move(message));
}

bool is_uuid(const std::string& text) {
  unsigned char binary[uuid_bytes];
  return text.find('\0') == std::string::npos && uuid_string_to_binary(text.c_str(), binary);
}

bool is_utc_time(const std::string& text) {
  constexpr std::size_t length = 19;
  constexpr std::size_t blank_at = 10;
  std::time_t time = 0;
  return text.size() == length && text[blank_at] == ' ' && iso8601_to_posix_time(text.c_str(), time);
}

}  // namespace backupd
