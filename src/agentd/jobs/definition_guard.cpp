#include "agentd/jobs/definition_guard.h"

#include <algorithm>
#include <string_view>
#include <vector>

#include "agentd/instances/system_id.h"
#include "net/uri.h"
#include "platform/log.h"

namespace agentd {

namespace {

constexpr std::size_t name_limit_bytes = 127;
constexpr std::size_t shown_bytes = 200;
constexpr std::size_t database_segment = 2;
constexpr std::size_t segments_with_database = 3;

bool is_letter(char c) { return (c >= 'A' && c <= 'Z') || c == '_'; }

bool entry_is_safe(const std::string& entry, std::string& refusal) {
  URI uri;
  uri.path(entry, true);
  std::vector<std::string> segments;
  uri.path_segments(segments);
  if (segments.size() < segments_with_database) return true;
  if (segments.size() == segments_with_database && is_plain_database_name(segments[database_segment])) return true;
  refusal = "the source entry \"" + platform::cut_for_log(entry, shown_bytes) +
            "\" names no database that can be backed up: a name consists of capital letters, digits and underscores, "
            "does not begin with a digit and has at most 127 characters";
  return false;
}

bool is_time_text(const std::string& text) {
  return std::all_of(text.begin(), text.end(), [](char c) {
    return (c >= '0' && c <= '9') || c == ' ' || c == ':' || c == '-' || c == '+' || c == '.' || c == 'T' || c == 'Z';
  });
}

/// A text member that is there must pass; whether it must be there, and another type, is the parser's affair.
bool member_is_safe(const json_spirit::Object& part, const char* key, bool (*passes)(const std::string&),
                    const char* rule, std::string& refusal) {
  std::string value;
  if (!json_spirit::object_get(part, key, value) || value.empty() || passes(value)) return true;
  refusal = "the \"" + std::string(key) + "\" \"" + platform::cut_for_log(value, shown_bytes) +
            "\" of a restore becomes a part of statements and paths; " + rule;
  return false;
}

using Keys = std::vector<std::string_view>;

/// The module's parser takes the text behind a key that it does not know for that of the key before: a name would be
/// there that was looked at nowhere.
bool keys_are_known(const json_spirit::Object& part, const Keys& known, std::string& refusal) {
  for (const auto& [key, value] : part) {
    if (std::find(known.begin(), known.end(), key) != known.end()) continue;
    refusal = "the key \"" + platform::cut_for_log(key, shown_bytes) +
              "\" of a source is not known; what it holds could be taken for something else";
    return false;
  }
  return true;
}

bool restored_entry_is_safe(const json_spirit::Object& entry, std::string& refusal) {
  constexpr const char* name_rule = "a database's name consists of capital letters, digits and underscores";
  constexpr const char* sid_rule = "a system id is a capital letter and two capital letters or digits";
  constexpr const char* time_rule = "a time reads YYYY-MM-DD HH:MM:SS";
  const struct {
    const char* key;
    Keys members;
  } parts[] = {{"original", {"sid", "database"}}, {"restore_as", {"database", "timepoint", "lifeline"}}};
  if (!keys_are_known(entry, {"catalog_uuid", "original", "restore_as"}, refusal)) return false;
  for (const auto& [key, members] : parts) {
    json_spirit::Object part;
    if (!json_spirit::object_get(entry, key, part)) continue;
    if (!keys_are_known(part, members, refusal) || !member_is_safe(part, "sid", is_sid, sid_rule, refusal) ||
        !member_is_safe(part, "database", is_plain_database_name, name_rule, refusal) ||
        !member_is_safe(part, "timepoint", is_time_text, time_rule, refusal))
      return false;
  }
  return true;
}

}  // namespace

bool is_plain_database_name(const std::string& name) {
  return !name.empty() && name.size() <= name_limit_bytes && is_letter(name.front()) &&
         std::all_of(name.begin(), name.end(), [](char c) { return is_letter(c) || (c >= '0' && c <= '9'); });
}

bool names_are_safe(const json_spirit::Object& definition, std::string& refusal) {
  json_spirit::Object source;
  json_spirit::Array entries;
  std::string id;
  if (json_spirit::object_get(definition, "id", id) && id.find('/') != std::string::npos) {
    refusal = "the \"id\" \"" + platform::cut_for_log(id, shown_bytes) + "\" of the definition would become a path";
    return false;
  }
  if (!json_spirit::object_get(definition, "source", source)) return true;  // the definition reader's affair
  if (!keys_are_known(source, {"id", "name", "entries"}, refusal)) return false;
  if (!json_spirit::object_get(source, "entries", entries)) return true;
  return std::all_of(entries.begin(), entries.end(), [&](const json_spirit::Value& entry) {
    if (entry.is_object()) return restored_entry_is_safe(entry.get_obj(), refusal);
    return !entry.is_string() || entry_is_safe(entry.get_str(), refusal);
  });
}

}  // namespace agentd
