#pragma once

#include <ace/Refcounted_Auto_Ptr.h>
#include <ace/Thread_Mutex.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include "job/job_definition_type.h"
#include "job/job_options.h"
#include "job/job_schedule.h"
#include "job/job_source.h"
#include "job/job_state.h"
#include "job/job_target.h"
#include "records/rate_limits.h"

/// Host uuids of the agents that may run a job.
using Agents = std::vector<std::string>;

class Job_Definition;
using Job_Schedule_Ptr = ACE_Refcounted_Auto_Ptr<Job_Schedule, ACE_Thread_Mutex>;
using Job_Source_Ptr = ACE_Refcounted_Auto_Ptr<Job_Source, ACE_Thread_Mutex>;
using Job_Options_Ptr = ACE_Refcounted_Auto_Ptr<Job_Options, ACE_Thread_Mutex>;
using Job_Definition_Ptr = ACE_Refcounted_Auto_Ptr<Job_Definition, ACE_Thread_Mutex>;

/// What a job is to do, as the backup server keeps it. Filled once, by job_definition_reader or a test, and read-only
/// from the moment a Job has it: so it is shared between threads without a lock. `schedule`, `source` and `options` may
/// be empty. Format of the document: docs/formats/job-definition.md.
class Job_Definition {
 public:
  virtual ~Job_Definition() = default;

  Job_Schedule_Ptr schedule;
  Job_Source_Ptr source;
  Job_Options_Ptr options;

  [[nodiscard]] Job_Definition_Type type() const { return type_; }
  void type(Job_Definition_Type value) { type_ = value; }
  [[nodiscard]] Job_Definition_Subtype subtype() const { return subtype_; }
  void subtype(Job_Definition_Subtype value) { subtype_ = value; }
  [[nodiscard]] std::time_t creation_time() const { return creation_time_; }
  void creation_time(std::time_t value) { creation_time_ = value; }
  /// Seconds for which input and output of the job are tried again.
  [[nodiscard]] std::size_t max_seconds_retry() const { return max_seconds_retry_; }
  void max_seconds_retry(std::size_t value) { max_seconds_retry_ = value; }
  /// Bytes kept to resume a broken stream.
  [[nodiscard]] std::size_t resumption_buffer_size() const { return resumption_buffer_size_; }
  void resumption_buffer_size(std::size_t value) { resumption_buffer_size_ = value; }
  [[nodiscard]] std::size_t retry_count() const { return retry_count_; }
  void retry_count(std::size_t value) { retry_count_ = value; }
  /// Seconds.
  [[nodiscard]] std::size_t retry_interval() const { return retry_interval_; }
  void retry_interval(std::size_t value) { retry_interval_ = value; }
  [[nodiscard]] const Rate_Limits& rate_limits() const { return rate_limits_; }
  void rate_limits(const Rate_Limits& value) { rate_limits_ = value; }
  [[nodiscard]] const std::string& id() const { return id_; }
  void id(const std::string& value) { id_ = value; }
  /// Uuid of the host whose agent runs the job.
  [[nodiscard]] const std::string& host_id() const { return host_id_; }
  void host_id(const std::string& value) { host_id_ = value; }
  [[nodiscard]] const std::string& agent() const { return agent_; }
  void agent(const std::string& value) { agent_ = value; }
  /// Uuid of the user on whose behalf the job runs.
  [[nodiscard]] const std::string& uid() const { return uid_; }
  void uid(const std::string& value) { uid_ = value; }
  [[nodiscard]] const std::string& rsrc_form() const { return rsrc_form_; }
  void rsrc_form(const std::string& value) { rsrc_form_ = value; }
  [[nodiscard]] const std::string& view() const { return view_; }
  void view(const std::string& value) { view_ = value; }
  [[nodiscard]] const Agents& agents() const { return agents_; }
  void agents(const Agents& value) { agents_ = value; }
  /// Command lines, see job/execute_script.h.
  [[nodiscard]] const std::string& precondition() const { return precondition_; }
  void precondition(const std::string& value) { precondition_ = value; }
  [[nodiscard]] const std::string& pre_action() const { return pre_action_; }
  void pre_action(const std::string& value) { pre_action_ = value; }
  [[nodiscard]] bool ignore_pre_action_failure() const { return ignore_pre_action_failure_; }
  void ignore_pre_action_failure(bool value) { ignore_pre_action_failure_ = value; }
  [[nodiscard]] bool redirect_pre_action_stdout() const { return redirect_pre_action_stdout_; }
  void redirect_pre_action_stdout(bool value) { redirect_pre_action_stdout_ = value; }
  [[nodiscard]] const std::string& post_action() const { return post_action_; }
  void post_action(const std::string& value) { post_action_ = value; }
  [[nodiscard]] bool run_post_action_always() const { return run_post_action_always_; }
  void run_post_action_always(bool value) { run_post_action_always_ = value; }
  [[nodiscard]] bool ignore_post_action_failure() const { return ignore_post_action_failure_; }
  void ignore_post_action_failure(bool value) { ignore_post_action_failure_ = value; }
  [[nodiscard]] bool redirect_post_action_stdin() const { return redirect_post_action_stdin_; }
  void redirect_post_action_stdin(bool value) { redirect_post_action_stdin_ = value; }
  [[nodiscard]] bool write_to_history() const { return write_to_history_; }
  void write_to_history(bool value) { write_to_history_ = value; }
  [[nodiscard]] const std::string& name() const { return name_; }
  void name(const std::string& value) { name_ = value; }
  [[nodiscard]] const std::string& username() const { return username_; }
  void username(const std::string& value) { username_ = value; }
  [[nodiscard]] const Job_Target& target() const { return target_; }
  [[nodiscard]] Job_Target& target() { return target_; }
  [[nodiscard]] std::int64_t job_revision() const { return job_revision_; }
  void job_revision(std::int64_t value) { job_revision_ = value; }
  [[nodiscard]] int network_id() const { return network_id_; }
  void network_id(int value) { network_id_ = value; }
  [[nodiscard]] Job_State state() const { return state_; }
  void state(Job_State value) { state_ = value; }

 private:
  Job_Definition_Type type_ = JOB_DEFINITION_NONE;
  Job_Definition_Subtype subtype_ = JOB_DEFINITION_SUBTYPE_NONE;
  std::time_t creation_time_ = 0;
  std::size_t max_seconds_retry_ = 0;
  std::size_t resumption_buffer_size_ = 0;
  std::size_t retry_count_ = 0;
  std::size_t retry_interval_ = 0;
  Rate_Limits rate_limits_;
  std::string id_;
  std::string host_id_;
  std::string agent_;
  std::string uid_;
  std::string rsrc_form_;
  std::string view_;
  Agents agents_;
  std::string precondition_;
  std::string pre_action_;
  bool ignore_pre_action_failure_ = false;
  bool redirect_pre_action_stdout_ = false;
  std::string post_action_;
  bool run_post_action_always_ = false;
  bool ignore_post_action_failure_ = false;
  bool redirect_post_action_stdin_ = false;
  bool write_to_history_ = false;
  std::string name_;
  std::string username_;
  Job_Target target_;
  std::int64_t job_revision_ = 0;
  int network_id_ = 0;
  Job_State state_ = JOB_STATE_NONE;
};
