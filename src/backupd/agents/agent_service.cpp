#include "backupd/agents/agent_service.h"

#include <algorithm>

#include "backupd/http/body_reader.h"
#include "platform/clock.h"
#include "platform/log.h"
#include "scrt/time_text.h"

namespace backupd {

namespace {

constexpr unsigned workers_per_agent = 8;
// The rest stays free for reports while an agent waits for others.
constexpr unsigned forwards_at_once = workers_per_agent - 2;
constexpr std::int64_t forward_default_seconds = 60;
constexpr std::int64_t forward_largest_seconds = 3600;

JSON_RPC_Answer success(json_spirit::Value result) { return {true, std::move(result), 0, {}}; }

JSON_RPC_Answer refuse(int code, std::string message) { return {false, {}, code, std::move(message)}; }

/// Invalid params tell the agent that trying again is no use.
JSON_RPC_Answer refuse(const Outcome& outcome) {
  const bool final = outcome.kind != Outcome::internal && outcome.kind != Outcome::unavailable;
  return refuse(final ? JSON_RPC_E_INVALID_PARAMS : JSON_RPC_E_SERVER, outcome.message);
}

JSON_RPC_Answer store_failed() {
  return refuse(JSON_RPC_E_INTERNAL, "the server's database cannot be read or written now; see the server's log");
}

}  // namespace

void Agent_Service::serve(net::Web_Socket& socket, const Identity& who) {
  const std::string& host_uuid = who.host_uuid;
  const auto connection = std::make_shared<Agent_Connection>(host_uuid);
  {
    JSON_RPC_Peer peer(
        socket,
        [this, &connection](const std::string& method, const json_spirit::Value& params) {
          return handle(connection, method, params);
        },
        workers_per_agent);
    connection->attach(peer);
    const Key_Watch::Watched watched(stores_.key_watch, connection, who.key_id);
    // At once: a worker may still wait for another agent's answer, and nobody is there to hear it.
    peer.serve([&] {
      registry_.remove(connection);
      connection->forwards().give_up();
      (void)stores_.resources.lose_host(host_uuid);  // what fails is logged, and only the time is lost
    });
    connection->detach();
  }
  D3_INFO("The connection of the agent of the host %C has ended\n", host_uuid.c_str());
}

JSON_RPC_Answer Agent_Service::handle(const std::shared_ptr<Agent_Connection>& connection, const std::string& method,
                                      const json_spirit::Value& params) {
  if (!params.is_object() && !params.is_null())
    return refuse(JSON_RPC_E_INVALID_PARAMS, "the params must be an object");
  const json_spirit::Object object = params.is_object() ? params.get_obj() : json_spirit::Object();
  if (method == "agent.hello") return hello(connection, object);
  if (method == "job.def.list") return list_definitions(*connection, object);
  if (method == "job.report") return report(*connection, object);
  if (method == "job.log") return log(*connection, object);
  if (method == "agent.forward") return forward(*connection, object);
  return refuse(JSON_RPC_E_METHOD_NOT_FOUND, "the method \"" + platform::cut_for_log(method) + "\" is not known here");
}

JSON_RPC_Answer Agent_Service::hello(const std::shared_ptr<Agent_Connection>& connection,
                                     const json_spirit::Object& params) {
  std::string host_uuid;
  std::string name;
  std::string version;
  json_spirit::Array modules;
  json_spirit::Array activities;
  Body_Reader reader(params, "agent.hello");
  reader.uuid("host_uuid", host_uuid, Need::required);
  reader.text("name", name, Need::required);
  reader.text("version", version);
  reader.array("modules", modules);
  reader.array("activities", activities);
  if (Outcome outcome = reader.finish_known(); !outcome.ok()) return refuse(outcome);
  if (host_uuid != connection->host_uuid())
    return refuse(JSON_RPC_E_INVALID_PARAMS, "the key belongs to the host " + connection->host_uuid() + ", not to " +
                                                 host_uuid + "; give this host a key of its own");
  if (!stores_.resources.see_host(host_uuid, name, version, modules)) return store_failed();
  if (params.contains("activities")) {
    Activity_Store::Ended ended;
    if (!stores_.activities.forget_unknown(host_uuid, activities, stores_.starter.being_sent(), ended))
      return store_failed();
    settle(ended);
  }
  registry_.put(connection);
  stores_.starter.wake();
  stores_.setups.agent_came(host_uuid);
  return success(
      json_spirit::Object{{"server_time", posix_time_to_utc_text(platform::Clock::current().wall_seconds())}});
}

JSON_RPC_Answer Agent_Service::list_definitions(const Agent_Connection& connection, const json_spirit::Object& params) {
  std::string uuid;
  std::string module;
  std::string host_uuid = connection.host_uuid();
  Body_Reader reader(params, "job.def.list");
  reader.text("uuid", uuid);
  reader.text("module", module);
  reader.text("host_uuid", host_uuid);
  if (Outcome outcome = reader.finish_known(); !outcome.ok()) return refuse(outcome);
  if (params.contains("uuid")) return find_definition(uuid);
  List_Query query;
  query.order_column = "seq";
  query.limit = list_largest_limit;
  query.where_given("host_uuid", host_uuid);
  query.where_given("module", module);
  List_Page page;
  if (!stores_.definitions.list(query, page)) return store_failed();
  if (Outcome outcome = drop_removed(page.rows); !outcome.ok()) return refuse(outcome);
  for (json_spirit::Value& row : page.rows)
    if (Outcome outcome = stores_.definitions.for_agent(row.get_obj()); !outcome.ok()) return refuse(outcome);
  return success(json_spirit::Object{{"rows", page.rows}});
}

/// A log backup that was removed is none for agents, although its runs still need the record.
Outcome Agent_Service::drop_removed(json_spirit::Array& definitions) {
  json_spirit::Array kept;
  for (json_spirit::Value& definition : definitions) {
    std::string id;
    bool removed = false;
    json_spirit::object_get(definition.get_obj(), "id", id);
    if (Outcome outcome = stores_.definitions.is_removed(id, removed); !outcome.ok()) return outcome;
    if (!removed) kept.push_back(std::move(definition));
  }
  definitions.swap(kept);
  return {};
}

/// By its id a definition is looked for wherever it belongs; the answer is an array, empty when there is none.
JSON_RPC_Answer Agent_Service::find_definition(const std::string& id) {
  json_spirit::Object definition;
  const Outcome outcome = stores_.definitions.get(id, definition);
  if (outcome.kind == Outcome::not_found) return success(json_spirit::Array());
  if (!outcome.ok()) return refuse(outcome);
  if (Outcome filled = stores_.definitions.for_agent(definition); !filled.ok()) return refuse(filled);
  json_spirit::Array found{definition};
  if (Outcome kept = drop_removed(found); !kept.ok()) return refuse(kept);
  return success(std::move(found));
}

JSON_RPC_Answer Agent_Service::report(const Agent_Connection& connection, const json_spirit::Object& params) {
  json_spirit::Array records;
  Body_Reader reader(params, "job.report");
  reader.array("activities", records, Need::required);
  if (Outcome outcome = reader.finish_known(); !outcome.ok()) return refuse(outcome);
  Activity_Store::Ended ended;
  const auto choose = [this](const std::vector<std::string>& hosts) { return stores_.starter.choose_next(hosts); };
  if (Outcome outcome = stores_.activities.report(connection.host_uuid(), records, choose, ended); !outcome.ok())
    return refuse(outcome);
  settle(ended);
  return success(json_spirit::Object());
}

/// Lines of one run, or of several at once.
JSON_RPC_Answer Agent_Service::log(const Agent_Connection& connection, const json_spirit::Object& params) {
  json_spirit::Array logs;
  if (params.contains("logs")) {
    Body_Reader reader(params, "job.log");
    reader.array("logs", logs, Need::required);
    if (Outcome outcome = reader.finish_known(); !outcome.ok()) return refuse(outcome);
  } else {
    logs.emplace_back(params);
  }
  std::vector<Activity_Store::Run_Log> read;
  for (const json_spirit::Value& value : logs) {
    if (!value.is_object()) return refuse(JSON_RPC_E_INVALID_PARAMS, "an element of \"logs\" is not an object");
    Activity_Store::Run_Log log;
    Body_Reader reader(value.get_obj(), "job.log");
    reader.uuid("job_act_id", log.job_act_id, Need::required);
    reader.array("lines", log.lines, Need::required);
    if (Outcome outcome = reader.finish_known(); !outcome.ok()) return refuse(outcome);
    read.push_back(std::move(log));
  }
  if (Outcome outcome = stores_.activities.add_logs(connection.host_uuid(), read); !outcome.ok())
    return refuse(outcome);
  return success(json_spirit::Object());
}

JSON_RPC_Answer Agent_Service::forward(Agent_Connection& connection, const json_spirit::Object& params) {
  std::string host_uuid;
  std::string method;
  std::int64_t seconds = forward_default_seconds;
  Body_Reader reader(params, "agent.forward");
  reader.uuid("host_uuid", host_uuid, Need::required);
  reader.text("method", method, Need::required);
  reader.number("timeout", seconds);
  if (Outcome outcome = reader.finish_known(); !outcome.ok()) return refuse(outcome);
  if (!registry_.is_connected(host_uuid)) return unreachable(host_uuid);
  const Agent_Connection::Forward_Slot slot(connection, forwards_at_once);
  if (!slot.taken())
    return refuse(JSON_RPC_E_SERVER, "this agent waits for " + std::to_string(forwards_at_once) +
                                         " answers of other agents already; ask again when one has come");
  const json_spirit::Value* forwarded = params.find("params");
  const std::chrono::seconds timeout(std::clamp<std::int64_t>(seconds, 1, forward_largest_seconds));
  const Identity who{role_agent, connection.host_uuid()};
  JSON_RPC_Answer answer;
  const Outcome outcome =
      stores_.gate.call(who, host_uuid, method, forwarded == nullptr ? json_spirit::Value() : *forwarded, timeout,
                        &connection.forwards(), answer);
  return outcome.ok() ? answer : refuse(outcome);
}

JSON_RPC_Answer Agent_Service::unreachable(const std::string& host_uuid) {
  bool known = false;
  if (!stores_.resources.knows_host(host_uuid, known)) return store_failed();
  return refuse(JSON_RPC_E_NOT_CONNECTED,
                known ? "the agent of the host " + host_uuid + " is not connected"
                      : "no agent of a host " + host_uuid + " was ever seen; check the uuid, or start its agent");
}

/// What a run left is removed now; when that fails, the next sweep finds it again. What goes on elsewhere is begun on
/// the starter's thread, and so is what waits for the end of a run.
void Agent_Service::settle(const Activity_Store::Ended& ended) {
  if (ended.followed || !ended.runs.empty()) stores_.starter.wake();
  for (const std::string& id : ended.runs) {
    Sweep_Result result;
    if (Outcome outcome = stores_.sweeper.sweep_run(id, result); !outcome.ok())
      D3_WARNING("What the run %C left behind stays until the next sweep: %C\n", id.c_str(), outcome.message.c_str());
  }
}

}  // namespace backupd
