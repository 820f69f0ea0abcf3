#include "job/job_definition_type.h"

#include <array>

namespace {

constexpr std::array type_names{"none", "backup", "restore", "standby", "storage"};
static_assert(type_names.size() == JOB_DEFINITION_STORAGE + 1);

constexpr std::array names{"none",  "full",          "incremental", "differential", "continuous", "export",
                           "merge", "ondemand",      "brick",       "media",        "database",   "tablespace",
                           "table", "point-in-time", "import",      "mount",        "disaster",   "dr-test"};
static_assert(names.size() == JOB_DEFINITION_SUBTYPE_DR_TEST + 1);

}  // namespace

const char* job_def_subtype_to_string(Job_Definition_Subtype subtype, unsigned long /*flags*/) {
  return is_job_definition_subtype(subtype) ? names[static_cast<std::size_t>(subtype)] : "unknown";
}

bool is_job_definition_type(int value) { return value >= JOB_DEFINITION_NONE && value <= JOB_DEFINITION_STORAGE; }

bool is_job_definition_subtype(int value) {
  return value >= JOB_DEFINITION_SUBTYPE_NONE && value <= JOB_DEFINITION_SUBTYPE_DR_TEST;
}

bool job_def_type_from_string(std::string_view name, Job_Definition_Type& type) {
  for (int value = JOB_DEFINITION_BACKUP; value <= JOB_DEFINITION_STORAGE; ++value)
    if (name == type_names[static_cast<std::size_t>(value)]) {
      type = static_cast<Job_Definition_Type>(value);
      return true;
    }
  return false;
}

bool job_def_subtype_from_string(std::string_view name, Job_Definition_Subtype& subtype) {
  if (name == "log") {
    subtype = JOB_DEFINITION_SUBTYPE_ONDEMAND;
    return true;
  }
  for (int value = JOB_DEFINITION_SUBTYPE_FULL; value <= JOB_DEFINITION_SUBTYPE_DR_TEST; ++value)
    if (name == names[static_cast<std::size_t>(value)]) {
      subtype = static_cast<Job_Definition_Subtype>(value);
      return true;
    }
  return false;
}
