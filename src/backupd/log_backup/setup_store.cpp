#include "backupd/log_backup/setup_store.h"

#include "backupd/store/list_query.h"
#include "platform/clock.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

constexpr char subtype_log[] = "log";
constexpr char columns[] =
    "def_id, host_uuid, wanted, state, message, alerts, state_time, renew, tries, due, at_agent, "
    "wish";
constexpr std::size_t column_count = 12;

std::string now_text() { return posix_time_to_utc_text(platform::Clock::current().wall_seconds()); }

json_spirit::Array stored_array(const std::string& text) {
  json_spirit::Value value;
  return json_spirit::load_json(text, value) && value.is_array() ? value.get_array() : json_spirit::Array();
}

Setup_Row read_row(const Sql_Row& found) {
  Setup_Row row;
  row.definition_id = found.text(0);
  row.host_uuid = found.text(1);
  row.wanted = found.text(2);
  row.state = found.text(3);
  row.message = found.text(4);
  row.alerts = stored_array(found.text(5));
  row.time = found.text(6);
  row.renew = found.number(7) != 0;
  row.tries = found.number(8);
  row.due = found.number(9);
  if (const std::string document = found.text(10); !document.empty()) row.at_agent = stored_object(document);
  row.wish = found.number(11);
  return row;
}

void wish(Setup_Row& row, const char* wanted, const char* state) {
  row.wanted = wanted;
  row.state = state;
  row.message.clear();
  row.alerts.clear();
  row.time = now_text();
  row.tries = 0;
  row.due = 0;
  ++row.wish;
}

void store(Sql_Session& session, const Setup_Row& row) {
  session.execute(
      "UPDATE ondemand_setups SET host_uuid = :a, wanted = :b, state = :c, message = :d, alerts = :e, state_time = :f, "
      "renew = :g, tries = :h, due = :i, at_agent = :j, wish = :k WHERE def_id = :l",
      {row.host_uuid, row.wanted, row.state, row.message, json_spirit::dump_json(row.alerts), row.time,
       std::int64_t{row.renew}, row.tries, row.due,
       row.at_agent.empty() ? std::string() : json_spirit::dump_json(row.at_agent), row.wish, row.definition_id});
}

}  // namespace

bool is_set_up(const json_spirit::Object& definition) {
  std::string subtype;
  return json_spirit::object_get(definition, "subtype", subtype) && subtype == subtype_log;
}

bool find_setup(Sql_Session& session, const std::string& definition_id, Setup_Row& row) {
  const auto found = session.first(std::string("SELECT ") + columns + " FROM ondemand_setups WHERE def_id = :a",
                                   {definition_id}, column_count);
  if (found) row = read_row(*found);
  return found.has_value();
}

bool store_setup_result(Sql_Session& session, const Setup_Row& row) {
  Setup_Row known;
  if (!find_setup(session, row.definition_id, known)) return false;
  const bool current = known.wish == row.wish;
  if (!current) known.at_agent = row.at_agent;
  store(session, current ? row : known);
  return current;
}

void want_setup(Sql_Session& session, const std::string& definition_id, const std::string& host_uuid, bool changed,
                bool renew) {
  Setup_Row row;
  if (!find_setup(session, definition_id, row)) {
    session.execute(
        "INSERT INTO ondemand_setups (def_id, host_uuid, wanted, state, message, alerts, state_time, renew, tries, "
        "due, at_agent, wish) VALUES (:a, :b, :c, :d, '', '[]', :e, 0, 0, 0, '', 1)",
        {definition_id, host_uuid, std::string(Setup_Row::installed), std::string(Setup_Row::pending), now_text()});
    return;
  }
  if (row.wanted == Setup_Row::installed && row.settled() && !changed && !renew) return;
  row.renew = row.renew || renew;
  row.host_uuid = host_uuid;
  wish(row, Setup_Row::installed, Setup_Row::pending);
  store(session, row);
}

void want_removal(Sql_Session& session, const std::string& definition_id, bool forced) {
  Setup_Row row;
  if (!find_setup(session, definition_id, row)) return;
  if (row.wanted == Setup_Row::removed && row.settled()) return;
  wish(row, Setup_Row::removed, forced ? Setup_Row::removed : Setup_Row::pending);
  if (forced) row.at_agent.clear();
  row.renew = false;
  store(session, row);
}

void hasten_setups(Sql_Session& session, const std::string& host_uuid) {
  session.execute("UPDATE ondemand_setups SET due = 0, tries = 0 WHERE host_uuid = :a AND state <> wanted",
                  {host_uuid});
}

std::vector<Due_Setup> open_setups(Sql_Session& session) {
  std::vector<Due_Setup> open;
  for (const Sql_Row& row : session.query(
           "SELECT def_id, host_uuid, due FROM ondemand_setups WHERE state <> wanted ORDER BY due, def_id", {}, 3))
    open.push_back({row.text(0), row.text(1), row.number(2)});
  return open;
}

void forget_removed(Sql_Session& session, const std::string& time) {
  const std::string removed =
      "SELECT s.def_id FROM ondemand_setups s WHERE s.wanted = 'removed' AND s.state = "
      "'removed' AND s.state_time < :a AND NOT EXISTS (SELECT 1 FROM ondemand_runs q WHERE "
      "q.def_id = s.def_id) AND NOT EXISTS (SELECT 1 FROM activities a WHERE a.def_id = "
      "s.def_id AND a.ended = 0)";
  for (const Sql_Row& row : session.query(removed, {time}, 1)) {
    session.execute("DELETE FROM job_definitions WHERE id = :a", {row.text(0)});
    session.execute("DELETE FROM ondemand_setups WHERE def_id = :a", {row.text(0)});
  }
}

json_spirit::Object to_json(const Setup_Row& row) {
  return {{"wanted", row.wanted},
          {"state", row.state},
          {"message", row.message},
          {"alerts", row.alerts},
          {"time", row.time}};
}

}  // namespace backupd
