#include "backupd/log_backup/setup_keeper.h"

#include <mutex>

#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

/// What the agent of a test says to "job.setup" and "job.unsetup", and what it was asked.
class Setup_Agent {
 public:
  explicit Setup_Agent(Memory_Server& server)
      : agent_(server, server.agent_key,
               [this](const std::string& method, const json_spirit::Value& params) { return answer(method, params); }) {
    EXPECT_TRUE(agent_.hello(host_a).ok);
  }
  void say(json_spirit::Object result) {
    const std::lock_guard lock(mutex_);
    answer_ = good(std::move(result));
  }
  void refuse(int code, const std::string& message) {
    const std::lock_guard lock(mutex_);
    answer_ = bad(code, message);
  }
  /// "method pool" of each request since the last call.
  std::vector<std::string> asked() {
    const std::lock_guard lock(mutex_);
    return std::exchange(asked_, {});
  }
  /// When it was asked, since the last call.
  std::vector<std::time_t> moments() {
    const std::lock_guard lock(mutex_);
    return std::exchange(moments_, {});
  }
  Fake_Agent& peer() { return agent_; }

 private:
  JSON_RPC_Answer answer(const std::string& method, const json_spirit::Value& params) {
    const std::lock_guard lock(mutex_);
    json_spirit::Object definition;
    json_spirit::Object options;
    std::string level;
    json_spirit::object_get(params.get_obj(), "definition", definition);
    json_spirit::object_get(definition, "options", options);
    if (const json_spirit::Value* const value = options.find("compression_level"))
      level = " " + json_spirit::dump_json(*value);
    EXPECT_FALSE(definition.contains("setup")) << "an agent refuses keys that it does not know";
    asked_.push_back(method + level);
    moments_.push_back(platform::Clock::current().wall_seconds());
    return answer_;
  }
  std::mutex mutex_;
  JSON_RPC_Answer answer_ = good(json_spirit::Object{{"code", 0}, {"message", ""}, {"alerts", json_spirit::Array()}});
  std::vector<std::string> asked_;
  std::vector<std::time_t> moments_;
  Fake_Agent agent_;
};

using Asked = std::vector<std::string>;

class Setup_Keeper_Test : public testing::Test {
 protected:
  Setup_Keeper_Test() { server.add_pool(); }

  static std::string body(int level = 1) {
    std::string text = definition_json(R"("id":")" + uuid_of(40) + "\"");
    const auto replace = [&text](const std::string& from, const std::string& to) {
      text.replace(text.find(from), from.size(), to);
    };
    replace("\"full\"", "\"log\"");
    const std::size_t options = text.find("\"options\"");
    const std::size_t end = text.find('}', options);
    text.replace(options, end - options + 1,
                 R"("options":{"compression":"zstd","compression_level":)" + std::to_string(level) + "}");
    return text;
  }
  Answer post(int level = 1) { return server.request("POST", "/job-definitions", body(level)); }
  Answer remove(const std::string& query = "") { return server.request("DELETE", path + query); }
  static std::string setup(const Answer& answer, const char* key) {
    json_spirit::Object setup;
    std::string text;
    json_spirit::object_get(answer.body, "setup", setup);
    json_spirit::object_get(setup, key, text);
    return text;
  }
  std::string state() { return setup(server.request("GET", path), "state"); }
  /// Until the keeper's thread has brought it there.
  bool becomes(const std::string& wanted) {
    for (int i = 0; i < 1000 && state() != wanted; ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return state() == wanted;
  }

  /// Until the keeper's thread has stored what the agent said.
  bool says(const std::string& message) {
    const auto said = [&] { return setup(server.request("GET", path), "message") == message; };
    for (int i = 0; i < 1000 && !said(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    return said();
  }
  /// Has the keeper fail again and again, and then succeed, with the date standing while anything goes on.
  void expect_tries(Setup_Agent& agent, const std::function<void()>& wish, const std::string& wanted) {
    const auto fail = [&](std::size_t number) {
      agent.say({{"code", -1}, {"message", "cannot log on " + std::to_string(number)}});
    };
    const std::vector<long> pauses = {1, 2, 4, 8, 16, 32, 60, 60};
    fail(0);
    const std::time_t begin = platform::Clock::current().wall_seconds();
    wish();
    ASSERT_TRUE(says("cannot log on 0"));
    std::vector<std::time_t> due{0};
    for (std::size_t i = 0; i < pauses.size(); ++i) {
      const bool last = i + 1 == pauses.size();
      if (last)
        agent.say({{"code", 0}, {"message", ""}});
      else
        fail(i + 1);
      due.push_back(due.back() + pauses[i] * 60);
      server.clock.pass_wall(std::chrono::seconds(pauses[i] * 60 - 1));
      server.clock.pass_wall(std::chrono::seconds(1));
      ASSERT_TRUE(last ? becomes(wanted) : says("cannot log on " + std::to_string(i + 1))) << pauses[i];
    }
    std::vector<std::time_t> asked = agent.moments();
    for (std::time_t& moment : asked) moment -= begin;
    EXPECT_EQ(asked, due);
  }

  Memory_Server server;
  const std::string path = "/job-definitions/" + uuid_of(40);
};

}  // namespace

TEST_F(Setup_Keeper_Test, A_Stored_Log_Backup_Is_Set_Up_Once) {
  Setup_Agent agent(server);
  const Answer stored = post();
  ASSERT_EQ(stored.status, 201U) << stored.text;
  EXPECT_EQ(setup(stored, "state"), "installed");
  EXPECT_EQ(setup(stored, "wanted"), "installed");
  EXPECT_EQ(post().status, 200U);
  EXPECT_EQ(agent.asked(), Asked{"job.setup 1"});
  long type = 0;
  json_spirit::Object schedule;
  json_spirit::object_get(stored.body, "schedule", schedule);
  EXPECT_TRUE(json_spirit::object_get(schedule, "type", type) && type == 7);
  EXPECT_EQ(setup(server.request("GET", "/job-definitions/" + uuid_of(40)), "state"), "installed");
}

TEST_F(Setup_Keeper_Test, What_The_Agent_Says_Reaches_The_User) {
  Setup_Agent agent(server);
  agent.say({{"code", -1},
             {"message", "Failed to backup HANA log, failed to prepare backint"},
             {"alerts", json_spirit::Array{json_spirit::Object{{"class", 7}, {"code", 1}}}}});
  const Answer stored = post();
  EXPECT_EQ(stored.status, 201U) << "the definition is kept";
  EXPECT_EQ(setup(stored, "state"), "failed");
  EXPECT_EQ(setup(stored, "message"), "Failed to backup HANA log, failed to prepare backint");
  EXPECT_NE(stored.text.find(R"("alerts":[{"class":7,"code":1}])"), std::string::npos) << stored.text;
  agent.say({{"code", 0}, {"message", "HANA did not take a setting"}});
  const Answer again = post();
  EXPECT_EQ(setup(again, "state"), "installed") << "storing the same once more tries again";
  EXPECT_EQ(setup(again, "message"), "HANA did not take a setting");
}

TEST_F(Setup_Keeper_Test, Is_Set_Up_When_Its_Agent_Connects) {
  const Answer stored = post();
  EXPECT_EQ(stored.status, 201U);
  EXPECT_EQ(setup(stored, "state"), "pending");
  EXPECT_NE(setup(stored, "message").find("is not connected; it is done when the agent is back"), std::string::npos);
  server.core->setups.start();
  Setup_Agent agent(server);
  EXPECT_TRUE(becomes("installed"));
  EXPECT_EQ(agent.asked(), Asked{"job.setup 1"});
}

TEST_F(Setup_Keeper_Test, A_Setup_That_Failed_Is_Tried_Again_When_The_Agent_Is_Back) {
  server.core->setups.start();
  {
    Setup_Agent agent(server);
    agent.refuse(-32602, "no module");
    EXPECT_EQ(setup(post(), "state"), "failed");
    agent.peer().leave();
  }
  Setup_Agent agent(server);
  EXPECT_TRUE(becomes("installed"));
}

TEST_F(Setup_Keeper_Test, A_Busy_Agent_Is_Asked_Again_After_A_Minute) {
  Setup_Agent agent(server);
  agent.refuse(-32000, "the agent is busy");
  EXPECT_EQ(setup(post(), "state"), "pending");
  agent.say({{"code", 0}, {"message", ""}});
  EXPECT_EQ(agent.asked().size(), 1U);
  server.clock.pass_wall(std::chrono::seconds(60));
  server.core->setups.start();
  EXPECT_TRUE(becomes("installed"));
}

TEST_F(Setup_Keeper_Test, A_Setup_That_Fails_Is_Tried_Again_After_Pauses_That_Double) {
  server.clock.wait_by_date();
  server.core->setups.start();
  Setup_Agent agent(server);
  expect_tries(
      agent, [this] { EXPECT_EQ(setup(post(), "state"), "failed"); }, "installed");
}

TEST_F(Setup_Keeper_Test, A_Removal_That_Fails_Is_Tried_Again_After_Pauses_That_Double) {
  server.clock.wait_by_date();
  server.core->setups.start();
  Setup_Agent agent(server);
  ASSERT_EQ(setup(post(), "state"), "installed");
  EXPECT_EQ(agent.moments().size(), 1U);
  expect_tries(
      agent, [this] { EXPECT_EQ(remove().status, 202U); }, "removed");
}

TEST_F(Setup_Keeper_Test, A_Change_While_The_Agent_Is_Asked_Is_Done_After_It) {
  Setup_Agent agent(server);
  ASSERT_EQ(post(1).status, 201U);
  std::thread first([this] { EXPECT_LT(post(2).status, 300U); });
  std::thread second([this] { EXPECT_LT(remove().status, 300U); });
  first.join();
  second.join();
  // Whichever came last, the agent was left as it is wanted, and the record says so.
  const Answer now = server.request("GET", path);
  EXPECT_EQ(setup(now, "state"), setup(now, "wanted"));
  const Asked asked = agent.asked();
  EXPECT_EQ(asked.back().starts_with("job.setup"), setup(now, "wanted") == "installed") << asked.back();
}

TEST_F(Setup_Keeper_Test, An_Updated_Definition_Is_Removed_And_Set_Up_Again) {
  Setup_Agent agent(server);
  ASSERT_EQ(post(1).status, 201U);
  ASSERT_EQ(post(2).status, 201U);
  EXPECT_EQ(agent.asked(), (Asked{"job.setup 1", "job.unsetup 1", "job.setup 2"}));
  EXPECT_EQ(server.request("POST", path + "/setup", "{}").status, 200U);
  EXPECT_EQ(agent.asked(), (Asked{"job.unsetup 2", "job.setup 2"}));
}

TEST_F(Setup_Keeper_Test, What_Was_Set_Up_Is_Remembered_Over_A_Restart) {
  {
    Setup_Agent agent(server);
    ASSERT_EQ(post(1).status, 201U);
    agent.peer().leave();
  }
  EXPECT_EQ(setup(post(2), "state"), "pending");
  server.restart();
  server.core->setups.start();
  Setup_Agent agent(server);
  EXPECT_TRUE(becomes("installed"));
  EXPECT_EQ(agent.asked(), (Asked{"job.unsetup 1", "job.setup 2"}));
}

TEST_F(Setup_Keeper_Test, A_Removal_Waits_For_The_Agent_Unless_It_Is_Forced) {
  {
    Setup_Agent agent(server);
    ASSERT_EQ(post().status, 201U);
    agent.peer().leave();
  }
  const Answer waits = remove();
  EXPECT_EQ(waits.status, 202U) << waits.text;
  EXPECT_EQ(setup(waits, "wanted"), "removed");
  EXPECT_EQ(setup(waits, "state"), "pending");
  const Answer forced = remove("?force=1");
  EXPECT_EQ(forced.status, 200U) << forced.text;
  EXPECT_EQ(setup(forced, "state"), "removed");
  server.core->setups.start();
  Setup_Agent agent(server);
  EXPECT_TRUE(agent.asked().empty());
}

TEST_F(Setup_Keeper_Test, A_Removal_That_Waited_Is_Done_When_The_Agent_Connects) {
  {
    Setup_Agent agent(server);
    ASSERT_EQ(post().status, 201U);
    agent.peer().leave();
  }
  EXPECT_EQ(remove().status, 202U);
  server.core->setups.start();
  Setup_Agent agent(server);
  EXPECT_TRUE(becomes("removed"));
  EXPECT_EQ(agent.asked(), Asked{"job.unsetup 1"});
}

TEST_F(Setup_Keeper_Test, A_Removed_Definition_Is_Kept_A_Day_For_Its_Runs_But_Not_For_Agents) {
  Setup_Agent agent(server);
  ASSERT_EQ(post().status, 201U);
  const std::string list = R"({"uuid":")" + uuid_of(40) + "\"}";
  EXPECT_EQ(agent.peer().call("job.def.list", list).result.get_array().size(), 1U);
  EXPECT_EQ(remove().status, 200U);
  EXPECT_EQ(agent.peer().call("job.def.list", list).result.get_array().size(), 0U);
  EXPECT_EQ(server.request("GET", path).status, 200U);
  server.clock.pass_wall(backupd::Setup_Keeper::removed_are_kept + std::chrono::seconds(1));
  server.core->setups.start();
  for (int i = 0; i < 1000 && server.request("GET", path).status == 200U; ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  EXPECT_EQ(server.request("GET", path).status, 404U);
}

TEST_F(Setup_Keeper_Test, A_Removed_Definition_Comes_Back_When_It_Is_Stored_Again) {
  Setup_Agent agent(server);
  ASSERT_EQ(post().status, 201U);
  EXPECT_EQ(remove().status, 200U);
  EXPECT_EQ(setup(post(), "state"), "installed");
  EXPECT_EQ(agent.asked(), (Asked{"job.setup 1", "job.unsetup 1", "job.setup 1"}));
}

TEST_F(Setup_Keeper_Test, Refuses_What_A_Log_Backup_Cannot_Be) {
  struct Row {
    const char* name;
    std::string from;
    std::string to;
    unsigned status;
  };
  for (const Row& row :
       {Row{"two databases", "[\"hana/HDB00/TN1\"]", "[\"hana/HDB00/TN1\",\"hana/HDB00/TN2\"]", 422},
        Row{"another schedule", "\"type\":\"backup\"", R"("schedule":{"type":1},"type":"backup")", 422},
        Row{"the schedule in full", "\"type\":\"backup\"", R"("schedule":{"type":7},"type":"backup")", 201}}) {
    std::string text = body();
    text.replace(text.find(row.from), row.from.size(), row.to);
    const Answer answer = server.request("POST", "/job-definitions", text);
    EXPECT_EQ(answer.status, row.status) << row.name << answer.text;
  }
  std::string full = body();
  full.replace(full.find("\"log\""), 5, "\"full\"");
  EXPECT_EQ(server.request("POST", "/job-definitions", full).status, 409U);
  std::string other = definition_json();
  const Answer data = server.request("POST", "/job-definitions", other);
  EXPECT_EQ(server.request("POST", "/job-definitions/" + data.text_of("id") + "/setup", "{}").status, 422U);
}
