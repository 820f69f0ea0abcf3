#include "backupd/restore/restored_bytes.h"

#include <gtest/gtest.h>

#include "unit/backupd/fake_agent.h"
#include "unit/backupd/memory_server.h"

using namespace backupd_test;

namespace {

constexpr const char* first_call = "66666666-6666-4666-8666-000000000001";
constexpr const char* second_call = "66666666-6666-4666-8666-000000000002";

/// A restore of TN1 into TN2 of the system of two hosts goes on.
class Restored_Bytes_Test : public ::testing::Test {
 protected:
  Restored_Bytes_Test() {
    resource_ = server_.add_instance(host_a);
    server_.add_instance(host_b);
    run_ = begin_restore(R"("restore_as":{"database":"TN2","timepoint":"2026-11-20 10:00:00"})");
  }

  std::string begin_restore(const std::string& as, const std::string& source = resource_uuid) {
    const std::string definition =
        R"({"name":"restore )" + std::to_string(++restores_) +
        R"(","type":"restore","subtype":"point-in-time","module":"hana","host_uuid":")" + host_a +
        R"(","source":{"id":")" + source + R"(","name":"HDB_HDB00","entries":[{"catalog_uuid":")" + uuid_of(1) +
        R"(","original":{"sid":"HDB","database":"TN1"})" + (as.empty() ? "" : ",") + as +
        R"(}]},"options":{"ignore_delta":false},"target":{"resource_uuid":")" + resource_ + R"("}})";
    const Answer stored = server_.request("POST", "/job-definitions", definition);
    EXPECT_EQ(stored.status, 201U) << stored.text;
    const std::string id = uuid_of(100 + restores_);
    EXPECT_TRUE(server_.core->activities.begin({id, stored.text_of("id"), "restore", host_a, {}, {}}).ok());
    return id;
  }

  Answer tell(long bytes, const char* call = first_call, const std::string& database = "TN2",
              const std::string& sid = "HDB") {
    return server_.request("POST", "/backint/restored", body(host_a, bytes, call, database, sid), server_.agent_key);
  }
  static std::string body(const char* host, long bytes, const char* call, const std::string& database,
                          const std::string& sid) {
    return R"({"host_uuid":")" + std::string(host) + R"(","sid":")" + sid + R"(","database":")" + database +
           R"(","call":")" + call + R"(","bytes":)" + std::to_string(bytes) + "}";
  }
  long restored(const std::string& run) {
    return server_.request("GET", "/jobs/" + run, {}, server_.viewer_key).number_of("restored_size");
  }

  Memory_Server server_;
  std::string resource_;
  std::string run_;
  int restores_ = 0;
};

TEST_F(Restored_Bytes_Test, Are_The_Sum_Of_What_The_Calls_Of_A_Run_Tell) {
  EXPECT_EQ(restored(run_), 0);
  EXPECT_EQ(tell(100).text_of("job_act_id"), run_);
  EXPECT_EQ(tell(50, second_call).text_of("job_act_id"), run_);
  EXPECT_EQ(tell(300).text_of("job_act_id"), run_);
  EXPECT_EQ(restored(run_), 350);
  const json_spirit::Array rows = server_.request("GET", "/jobs?kind=restore", {}, server_.viewer_key).rows();
  ASSERT_EQ(rows.size(), 1U);
  long listed = 0;
  EXPECT_TRUE(json_spirit::object_get(rows.front().get_obj(), backupd::restored_size_key, listed));
  EXPECT_EQ(listed, 350);
}

TEST_F(Restored_Bytes_Test, Do_Not_Go_Back_When_An_Older_Report_Comes_Late) {
  tell(300);
  EXPECT_EQ(tell(200).status, 200U);
  EXPECT_EQ(restored(run_), 300);
}

TEST_F(Restored_Bytes_Test, Are_Kept_Over_A_Restart_Of_The_Server) {
  tell(300);
  server_.restart();
  EXPECT_EQ(restored(run_), 300);
  tell(400);
  EXPECT_EQ(restored(run_), 400);
}

TEST_F(Restored_Bytes_Test, Count_For_The_Run_Of_The_Database_That_HANA_Reads_Or_Writes) {
  EXPECT_EQ(tell(7, second_call, "TN1").text_of("job_act_id"), run_) << "named by its source";
  EXPECT_EQ(tell(8).text_of("job_act_id"), run_) << "named by its target";
  EXPECT_EQ(restored(run_), 15);
}

TEST_F(Restored_Bytes_Test, Count_For_Nobody_While_Two_Runs_May_Be_Meant) {
  const std::string in_place = begin_restore("");
  EXPECT_EQ(tell(7, second_call, "TN1").text_of("job_act_id"), "");
  EXPECT_EQ(tell(8).text_of("job_act_id"), run_);
  EXPECT_EQ(restored(in_place), 0);
  EXPECT_EQ(restored(run_), 8);
}

TEST_F(Restored_Bytes_Test, Of_A_System_Without_Tenants_Are_Those_Of_Its_Only_Database) {
  const std::string single = begin_restore(R"("restore_as":{"database":"HDB"})");
  EXPECT_EQ(tell(9, second_call, "").text_of("job_act_id"), single);
}

TEST_F(Restored_Bytes_Test, Come_From_Every_Host_Of_The_System) {
  const Answer answer =
      server_.request("POST", "/backint/restored", body(host_b, 5, second_call, "TN2", "HDB"), server_.other_agent_key);
  EXPECT_EQ(answer.text_of("job_act_id"), run_) << answer.text;
}

TEST_F(Restored_Bytes_Test, Of_What_Nobody_Restores_Here_Count_Nowhere) {
  EXPECT_EQ(tell(100, first_call, "TN3").text_of("job_act_id"), "");
  EXPECT_EQ(tell(100, first_call, "TN2", "OTH").text_of("job_act_id"), "");
  ASSERT_TRUE(server_.core->activities.fail(run_, "it broke"));
  EXPECT_EQ(tell(100).text_of("job_act_id"), "");
  EXPECT_EQ(restored(run_), 0);
}

TEST_F(Restored_Bytes_Test, Of_Which_Restores_They_May_Be_Is_Told) {
  const std::string path = std::string("/backint/restores?host_uuid=") + host_a + "&sid=HDB&database=";
  const auto rows = [&](const std::string& database) {
    return json_spirit::dump_json(server_.request("GET", path + database, {}, server_.agent_key).rows());
  };
  const std::string row =
      R"([{"job_act_id":")" + run_ +
      R"(","origin_sid":"HDB","origin_database":"TN1","target_sid":"HDB","target_database":"TN2"}])";
  EXPECT_EQ(rows("TN2"), "[]") << "whose agent is away";
  {
    Fake_Agent agent(server_, server_.agent_key, obedient);
    ASSERT_TRUE(agent.hello(host_a).ok);
    EXPECT_EQ(rows("TN2"), row);
    EXPECT_EQ(rows("TN1"), row);
    EXPECT_EQ(rows("TN3"), "[]");
    EXPECT_EQ(server_.request("GET", path + "TN2", {}, server_.other_agent_key).status, 403U);
    EXPECT_EQ(
        server_.request("GET", std::string("/backint/restores?host_uuid=") + host_a, {}, server_.agent_key).status,
        400U);
    ASSERT_TRUE(server_.core->activities.fail(run_, "it broke"));
    EXPECT_EQ(rows("TN2"), "[]");
  }
}

TEST_F(Restored_Bytes_Test, The_Hosts_Of_A_System_Of_The_Same_Names_Are_Told_While_It_Is_Restored_From) {
  ASSERT_TRUE(server_.core->activities.fail(run_, "it broke"));
  Fake_Agent agent(server_, server_.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  const auto rows = [&] {
    return json_spirit::dump_json(
        server_
            .request("GET", std::string("/backint/restores?host_uuid=") + host_a + "&sid=HDB&database=TN1", {},
                     server_.agent_key)
            .rows());
  };
  const std::string in_place = begin_restore("", resource_);
  EXPECT_EQ(rows().find("origin_hosts"), std::string::npos) << rows();
  ASSERT_TRUE(server_.core->activities.fail(in_place, "it broke"));
  const std::string copied = server_.add_instance(uuid_of(7), "land-2");
  ASSERT_EQ(server_.add_instance(uuid_of(8), "land-2"), copied);
  ASSERT_NE(copied, resource_);
  const std::string run = begin_restore("", copied);
  EXPECT_EQ(rows(), R"([{"job_act_id":")" + run +
                        R"(","origin_sid":"HDB","origin_database":"TN1","target_sid":"HDB","target_database":"TN1",)"
                        R"("origin_hosts":[")" +
                        uuid_of(7) + R"(",")" + uuid_of(8) + R"("]}])");
}

TEST_F(Restored_Bytes_Test, Are_Taken_From_The_Host_That_Tells_Them_Alone) {
  const Answer other =
      server_.request("POST", "/backint/restored", body(host_b, 5, first_call, "TN2", "HDB"), server_.agent_key);
  EXPECT_EQ(other.status, 403U) << other.text;
  EXPECT_EQ(server_.request("POST", "/backint/restored", body(host_a, 5, first_call, "TN2", "HDB")).status, 403U);
  EXPECT_EQ(tell(-1).status, 400U);
  EXPECT_EQ(restored(run_), 0);
}

}  // namespace
