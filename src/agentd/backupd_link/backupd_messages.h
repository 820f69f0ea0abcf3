#pragma once

#include "agent/backupd_client/json_http_session.h"
#include "agent/backupd_client/json_rpc_forward.h"
#include "agentd/backupd_link/reporter.h"

namespace agentd {

/// Sends the reporter's messages: states and log lines over the agent's channel, alerts by REST. One thread.
class Backupd_Messages {
 public:
  explicit Backupd_Messages(Agent_Channel& channel) : channel_(channel) {}

  [[nodiscard]] Reporter::Delivery send(const Message& message, std::string& reason);

  static constexpr std::chrono::seconds answer_limit{30};

 private:
  [[nodiscard]] Reporter::Delivery call(const char* method, const json_spirit::Object& params, std::string& reason);
  [[nodiscard]] Reporter::Delivery post_alert(const json_spirit::Object& alert, std::string& reason);

  Agent_Channel& channel_;
  JSON_HTTP_Session session_{{}, 0, 0};  ///< made when the first alert is sent
};

}  // namespace agentd
