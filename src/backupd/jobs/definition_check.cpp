#include "backupd/jobs/definition_check.h"

#include <algorithm>
#include <vector>

#include "backupd/backint/backint_check.h"
#include "backupd/http/body_reader.h"
#include "backupd/restore/restore_definition_check.h"
#include "net/uri.h"
#include "platform/log.h"
#include "records/rate_limits.h"
#include "records/tenant_name.h"

namespace backupd {

namespace {

constexpr std::size_t database_name_limit = 127;
constexpr std::size_t quoted_limit = 200;
constexpr std::size_t instance_segments = 2;
constexpr std::size_t database_segments = 3;
constexpr char type_backup[] = "backup";
constexpr char type_restore[] = "restore";
constexpr const char* backup_subtypes[] = {"full", "incremental", "differential", "log"};
constexpr const char* restore_subtypes[] = {"point-in-time"};

Outcome refuse(std::string message) { return Outcome::refuse(Outcome::invalid, std::move(message)); }

template <std::size_t Size>
bool is_one_of(const std::string& word, const char* const (&words)[Size]) {
  return std::find(std::begin(words), std::end(words), word) != std::end(words);
}

Outcome check_kind(const std::string& type, const std::string& subtype, const std::string& module) {
  if (module != "hana") return refuse("the module \"" + module + "\" is not known; the module is \"hana\"");
  if (type != type_backup && type != type_restore)
    return refuse("the type \"" + type + "\" is not known; it is \"backup\" or \"restore\"");
  const bool fits = type == type_backup ? is_one_of(subtype, backup_subtypes) : is_one_of(subtype, restore_subtypes);
  if (!fits)
    return refuse("a " + type + " has no subtype \"" + subtype + "\"; " +
                  (type == type_backup ? "it is full, incremental, differential or log" : "it is point-in-time"));
  return {};
}

Outcome check_entry(const std::string& entry) {
  const std::string shown = "\"" + platform::cut_for_log(entry, quoted_limit) + "\"";
  URI uri;
  std::vector<std::string> segments;
  uri.path(entry, true);
  uri.path_segments(segments);
  const bool shaped = (segments.size() == instance_segments || segments.size() == database_segments) &&
                      segments.front() == "hana" && is_relative_path(segments[1]) &&
                      segments[1].find('/') == std::string::npos;
  if (!shaped)
    return refuse("the source entry " + shown + " does not read hana/<instance> or hana/<instance>/<database>");
  if (segments.size() == database_segments && !is_database_name(segments.back()))
    return refuse(
        "the source entry " + shown +
        " names no database that can be backed up: a name is \"SYSTEMDB\", or capital "
        "letters, digits and underscores, not beginning with a digit, at most 127 bytes; rename the database");
  return {};
}

Outcome check_backup_source(const json_spirit::Object& source) {
  std::string id;
  std::string name;
  json_spirit::Array entries;
  Body_Reader reader(source, "the \"source\"");
  reader.uuid("id", id, Need::required);
  reader.text("name", name, Need::required);
  reader.array("entries", entries, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (entries.empty()) return refuse("the \"entries\" of the source are empty; name what to back up");
  for (const json_spirit::Value& entry : entries) {
    if (!entry.is_string()) return Outcome::refuse(Outcome::bad_request, "an entry of the source is not a string");
    if (Outcome outcome = check_entry(entry.get_str()); !outcome.ok()) return outcome;
  }
  return {};
}

Outcome check_backup_options(const json_spirit::Object& options) {
  std::string compression;
  std::int64_t level = 0;
  Body_Reader reader(options, "the \"options\"");
  reader.text("compression", compression);
  reader.number("compression_level", level);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (!is_known_compression(compression))
    return refuse("the compression \"" + platform::cut_for_log(compression, quoted_limit) +
                  "\" is not known; use none, auto, lzop or zstd");
  return {};
}

Outcome check_target(const json_spirit::Object& target, std::string& pool_uuid) {
  std::string location;
  Body_Reader reader(target, "the \"target\"");
  reader.uuid("pool_uuid", pool_uuid, Need::required);
  reader.text("location", location);
  return reader.finish();
}

Outcome check_rate_limits(const json_spirit::Object& limits) {
  std::string text;
  Body_Reader reader(limits, "the \"rate_limits\"");
  reader.text(Rate_Limits::dest_key, text);
  reader.text(Rate_Limits::src_key, text);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  Rate_Limits parsed;
  std::string error;
  if (!parsed.from_json_in_object(limits, &error)) return refuse("the \"rate_limits\" cannot be read: " + error);
  return {};
}

constexpr char subtype_log[] = "log";

/// Of an entry that was checked; empty for an instance.
std::string database_of(const std::string& entry) {
  URI uri;
  std::vector<std::string> segments;
  uri.path(entry, true);
  uri.path_segments(segments);
  return segments.size() == database_segments ? segments.back() : std::string();
}

Outcome check_log_backup(const json_spirit::Object& source, const json_spirit::Object& schedule) {
  json_spirit::Array entries;
  long type = 0;
  json_spirit::object_get(source, "entries", entries);
  if (entries.size() != 1)
    return refuse("a log backup has one source entry, an instance or one database of it; make a definition for each");
  if (const std::string why = describe_long_name(database_of(entries.front().get_str())); !why.empty())
    return refuse(why + "; use a shorter name");
  if (schedule.empty() || (json_spirit::object_get(schedule, "type", type) && type == schedule_on_demand)) return {};
  return refuse("the \"schedule\" of a log backup is {\"type\": 7}: HANA begins it by itself");
}

struct Parts {
  json_spirit::Object source;
  json_spirit::Object options;
  json_spirit::Object target;
  json_spirit::Object rate_limits;
  json_spirit::Object schedule;
  std::string type;
  std::string subtype;
};

void read_plain_members(Body_Reader& reader) {
  std::string text;
  bool flag = false;
  std::int64_t number = 0;
  for (const char* key : {"agent", "username", "precondition", "pre_action", "post_action", "creation_time"})
    reader.text(key, text);
  std::string uid;
  reader.uuid("uid", uid);
  for (const char* key : {"ignore_pre_action_failure", "redirect_pre_action_stdout", "run_post_action_always",
                          "ignore_post_action_failure", "redirect_post_action_stdin", "write_to_history"})
    reader.flag(key, flag);
  for (const char* key :
       {"max_seconds_retry", "resumption_buffer_size", "retry_count", "retry_interval", "job_revision"})
    reader.number(key, number);
}

Outcome check_restore(const Parts& parts, Definition_Summary& summary) {
  if (Outcome outcome = check_restore_target(parts.target, summary.target_resource_uuid); !outcome.ok()) return outcome;
  if (Outcome outcome = check_restore_source(parts.source); !outcome.ok()) return outcome;
  return check_restore_options(parts.options);
}

}  // namespace

bool is_database_name(const std::string& name) {
  if (name.empty() || name.size() > database_name_limit) return false;
  const auto letter = [](char c) { return (c >= 'A' && c <= 'Z') || c == '_'; };
  return letter(name.front()) &&
         std::all_of(name.begin(), name.end(), [&](char c) { return letter(c) || (c >= '0' && c <= '9'); });
}

Outcome check_definition(const json_spirit::Object& body, Definition_Summary& summary) {
  Parts parts;
  Body_Reader reader(body, "the job definition");
  reader.uuid("id", summary.id);
  reader.text("name", summary.name, Need::required);
  reader.text("type", parts.type, Need::required);
  reader.text("subtype", parts.subtype, Need::required);
  reader.text("module", summary.module, Need::required);
  reader.uuid("host_uuid", summary.host_uuid, Need::required);
  reader.object("source", parts.source, Need::required);
  reader.object("options", parts.options);
  reader.object("target", parts.target, Need::required);
  reader.object("rate_limits", parts.rate_limits);
  reader.object("schedule", parts.schedule);
  read_plain_members(reader);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = check_kind(parts.type, parts.subtype, summary.module); !outcome.ok()) return outcome;
  if (Outcome outcome = check_rate_limits(parts.rate_limits); !outcome.ok()) return outcome;
  if (parts.type == type_restore) return check_restore(parts, summary);
  if (Outcome outcome = check_target(parts.target, summary.pool_uuid); !outcome.ok()) return outcome;
  if (Outcome outcome = check_backup_source(parts.source); !outcome.ok()) return outcome;
  if (Outcome outcome = check_backup_options(parts.options); !outcome.ok()) return outcome;
  return parts.subtype == subtype_log ? check_log_backup(parts.source, parts.schedule) : Outcome();
}

}  // namespace backupd
