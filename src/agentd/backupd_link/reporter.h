#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "agentd/backupd_link/outbox.h"
#include "job/activity_listener.h"
#include "job/job_alert.h"
#include "job/job_log.h"
#include "platform/clock.h"

namespace agentd {

/// Brings what happens on this host to backupd: states and progress, log lines, alerts. While backupd is away all of it
/// goes to the outbox; nothing is taken from there before it was acknowledged. One thread sends; it sleeps while there
/// is nothing to send.
///
/// A final state is safe from the moment the job wrote its activity record, which is removed only after backupd has
/// acknowledged it; an alert is on disk before raise returns.
class Reporter : public Activity_Listener, public Job_Log_Sink, public Alert_Sink {
 public:
  /// What became of a message.
  enum class Delivery { done, refused, away };
  /// Sends one message; `refused` is backupd's word that it will never take it. Called on the reporter's thread.
  using Send = std::function<Delivery(const Message& message, std::string& reason)>;
  /// Number of the present connection, 0 without one; no two connections have the same.
  using Connection = std::function<std::uint64_t()>;
  /// Greets backupd, once on each connection before anything else is sent; false: it is not there.
  using Greet = std::function<bool()>;
  /// A final state was acknowledged.
  using Ended = std::function<void(const std::string& job_act_id)>;

  struct Callbacks {
    Send send;
    Connection connection;
    Greet greet;
    Ended ended;
  };

  Reporter(Outbox& outbox, Callbacks callbacks, std::chrono::seconds heartbeat);
  ~Reporter() override;

  void start();
  /// Sends or keeps what there is, then ends the thread. More than once is fine.
  void stop();
  /// A new connection stands: there may be something to send.
  void connected() { work_.set(); }

  void activity_changed(const Job_Activity_Snapshot& activity) override;
  void write(const Job_Log_Line& line) override;
  void raise(const Job_Alert& alert) override;

  /// One round of the thread: greets when due, sends what was kept, then what is new. For tests.
  void work();

  static constexpr std::size_t log_batch_lines = 200;
  /// States, or logs, of so many jobs travel in one message.
  static constexpr std::size_t jobs_in_message = 50;
  static constexpr std::size_t log_limit_lines = 10000;  ///< lines in memory; from then on the oldest go
  /// Lines that come in a row are sent together.
  static constexpr std::chrono::milliseconds gathering{100};

 private:
  struct Pending {
    std::vector<Job_Log_Line> lines;
    std::uint64_t lost_lines = 0;
    std::map<std::string, Job_Activity_Snapshot> activities;  ///< the newest of each job
  };

  void run();
  [[nodiscard]] bool ready();
  [[nodiscard]] Pending take_pending();
  void send_or_keep(const Pending& pending);
  /// Each of the documents is a message of its own; together, as the list `key` of one, they cost one answer.
  void offer_all(Message_Kind kind, const char* key, const std::vector<json_spirit::Object>& documents);
  [[nodiscard]] bool deliver_together(Message_Kind kind, const char* key, json_spirit::Array documents);
  void offer(Message_Kind kind, json_spirit::Object document);
  bool send_kept();
  Delivery deliver(const Message& message);
  void tell_ended(const Message& message) const;

  Outbox& outbox_;
  const Callbacks callbacks_;
  const std::chrono::seconds heartbeat_;
  std::mutex mutex_;
  Pending pending_;  ///< guarded by mutex_
  platform::Wait_Event work_;
  std::atomic<bool> stopping_{false};
  std::uint64_t greeted_ = 0;  ///< the thread's: the connection that was greeted
  bool away_ = true;           ///< the thread's: keep instead of send
  std::thread thread_;
};

/// The documents as backupd reads them.
[[nodiscard]] json_spirit::Object activity_document(const Job_Activity_Snapshot& activity);
[[nodiscard]] json_spirit::Object alert_document(const Job_Alert& alert);

}  // namespace agentd
