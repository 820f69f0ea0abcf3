#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <vector>

#include "support/scripted_process_runner.h"
#include "support/virtual_clock.h"

namespace backup_test {

/// What hdbsql prints for one statement.
using Sql_Answer = support::Scripted_Child;

/// A result as hdbsql prints it: the header line and one line a row.
Sql_Answer table(const std::string& header, const std::vector<std::string>& rows);
/// A statement that succeeds and prints nothing.
Sql_Answer done();
/// A statement that HANA refuses with `text` ("* 10: ...").
Sql_Answer refused(const std::string& text = "* 258: insufficient privilege");

/// The peer behind every hdbsql of a test: the statements that are expected, in order, each with its answer. Another
/// statement, or one that never came, fails the test with both texts. A backup runs until the looks at its progress
/// that are expected have been taken; then the wait of the monitor ends early, as it does when the worker ends. Every
/// uuid in a statement is seen as "<uuid>".
class Scripted_Hdbsql {
 public:
  /// Time passes on this clock, which is the process's own for its life.
  class Clock : public support::Virtual_Clock {
   public:
    using Virtual_Clock::Virtual_Clock;
    bool wait_for(platform::Wait_Event& event, std::chrono::nanoseconds limit) override;
    Scripted_Hdbsql* peer = nullptr;
  };

  Scripted_Hdbsql(support::Scripted_Process_Runner& runner, Clock& clock);
  ~Scripted_Hdbsql();
  Scripted_Hdbsql(const Scripted_Hdbsql&) = delete;
  Scripted_Hdbsql& operator=(const Scripted_Hdbsql&) = delete;

  void expect(const std::string& sql, Sql_Answer answer);
  /// The same answer to the same statement, `times` times.
  void expect(const std::string& sql, Sql_Answer answer, unsigned times);
  /// The same answer to the same statement as often as it comes when all that is expected has come; at least once.
  void expect_on_and_on(const std::string& sql, Sql_Answer answer);
  /// A statement that blocks; while it does, `progress_sql` is asked once per answer.
  void expect_backup(const std::string& sql, Sql_Answer answer, const std::string& progress_sql,
                     std::vector<Sql_Answer> progress);
  /// Every statement so far; a look at the progress stands behind its backup.
  [[nodiscard]] std::vector<std::string> statements() const;
  [[nodiscard]] bool all_came() const;

 private:
  struct Step {
    std::string sql;
    Sql_Answer answer;
    bool blocks = false;
    std::string progress_sql;
    std::deque<Sql_Answer> progress;
  };

  bool answer(const support::Seen_Call& call, Sql_Answer& child);
  void answer_progress(std::unique_lock<std::mutex>& guard, const std::string& sql, Sql_Answer& child);
  [[nodiscard]] bool end_backup_when_watched();
  void wait_until_released();

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Step> steps_;
  Step last_;  ///< answered on and on; no statement: there is none
  Step backup_;
  bool backup_runs_ = false;
  bool released_ = false;
  std::vector<std::string> seen_;
};

}  // namespace backup_test
