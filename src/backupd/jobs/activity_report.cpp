#include "backupd/jobs/activity_report.h"

#include "backupd/http/body_reader.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

constexpr const char* number_keys[] = {"type", "size", "set_size", "set_storage_size", "processed_size", "speed"};
constexpr const char* time_keys[] = {"start_time", "last_run_time", "next_run_time"};
constexpr int progress_limit = 100;

Outcome refuse(const char* key, const char* wanted) {
  return Outcome::refuse(Outcome::bad_request,
                         std::string("the key \"") + key + "\" of the activity report is not " + wanted);
}

/// A time is POSIX seconds or UTC text; 0, "" and null mean never.
bool read_time(const json_spirit::Value& value, std::string& text) {
  if (value.is_null()) return true;
  if (value.is_string()) {
    text = value.get_str();
    return text.empty() || is_utc_time(text);
  }
  if (value.type() != json_spirit::int_type || value.is_uint64() || value.get_int64() < 0) return false;
  text = value.get_int64() == 0 ? std::string() : posix_time_to_utc_text(value.get_int64());
  return true;
}

Outcome read_state(const json_spirit::Object& record, Job_State& state) {
  int value = 0;
  if (!json_spirit::object_get(record, "state", value) || !is_job_state(value)) return refuse("state", "a job state");
  state = static_cast<Job_State>(value);
  return {};
}

Outcome read_numbers(const json_spirit::Object& record, json_spirit::Object& document) {
  for (const char* key : number_keys) {
    unsigned long number = 0;
    if (record.contains(key) && !json_spirit::object_get(record, key, number)) return refuse(key, "a number from 0 up");
    document[key] = number;
  }
  int progress = 0;
  if (record.contains("progress") &&
      (!json_spirit::object_get(record, "progress", progress) || progress < 0 || progress > progress_limit))
    return refuse("progress", "a number from 0 to 100");
  document["progress"] = progress;
  int code = 0;
  if (record.contains("code") && !json_spirit::object_get(record, "code", code)) return refuse("code", "a number");
  document["code"] = code;
  return {};
}

Outcome read_times(const json_spirit::Object& record, json_spirit::Object& document) {
  for (const char* key : time_keys) {
    std::string text;
    const json_spirit::Value* value = record.find(key);
    if (value != nullptr && !read_time(*value, text)) return refuse(key, "a time");
    document[key] = text;
  }
  return {};
}

}  // namespace

Outcome Activity_Report::read(const json_spirit::Value& record) {
  if (!record.is_object()) return Outcome::refuse(Outcome::bad_request, "an activity report is not an object");
  const json_spirit::Object& object = record.get_obj();
  std::string message;
  json_spirit::object_get(object, "id", id);
  json_spirit::object_get(object, "def_id", def_id);
  json_spirit::object_get(object, "message", message);
  if (!is_uuid(id)) return refuse("id", "a UUID");
  document = {{"id", id}, {"def_id", def_id}};
  if (Outcome outcome = read_state(object, state); !outcome.ok()) return outcome;
  document["state"] = static_cast<int>(state);
  document["state_name"] = job_state_to_string(state);
  if (Outcome outcome = read_numbers(object, document); !outcome.ok()) return outcome;
  if (Outcome outcome = read_times(object, document); !outcome.ok()) return outcome;
  document["message"] = message;
  return {};
}

}  // namespace backupd
