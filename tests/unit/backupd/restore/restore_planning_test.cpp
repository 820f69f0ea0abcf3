#include "backupd/restore/restore_planning.h"

#include "support/temp_root.h"
#include "unit/backupd/fake_agent.h"
#include "unit/backupd/memory_server.h"
#include "unit/backupd/set_history.h"

using namespace backupd_test;

namespace {

constexpr char system_attributes[] = R"({"sid":"HDB","instance_name":"HDB00","multi_container":true,)"
                                     R"("version":"2.00.059.00","landscape_id":"land"})";

class Restore_Planning_Test : public ::testing::Test {
 protected:
  Restore_Planning_Test() {
    server_.add_pool();
    resource_ = add_system("HDB_HDB00", system_attributes);
    server_.clock.pass_wall(std::chrono::hours(24 * 365 * 5));
  }

  std::string add_system(const std::string& name, const std::string& attributes) {
    const Answer answer = server_.request("POST", "/resources",
                                          R"({"name":")" + name + R"(","type":"hana","host_uuid":")" + host_a +
                                              R"(","extended_attrs":)" + attributes + "}");
    EXPECT_EQ(answer.status, 201U) << answer.text;
    return answer.text_of("uuid");
  }

  /// F1, two logs, a catalog; all objects on the pool.
  void make_history() {
    const std::vector<Set_Line> lines{
        {"F1", "full", "08:00:00", "08:01:00", {"F1_databackup_0_1", "F1_databackup_2_1"}},
        {"G1", "log", "08:10:00", "08:10:01", {log_name(2, 100, 110)}},
        {"G2", "log", "08:20:00", "08:20:01", {log_name(2, 110, 120)}},
        {"C2", "catalog", "08:20:03", "08:20:04", {catalog_name}}};
    insert_sets(server_.database, lines, resource_);
    for (const Set_Line& line : lines)
      for (const std::string& file : line.files) put(line, file, stored_bytes);
  }
  /// From here on only an agent reaches the pool.
  void move_pool_away() {
    ASSERT_TRUE(server_.database.write([](backupd::Sql_Session& session) {
      session.execute("UPDATE pools SET url = 'file:///far', directory = '', host_uuid = ''");
      return true;
    }));
  }
  void put(const Set_Line& line, const std::string& file, std::size_t bytes) {
    server_.root.write("/pool/" + stored_path(line, file), std::string(bytes, 'x'));
  }

  Answer plan(const std::string& more, const std::string& database = "TN1") {
    return server_.request("POST", "/restore/plan",
                           R"({"resource_uuid":")" + resource_ + R"(","database":")" + database + "\"" + more + "}",
                           server_.viewer_key);
  }
  static std::string at(const std::string& clock) { return R"(,"time":")" + time_at(clock) + "\""; }
  static std::string codes(const Answer& answer, const char* list = "refusals") {
    json_spirit::Array rows;
    json_spirit::object_get(answer.body, list, rows);
    std::string text;
    for (const json_spirit::Value& row : rows) {
      std::string code;
      json_spirit::object_get(row.get_obj(), "code", code);
      text += (text.empty() ? "" : " ") + code;
    }
    return text;
  }
  static json_spirit::Object object(const json_spirit::Object& from, const char* key) {
    json_spirit::Object found;
    json_spirit::object_get(from, key, found);
    return found;
  }

  static constexpr std::size_t stored_bytes = 400;
  Memory_Server server_;
  std::string resource_;
};

TEST_F(Restore_Planning_Test, Shows_What_A_Recovery_Reads_And_That_It_Is_There) {
  make_history();
  Fake_Agent agent(server_, server_.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  const Answer answer = plan(at("08:15:00"));
  ASSERT_EQ(answer.status, 200U) << answer.text;
  EXPECT_EQ(codes(answer), "");
  EXPECT_EQ(json_spirit::dump_json(*answer.body.find("ok")), "true");
  EXPECT_EQ(answer.text_of("kind"), "point-in-time");
  EXPECT_EQ(answer.text_of("statement"),
            "RECOVER DATABASE FOR TN1 UNTIL TIMESTAMP '2026-11-20 08:15:00' CLEAR LOG  USING CATALOG BACKINT USING "
            "BACKUP_ID " +
                std::to_string(backup_id_at("08:00:00")) + " CHECK ACCESS ALL");
  json_spirit::Array sets;
  json_spirit::object_get(answer.body, "sets", sets);
  ASSERT_EQ(sets.size(), 3U);
  json_spirit::Array objects;
  json_spirit::object_get(sets[2].get_obj(), "objects", objects);
  ASSERT_EQ(objects.size(), 1U);
  std::string state;
  json_spirit::object_get(objects[0].get_obj(), "state", state);
  EXPECT_EQ(state, "present");
  EXPECT_EQ(json_spirit::dump_json(object(answer.body, "totals")), R"({"objects":5,"size":5000,"stored_size":2000})");
  const json_spirit::Object catalog = object(answer.body, "catalog");
  EXPECT_EQ(json_spirit::dump_json(*catalog.find("staged")), "true");
  const json_spirit::Object target = object(answer.body, "target");
  EXPECT_EQ(json_spirit::dump_json(*target.find("in_place")), "true");
  EXPECT_EQ(json_spirit::dump_json(*target.find("stops")), R"("database")");
}

TEST_F(Restore_Planning_Test, Names_The_Objects_That_Are_Missing_Or_Cut) {
  make_history();
  Fake_Agent agent(server_, server_.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  const Set_Line log{"G1", "log", "08:10:00", "", {}};
  const Set_Line full{"F1", "full", "08:00:00", "", {}};
  ASSERT_EQ(std::remove(server_.root.real("/pool/" + stored_path(full, "F1_databackup_2_1")).c_str()), 0);
  put(log, log_name(2, 100, 110), 399);
  const Answer answer = plan(at("08:15:00"));
  EXPECT_EQ(codes(answer), "object_missing object_size");
  EXPECT_NE(answer.text.find("the object F1_databackup_2_1 of the full backup of 2026-11-20 08:00:01"),
            std::string::npos)
      << answer.text;
  EXPECT_NE(answer.text.find(R"("found_size":399)"), std::string::npos) << answer.text;
}

TEST_F(Restore_Planning_Test, Asks_An_Agent_For_A_Pool_That_It_Cannot_Reach) {
  make_history();
  const Answer pool =
      server_.request("POST", "/pools", R"({"name":"far","url":"file:///far","uuid":")" + uuid_of(8) + "\"}");
  ASSERT_EQ(pool.status, 201U) << pool.text;
  std::string asked;
  Fake_Agent agent(server_, server_.agent_key, [&](const std::string& method, const json_spirit::Value& params) {
    JSON_RPC_Answer answer = obedient(method, params);
    if (method != "pool.list") return answer;
    asked = json_spirit::dump_json(params);
    answer.ok = true;
    answer.result = json_spirit::Object{
        {"directories",
         json_spirit::Array{json_spirit::Object{
             {"path", "d"},
             {"entries", json_spirit::Array{json_spirit::Object{{"name", "a"}, {"directory", false}, {"size", 7}},
                                            json_spirit::Object{{"name", "b"}, {"directory", false}, {"size", 8}},
                                            json_spirit::Object{{"name", "c"}, {"directory", true}, {"size", 7}}}}}}}};
    return answer;
  });
  ASSERT_TRUE(agent.hello(host_a).ok);
  std::vector<backupd::Pool_Inspector::Object> objects{{"d/a", 7}, {"d/b", 7}, {"d/c", 7}, {"e/a", 7}};
  const backupd::Outcome outcome = server_.core->inspector.look(uuid_of(8), host_a, objects);
  ASSERT_TRUE(outcome.ok()) << outcome.message;
  EXPECT_EQ(asked, R"({"url":"file:///far","directories":["d","e"]})");
  std::string states;
  for (const auto& object : objects) states += std::string(backupd::to_text(object.state)) + ";";
  EXPECT_EQ(states, "present;wrong size;missing;missing;");
}

TEST_F(Restore_Planning_Test, Tells_When_Nobody_Can_Look_Or_Restore) {
  make_history();
  EXPECT_EQ(codes(plan(at("08:15:00"))), "agent_away");
  std::vector<backupd::Pool_Inspector::Object> objects{{"d/a", 7}};
  EXPECT_FALSE(server_.core->inspector.look(uuid_of(9), host_a, objects).ok());
  EXPECT_EQ(objects[0].state, backupd::Pool_Inspector::State::unknown);
}

TEST_F(Restore_Planning_Test, Names_Nearest_Times_On_A_Pool_That_Nobody_Can_Look_At) {
  make_history();
  insert_sets(server_.database, {{"F2", "full", "09:00:00", "09:01:00", {"F2_databackup_0_1"}}}, resource_);
  move_pool_away();
  const Answer answer = plan(at("08:40:00"));
  EXPECT_EQ(codes(answer), "logs_too_short agent_away pool_not_looked_at");
  EXPECT_EQ(json_spirit::dump_json(object(answer.body, "before")), R"({"time":"2026-11-20 08:19:59"})");
  EXPECT_EQ(json_spirit::dump_json(object(answer.body, "after")),
            R"({"time":"2026-11-20 09:00:01","set":")" + uuid_named("F2") + "\"}");
  EXPECT_NE(answer.text.find(R"("state":"unknown")"), std::string::npos) << answer.text;
}

TEST_F(Restore_Planning_Test, Waits_Once_For_A_Pool_That_Nobody_Can_Look_At) {
  make_history();
  move_pool_away();
  int looks = 0;
  Fake_Agent agent(server_, server_.agent_key, [&](const std::string& method, const json_spirit::Value& params) {
    if (method != "pool.list") return obedient(method, params);
    ++looks;
    return bad(JSON_RPC_E_SERVER, "the mount hangs");
  });
  ASSERT_TRUE(agent.hello(host_a).ok);
  const Answer answer = plan(at("08:40:00"));
  EXPECT_EQ(codes(answer), "logs_too_short pool_not_looked_at");
  EXPECT_NE(answer.text.find("the mount hangs"), std::string::npos) << answer.text;
  EXPECT_EQ(looks, 1);
}

TEST_F(Restore_Planning_Test, Restores_Under_Another_Name_And_Into_Another_System) {
  make_history();
  const std::string other = add_system(
      "QAS_HDB01",
      R"({"sid":"QAS","instance_name":"HDB01","multi_container":true,"version":"2.00.059.00","landscape_id":"q"})");
  Fake_Agent agent(server_, server_.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  const Answer renamed = plan(at("08:15:00") + R"(,"target":{"database":"TN2"})");
  EXPECT_NE(renamed.text_of("statement")
                .find("FOR TN2 UNTIL TIMESTAMP '2026-11-20 08:15:00' CLEAR LOG USING SOURCE 'TN1@HDB' "),
            std::string::npos);
  EXPECT_EQ(json_spirit::dump_json(*object(renamed.body, "target").find("in_place")), "false");
  const Answer moved = plan(R"(,"set":")" + uuid_named("F1") + R"(","target":{"resource_uuid":")" + other + "\"}");
  EXPECT_EQ(moved.text_of("statement"),
            "RECOVER DATA FOR TN1 USING SOURCE 'TN1@HDB' USING BACKINT ('" + uuid_named("F1") + "') CLEAR LOG;");
  EXPECT_EQ(codes(moved), "");
  EXPECT_EQ(codes(plan(at("08:15:00") + R"(,"target":{"database":"SYSTEMDB"})")), "target_unfit");
}

TEST_F(Restore_Planning_Test, Stops_The_Instance_For_A_Single_Container) {
  resource_ = add_system(
      "ONE_HDB02",
      R"({"sid":"ONE","instance_name":"HDB02","multi_container":false,"version":"1.00.097","landscape_id":"o"})");
  make_history();
  Fake_Agent agent(server_, server_.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  const Answer answer = plan(at("08:15:00"));
  EXPECT_EQ(answer.text_of("statement"),
            "RECOVER DATABASE UNTIL TIMESTAMP '2026-11-20 08:15:00' CLEAR LOG  USING BACKUP_ID " +
                std::to_string(backup_id_at("08:00:00")) + " CHECK ACCESS ALL");
  EXPECT_EQ(json_spirit::dump_json(*object(answer.body, "target").find("stops")), R"("instance")");
}

TEST_F(Restore_Planning_Test, Refuses_A_Kind_Of_Database_That_HANA_Would_Refuse_Behind_The_Stop) {
  const std::string several = resource_;
  const auto alone = [this](const std::string& sid) {
    return add_system(sid + "_HDB02", R"({"sid":")" + sid +
                                          R"(","instance_name":"HDB02","multi_container":false,)"
                                          R"("version":"2.00.059.00","landscape_id":"o"})");
  };
  const std::string single = alone("ONE");
  const std::string other_single = alone("TWO");
  Fake_Agent agent(server_, server_.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  std::vector<Set_Line> lines;
  for (const char* database : {"ONE", "SYSTEMDB", "TN1"}) {
    lines.push_back({std::string("F_") + database, "full", "08:00:00", "08:01:00", {"F_databackup_0_1"}});
    lines.back().database = database;
    put(lines.back(), "F_databackup_0_1", stored_bytes);
  }
  insert_sets(server_.database, {lines[0]}, single);
  insert_sets(server_.database, {lines[1], lines[2]}, several);
  struct Row {
    const std::string& from;
    const char* database;
    const std::string& into;
    const char* as;
    const char* refused;
  };
  for (const Row& row :
       {Row{single, "ONE", other_single, "TWO", ""}, Row{single, "ONE", several, "TN9", ""},
        Row{single, "ONE", several, "SYSTEMDB", "target_unfit"}, Row{several, "TN1", single, "ONE", "target_unfit"},
        Row{several, "SYSTEMDB", single, "ONE", "target_unfit"},
        Row{several, "SYSTEMDB", several, "TN1", "target_unfit"}, Row{several, "TN1", several, "TN9", ""}}) {
    resource_ = row.from;
    const Answer answer =
        plan(R"(,"set":")" + uuid_named(std::string("F_") + row.database) + R"(","target":{"resource_uuid":")" +
                 row.into + R"(","database":")" + row.as + R"("})",
             row.database);
    EXPECT_EQ(codes(answer), row.refused) << row.database << " as " << row.as << ": " << answer.text;
  }
}

TEST_F(Restore_Planning_Test, Refuses_A_HANA_Of_A_Version_That_Nobody_Knows) {
  const std::string attributes = R"({"sid":"QAS","instance_name":"HDB01","multi_container":true,"landscape_id":"q")";
  const std::string unknown = add_system("QAS_HDB01", attributes + R"(,"version":""})");
  make_history();
  Fake_Agent agent(server_, server_.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  const std::string into = at("08:15:00") + R"(,"target":{"resource_uuid":")" + unknown + "\"}";
  const Answer refused = plan(into);
  EXPECT_EQ(codes(refused), "version_unknown");
  EXPECT_NE(refused.text.find("dorsal3 discover"), std::string::npos) << refused.text;
  ASSERT_EQ(add_system("QAS_HDB01", attributes + R"(,"version":"2.00.059.00"})"), unknown);
  EXPECT_EQ(codes(plan(into)), "");
}

TEST_F(Restore_Planning_Test, Refuses_A_Wish_Without_Sense) {
  make_history();
  struct Row {
    const char* name;
    std::string more;
    unsigned status;
  };
  for (const Row& row :
       {Row{"neither time nor set", "", 400},
        Row{"both", at("08:15:00") + R"(,"set":")" + uuid_named("F1") + "\"", 400},
        Row{"another form of time", R"(,"time":"2026-11-20T08:15:00Z")", 422},
        Row{"an unknown key", at("08:15:00") + R"(,"when":1)", 400},
        Row{"an unknown set", R"(,"set":")" + uuid_of(77) + "\"", 404},
        Row{"a name that bends a statement", at("08:15:00") + R"(,"target":{"database":"T'"})", 422},
        Row{"an unknown target", at("08:15:00") + R"(,"target":{"resource_uuid":")" + uuid_of(1) + "\"}", 404}})
    EXPECT_EQ(plan(row.more).status, row.status) << row.name;
  EXPECT_EQ(plan(at("08:15:00"), "TN9").status, 404U);
  EXPECT_EQ(server_.agent("POST", "/restore/plan", "{}").status, 403U);
}

}  // namespace
