#include "job/job_definition_type.h"

#include <array>

namespace {

constexpr std::array names{"none",   "full",     "incremental", "differential", "continuous",    "export",
                           "merge",  "ondemand", "brick",       "media",        "database",      "tablespace",
                           "table",  "point-in-time", "import", "mount",        "disaster",      "dr-test"};
static_assert(names.size() == JOB_DEFINITION_SUBTYPE_DR_TEST + 1);

}  // namespace

const char* job_def_subtype_to_string(Job_Definition_Subtype subtype, unsigned long /*flags*/) {
  return is_job_definition_subtype(subtype) ? names[static_cast<std::size_t>(subtype)] : "unknown";
}

bool is_job_definition_type(int value) { return value >= JOB_DEFINITION_NONE && value <= JOB_DEFINITION_STORAGE; }

bool is_job_definition_subtype(int value) {
  return value >= JOB_DEFINITION_SUBTYPE_NONE && value <= JOB_DEFINITION_SUBTYPE_DR_TEST;
}
