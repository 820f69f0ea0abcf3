#include <CLI/CLI.hpp>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

constexpr const char* list_method = "hana.instance.list";

/// The name under which an installed instance is registered; empty when it is not.
std::string registered_name(const std::vector<Resource>& resources, const std::string& host_uuid,
                            const json_spirit::Object& installed) {
  for (const Resource& resource : resources) {
    for (const auto& instance : object_rows(resource.record, "instances")) {
      json_spirit::Object attributes;
      (void)json_spirit::object_get(instance, "extended_attrs", attributes);
      if (text_member(instance, "host_uuid") == host_uuid &&
          text_member(attributes, "sid") == text_member(installed, "sid") &&
          text_member(attributes, "instance_name") == text_member(installed, "instance_name"))
        return resource.name;
    }
  }
  return {};
}

/// Lists what is installed on the hosts, registered or not.
class Instances_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("instances", "List the instances that are installed on the hosts");
    sub->add_option("--host", host_, "Ask this host's agent only (its name or uuid)");
    return sub;
  }

  Outcome run(Context& context) override {
    Failure failure;
    std::vector<Resource> resources;
    std::vector<json_spirit::Object> hosts;
    if (!list_resources(context.server, resources, failure) || !choose_hosts(context, hosts, failure))
      return Outcome::failed(std::move(failure));
    json_spirit::Array rows;
    json_spirit::Array errors;
    for (const auto& host : hosts) add_host(context, resources, host, rows, errors);
    Outcome outcome;
    outcome.exit_code = errors.empty() ? exit_ok : exit_failed;
    outcome.model = {{"instances", std::move(rows)}, {"errors", std::move(errors)}};
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    for (const auto& problem : object_rows(model, "errors"))
      out << "host " << one_line(text_member(problem, "host")) << ": " << one_line(text_member(problem, "message"))
          << "\n";
    const auto instances = object_rows(model, "instances");
    if (instances.empty()) {
      out << "No instance is installed on these hosts.\n";
      return;
    }
    Text_Table table({"NAME", "HOST", "SID", "INSTANCE_NAME", "INSTANCE_NUMBER", "VERSION", "LOCALHOST"});
    for (const auto& instance : instances) {
      std::vector<std::string> cells;
      for (const char* key : {"name", "host", "sid", "instance_name", "instance_number", "version", "localhost"})
        cells.push_back(one_line(text_member(instance, key)));
      if (cells.front().empty()) cells.front() = "- (run: dorsal3 discover)";
      table.add(std::move(cells));
    }
    out << table.text();
  }

 private:
  bool choose_hosts(Context& context, std::vector<json_spirit::Object>& hosts, Failure& failure) const {
    std::vector<json_spirit::Object> all;
    if (!context.server.get_rows("/hosts", all, failure)) return false;
    std::string known;
    for (const auto& host : all) {
      const std::string name = text_member(host, "name");
      if (host_.empty() || host_ == name || host_ == text_member(host, "uuid")) hosts.push_back(host);
      known += (known.empty() ? "" : ", ") + name;
    }
    if (host_.empty() || !hosts.empty()) return true;
    failure = {exit_not_found, "not_found",
               "there is no host \"" + host_ + "\"; " +
                   (known.empty() ? "no agent has ever connected" : "the hosts are: " + known)};
    return false;
  }

  static void add_host(Context& context, const std::vector<Resource>& resources, const json_spirit::Object& host,
                       json_spirit::Array& rows, json_spirit::Array& errors) {
    const std::string uuid = text_member(host, "uuid");
    const std::string name = text_member(host, "name");
    json_spirit::Value answer;
    Failure failure;
    if (!context.server.post_for_value("/agents/" + path_segment(uuid) + "/call", {{"method", list_method}}, answer,
                                       failure, Server_Client::agent_timeout)) {
      errors.emplace_back(json_spirit::Object{{"host", name}, {"host_uuid", uuid}, {"message", failure.message}});
      return;
    }
    for (const auto& installed : object_rows({{"rows", std::move(answer)}}, "rows")) {
      json_spirit::Object row{
          {"name", registered_name(resources, uuid, installed)}, {"host", name}, {"host_uuid", uuid}};
      for (const auto& [key, value] : installed) row[key] = value;
      rows.emplace_back(std::move(row));
    }
  }

  std::string host_;
};

}  // namespace

std::unique_ptr<Verb> make_instances_verb() { return std::make_unique<Instances_Verb>(); }

}  // namespace dorsal3
