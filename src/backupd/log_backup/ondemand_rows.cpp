#include "backupd/log_backup/ondemand_rows.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "backupd/log_backup/setup_store.h"

namespace backupd {

namespace {

constexpr char definition_key[] = "job_definition_uuid";
constexpr std::int64_t milliseconds_per_second = 1000;
constexpr char waits_behind[] = "waits until the earlier log backups of the database are recorded";
constexpr char waits_for_definition[] =
    "its definition was removed, and no other one backs up the logs of this database; enable log backup for it again";

constexpr char entry_columns[] =
    "q.id, q.job_uuid, q.def_id, q.host_uuid, q.sid, q.database_name, q.tries, q.due, q.run_id";
constexpr std::size_t entry_column_count = 9;
/// Those that people are shown: hold, message, and when the last object was stored.
constexpr char more_shown_columns[] =
    ", q.hold, q.message, (SELECT j.touched FROM backint_jobs j WHERE j.uuid = q.job_uuid)";
constexpr std::size_t shown_column_count = entry_column_count + 3;

Ondemand_Entry read_entry(const Sql_Row& row) {
  return {
      row.number(0), row.text(1), row.text(2), {row.text(3), row.text(4), row.text(5)}, row.number(6), row.number(7),
      row.text(8),   false,       {}};
}

Sql_Values of(const Ondemand_Database& database) { return {database.host_uuid, database.sid, database.name}; }

/// Whether HANA has backed up again what the record stands for: it took the first backup for failed, which nobody will
/// record then. hdbbackint may die after the last object was stored and before HANA has its answer.
bool was_begun_again(Sql_Session& session, const Ondemand_Database& database, const std::string& job_uuid) {
  Sql_Values values = of(database);
  values.emplace_back(job_uuid);
  return session
      .first(
          "SELECT g.id FROM backint_files f JOIN backint_files g ON g.sid = f.sid AND g.database_name = "
          "f.database_name AND g.origin_path = f.origin_path AND g.id > f.id WHERE g.host_uuid = :a AND f.sid = :b AND "
          "f.database_name = :c AND f.job_uuid = :d AND g.job_uuid <> f.job_uuid LIMIT 1",
          values, 1)
      .has_value();
}

/// Whether an entry of the database keeps the later ones back.
bool is_held_back(Sql_Session& session, const Ondemand_Database& database) {
  Sql_Values values = of(database);
  values.emplace_back(Ondemand_Entry::tries_in_order);
  const Sql_Rows rows = session.query(
      "SELECT job_uuid, tries FROM ondemand_runs WHERE host_uuid = :a AND sid = :b AND database_name = :c AND hold = 0 "
      "AND tries < :d",
      values, 2);
  // One that was not tried yet is begun before the others anyway.
  return std::any_of(rows.begin(), rows.end(), [&](const Sql_Row& row) {
    return row.number(1) == 0 || !was_begun_again(session, database, row.text(0));
  });
}

/// The oldest entry that was kept back is free, when nothing keeps it back any more.
void release_next(Sql_Session& session, const Ondemand_Database& database) {
  if (is_held_back(session, database)) return;
  session.execute(
      "UPDATE ondemand_runs SET hold = 0 WHERE id = (SELECT min(id) FROM ondemand_runs WHERE host_uuid = :a AND "
      "sid = :b AND database_name = :c AND hold = 1)",
      of(database));
}

/// How well a definition fits: 2 names the database, 1 its instance, 0 neither.
int fit(const json_spirit::Object& definition, const Ondemand_Database& database) {
  json_spirit::Object source;
  json_spirit::Array entries;
  std::string name;
  json_spirit::object_get(definition, "source", source);
  json_spirit::object_get(source, "name", name);
  json_spirit::object_get(source, "entries", entries);
  const std::string prefix = database.sid + "_";
  if (!is_set_up(definition) || !name.starts_with(prefix)) return 0;
  const std::string instance = "hana/" + name.substr(prefix.size());
  int best = 0;
  for (const json_spirit::Value& entry : entries) {
    if (!entry.is_string()) continue;
    if (entry.get_str() == instance + "/" + database.name) best = 2;
    if (entry.get_str() == instance) best = std::max(best, 1);
  }
  return best;
}

const char* state_of(const Ondemand_Entry& entry, Ondemand_Entry::Hold hold) {
  if (!entry.run.empty()) return "running";
  return hold == Ondemand_Entry::given_up ? "given up" : "waiting";
}

json_spirit::Object shown(const Sql_Row& row) {
  const Ondemand_Entry entry = read_entry(row);
  const auto hold = static_cast<Ondemand_Entry::Hold>(row.number(entry_column_count));
  const std::int64_t stored = row.is_null(entry_column_count + 2) ? 0 : row.number(entry_column_count + 2);
  std::string message = row.text(entry_column_count + 1);
  if (hold == Ondemand_Entry::behind) message = waits_behind;
  if (hold == Ondemand_Entry::no_definition) message = waits_for_definition;
  return {{"id", entry.id},
          {"definition_uuid", entry.definition_id},
          {"host_uuid", entry.database.host_uuid},
          {"sid", entry.database.sid},
          {"database", entry.database.name},
          {"backint_job_uuid", entry.job_uuid},
          {"state", state_of(entry, hold)},
          {"tries", entry.tries},
          {"next_try_ms", hold == Ondemand_Entry::free ? entry.due * milliseconds_per_second : std::int64_t{0}},
          {"stored_ms", stored * milliseconds_per_second},
          {"message", message}};
}

}  // namespace

void add_ondemand_run(Sql_Session& session, const std::string& job_uuid) {
  const auto job =
      session.first("SELECT host_uuid, sid, database_name, document FROM backint_jobs WHERE uuid = :a", {job_uuid}, 4);
  if (!job) return;
  const Ondemand_Database database{job->text(0), job->text(1), job->text(2)};
  if (session.first("SELECT id FROM ondemand_runs WHERE job_uuid = :a", {job_uuid}, 1)) {
    // More was saved into the record of one that was given up: it is owed a run like any other.
    if (session.execute("UPDATE ondemand_runs SET hold = 1, tries = 0, first_failed = 0, due = 0, message = '' WHERE "
                        "job_uuid = :a AND "
                        "hold = 3",
                        {job_uuid}) != 0)
      release_next(session, database);
    return;
  }
  json_spirit::Object attributes;
  std::string definition;
  json_spirit::object_get(stored_object(job->text(3)), "extended_attrs", attributes);
  json_spirit::object_get(attributes, definition_key, definition);
  session.execute(
      "INSERT INTO ondemand_runs (id, job_uuid, def_id, host_uuid, sid, database_name, tries, due, run_id, hold, "
      "message) VALUES (:a, :b, :c, :d, :e, :f, 0, 0, '', :g, '')",
      {session.next_number("ondemand_run"), job_uuid, definition, database.host_uuid, database.sid, database.name,
       Ondemand_Entry::behind});
  // Its turn, or that of an earlier one, for which it may have shown that nothing keeps it back.
  release_next(session, database);
}

void remove_ondemand_run(Sql_Session& session, const std::string& job_uuid) {
  const auto row =
      session.first("SELECT host_uuid, sid, database_name FROM ondemand_runs WHERE job_uuid = :a", {job_uuid}, 3);
  if (!row) return;
  session.execute("DELETE FROM ondemand_runs WHERE job_uuid = :a", {job_uuid});
  release_next(session, {row->text(0), row->text(1), row->text(2)});
}

std::vector<Ondemand_Entry> ondemand_runs_under_way(Sql_Session& session) {
  std::vector<Ondemand_Entry> entries;
  for (const Sql_Row& row :
       session.query(std::string("SELECT ") + entry_columns +
                         ", a.ended, a.document FROM ondemand_runs q LEFT JOIN activities a ON a.id = q.run_id "
                         "WHERE q.run_id <> ''",
                     {}, entry_column_count + 2)) {
    Ondemand_Entry& entry = entries.emplace_back(read_entry(row));
    entry.run_ended = row.is_null(entry_column_count) || row.number(entry_column_count) != 0;
    if (entry.run_ended && !row.is_null(entry_column_count + 1))
      json_spirit::object_get(stored_object(row.text(entry_column_count + 1)), "message", entry.run_message);
  }
  return entries;
}

std::vector<Ondemand_Entry> ondemand_runs_due(Sql_Session& session, std::int64_t now) {
  const std::string waiting =
      std::string("SELECT ") + entry_columns + " FROM ondemand_runs q WHERE q.hold = 0 AND q.run_id = '' AND q.due ";
  std::vector<Ondemand_Entry> entries;
  for (const Sql_Row& row : session.query(waiting + "<= :a", {now}, entry_column_count))
    entries.push_back(read_entry(row));
  // A date that was set back must not make a pause longer.
  for (const Sql_Row& row : session.query(waiting + "> :a", {now + ondemand_longest_pause_seconds}, entry_column_count))
    entries.push_back(read_entry(row));
  // Sorted here: asked for its order, the database would walk the whole table. Those out of order, which may never be
  // recorded, take no turn of the others.
  const auto place = [](const Ondemand_Entry& entry) {
    return std::pair(entry.tries >= Ondemand_Entry::tries_in_order, entry.id);
  };
  std::sort(entries.begin(), entries.end(),
            [&](const auto& left, const auto& right) { return place(left) < place(right); });
  return entries;
}

std::int64_t next_ondemand_due(Sql_Session& session, std::int64_t now) {
  const auto row =
      session.first("SELECT min(due) FROM ondemand_runs WHERE hold = 0 AND due > :a AND run_id = ''", {now}, 1);
  return row ? row->number(0) : 0;
}

bool put_off_ondemand_run(Sql_Session& session, const Ondemand_Entry& entry, std::int64_t now, std::int64_t due) {
  const std::int64_t changed = session.execute(
      "UPDATE ondemand_runs SET tries = :a, due = :b, run_id = '', message = :c, first_failed = CASE WHEN "
      "first_failed = 0 THEN :d ELSE first_failed END WHERE id = :e AND run_id = :f",
      {entry.tries + 1, due, entry.run_message, now, entry.id, entry.run});
  if (changed != 0) release_next(session, entry.database);
  return changed != 0;
}

bool give_up_ondemand_run(Sql_Session& session, const Ondemand_Entry& entry, std::int64_t now) {
  if (entry.tries + 1 < Ondemand_Entry::tries_in_order) return false;
  const auto row = session.first("SELECT first_failed FROM ondemand_runs WHERE id = :a", {entry.id}, 1);
  if (!row || row->number(0) == 0) return false;
  const std::int64_t limit = was_begun_again(session, entry.database, entry.job_uuid)
                                 ? Ondemand_Entry::seconds_when_begun_again
                                 : Ondemand_Entry::seconds_otherwise;
  // A date that was set back makes it wait longer, never shorter.
  if (now - row->number(0) < limit) return false;
  return session.execute("UPDATE ondemand_runs SET hold = 3 WHERE id = :a AND run_id = ''", {entry.id}) != 0;
}

// Their tries stay, so they take no turn of newer ones. The time in which they may fail begins anew: what failed weeks
// ago says nothing of the cause that was mended since.
void retry_given_up_runs(Sql_Session& session, const Ondemand_Database& database) {
  session.execute(
      "UPDATE ondemand_runs SET due = 0, hold = 0, first_failed = 0 WHERE host_uuid = :a AND sid = :b AND "
      "database_name = :c AND hold = 3",
      of(database));
}

json_spirit::Array drop_given_up_runs(Sql_Session& session, const Ondemand_Database& database) {
  json_spirit::Array dropped;
  const Sql_Rows rows = session.query(std::string("SELECT ") + entry_columns + more_shown_columns +
                                          " FROM ondemand_runs q WHERE q.host_uuid = :a AND q.sid = :b AND "
                                          "q.database_name = :c AND q.hold = 3 ORDER BY q.id",
                                      of(database), shown_column_count);
  for (const Sql_Row& row : rows) {
    const Ondemand_Entry entry = read_entry(row);
    // An open record with objects would be owed a run again.
    session.execute("UPDATE backint_jobs SET taken = 1 WHERE uuid = :a", {entry.job_uuid});
    session.execute("DELETE FROM ondemand_runs WHERE id = :a", {entry.id});
    dropped.emplace_back(shown(row));
  }
  return dropped;
}

void hold_without_definition(Sql_Session& session, const Ondemand_Entry& entry) {
  session.execute("UPDATE ondemand_runs SET hold = 2 WHERE id = :a", {entry.id});
  release_next(session, entry.database);
}

void definition_stored(Sql_Session& session, const std::string& host_uuid) {
  const Sql_Rows databases = session.query(
      "SELECT DISTINCT sid, database_name FROM ondemand_runs WHERE host_uuid = :a AND hold = 2", {host_uuid}, 2);
  for (const Sql_Row& row : databases) {
    const Ondemand_Database database{host_uuid, row.text(0), row.text(1)};
    session.execute(
        "UPDATE ondemand_runs SET hold = 1, due = 0 WHERE host_uuid = :a AND sid = :b AND database_name = :c AND "
        "hold = 2",
        of(database));
    release_next(session, database);
  }
}

std::string find_log_definition(Sql_Session& session, const Ondemand_Database& database) {
  std::string best;
  int best_fit = 0;
  for (const Sql_Row& row : session.query("SELECT id, document FROM job_definitions WHERE host_uuid = :a ORDER BY seq",
                                          {database.host_uuid}, 2)) {
    const int own = fit(stored_object(row.text(1)), database);
    if (own == 0 || own < best_fit) continue;
    best = row.text(0);
    best_fit = own;
  }
  return best;
}

void drain_ondemand_runs(Sql_Session& session, const Ondemand_Database& database) {
  session.execute(
      "UPDATE ondemand_runs SET due = 0, hold = CASE WHEN hold = 2 THEN 1 ELSE hold END WHERE host_uuid = :a AND "
      "sid = :b AND database_name = :c AND run_id = ''",
      of(database));
  release_next(session, database);
}

bool list_ondemand_runs(Database& database, const List_Query& query, Given_Up given_up, List_Page& page) {
  List_Query wanted = query;
  if (given_up == Given_Up::left_out) wanted.where_not("hold", std::int64_t{Ondemand_Entry::given_up});
  return database.read([&](Sql_Session& session) {
    page.total = count_rows(session, "ondemand_runs", wanted);
    for (const Sql_Row& row : select_rows(session, "ondemand_runs q", std::string(entry_columns) + more_shown_columns,
                                          shown_column_count, wanted))
      page.rows.emplace_back(shown(row));
  });
}

}  // namespace backupd
