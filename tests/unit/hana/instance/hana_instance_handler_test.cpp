#include "hana/instance/hana_instance_handler.h"

#include <ace/Log_Msg.h>
#include <unistd.h>

#include <cerrno>

#include "agent/instance/instance_manager.h"
#include "hana/common/hana_paths.h"
#include "support/vtable_slots.h"
#include "unit/hana/common/hana_system.h"

namespace {

using hana_test::child;
using hana_test::test_data;

class HANA_Instance_Handler_Test : public hana_test::HANA_System {
 protected:
  HANA_Instance_Handler_Test() {
    EXPECT_TRUE(registry_.open());
    keep("HDB_HDB00", {{"sid", "HDB"}, {"instance_number", 0}, {"instance_name", "HDB00"}});
  }
  void keep(const std::string& name, json_spirit::Object options) {
    auto instance = std::make_shared<Instance>();
    instance->type = "hana";
    instance->name = name;
    instance->options = std::move(options);
    EXPECT_TRUE(registry_.store({{name, instance}}));
  }
  /// What get_state stores and returns, which must be the same.
  std::string state_of(const char* name) {
    std::string state = "kept";
    const std::string returned = handler_.get_state(name, state);
    EXPECT_EQ(returned, state);
    return state;
  }
  void script_state(int sapcontrol_code, const std::string& replication) {
    runner_.clear_rules();
    script("sapcontrol", {child("", sapcontrol_code)});
    script("hdbnsutil", {child(replication)});
  }

  Instance_Manager registry_;
  Scoped_Instance_Manager scope_{registry_};
  HANA_Instance_Handler handler_;
};

TEST_F(HANA_Instance_Handler_Test, Has_Its_Operations_In_Their_Slots) {
  EXPECT_EQ(support::slot_of(&Instance_Handler::probe_instances), 0);
  EXPECT_EQ(support::slot_of(&Instance_Handler::get_state), 1);
  EXPECT_EQ(support::slot_of(&Instance_Handler::logon), 2);
}

TEST_F(HANA_Instance_Handler_Test, Finds_The_Instances_Of_This_Host) {
  install("ABC", "HDB42", "virtualhost", "1.00.122.05 Build 1");
  configure("global.ini", "", "ABC");
  HANA_Instance_Handler::Instances instances;
  auto stale = std::make_shared<Instance>();
  stale->name = "stale";
  instances["HDB_HDB00"] = stale;
  instances["GONE_HDB00"] = stale;
  EXPECT_EQ(handler_.probe_instances(instances), 0);
  ASSERT_EQ(instances.size(), 3U) << "entries are replaced and added, never removed";
  EXPECT_EQ(instances.at("GONE_HDB00"), stale);
  const Instance& found = *instances.at("HDB_HDB00");
  EXPECT_EQ(found.type, "hana");
  EXPECT_EQ(found.name, "HDB_HDB00");
  EXPECT_EQ(
      json_spirit::dump_json(found.options),
      R"({"sid":"HDB","version":"2.00.059.00","instance_number":0,"instance_name":"HDB00","localhost":"hanahost",)"
      R"("dir_executable":"/usr/sap/HDB/HDB00/exe","multi_container":true})");
  EXPECT_EQ(
      json_spirit::dump_json(instances.at("ABC_HDB42")->options),
      R"({"sid":"ABC","version":"1.00.122.05","instance_number":42,"instance_name":"HDB42","localhost":"virtualhost",)"
      R"("dir_executable":"/usr/sap/ABC/HDB42/exe","multi_container":false})");
}

TEST_F(HANA_Instance_Handler_Test, Tells_The_Version_Of_The_System_Whatever_Its_Instance_Runs) {
  root_.write(sap_hana::system_manifest("HDB"), "fullversion: 2.00.070.00 Build 2\n");
  HANA_Instance_Handler::Instances instances;
  EXPECT_EQ(handler_.probe_instances(instances), 0);
  EXPECT_EQ(*instances.at("HDB_HDB00")->options.find("version"), json_spirit::Value("2.00.070.00"));
}

TEST_F(HANA_Instance_Handler_Test, Asks_Each_System_Once_For_Its_Tenants) {
  HANA_Instance_Handler::Instances instances;
  install("XYZ", "HDB01", "hanahost", "2.00.059.00");
  install("XYZ", "HDB02", "hanahost", "2.00.059.00");
  install("XYZ", "HDB03", "hanahost", "2.00.059.00");
  // The lister asks once for the system and the handler once more: a configuration that is missing shows it.
  EXPECT_EQ(handler_.probe_instances(instances), 0);
  EXPECT_EQ(instances.size(), 4U);
  EXPECT_EQ(log_.claim_containing("Failed to read the configuration of HANA system XYZ"), 2U) << log_.dump();
}

TEST_F(HANA_Instance_Handler_Test, Fails_When_The_Instances_Cannot_Be_Listed) {
  const support::Temp_Root other_host;
  other_host.write("/usr/sap", "a file");
  HANA_Instance_Handler::Instances instances;
  EXPECT_EQ(handler_.probe_instances(instances), -1);
  expect_error("Failed to list the SAP systems of this host");
}

TEST_F(HANA_Instance_Handler_Test, Is_Open_Only_When_It_Runs_And_Is_No_Secondary) {
  const struct {
    const char* name;
    int sapcontrol;
    std::string replication;
    const char* wanted;
  } rows[] = {
      {"running", 3, "mode: none\n", "open"},           {"primary", 3, test_data("hdbnsutil/primary.txt"), "open"},
      {"unknown mode", 3, "mode: something\n", "open"}, {"sync", 3, "mode: sync\n", "error"},
      {"async", 3, "mode: async\n", "error"},           {"syncmem", 3, test_data("hdbnsutil/secondary.txt"), "error"},
      {"stopped", 4, "mode: none\n", "error"},          {"starting", 0, "mode: none\n", "error"}};
  for (const auto& row : rows) {
    script_state(row.sapcontrol, row.replication);
    EXPECT_EQ(state_of("HDB_HDB00"), row.wanted) << row.name;
  }
}

TEST_F(HANA_Instance_Handler_Test, Is_Open_When_Its_Replication_Cannot_Be_Told) {
  script("sapcontrol", {child("", 3)});
  script("hdbnsutil", {hana_test::not_started(ENOENT)});
  ASSERT_EQ(::unlink(root_.real(sap_hana::system_configuration("HDB", "global.ini")).c_str()), 0);
  EXPECT_EQ(state_of("HDB_HDB00"), "open");
  expect_error("Failed to read the configuration of HANA system HDB");
}

TEST_F(HANA_Instance_Handler_Test, Is_In_Error_When_Nothing_Is_Known) {
  keep("NO_SID", {{"instance_number", 0}});
  keep("NO_NUMBER", {{"sid", "HDB"}});
  keep("TEXT_NUMBER", {{"sid", "HDB"}, {"instance_number", "0"}});
  keep("LARGE_NUMBER", {{"sid", "HDB"}, {"instance_number", 70000}});
  for (const char* name :
       {static_cast<const char*>(nullptr), "", "QQQ_HDB00", "NO_SID", "NO_NUMBER", "TEXT_NUMBER", "LARGE_NUMBER"})
    EXPECT_EQ(state_of(name), "error") << (name == nullptr ? "null" : name);
  EXPECT_TRUE(runner_.calls().empty());
  keep("GONE_HDB07", {{"sid", "HDB"}, {"instance_number", 7}});
  EXPECT_EQ(state_of("GONE_HDB07"), "error");
  expect_error("is not installed on this host\n");
}

TEST_F(HANA_Instance_Handler_Test, Logs_On_With_The_Status_Command) {
  script("hdbsql", {child(test_data("hdbsql/status.txt"))});
  const secure_string password(hana_test::password);
  EXPECT_EQ(handler_.logon("HDB_HDB00", "SYSTEM", &password, nullptr), 0);
  ASSERT_EQ(runner_.calls().size(), 1U);
  EXPECT_EQ(runner_.calls().front().input, "\\c -i 00 -d SYSTEMDB -u SYSTEM -p \"Tr1cky \"\"pass\\word\"\n\\s\n\\q\n");
  EXPECT_EQ(log_.dump().find("pass"), std::string::npos) << log_.dump();
}

TEST_F(HANA_Instance_Handler_Test, Refuses_Bad_Arguments) {
  const secure_string password("S1");
  const secure_string empty;
  const struct {
    const char* name;
    const char* username;
    const secure_string* password;
    const char* message;
  } rows[] = {{nullptr, "u", &password, "instance_name is NULL or \"\":\n"},
              {"", "u", &password, "instance_name is NULL or \"\":\n"},
              {"", nullptr, nullptr, "instance_name is NULL or \"\":\n"},
              {"HDB_HDB00", nullptr, &password, "username is NULL or \"\":\n"},
              {"HDB_HDB00", "", &password, "username is NULL or \"\":\n"},
              {"HDB_HDB00", "u", nullptr, "password is NULL or \"\":\n"},
              {"HDB_HDB00", "u", &empty, "password is NULL or \"\":\n"}};
  for (const auto& row : rows) {
    EXPECT_EQ(handler_.logon(row.name, row.username, row.password, nullptr), -1) << row.message;
    const auto lines = log_.lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_EQ(lines.back().priority, LM_EMERGENCY);
    // The file as the tree names it, never where it was built.
    EXPECT_TRUE(lines.back().text.starts_with("Unexpected error in ")) << lines.back().text;
    EXPECT_FALSE(lines.back().text.starts_with("Unexpected error in /")) << lines.back().text;
    EXPECT_NE(lines.back().text.find("hana/instance/hana_instance_handler.cpp:"), std::string::npos);
    expect_error(row.message, LM_EMERGENCY);
  }
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(HANA_Instance_Handler_Test, Looks_At_The_Credentials_Before_It_Looks_For_The_Instance) {
  const secure_string password("S1");
  EXPECT_EQ(handler_.logon("QQQ_HDB00", "", &password, nullptr), -1);
  expect_error("username is NULL or \"\":\n", LM_EMERGENCY);
  EXPECT_EQ(handler_.logon("QQQ_HDB00", "SYSTEM", nullptr, nullptr), -1);
  expect_error("password is NULL or \"\":\n", LM_EMERGENCY);
}

TEST_F(HANA_Instance_Handler_Test, Has_Nothing_To_Check_Without_Credentials_Or_Registration) {
  const secure_string password("S1");
  EXPECT_EQ(handler_.logon("HDB_HDB00", nullptr, nullptr, nullptr), 0);
  EXPECT_EQ(handler_.logon("QQQ_HDB00", "SYSTEM", &password, nullptr), 0);
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(HANA_Instance_Handler_Test, Tells_A_Refused_Logon) {
  const secure_string password("wrong");
  const struct {
    const char* name;
    support::Scripted_Child answer;
  } rows[] = {{"refused", child("", 10, "* 10: authentication failed SQLSTATE: 28000\n")},
              {"refused with exit 0", child("not connected\n", 0, "* 10: authentication failed SQLSTATE: 28000\n")},
              {"nobody listens", child("", 43, "* -10709: Connection failed\n")},
              {"tool missing", hana_test::not_started(ENOENT)}};
  for (const auto& row : rows) {
    runner_.clear_rules();
    script("hdbsql", {row.answer});
    EXPECT_EQ(handler_.logon("HDB_HDB00", "SYSTEM", &password, nullptr), -32000) << row.name;
    EXPECT_TRUE(log_.claim("Failed to login HANA database instance 'HDB_HDB00'\n")) << row.name;
    EXPECT_EQ(ACE_Log_Msg::instance()->errnum(), -32000) << row.name;
    EXPECT_EQ(log_.dump().find("wrong"), std::string::npos);
    log_.claim_all();
  }
}

TEST_F(HANA_Instance_Handler_Test, Fails_When_The_Tool_Cannot_Be_Set_Up) {
  const secure_string password("S1");
  keep("HDB_HDB07", {{"sid", "HDB"}, {"instance_name", "HDB07"}, {"instance_number", 7}});
  EXPECT_EQ(handler_.logon("HDB_HDB07", "SYSTEM", &password, nullptr), -1);
  EXPECT_TRUE(log_.claim("Failed to login HANA database instance 'HDB_HDB07', failed to init hdbsql\n"));
  expect_error("is not installed on this host\n");
  const secure_string control("S\n1");
  EXPECT_EQ(handler_.logon("HDB_HDB00", "SYSTEM", &control, nullptr), -1);
  EXPECT_TRUE(log_.claim("Failed to login HANA database instance 'HDB_HDB00', failed to init hdbsql\n"));
  expect_error("holds control characters");
}

TEST(HANA_Instance_Handler, Knows_Nothing_In_A_Process_Without_A_Registry) {
  const support::Log_Capture log;
  HANA_Instance_Handler handler;
  std::string state;
  EXPECT_EQ(handler.get_state("HDB_HDB00", state), "error");
  const secure_string password("S1");
  EXPECT_EQ(handler.logon("HDB_HDB00", "SYSTEM", &password, nullptr), 0);
}

}  // namespace
