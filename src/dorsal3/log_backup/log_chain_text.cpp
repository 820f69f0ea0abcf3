#include "dorsal3/log_backup/log_chain_text.h"

#include <ostream>
#include <set>
#include <vector>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"

namespace dorsal3 {

namespace {

constexpr const char* indent = "  ";
constexpr const char* inner_indent = "    ";

json_spirit::Object object_member(const json_spirit::Object& object, const char* key) {
  json_spirit::Object member;
  (void)json_spirit::object_get(object, key, member);
  return member;
}

std::string set_name(const json_spirit::Object& set) {
  return one_line(text_member(set, "type")) + " " + one_line(text_member(set, "short_id"));
}

std::string set_name(const json_spirit::Object& object, const char* key) {
  return set_name(object_member(object, key));
}

/// Most systems have one log partition a volume.
std::string service_name(const json_spirit::Object& service) {
  const std::string partition = text_member(service, "partition");
  return "volume " + text_member(service, "volume") + (partition == "0" ? "" : ", partition " + partition);
}

std::string start_text(const std::string& start) {
  if (start == "none") return "no log since the full backup; good if it had none to write";
  if (start == "unproven") return "first logs; that they begin at the full backup is HANA's to know";
  return start == "gap" ? "GAP at the full backup" : "";
}

std::string note_of(const json_spirit::Object& service) {
  std::string note = start_text(text_member(service, "start"));
  const auto gaps = object_rows(service, "gaps");
  if (gaps.size() > (note.starts_with("GAP") ? 1U : 0U)) note = "GAP";
  return note;
}

const char* headline(const std::string& state) {
  if (state == "complete") return "the chain of logs is complete";
  return state == "gap" ? "THE CHAIN OF LOGS HAS A GAP" : "NO FULL BACKUP THAT THE LOGS BUILD ON";
}

void print_gap(const json_spirit::Object& service, const json_spirit::Object& gap, std::ostream& out) {
  out << inner_indent << service_name(service) << ": positions " << text_member(gap, "from") << " to "
      << text_member(gap, "to") << " are missing, between the sets " << set_name(gap, "after") << " and "
      << set_name(gap, "before");
  for (const auto& set : object_rows(gap, "missing")) out << "; " << set_name(set) << " is gone from its pool";
  if (flag_member(gap, "at_full")) out << "; harmless only if they were written before the full backup";
  out << "\n";
}

void print_overlap(const json_spirit::Object& service, const json_spirit::Object& overlap, std::ostream& out) {
  out << inner_indent << service_name(service) << ": positions from " << text_member(overlap, "from") << " to "
      << text_member(overlap, "to") << " were written again: the set " << set_name(overlap, "set")
      << " goes on in place of " << set_name(overlap, "former") << " (as after a recovery)\n";
}

void print_branch(const json_spirit::Object& branch, std::ostream& out) {
  const auto services = object_rows(branch, "services");
  const bool current = flag_member(branch, "current");
  const char* const without_full =
      current ? ", begun by a restore: no full backup since" : ", whose full backups are older than the newest one";
  out << indent << (current ? "" : "former ") << "lifeline " << one_line(text_member(branch, "short_id"))
      << (flag_member(branch, "has_full") ? "" : without_full) << "\n";
  if (services.empty()) {
    out << inner_indent << "no log backup\n";
    return;
  }
  Text_Table table({"SERVICE", "FROM", "TO", "BACKUPS", "NEWEST (UTC)", "RECOVERABLE (UTC)", "NOTE"});
  for (const auto& service : services)
    table.add({service_name(service), text_member(service, "first_position"), text_member(service, "last_position"),
               text_member(service, "log_backups"), one_line(text_member(service, "newest_time")),
               one_line(text_member(service, "recoverable_time")), note_of(service)});
  out << table.text(inner_indent);
  for (const auto& service : services) {
    for (const auto& gap : object_rows(service, "gaps")) print_gap(service, gap, out);
    for (const auto& overlap : object_rows(service, "overlaps")) print_overlap(service, overlap, out);
  }
}

/// Why they wait is told once for each reason.
void print_waiting(const std::vector<json_spirit::Object>& waiting, std::ostream& out) {
  if (waiting.empty()) return;
  out << indent << waiting.size() << " log backups are saved and wait to be recorded in a set\n";
  std::set<std::string> reasons;
  for (const auto& run : waiting)
    if (const std::string reason = one_line(text_member(run, "message")); !reason.empty()) reasons.insert(reason);
  for (const std::string& reason : reasons) out << inner_indent << reason << "\n";
}

void print_next_step(const std::string& state, std::ostream& out) {
  if (state == "gap")
    out << indent
        << "make a full backup: from it on a new chain begins; find out why logs are missing (jobs, alerts)\n";
  if (state == "no_full") out << indent << "make a full backup: without one the logs restore nothing\n";
}

}  // namespace

void print_log_chain(const json_spirit::Object& database, std::ostream& out) {
  const std::string state = text_member(database, "state");
  out << "database " << one_line(text_member(database, "name")) << ": " << headline(state) << "\n";
  const json_spirit::Object full = object_member(database, "full");
  if (!full.empty())
    out << indent << "newest full backup: " << one_line(text_member(full, "short_id")) << ", "
        << one_line(text_member(full, "start_time")) << " to "
        << one_line(end_of_backup(text_member(full, "start_time"), text_member(full, "last_time"))) << "\n";
  const std::string time = one_line(text_member(database, "newest_recoverable_time"));
  out << indent << "newest recoverable time (UTC): " << (time.empty() ? "none" : time) << "\n";
  const json_spirit::Object catalog = object_member(database, "catalog");
  if (!catalog.empty())
    out << indent << "HANA's catalog: " << one_line(text_member(catalog, "short_id")) << ", "
        << one_line(text_member(catalog, "last_time")) << "\n";
  for (const auto& branch : object_rows(database, "branches")) print_branch(branch, out);
  print_waiting(object_rows(database, "waiting"), out);
  json_spirit::Array unread;
  (void)json_spirit::object_get(database, "unread", unread);
  if (!unread.empty()) out << indent << unread.size() << " objects have names that tell no log positions\n";
  print_next_step(state, out);
}

}  // namespace dorsal3
