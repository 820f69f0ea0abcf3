#include "backupd/jobs/history_keeper.h"

#include <gtest/gtest.h>

#include "unit/backupd/memory_server.h"

using namespace backupd_test;

namespace {

using std::chrono::hours;
constexpr hours day{24};

class History_Keeper_Test : public ::testing::Test {
 protected:
  History_Keeper_Test() {
    server_.add_pool();
    data_ = define(definition_json());
    std::string logs = definition_json(R"("id":")" + uuid_of(900) + "\"");
    logs.replace(logs.find("\"full\""), 6, "\"log\"");
    logs.replace(logs.find("hana/HDB00/TN1"), 14, "hana/HDB00");
    logs_ = define(logs);
  }

  std::string define(const std::string& body) {
    const Answer stored = server_.request("POST", "/job-definitions", body);
    EXPECT_TRUE(stored.status == 201U || stored.status == 200U) << stored.text;
    return stored.text_of("id");
  }
  std::string begin(const std::string& definition) {
    const std::string id = uuid_of(++runs_);
    EXPECT_TRUE(server_.core->activities.begin({id, definition, "run", host_a, {}, {}}).ok());
    return id;
  }
  std::string end(const std::string& id) {
    EXPECT_TRUE(server_.core->activities.fail(id, "it is over"));
    return id;
  }
  bool is_there(const std::string& id) {
    const unsigned status = server_.request("GET", "/jobs/" + id).status;
    EXPECT_TRUE(status == 200U || status == 404U) << status;
    return status == 200U;
  }
  std::int64_t remove_old(backupd::History_Limits limits = {}) {
    std::int64_t removed = 0;
    EXPECT_TRUE(backupd::History_Keeper(server_.database, limits).remove_old(removed));
    return removed;
  }
  std::int64_t count(const std::string& table) {
    std::int64_t rows = 0;
    EXPECT_TRUE(server_.database.read([&](backupd::Sql_Session& session) {
      rows = session.first("SELECT count(*) FROM " + table, {}, 1)->number(0);
    }));
    return rows;
  }

  Memory_Server server_;
  std::string data_;
  std::string logs_;
  int runs_ = 0;
};

TEST_F(History_Keeper_Test, Removes_Runs_Of_Log_Backups_After_A_Month_And_Others_After_A_Year) {
  const std::string log = end(begin(logs_));
  const std::string data = end(begin(data_));
  server_.clock.pass_wall(30 * day);
  EXPECT_EQ(remove_old(), 0);
  server_.clock.pass_wall(2 * day);
  EXPECT_EQ(remove_old(), 1);
  EXPECT_FALSE(is_there(log));
  server_.clock.pass_wall(333 * day);
  EXPECT_EQ(remove_old(), 0);
  EXPECT_TRUE(is_there(data));
  server_.clock.pass_wall(2 * day);
  EXPECT_EQ(remove_old(), 1);
  EXPECT_FALSE(is_there(data));
}

TEST_F(History_Keeper_Test, Counts_From_The_First_End_Of_A_Run_And_Leaves_Those_That_Go_On) {
  const std::string going_on = begin(data_);
  const std::string ended = begin(logs_);
  server_.clock.pass_wall(400 * day);
  end(ended);
  EXPECT_EQ(remove_old(), 0);
  EXPECT_TRUE(is_there(going_on));
  server_.clock.pass_wall(32 * day);
  EXPECT_EQ(remove_old(), 1);
  EXPECT_FALSE(is_there(ended));
  EXPECT_TRUE(is_there(going_on));
}

TEST_F(History_Keeper_Test, Removes_The_Logs_Of_The_Runs_And_What_They_Restored) {
  const std::string id = begin(data_);
  ASSERT_TRUE(server_.core->activities.add_logs(host_a, {{id, {json_spirit::Object{{"text", "a line"}}}}}).ok());
  ASSERT_TRUE(server_.database.write([&](backupd::Sql_Session& session) {
    session.execute("INSERT INTO restored (job_act_id, call_uuid, bytes) VALUES (:a, 'c', 1)", {id});
    return true;
  }));
  end(id);
  EXPECT_EQ(count("job_log"), 1);
  server_.clock.pass_wall(400 * day);
  EXPECT_EQ(remove_old(), 1);
  EXPECT_EQ(count("job_log"), 0);
  EXPECT_EQ(count("restored"), 0);
}

TEST_F(History_Keeper_Test, Leaves_A_Run_That_Owns_Records_Which_No_Set_Took) {
  const std::string id = begin(data_);
  server_.add_object(uuid_of(50), "ebid-1", id);
  end(id);
  server_.clock.pass_wall(400 * day);
  EXPECT_EQ(remove_old(), 0);
  EXPECT_TRUE(is_there(id));
  EXPECT_EQ(server_.agent("DELETE", "/backint/jobs/" + uuid_of(50)).status, 200U);
  EXPECT_EQ(remove_old(), 1);
}

TEST_F(History_Keeper_Test, Keeps_All_When_Told_So) {
  end(begin(data_));
  end(begin(logs_));
  server_.clock.pass_wall(10000 * day);
  EXPECT_EQ(remove_old({0, 0}), 0);
  EXPECT_EQ(count("activities"), 2);
}

TEST_F(History_Keeper_Test, Counts_Runs_That_Ended_Before_Ends_Were_Kept_From_Its_First_Look) {
  const std::string id = end(begin(logs_));
  ASSERT_TRUE(server_.database.write([](backupd::Sql_Session& session) {
    session.execute("UPDATE activities SET ended_at = 0");
    return true;
  }));
  server_.clock.pass_wall(100 * day);
  EXPECT_EQ(remove_old(), 0);
  server_.clock.pass_wall(32 * day);
  EXPECT_EQ(remove_old(), 1);
}

TEST_F(History_Keeper_Test, Removes_More_Than_A_Batch) {
  constexpr std::int64_t many = 1203;
  ASSERT_TRUE(server_.database.write([](backupd::Sql_Session& session) {
    for (std::int64_t i = 0; i < many; ++i)
      session.execute(
          "INSERT INTO activities (id, seq, def_id, host_uuid, state, ended, document, kind, ended_at) VALUES (:a, :b, "
          "'d', 'h', 7, 1, '{}', 'log backup', 1)",
          {std::to_string(i), 1000 + i});
    return true;
  }));
  EXPECT_EQ(remove_old(), many);
  EXPECT_EQ(count("activities"), 0);
}

TEST_F(History_Keeper_Test, Is_Called_By_The_Server_Now_And_Then) {
  server_.history = {};
  server_.restart();
  const std::string id = end(begin(logs_));
  server_.clock.pass_wall(32 * day);
  server_.clock.pass(backupd::Run_Starter::sweep_interval);
  while (is_there(id)) server_.core->starter.wake();
}

}  // namespace
