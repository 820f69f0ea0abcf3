#include <map>
#include <memory>

#include "support/temp_root.h"
#include "unit/backupd/fake_agent.h"
#include "unit/backupd/memory_server.h"
#include "unit/backupd/set_history.h"

using namespace backupd_test;

namespace {

/// What an instance's agent knows of it.
struct Known {
  std::string master;  ///< "true", "false", or empty where it does not tell
  std::string state = "error";
};

std::string attributes(const std::string& host, const std::string& master) {
  return R"({"sid":"HDB","instance_name":"HDB00","multi_container":true,"version":"2.00.059.00","landscape_id":"land",)"
         R"("localhost":")" +
         host + "\"" + (master.empty() ? "" : R"(,"active_master":)" + master) + "}";
}

/// A system over the hosts hana01 and hana02 with a full backup of SYSTEMDB and of TN1.
class Restore_Host_Test : public ::testing::Test {
 protected:
  Restore_Host_Test() {
    server_.add_pool();
    server_.clock.pass_wall(std::chrono::hours(24 * 365 * 5));
  }
  ~Restore_Host_Test() override {
    for (auto& [host, agent] : agents_) agent->leave();
  }

  /// What the server was told at the last discovery.
  void registered(const std::string& master_a, const std::string& master_b) {
    register_host(host_a, attributes("hana01", master_a));
    register_host(host_b, attributes("hana02", master_b));
    add_backups();
  }
  void register_host(const std::string& host, const std::string& attributes) {
    const Answer answer = server_.request(
        "POST", "/resources",
        R"({"name":"HDB_HDB00","type":"hana","host_uuid":")" + host + R"(","extended_attrs":)" + attributes + "}");
    ASSERT_EQ(answer.status, 201U) << answer.text;
    resource_ = answer.text_of("uuid");
  }
  void add_backups() {
    std::vector<Set_Line> lines;
    for (const char* database : {"SYSTEMDB", "TN1"}) {
      const std::string name = std::string("F_") + database;
      lines.push_back({name, "full", "08:00:00", "08:01:00", {name + "_databackup_0_1"}});
      lines.back().database = database;
      server_.root.write("/pool/" + stored_path(lines.back(), name + "_databackup_0_1"), std::string(400, 'x'));
    }
    insert_sets(server_.database, lines, resource_);
  }
  void connect(const std::string& host, const Known& known) {
    const std::string name = host == host_a ? "hana01" : "hana02";
    auto agent = std::make_unique<Fake_Agent>(
        server_, host == host_a ? server_.agent_key : server_.other_agent_key,
        [=](const std::string& method, const json_spirit::Value&) {
          if (method == "instance.state") return good(json_spirit::Object{{"state", known.state}});
          if (method != "instance.probe") return good(json_spirit::Object());
          json_spirit::Value found;
          EXPECT_TRUE(
              json_spirit::load_json(R"({"instances":[{"type":"hana","name":"HDB_HDB00","uuid":"u","extended_attrs":)" +
                                         attributes(name, known.master) + "}]}",
                                     found));
          return good(found);
        });
    ASSERT_TRUE(agent->hello(host).ok);
    agents_[host] = std::move(agent);
  }
  /// The host that restores the database from its full backup, or the codes that refuse it.
  std::string restores(const std::string& database, const std::string& host = {}) {
    plan_ = server_.request("POST", "/restore/plan",
                            R"({"resource_uuid":")" + resource_ + R"(","database":")" + database + R"(","set":")" +
                                uuid_named("F_" + database) + "\"" +
                                (host.empty() ? "" : R"(,"target":{"host_uuid":")" + host + "\"}") + "}",
                            server_.viewer_key);
    EXPECT_EQ(plan_.status, 200U) << plan_.text;
    json_spirit::Array refusals;
    json_spirit::Object target;
    json_spirit::object_get(plan_.body, "refusals", refusals);
    json_spirit::object_get(plan_.body, "target", target);
    std::string text;
    for (const json_spirit::Value& row : refusals) {
      std::string code;
      json_spirit::object_get(row.get_obj(), "code", code);
      text += (text.empty() ? "" : " ") + code;
    }
    if (text.empty()) json_spirit::object_get(target, "host", text);
    return text;
  }

  Memory_Server server_;
  std::map<std::string, std::unique_ptr<Fake_Agent>> agents_;
  std::string resource_;
  Answer plan_;
};

TEST_F(Restore_Host_Test, Nobody_Stands_In_For_A_Master_That_Is_Away) {
  registered("true", "false");
  connect(host_b, {"false", "open"});
  for (const char* database : {"SYSTEMDB", "TN1"}) {
    EXPECT_EQ(restores(database), "target_master_away") << plan_.text;
    EXPECT_NE(plan_.text.find("hana01 (" + std::string(host_a) + ")"), std::string::npos) << plan_.text;
    EXPECT_NE(plan_.text.find("dorsal3 discover"), std::string::npos) << plan_.text;
    EXPECT_NE(plan_.text.find("--host"), std::string::npos) << plan_.text;
    EXPECT_EQ(restores(database, host_b), "hana02") << "the operator knows that the master is lost: " << plan_.text;
  }
  connect(host_a, {"true", "error"});
  EXPECT_EQ(restores("SYSTEMDB"), "hana01") << plan_.text;
  EXPECT_NE(plan_.text.find(R"("other_hosts":[{"host_uuid":")" + std::string(host_b) + R"(","host":"hana02"}])"),
            std::string::npos)
      << plan_.text;
  EXPECT_EQ(restores("TN1"), "hana01") << plan_.text;
  EXPECT_NE(plan_.text.find(R"("other_hosts":[])"), std::string::npos) << plan_.text;
}

TEST_F(Restore_Host_Test, The_Master_After_A_Failover_Restores_Before_The_Next_Discovery) {
  registered("true", "false");
  connect(host_a, {"false", "open"});
  connect(host_b, {"true", "open"});
  EXPECT_EQ(restores("SYSTEMDB"), "hana02") << plan_.text;
  EXPECT_EQ(restores("SYSTEMDB", host_a), "target_not_master") << plan_.text;
}

TEST_F(Restore_Host_Test, A_Worker_Does_Not_Restore_Where_The_Record_Knows_No_Master) {
  registered("false", "false");
  connect(host_a, {"false", "open"});
  EXPECT_EQ(restores("SYSTEMDB"), "target_master_away") << plan_.text;
  connect(host_b, {"false", "open"});
  EXPECT_EQ(restores("SYSTEMDB"), "target_master_unknown") << plan_.text;
  EXPECT_NE(plan_.text.find("dorsal3 discover"), std::string::npos) << plan_.text;
}

TEST_F(Restore_Host_Test, What_The_Agents_Tell_Now_Counts_More_Than_The_Record) {
  // Discovered while its configuration was not there, or before it was converted.
  const auto without = [](std::string text, const std::string& part, const std::string& instead) {
    return text.replace(text.find(part), part.size(), instead);
  };
  const std::string known = attributes("hana01", "true");
  register_host(host_a, without(without(known, R"("multi_container":true)", R"("multi_container":false)"),
                                R"("version":"2.00.059.00")", R"("version":"")"));
  add_backups();
  EXPECT_EQ(restores("SYSTEMDB"), "version_unknown agent_away") << plan_.text;
  connect(host_a, {"true", "open"});
  EXPECT_EQ(restores("SYSTEMDB"), "hana01") << plan_.text;
  EXPECT_EQ(restores("TN1"), "hana01") << plan_.text;
}

TEST_F(Restore_Host_Test, The_Primary_Of_A_Replication_Restores) {
  registered("", "");
  connect(host_a, {"", "error"});
  connect(host_b, {"", "open"});
  for (const char* database : {"SYSTEMDB", "TN1"}) {
    EXPECT_EQ(restores(database), "hana02") << plan_.text;
    EXPECT_EQ(restores(database, host_a), "target_not_master") << plan_.text;
  }
  EXPECT_NE(plan_.text.find(R"("other_hosts":[])"), std::string::npos) << plan_.text;
}

TEST_F(Restore_Host_Test, Where_No_Instance_Is_Open_The_Operator_Names_The_Host) {
  registered("", "");
  connect(host_a, {"", "error"});
  connect(host_b, {"", "error"});
  EXPECT_EQ(restores("SYSTEMDB"), "target_master_unknown") << plan_.text;
  EXPECT_EQ(restores("SYSTEMDB", host_b), "hana02") << plan_.text;
  const Answer unknown = server_.request("POST", "/restore/plan",
                                         R"({"resource_uuid":")" + resource_ + R"(","database":"TN1","set":")" +
                                             uuid_named("F_TN1") + R"(","target":{"host_uuid":")" + uuid_of(9) + "\"}}",
                                         server_.viewer_key);
  EXPECT_EQ(unknown.status, 422U) << unknown.text;
}

TEST_F(Restore_Host_Test, Two_Open_Instances_Are_Not_Taken_For_One_System) {
  registered("", "");
  connect(host_a, {"", "open"});
  connect(host_b, {"", "open"});
  EXPECT_EQ(restores("TN1"), "target_master_unknown") << plan_.text;
  EXPECT_EQ(restores("TN1", host_b), "hana02") << plan_.text;
}

}  // namespace
