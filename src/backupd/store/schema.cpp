#include "backupd/store/schema.h"

#include <vector>

#include "backupd/store/database.h"

namespace backupd {

namespace {

using Step = std::vector<const char*>;

// A step is never edited once it was released: a change is a new step at the end. Documents are kept whole as JSON
// text; a column beside them is there to be searched by. Numbers come from the table of counters, so that they mean the
// order of committing on every database product.
const std::vector<Step>& steps() {
  static const std::vector<Step> all = {
      {
          "CREATE TABLE access_keys (id BIGINT NOT NULL PRIMARY KEY, hash TEXT NOT NULL UNIQUE, role TEXT NOT NULL, "
          "host_uuid TEXT NOT NULL, created TEXT NOT NULL, revoked TEXT)",

          "CREATE TABLE hosts (uuid TEXT NOT NULL PRIMARY KEY, name TEXT NOT NULL, version TEXT NOT NULL, "
          "last_seen TEXT NOT NULL, modules TEXT NOT NULL)",

          "CREATE TABLE resources (uuid TEXT NOT NULL PRIMARY KEY, name TEXT NOT NULL, type TEXT NOT NULL, "
          "landscape TEXT NOT NULL, UNIQUE (name, type, landscape))",
          "CREATE TABLE instances (uuid TEXT NOT NULL PRIMARY KEY, resource_uuid TEXT NOT NULL, "
          "host_uuid TEXT NOT NULL, name TEXT NOT NULL, type TEXT NOT NULL, extended_attrs TEXT NOT NULL, "
          "seq BIGINT NOT NULL, UNIQUE (host_uuid, type, name))",
          "CREATE INDEX instances_by_resource ON instances (resource_uuid, seq)",

          "CREATE TABLE pools (uuid TEXT NOT NULL PRIMARY KEY, name TEXT NOT NULL UNIQUE, host_uuid TEXT NOT NULL, "
          "url TEXT NOT NULL, directory TEXT NOT NULL, max_bytes BIGINT NOT NULL)",

          "CREATE TABLE backint_jobs (id BIGINT NOT NULL PRIMARY KEY, uuid TEXT NOT NULL UNIQUE, "
          "host_uuid TEXT NOT NULL, job_act_id TEXT NOT NULL, sid TEXT NOT NULL, database_name TEXT NOT NULL, "
          "database_backup_id BIGINT NOT NULL, landscape_id TEXT NOT NULL, pool_uuid TEXT NOT NULL, "
          "taken BIGINT NOT NULL, document TEXT NOT NULL)",
          "CREATE INDEX backint_jobs_by_activity ON backint_jobs (job_act_id)",
          "CREATE INDEX backint_jobs_by_dataset ON backint_jobs (host_uuid, database_name, database_backup_id)",

          "CREATE TABLE backint_files (id BIGINT NOT NULL PRIMARY KEY, job_uuid TEXT NOT NULL, filename TEXT NOT NULL, "
          "origin_path TEXT NOT NULL, extern_backup_id TEXT NOT NULL, host_uuid TEXT NOT NULL, sid TEXT NOT NULL, "
          "database_name TEXT NOT NULL, pool_uuid TEXT NOT NULL, dataset TEXT NOT NULL, set_id BIGINT NOT NULL, "
          "document TEXT NOT NULL, UNIQUE (job_uuid, filename, extern_backup_id))",
          "CREATE INDEX backint_files_by_ebid ON backint_files (extern_backup_id)",
          "CREATE INDEX backint_files_by_path ON backint_files (sid, database_name, origin_path, id)",
          "CREATE INDEX backint_files_by_dataset ON backint_files (pool_uuid, dataset)",
          "CREATE INDEX backint_files_by_set ON backint_files (set_id)",

          "CREATE TABLE sets (id BIGINT NOT NULL PRIMARY KEY, uuid TEXT NOT NULL UNIQUE, module TEXT NOT NULL, "
          "type TEXT NOT NULL, resource_uuid TEXT NOT NULL, database_name TEXT NOT NULL, "
          "database_backup_id BIGINT NOT NULL, job_id TEXT NOT NULL, job_act_id TEXT NOT NULL, "
          "lifeline TEXT NOT NULL, start_time TEXT NOT NULL, source_size BIGINT NOT NULL, total_size BIGINT NOT NULL, "
          "document TEXT NOT NULL)",
          // The newest set of a database, also the newest of one of its backups.
          "CREATE INDEX sets_newest ON sets (resource_uuid, database_name, id)",
          "CREATE INDEX sets_of_backup ON sets (resource_uuid, database_name, database_backup_id, id)",
          // The full backup before a time, the catalog after one; with and without a lifeline.
          "CREATE INDEX sets_by_time ON sets (resource_uuid, database_name, type, start_time, id)",
          "CREATE INDEX sets_by_lifeline ON sets (resource_uuid, lifeline, database_name, type, start_time, id)",
          // Sizes are summed from the index alone.
          "CREATE INDEX sets_sizes ON sets (lifeline, database_backup_id, type, source_size, total_size)",
          "CREATE INDEX sets_by_activity ON sets (job_act_id)",
          "CREATE INDEX sets_by_job ON sets (job_id, id)",

          "CREATE TABLE alerts (id BIGINT NOT NULL PRIMARY KEY, uuid TEXT NOT NULL UNIQUE, job_act_id TEXT NOT NULL, "
          "job_id TEXT NOT NULL, document TEXT NOT NULL)",
          "CREATE INDEX alerts_by_activity ON alerts (job_act_id, id)",

          "CREATE TABLE job_definitions (id TEXT NOT NULL PRIMARY KEY, seq BIGINT NOT NULL, name TEXT NOT NULL, "
          "module TEXT NOT NULL, host_uuid TEXT NOT NULL, document TEXT NOT NULL)",
          "CREATE INDEX job_definitions_by_host ON job_definitions (host_uuid, module, seq)",

          "CREATE TABLE activities (id TEXT NOT NULL PRIMARY KEY, seq BIGINT NOT NULL, def_id TEXT NOT NULL, "
          "host_uuid TEXT NOT NULL, state BIGINT NOT NULL, ended BIGINT NOT NULL, document TEXT NOT NULL)",
          "CREATE INDEX activities_by_definition ON activities (def_id, ended, seq)",
          "CREATE INDEX activities_by_end ON activities (ended, seq)",

          "CREATE TABLE job_log (id BIGINT NOT NULL PRIMARY KEY, job_act_id TEXT NOT NULL, priority BIGINT NOT NULL, "
          "line TEXT NOT NULL, line_time TEXT NOT NULL)",
          "CREATE INDEX job_log_by_activity ON job_log (job_act_id, id)",
      },
      {
          // Why a set is a full backup although a smaller one was asked for; the runs show it.
          "ALTER TABLE sets ADD COLUMN requested_type TEXT NOT NULL DEFAULT ''",
          "ALTER TABLE sets ADD COLUMN lift_reason TEXT NOT NULL DEFAULT ''",
      },
      {
          // Sums of the sets that are no full backups, for spans of backup ids; see set_sizes.cpp.
          "CREATE TABLE set_sizes (lifeline TEXT NOT NULL, span BIGINT NOT NULL, delta BIGINT NOT NULL, "
          "source_size BIGINT NOT NULL, total_size BIGINT NOT NULL, PRIMARY KEY (lifeline, span, delta))",
          "INSERT INTO set_sizes (lifeline, span, delta, source_size, total_size) "
          "SELECT lifeline, span, delta, sum(source_size), sum(total_size) FROM (SELECT lifeline, "
          "database_backup_id / 172800000 AS span, CASE WHEN type IN ('incremental', 'differential') THEN 1 ELSE 0 END "
          "AS delta, source_size, total_size FROM sets WHERE type <> 'full') AS parts GROUP BY lifeline, span, delta",
      },
      {
          // Backups that HANA began by itself and that no backup set holds yet; see ondemand_queue.h.
          "CREATE TABLE ondemand_runs (id BIGINT NOT NULL PRIMARY KEY, job_uuid TEXT NOT NULL UNIQUE, "
          "def_id TEXT NOT NULL, host_uuid TEXT NOT NULL, sid TEXT NOT NULL, database_name TEXT NOT NULL, "
          "tries BIGINT NOT NULL, due BIGINT NOT NULL, run_id TEXT NOT NULL)",
      },
      {
          // Definitions that are set up at what they back up; see setup_store.h.
          "CREATE TABLE ondemand_setups (def_id TEXT NOT NULL PRIMARY KEY, host_uuid TEXT NOT NULL, "
          "wanted TEXT NOT NULL, state TEXT NOT NULL, message TEXT NOT NULL, alerts TEXT NOT NULL, "
          "state_time TEXT NOT NULL, renew BIGINT NOT NULL, tries BIGINT NOT NULL, due BIGINT NOT NULL, "
          "at_agent TEXT NOT NULL, wish BIGINT NOT NULL)",
      },
      {
          // A look at the queue reads what is due and what is under way: hold says what may not be begun, see
          // Ondemand_Entry::Hold.
          "ALTER TABLE ondemand_runs ADD COLUMN hold BIGINT NOT NULL DEFAULT 0",
          "ALTER TABLE ondemand_runs ADD COLUMN message TEXT NOT NULL DEFAULT ''",
          "UPDATE ondemand_runs SET hold = 1 WHERE EXISTS (SELECT 1 FROM ondemand_runs AS e WHERE e.id < "
          "ondemand_runs.id AND e.tries < 7 AND e.host_uuid = ondemand_runs.host_uuid AND e.sid = ondemand_runs.sid "
          "AND e.database_name = ondemand_runs.database_name)",
          "CREATE INDEX ondemand_runs_due ON ondemand_runs (due) WHERE hold = 0 AND run_id = ''",
          "CREATE INDEX ondemand_runs_under_way ON ondemand_runs (run_id) WHERE run_id <> ''",
          "CREATE INDEX ondemand_runs_of_database ON ondemand_runs (host_uuid, sid, database_name, hold, id)",
          // When something was stored for a record the last time, POSIX seconds: tells abandoned ones.
          "ALTER TABLE backint_jobs ADD COLUMN touched BIGINT NOT NULL DEFAULT 0",
          "CREATE INDEX backint_jobs_open ON backint_jobs (touched) WHERE taken = 0 AND job_act_id = ''",
      },
      {
          // Who asked for what on which host; see audit_store.h.
          "CREATE TABLE audit (id BIGINT NOT NULL PRIMARY KEY, host_uuid TEXT NOT NULL, document TEXT NOT NULL)",
          "CREATE INDEX audit_by_host ON audit (host_uuid, id)",
      },
      {
          // What a run does, to list the few that matter beside those of log backups. Runs from before have none.
          "ALTER TABLE activities ADD COLUMN kind TEXT NOT NULL DEFAULT ''",
          "CREATE INDEX activities_by_kind ON activities (kind, seq)",
          "CREATE INDEX activities_by_state ON activities (state, seq)",
      },
      {
          // When recording a backup failed the first time, POSIX seconds, 0 when it never has: tells what is given up.
          // What failed before this step counts from its next failure on.
          "ALTER TABLE ondemand_runs ADD COLUMN first_failed BIGINT NOT NULL DEFAULT 0",
      },
      {
          // What calls of hdbbackint have given HANA back for a run; see restored_bytes.h.
          "CREATE TABLE restored (job_act_id TEXT NOT NULL, call_uuid TEXT NOT NULL, bytes BIGINT NOT NULL, "
          "PRIMARY KEY (job_act_id, call_uuid))",
      },
      {
          // When a run ended, POSIX seconds, 0 while it goes on: tells old ones; see history_keeper.h.
          "ALTER TABLE activities ADD COLUMN ended_at BIGINT NOT NULL DEFAULT 0",
          "CREATE INDEX activities_by_age ON activities (ended_at) WHERE ended = 1",
      },
  };
  return all;
}

bool take_step(Database& database, int version) {
  return database.write([version](Sql_Session& session) {
    for (const char* statement : steps().at(static_cast<std::size_t>(version - 1))) session.execute(statement);
    session.execute("UPDATE schema_version SET version = :a", {std::int64_t{version}});
    return true;
  });
}

}  // namespace

int schema_version() { return static_cast<int>(steps().size()); }

bool upgrade_schema(Database& database, std::string& error) {
  std::int64_t found = 0;
  const bool ready = database.write([&found](Sql_Session& session) {
    session.execute("CREATE TABLE IF NOT EXISTS schema_version (version BIGINT NOT NULL)");
    session.execute("CREATE TABLE IF NOT EXISTS counters (name TEXT NOT NULL PRIMARY KEY, value BIGINT NOT NULL)");
    const auto row = session.first("SELECT version FROM schema_version", {}, 1);
    if (row)
      found = row->number(0);
    else
      session.execute("INSERT INTO schema_version (version) VALUES (0)");
    return true;
  });
  if (!ready) {
    error = "the database cannot be read; see the log for the cause";
    return false;
  }
  if (found > schema_version()) {
    error = "the database has version " + std::to_string(found) + ", this server knows up to " +
            std::to_string(schema_version()) + "; install the newer server again";
    return false;
  }
  for (int version = static_cast<int>(found) + 1; version <= schema_version(); ++version)
    if (!take_step(database, version)) {
      error = "the database cannot be brought to version " + std::to_string(version) + "; see the log for the cause";
      return false;
    }
  return true;
}

}  // namespace backupd
