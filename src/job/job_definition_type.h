#pragma once

#include <string_view>

/// What kind of job a definition describes. The values are fixed.
enum Job_Definition_Type : int {
  JOB_DEFINITION_NONE = 0,
  JOB_DEFINITION_BACKUP = 1,
  JOB_DEFINITION_RESTORE = 2,
  JOB_DEFINITION_STANDBY = 3,
  JOB_DEFINITION_STORAGE = 4
};

/// The kind within the type. The values are fixed.
enum Job_Definition_Subtype : int {
  JOB_DEFINITION_SUBTYPE_NONE = 0,
  JOB_DEFINITION_SUBTYPE_FULL = 1,
  JOB_DEFINITION_SUBTYPE_INCREMENTAL = 2,
  JOB_DEFINITION_SUBTYPE_CUMULATIVE = 3,
  JOB_DEFINITION_SUBTYPE_CONTINUOUS = 4,
  JOB_DEFINITION_SUBTYPE_EXPORT = 5,
  JOB_DEFINITION_SUBTYPE_MERGE = 6,
  JOB_DEFINITION_SUBTYPE_ONDEMAND = 7,
  JOB_DEFINITION_SUBTYPE_BRICK = 8,
  JOB_DEFINITION_SUBTYPE_MEDIA = 9,
  JOB_DEFINITION_SUBTYPE_DATABASE = 10,
  JOB_DEFINITION_SUBTYPE_TABLESPACE = 11,
  JOB_DEFINITION_SUBTYPE_TABLE = 12,
  JOB_DEFINITION_SUBTYPE_POINT_IN_TIME = 13,
  JOB_DEFINITION_SUBTYPE_IMPORT = 14,
  JOB_DEFINITION_SUBTYPE_MOUNT = 15,
  JOB_DEFINITION_SUBTYPE_DISASTER = 16,
  JOB_DEFINITION_SUBTYPE_DR_TEST = 17
};

/// The display name of a subtype: "full", "incremental", "differential" (3), "ondemand" (7), "point-in-time" (13) and
/// so on; "unknown" for a value that is no subtype. Never null. `flags` is reserved and changes nothing today.
/// A set of a log backup is typed "log": that is the set's type, not this name.
[[nodiscard]] const char* job_def_subtype_to_string(Job_Definition_Subtype subtype, unsigned long flags = 0);

[[nodiscard]] bool is_job_definition_type(int value);
[[nodiscard]] bool is_job_definition_subtype(int value);

/// The names that definition documents use: "backup", "restore", "standby", "storage"; for subtypes the display names,
/// and "log" for JOB_DEFINITION_SUBTYPE_ONDEMAND too. False, with the output left alone, for any other.
[[nodiscard]] bool job_def_type_from_string(std::string_view name, Job_Definition_Type& type);
[[nodiscard]] bool job_def_subtype_from_string(std::string_view name, Job_Definition_Subtype& subtype);
