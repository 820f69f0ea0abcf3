#include "agentd/backupd_link/backupd_messages.h"

#include "agent/backupd_client/common_http_session_factory.h"

namespace agentd {

namespace {

constexpr const char* alerts_path = "/q5/r/v2/alerts";
constexpr unsigned first_client_error = 400;
constexpr unsigned first_server_error = 500;
constexpr unsigned unauthorized = 401;
constexpr unsigned forbidden = 403;
constexpr unsigned conflict = 409;
constexpr unsigned too_many_requests = 429;

/// The server took the request, looked at it, and will never like it. A key that is refused today may be put right.
bool is_final_refusal(unsigned status) {
  return status >= first_client_error && status < first_server_error && status != unauthorized && status != forbidden &&
         status != too_many_requests;
}

}  // namespace

Reporter::Delivery Backupd_Messages::send(const Message& message, std::string& reason) {
  switch (message.kind) {
    case Message_Kind::alert:
      return post_alert(message.document, reason);
    case Message_Kind::log:
      return call("job.log", message.document, reason);
    default:
      return call("job.report", message.document, reason);
  }
}

Reporter::Delivery Backupd_Messages::call(const char* method, const json_spirit::Object& params, std::string& reason) {
  const JSON_RPC_Answer answer = channel_.call(method, params, answer_limit);
  if (answer.ok) return Reporter::Delivery::done;
  reason = std::string(method) + ": " + answer.message;
  return answer.code == JSON_RPC_E_INVALID_PARAMS ? Reporter::Delivery::refused : Reporter::Delivery::away;
}

Reporter::Delivery Backupd_Messages::post_alert(const json_spirit::Object& alert, std::string& reason) {
  if (!session_) session_.reset(Common_HTTP_Session_Factory::create(Common_HTTP_Session_Factory::SESSION_BACKUPD));
  if (!session_) return Reporter::Delivery::away;
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (session_.post(alerts_path, alert, reply, &failure) || failure.status == conflict) return Reporter::Delivery::done;
  reason = "the alert: " + failure.message;
  return is_final_refusal(failure.status) ? Reporter::Delivery::refused : Reporter::Delivery::away;
}

}  // namespace agentd
