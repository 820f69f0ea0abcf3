#include "backupd/log_backup/setup_keeper.h"

#include <algorithm>

#include "platform/log.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

constexpr std::chrono::seconds setup_timeout{120};
constexpr std::int64_t seconds_per_minute = 60;
constexpr std::int64_t longest_pause_minutes = 60;
/// 2 to this power is above the longest pause.
constexpr std::int64_t largest_doubling = 6;
constexpr std::chrono::hours nothing_due{1};
constexpr std::chrono::minutes look_again{1};

std::int64_t now() { return platform::Clock::current().wall_seconds(); }

std::int64_t pause_seconds(std::int64_t tries) {
  const std::int64_t doubled = std::int64_t{1} << std::clamp<std::int64_t>(tries - 1, 0, largest_doubling);
  return std::min(longest_pause_minutes, doubled) * seconds_per_minute;
}

/// How long it is until `due` (POSIX seconds); 0 for a date that was set back, which must not make a pause longer.
std::int64_t seconds_until(std::int64_t due) {
  const std::int64_t left = due - now();
  return left > longest_pause_minutes * seconds_per_minute ? 0 : std::max<std::int64_t>(0, left);
}

void set_state(Setup_Row& row, const char* state, const std::string& message) {
  row.state = state;
  row.message = message;
  row.time = posix_time_to_utc_text(now());
}

void put_off(Setup_Row& row, const char* state, const std::string& message) {
  set_state(row, state, message);
  row.due = now() + pause_seconds(++row.tries);
}

std::string host_of(const json_spirit::Object& document) {
  std::string host;
  json_spirit::object_get(document, "host_uuid", host);
  return host;
}

/// No answer is no refusal: the agent may be busy, restarting, or cut off.
bool may_answer_later(const JSON_RPC_Answer& answer) {
  return answer.code == JSON_RPC_E_NOT_CONNECTED || answer.code == JSON_RPC_E_TIMEOUT ||
         answer.code == JSON_RPC_E_SERVER;
}

}  // namespace

/// The right to settle one definition, for the life of this object.
class Setup_Keeper::Turn {
 public:
  Turn(Setup_Keeper& keeper, std::string id) : keeper_(keeper), id_(std::move(id)) {
    std::unique_lock lock(keeper_.mutex_);
    keeper_.turn_ended_.wait(lock, [this] { return !keeper_.busy_.contains(id_); });
    keeper_.busy_.insert(id_);
  }
  ~Turn() {
    {
      const std::lock_guard lock(keeper_.mutex_);
      keeper_.busy_.erase(id_);
    }
    keeper_.turn_ended_.notify_all();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

 private:
  Setup_Keeper& keeper_;
  const std::string id_;
};

Setup_Keeper::~Setup_Keeper() {
  stopping_.set();
  work_.set();
  if (thread_.joinable()) thread_.join();
}

void Setup_Keeper::start() {
  thread_ = std::thread([this] { run(); });
}

void Setup_Keeper::agent_came(const std::string& host_uuid) {
  const bool stored = database_.write([&](Sql_Session& session) {
    hasten_setups(session, host_uuid);
    return true;
  });
  // Otherwise they wait for their next time.
  if (stored) work_.set();
}

void Setup_Keeper::run() {
  for (;;) {
    work_.reset();
    // Looked at after the reset, which may have taken back the last wake.
    if (stopping_.is_set()) return;
    static_cast<void>(platform::Clock::current().wait_for(work_, work()));
  }
}

std::chrono::seconds Setup_Keeper::work() {
  std::vector<Due_Setup> open;
  const std::string kept_since = posix_time_to_utc_text(now() - std::chrono::seconds(removed_are_kept).count());
  if (!database_.write([&](Sql_Session& session) {
        forget_removed(session, kept_since);
        open = open_setups(session);
        return true;
      }))
    return look_again;
  std::chrono::seconds next = nothing_due;
  for (const Due_Setup& setup : open) {
    if (stopping_.is_set()) break;
    if (const std::int64_t left = seconds_until(setup.due); left > 0) {
      next = std::min(next, std::chrono::seconds(left));
    } else if (agents_.is_connected(setup.host_uuid)) {
      const std::int64_t begun = now();
      settle_now(setup.definition_id);
      next = std::min(next, left_of(setup.definition_id, begun));
    }
  }
  return next;
}

std::chrono::seconds Setup_Keeper::left_of(const std::string& definition_id, std::int64_t begun) {
  Setup_Row row;
  bool found = false;
  if (!database_.read([&](Sql_Session& session) { found = find_setup(session, definition_id, row); }))
    return look_again;
  if (!found || row.settled()) return nothing_due;
  // What came of it could not be stored.
  if (row.due <= begun) return look_again;
  return std::chrono::seconds(seconds_until(row.due));
}

void Setup_Keeper::settle(const std::string& definition_id) {
  settle_now(definition_id);
  // The thread does not know yet when it is to be tried again.
  work_.set();
}

void Setup_Keeper::settle_now(const std::string& definition_id) {
  const Turn turn(*this, definition_id);
  while (!settle_once(definition_id) && !stopping_.is_set()) {
  }
}

bool Setup_Keeper::settle_once(const std::string& definition_id) {
  Setup_Row row;
  // One that is not due was tried for the same wish while this thread waited for its turn.
  if (!find(definition_id, row) || row.settled() || seconds_until(row.due) > 0) return true;
  if (!bring(row)) return false;
  if (!row.settled())
    D3_WARNING("The log backup definition %C is not %C: %C\n", definition_id.c_str(), row.wanted.c_str(),
               platform::cut_for_log(row.message).c_str());
  return store(row) != Stored::overtaken;
}

bool Setup_Keeper::bring(Setup_Row& row) {
  json_spirit::Object document;
  row.alerts.clear();
  if (row.wanted == Setup_Row::installed && !document_of(row, document)) return true;
  const bool removal = row.wanted == Setup_Row::removed || row.renew || row.at_agent != document;
  if (!row.at_agent.empty() && removal) {
    if (!ask(row, "job.unsetup", row.at_agent)) return true;
    row.at_agent.clear();
    row.renew = false;
  }
  if (row.wanted == Setup_Row::removed) {
    set_state(row, Setup_Row::removed, row.message);
    return true;
  }
  // From here on something may be there, whatever becomes of the answer.
  row.at_agent = document;
  const Stored noted = store(row);
  if (noted == Stored::failed)
    put_off(row, Setup_Row::pending, "what is asked of the agent cannot be noted; see the server's log");
  else if (noted == Stored::yes && ask(row, "job.setup", document))
    set_state(row, Setup_Row::installed, row.message);
  return noted != Stored::overtaken;
}

/// What the agent is to set up.
bool Setup_Keeper::document_of(Setup_Row& row, json_spirit::Object& document) {
  Outcome outcome = definitions_.get(row.definition_id, document);
  if (outcome.ok()) outcome = definitions_.for_agent(document);
  if (outcome.ok()) outcome = resources_.address(document, row.host_uuid);
  if (!outcome.ok()) put_off(row, Setup_Row::failed, outcome.message);
  return outcome.ok();
}

bool Setup_Keeper::ask(Setup_Row& row, const char* method, const json_spirit::Object& document) {
  const std::string host = host_of(document);
  const JSON_RPC_Answer answer =
      agents_.call(host, method, json_spirit::Object{{"definition", document}}, setup_timeout);
  if (!answer.ok) {
    put_off(row, may_answer_later(answer) ? Setup_Row::pending : Setup_Row::failed,
            answer.message + (answer.code == JSON_RPC_E_NOT_CONNECTED ? "; it is done when the agent is back" : ""));
    return false;
  }
  long code = -1;
  json_spirit::Object result;
  if (answer.result.is_object()) result = answer.result.get_obj();
  row.message.clear();
  json_spirit::object_get(result, "message", row.message);
  json_spirit::object_get(result, "alerts", row.alerts);
  if (json_spirit::object_get(result, "code", code) && code == 0) return true;
  put_off(row, Setup_Row::failed, row.message);
  return false;
}

bool Setup_Keeper::find(const std::string& definition_id, Setup_Row& row) {
  bool found = false;
  return database_.read([&](Sql_Session& session) { found = find_setup(session, definition_id, row); }) && found;
}

Setup_Keeper::Stored Setup_Keeper::store(const Setup_Row& row) {
  bool current = false;
  const bool stored = database_.write([&](Sql_Session& session) {
    current = store_setup_result(session, row);
    return true;
  });
  if (!stored) return Stored::failed;
  return current ? Stored::yes : Stored::overtaken;
}

}  // namespace backupd
