#include "hana/job/hana_backup_job.h"

#include <cxxabi.h>

#include <exception>
#include <memory>
#include <utility>

#include "job/job_log.h"
#include "job/run_options.h"
#include "platform/log.h"

namespace {

void log_broken_stop(const Job& job, const char* what) {
  D3_EMERGENCY("Unexpected error in %N:%l, the stop of job %C was left by an exception: %C\n",
               job.definition()->id().c_str(), platform::cut_for_log(what).c_str());
}

}  // namespace

int HANA_Backup_Job::stop_i(const Action_Options* /*options*/) {
  // Not even the state is changed: a run marked as canceling would report as canceled a backup that HANA completes.
  std::unique_ptr<Run_Options> opt = make_run_options(nullptr);
  if (!opt) return -1;
  return spawn_thread(stop_backup, std::move(opt)) ? 0 : -1;
}

ACE_THR_FUNC_RETURN HANA_Backup_Job::stop_backup(void* argument) {
  if (argument == nullptr) return nullptr;
  const std::unique_ptr<Run_Options> opt(static_cast<Run_Options*>(argument));
  Job& job = *opt->job;
  // What the stop says belongs into the log of the run that it stops.
  const Scoped_Log_Callback log(job.log_msg_callback());
  try {
    run_stop(job);
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (const std::exception& error) {
    log_broken_stop(job, error.what());
  } catch (...) {
    log_broken_stop(job, "an exception of unknown type");
  }
  return nullptr;
}

void HANA_Backup_Job::run_stop(Job& job) {
  sap_hana::Backup_Executor executor(job);
  static_cast<void>(executor.stop());  // it has raised its alert
}
