#include <CLI/CLI.hpp>

#include "dorsal3/log_backup/log_queue.h"
#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"
#include "records/tenant_name.h"

namespace dorsal3 {

namespace {

json_spirit::Object check_row(const char* name, bool ok, const std::string& message) {
  return {{"name", name}, {"ok", ok}, {"message", message}};
}

bool all_good(const std::vector<json_spirit::Object>& checks) {
  for (const auto& check : checks)
    if (!flag_member(check, "ok")) return false;
  return true;
}

/// Looks along the whole road: server, agents, then what each agent says about its instances.
class Check_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("check", "Check the server, the agents and the instances");
    sub->add_option("INSTANCE", instance_, "Check this instance only");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    json_spirit::Object server;
    if (!context.server.get("/server", server, failure)) return Outcome::failed(std::move(failure));
    std::vector<json_spirit::Object> hosts;
    if (!context.server.get_rows("/hosts", hosts, failure)) return Outcome::failed(std::move(failure));
    std::vector<Resource> resources;
    if (!choose_resources(context, resources, failure)) return Outcome::failed(std::move(failure));

    bool ok = !hosts.empty();
    for (const auto& host : hosts) ok = ok && flag_member(host, "connected");
    json_spirit::Array instances;
    for (const Resource& resource : resources) {
      const auto checks = check_instance(context, resource);
      const bool good = all_good(checks);
      ok = ok && good;
      instances.push_back(json_spirit::Object{{"name", resource.name}, {"ok", good}, {"checks", to_array(checks)}});
    }
    Outcome outcome;
    outcome.exit_code = ok ? exit_ok : exit_failed;
    outcome.model = {{"server", server}, {"hosts", to_array(hosts)}, {"instances", instances}, {"ok", ok}};
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    json_spirit::Object server;
    (void)json_spirit::object_get(model, "server", server);
    out << "server: " << one_line(text_member(server, "product")) << " " << one_line(text_member(server, "version"))
        << "\n";
    const auto hosts = object_rows(model, "hosts");
    if (hosts.empty()) out << "no agent has ever connected: start dorsal3-agent on a database host\n";
    for (const auto& host : hosts) {
      const bool connected = flag_member(host, "connected");
      out << "agent " << one_line(text_member(host, "name")) << ": "
          << (connected ? "connected" : "NOT CONNECTED since " + one_line(text_member(host, "last_seen"))) << "\n";
    }
    for (const auto& instance : object_rows(model, "instances")) {
      out << "instance " << one_line(text_member(instance, "name")) << ":\n";
      for (const auto& check : object_rows(instance, "checks"))
        out << (flag_member(check, "ok") ? "  ok      " : "  FAILED  ") << one_line(text_member(check, "name")) << ": "
            << one_line(text_member(check, "message")) << "\n";
    }
    out << (flag_member(model, "ok") ? "All good.\n" : "Something is not good, see above.\n");
  }

 private:
  bool choose_resources(Context& context, std::vector<Resource>& resources, Failure& failure) const {
    if (instance_.empty()) return list_resources(context.server, resources, failure);
    resources.resize(1);
    return find_resource(context.server, instance_, resources.front(), failure);
  }

  /// An agent that cannot be asked is a failed check of its instance, not the end of the command.
  static std::vector<json_spirit::Object> ask_host(Context& context, Resource resource, const std::string& host) {
    json_spirit::Object result;
    Failure failure;
    resource.host_uuid = host;
    const json_spirit::Object params{{"type", resource.type}, {"name", resource.name}};
    if (!call_agent(context.server, resource, "instance.check", params, result, failure))
      return {check_row("agent", false, failure.message)};
    const auto checks = object_rows(result, "checks");
    if (checks.empty()) return {check_row("agent", false, "the agent's answer has no checks")};
    return checks;
  }

  static bool passes(const std::vector<json_spirit::Object>& checks, const char* name) {
    return std::any_of(checks.begin(), checks.end(),
                       [name](const auto& row) { return text_member(row, "name") == name && flag_member(row, "ok"); });
  }

  /// The host whose instance speaks for the system: where its databases can be listed, or else where it runs. After a
  /// takeover or a failover that is not the first one.
  static std::size_t speaking_host(const std::vector<std::vector<json_spirit::Object>>& answers) {
    for (const char* const name : {"databases", "state"})
      for (std::size_t i = 0; i < answers.size(); ++i)
        if (passes(answers[i], name)) return i;
    return 0;
  }

  static std::vector<json_spirit::Object> check_instance(Context& context, const Resource& resource) {
    const auto hosts = resource.host_uuids();
    std::map<std::string, std::string> names;
    Failure failure;
    if (hosts.size() > 1) (void)host_names(context.server, names, failure);
    const auto name_of = [&](const std::string& host) { return names[host].empty() ? host : names[host]; };
    std::vector<std::vector<json_spirit::Object>> answers;
    for (const std::string& host : hosts) answers.push_back(ask_host(context, resource, host));
    const std::size_t speaking = speaking_host(answers);
    auto checks = answers[speaking];
    if (speaking != 0)
      checks.insert(checks.begin(), check_row("host", true,
                                              "looked at on " + name_of(hosts[speaking]) +
                                                  ", where the system runs; it does not on " + name_of(hosts.front())));
    if (all_good(checks)) add_long_names(context, resource, checks);
    for (std::size_t i = 0; i < hosts.size(); ++i)
      if (i != speaking) add_log_backup_of_other(answers[i], name_of(hosts[i]), checks);
    add_log_queues(context, resource, checks);
    return checks;
  }

  /// Databases that can be backed up, but not in every way. Asked where everything else is good, so that it can be
  /// told.
  static void add_long_names(Context& context, const Resource& resource, std::vector<json_spirit::Object>& checks) {
    std::vector<json_spirit::Object> databases;
    Failure failure;
    if (!list_databases(context.server, resource, databases, failure)) return;
    for (const json_spirit::Object& database : databases)
      if (const std::string why = describe_long_name(text_member(database, "name")); !why.empty())
        checks.push_back(check_row("database name", false, why));
  }

  /// What HANA saved by itself and no set holds: nobody sees an alert while it merely waits.
  static void add_log_queues(Context& context, const Resource& resource, std::vector<json_spirit::Object>& checks) {
    std::string late;
    std::uint64_t waiting = 0;
    for (const std::string& host : resource.host_uuids()) {
      Log_Queues queues;
      Failure failure;
      if (!read_log_queues(context.server, resource, host, queues, failure)) {
        checks.push_back(check_row("log backups to record", false, failure.message));
        return;
      }
      for (const auto& [database, queue] : queues) {
        waiting += queue.waiting;
        if (queue.late()) late += (late.empty() ? "" : "; ") + database + ": " + queue.text();
      }
    }
    checks.push_back(check_row(
        "log backups to record", late.empty(),
        late.empty() ? std::to_string(waiting) + " wait" : late + "; see: dorsal3 log-backup status " + resource.name));
  }

  /// On the other hosts only the log backup is looked at: after a takeover it may be one of them that runs. One whose
  /// agent is away is told with the agents.
  static void add_log_backup_of_other(const std::vector<json_spirit::Object>& answer, const std::string& host,
                                      std::vector<json_spirit::Object>& checks) {
    for (json_spirit::Object row : answer) {
      if (text_member(row, "name") != "log backup") continue;
      row["name"] = "log backup on " + host;
      checks.push_back(std::move(row));
    }
  }

  std::string instance_;
};

}  // namespace

std::unique_ptr<Verb> make_check_verb() { return std::make_unique<Check_Verb>(); }

}  // namespace dorsal3
