#pragma once

#include <set>
#include <string>

#include "agent/api/json_rpc_thread_handler.h"

/// Lists the HANA instances of this host (a request without params) and the databases of one of them with their log
/// backup mode (params {"uid", "instance"}). Which of the two is asked for the params tell, not the method. Keeps
/// nothing between requests.
class JSON_RPC_HANA_List_Handler : public JSON_RPC_Thread_Handler {
 public:
  /// What backupd has said of definitions during one request.
  struct Known_Definitions {
    std::set<std::string> confirmed;  ///< ids
    bool backupd_is_silent = false;   ///< it did not answer in time and is not waited for again
  };

  ~JSON_RPC_HANA_List_Handler() override;

  /// Each answers the request: what the channel's send gave, or -1. The second gives no answer, and 0, for an instance
  /// that is not registered.
  int list_hana_instances(JSON_RPC_Channel& channel, const JSON_RPC_Request& request);
  int list_instance_databases(JSON_RPC_Channel& channel, const JSON_RPC_Request& request);

  /// Whether the log backup configuration file at `path` belongs to a definition that backupd still knows. Asks
  /// backupd for an id that is not in `known`, and adds it. False, with a message, when that cannot be told.
  [[nodiscard]] bool check_log_backup_valid(const std::string& path, Known_Definitions& known);

 protected:
  int handle_object_i(std::shared_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override;

 private:
  [[nodiscard]] const char* log_backup_mode(const std::string& sid, const std::string& instance_name,
                                            const std::string& database, Known_Definitions& known);
  int answer_databases(JSON_RPC_Channel& channel, const JSON_RPC_Request& request);
};
