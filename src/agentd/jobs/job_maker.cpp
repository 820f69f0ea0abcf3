#include "agentd/jobs/job_maker.h"

#include "agentd/jobs/definition_guard.h"
#include "platform/log.h"

namespace agentd {

namespace {

/// The kind in the definition's own words, for messages.
std::string kind_of(const Job_Definition& definition) {
  const std::string subtype = job_def_subtype_to_string(definition.subtype());
  return (definition.type() == JOB_DEFINITION_RESTORE ? "restore" : "backup") + std::string(" of subtype \"") +
         subtype + "\"";
}

}  // namespace

Job_Ptr Job_Maker::make(const json_spirit::Value& document, std::string& refusal) const {
  std::string module_name;
  if (!document.is_object() || !json_spirit::object_get(document.get_obj(), "module", module_name)) {
    refusal = "the definition names no module";
    return {};
  }
  const Module* const module = modules_.find(module_name);
  if (module == nullptr || module->job_creator() == nullptr) {
    refusal = "this agent has no module \"" + platform::cut_for_log(module_name) +
              "\" that runs jobs; install it and name it in agent.toml";
    return {};
  }
  if (!names_are_safe(document.get_obj(), refusal)) return {};
  const auto choose = [module](Job_Definition_Type type, Job_Definition_Subtype) { return module->parsers(type); };
  const Job_Definition_Ptr definition = read_job_definition(document, choose, refusal);
  if (definition.null()) return {};
  if (definition->host_id() != host_uuid_) {
    refusal = "the definition is for host " + platform::cut_for_log(definition->host_id()) + ", this is " + host_uuid_;
    return {};
  }
  const Job_Ptr job = module->job_creator()->create(definition);
  if (job.get() == nullptr)
    refusal = "module \"" + module_name + "\" does not run a " + kind_of(*definition) + "; the definition is refused";
  return job;
}

}  // namespace agentd
