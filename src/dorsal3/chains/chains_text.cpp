#include "dorsal3/chains/chains_text.h"

#include <ostream>

#include "dorsal3/jobs/job_view.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"

namespace dorsal3 {

namespace {

constexpr const char* tree_indent = "    ";
constexpr const char* full_indent = "  ";
constexpr const char* delta_indent = "    ";

std::string state_text(const json_spirit::Object& set) {
  json_spirit::Array pools;
  (void)json_spirit::object_get(set, "pools", pools);
  std::string names;
  for (const json_spirit::Value& pool : pools) names += (names.empty() ? "" : ", ") + pool.get_str();
  const std::string state = text_member(set, "state");
  return names.empty() ? state : state + (state == "missing" ? " from " : " on ") + names;
}

std::string note_text(const json_spirit::Object& set) {
  const std::string lifted = lift_text(text_member(set, "requested_type"), text_member(set, "lift_reason"));
  const std::string broken = text_member(set, "broken");
  return lifted + (lifted.empty() || broken.empty() ? "" : "; ") + broken;
}

void add_set(const std::string& indent, const json_spirit::Object& set, Text_Table& table) {
  const std::uint64_t source = number_member(set, "source_size");
  const std::uint64_t stored = number_member(set, "stored_size");
  table.add({indent + one_line(text_member(set, "type")) + " " + one_line(text_member(set, "short_id")),
             text_member(set, "database_backup_id"), one_line(text_member(set, "start_time")),
             one_line(end_of_backup(text_member(set, "start_time"), text_member(set, "last_time"))),
             format_bytes(source), format_bytes(stored), format_ratio(source, stored), one_line(state_text(set)),
             one_line(note_text(set))});
}

void add_chain(const json_spirit::Object& chain, Text_Table& table) {
  json_spirit::Object full;
  if (json_spirit::object_get(chain, "full", full))
    add_set(full_indent, full, table);
  else
    table.add({full_indent + std::string("no full backup: ") + one_line(text_member(chain, "broken"))});
  for (const auto& delta : object_rows(chain, "deltas")) add_set(delta_indent, delta, table);
}

void print_next(const json_spirit::Object& database, const char* key, const char* kind, std::ostream& out) {
  json_spirit::Object next;
  if (!json_spirit::object_get(database, key, next)) return;
  out << tree_indent << "next " << kind << ": ";
  const std::string reason = one_line(text_member(next, "reason"));
  if (!reason.empty()) {
    out << "a full backup will be made: " << reason << "\n";
    return;
  }
  const std::string pool = one_line(text_member(next, "pool"));
  out << "based on " << one_line(text_member(next, "based_on_short_id"));
  if (!pool.empty()) out << " (to another pool than " << pool << ": a full backup)";
  const std::string warning = one_line(text_member(next, "warning"));
  if (!warning.empty()) out << "\n" << tree_indent << "WARNING: " << warning;
  out << "\n";
}

void print_counts(const json_spirit::Object& database, std::ostream& out) {
  const std::uint64_t logs = number_member(database, "log_sets");
  const std::uint64_t catalogs = number_member(database, "catalog_sets");
  if (logs + catalogs == 0) return;
  out << tree_indent << "beside these: " << logs << " sets of log backups, " << catalogs
      << " of HANA's backup catalog\n";
}

}  // namespace

void print_chains(const json_spirit::Object& database, std::ostream& out) {
  const auto lifelines = object_rows(database, "lifelines");
  if (lifelines.empty())
    out << tree_indent << "no backup set yet\n";
  else {
    Text_Table table({"SET", "BACKUP ID", "BEGIN (UTC)", "END (UTC)", "SIZE", "STORED", "RATIO", "STATE", "NOTE"});
    for (const auto& lifeline : lifelines) {
      table.add({"lifeline " + one_line(text_member(lifeline, "short_id"))});
      for (const auto& chain : object_rows(lifeline, "chains")) add_chain(chain, table);
    }
    out << table.text(tree_indent);
  }
  print_counts(database, out);
  print_next(database, "next_incremental", "incremental", out);
  print_next(database, "next_differential", "differential", out);
}

}  // namespace dorsal3
