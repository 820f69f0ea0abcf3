#include "hana/job/hana_job_creator.h"

#include <cerrno>
#include <new>

#include "hana/job/hana_backup_job.h"
#include "hana/job/log_backup_executor.h"
#include "hana/job/restore_executor.h"
#include "job/controllable_job_t.h"
#include "platform/log.h"

namespace {

template <typename Job_Class>
ACE_Intrusive_Auto_Ptr<Job> make_job(const Job_Definition_Ptr& definition) {
  Job* const job = new (std::nothrow) Job_Class(definition);
  if (job == nullptr) errno = ENOMEM;
  return ACE_Intrusive_Auto_Ptr<Job>(job);
}

ACE_Intrusive_Auto_Ptr<Job> refuse(Job_Definition_Subtype subtype) {
  D3_ERROR("%s is not supported\n", job_def_subtype_to_string(subtype, 0));
  return {};
}

ACE_Intrusive_Auto_Ptr<Job> make_backup_job(const Job_Definition_Ptr& definition) {
  switch (definition->subtype()) {
    case JOB_DEFINITION_SUBTYPE_FULL:
    case JOB_DEFINITION_SUBTYPE_INCREMENTAL:
    case JOB_DEFINITION_SUBTYPE_CUMULATIVE:
      return make_job<HANA_Backup_Job>(definition);
    case JOB_DEFINITION_SUBTYPE_ONDEMAND:
      return make_job<Controllable_Job_T<sap_hana::Log_Backup_Executor>>(definition);
    default:
      return refuse(definition->subtype());
  }
}

ACE_Intrusive_Auto_Ptr<Job> make_restore_job(const Job_Definition_Ptr& definition) {
  if (definition->subtype() != JOB_DEFINITION_SUBTYPE_POINT_IN_TIME) return refuse(definition->subtype());
  return make_job<Controllable_Job_T<sap_hana::Restore_Executor>>(definition);
}

}  // namespace

ACE_Intrusive_Auto_Ptr<Job> HANA_Job_Creator::create(
    ACE_Refcounted_Auto_Ptr<Job_Definition, ACE_Thread_Mutex> definition) {
  switch (definition->type()) {
    case JOB_DEFINITION_BACKUP:
      return make_backup_job(definition);
    case JOB_DEFINITION_RESTORE:
      return make_restore_job(definition);
    default:
      return {};
  }
}
