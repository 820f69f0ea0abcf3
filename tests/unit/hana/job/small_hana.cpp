#include "unit/hana/job/small_hana.h"

#include <gtest/gtest.h>

#include <chrono>

#include "unit/hana/job/scripted_hdbsql.h"

namespace backup_test {

namespace {

/// Only a broken test waits that long.
constexpr std::chrono::seconds real_limit{20};
constexpr int all_processes_run = 3;  // exit code of sapcontrol

bool speaks_of(const std::string& sql, const char* words) { return sql.find(words) != std::string::npos; }

}  // namespace

Small_Hana::Small_Hana(support::Scripted_Process_Runner& runner) {
  runner.on([this](const support::Seen_Call& call, support::Scripted_Child& child) { return answer(call, child); });
}

void Small_Hana::list_backup() {
  const std::lock_guard guard(mutex_);
  listed_ = true;
  changed_.notify_all();
}

void Small_Hana::end_backup(const std::string& state) {
  const std::lock_guard guard(mutex_);
  state_ = state;
  statement_ended_ = true;
  changed_.notify_all();
}

void Small_Hana::wait_for_backup() {
  std::unique_lock guard(mutex_);
  EXPECT_TRUE(changed_.wait_for(guard, real_limit, [this] { return statement_runs_; })) << "no backup came";
}

void Small_Hana::wait_for_state_questions(std::size_t count) {
  std::unique_lock guard(mutex_);
  EXPECT_TRUE(changed_.wait_for(guard, real_limit, [&] { return state_questions_ >= count; })) << "nobody asks";
}

std::size_t Small_Hana::cancels() const {
  const std::lock_guard guard(mutex_);
  return cancels_;
}

bool Small_Hana::answer(const support::Seen_Call& call, support::Scripted_Child& child) {
  if (call.program.ends_with("/hdbnsutil")) {
    child.standard_output = "mode: none\n";
    return true;
  }
  if (call.program.ends_with("/sapcontrol")) {
    child.code = all_processes_run;
    return true;
  }
  if (!call.program.ends_with("/hdbsql")) return false;
  answer_statement(call.input, child);
  return true;
}

void Small_Hana::answer_statement(const std::string& sql, support::Scripted_Child& child) {
  if (speaks_of(sql, "BACKUP DATA")) {
    child.before = [this, &child] { run_backup(child); };
    return;
  }
  if (speaks_of(sql, "BACKUP CANCEL")) return cancel();
  const std::lock_guard guard(mutex_);
  if (speaks_of(sql, "ACTIVE_STATUS"))
    child = table("ACTIVE_STATUS", {"\"YES\""});
  else if (speaks_of(sql, "M_BACKUP_PROGRESS"))
    child = table("START_TIME,BACKUP_SIZE,TRANSFERRED_SIZE", {});
  else if (speaks_of(sql, "as END_TIME"))
    child = table("START_TIME,END_TIME", {"\"2023-11-14 22:13:20\",\"2023-11-14 22:14:20\""});
  else if (speaks_of(sql, "STATE_NAME, SYS_END_TIME")) {
    ++state_questions_;
    const bool pending = state_.empty() && cancels_ != 0;
    child = table("STATE_NAME,SYS_END_TIME",
                  {state_.empty() ? std::string(pending ? "\"cancel pending\",?" : "\"running\",?")
                                  : "\"" + state_ + "\",\"2023-11-14 22:14:20\""});
  } else {
    child = table("BACKUP_ID", listed_ ? std::vector<std::string>{backup_id} : std::vector<std::string>());
  }
  changed_.notify_all();
}

void Small_Hana::run_backup(support::Scripted_Child& child) {
  std::unique_lock guard(mutex_);
  statement_runs_ = true;
  statement_ended_ = false;
  state_.clear();
  cancels_ = 0;
  if (list_at_once_) listed_ = true;
  changed_.notify_all();
  EXPECT_TRUE(changed_.wait_for(guard, real_limit, [this] { return statement_ended_; })) << "nobody ends the backup";
  statement_runs_ = false;
  if (state_ == "successful") return;
  constexpr int refused_code = 2;
  child.code = refused_code;
  child.standard_error = state_ == "failed" ? "* 447: backup could not be completed\n"
                                            : "* 447: backup could not be completed, Backup was canceled by user\n";
}

void Small_Hana::cancel() {
  const std::lock_guard guard(mutex_);
  ++cancels_;
  if (!keep_pending_) state_ = "canceled";
  statement_ended_ = true;
  changed_.notify_all();
}

}  // namespace backup_test
