#include "backupd/restore/restore_definition_check.h"

#include <algorithm>

#include "backupd/http/body_reader.h"
#include "backupd/jobs/definition_check.h"
#include "platform/log.h"

namespace backupd {

namespace {

constexpr std::size_t quoted_limit = 200;
constexpr std::size_t system_id_length = 3;

Outcome refuse(std::string message) { return Outcome::refuse(Outcome::invalid, std::move(message)); }

std::string quoted(const std::string& text) { return "\"" + platform::cut_for_log(text, quoted_limit) + "\""; }

Outcome check_database(const std::string& name) {
  if (is_database_name(name)) return {};
  return refuse("the database " + quoted(name) +
                " of the restore has no plain name: capital letters, digits and underscores, not beginning with a "
                "digit, at most 127 bytes");
}

Outcome check_original(const json_spirit::Object& original) {
  std::string sid;
  std::string database;
  Body_Reader reader(original, "the \"original\" of an entry");
  reader.text("sid", sid, Need::required);
  reader.text("database", database, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (!is_system_id(sid)) return refuse("the \"sid\" " + quoted(sid) + " of the restore is no system id, like \"HDB\"");
  return check_database(database);
}

struct Restored_As {
  std::string database;
  std::string timepoint;
  std::string lifeline;
};

Outcome check_restored_as(const json_spirit::Object& object, Restored_As& as) {
  Body_Reader reader(object, "the \"restore_as\" of an entry");
  reader.text("database", as.database);
  reader.text("timepoint", as.timepoint);
  reader.uuid("lifeline", as.lifeline);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (!as.timepoint.empty() && !is_utc_time(as.timepoint))
    return refuse("the \"timepoint\" " + quoted(as.timepoint) + " does not read YYYY-MM-DD HH:MM:SS (UTC)");
  return as.database.empty() ? Outcome() : check_database(as.database);
}

Outcome check_entry(const json_spirit::Value& value) {
  if (!value.is_object()) return Outcome::refuse(Outcome::bad_request, "an entry of the restore is not an object");
  std::string set;
  json_spirit::Object original;
  json_spirit::Object object;
  Restored_As as;
  Body_Reader reader(value.get_obj(), "an entry of the restore");
  reader.uuid("catalog_uuid", set);
  reader.object("original", original, Need::required);
  reader.object("restore_as", object);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = check_original(original); !outcome.ok()) return outcome;
  if (Outcome outcome = check_restored_as(object, as); !outcome.ok()) return outcome;
  if (set.empty() && as.timepoint.empty())
    return refuse(
        "an entry of the restore names neither a backup set nor a time; give \"catalog_uuid\" or "
        "\"restore_as\".\"timepoint\"");
  return {};
}

/// The module reads the entries one after the other, and what one does not say of these it has from the one before.
Outcome check_nothing_inherited(const json_spirit::Array& entries) {
  for (const char* const key : {"timepoint", "lifeline"}) {
    bool said = false;
    for (const json_spirit::Value& entry : entries) {
      json_spirit::Object as;
      (void)json_spirit::object_get(entry.get_obj(), "restore_as", as);
      const bool says = as.find(key) != nullptr;
      if (said && !says)
        return refuse("an entry of the restore has no " + quoted(key) +
                      " behind one that has: it would be restored by that one's; give it one, put it first, or restore "
                      "it by a definition of its own");
      said = said || says;
    }
  }
  return {};
}

}  // namespace

bool is_system_id(const std::string& text) {
  const auto letter = [](char c) { return c >= 'A' && c <= 'Z'; };
  return text.size() == system_id_length && letter(text.front()) &&
         std::all_of(text.begin(), text.end(), [&](char c) { return letter(c) || (c >= '0' && c <= '9'); });
}

Outcome check_restore_source(const json_spirit::Object& source) {
  std::string id;
  std::string name;
  json_spirit::Array entries;
  Body_Reader reader(source, "the \"source\"");
  reader.uuid("id", id, Need::required);
  reader.text("name", name, Need::required);
  reader.array("entries", entries, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (entries.empty()) return refuse("the \"entries\" of the source are empty; name what to restore");
  for (const json_spirit::Value& entry : entries)
    if (Outcome outcome = check_entry(entry); !outcome.ok()) return outcome;
  return check_nothing_inherited(entries);
}

Outcome check_restore_options(const json_spirit::Object& options) {
  bool ignore_delta = false;
  Body_Reader reader(options, "the \"options\"");
  reader.flag("ignore_delta", ignore_delta);
  return reader.finish();
}

Outcome check_restore_target(const json_spirit::Object& target, std::string& resource_uuid) {
  Body_Reader reader(target, "the \"target\" of a restore");
  reader.uuid("resource_uuid", resource_uuid, Need::required);
  return reader.finish();
}

}  // namespace backupd
