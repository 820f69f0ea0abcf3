#include "agent/backupd_client/common_http_session_factory.h"

#include <algorithm>
#include <string>

#include "agent/backupd_client/agent_configuration.h"
#include "agent/backupd_client/json_http_session.h"
#include "platform/log.h"

namespace {

constexpr const char* server_path = "/q5/r/v2/server";

}  // namespace

HTTP_Session_var Common_HTTP_Session_Factory::create(Type type, const Param* param, int retries) {
  if (type != SESSION_BACKUPD) {
    D3_ERROR("There is no session of type %d\n", static_cast<int>(type));
    return nullptr;
  }
  HTTP_Session_var session =
      param != nullptr ? std::make_shared<HTTP_Session>(param->endpoint, param->access_key) : configured();
  if (!session) return nullptr;

  json_spirit::Value server;
  if (!JSON_HTTP_Session(session, std::max(retries, 0)).get(server_path, server)) return nullptr;
  if (!server.is_object()) {
    D3_ERROR("%C does not answer like a backup server\n", session->url().c_str());
    return nullptr;
  }
  return session;
}

HTTP_Session_var Common_HTTP_Session_Factory::configured() {
  Agent_Configuration configuration;
  secure_string key;
  std::string error;
  if (!Agent_Configuration::load(configuration, error) || !configuration.load_access_key(key, error)) {
    D3_ERROR("%C\n", platform::cut_for_log(error).c_str());
    return nullptr;
  }
  return std::make_shared<HTTP_Session>(configuration.endpoint, std::move(key));
}
