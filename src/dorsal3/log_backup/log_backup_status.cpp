#include "dorsal3/log_backup/log_backup_status.h"

#include <algorithm>

#include "dorsal3/log_backup/log_queue.h"
#include "dorsal3/terminal/format.h"

namespace dorsal3 {

namespace {

/// Where the instance cannot be asked for its databases, its own file stands for those that nobody knows, under an
/// empty name.
std::vector<std::string> databases_to_show(const Log_Backup_Picture& picture, const Backup_Subject& subject,
                                           const Log_Backup_Host& host) {
  if (!subject.database.empty()) return {subject.database};
  std::vector<std::string> shown = picture.databases;
  json_spirit::Object file;
  if (!picture.databases_error.empty() && host.find_file("", file)) shown.emplace_back();
  return shown;
}

/// Good is what is switched on as a whole, or off as a whole; on a host that is no primary the settings do not count.
json_spirit::Object status_row(const Log_Backup_Picture& picture, const Log_Backup_Host& host,
                               const std::string& database) {
  json_spirit::Object file;
  const bool has_file = host.find_file(database, file);
  const std::string lacks = host.lacks(database);
  const std::string problem = text_member(file, "problem");
  std::string kind = "none";
  if (has_file) kind = !problem.empty() ? "damaged" : text_member(file, "database").empty() ? "instance" : "database";
  const json_spirit::Object* const definition =
      has_file ? picture.definition(text_member(file, "definition_uuid")) : nullptr;
  const bool known = definition != nullptr && Setup_View(*definition).wanted == "installed";
  std::string name;
  if (has_file) name = known ? text_member(*definition, "name") : "unknown to the server";
  const bool on = lacks.empty();
  json_spirit::Object settings;
  (void)json_spirit::object_get(host.status, "settings", settings);
  const bool handed_over = text_member(settings, "log_backup_using_backint") == "true";
  const bool settings_fit = !host.open() || (has_file ? on : !handed_over);
  return {{"database", database},
          {"host", host.name},
          {"host_uuid", host.uuid},
          {"file", kind},
          {"path", text_member(file, "path")},
          {"problem", problem},
          {"definition", name},
          {"definition_uuid", text_member(file, "definition_uuid")},
          {"known", known},
          {"open", host.open()},
          {"settings", on ? "on" : lacks},
          {"ok", settings_fit && problem.empty() && (!has_file || known)}};
}

void add_queue(json_spirit::Object& row, const Log_Queue& queue) {
  row["waiting"] = queue.waiting;
  row["given_up"] = queue.given_up;
  row["oldest"] = queue.empty() ? "" : format_span(queue.oldest);
  row["oldest_seconds"] = static_cast<std::uint64_t>(queue.oldest.count());
  row["queue_message"] = queue.message;
  row["ok"] = flag_member(row, "ok") && !queue.late();
}

/// Those that no row is about stand for databases that were dropped, or whose name nobody could list.
void note_queues(const Log_Backup_Picture& picture, const Backup_Subject& subject, const Log_Backup_Host& host,
                 const Log_Queues& queues, json_spirit::Array& notes) {
  const auto& known = picture.databases;
  for (const auto& [database, queue] : queues) {
    if (!subject.database.empty() && database != subject.database) continue;
    const bool listed = std::find(known.begin(), known.end(), database) != known.end();
    if (!listed || queue.late()) notes.emplace_back(database + " on " + host.name + ": " + queue.text());
  }
}

}  // namespace

Outcome log_backup_status(Context& context, const Log_Backup_Picture& picture, const Backup_Subject& subject,
                          json_spirit::Array notes) {
  json_spirit::Array rows;
  bool ok = true;
  for (const Log_Backup_Host& host : picture.hosts) {
    Failure failure;
    Log_Queues queues;
    if (!read_log_queues(context.server, picture.resource, host.uuid, queues, failure))
      return Outcome::failed(std::move(failure));
    note_queues(picture, subject, host, queues, notes);
    if (!host.error.empty()) {
      notes.emplace_back(host.name + ": " + host.error);
      ok = false;
      continue;
    }
    for (const std::string& database : databases_to_show(picture, subject, host)) {
      json_spirit::Object row = status_row(picture, host, database);
      add_queue(row, queues[database]);
      ok = ok && flag_member(row, "ok");
      rows.emplace_back(std::move(row));
    }
  }
  if (!picture.databases_error.empty())
    notes.emplace_back("the databases are those of the files: " + picture.databases_error);
  Outcome outcome;
  outcome.exit_code = ok ? exit_ok : exit_failed;
  outcome.model = {
      {"instance", picture.resource.name}, {"databases", std::move(rows)}, {"notes", std::move(notes)}, {"ok", ok}};
  return outcome;
}

}  // namespace dorsal3
