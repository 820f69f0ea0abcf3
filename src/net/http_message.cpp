#include "net/http_message.h"

#include <algorithm>

#include "net/http_checks.h"

namespace net {
namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool same_name(std::string_view a, std::string_view b) {
  return a.size() == b.size() &&
         std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) { return lower(x) == lower(y); });
}

constexpr std::string_view authorization = "Authorization";

void wipe_if_secret(std::string_view name, std::string& value) {
  if (same_name(name, authorization)) platform::wipe_memory(value.data(), value.size());
}

bool is_letter(char c) { return lower(c) >= 'a' && lower(c) <= 'z'; }

bool is_name_character(char c) {
  return is_letter(c) || (c >= '0' && c <= '9') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

constexpr unsigned char first_printable = 0x20;
constexpr unsigned char delete_character = 0x7f;

bool is_control(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return (byte < first_printable && c != '\t') || byte == delete_character;
}

}  // namespace

Http_Headers& Http_Headers::operator=(Http_Headers other) noexcept {
  fields_.swap(other.fields_);
  return *this;
}

Http_Headers::~Http_Headers() {
  for (auto& [name, text] : fields_) wipe_if_secret(name, text);
}

void Http_Headers::set_bearer(const secure_string& key) { set(authorization, bearer_value(key).view()); }

void Http_Headers::set(std::string_view name, std::string_view value) {
  for (auto& [known, text] : fields_)
    if (same_name(known, name)) {
      wipe_if_secret(known, text);
      text = value;
      return;
    }
  fields_.emplace_back(name, value);
}

const std::string* Http_Headers::find(std::string_view name) const {
  for (const auto& [known, text] : fields_)
    if (same_name(known, name)) return &text;
  return nullptr;
}

secure_string bearer_value(const secure_string& key) {
  secure_string value(std::string_view("Bearer "));
  value.append(key.view());
  return value;
}

bool is_field_name(std::string_view text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), is_name_character);
}

bool is_field_value(std::string_view text) { return std::none_of(text.begin(), text.end(), is_control); }

bool is_method(std::string_view text) { return !text.empty() && std::all_of(text.begin(), text.end(), is_letter); }

bool is_target(std::string_view text) {
  return !text.empty() && text.front() == '/' &&
         std::none_of(text.begin(), text.end(), [](char c) { return c == ' ' || c == '\t' || is_control(c); });
}

bool are_fields(const Http_Headers& headers) {
  const auto& all = headers.all();
  return std::all_of(all.begin(), all.end(),
                     [](const auto& field) { return is_field_name(field.first) && is_field_value(field.second); });
}

}  // namespace net
