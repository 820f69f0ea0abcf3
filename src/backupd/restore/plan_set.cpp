#include "backupd/restore/plan_set.h"

#include "backupd/restore/restore_selection.h"
#include "records/log_positions.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

/// The module records a begin that is so much later than HANA's.
constexpr std::time_t begin_shift_seconds = 1;

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  json_spirit::object_get(object, key, text);
  return text;
}

std::int64_t number_of(const json_spirit::Object& object, const char* key) {
  long number = 0;
  json_spirit::object_get(object, key, number);
  return number;
}

std::string earlier(const std::string& text, std::time_t seconds) {
  std::time_t time = 0;
  return iso8601_to_posix_time(text.c_str(), time) ? posix_time_to_utc_text(time - seconds) : text;
}

}  // namespace

Plan_Set Plan_Set::read(const json_spirit::Object& document) {
  Plan_Set set;
  set.uuid = text_of(document, "uuid");
  set.type = text_of(document, "type");
  set.lifeline = text_of(document, "lifeline");
  set.incarnation = text_of(document, "incarnation");
  set.first_time = text_of(document, "first_time");
  set.last_time = text_of(document, "last_time");
  set.pool_uuid = primary_pool(document);
  set.backup_id = number_of(document, "database_backup_id");
  set.source_size = number_of(document, "source_size");
  set.stored_size = number_of(document, "total_size");
  json_spirit::Array files;
  json_spirit::object_get(document, "files", files);
  for (const json_spirit::Value& value : files) {
    if (!value.is_object()) continue;
    const json_spirit::Object& file = value.get_obj();
    set.objects.push_back({text_of(file, "filename"), text_of(file, "extern_backup_id"), text_of(file, "storage_path"),
                           number_of(file, "size"), number_of(file, "storage_size")});
  }
  return set;
}

bool Plan_Set::is_full() const { return type == type_full; }
bool Plan_Set::is_delta() const { return type == type_incremental || type == type_differential; }

std::optional<std::int64_t> Plan_Set::base_id() const {
  for (const Plan_Object& object : objects)
    if (const auto base = delta_base(object.name)) return static_cast<std::int64_t>(*base);
  return std::nullopt;
}

std::string Plan_Set::begin() const { return earlier(first_time, begin_shift_seconds); }
std::string Plan_Set::whole_until() const { return earlier(first_time, begin_shift_seconds + 1); }

std::string set_label(const Plan_Set& set) {
  return "the " + set.type + " backup of " + set.first_time + " (" + set.uuid + ")";
}

}  // namespace backupd
