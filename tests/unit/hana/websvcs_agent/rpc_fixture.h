#pragma once

#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "agent/api/json_rpc_handler.h"
#include "agent/backupd_client/json_rpc_forward.h"
#include "agent/instance/instance_manager.h"
#include "unit/hana/common/hana_system.h"

namespace rpc_test {

/// The requester: keeps what it is sent as the text that goes over the wire. An answer to an object without an id is
/// dropped.
class Wire_Channel : public JSON_RPC_Channel {
 public:
  int close() override { return 0; }
  int send(std::shared_ptr<JSON_RPC_Object> object) override;
  int send_error(int code, const json_spirit::Value& id, const std::string& message,
                 const json_spirit::Value& data) override;

  int result = 0;  ///< what sending gives
  std::vector<std::string> sent;
};

/// A message as read from its text.
[[nodiscard]] std::shared_ptr<JSON_RPC_Object> object_of(const std::string& text);

/// backupd as "job.def.list" sees it.
class Definitions_Channel : public Agent_Channel {
 public:
  JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params,
                       std::chrono::nanoseconds timeout) override;

  std::map<std::string, JSON_RPC_Answer> answers;  ///< by definition id; an empty array for others
  std::vector<std::string> asked;                  ///< method and params, in order
  std::function<void()> meanwhile = [] {};         ///< what happens before each answer
  void know(const std::string& id);

 private:
  std::mutex mutex_;
};

/// HANA_System with the instance HDB_HDB00 registered and an account for it, a group for SAP's files, and backupd.
class Rpc_Test : public hana_test::HANA_System {
 protected:
  Rpc_Test();

  void keep(const std::string& name, json_spirit::Object options);
  void add_account(const std::string& instance, const std::string& uid = {});
  /// What stands on the wire after one request; "" for nothing. `result_` is what the handler returned.
  std::string answer_of(JSON_RPC_Handler& handler, const std::string& request);
  /// The same for an object that is none of the wire's.
  std::string answer_to(JSON_RPC_Handler& handler, std::shared_ptr<JSON_RPC_Object> object);
  /// With a requester that has gone.
  int handle_without_requester(JSON_RPC_Handler& handler, const std::string& request);

  int result_ = 0;
  std::shared_ptr<Wire_Channel> channel_ = std::make_shared<Wire_Channel>();
  Instance_Manager registry_;
  Scoped_Instance_Manager registry_scope_{registry_};
  Definitions_Channel backupd_;
  Scoped_Agent_Channel backupd_scope_{backupd_};
};

}  // namespace rpc_test
