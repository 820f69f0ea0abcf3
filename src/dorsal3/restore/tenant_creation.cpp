#include "dorsal3/restore/tenant_creation.h"

#include "dorsal3/server/resources.h"
#include "dorsal3/terminal/format.h"

namespace dorsal3 {

namespace {

constexpr const char* create_method = "hana.database.create";
/// As long as backupd lets an agent take for it.
constexpr int create_seconds = 3600;

json_spirit::Object target_of(const json_spirit::Object& plan) {
  json_spirit::Object target;
  (void)json_spirit::object_get(plan, "target", target);
  return target;
}

std::string label(const json_spirit::Object& target) {
  return text_member(target, "name") + "/" + text_member(target, "database");
}

}  // namespace

bool plans_creation(const json_spirit::Object& plan) { return flag_member(target_of(plan), "create"); }

bool create_tenant(Context& context, const json_spirit::Object& plan, const secure_string& password, Failure& failure) {
  const json_spirit::Object target = target_of(plan);
  json_spirit::Object params{{"sid", text_member(target, "sid")},
                             {"instance_name", text_member(target, "instance_name")},
                             {"database", text_member(target, "database")}};
  params["password"] = password;
  const json_spirit::Object body{{"method", create_method}, {"params", std::move(params)}, {"timeout", create_seconds}};
  json_spirit::Object answer;
  context.live() << "Creating the database " << one_line(label(target)) << "; this may take several minutes.\n";
  if (!context.server.post("/agents/" + path_segment(text_member(target, "host_uuid")) + "/call", body, answer, failure,
                           Server_Client::control_timeout)) {
    if (failure.exit_code == exit_unreachable)
      failure.message += "; should the database have been created all the same, dorsal3 databases " +
                         text_member(target, "name") + " shows it, and the restore goes on without --create";
    return false;
  }
  if (!interrupted()) return true;
  failure = {exit_interrupted, "interrupted",
             "interrupted; the database " + label(target) + " was created, nothing was restored into it"};
  return false;
}

void mention_creation(const json_spirit::Object& plan, Outcome& outcome) {
  const std::string name = label(target_of(plan));
  const std::string stays =
      "The database " + name + " was created and stays: restore into it without --create, or " + "drop it in HANA.";
  if (outcome.failure) {
    outcome.failure->message +=
        outcome.exit_code == exit_interrupted ? "; the database " + name + " was created" : ". " + stays;
    return;
  }
  outcome.model["created"] = true;
  if (outcome.exit_code != exit_ok) outcome.model["result"] = text_member(outcome.model, "result") + " " + stays;
}

}  // namespace dorsal3
