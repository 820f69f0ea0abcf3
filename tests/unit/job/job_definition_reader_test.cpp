#include "job/job_definition_reader.h"

#include <gtest/gtest.h>

#include "job/default_backup_job_source_parser.h"
#include "scrt/object_creator_impl_t.h"
#include "support/log_capture.h"
#include "test_jobs.h"

namespace {

class Empty_Options_Parser : public YAJL_Parser<Job_Options> {
 public:
  bool handle_string_i(const char*, std::size_t) override { return refuse_type(); }
  bool handle_start_map_i() override { return true; }
  bool handle_map_key_i(const char*, std::size_t) override { return true; }
  bool handle_end_map_i() override { return true; }
  Result result() override { return Result(new test_jobs::Empty_Options); }
};

/// Makes parsers of something else than a source.
using Wrong_Creator = Object_Creator_Impl_T<Object_Creator_T<YAJL_Handler>, Empty_Options_Parser>;

class Failing_Creator : public Object_Creator_T<YAJL_Handler> {
 public:
  YAJL_Handler* create() override { return nullptr; }
  void destroy(YAJL_Handler*) override {}
};

class Job_Definition_Reader_Test : public testing::Test {
 protected:
  Job_Definition_Ptr read(const std::string& text) {
    json_spirit::Value document;
    EXPECT_TRUE(json_spirit::load_json(text, document)) << text;
    return read_job_definition(
        document,
        [this](Job_Definition_Type type, Job_Definition_Subtype) {
          return type == JOB_DEFINITION_BACKUP ? creators_ : Job_Parser_Creators{};
        },
        error_);
  }

  support::Log_Capture log_;
  Object_Creator_Impl_T<Object_Creator_T<YAJL_Handler>, Default_Backup_Job_Source_Parser> source_creator_;
  Object_Creator_Impl_T<Object_Creator_T<YAJL_Handler>, Empty_Options_Parser> options_creator_;
  Job_Parser_Creators creators_{&source_creator_, &options_creator_};
  std::string error_;
};

TEST_F(Job_Definition_Reader_Test, Reads_Every_Field) {
  const Job_Definition_Ptr read_definition = read(R"({
    "id": "d", "name": "nightly", "module": "hana", "type": "backup", "subtype": "differential",
    "schedule": {"type": 7}, "source": {"id": "r", "name": "n", "entries": ["hana/HDB00"]}, "options": {},
    "creation_time": "2026-11-21 08:00:00", "max_seconds_retry": 300, "resumption_buffer_size": 1048576,
    "retry_count": 2, "retry_interval": 60,
    "rate_limits": {"dest_rate_limits": "[{\"start_time\":0,\"end_time\":10,\"max_bytes_per_second\":5}]",
                    "src_rate_limits": "[]"},
    "host_uuid": "h", "agent": "a", "uid": "u", "rsrc_form": "f", "view": "v", "agents": ["x", "y"],
    "precondition": "/p", "pre_action": "/q", "ignore_pre_action_failure": true, "redirect_pre_action_stdout": true,
    "post_action": "/r", "run_post_action_always": true, "ignore_post_action_failure": true,
    "redirect_post_action_stdin": true, "write_to_history": true, "username": "who",
    "target": {"pool_uuid": "pool", "location": "file:///pool"}, "job_revision": 9, "network_id": 3, "state": 11})");
  ASSERT_FALSE(read_definition.null()) << error_;
  const Job_Definition& definition = *read_definition;
  EXPECT_EQ(definition.schedule->type(), JOB_SCHEDULE_ONDEMAND);
  EXPECT_EQ(definition.source->id(), "r");
  EXPECT_NE(dynamic_cast<test_jobs::Empty_Options*>(definition.options.get()), nullptr);
  EXPECT_EQ(definition.type(), JOB_DEFINITION_BACKUP);
  EXPECT_EQ(definition.subtype(), JOB_DEFINITION_SUBTYPE_CUMULATIVE);
  EXPECT_EQ(definition.creation_time(), 1795248000);
  EXPECT_EQ(definition.max_seconds_retry(), 300U);
  EXPECT_EQ(definition.resumption_buffer_size(), 1048576U);
  EXPECT_EQ(definition.retry_count(), 2U);
  EXPECT_EQ(definition.retry_interval(), 60U);
  ASSERT_EQ(definition.rate_limits().destination.size(), 1U);
  EXPECT_EQ(definition.rate_limits().destination.front().max_bytes_per_second, 5U);
  EXPECT_TRUE(definition.rate_limits().source.empty());
  EXPECT_EQ(definition.id(), "d");
  EXPECT_EQ(definition.host_id(), "h");
  EXPECT_EQ(definition.agent(), "a");
  EXPECT_EQ(definition.uid(), "u");
  EXPECT_EQ(definition.rsrc_form(), "f");
  EXPECT_EQ(definition.view(), "v");
  EXPECT_EQ(definition.agents(), (Agents{"x", "y"}));
  EXPECT_EQ(definition.precondition(), "/p");
  EXPECT_EQ(definition.pre_action(), "/q");
  EXPECT_TRUE(definition.ignore_pre_action_failure());
  EXPECT_TRUE(definition.redirect_pre_action_stdout());
  EXPECT_EQ(definition.post_action(), "/r");
  EXPECT_TRUE(definition.run_post_action_always());
  EXPECT_TRUE(definition.ignore_post_action_failure());
  EXPECT_TRUE(definition.redirect_post_action_stdin());
  EXPECT_TRUE(definition.write_to_history());
  EXPECT_EQ(definition.name(), "nightly");
  EXPECT_EQ(definition.username(), "who");
  EXPECT_EQ(definition.target().id(), "pool");
  EXPECT_EQ(definition.target().location(), "file:///pool");
  EXPECT_EQ(definition.job_revision(), 9);
  EXPECT_EQ(definition.network_id(), 3);
  EXPECT_EQ(definition.state(), JOB_STATE_CREATED);
}

TEST_F(Job_Definition_Reader_Test, Leaves_The_Defaults_Of_Missing_And_Null_Keys) {
  const Job_Definition_Ptr definition = read(
      R"({"id":"d","type":"backup","subtype":"log","source":{"id":"r","entries":[]},"options":null,"schedule":null,"name":null})");
  ASSERT_FALSE(definition.null()) << error_;
  EXPECT_EQ(definition->subtype(), JOB_DEFINITION_SUBTYPE_ONDEMAND);
  EXPECT_TRUE(definition->options.null());
  EXPECT_TRUE(definition->schedule.null());
  EXPECT_EQ(definition->name(), "");
  EXPECT_EQ(definition->max_seconds_retry(), 0U);
  EXPECT_FALSE(definition->write_to_history());
  EXPECT_EQ(definition->state(), JOB_STATE_NONE);
}

TEST_F(Job_Definition_Reader_Test, Takes_A_System_For_A_Target) {
  const Job_Definition_Ptr definition = read(
      R"({"id":"d","type":"backup","subtype":"full","source":{"id":"r","entries":[]},"target":{"resource_uuid":"s"}})");
  ASSERT_FALSE(definition.null()) << error_;
  EXPECT_EQ(definition->target().id(), "s");
  EXPECT_EQ(definition->target().location(), "");
}

TEST_F(Job_Definition_Reader_Test, Refuses_What_Is_Not_Sound) {
  const std::string head = R"({"id":"d","type":"backup","subtype":"full","source":{"id":"r","entries":[]})";
  struct Row {
    std::string text;
    std::string reason;
  };
  const Row rows[] = {
      {"[]", "a job definition is an object"},
      {"null", "a job definition is an object"},
      {R"({"type":"backup","subtype":"full"})", "lack of key 'id'"},
      {R"({"id":"d","subtype":"full"})", "lack of key 'type'"},
      {R"({"id":"d","type":"backup"})", "lack of key 'subtype'"},
      {R"({"id":"d","type":"copy","subtype":"full"})", "type 'copy' is unknown"},
      {R"({"id":"d","type":"backup","subtype":"half"})", "subtype 'half' is unknown"},
      {R"({"id":"d","type":1,"subtype":"full"})", "key 'type' is integer, expected a string"},
      {R"({"id":"d","type":"backup","subtype":"full"})", "lack of key 'source'"},
      {head + R"(,"surprise":1})", "unknown key 'surprise'"},
      {head + R"(,"host_uuid":1})", "key 'host_uuid' is integer, expected a string"},
      {head + R"(,"write_to_history":"yes"})", "key 'write_to_history' is string, expected a boolean"},
      {head + R"(,"creation_time":"yesterday"})", "key 'creation_time' is no time"},
      {head + R"(,"agents":[1]})", "key 'agents' holds something else than texts"},
      {head + R"(,"target":"pool"})", "key 'target' is not an object"},
      {head + R"(,"target":{}})", "lack of key 'pool_uuid'"},
      {head + R"(,"target":{"resource_uuid":5}})", "key 'resource_uuid' is integer, expected a string"},
      {head + R"(,"schedule":{}})", "lack of key 'type'"},
      {head + R"(,"state":26})", "state 26 is unknown"},
      {R"({"id":"d","type":"backup","subtype":"full","source":[]})", "key 'source' is not an object"},
      {R"({"id":"d","type":"backup","subtype":"full","source":true})", "key 'source' is not an object"},
      {head + R"(,"options":7})", "key 'options' is not an object"},
      {R"({"id":"d","type":"restore","subtype":"point-in-time","source":{}})",
       "key 'source' does not belong to this kind of definition"},
  };
  for (const Row& row : rows) {
    error_.clear();
    EXPECT_TRUE(read(row.text).null()) << row.text;
    EXPECT_EQ(error_, row.reason) << row.text;
  }
}

TEST_F(Job_Definition_Reader_Test, Tells_What_A_Parser_Refused) {
  EXPECT_TRUE(read(R"({"id":"d","type":"backup","subtype":"full","source":{"id":1}})").null());
  EXPECT_TRUE(error_.starts_with("key 'source': ")) << error_;
  EXPECT_TRUE(
      read(R"({"id":"d","type":"backup","subtype":"full","source":{"id":"r","entries":[]},"options":{"a":"b"}})")
          .null());
  EXPECT_TRUE(error_.starts_with("key 'options': ")) << error_;
  EXPECT_TRUE(read(R"({"id":"d","type":"backup","subtype":"full","source":{"id":"r","entries":[]},
                       "rate_limits":{"dest_rate_limits":"nonsense"}})")
                  .null());
  EXPECT_TRUE(error_.starts_with("key 'rate_limits': ")) << error_;
  EXPECT_TRUE(
      read(R"({"id":"d","type":"backup","subtype":"full","source":{"id":"r","entries":[]},"max_seconds_retry":-1})")
          .null());
  EXPECT_NE(error_.find("max_seconds_retry"), std::string::npos) << error_;
}

TEST_F(Job_Definition_Reader_Test, Refuses_A_Creator_That_Makes_No_Fitting_Parser) {
  Wrong_Creator wrong;
  creators_.source = &wrong;
  EXPECT_TRUE(read(R"({"id":"d","type":"backup","subtype":"full","source":{}})").null());
  EXPECT_EQ(error_, "no parser for key 'source'");
  Failing_Creator failing;
  creators_.source = &failing;
  EXPECT_TRUE(read(R"({"id":"d","type":"backup","subtype":"full","source":{}})").null());
  EXPECT_EQ(error_, "no parser for key 'source'");
}

}  // namespace
