#include "dorsal3/restore/restore_plan_text.h"

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/terminal/time_argument.h"

namespace dorsal3 {

namespace {

json_spirit::Object member(const json_spirit::Object& object, const char* key) {
  json_spirit::Object found;
  (void)json_spirit::object_get(object, key, found);
  return found;
}

std::string target_label(const json_spirit::Object& target) {
  return one_line(text_member(target, "name") + "/" + text_member(target, "database"));
}

/// Objects that are there out of all: "all 3", "1 of 3 MISSING", "1 of 3 MISSING, 2 not looked for".
std::string presence(const std::vector<json_spirit::Object>& objects) {
  std::size_t present = 0;
  std::size_t unknown = 0;
  for (const auto& object : objects) {
    const std::string state = text_member(object, "state");
    present += state == "present" ? 1 : 0;
    unknown += state == "unknown" ? 1 : 0;
  }
  const std::string count = std::to_string(objects.size());
  if (present == objects.size()) return "all " + count;
  if (unknown == objects.size()) return count + " not looked for";
  const std::size_t bad = objects.size() - present - unknown;
  const std::string of_all = " of " + count;
  const std::string not_looked = std::to_string(unknown) + (bad == 0 ? of_all : "") + " not looked for";
  if (bad == 0) return not_looked;
  return std::to_string(bad) + of_all + " MISSING" + (unknown == 0 ? "" : ", " + not_looked);
}

std::string what_of(const json_spirit::Object& set) {
  if (set.find("volume") == nullptr) return one_line(text_member(set, "type"));
  return "log of volume " + text_member(set, "volume") + ", " + text_member(set, "first_position") + " to " +
         text_member(set, "last_position");
}

void add_row(Text_Table& table, const json_spirit::Object& set, const std::string& what) {
  table.add({what, one_line(text_member(set, "first_time")), one_line(text_member(set, "uuid")),
             format_bytes(number_member(set, "size")), format_bytes(number_member(set, "stored_size")),
             presence(object_rows(set, "objects")), one_line(text_member(set, "pool"))});
}

void print_sets(const json_spirit::Object& plan, std::ostream& out) {
  const auto sets = object_rows(plan, "sets");
  const json_spirit::Object catalog = member(plan, "catalog");
  if (sets.empty() && catalog.empty()) return;
  Text_Table table({"READ", "BEGUN (UTC)", "SET", "SIZE", "STORED", "ON THE POOL", "POOL"});
  for (const auto& set : sets) add_row(table, set, what_of(set));
  if (!catalog.empty()) add_row(table, catalog, flag_member(catalog, "staged") ? "catalog, staged" : "catalog");
  out << table.text("  ");
  const json_spirit::Object totals = member(plan, "totals");
  out << "  " << number_member(totals, "objects") << " objects, " << format_bytes(number_member(totals, "size")) << ", "
      << format_bytes(number_member(totals, "stored_size")) << " stored\n";
}

void print_missing(const json_spirit::Object& plan, std::ostream& out) {
  auto sets = object_rows(plan, "sets");
  if (json_spirit::Object catalog = member(plan, "catalog"); !catalog.empty()) sets.push_back(std::move(catalog));
  for (const auto& set : sets)
    for (const auto& object : object_rows(set, "objects"))
      if (const std::string state = text_member(object, "state"); state != "present" && state != "unknown")
        out << "  " << one_line(state) << ": " << one_line(text_member(object, "path")) << "\n";
}

void print_remarks(const json_spirit::Object& plan, const char* key, const char* label, std::ostream& out) {
  for (const auto& remark : object_rows(plan, key))
    out << label << one_line(text_member(remark, "message")) << " [" << one_line(text_member(remark, "code")) << "]\n";
}

void print_nearest(const json_spirit::Object& plan, const char* key, std::ostream& out) {
  const json_spirit::Object point = member(plan, key);
  if (point.empty()) return;
  const std::string set = text_member(point, "set");
  out << "  nearest " << key << " it: " << one_line(time_for_people(text_member(point, "time")))
      << (set.empty() ? "" : ", --set " + one_line(set)) << "\n";
}

std::string host_label(const json_spirit::Object& host) {
  const std::string name = one_line(text_member(host, "host"));
  const std::string uuid = one_line(text_member(host, "host_uuid"));
  return name.empty() ? uuid : name + " (" + uuid + ")";
}

/// Empty when the server does not tell.
std::string where_it_runs(const json_spirit::Object& target) {
  const std::string host = host_label(target);
  return host.empty() ? host : "It runs on the host " + host + ".";
}

std::string what_others_do(const json_spirit::Object& target) {
  std::string others;
  for (const auto& host : object_rows(target, "other_hosts")) others += (others.empty() ? "" : ", ") + host_label(host);
  return others.empty() ? others : " When it is back, the other hosts of the system are restarted: " + others + ".";
}

}  // namespace

std::string what_stops(const json_spirit::Object& plan) {
  const json_spirit::Object target = member(plan, "target");
  if (text_member(target, "stops") == "instance")
    return "The whole instance " + one_line(text_member(target, "name")) +
           " is stopped meanwhile, with every database of it; tenants stay down until each is started." +
           what_others_do(target);
  return "The database " + target_label(target) + " is stopped meanwhile.";
}

std::string what_is_overwritten(const json_spirit::Object& plan) {
  const json_spirit::Object target = member(plan, "target");
  if (flag_member(target, "create"))
    return "The database " + target_label(target) + " does not exist. It is created first: CREATE DATABASE " +
           one_line(text_member(target, "database")) + " SYSTEM USER PASSWORD ... NO START.";
  const json_spirit::Value* const exists = target.find("exists");
  if (exists != nullptr && !flag_member(target, "exists"))
    return "The database " + target_label(target) + " does not exist.";
  return "All that " + target_label(target) + " holds now is overwritten, and its log is cleared.";
}

void print_restore_plan(const json_spirit::Object& plan, std::ostream& out) {
  const json_spirit::Object target = member(plan, "target");
  const bool full = text_member(plan, "kind") == "full";
  out << "Restore " << one_line(text_member(plan, "name")) << "/" << one_line(text_member(plan, "database"))
      << (flag_member(target, "in_place") ? "" : " into " + target_label(target))
      << (full ? " from a full backup" : " to " + one_line(time_for_people(text_member(plan, "time")))) << "\n";
  print_sets(plan, out);
  print_missing(plan, out);
  if (const std::string host = where_it_runs(target); !host.empty()) out << host << "\n";
  if (!flag_member(target, "create")) out << what_stops(plan) << "\n";
  out << what_is_overwritten(plan) << "\n";
  if (const std::string statement = text_member(plan, "statement"); !statement.empty())
    out << "HANA is told: " << one_line(statement) << "\n";
  print_remarks(plan, "notes", "Note: ", out);
  print_remarks(plan, "refusals", "REFUSED: ", out);
  print_nearest(plan, "before", out);
  print_nearest(plan, "after", out);
}

}  // namespace dorsal3
