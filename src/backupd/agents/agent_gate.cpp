#include "backupd/agents/agent_gate.h"

#include "platform/log.h"
#include "records/request_rights.h"

namespace backupd {

namespace {

/// What no system is called: shared by no two hosts.
constexpr const char* no_system = "_";

Requester requester_of(const Identity& who) {
  switch (who.role) {
    case role_viewer:
      return {Requester::viewer, {}};
    case role_operator:
      return {Requester::oper, {}};
    case role_agent:
      return {Requester::agent, who.host_uuid};
    default:
      return {};
  }
}

/// The system that a request of an agent is about, by the member that the module's handler goes by; empty when it names
/// none. Members beside it do not count: they would let a request about one system pass for another's.
std::string system_of(const std::string& method, const json_spirit::Value& params) {
  std::string sid;
  if (!params.is_object()) return sid;
  const json_spirit::Object& object = params.get_obj();
  if (is_list_method(method)) {
    std::string instance;
    if (!json_spirit::object_get(object, "instance", instance)) return sid;
    const std::size_t end = instance.find('_');
    return end == std::string::npos || end == 0 ? no_system : instance.substr(0, end);
  }
  (void)json_spirit::object_get(object, is_staging_method(method) ? "target_sid" : "sid", sid);
  return sid;
}

}  // namespace

Outcome Agent_Gate::call(const Identity& who, const std::string& host_uuid, const std::string& method,
                         const json_spirit::Value& params, std::chrono::nanoseconds timeout, JSON_RPC_Call_Group* group,
                         JSON_RPC_Answer& answer) {
  const bool audited = is_control_action(method, params);
  std::int64_t entry = 0;
  if (audited && !audit_.begin(who, host_uuid, method, params, entry))
    return Outcome::refuse(Outcome::internal,
                           "the action was not done, for it cannot be written into the audit log; "
                           "see the server's log");
  const Outcome allowed = allow(who, host_uuid, method, params);
  if (allowed.ok()) answer = agents_.call(host_uuid, method, params, timeout, group, requester_of(who).to_json());
  if (!audited) return allowed;
  const char* const result = !allowed.ok() ? "refused" : answer.ok ? "done" : "failed";
  if (!audit_.end(entry, result, allowed.ok() ? answer.message : allowed.message))
    D3_WARNING("What came of the action %q stays out of the audit log\n", static_cast<ACE_INT64>(entry));
  return allowed;
}

Outcome Agent_Gate::allow(const Identity& who, const std::string& host_uuid, const std::string& method,
                          const json_spirit::Value& params) {
  if (who.role == role_agent) return allow_agent(who, host_uuid, method, params);
  // What needs no right is the server's way to ask, which operators may use for themselves.
  if (who.role == role_operator && !needs_right(method)) return {};
  if (may_ask(requester_of(who).role, method, params)) return {};
  return Outcome::refuse(Outcome::forbidden, std::string("a key for the role ") + role_name(who.role) +
                                                 " may not ask an agent for \"" + platform::cut_for_log(method) +
                                                 "\" in this way; use a key of another role");
}

Outcome Agent_Gate::allow_agent(const Identity& who, const std::string& host_uuid, const std::string& method,
                                const json_spirit::Value& params) {
  if (!may_ask(Requester::agent, method, params))
    return Outcome::refuse(Outcome::forbidden,
                           "an agent may not ask another one for \"" + platform::cut_for_log(method) + "\"");
  if (who.host_uuid == host_uuid) return {};
  bool shared = false;
  if (!resources_.share_system(who.host_uuid, host_uuid, system_of(method, params), shared))
    return Outcome::refuse(Outcome::internal, "the server's database cannot be read now; see the server's log");
  if (shared) return {};
  return Outcome::refuse(Outcome::forbidden, "the hosts " + who.host_uuid + " and " + host_uuid +
                                                 " share no such system, so the agent of the one may not ask the "
                                                 "other's; run dorsal3 discover when they should");
}

}  // namespace backupd
