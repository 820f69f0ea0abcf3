// A small module with the exported names that the agent looks for. Its job does what the name of its definition says.

#include <atomic>
#include <new>

#include "agent/api/module_factories.h"
#include "job/controllable_job_t.h"
#include "job/default_backup_job_source_parser.h"
#include "job/job_alert.h"
#include "job/job_executor_t.h"
#include "platform/clock.h"
#include "platform/files.h"
#include "platform/log.h"
#include "scrt/object_creator_impl_t.h"

namespace {

/// Options are any flat object.
class No_Options : public Job_Options {
 public:
  int generate(yajl_gen) override { return 0; }
};

class No_Options_Parser : public YAJL_Parser<Job_Options> {
 public:
  bool handle_string_i(const char*, std::size_t) override { return true; }
  bool handle_start_map_i() override { return true; }
  bool handle_map_key_i(const char*, std::size_t) override { return true; }
  bool handle_end_map_i() override { return true; }
  Result result() override { return Result(new No_Options); }
};

class Executor : public Job_Executor_T<Default_Backup_Job_Source, No_Options, Job_Event_Handler> {
 public:
  explicit Executor(Job& job) : Job_Executor_T(job) {}

  static constexpr const char* configuration = "/var/opt/tarvex/dorsal3/agent/hana/log_backup_PRD_HDB00_TN%5F1";

  /// Writes a configuration as a log backup of the definition's first entry has it, as the definition's name tells.
  bool setup_ondemand() override {
    if (def_.name() == "fail") {
      D3_ERROR("The test setup fails\n");
      write_job_alert(&job_, 7, 14, 0, json_spirit::Object{{"instance", "TN1"}}, 1);
      return false;
    }
    if (def_.name() == "is taken for installed") return true;
    return platform::write_file_durably(
        configuration, R"({"job_definition_uuid":")" + def_.id() + R"(","sid":"PRD","instance_name":"HDB00"})", 0640);
  }
  bool remove_ondemand() override {
    if (def_.name() != "fail") return platform::remove_file(configuration);
    D3_ERROR("The test removal fails\n");
    return false;
  }

  bool execute_i(const Action_Options*) override {
    const std::string name = def_.name();
    if (name == "fail") {
      D3_ERROR("The test job fails\n");
      return false;
    }
    while ((name == "until stopped" || name == "slow to stop") && act_.load_state() == JOB_STATE_RUNNING)
      platform::Clock::current().sleep_for(std::chrono::milliseconds(5));
    return act_.load_state() == JOB_STATE_RUNNING;
  }
};

std::atomic<int> living_objects{0};

struct Counted {
  Counted() { ++living_objects; }
  ~Counted() { --living_objects; }
};

/// What the test and a job whose stop blocks tell each other.
platform::Wait_Event stop_entered;
platform::Wait_Event stop_released;
std::atomic<int> living_jobs{0};

/// Ends when it is asked to stop, but the request itself goes on until it is released.
class Slow_To_Stop : public Controllable_Job_T<Executor> {
 public:
  explicit Slow_To_Stop(Job_Definition_Ptr definition) : Controllable_Job_T(definition) { ++living_jobs; }
  ~Slow_To_Stop() override { --living_jobs; }
  int stop_i(const Action_Options*) override {
    if (definition()->name() != "slow to stop") return state_i(JOB_STATE_CANCELING);
    const int result = state_i(JOB_STATE_CANCELING);
    stop_entered.set();
    while (!stop_released.is_set()) platform::Clock::current().sleep_for(std::chrono::milliseconds(5));
    // A poll of the job, as a stop makes it that waits for a state.
    return result + (is_finished(state()) ? 0 : 1);
  }
};

class Creator : public Job_Creator, Counted {
 public:
  ACE_Intrusive_Auto_Ptr<Job> create(Job_Definition_Ptr definition) override {
    if (definition->subtype() != JOB_DEFINITION_SUBTYPE_FULL &&
        definition->subtype() != JOB_DEFINITION_SUBTYPE_ONDEMAND)
      return {};
    return ACE_Intrusive_Auto_Ptr<Job>(new Slow_To_Stop(definition));
  }
};

class Handler : public Instance_Handler, Counted {
 public:
  int probe_instances(Instances& instances) override {
    auto instance = std::make_shared<Instance>();
    instance->type = "testing";
    instance->name = "PRD_HDB00";
    instance->options = {{"sid", "PRD"}, {"instance_name", "HDB00"}, {"multi_container", true}};
    instances["PRD_HDB00"] = instance;
    return 0;
  }
  std::string get_state(const char* name, std::string& state) override {
    state = name != nullptr && std::string(name) == "PRD_HDB00" ? "open" : "error";
    return state;
  }
  int logon(const char*, const char* username, const secure_string* password, const json_spirit::Object*) override {
    if (username == nullptr && password == nullptr) return LOGON_OK;
    return password != nullptr && password->view() == "good" ? LOGON_OK : LOGON_REFUSED;
  }
};

int respond(const std::weak_ptr<JSON_RPC_Channel>& channel, const std::shared_ptr<JSON_RPC_Object>& object,
            json_spirit::Object result) {
  const auto response = std::make_shared<JSON_RPC_Response>(dynamic_cast<const JSON_RPC_Request&>(*object));
  response->result = std::move(result);
  const auto requester = channel.lock();
  return requester == nullptr ? -1 : requester->send(response);
}

/// Lists two databases of every instance but "SILENT", for which it gives no answer.
class Lister : public JSON_RPC_Handler, Counted {
 public:
  int handle_object(std::weak_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override {
    const json_spirit::Value& params = dynamic_cast<const JSON_RPC_Request&>(*object).params();
    const std::string name = json_spirit::object_require<std::string>(params.get_obj(), "instance");
    if (name == "SILENT") return 0;
    return respond(channel, object,
                   {{"instance", name},
                    {"databases", json_spirit::Array{json_spirit::Object{{"name", "SYSTEMDB"}, {"active", true}},
                                                     json_spirit::Object{{"name", "TN1"}, {"active", false}}}}});
  }
};

/// Tells the action; a restart takes until the test lets it go.
class Control : public JSON_RPC_Handler, Counted {
 public:
  int handle_object(std::weak_ptr<JSON_RPC_Channel> channel, std::shared_ptr<JSON_RPC_Object> object) override {
    const json_spirit::Value& params = dynamic_cast<const JSON_RPC_Request&>(*object).params();
    const std::string action = json_spirit::object_require<std::string>(params.get_obj(), "action");
    while (action == "restart" && !stop_released.is_set())
      platform::Clock::current().sleep_for(std::chrono::milliseconds(5));
    return respond(channel, object, {{"action", action}});
  }
};

template <typename Object>
void gobble(void* object) {
  delete static_cast<Object*>(object);
}

template <typename Interface, typename Object>
Interface* make(module_factories::Gobble* where) {
  if (where != nullptr) *where = &gobble<Interface>;
  return new (std::nothrow) Object;
}

using Parser_Creator = Object_Creator_T<YAJL_Handler>;

}  // namespace

#define EXPORTED extern "C" __attribute__((visibility("default")))

EXPORTED Job_Creator* _make_HANA_Job_Creator(module_factories::Gobble* gobble) {
  return make<Job_Creator, Creator>(gobble);
}
EXPORTED Instance_Handler* _make_HANA_Instance_Handler(module_factories::Gobble* gobble) {
  return make<Instance_Handler, Handler>(gobble);
}
EXPORTED JSON_RPC_Handler* _make_JSON_RPC_HANA_List_Handler(module_factories::Gobble* gobble) {
  return make<JSON_RPC_Handler, Lister>(gobble);
}
EXPORTED JSON_RPC_Handler* _make_JSON_RPC_HANA_Instance_Control_Handler(module_factories::Gobble* gobble) {
  return make<JSON_RPC_Handler, Control>(gobble);
}
EXPORTED Parser_Creator* _make_HANA_Backup_Job_Source_Parser_Creator(module_factories::Gobble* gobble) {
  return make<Parser_Creator, Object_Creator_Impl_T<Parser_Creator, Default_Backup_Job_Source_Parser>>(gobble);
}
EXPORTED Parser_Creator* _make_HANA_Backup_Job_Options_Parser_Creator(module_factories::Gobble* gobble) {
  return make<Parser_Creator, Object_Creator_Impl_T<Parser_Creator, No_Options_Parser>>(gobble);
}
/// For the tests alone.
EXPORTED int test_module_living_objects() { return living_objects; }
EXPORTED int test_module_living_jobs() { return living_jobs; }
EXPORTED int test_module_wait_for_stop() {
  return platform::Clock::current().wait_for(stop_entered, std::chrono::seconds(20)) ? 1 : 0;
}
EXPORTED int test_module_release_stop() {
  stop_released.set();
  return 1;
}
