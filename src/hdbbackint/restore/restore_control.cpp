#include "hdbbackint/restore/restore_control.h"

#include "hdbbackint/restore/staged_catalog.h"
#include "hdbbackint/settings.h"

namespace hdbbackint {

namespace {

unsigned seconds_of_job(const Call& call, const std::string& uuid) {
  sap_hana::Backint_Backup_Job_Info job;
  Job_Settings settings;
  std::string ignored;
  const bool known =
      call.records(default_seconds_retry).get_job(uuid.c_str(), job) && read_job_settings(job, settings, ignored);
  return known ? settings.max_seconds_retry : 0;
}

}  // namespace

Restore_Control Restore_Control::of(const Call& call, const std::string& object,
                                    const sap_hana::Backup_File_Info& file) {
  Restore_Control control;
  Staged_Catalog staged;
  std::string ignored;  // the catalog's own request has told of a file that is no good
  if (Staged_Catalog::load(object, call.user, staged, ignored) != Staged_Catalog::Search::found) {
    control.max_seconds_retry = seconds_of_job(call, file.info_uuid);
    return control;
  }
  control.max_seconds_retry = staged.max_seconds_retry();
  if (!control.rate_limits.from_json_in_object(staged.io_ctl, &ignored)) control.rate_limits = {};
  const bool limited = !control.rate_limits.source.empty() || !control.rate_limits.destination.empty();
  if (limited) control.rate_account = "restore_" + staged.target.sid + "_" + staged.target.database;
  return control;
}

}  // namespace hdbbackint
