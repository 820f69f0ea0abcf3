#include "backupd/jobs/definition_store.h"

#include <algorithm>
#include <optional>
#include <vector>

#include "backupd/jobs/definition_check.h"
#include "backupd/log_backup/ondemand_rows.h"
#include "backupd/log_backup/setup_store.h"
#include "platform/clock.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

namespace backupd {

namespace {

constexpr char revision_key[] = "job_revision";
constexpr char creation_key[] = "creation_time";
constexpr char setup_key[] = "setup";
constexpr char pool_key[] = "pool_uuid";
constexpr char resource_key[] = "resource_uuid";

Outcome store_failed() {
  return Outcome::refuse(Outcome::internal, "the job definitions cannot be read or written now; see the server's log");
}

Outcome no_such_definition(const std::string& id) {
  return Outcome::refuse(Outcome::not_found, "there is no job definition " + id + "; list the definitions");
}

Outcome is_running(const std::string& id) {
  return Outcome::refuse(Outcome::conflict, "the job " + id + " is running; stop it or wait for its end");
}

bool runs(Sql_Session& session, const std::string& id) {
  return session.first("SELECT id FROM activities WHERE def_id = :a AND ended = 0 LIMIT 1", {id}, 1).has_value();
}

std::optional<json_spirit::Object> find(Sql_Session& session, const std::string& id) {
  const auto row = session.first("SELECT document FROM job_definitions WHERE id = :a", {id}, 1);
  if (!row) return std::nullopt;
  return stored_object(row->text(0));
}

/// Everything but what this server sets.
json_spirit::Object without_own_members(json_spirit::Object document) {
  document.erase(revision_key);
  document.erase(creation_key);
  return document;
}

void insert(Sql_Session& session, const Definition_Summary& summary, json_spirit::Object& document) {
  document[creation_key] = posix_time_to_utc_text(platform::Clock::current().wall_seconds());
  document[revision_key] = 1;
  session.execute(
      "INSERT INTO job_definitions (id, seq, name, module, host_uuid, document) VALUES (:a, :b, :c, :d, :e, :f)",
      {summary.id, session.next_number("job_definition"), summary.name, summary.module, summary.host_uuid,
       json_spirit::dump_json(document)});
}

void replace(Sql_Session& session, const Definition_Summary& summary, const json_spirit::Object& known,
             json_spirit::Object& document) {
  long revision = 0;
  std::string created;
  json_spirit::object_get(known, revision_key, revision);
  json_spirit::object_get(known, creation_key, created);
  document[creation_key] = created;
  document[revision_key] = revision + 1;
  session.execute("UPDATE job_definitions SET name = :a, module = :b, host_uuid = :c, document = :d WHERE id = :e",
                  {summary.name, summary.module, summary.host_uuid, json_spirit::dump_json(document), summary.id});
}

/// A log backup is set up at its agent, which another kind of job knows nothing of.
Outcome check_kind_stays(const json_spirit::Object& known, const json_spirit::Object& document) {
  if (is_set_up(known) == is_set_up(document)) return {};
  return Outcome::refuse(Outcome::conflict,
                         "a log backup does not become another kind of job, nor the other way round; remove the "
                         "definition and make a new one");
}

/// What must hold before a known definition is replaced.
Outcome check_replacement(Sql_Session& session, const json_spirit::Object& known, const json_spirit::Object& document,
                          const std::string& id) {
  if (Outcome outcome = check_kind_stays(known, document); !outcome.ok()) return outcome;
  return !is_set_up(document) && runs(session, id) ? is_running(id) : Outcome();
}

std::vector<std::string> hosts_of(Sql_Session& session, const std::string& resource) {
  std::vector<std::string> hosts;
  for (const Sql_Row& row :
       session.query("SELECT host_uuid FROM instances WHERE resource_uuid = :a ORDER BY seq", {resource}, 1))
    hosts.push_back(row.text(0));
  return hosts;
}

std::string joined(const std::vector<std::string>& texts) {
  std::string text;
  for (const std::string& one : texts) text += (text.empty() ? "" : ", ") + one;
  return text;
}

Outcome not_set_up(const std::string& id) {
  return Outcome::refuse(Outcome::invalid,
                         "the job definition " + id + " is no log backup, there is nothing to set up");
}

}  // namespace

Outcome Definition_Store::check_registered(const Definition_Summary& summary) {
  const std::string& system = summary.target_resource_uuid;
  if (system.empty()) {
    std::optional<Pool> pool;
    if (!pools_.find(summary.pool_uuid, pool)) return store_failed();
    return pool ? Outcome()
                : Outcome::refuse(Outcome::invalid,
                                  "the pool " + summary.pool_uuid + " is not registered; register it first");
  }
  std::vector<std::string> hosts;
  if (!database_.read([&](Sql_Session& session) { hosts = hosts_of(session, system); })) return store_failed();
  if (hosts.empty())
    return Outcome::refuse(Outcome::invalid,
                           "the system " + system + " to restore into is not registered; let it be discovered first");
  if (std::find(hosts.begin(), hosts.end(), summary.host_uuid) != hosts.end()) return {};
  return Outcome::refuse(Outcome::invalid, "the host " + summary.host_uuid + " of the restore is none of the system " +
                                               system + "; name one of its hosts: " + joined(hosts));
}

Outcome Definition_Store::put(const json_spirit::Object& body, json_spirit::Object& stored) {
  Definition_Summary summary;
  if (Outcome outcome = check_definition(body, summary); !outcome.ok()) return outcome;
  if (Outcome outcome = check_registered(summary); !outcome.ok()) return outcome;
  if (summary.id.empty()) summary.id = make_uuid();
  json_spirit::Object document = without_own_members(body);
  document["id"] = summary.id;
  document["target"] = summary.target_resource_uuid.empty()
                           ? json_spirit::Object{{pool_key, summary.pool_uuid}}
                           : json_spirit::Object{{resource_key, summary.target_resource_uuid}};
  if (is_set_up(document)) document["schedule"] = json_spirit::Object{{"type", schedule_on_demand}};
  Outcome outcome;
  const bool committed = database_.write([&](Sql_Session& session) {
    const auto known = find(session, summary.id);
    const bool same = known && without_own_members(*known) == document;
    const bool set_up = is_set_up(document);
    if (same) {
      outcome.kind = Outcome::already_done;
      document = *known;
    } else if (known) {
      outcome = check_replacement(session, *known, document, summary.id);
      if (!outcome.ok()) return false;
      replace(session, summary, *known, document);
    } else {
      insert(session, summary, document);
    }
    if (set_up) {
      want_setup(session, summary.id, summary.host_uuid, !same, false);
      definition_stored(session, summary.host_uuid);
    }
    return true;
  });
  if (!committed) return outcome.ok() ? store_failed() : outcome;
  stored = std::move(document);
  return outcome;
}

Outcome Definition_Store::get(const std::string& id, json_spirit::Object& definition) {
  std::optional<json_spirit::Object> found;
  if (!database_.read([&](Sql_Session& session) { found = find(session, id); })) return store_failed();
  if (!found) return no_such_definition(id);
  definition = std::move(*found);
  return {};
}

Outcome Definition_Store::remove(const std::string& id, bool forced) {
  Outcome outcome;
  const bool removed = database_.write([&](Sql_Session& session) {
    const auto known = find(session, id);
    Setup_Row setup;
    if (!known)
      outcome = no_such_definition(id);
    else if (is_set_up(*known) && find_setup(session, id, setup))
      want_removal(session, id, forced);
    else if (runs(session, id))
      outcome = is_running(id);
    else
      session.execute("DELETE FROM job_definitions WHERE id = :a", {id});
    return outcome.ok();
  });
  return removed || !outcome.ok() ? outcome : store_failed();
}

Outcome Definition_Store::renew(const std::string& id) {
  Outcome outcome;
  const bool stored = database_.write([&](Sql_Session& session) {
    const auto known = find(session, id);
    if (!known)
      outcome = no_such_definition(id);
    else if (!is_set_up(*known))
      outcome = not_set_up(id);
    if (!outcome.ok()) return false;
    std::string host_uuid;
    json_spirit::object_get(*known, "host_uuid", host_uuid);
    want_setup(session, id, host_uuid, false, true);
    return true;
  });
  return stored || !outcome.ok() ? outcome : store_failed();
}

Outcome Definition_Store::add_setup(json_spirit::Object& definition) {
  std::string id;
  Setup_Row row;
  bool found = false;
  json_spirit::object_get(definition, "id", id);
  if (!is_set_up(definition)) return {};
  if (!database_.read([&](Sql_Session& session) { found = find_setup(session, id, row); })) return store_failed();
  if (found) definition[setup_key] = to_json(row);
  return {};
}

Outcome Definition_Store::is_removed(const std::string& id, bool& removed) {
  Setup_Row row;
  bool found = false;
  if (!database_.read([&](Sql_Session& session) { found = find_setup(session, id, row); })) return store_failed();
  removed = found && row.wanted == Setup_Row::removed;
  return {};
}

bool Definition_Store::list(const List_Query& query, List_Page& page) {
  return database_.read([&](Sql_Session& session) {
    page.total = count_rows(session, "job_definitions", query);
    for (const Sql_Row& row : select_rows(session, "job_definitions", "document", 1, query))
      page.rows.emplace_back(stored_object(row.text(0)));
  });
}

Outcome Definition_Store::for_agent(json_spirit::Object& definition) {
  json_spirit::Object target;
  std::string uuid;
  std::optional<Pool> pool;
  json_spirit::object_get(definition, "target", target);
  if (target.contains(resource_key)) return {};
  json_spirit::object_get(target, pool_key, uuid);
  if (!pools_.find(uuid, pool)) return store_failed();
  if (!pool) return Outcome::refuse(Outcome::invalid, "the pool " + uuid + " of the job is not registered any more");
  target["location"] = pools_.url_of(*pool);
  definition["target"] = target;
  return {};
}

}  // namespace backupd
