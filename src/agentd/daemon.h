#pragma once

#include <chrono>
#include <memory>

#include "agent/backupd_client/agent_configuration.h"
#include "agent/instance/instance_manager.h"
#include "agentd/backupd_link/backupd_messages.h"
#include "agentd/backupd_link/outbox.h"
#include "agentd/backupd_link/reporter.h"
#include "agentd/backupd_link/server_link.h"
#include "agentd/instances/instance_service.h"
#include "agentd/jobs/job_table.h"
#include "agentd/log_backup/log_backup_status.h"
#include "agentd/log_backup/ondemand_setup.h"
#include "agentd/modules/method_router.h"
#include "agentd/modules/module.h"
#include "agentd/restore/staged_elsewhere.h"
#include "agentd/restore/staged_restores.h"

namespace agentd {

/// The host agent: everything it consists of, and the order of its start and its end. start and stop are called once,
/// on one thread.
class Daemon {
 public:
  explicit Daemon(Agent_Configuration configuration);
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  /// False, with an error line, when the agent cannot work at all.
  [[nodiscard]] bool start();
  /// Starts no more jobs, waits for the running ones up to the configured limit, tells backupd, and ends everything.
  /// False when something still ran then: the process must be left without unwinding, what was cut off is reported by
  /// the next agent.
  [[nodiscard]] bool stop();

 private:
  void add_methods();
  void connect_jobs();
  [[nodiscard]] Prepared_Starts::Work prepare(const json_spirit::Value& definition) const;
  [[nodiscard]] bool greet();
  [[nodiscard]] JSON_RPC_Answer start_job(const json_spirit::Value& definition, const json_spirit::Object& options,
                                          const std::string& job_act_id);
  [[nodiscard]] JSON_RPC_Answer remove_staged(const json_spirit::Object& params, const Requester& by);
  void staged_by(const json_spirit::Object& params, const Requester& by);
  void end_former_runs();
  void job_ended(const std::string& job_act_id);
  [[nodiscard]] bool close_link(std::chrono::seconds limit);
  [[nodiscard]] bool wait_for_requests(std::chrono::steady_clock::time_point end);

  const Agent_Configuration configuration_;
  Modules modules_;
  Instance_Manager instances_;
  Scoped_Instance_Manager instances_scope_{instances_};
  Instance_Service instance_service_;
  Log_Backup_Service log_backups_;
  Job_Maker maker_;
  Job_Table jobs_;
  Ondemand_Setup ondemand_;
  Staged_Restores staged_;
  Method_Router router_;
  Server_Link link_;
  Scoped_Agent_Channel channel_scope_{link_};
  Staged_Elsewhere staged_elsewhere_;
  Outbox outbox_;
  Backupd_Messages messages_;
  std::shared_ptr<Reporter> reporter_;
};

/// "/var/opt/tarvex/dorsal3/agent/outbox"
[[nodiscard]] std::string outbox_directory();

}  // namespace agentd
