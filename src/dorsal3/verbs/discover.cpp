#include <CLI/CLI.hpp>

#include <algorithm>

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"
#include "dorsal3/verb.h"

namespace dorsal3 {

namespace {

std::string attributes_text(const json_spirit::Object& instance, const char* key) {
  json_spirit::Object attributes;
  (void)json_spirit::object_get(instance, "extended_attrs", attributes);
  return one_line(text_member(attributes, key));
}

/// The server answers a resource once for each host that was found to have it: the last one names them all.
json_spirit::Array newest_of_each(const std::vector<json_spirit::Object>& rows) {
  std::vector<json_spirit::Object> resources;
  for (const auto& row : rows) {
    const std::string uuid = text_member(row, "uuid");
    const auto known = std::find_if(resources.begin(), resources.end(),
                                    [&](const auto& resource) { return text_member(resource, "uuid") == uuid; });
    if (known == resources.end())
      resources.push_back(row);
    else
      *known = row;
  }
  return to_array(resources);
}

/// Asks the agents which instances their hosts have; the server registers what they find.
class Discover_Verb : public Verb {
 public:
  CLI::App* declare(CLI::App& app) override {
    CLI::App* sub = app.add_subcommand("discover", "Find the database instances on the hosts and register them");
    sub->add_option("--host", host_uuid_, "Ask this host's agent only (its uuid)");
    return sub;
  }

  Outcome run(Context& context) override {
    json_spirit::Object body;
    if (!host_uuid_.empty()) body["host_uuid"] = host_uuid_;
    json_spirit::Object answer;
    Failure failure;
    if (!context.server.post("/discover", body, answer, failure, Server_Client::agent_timeout))
      return Outcome::failed(std::move(failure));
    Outcome outcome;
    outcome.model["resources"] = newest_of_each(object_rows(answer, "rows"));
    if (const json_spirit::Value* problems = answer.find("errors")) outcome.model["errors"] = *problems;
    return outcome;
  }

  void print(const json_spirit::Object& model, std::ostream& out) const override {
    for (const auto& problem : object_rows(model, "errors"))
      out << "host " << one_line(text_member(problem, "host_uuid")) << ": " << one_line(text_member(problem, "message"))
          << "\n";
    const auto resources = object_rows(model, "resources");
    if (resources.empty()) {
      out << "No instance was found. Is an agent connected (dorsal3 check), and a database installed on its host?\n";
      return;
    }
    Text_Table table({"INSTANCE", "TYPE", "SID", "VERSION", "HOST", "TENANTS"});
    for (const auto& resource : resources) {
      for (const auto& instance : object_rows(resource, "instances")) {
        json_spirit::Object attributes;
        (void)json_spirit::object_get(instance, "extended_attrs", attributes);
        table.add({one_line(text_member(resource, "name")), one_line(text_member(resource, "type")),
                   attributes_text(instance, "sid"), attributes_text(instance, "version"),
                   attributes_text(instance, "localhost"), flag_member(attributes, "multi_container") ? "yes" : "no"});
      }
    }
    out << table.text();
  }

 private:
  std::string host_uuid_;
};

}  // namespace

std::unique_ptr<Verb> make_discover_verb() { return std::make_unique<Discover_Verb>(); }

}  // namespace dorsal3
