#include "unit/hana/job/scripted_hdbsql.h"

#include <gtest/gtest.h>

#include <chrono>
#include <regex>

namespace backup_test {

namespace {

/// Only a broken test waits that long.
constexpr std::chrono::seconds real_limit{20};

constexpr const char* progress_view = "M_BACKUP_PROGRESS";

/// The statement within what hdbsql is given: between its connect command and its quit command.
std::string statement_of(const std::string& input) {
  const std::size_t start = input.find('\n');
  const std::size_t end = input.rfind("\n\\q\n");
  if (start == std::string::npos || end == std::string::npos || end <= start) return "no statement in: " + input;
  // The uuid of a set is new in each run.
  static const std::regex uuid("[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}");
  return std::regex_replace(input.substr(start + 1, end - start - 1), uuid, "<uuid>");
}

}  // namespace

Sql_Answer table(const std::string& header, const std::vector<std::string>& rows) {
  Sql_Answer answer;
  answer.standard_output = header + "\n";
  for (const std::string& row : rows) answer.standard_output += row + "\n";
  return answer;
}

Sql_Answer done() { return {}; }

Sql_Answer refused(const std::string& text) {
  Sql_Answer answer;
  answer.standard_error = text + "\n";
  answer.code = 2;
  return answer;
}

bool Scripted_Hdbsql::Clock::wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) {
  if (peer == nullptr || !peer->end_backup_when_watched()) return Virtual_Clock::wait_for(event, limit);
  EXPECT_TRUE(event.wait_real(real_limit)) << "the worker did not end with its statement";
  return true;
}

Scripted_Hdbsql::Scripted_Hdbsql(support::Scripted_Process_Runner& runner, Clock& clock) {
  clock.peer = this;
  runner.on([this](const support::Seen_Call& call, Sql_Answer& child) { return answer(call, child); });
}

Scripted_Hdbsql::~Scripted_Hdbsql() {
  for (const Step& step : steps_) ADD_FAILURE() << "statement that never came: " << step.sql;
}

void Scripted_Hdbsql::expect(const std::string& sql, Sql_Answer answer) {
  const std::lock_guard guard(mutex_);
  steps_.push_back({sql, std::move(answer), false, {}, {}});
}

void Scripted_Hdbsql::expect(const std::string& sql, Sql_Answer answer, unsigned times) {
  for (unsigned i = 0; i < times; ++i) expect(sql, answer);
}

void Scripted_Hdbsql::expect_on_and_on(const std::string& sql, Sql_Answer answer) {
  expect(sql, answer);
  const std::lock_guard guard(mutex_);
  last_ = {sql, std::move(answer), false, {}, {}};
}

void Scripted_Hdbsql::expect_backup(const std::string& sql, Sql_Answer answer, const std::string& progress_sql,
                                    std::vector<Sql_Answer> progress) {
  const std::lock_guard guard(mutex_);
  steps_.push_back(
      {sql, std::move(answer), true, progress_sql, std::deque<Sql_Answer>(progress.begin(), progress.end())});
}

std::vector<std::string> Scripted_Hdbsql::statements() const {
  const std::lock_guard guard(mutex_);
  return seen_;
}

bool Scripted_Hdbsql::all_came() const {
  const std::lock_guard guard(mutex_);
  return steps_.empty();
}

bool Scripted_Hdbsql::answer(const support::Seen_Call& call, Sql_Answer& child) {
  if (!call.program.ends_with("/hdbsql")) return false;
  const std::string sql = statement_of(call.input);
  std::unique_lock guard(mutex_);
  if (sql.find(progress_view) != std::string::npos && (backup_runs_ || (!steps_.empty() && steps_.front().blocks))) {
    answer_progress(guard, sql, child);
    return true;
  }
  seen_.push_back(sql);
  if (steps_.empty() && !last_.sql.empty()) steps_.push_back(last_);
  if (steps_.empty()) {
    ADD_FAILURE() << "statement that nobody expected: " << sql;
    child = refused("* 1: nobody expected this");
    return true;
  }
  Step step = std::move(steps_.front());
  steps_.pop_front();
  EXPECT_EQ(sql, step.sql);
  child = step.answer;
  if (!step.blocks) return true;
  backup_ = std::move(step);
  backup_runs_ = true;
  released_ = false;
  changed_.notify_all();
  child.before = [this, before = child.before] {
    if (before) before();
    wait_until_released();
  };
  return true;
}

void Scripted_Hdbsql::answer_progress(std::unique_lock<std::mutex>& guard, const std::string& sql, Sql_Answer& child) {
  // The monitor may be faster than the worker: the order told is that of the steps.
  EXPECT_TRUE(changed_.wait_for(guard, real_limit, [this] { return backup_runs_; })) << "no backup runs";
  seen_.push_back(sql);
  if (backup_.progress.empty()) {
    ADD_FAILURE() << "look at the progress that nobody expected: " << sql;
    child = refused("* 1: nobody expected this");
    return;
  }
  EXPECT_EQ(sql, backup_.progress_sql);
  child = backup_.progress.front();
  backup_.progress.pop_front();
}

bool Scripted_Hdbsql::end_backup_when_watched() {
  std::unique_lock guard(mutex_);
  if (!backup_runs_ && (steps_.empty() || !steps_.front().blocks)) return false;
  EXPECT_TRUE(changed_.wait_for(guard, real_limit, [this] { return backup_runs_; })) << "no backup runs";
  if (!backup_.progress.empty()) return false;
  released_ = true;
  changed_.notify_all();
  return true;
}

void Scripted_Hdbsql::wait_until_released() {
  std::unique_lock guard(mutex_);
  EXPECT_TRUE(changed_.wait_for(guard, real_limit, [this] { return released_; })) << "nobody watches the backup";
  backup_runs_ = false;
}

}  // namespace backup_test
