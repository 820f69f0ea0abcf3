#include <CLI/CLI.hpp>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

constexpr int logon_refused = -32000;

/// Gives the agent the database user it works with; the agent tries it before it keeps it.
class Logon_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("logon", "Store the database account an instance is backed up with");
    sub->add_option("INSTANCE", instance_, "The instance, as discover lists it, or its uuid")->required();
    sub->add_option("-u,--user", user_, "Database user")->required();
    sub->add_option("--host", host_, "Host of the instance whose agent keeps it, by name or uuid");
    sub->footer(
        "The password is asked for on the terminal, or read as one line from standard input.\n"
        "It is never taken from the command line or the environment.");
    return sub;
  }

  Outcome run(Context& context) override {
    Resource resource;
    Failure failure;
    if (!find_resource(context.server, instance_, host_, resource, failure) ||
        !choose_host(context.server, host_, resource, failure))
      return Outcome::failed(std::move(failure));
    secure_string password;
    if (!read_secret(context.terminal, "Password of " + one_line(user_) + " on " + resource.name + ": ", password))
      return Outcome::failed(
          {exit_usage, "usage", "no password was given; type it on the terminal or pipe one line in"});

    json_spirit::Object params{{"type", resource.type}, {"name", resource.name}, {"username", user_}};
    params["password"] = password;
    json_spirit::Object result;
    if (!call_agent(context.server, resource, "instance.logon", params, result, failure))
      return Outcome::failed(std::move(failure));
    int code = 0;
    if (!json_spirit::object_get(result, "code", code))
      return Outcome::failed({exit_protocol, "protocol", "the agent's answer to the logon has no code"});
    if (code != 0) return Outcome::failed(refusal(code, text_member(result, "message"), resource));
    Outcome outcome;
    json_spirit::Array other_hosts;
    for (const std::string& host : resource.host_uuids())
      if (host != resource.host_uuid) other_hosts.emplace_back(host);
    outcome.model = {{"instance", resource.name}, {"user", user_}, {"stored", true}, {"host_uuid", resource.host_uuid}};
    outcome.model["other_hosts"] = std::move(other_hosts);
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    out << "The account " << one_line(text_member(model, "user")) << " of " << one_line(text_member(model, "instance"))
        << " works and is stored on the instance's host.\n";
    json_spirit::Array other_hosts;
    (void)json_spirit::object_get(model, "other_hosts", other_hosts);
    if (other_hosts.empty()) return;
    out << "The instance's other hosts keep an account of their own; store it there with --host:";
    for (const json_spirit::Value& host : other_hosts) out << " " << one_line(host.get_str());
    out << "\n";
  }

 private:
  [[nodiscard]] Failure refusal(int code, const std::string& message, const Resource& resource) const {
    if (code == logon_refused)
      return {
          exit_failed, "logon_refused",
          "the database refused user \"" + user_ +
              "\"; check the password, whether the user is locked, and whether the instance runs" +
              (resource.host_uuids().size() > 1
                   ? " on host " + resource.host_uuid + " and is no replication secondary there; --host chooses another"
                   : "")};
    return {exit_failed, "logon_failed",
            "the logon could not be tried" + (message.empty() ? "" : ": " + message) +
                "; the agent's log on the instance's host tells more"};
  }

  std::string instance_;
  std::string user_;
  std::string host_;
};

}  // namespace

std::unique_ptr<Verb> make_logon_verb() { return std::make_unique<Logon_Verb>(); }

}  // namespace dorsal3
