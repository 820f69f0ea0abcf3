#include "server/backup.h"

#include <thread>

#include "base/clock.h"
#include "base/text.h"
#include "catalog/backup_log.h"

namespace standin {

namespace {
Sql_Error cannot_cancel(const std::string& why) { return {447, "backup could not be canceled: " + why}; }
}  // namespace

std::int64_t Backups::next_id() {
  const std::lock_guard guard(mutex_);
  last_id_ = std::max(now_ms(), last_id_ + 1);
  return last_id_;
}

std::optional<Sql_Error> Backups::start(System_State& state, const Backup_Request& request,
                                        std::shared_ptr<Running_Backup>& running) {
  const auto database = state.database(request.database);
  if (!database)
    return Sql_Error{447, "backup could not be completed: [332] invalid database name: " + request.database};
  if (database->status != "YES")
    return Sql_Error{447, "backup could not be completed: [2000009] database " + request.database + " is not started"};
  Catalog catalog(state);
  std::optional<Backup_Base> base;
  if (request.type != complete_backup) {
    base = catalog.base_of_delta(request.database, request.type == differential_backup);
    if (!base)
      return Sql_Error{447,
                       "backup could not be completed: [110043] A delta backup is not possible, there is no full data "
                       "backup of the database"};
  }
  auto fresh = std::make_shared<Running_Backup>();
  fresh->request = request;
  for (const Service& service : database->services) {
    fresh->services.push_back(std::make_unique<Running_Service>());
    fresh->services.back()->service = service;
  }
  fresh->id = next_id();
  {
    const std::lock_guard guard(mutex_);
    const auto& newest = newest_[request.database];
    if (newest) {
      const std::lock_guard inner(newest->mutex);
      if (!newest->finished)
        return Sql_Error{447, "backup could not be completed: [110044] another data backup of the database is running"};
    }
    newest_[request.database] = fresh;
    ++active_;
  }
  const std::int64_t late = faults_.number("catalog_late_ms", 0, request.database);
  fresh->entry = catalog.begin(request.database, request.type, fresh->id, request.comment, fresh->id, fresh->id + late);
  running = fresh;
  std::thread([this, fresh, base] { run(fresh, base); }).detach();
  return std::nullopt;
}

void Backups::run(const std::shared_ptr<Running_Backup>& running, std::optional<Backup_Base> base) {
  Backup_Run work(layout_, faults_, *running, catalogs_);
  const std::string failure = work.execute(base);
  {
    const std::lock_guard guard(running->mutex);
    if (!failure.empty()) running->error = Sql_Error{447, "backup could not be completed: " + failure};
    running->finished = true;
    running->ended.notify_all();
  }
  const std::lock_guard guard(mutex_);
  --active_;
  idle_.notify_all();
}

std::optional<Sql_Error> Backups::wait(Running_Backup& running) {
  std::unique_lock guard(running.mutex);
  running.ended.wait(guard, [&] { return running.finished; });
  return running.error;
}

std::optional<Sql_Error> Backups::cancel(System_State& state, const std::string& database, std::int64_t id) {
  if (!state.database(database)) return cannot_cancel("[332] invalid database name: " + database);
  std::shared_ptr<Running_Backup> running;
  {
    const std::lock_guard guard(mutex_);
    const auto found = newest_.find(database);
    if (found != newest_.end() && found->second && found->second->id == id) running = found->second;
  }
  if (running) return cancel_running(state, *running);
  const auto ended = Catalog(state).state_of_data_backup(database, id);
  if (!ended) return cannot_cancel("there is no data backup " + std::to_string(id) + " of database " + database);
  return cannot_cancel("backup " + std::to_string(id) + " is not running, its state is " + *ended);
}

std::optional<Sql_Error> Backups::cancel_running(System_State& state, Running_Backup& running) {
  const std::string& database = running.request.database;
  const std::string name = "backup " + std::to_string(running.id);
  const auto not_running = cannot_cancel(name + " is not running");
  // The entry is changed under the lock: it must not be pending again once its end is written.
  std::unique_lock guard(running.mutex);
  if (running.decided) return not_running;
  if (running.cancel_asked) {
    if (faults_.take("cancel_again", database).value_or("accept") == "refuse")
      return cannot_cancel(name + " is already being canceled");
    return std::nullopt;
  }
  const std::string outcome = faults_.take("cancel", database).value_or("canceled");
  if (outcome == "late") {
    running.unthrottled = true;
    running.ended.wait(guard, [&] { return running.decided; });
    return not_running;
  }
  running.cancel_outcome = outcome;
  running.cancel_asked = true;
  const bool with_end = faults_.take("cancel_pending_end", database).value_or("no") == "yes";
  Catalog(state).set_pending(running.entry, with_end);
  running.state = "cancel pending";
  constexpr std::int64_t default_pending_ms = 200;
  if (outcome == "canceled" || outcome == "failed") {
    const auto pending_ms = faults_.take("cancel_pending_ms", database);
    running.cancel_held = pending_ms.has_value();
    running.cancel_at_ms = now_ms() + parse_number(pending_ms.value_or("")).value_or(default_pending_ms);
  }
  return std::nullopt;
}

std::vector<Progress_Row> Backups::progress() {
  std::vector<Progress_Row> rows;
  const std::lock_guard guard(mutex_);
  for (const auto& [database, running] : newest_) {
    if (!running) continue;
    const std::int64_t age = now_ms() - running->id;
    if (const auto hidden = faults_.take("progress_hidden_ms", database))
      if (age < parse_number(*hidden).value_or(0)) continue;
    const bool zero = age < faults_.number("progress_zero_ms", 0, database);
    const std::lock_guard inner(running->mutex);
    for (const auto& service : running->services)
      rows.push_back({database, running->id, service->service.port, service->service.name, running->request.type,
                      running->state, running->id, running->end_ms, zero ? 0 : service->size.load(),
                      zero ? 0 : service->transferred.load()});
  }
  return rows;
}

void Backups::end_of(const std::string& database) {
  std::shared_ptr<Running_Backup> running;
  {
    const std::lock_guard guard(mutex_);
    const auto found = newest_.find(database);
    if (found != newest_.end()) running = found->second;
  }
  if (!running) return;
  running->cancel_at_ms = 1;
  wait(*running);
  const std::lock_guard guard(mutex_);
  newest_.erase(database);
}

void Backups::stop_all() {
  std::unique_lock guard(mutex_);
  for (const auto& [database, running] : newest_)
    if (running) running->cancel_at_ms = 1;
  idle_.wait(guard, [&] { return active_ == 0; });
}

}  // namespace standin
