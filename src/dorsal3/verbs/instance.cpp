#include <CLI/CLI.hpp>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

constexpr const char* control_method = "hana.instance.control";
/// As long as backupd lets an agent take for it.
constexpr int control_seconds = 3600;
constexpr const char* action_state = "state";

const char* state_word(std::uint64_t state) {
  constexpr std::uint64_t running = 1;
  constexpr std::uint64_t stopped = 2;
  return state == running ? "running" : state == stopped ? "stopped" : "unknown";
}

const char* past_tense(const std::string& action) {
  return action == "start" ? "started" : action == "stop" ? "stopped" : "restarted";
}

/// Starts, stops or restarts the instance of one host, or tells its state.
class Instance_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("instance", "Start, stop or restart an instance, or tell its state");
    sub->add_option("ACTION", action_, "start, stop, restart or state")
        ->required()
        ->check(CLI::IsMember({"start", "stop", "restart", action_state}));
    sub->add_option("INSTANCE", instance_, "The instance, as discover lists it, or its uuid")->required();
    sub->add_option("--host", host_, "The host whose instance is meant (its name or uuid), where there are several");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    Resource resource;
    std::string host;
    json_spirit::Object answer;
    if (!find_resource(context.server, instance_, host_, resource, failure) ||
        !choose_host(context.server, host_, resource, failure) || !name_host(context, resource, host, failure) ||
        !control(context, resource, host, answer, failure))
      return Outcome::failed(std::move(failure));
    Outcome outcome;
    outcome.model = {
        {"instance", resource.name}, {"host", host}, {"host_uuid", resource.host_uuid}, {"action", action_}};
    if (action_ == action_state) outcome.model["state"] = state_word(number_member(answer, "state"));
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    const std::string action = text_member(model, "action");
    out << one_line(text_member(model, "instance")) << " on " << one_line(text_member(model, "host")) << ": "
        << (action == action_state ? text_member(model, "state") : past_tense(action)) << "\n";
  }

 private:
  static bool name_host(Context& context, const Resource& resource, std::string& host, Failure& failure) {
    std::map<std::string, std::string> names;
    if (!host_names(context.server, names, failure)) return false;
    host = names[resource.host_uuid].empty() ? resource.host_uuid : names[resource.host_uuid];
    return true;
  }

  bool control(Context& context, const Resource& resource, const std::string& host, json_spirit::Object& answer,
               Failure& failure) const {
    json_spirit::Object attributes;
    for (const auto& instance : object_rows(resource.record, "instances"))
      if (text_member(instance, "host_uuid") == resource.host_uuid)
        (void)json_spirit::object_get(instance, "extended_attrs", attributes);
    const json_spirit::Object params{{"sid", text_member(attributes, "sid")},
                                     {"instance_name", text_member(attributes, "instance_name")},
                                     {"action", action_}};
    json_spirit::Object body{{"method", control_method}, {"params", params}};
    const bool changes = action_ != action_state;
    if (changes) {
      body["timeout"] = control_seconds;
      context.notes << "Asking " << one_line(host) << " to " << action_ << " " << one_line(resource.name)
                    << "; this may take several minutes.\n";
    }
    return context.server.post("/agents/" + path_segment(resource.host_uuid) + "/call", body, answer, failure,
                               changes ? Server_Client::control_timeout : Server_Client::agent_timeout);
  }

  std::string action_;
  std::string instance_;
  std::string host_;
};

}  // namespace

std::unique_ptr<Verb> make_instance_verb() { return std::make_unique<Instance_Verb>(); }

}  // namespace dorsal3
