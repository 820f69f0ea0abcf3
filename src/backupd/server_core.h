#pragma once

#include <string>

#include "backupd/agents/agent_gate.h"
#include "backupd/agents/agent_registry.h"
#include "backupd/agents/agent_requests.h"
#include "backupd/agents/agent_service.h"
#include "backupd/agents/alert_store.h"
#include "backupd/agents/audit_store.h"
#include "backupd/agents/key_watch.h"
#include "backupd/backint/backint_store.h"
#include "backupd/catalog/catalog_views.h"
#include "backupd/catalog/resource_store.h"
#include "backupd/catalog/set_store.h"
#include "backupd/http/key_store.h"
#include "backupd/http/rest_handler.h"
#include "backupd/http/router.h"
#include "backupd/jobs/activity_store.h"
#include "backupd/jobs/definition_store.h"
#include "backupd/jobs/history_keeper.h"
#include "backupd/jobs/job_dispatch.h"
#include "backupd/jobs/run_starter.h"
#include "backupd/log_backup/ondemand_queue.h"
#include "backupd/log_backup/setup_keeper.h"
#include "backupd/pools/pool_inspector.h"
#include "backupd/pools/pool_storage.h"
#include "backupd/pools/pool_store.h"
#include "backupd/pools/sweeper.h"
#include "backupd/restore/restore_planning.h"
#include "backupd/restore/restored_bytes.h"
#include "backupd/restore/running_restores.h"
#include "backupd/store/database.h"

namespace backupd {

/// The server without its listener: everything wired together, requests come in at handler(). The database must be
/// open.
class Server_Core {
 public:
  struct Options {
    std::string public_url;     ///< what agents put before "/q5/"
    std::string own_host_uuid;  ///< of the host this server runs on; may be empty
    std::string version;
    History_Limits history = {};
  };

  Server_Core(Database& database, Options options);

  [[nodiscard]] net::Http_Handler& handler() { return handler_; }
  [[nodiscard]] const Router& router() const { return router_; }
  /// Removes cut uploads from the pools that this server serves. Before it serves.
  void clean_pools();

  const Options options;
  Key_Store keys;
  Resource_Store resources;
  Pool_Store pools;
  Backint_Store backint;
  Set_Store sets;
  Catalog_Views views;
  Alert_Store alerts;
  Definition_Store definitions;
  Activity_Store activities;
  Restored_Bytes restored;
  Pool_Storage storage;
  Sweeper sweeper;
  Agent_Registry agents;
  Running_Restores running_restores;
  Pool_Inspector inspector;
  Restore_Planning restore_planning;
  Audit_Store audit;
  Agent_Gate gate;
  Ondemand_Queue ondemand_queue;
  History_Keeper history;
  Run_Starter starter;
  Setup_Keeper setups;
  Key_Watch key_watch;
  Agent_Service agent_service;
  Job_Dispatch dispatch;
  Agent_Requests requests;

 private:
  Router router_;
  Rest_Handler handler_;
};

}  // namespace backupd
