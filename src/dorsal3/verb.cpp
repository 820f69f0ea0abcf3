#include "dorsal3/verb.h"

namespace dorsal3 {

std::vector<std::unique_ptr<Verb>> make_all_verbs() {
  std::vector<std::unique_ptr<Verb>> verbs;
  verbs.push_back(make_check_verb());
  verbs.push_back(make_discover_verb());
  verbs.push_back(make_instances_verb());
  verbs.push_back(make_databases_verb());
  verbs.push_back(make_instance_verb());
  verbs.push_back(make_logon_verb());
  verbs.push_back(make_pools_verb());
  verbs.push_back(make_info_verb());
  verbs.push_back(make_backup_verb());
  verbs.push_back(make_log_backup_verb());
  verbs.push_back(make_restore_verb());
  verbs.push_back(make_stop_verb());
  verbs.push_back(make_jobs_verb());
  verbs.push_back(make_verify_verb());
  verbs.push_back(make_audit_verb());
  return verbs;
}

}  // namespace dorsal3
