#pragma once

#include <ace/Thread_Manager.h>

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "job/controllable_job_t.h"
#include "job/default_backup_job_source.h"
#include "job/job_executor_t.h"

namespace test_jobs {

/// What happened, in order, over all executors and handlers of a test. Safe for several threads.
class Course {
 public:
  void add(const std::string& step) {
    const std::lock_guard guard(mutex_);
    steps_.push_back(step);
  }
  std::vector<std::string> take() {
    const std::lock_guard guard(mutex_);
    return std::exchange(steps_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<std::string> steps_;
};

inline Course& course() {
  static Course the_course;
  return the_course;
}

class Empty_Options : public Job_Options {
 public:
  int generate(yajl_gen) override { return 0; }
};

/// Real reporting, written down.
class Recording_Handler : public Job_Event_Handler {
 public:
  using Job_Event_Handler::Job_Event_Handler;
  void handle_start_job() {
    course().add("start");
    Job_Event_Handler::handle_start_job();
  }
  void handle_success() {
    course().add("success");
    Job_Event_Handler::handle_success();
  }
  void handle_canceled() {
    course().add("canceled");
    Job_Event_Handler::handle_canceled();
  }
  void handle_failure(int code, const char* format) {
    course().add("failure " + std::to_string(code) + (format == nullptr ? " null" : " text"));
    static constexpr const char* no_format = nullptr;
    Job_Event_Handler::handle_failure(code, no_format);
  }
};

/// How the executors of a test behave; reset by the fixture.
struct Behaviour {
  bool active = true;
  bool condition = true;
  bool setup_ondemand = true;
  std::function<bool(Job&, const Action_Options*)> work = [](Job&, const Action_Options*) { return true; };
  std::function<void(Job&)> rollback = [](Job&) {};
};

inline Behaviour& behaviour() {
  static Behaviour the_behaviour;
  return the_behaviour;
}

class Executor : public Job_Executor_T<Default_Backup_Job_Source, Empty_Options, Recording_Handler> {
 public:
  explicit Executor(Job& job) : Job_Executor_T(job) { course().add("made"); }
  ~Executor() override { course().add("destroyed"); }

  bool remove() override {
    course().add("remove");
    return false;
  }
  bool setup_ondemand() override {
    course().add("setup_ondemand");
    return behaviour().setup_ondemand;
  }
  bool remove_ondemand() override {
    course().add("remove_ondemand");
    return false;
  }
  bool update(Job_Definition_Ptr) override {
    course().add("update");
    return false;
  }
  bool rollback() override {
    course().add("rollback");
    behaviour().rollback(job_);
    return true;
  }
  bool execute_i(const Action_Options* options) override {
    course().add(options == nullptr ? "work" : "work with options");
    return behaviour().work(job_, options);
  }
  bool check_condition() override {
    course().add("check_condition");
    return behaviour().condition;
  }
  bool is_active(const Action_Options*) override {
    course().add("is_active");
    return behaviour().active;
  }

  using Job_Executor_T::act_;
  using Job_Executor_T::opts_;
  using Job_Executor_T::src_;
};

using Plain_Job = Default_Job_T<Executor>;
using Controllable_Job = Controllable_Job_T<Executor>;

inline constexpr const char* user_uuid = "5a1f2b3c-4d5e-4f60-8172-839405162738";
inline constexpr const char* definition_uuid = "0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21";

inline Job_Definition_Ptr make_definition() {
  Job_Definition_Ptr definition(new Job_Definition);
  definition->id(definition_uuid);
  definition->name("nightly");
  definition->uid(user_uuid);
  definition->host_id("11111111-2222-4333-8444-555555555555");
  definition->type(JOB_DEFINITION_BACKUP);
  definition->subtype(JOB_DEFINITION_SUBTYPE_FULL);
  auto* const source = new Default_Backup_Job_Source;
  source->id("resource");
  definition->source.reset(source);
  definition->options.reset(new Empty_Options);
  return definition;
}

/// Waits until every thread of the manager has ended.
inline void wait_for_threads() { ACE_Thread_Manager::instance()->wait(); }

}  // namespace test_jobs
