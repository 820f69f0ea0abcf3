#pragma once

#include <chrono>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "agentd/jobs/job_maker.h"
#include "agentd/jobs/prepared_starts.h"
#include "job/job.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// The jobs that this agent runs, by the id of their activity. Any thread.
class Job_Table {
 public:
  /// What the runs of a definition wait for before they begin; an empty one: nothing.
  using Preparation = std::function<Prepared_Starts::Work(const json_spirit::Value& definition)>;

  explicit Job_Table(const Job_Maker& maker, Preparation preparation = {})
      : maker_(maker), preparation_(std::move(preparation)) {}

  /// Starts a run of a definition document. The answer carries {"job_act_id"}; its refusals say why: the document is
  /// not sound, is another host's, names an unknown module, is of a kind that the module does not run, or the agent is
  /// stopping. The same job_act_id again is answered as done. A run that has something to wait for begins later.
  [[nodiscard]] JSON_RPC_Answer start(const json_spirit::Value& definition, const json_spirit::Object& options,
                                      const std::string& job_act_id);
  /// Passes the request to the job, also a second time; the answer carries {"code", "message"}: code 0 says that the
  /// request was taken, not that the run has ended. -1: not taken, as when the run has ended. 1: not now, because
  /// another run backs the resource of this data backup up.
  [[nodiscard]] JSON_RPC_Answer stop(const std::string& job_act_id);
  /// Has the job's class clean up after it, and forgets it. Refused while it runs.
  [[nodiscard]] JSON_RPC_Answer remove(const std::string& job_act_id);

  /// Waits until the run has let go of its record; at once when it is not known here.
  void wait_completed(const std::string& job_act_id, std::chrono::seconds limit) const;
  /// A run has ended and backupd knows: nothing more is asked of it. A start that comes again is still answered as
  /// done.
  void ended(const std::string& job_act_id);
  [[nodiscard]] std::vector<std::string> running() const;

  /// From here on nothing is started. Waits until the runs have ended or `limit` has passed; true when all have.
  [[nodiscard]] bool drain(std::chrono::seconds limit);
  /// Drops every job; only when none runs.
  void clear();

 private:
  [[nodiscard]] Job_Ptr find(const std::string& job_act_id) const;
  void forget(const std::string& job_act_id);
  [[nodiscard]] bool has_ended(const std::string& job_act_id) const;
  [[nodiscard]] bool take(const std::string& job_act_id, const Job_Ptr& job, std::string& refusal);

  const Job_Maker& maker_;
  const Preparation preparation_;
  Prepared_Starts prepared_;
  mutable std::mutex mutex_;
  std::map<std::string, Job_Ptr> jobs_;  ///< guarded by mutex_
  std::deque<std::string> ended_;        ///< the last runs that have ended; guarded by mutex_
  bool stopping_ = false;                ///< guarded by mutex_
};

/// A refusal as an answer.
[[nodiscard]] JSON_RPC_Answer refusal_answer(int code, const std::string& message);

}  // namespace agentd
