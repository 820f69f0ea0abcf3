#include "job/job_definition_reader.h"

#include <array>
#include <exception>
#include <memory>
#include <string_view>

#include "json/yajl_parser_t.h"
#include "scrt/time_text.h"

namespace {

using json_spirit::Object;
using json_spirit::Value;

constexpr std::array known_keys{"agent",
                                "agents",
                                "creation_time",
                                "host_uuid",
                                "id",
                                "ignore_post_action_failure",
                                "ignore_pre_action_failure",
                                "job_revision",
                                "max_seconds_retry",
                                "module",
                                "name",
                                "network_id",
                                "options",
                                "post_action",
                                "pre_action",
                                "precondition",
                                "rate_limits",
                                "redirect_post_action_stdin",
                                "redirect_pre_action_stdout",
                                "resumption_buffer_size",
                                "retry_count",
                                "retry_interval",
                                "rsrc_form",
                                "run_post_action_always",
                                "schedule",
                                "source",
                                "state",
                                "subtype",
                                "target",
                                "type",
                                "uid",
                                "username",
                                "view",
                                "write_to_history"};

[[noreturn]] void refuse(const std::string& reason) { throw json_spirit::Error(reason); }

/// The member's value; null when it is missing or null.
const Value* present(const Object& object, std::string_view key) {
  const Value* const value = object.find(key);
  return value == nullptr || value->is_null() ? nullptr : value;
}

/// Gives an optional member to a setter of the definition.
template <typename T, typename Parameter>
void take(const Object& object, std::string_view key, Job_Definition& definition,
          void (Job_Definition::*setter)(Parameter)) {
  if (present(object, key) != nullptr) (definition.*setter)(json_spirit::object_require<T>(object, key));
}

const Object& sub_object(const Object& object, std::string_view key) {
  const Value& value = *object.find(key);
  if (!value.is_object()) refuse("key '" + std::string(key) + "' is not an object");
  return value.get_obj();
}

void refuse_unknown_keys(const Object& object) {
  for (const auto& [key, value] : object) {
    bool known = false;
    for (const char* name : known_keys) known = known || key == name;
    if (!known) refuse("unknown key '" + key + "'");
  }
}

void read_kind(const Object& object, Job_Definition& definition) {
  const std::string type = json_spirit::object_require<std::string>(object, "type");
  const std::string subtype = json_spirit::object_require<std::string>(object, "subtype");
  Job_Definition_Type type_value = JOB_DEFINITION_NONE;
  Job_Definition_Subtype subtype_value = JOB_DEFINITION_SUBTYPE_NONE;
  if (!job_def_type_from_string(type, type_value)) refuse("type '" + type + "' is unknown");
  if (!job_def_subtype_from_string(subtype, subtype_value)) refuse("subtype '" + subtype + "' is unknown");
  definition.type(type_value);
  definition.subtype(subtype_value);
}

void read_texts(const Object& object, Job_Definition& definition) {
  using Setter = void (Job_Definition::*)(const std::string&);
  struct Row {
    std::string_view key;
    Setter setter;
  };
  static constexpr Row rows[] = {{"host_uuid", &Job_Definition::host_id},
                                 {"agent", &Job_Definition::agent},
                                 {"uid", &Job_Definition::uid},
                                 {"rsrc_form", &Job_Definition::rsrc_form},
                                 {"view", &Job_Definition::view},
                                 {"precondition", &Job_Definition::precondition},
                                 {"pre_action", &Job_Definition::pre_action},
                                 {"post_action", &Job_Definition::post_action},
                                 {"name", &Job_Definition::name},
                                 {"username", &Job_Definition::username}};
  definition.id(json_spirit::object_require<std::string>(object, "id"));
  for (const Row& row : rows) take<std::string>(object, row.key, definition, row.setter);
}

void read_flags(const Object& object, Job_Definition& definition) {
  using Setter = void (Job_Definition::*)(bool);
  struct Row {
    std::string_view key;
    Setter setter;
  };
  static constexpr Row rows[] = {{"ignore_pre_action_failure", &Job_Definition::ignore_pre_action_failure},
                                 {"redirect_pre_action_stdout", &Job_Definition::redirect_pre_action_stdout},
                                 {"run_post_action_always", &Job_Definition::run_post_action_always},
                                 {"ignore_post_action_failure", &Job_Definition::ignore_post_action_failure},
                                 {"redirect_post_action_stdin", &Job_Definition::redirect_post_action_stdin},
                                 {"write_to_history", &Job_Definition::write_to_history}};
  for (const Row& row : rows) take<bool>(object, row.key, definition, row.setter);
}

void read_numbers(const Object& object, Job_Definition& definition) {
  using Setter = void (Job_Definition::*)(std::size_t);
  struct Row {
    std::string_view key;
    Setter setter;
  };
  static constexpr Row rows[] = {{"max_seconds_retry", &Job_Definition::max_seconds_retry},
                                 {"resumption_buffer_size", &Job_Definition::resumption_buffer_size},
                                 {"retry_count", &Job_Definition::retry_count},
                                 {"retry_interval", &Job_Definition::retry_interval}};
  for (const Row& row : rows) take<unsigned long>(object, row.key, definition, row.setter);
  take<long>(object, "job_revision", definition,
             static_cast<void (Job_Definition::*)(std::int64_t)>(&Job_Definition::job_revision));
  take<int>(object, "network_id", definition, static_cast<void (Job_Definition::*)(int)>(&Job_Definition::network_id));
  if (present(object, "state") == nullptr) return;
  const int state = json_spirit::object_require<int>(object, "state");
  if (!is_job_state(state)) refuse("state " + std::to_string(state) + " is unknown");
  definition.state(static_cast<Job_State>(state));
}

void read_creation_time(const Object& object, Job_Definition& definition) {
  if (present(object, "creation_time") == nullptr) return;
  const std::string text = json_spirit::object_require<std::string>(object, "creation_time");
  std::time_t time = 0;
  if (!iso8601_to_posix_time(text.c_str(), time)) refuse("key 'creation_time' is no time");
  definition.creation_time(time);
}

void read_agents(const Object& object, Job_Definition& definition) {
  if (present(object, "agents") == nullptr) return;
  Agents agents;
  for (const Value& agent : json_spirit::object_require<json_spirit::Array>(object, "agents")) {
    if (!agent.is_string()) refuse("key 'agents' holds something else than texts");
    agents.push_back(agent.get_str());
  }
  definition.agents(agents);
}

void read_target(const Object& object, Job_Definition& definition) {
  if (present(object, "target") == nullptr) return;
  const Object& target = sub_object(object, "target");
  // A restore goes into a system, everything else to a pool.
  const bool system = present(target, "resource_uuid") != nullptr;
  definition.target().id(json_spirit::object_require<std::string>(target, system ? "resource_uuid" : "pool_uuid"));
  if (present(target, "location") != nullptr)
    definition.target().location(json_spirit::object_require<std::string>(target, "location"));
}

void read_rate_limits(const Object& object, Job_Definition& definition) {
  if (present(object, "rate_limits") == nullptr) return;
  Rate_Limits limits;
  std::string reason;
  if (!limits.from_json_in_object(sub_object(object, "rate_limits"), &reason)) refuse("key 'rate_limits': " + reason);
  definition.rate_limits(limits);
}

void read_schedule(const Object& object, Job_Definition& definition) {
  if (present(object, "schedule") == nullptr) return;
  const int type = json_spirit::object_require<int>(sub_object(object, "schedule"), "type");
  definition.schedule.reset(new Job_Schedule(type));
}

/// Lets the module's parser read one part of the document.
template <typename T>
ACE_Refcounted_Auto_Ptr<T, ACE_Thread_Mutex> parse_part(const Value& part, std::string_view key,
                                                        Object_Creator_T<YAJL_Handler>* creator) {
  if (!part.is_object()) refuse("key '" + std::string(key) + "' is not an object");
  if (creator == nullptr) refuse("key '" + std::string(key) + "' does not belong to this kind of definition");
  const auto destroy = [creator](YAJL_Handler* handler) { creator->destroy(handler); };
  const std::unique_ptr<YAJL_Handler, decltype(destroy)> handler(creator->create(), destroy);
  auto* const parser = dynamic_cast<YAJL_Parser<T>*>(handler.get());
  if (parser == nullptr) refuse("no parser for key '" + std::string(key) + "'");
  const JSON_Parse_Result outcome = parse_json(json_spirit::dump_json(part), *parser);
  if (!outcome.ok) refuse("key '" + std::string(key) + "': " + outcome.message);
  const ACE_Refcounted_Auto_Ptr<T, ACE_Thread_Mutex> result = parser->result();
  if (result.null()) refuse("no memory for key '" + std::string(key) + "'");
  return result;
}

void read_parts(const Object& object, const Job_Parser_Chooser& choose, Job_Definition& definition) {
  const Job_Parser_Creators creators = choose(definition.type(), definition.subtype());
  const Value* const source = present(object, "source");
  if (source != nullptr) definition.source = parse_part<Job_Source>(*source, "source", creators.source);
  if (source == nullptr && creators.source != nullptr) refuse("lack of key 'source'");
  if (const Value* const options = present(object, "options"))
    definition.options = parse_part<Job_Options>(*options, "options", creators.options);
}

}  // namespace

Job_Definition_Ptr read_job_definition(const Value& document, const Job_Parser_Chooser& choose, std::string& error) {
  try {
    if (!document.is_object()) refuse("a job definition is an object");
    const Object& object = document.get_obj();
    const Job_Definition_Ptr definition(new Job_Definition);
    refuse_unknown_keys(object);
    read_kind(object, *definition);
    read_texts(object, *definition);
    read_flags(object, *definition);
    read_numbers(object, *definition);
    read_creation_time(object, *definition);
    read_agents(object, *definition);
    read_target(object, *definition);
    read_rate_limits(object, *definition);
    read_schedule(object, *definition);
    read_parts(object, choose, *definition);
    return definition;
  } catch (const std::exception& reason) {
    error = reason.what();
    return Job_Definition_Ptr();
  }
}
