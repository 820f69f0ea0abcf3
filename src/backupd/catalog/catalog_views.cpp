#include "backupd/catalog/catalog_views.h"

#include <optional>

#include "backupd/catalog/set_sizes.h"
#include "backupd/http/body_reader.h"
#include "backupd/restore/restore_selection.h"
#include "backupd/store/list_query.h"

namespace backupd {

namespace {

constexpr char module_hana[] = "hana";

Outcome store_failed() {
  return Outcome::refuse(Outcome::internal, "the backup sets cannot be read now; see the server's log");
}

}  // namespace

Outcome Catalog_Views::ask(const std::string& module, const std::string& view, const json_spirit::Object& params,
                           json_spirit::Object& result) {
  if (module != module_hana)
    return Outcome::refuse(Outcome::not_found, "there are no catalog views of a module \"" + module + "\"");
  if (view == "set") return ask_set(module, params, result);
  if (view == "rselect") return ask_restore_sets(params, result);
  if (view == "sets_size") return ask_sizes(params, result);
  return Outcome::refuse(Outcome::not_found,
                         "there is no catalog view \"" + view + "\"; there are set, rselect and sets_size");
}

Outcome Catalog_Views::ask_set(const std::string& module, const json_spirit::Object& params,
                               json_spirit::Object& result) {
  std::string uuid;
  Body_Reader reader(params, "the view's params");
  reader.text("uuid", uuid, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  std::optional<Sql_Row> row;
  if (!database_.read([&](Sql_Session& session) {
        row = session.first("SELECT document FROM sets WHERE uuid = :a AND module = :b", {uuid, module}, 1);
      }))
    return store_failed();
  if (!row) return Outcome::refuse(Outcome::not_found, "there is no backup set " + uuid + "; list the sets");
  result = stored_object(row->text(0));
  return {};
}

Outcome Catalog_Views::ask_restore_sets(const json_spirit::Object& params, json_spirit::Object& result) {
  Restore_Point point;
  std::string type;
  Body_Reader reader(params, "the view's params");
  reader.text("type", type, Need::required);
  reader.text("resource_uuid", point.resource_uuid, Need::required);
  reader.text("lifeline", point.lifeline);
  reader.text("database", point.database, Need::required);
  reader.text("time", point.time, Need::required);
  const bool catalog = type == "catalog";
  if (catalog) reader.number("database_backup_id", point.database_backup_id, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (!catalog && type != "fullbackup")
    return Outcome::refuse(Outcome::invalid,
                           "restore sets of type \"" + type + "\" are not known; the type is fullbackup or catalog");
  if (catalog && point.lifeline.empty())
    return Outcome::refuse(Outcome::invalid, "the \"lifeline\" is missing; a catalog belongs to one");
  std::optional<json_spirit::Object> set;
  if (!database_.read(
          [&](Sql_Session& session) { set = catalog ? select_catalog(session, point) : select_full(session, point); }))
    return store_failed();
  json_spirit::Array rows;
  if (set) rows.emplace_back(*set);
  result = {{"total", rows.size()}, {"rows", rows}};
  return {};
}

Outcome Catalog_Views::ask_sizes(const json_spirit::Object& params, json_spirit::Object& result) {
  Set_Range range;
  bool ignore_delta = false;
  Body_Reader reader(params, "the view's params");
  reader.text("lifeline", range.lifeline, Need::required);
  reader.flag("ignore_delta", ignore_delta);
  reader.number("start_backup_id", range.first, Need::required);
  reader.number("end_backup_id", range.last, Need::required);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  range.with_deltas = !ignore_delta;
  Set_Sizes sum;
  if (!database_.read([&](Sql_Session& session) { sum = sum_sets(session, range); })) return store_failed();
  result = {{"total_source_size", sum.source}, {"total_size", sum.stored}};
  return {};
}

}  // namespace backupd
