#pragma once

#include <string>
#include <utility>

#include "agentd/modules/module.h"
#include "job/job.h"

namespace agentd {

/// Makes the job of a definition document, by the module that the document names. Any thread.
class Job_Maker {
 public:
  Job_Maker(const Modules& modules, std::string host_uuid) : modules_(modules), host_uuid_(std::move(host_uuid)) {}

  /// Empty, with the reason in `refusal`, when the document is not sound, is another host's, names an unknown module,
  /// or is of a kind that the module does not run.
  [[nodiscard]] Job_Ptr make(const json_spirit::Value& document, std::string& refusal) const;

 private:
  const Modules& modules_;
  const std::string host_uuid_;
};

}  // namespace agentd
