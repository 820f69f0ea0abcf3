#include "backupd/http/body_reader.h"
#include "backupd/http/routes.h"
#include "backupd/log_backup/setup_store.h"
#include "backupd/server_core.h"
#include "job/job_state.h"

namespace backupd {

namespace {

constexpr unsigned status_ok = 200;
constexpr unsigned status_accepted = 202;

Reply get_definitions(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  if (Outcome outcome = read_list_query(request, {{"created", "seq"}, {"name", "name"}}, query); !outcome.ok())
    return outcome;
  query.where_given("host_uuid", request.parameter("host_uuid"));
  query.where_given("module", request.parameter("module"));
  query.where_given("name", request.parameter("name"));
  if (!core.definitions.list(query, page)) return store_unavailable();
  for (json_spirit::Value& row : page.rows)
    if (Outcome outcome = core.definitions.add_setup(row.get_obj()); !outcome.ok()) return outcome;
  return page;
}

/// Has a log backup set up, or removed, at its agent and adds what came of it.
Outcome settle_setup(Server_Core& core, json_spirit::Object& definition) {
  std::string id;
  json_spirit::object_get(definition, "id", id);
  if (is_set_up(definition)) core.setups.settle(id);
  return core.definitions.add_setup(definition);
}

Reply post_definition(Server_Core& core, const Request& request) {
  json_spirit::Object stored;
  const Outcome outcome = core.definitions.put(request.body, stored);
  if (!outcome.ok()) return outcome;
  core.starter.wake();  // a log backup may wait for a definition
  if (Outcome added = settle_setup(core, stored); !added.ok()) return added;
  return stored_reply(outcome, stored);
}

Reply get_definition(Server_Core& core, const Request& request) {
  json_spirit::Object definition;
  if (Outcome outcome = core.definitions.get(request.parameters.at(0), definition); !outcome.ok()) return outcome;
  if (Outcome outcome = core.definitions.add_setup(definition); !outcome.ok()) return outcome;
  return json_spirit::Value(definition);
}

/// {} for a definition that is gone; {"setup"} for a log backup, which goes when its runs need it no more.
Reply delete_definition(Server_Core& core, const Request& request) {
  const std::string id = request.parameters.at(0);
  json_spirit::Object definition;
  if (Outcome outcome = core.definitions.get(id, definition); !outcome.ok()) return outcome;
  if (Outcome outcome = core.definitions.remove(id, request.parameter("force") == "1"); !outcome.ok()) return outcome;
  if (!is_set_up(definition)) return json_spirit::Value(json_spirit::Object());
  if (Outcome outcome = settle_setup(core, definition); !outcome.ok()) return outcome;
  const json_spirit::Value* const setup = definition.find("setup");
  if (setup == nullptr) return json_spirit::Value(json_spirit::Object());
  std::string state;
  const bool removed = json_spirit::object_get(setup->get_obj(), "state", state) && state == Setup_Row::removed;
  return {json_spirit::Object{{"setup", *setup}}, removed ? status_ok : status_accepted};
}

Reply renew_setup(Server_Core& core, const Request& request) {
  const std::string id = request.parameters.at(0);
  json_spirit::Object definition;
  Body_Reader reader(request.body, "the renewal of a setup");
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = core.definitions.renew(id); !outcome.ok()) return outcome;
  if (Outcome outcome = core.definitions.get(id, definition); !outcome.ok()) return outcome;
  if (Outcome outcome = settle_setup(core, definition); !outcome.ok()) return outcome;
  return json_spirit::Value(definition);
}

Reply start_job(Server_Core& core, const Request& request) {
  json_spirit::Object options;
  std::string job_act_id;
  Body_Reader reader(request.body, "the start of a job");
  reader.object("options", options);
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = core.dispatch.start(request.parameters.at(0), options, job_act_id); !outcome.ok())
    return outcome;
  return {json_spirit::Object{{"job_act_id", job_act_id}}, status_accepted};
}

/// A state by its name, as runs show it.
Outcome read_state(const std::string& name, List_Query& query) {
  if (name.empty()) return {};
  for (int state = JOB_STATE_NONE; is_job_state(state); ++state)
    if (name == job_state_to_string(static_cast<Job_State>(state))) {
      query.where("state", std::int64_t{state});
      return {};
    }
  return Outcome::refuse(Outcome::invalid,
                         "there is no state \"" + name + "\" of a run; try error, completed, running or canceled");
}

Reply get_jobs(Server_Core& core, const Request& request) {
  List_Query query;
  List_Page page;
  query.descending = true;
  if (Outcome outcome = read_list_query(request, {{"started", "seq"}}, query); !outcome.ok()) return outcome;
  query.where_given("def_id", request.parameter("def_id"));
  query.where_given("host_uuid", request.parameter("host_uuid"));
  query.where_given("kind", request.parameter("kind"));
  if (Outcome outcome = read_state(request.parameter("state"), query); !outcome.ok()) return outcome;
  if (!core.activities.list(query, page)) return store_unavailable();
  for (json_spirit::Value& row : page.rows) core.dispatch.show(row.get_obj());
  return page;
}

Reply get_job(Server_Core& core, const Request& request) {
  json_spirit::Object record;
  if (Outcome outcome = core.activities.get(request.parameters.at(0), record); !outcome.ok()) return outcome;
  core.dispatch.show(record);
  return json_spirit::Value(record);
}

Reply stop_job(Server_Core& core, const Request& request) {
  json_spirit::Value answer;
  Body_Reader reader(request.body, "the stop of a job");
  if (Outcome outcome = reader.finish(); !outcome.ok()) return outcome;
  if (Outcome outcome = core.dispatch.stop(request.parameters.at(0), answer); !outcome.ok()) return outcome;
  return answer;
}

}  // namespace

void add_job_routes(Router& router, Server_Core& core) {
  const std::string definitions = std::string(rest_prefix) + "/job-definitions";
  const std::string jobs = std::string(rest_prefix) + "/jobs";
  router.add({"GET",
              definitions,
              reader_roles,
              with_list_keys({"host_uuid", "module", "name"}),
              Body::none,
              [&core](Request& request) { return get_definitions(core, request); },
              {}});
  router.add({"POST",
              definitions,
              role_operator,
              {},
              Body::json,
              [&core](Request& request) { return post_definition(core, request); },
              {}});
  router.add({"GET",
              definitions + "/<id>",
              reader_roles,
              {},
              Body::none,
              [&core](Request& request) { return get_definition(core, request); },
              {}});
  router.add({"DELETE",
              definitions + "/<id>",
              role_operator,
              {"force"},
              Body::none,
              [&core](Request& request) { return delete_definition(core, request); },
              {}});
  router.add({"POST",
              definitions + "/<id>/setup",
              role_operator,
              {},
              Body::json,
              [&core](Request& request) { return renew_setup(core, request); },
              {}});
  router.add({"POST",
              definitions + "/<id>/start",
              role_operator,
              {},
              Body::json,
              [&core](Request& request) { return start_job(core, request); },
              {}});
  router.add({"GET",
              jobs,
              reader_roles,
              with_list_keys({"def_id", "host_uuid", "kind", "state"}),
              Body::none,
              [&core](Request& request) { return get_jobs(core, request); },
              {}});
  router.add({"GET",
              jobs + "/<act id>",
              reader_roles,
              {},
              Body::none,
              [&core](Request& request) { return get_job(core, request); },
              {}});
  router.add({"POST",
              jobs + "/<act id>/stop",
              role_operator,
              {},
              Body::json,
              [&core](Request& request) { return stop_job(core, request); },
              {}});
}

}  // namespace backupd
