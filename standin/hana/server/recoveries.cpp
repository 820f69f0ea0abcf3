#include "server/recoveries.h"

#include "base/clock.h"
#include "server/recovery_run.h"

namespace standin {

namespace {
constexpr std::int64_t default_change_ms = 100;
constexpr int recovery_error = 448;
}  // namespace

bool Recoveries::running(const std::string& database) {
  const std::lock_guard guard(mutex_);
  return running_.contains(database);
}

std::optional<Sql_Error> Recoveries::run(System_State& state, const Recovery_Request& request,
                                         const std::string& database) {
  {
    const std::lock_guard guard(mutex_);
    if (stopping_) return Sql_Error{recovery_error, "recovery could not be completed: the instance stops"};
    if (!running_.insert(database).second)
      return Sql_Error{recovery_error,
                       "recovery could not be completed: another recovery of " + database + " is running"};
  }
  backups_.end_of(database);
  log_writer_.end_of(database);
  auto error = Recovery_Run(state, faults_, request, database, backups_.next_id(), [this] {
                 return stopping_.load();
               }).execute();
  const std::lock_guard guard(mutex_);
  running_.erase(database);
  idle_.notify_all();
  return error;
}

bool Recoveries::start_tenant(System_State& state, const std::string& database) {
  if (faults_.take("recovery_starts_tenant", database).value_or("yes") == "no") return true;
  if (!state.set_status(database, "STARTING")) return false;
  sleep_ms(faults_.number("database_change_ms", default_change_ms, database));
  return state.set_status(database, "YES");
}

std::optional<Sql_Error> Recoveries::recover_tenant(System_State& state, const Recovery_Request& request) {
  const auto database = state.database(request.database);
  if (!database || request.database == system_database)
    return Sql_Error{332, "invalid database name: " + request.database};
  if (database->status != "NO")
    return Sql_Error{recovery_error,
                     "recovery could not be completed: database " + request.database + " is not stopped"};
  if (auto error = run(state, request, request.database)) return error;
  if (!start_tenant(state, request.database)) return Sql_Error{2, "general error: the database could not be started"};
  return std::nullopt;
}

std::optional<Sql_Error> Recoveries::recover_system(System_State& state, const Recovery_Request& request) {
  const std::string database = layout_.multi() ? system_database : layout_.sid;
  // Each tenant needs its own start or recovery after this.
  for (const Database& tenant : state.databases())
    if (tenant.name != database && !state.set_status(tenant.name, "NO"))
      return Sql_Error{recovery_error, "recovery could not be completed: the tenants' state cannot be written"};
  return run(state, request, database);
}

void Recoveries::stop_all() {
  stopping_ = true;
  std::unique_lock guard(mutex_);
  idle_.wait(guard, [&] { return running_.empty(); });
}

}  // namespace standin
