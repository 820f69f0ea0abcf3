#include "agentd/restore/staged_elsewhere.h"

#include <algorithm>
#include <iterator>
#include <utility>

#include "agent/backupd_client/common_http_session_factory.h"
#include "agent/backupd_client/json_http_session.h"
#include "agent/backupd_client/json_rpc_forward.h"
#include "platform/log.h"
#include "records/agent_method_names.h"

namespace agentd {

namespace {

/// More systems than a server has.
constexpr const char* resources_path = "/q5/r/v2/resources?limit=10000";
constexpr int request_retries = 0;
constexpr int request_seconds = 10;
/// The thread sleeps until somebody wakes it.
constexpr std::chrono::hours no_limit{24};

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  (void)json_spirit::object_get(object, key, text);
  return text;
}

/// The hosts of one resource that have an instance of the system.
std::vector<std::string> hosts_of(const json_spirit::Value& resource, const std::string& sid) {
  std::vector<std::string> hosts;
  json_spirit::Array instances;
  if (!resource.is_object() || !json_spirit::object_get(resource.get_obj(), "instances", instances)) return hosts;
  for (const json_spirit::Value& instance : instances) {
    json_spirit::Object attributes;
    if (instance.is_object() && json_spirit::object_get(instance.get_obj(), "extended_attrs", attributes) &&
        text_of(attributes, "sid") == sid)
      hosts.push_back(text_of(instance.get_obj(), "host_uuid"));
  }
  return hosts;
}

/// The hosts that share the system with this one, each once.
std::vector<std::string> other_hosts(const json_spirit::Value& reply, const std::string& sid,
                                     const std::string& host_uuid) {
  std::vector<std::string> others;
  json_spirit::Array rows;
  if (reply.is_object()) (void)json_spirit::object_get(reply.get_obj(), "rows", rows);
  for (const json_spirit::Value& row : rows) {
    const std::vector<std::string> hosts = hosts_of(row, sid);
    if (std::find(hosts.begin(), hosts.end(), host_uuid) == hosts.end()) continue;
    std::copy_if(hosts.begin(), hosts.end(), std::back_inserter(others),
                 [&](const std::string& host) { return host != host_uuid && !host.empty(); });
  }
  std::sort(others.begin(), others.end());
  others.erase(std::unique(others.begin(), others.end()), others.end());
  return others;
}

/// Whether another try may end otherwise.
bool may_pass(int code) { return code != JSON_RPC_E_INVALID_PARAMS && code != JSON_RPC_E_METHOD_NOT_FOUND; }

}  // namespace

Staged_Elsewhere::Staged_Elsewhere(std::string host_uuid, Callbacks callbacks)
    : host_uuid_(std::move(host_uuid)), callbacks_(std::move(callbacks)) {
  idle_.set();
}

void Staged_Elsewhere::start() {
  thread_ = std::thread([this] { run(); });
}

void Staged_Elsewhere::stop() {
  stopping_.set();
  work_.set();
  if (thread_.joinable()) thread_.join();
}

void Staged_Elsewhere::restore_over(const std::vector<Staged_Name>& names) {
  if (names.empty()) return;
  {
    const std::lock_guard lock(mutex_);
    for (const Staged_Name& name : names) {
      Request request;
      request.name = name;
      requests_.push_back(std::move(request));
    }
    idle_.reset();
  }
  work_.set();
}

void Staged_Elsewhere::finish(std::chrono::nanoseconds limit) {
  if (callbacks_.connected()) (void)platform::Clock::current().wait_for(idle_, limit);
}

void Staged_Elsewhere::run() {
  while (!stopping_.is_set()) {
    bool waiting = false;
    {
      const std::lock_guard lock(mutex_);
      waiting = !requests_.empty();
    }
    (void)platform::Clock::current().wait_for(work_, waiting ? std::chrono::nanoseconds(pause) : no_limit);
    work_.reset();
    if (!stopping_.is_set()) work();
  }
}

void Staged_Elsewhere::work() {
  if (!callbacks_.connected()) return;
  std::list<Request> round;
  {
    const std::lock_guard lock(mutex_);
    round.swap(requests_);
  }
  round.remove_if([this](Request& request) { return stopping_.is_set() || settled(request); });
  const std::lock_guard lock(mutex_);
  if (requests_.empty()) idle_.set();
  requests_.splice(requests_.begin(), round);
}

bool Staged_Elsewhere::Tries::end(std::chrono::steady_clock::time_point now) {
  if (!counts(now)) return false;
  last = now;
  return ++counted >= tries;
}

bool Staged_Elsewhere::settled(Request& request) const {
  // Another restore's end has the files of its own target removed only.
  if (callbacks_.in_use(request.name)) return false;
  // From the beginning of a try on: the thread's next pause begins behind it.
  const auto now = platform::Clock::current().steady_now();
  if (!request.hosts_known && !find_hosts(request, now)) return request.looked.end(now);
  ask(request);
  return request.hosts.empty() || request.asked.end(now);
}

bool Staged_Elsewhere::find_hosts(Request& request, std::chrono::steady_clock::time_point now) const {
  const JSON_HTTP_Session session(Common_HTTP_Session_Factory::configured(), request_retries, request_seconds);
  json_spirit::Value reply;
  JSON_HTTP_Failure failure;
  if (!session || !session.get(resources_path, reply, &failure)) {
    const bool last = request.looked.would_end(now);
    if (!std::exchange(request.told, true) || last)
      D3_WARNING("The other hosts of %C keep what a restore staged there, backupd does not tell who they are: %C; %C\n",
                 platform::cut_for_log(request.name.target_sid).c_str(), platform::cut_for_log(failure.message).c_str(),
                 last ? "the next start of their agents removes it" : "it is asked again for some minutes");
    return false;
  }
  request.hosts = other_hosts(reply, request.name.target_sid, host_uuid_);
  request.hosts_known = true;
  request.told = false;
  return true;
}

/// Leaves those hosts in the request that may be asked again.
void Staged_Elsewhere::ask(Request& request) const {
  const bool told = request.told;
  std::vector<std::string> left;
  for (const std::string& host : request.hosts) {
    // One that has begun meanwhile may have staged there already.
    if (callbacks_.in_use(request.name)) {
      left.push_back(host);
      continue;
    }
    try {
      (void)json_rpc_forward(host, request.name.params(), staged_remove_method);
      D3_INFO("The host %C has removed what the restore of %C staged there\n", host.c_str(),
              platform::cut_for_log(request.name.target_database).c_str());
    } catch (const Forward_Error& error) {
      const bool again = may_pass(error.code());
      if (again) left.push_back(host);
      if (again && told) continue;
      request.told = true;
      D3_WARNING("The host %C keeps what the restore of %C staged there: %C; its agent's next start removes it%C\n",
                 host.c_str(), platform::cut_for_log(request.name.target_database).c_str(),
                 platform::cut_for_log(error.what()).c_str(), again ? ", unless it comes back within minutes" : "");
    }
  }
  request.hosts = std::move(left);
}

}  // namespace agentd
