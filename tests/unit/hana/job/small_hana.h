#pragma once

#include <atomic>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "support/scripted_process_runner.h"

namespace backup_test {

/// HANA's side of one data backup with the id 1700, for tests whose threads ask in no fixed order: a backup statement
/// blocks until its backup has ended, a cancel ends it. Answers hdbsql, hdbnsutil and sapcontrol of a running instance.
/// Safe for several threads.
class Small_Hana {
 public:
  explicit Small_Hana(support::Scripted_Process_Runner& runner);
  Small_Hana(const Small_Hana&) = delete;
  Small_Hana& operator=(const Small_Hana&) = delete;

  /// The backup stands in the catalog from its beginning; false: from the test's list_backup.
  void list_at_once(bool at_once) { list_at_once_ = at_once; }
  void list_backup();
  /// A cancel ends the statement at once, but in the catalog the backup stays pending until end_backup.
  void keep_cancel_pending(bool pending) { keep_pending_ = pending; }
  /// "successful", "canceled", "failed".
  void end_backup(const std::string& state);
  /// Waits until a backup statement blocks.
  void wait_for_backup();
  /// Waits for the `count`th question for the state.
  void wait_for_state_questions(std::size_t count);
  [[nodiscard]] std::size_t cancels() const;

  static constexpr const char* backup_id = "1700";

 private:
  bool answer(const support::Seen_Call& call, support::Scripted_Child& child);
  void answer_statement(const std::string& sql, support::Scripted_Child& child);
  void run_backup(support::Scripted_Child& child);
  void cancel();

  std::atomic<bool> list_at_once_{true};
  std::atomic<bool> keep_pending_{false};
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool statement_runs_ = false;  // all below guarded by mutex_
  bool statement_ended_ = false;
  bool listed_ = false;
  std::string state_;  ///< empty: the backup has no end yet
  std::size_t cancels_ = 0;
  std::size_t state_questions_ = 0;
};

}  // namespace backup_test
