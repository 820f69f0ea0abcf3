// Which node of a resource runs a job.

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "agent/backupd_client/json_rpc_forward.h"
#include "unit/hana/job/executor_fixture.h"

namespace {

using backup_test::Executor;
using backup_test::instance_record;
using json_spirit::Array;
using json_spirit::Object;

constexpr const char* second_host = "66666666-6666-4666-8666-666666666666";
constexpr const char* third_host = "77777777-7777-4777-8777-777777777777";

/// The agents of the other hosts, as backupd reaches them.
class Other_Agents : public Agent_Channel {
 public:
  JSON_RPC_Answer call(const std::string& method, const json_spirit::Value& params, std::chrono::nanoseconds) override {
    calls.push_back(method + " " + json_spirit::dump_json(params));
    std::string host;
    json_spirit::object_get(params.get_obj(), "host_uuid", host);
    JSON_RPC_Answer answer;
    const auto found = answers.find(host);
    answer.ok = found != answers.end();
    if (answer.ok)
      answer.result = found->second;
    else
      answer.code = JSON_RPC_E_NOT_CONNECTED;
    return answer;
  }
  std::map<std::string, json_spirit::Value> answers;  ///< by host; a host without one is not connected
  std::vector<std::string> calls;
};

class Active_Node : public backup_test::Executor_Test {
 protected:
  Active_Node() : channel_scope_(agents_) {
    runner_.on([this](const support::Seen_Call& call, support::Scripted_Child& child) {
      if (call.program.ends_with("/hdbnsutil"))
        child.standard_output = "online: true\n\nmode: " + mode_ + "\n";
      else if (call.program.ends_with("/sapcontrol"))
        child.code = state_code_;
      else if (call.program.ends_with("/HDB"))
        child.code = 1;
      else
        return false;
      return true;
    });
  }

  void set_running(bool running) { state_code_ = running ? running_code : stopped_code; }
  void set_master(const std::string& host) {
    root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini",
                "[landscape]\nid = x\nworker = hanahost second third\nactive_master = " + host + ":30001\n");
  }
  void set_hosts(const std::vector<std::string>& hosts) {
    Array instances;
    for (const std::string& host : hosts) instances.emplace_back(instance_record(host));
    backupd_.resource = Object{{"uuid", backup_test::resource_uuid}, {"instances", instances}};
  }
  static json_spirit::Value state_answer(int state) { return Object{{"state", state}}; }

  /// What sapcontrol -function GetProcessList exits with.
  static constexpr int mixed_code = 0;
  static constexpr int running_code = 3;
  static constexpr int stopped_code = 4;

  std::string mode_ = "none";
  int state_code_ = running_code;
  Other_Agents agents_;
  Scoped_Agent_Channel channel_scope_;
};

}  // namespace

TEST_F(Active_Node, Runs_On_A_Primary_Whose_Instance_Runs) {
  for (const char* mode : {"none", "primary", ""}) {
    SCOPED_TRACE(mode);
    mode_ = mode;
    Executor& executor = new_executor();
    EXPECT_TRUE(executor.is_active(nullptr));
    EXPECT_EQ(executor.sid_, "HDB");
    EXPECT_EQ(executor.instance_name_, "HDB00");
    EXPECT_EQ(executor.instance_mgr_name_, "HDB_HDB00");
  }
}

TEST_F(Active_Node, Declines_Every_Job_On_A_Replication_Secondary_Also_When_Its_Instance_Runs) {
  for (const char* mode : {"sync", "async", "syncmem"})
    for (const Job_Definition_Subtype kind : {JOB_DEFINITION_SUBTYPE_FULL, JOB_DEFINITION_SUBTYPE_ONDEMAND}) {
      SCOPED_TRACE(mode);
      mode_ = mode;
      set_subtype(kind);
      EXPECT_FALSE(new_executor().is_active(nullptr));
    }
}

TEST_F(Active_Node, Runs_Where_The_Instance_Runs_Although_Its_Replication_Cannot_Be_Told) {
  mode_ = "";
  ASSERT_TRUE(std::filesystem::remove(root_.real("/usr/sap/HDB/SYS/global/hdb/custom/config/global.ini")));
  EXPECT_TRUE(new_executor().is_active(nullptr));
  expect_error_with("Failed to read the configuration of HANA system HDB");
}

TEST_F(Active_Node, Declines_When_The_Resource_Is_Unknown) {
  backupd_.resource = json_spirit::Value();
  EXPECT_FALSE(new_executor().is_active(nullptr));
  expect_error("Failed to get resource info to check if the node is active\n");
  expect_error("Failed to get HANA resource info\n");
  expect_error("Failed to get HANA resource base info\n");
  EXPECT_TRUE(alerts().empty());
}

TEST_F(Active_Node, Declines_When_The_State_Of_The_Instance_Cannot_Be_Told) {
  state_code_ = 1;
  set_subtype(JOB_DEFINITION_SUBTYPE_ONDEMAND);
  EXPECT_FALSE(new_executor().is_active(nullptr));
  expect_error_with("Failed to get the state of HANA instance HDB_HDB00");
}

TEST_F(Active_Node, Declines_A_Data_Backup_At_Once_When_The_Instance_Is_Stopped) {
  set_running(false);
  for (const Job_Definition_Subtype kind :
       {JOB_DEFINITION_SUBTYPE_FULL, JOB_DEFINITION_SUBTYPE_INCREMENTAL, JOB_DEFINITION_SUBTYPE_CUMULATIVE}) {
    set_subtype(kind);
    EXPECT_FALSE(new_executor().is_active(nullptr));
  }
  EXPECT_EQ(backupd_.count_of("GET /q5/r/v2/resources"), 3U) << "the cluster was not asked for";
  EXPECT_TRUE(agents_.calls.empty());
}

TEST_F(Active_Node, Takes_An_Instance_Of_Which_Only_Some_Processes_Run_For_One_That_Does_Not_Run) {
  state_code_ = mixed_code;
  for (const Job_Definition_Subtype kind :
       {JOB_DEFINITION_SUBTYPE_FULL, JOB_DEFINITION_SUBTYPE_INCREMENTAL, JOB_DEFINITION_SUBTYPE_CUMULATIVE}) {
    SCOPED_TRACE(kind);
    set_subtype(kind);
    EXPECT_FALSE(new_executor().is_active(nullptr));
  }
  set_subtype(JOB_DEFINITION_SUBTYPE_ONDEMAND);
  set_hosts({backup_test::host_uuid, second_host});
  set_master("hanahost");
  agents_.answers[backup_test::host_uuid] = state_answer(0);
  agents_.answers[second_host] = state_answer(1);
  EXPECT_FALSE(new_executor().is_active(nullptr)) << "the other one runs";
  agents_.answers[second_host] = state_answer(0);
  EXPECT_TRUE(new_executor().is_active(nullptr));
}

TEST_F(Active_Node, Accepts_A_Log_Backup_Of_A_Stopped_Single_Instance) {
  set_running(false);
  set_subtype(JOB_DEFINITION_SUBTYPE_ONDEMAND);
  EXPECT_TRUE(new_executor().is_active(nullptr));
  EXPECT_TRUE(agents_.calls.empty());
}

TEST_F(Active_Node, Declines_A_Log_Backup_When_The_Instances_Cannot_Be_Listed) {
  set_running(false);
  set_subtype(JOB_DEFINITION_SUBTYPE_ONDEMAND);
  Object broken = instance_record(backup_test::host_uuid);
  broken.erase("uuid");
  backupd_.resource = Object{{"instances", Array{broken}}};
  EXPECT_FALSE(new_executor().is_active(nullptr));
  expect_error("Failed to get cluster instances to check if the node is active\n");
  expect_error_with("Failed to get HANA resource base info, ");
}

TEST_F(Active_Node, Declines_A_Log_Backup_On_A_Stopped_Host_That_Is_Not_The_Active_Master) {
  set_running(false);
  set_subtype(JOB_DEFINITION_SUBTYPE_ONDEMAND);
  set_hosts({backup_test::host_uuid, second_host});
  set_master("second");
  EXPECT_FALSE(new_executor().is_active(nullptr));
  EXPECT_TRUE(agents_.calls.empty());
}

TEST_F(Active_Node, Declines_A_Log_Backup_When_The_Topology_Cannot_Be_Read) {
  set_running(false);
  set_subtype(JOB_DEFINITION_SUBTYPE_ONDEMAND);
  set_hosts({backup_test::host_uuid, second_host});
  root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini", "[landscape]\nworker = hanahost second\n");
  EXPECT_FALSE(new_executor().is_active(nullptr));
  expect_error_with("active_master");
}

TEST_F(Active_Node, Declines_A_Log_Backup_On_A_Stopped_Master_When_Another_Node_Runs) {
  set_running(false);
  set_subtype(JOB_DEFINITION_SUBTYPE_ONDEMAND);
  set_hosts({backup_test::host_uuid, second_host, third_host});
  set_master("hanahost");
  agents_.answers[backup_test::host_uuid] = state_answer(2);
  agents_.answers[second_host] = state_answer(1);
  EXPECT_FALSE(new_executor().is_active(nullptr));
  ASSERT_EQ(agents_.calls.size(), 2U) << "the third is not asked any more";
  EXPECT_NE(agents_.calls[1].find("hana.instance.control"), std::string::npos) << agents_.calls[1];
  EXPECT_NE(agents_.calls[1].find(R"({"action":"state","sid":"HDB","instance_name":"HDB00"})"), std::string::npos)
      << agents_.calls[1];
  EXPECT_NE(agents_.calls[1].find(second_host), std::string::npos) << agents_.calls[1];
}

TEST_F(Active_Node, Accepts_A_Log_Backup_On_A_Stopped_Master_When_No_Other_Node_Is_Known_To_Run) {
  set_running(false);
  set_subtype(JOB_DEFINITION_SUBTYPE_ONDEMAND);
  set_hosts({backup_test::host_uuid, second_host, third_host});
  set_master("hanahost");
  struct Row {
    const char* name;
    std::map<std::string, json_spirit::Value> answers;
    unsigned failures;
  };
  const Row rows[] = {
      {"stopped and unknown", {{second_host, state_answer(2)}, {third_host, state_answer(0)}}, 1},
      {"none can be asked", {}, 3},
      {"no state in the answer", {{second_host, Object{{"x", 1}}}, {third_host, state_answer(2)}}, 2},
      {"a state of another type", {{second_host, Object{{"state", "1"}}}}, 3},
      {"an answer that is no object", {{second_host, Array{1}}}, 3},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    agents_.answers = row.answers;
    EXPECT_TRUE(new_executor().is_active(nullptr));
    for (unsigned i = 0; i < row.failures; ++i) expect_error("Failed to get state to check if the node is active\n");
  }
}

TEST_F(Active_Node, Lists_The_Other_Instances_Of_The_Cluster) {
  set_hosts({second_host, backup_test::host_uuid, third_host, backup_test::host_uuid});
  sap_hana::Instances_Info instances;
  EXPECT_TRUE(new_executor().get_cluster_instances(instances));
  ASSERT_EQ(instances.size(), 3U);
  EXPECT_EQ(instances[0].host_uuid, second_host);
  EXPECT_EQ(instances[1].host_uuid, third_host);
  EXPECT_EQ(instances[2].host_uuid, backup_test::host_uuid) << "only the first entry of this host is left out";
}

TEST_F(Active_Node, Lists_All_Instances_When_This_Host_Is_None_Of_Them) {
  set_hosts({second_host, third_host});
  sap_hana::Instances_Info instances;
  EXPECT_TRUE(new_executor().get_cluster_instances(instances));
  EXPECT_EQ(instances.size(), 2U);
}

TEST_F(Active_Node, Reports_Cluster_Instances_That_Cannot_Be_Read) {
  backupd_.resource = Object{{"name", "without instances"}};
  sap_hana::Instances_Info instances;
  EXPECT_FALSE(new_executor().get_cluster_instances(instances));
  expect_error("Failed to get cluster instances\n");
  expect_error("Failed to get instances info from base info\n");
}

TEST_F(Active_Node, Ends_A_Run_As_Skipped_When_It_Is_Not_The_One) {
  mode_ = "sync";
  set_entries({"hana/HDB00/TN1"});
  EXPECT_TRUE(new_executor().execute(nullptr));
  EXPECT_EQ(job().state(), JOB_STATE_SKIPPED);
  EXPECT_EQ(job().activity().last_run_time, 1700000000);
  EXPECT_TRUE(progress().empty());
}
