#include "agentd/instances/instance_service.h"

#include <algorithm>

#include "agentd/instances/installation_check.h"
#include "agentd/instances/landscape.h"
#include "agentd/jobs/job_table.h"
#include "agentd/log_backup/log_backup_status.h"
#include "agentd/modules/handler_call.h"
#include "platform/files.h"
#include "platform/log.h"
#include "platform/product_paths.h"

namespace agentd {

namespace {

constexpr const char* state_open = "open";
constexpr const char* backint_program = "hdbbackint";
constexpr std::chrono::seconds list_limit{60};

JSON_RPC_Answer result_answer(json_spirit::Object result) {
  JSON_RPC_Answer answer;
  answer.ok = true;
  answer.result = std::move(result);
  return answer;
}

JSON_RPC_Answer bad_params(const std::string& message) { return refusal_answer(JSON_RPC_E_INVALID_PARAMS, message); }

bool has_control_character(std::string_view text) {
  return std::any_of(text.begin(), text.end(), [](char c) {
    const auto byte = static_cast<unsigned char>(c);
    return byte < 0x20 || byte == 0x7F;
  });
}

std::string logon_text(int code) {
  switch (code) {
    case Instance_Handler::LOGON_OK:
      return "the logon works";
    case Instance_Handler::LOGON_REFUSED:
      return "the database refused the user or the password";
    default:
      return "the logon could not be tried; the agent's log tells why";
  }
}

json_spirit::Object check_backint() {
  const std::string path = platform::product_paths::program(backint_program);
  return platform::is_regular_file(path.c_str())
             ? check_row("backint", true, path + " is installed")
             : check_row("backint", false, path + " is missing; install the agent's package again");
}

/// A password comes as text or, already taken into care, as a secret.
bool take_password(const json_spirit::Object& params, secure_string& password) {
  if (json_spirit::object_get(params, "password", password)) return true;
  std::string text;
  if (!json_spirit::object_get(params, "password", text)) return false;
  password = secure_string(text);
  platform::wipe_memory(text.data(), text.size());
  return true;
}

}  // namespace

JSON_RPC_Answer Instance_Service::probe() {
  json_spirit::Array rows;
  for (const auto& module : modules_.all()) {
    Instance_Handler* const handler = module->instance_handler();
    if (handler == nullptr) continue;
    Instance_Handler::Instances found;
    if (handler->probe_instances(found) != 0)
      return refusal_answer(JSON_RPC_E_SERVER, "the instances of module \"" + module->name() +
                                                   "\" cannot be listed; the agent's log tells why");
    if (!manager_.store(found))
      return refusal_answer(JSON_RPC_E_SERVER, "the instances found cannot be kept; the agent's log tells why");
    for (const auto& [name, instance] : found) {
      const auto kept = manager_.find(instance->type.c_str(), name.c_str());
      json_spirit::Object attributes = instance->options;
      for (const auto& [key, value] : landscape_attributes(*instance)) attributes[key] = value;
      rows.emplace_back(json_spirit::Object{{"type", instance->type},
                                            {"name", name},
                                            {"uuid", kept == nullptr ? instance->uuid : kept->uuid},
                                            {"extended_attrs", std::move(attributes)}});
    }
  }
  return result_answer({{"instances", std::move(rows)}});
}

bool Instance_Service::find_subject(const json_spirit::Object& params, Subject& subject,
                                    JSON_RPC_Answer& refusal) const {
  if (!json_spirit::object_get(params, "type", subject.type) ||
      !json_spirit::object_get(params, "name", subject.name) || subject.name.empty()) {
    refusal = bad_params("\"type\" and \"name\" of the instance are needed");
    return false;
  }
  const Module* const module = modules_.find(subject.type);
  subject.handler = module == nullptr ? nullptr : module->instance_handler();
  if (module != nullptr) subject.lister = module->json_rpc_handler(module_factories::json_rpc_hana_list_handler);
  if (subject.handler == nullptr) {
    refusal =
        bad_params("this agent has no module for instances of type \"" + platform::cut_for_log(subject.type) + "\"");
    return false;
  }
  subject.instance = manager_.find(subject.type.c_str(), subject.name.c_str());
  if (subject.instance != nullptr) return true;
  refusal = refusal_answer(JSON_RPC_E_SERVER, "instance \"" + platform::cut_for_log(subject.name) +
                                                  "\" is not known on this host; run discover");
  return false;
}

JSON_RPC_Answer Instance_Service::state(const json_spirit::Object& params) {
  Subject subject;
  JSON_RPC_Answer refusal;
  if (!find_subject(params, subject, refusal)) return refusal;
  std::string state;
  (void)subject.handler->get_state(subject.name.c_str(), state);
  return result_answer({{"state", state}});
}

JSON_RPC_Answer Instance_Service::logon(const json_spirit::Object& params) {
  Subject subject;
  JSON_RPC_Answer refusal;
  if (!find_subject(params, subject, refusal)) return refusal;
  std::string username;
  std::string uid;
  secure_string password;
  if (!json_spirit::object_get(params, "username", username) || username.empty() || !take_password(params, password) ||
      password.empty())
    return bad_params("\"username\" and \"password\" are needed");
  (void)json_spirit::object_get(params, "uid", uid);
  // A line end in either would be a command of its own to the tool that logs on.
  if (has_control_character(username) || has_control_character(password.view()))
    return bad_params("user and password must not hold control characters");

  const int code = subject.handler->logon(subject.name.c_str(), username.c_str(), &password, nullptr);
  if (code != Instance_Handler::LOGON_OK) return result_answer({{"code", code}, {"message", logon_text(code)}});
  if (!manager_.set_account(subject.type, subject.name, uid, username, password))
    return refusal_answer(JSON_RPC_E_SERVER, "the account works but cannot be kept; the agent's log tells why");
  return result_answer({{"code", code}, {"message", "the account works and is stored"}});
}

JSON_RPC_Answer Instance_Service::check(const json_spirit::Object& params) {
  Subject subject;
  JSON_RPC_Answer refusal;
  if (!find_subject(params, subject, refusal)) return refusal;
  json_spirit::Array checks;
  checks.emplace_back(check_backint());
  for (json_spirit::Value& row : check_installation(*subject.instance)) checks.push_back(std::move(row));
  checks.emplace_back(check_state(subject));
  checks.emplace_back(check_databases(subject));
  checks.emplace_back(check_account(subject));
  std::string state;
  (void)subject.handler->get_state(subject.name.c_str(), state);
  checks.emplace_back(check_log_backup(*subject.instance, state == state_open));
  return result_answer({{"checks", std::move(checks)}});
}

json_spirit::Object Instance_Service::check_state(const Subject& subject) const {
  std::string state;
  (void)subject.handler->get_state(subject.name.c_str(), state);
  return state == state_open
             ? check_row("state", true, "the instance runs")
             : check_row("state", false,
                         "the instance does not run, or is the secondary of a replication; start it, but not beside a "
                         "primary that runs on another host");
}

json_spirit::Object Instance_Service::check_account(const Subject& subject) const {
  std::string username;
  secure_string password;
  if (manager_.get_account(subject.type.c_str(), subject.name.c_str(), "", username, password) != 0)
    return check_row("account", false, "no account is stored; run: dorsal3 logon " + subject.name + " --user USER");
  const int code = subject.handler->logon(subject.name.c_str(), username.c_str(), &password, nullptr);
  return check_row("account", code == Instance_Handler::LOGON_OK, "user " + username + ": " + logon_text(code));
}

/// As the list of databases is asked for, so that what a backup of the whole instance needs is what is tried.
json_spirit::Object Instance_Service::check_databases(const Subject& subject) const {
  if (subject.lister == nullptr)
    return check_row("databases", false, "this agent's module cannot list databases; install its package again");
  JSON_RPC_Message request;
  request.kind = JSON_RPC_Message::request;
  request.id = 1;
  request.method = "hana.database.list";
  request.params = json_spirit::Object{{"uid", ""}, {"instance", subject.name}};
  const JSON_RPC_Answer answer = call_handler(*subject.lister, request, list_limit);
  json_spirit::Array rows;
  if (!answer.ok || !answer.result.is_object() || !json_spirit::object_get(answer.result.get_obj(), "databases", rows))
    return check_row("databases", false,
                     "the databases cannot be listed: " + answer.message +
                         "; the instance must run and its account be stored, the agent's log tells more");
  std::string names;
  for (const json_spirit::Value& row : rows) {
    std::string name;
    if (row.is_object()) json_spirit::object_get(row.get_obj(), "name", name);
    names += (names.empty() ? "" : ", ") + name;
  }
  return check_row("databases", true, names);
}

}  // namespace agentd
