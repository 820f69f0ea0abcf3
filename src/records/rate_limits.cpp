#include "records/rate_limits.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace {

constexpr unsigned seconds_of_day = 24 * 60 * 60;

constexpr const char* start_key = "start_time";
constexpr const char* end_key = "end_time";
constexpr const char* limit_key = "max_bytes_per_second";

std::string list_text(const std::vector<Rate_Control_Entry>& entries) {
  json_spirit::Array list;
  list.reserve(entries.size());
  for (const Rate_Control_Entry& entry : entries)
    list.emplace_back(json_spirit::Object{
        {start_key, entry.start_time}, {end_key, entry.end_time}, {limit_key, entry.max_bytes_per_second}});
  return json_spirit::dump_json(list);
}

unsigned require_second(const json_spirit::Object& object, const char* key) {
  const auto second = json_spirit::object_require<unsigned long>(object, key);
  if (second > seconds_of_day) throw json_spirit::Error(std::string("key '") + key + "' is beyond the end of the day");
  return static_cast<unsigned>(second);
}

std::vector<Rate_Control_Entry> entries_of(const json_spirit::Value& list) {
  std::vector<Rate_Control_Entry> entries;
  for (const json_spirit::Value& element : list.get_array()) {
    const json_spirit::Object& object = element.get_obj();
    Rate_Control_Entry entry;
    entry.start_time = require_second(object, start_key);
    entry.end_time = require_second(object, end_key);
    entry.max_bytes_per_second = json_spirit::object_require<unsigned long>(object, limit_key);
    entries.push_back(entry);
  }
  return entries;
}

/// The list under `key`: empty when the key is missing. Throws json_spirit::Error with a reason.
std::vector<Rate_Control_Entry> read_list(const json_spirit::Object& object, const char* key) {
  const json_spirit::Value* text = object.find(key);
  if (text == nullptr) return {};
  json_spirit::Value list;
  std::string error;
  if (!json_spirit::load_json(text->get_str(), list, &error)) throw json_spirit::Error(error);
  return entries_of(list);
}

bool holds_at(const Rate_Control_Entry& entry, unsigned second) {
  if (entry.start_time <= entry.end_time) return entry.start_time <= second && second < entry.end_time;
  return second >= entry.start_time || second < entry.end_time;
}

}  // namespace

const char* const Rate_Limits::dest_key = "dest_rate_limits";
const char* const Rate_Limits::src_key = "src_rate_limits";

void Rate_Limits::to_json_in_object(json_spirit::Object& object, bool skip_empty) const {
  if (!skip_empty || !destination.empty()) object[dest_key] = list_text(destination);
  if (!skip_empty || !source.empty()) object[src_key] = list_text(source);
}

bool Rate_Limits::from_json_in_object(const json_spirit::Object& object, std::string* error) {
  const char* key = dest_key;
  try {
    std::vector<Rate_Control_Entry> to_pool = read_list(object, key);
    key = src_key;
    std::vector<Rate_Control_Entry> from_source = read_list(object, key);
    destination = std::move(to_pool);
    source = std::move(from_source);
    return true;
  } catch (const json_spirit::Error& reason) {
    if (error != nullptr) *error = std::string("malformed ") + key + ": " + reason.what();
    return false;
  }
}

std::uint64_t Rate_Limits::limit_at(const std::vector<Rate_Control_Entry>& entries, unsigned second_of_day) {
  constexpr std::uint64_t none = std::numeric_limits<std::uint64_t>::max();
  std::uint64_t lowest = none;
  for (const Rate_Control_Entry& entry : entries)
    if (entry.max_bytes_per_second != 0 && holds_at(entry, second_of_day))
      lowest = std::min(lowest, entry.max_bytes_per_second);
  return lowest == none ? 0 : lowest;
}
