#include "backupd/log_backup/ondemand_records.h"

#include "unit/backupd/ondemand_fixture.h"

using namespace backupd_test;

namespace {

constexpr long backup_id = 77;
constexpr const char* last = ",\"last\":true";
constexpr const char* not_last = "";

std::string log_name(int number) { return "log_backup_" + std::to_string(number) + "_0_10_20"; }

/// Calls of HANA that share one backup id, and so one record.
class Ondemand_Records_Test : public Ondemand_Fixture {
 protected:
  /// One call of hdbbackint begins: the uuid of its record.
  std::string call(int number) {
    const Answer job = server.agent("POST", "/backint/on-demand-jobs", ondemand(number, backup_id));
    EXPECT_LE(job.status, 201U) << job.text;
    return job.text_of("uuid");
  }
  Answer save(const std::string& job, int number, const char* end, const std::string& name = "") {
    return server.agent(
        "POST", "/backint/jobs/" + job + "/files",
        R"({"files":[)" + file_json("e-" + std::to_string(number), name.empty() ? log_name(number) : name, backup_id) +
            "]" + end + "}");
  }
  /// Commits a set of the objects with these numbers.
  void commit_set(int uuid, const std::vector<int>& numbers, const std::vector<std::string>& names = {}) {
    std::string body = set_json(uuid_of(uuid), "e-x", "log", "2026-01-01 10:00:00", backup_id);
    const std::size_t begin = body.find("\"files\":[") + 9;
    const std::size_t end = body.find("],\"storages\"");
    std::string files;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
      std::string file = body.substr(begin, end - begin);
      file.replace(file.find("e-x"), 3, "e-" + std::to_string(numbers[i]));
      file.replace(file.find("pipe_0"), 6, names.empty() ? log_name(numbers[i]) : names[i]);
      files += (i == 0 ? "" : ",") + file;
    }
    body.replace(begin, end - begin, files);
    const Answer answer = server.agent("POST", "/sets", body);
    EXPECT_EQ(answer.status, 201U) << answer.text;
  }
  /// The set that holds the object, 0 for none; fails unless the object is stored exactly once.
  long set_of(int number) {
    long set = -1;
    EXPECT_TRUE(server.database.read([&](backupd::Sql_Session& session) {
      const auto rows = session.query("SELECT set_id FROM backint_files WHERE extern_backup_id = :a",
                                      {"e-" + std::to_string(number)}, 1);
      EXPECT_EQ(rows.size(), 1U) << number;
      if (rows.size() == 1) set = static_cast<long>(rows.front().number(0));
    }));
    return set;
  }
  json_spirit::Array owed(const std::string& query = "") {
    return server.request("GET", "/backint/ondemand-runs" + query).rows();
  }
  static std::string text(const json_spirit::Value& row, const char* key) {
    std::string value;
    EXPECT_TRUE(json_spirit::object_get(row.get_obj(), key, value)) << key;
    return value;
  }
  json_spirit::Array drain(const std::string& database = "TN1") {
    const Answer answer =
        server.agent("POST", "/backint/ondemand-runs/drain",
                     std::string(R"({"host_uuid":")") + host_a + R"(","sid":"HDB","database":")" + database + "\"}");
    EXPECT_EQ(answer.status, 200U) << answer.text;
    return answer.rows();
  }
  void sweep() {
    const Answer answer = server.request("POST", "/retention/sweep", "{}");
    EXPECT_EQ(answer.status, 200U) << answer.text;
    server.log.claim_containing("broke off");
  }
  /// Until the starter has found that an entry has no definition.
  void wait_for_no_definition(std::size_t row) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (text(owed().at(row), "message").find("definition was removed") == std::string::npos &&
           std::chrono::steady_clock::now() < end)
      std::this_thread::yield();
    EXPECT_NE(text(owed().at(row), "message").find("enable log backup for it again"), std::string::npos);
  }
  void remove_definitions() {
    ASSERT_TRUE(server.database.write([](backupd::Sql_Session& session) {
      session.execute("DELETE FROM job_definitions");
      return true;
    }));
  }
};

TEST_F(Ondemand_Records_Test, Calls_With_One_Backup_Id_Become_One_Set) {
  const std::string job = call(1);
  EXPECT_EQ(call(2), job);
  EXPECT_EQ(save(job, 1, last).status, 201U);
  EXPECT_EQ(save(job, 2, last).status, 201U);
  EXPECT_EQ(entries(), 1);
  commit_set(501, {1, 2});
  EXPECT_EQ(entries(), 0);
  EXPECT_EQ(set_of(1), set_of(2));
  EXPECT_GT(set_of(1), 0);
}

TEST_F(Ondemand_Records_Test, Log_And_Catalog_Of_One_Call_Become_One_Set) {
  const std::string job = call(1);
  EXPECT_EQ(save(job, 1, not_last).status, 201U);
  EXPECT_EQ(save(job, 2, last, "log_backup_0_0_0_0").status, 201U);
  commit_set(501, {1, 2}, {log_name(1), "log_backup_0_0_0_0"});
  EXPECT_EQ(entries(), 0);
  EXPECT_EQ(set_of(1), set_of(2));
}

TEST_F(Ondemand_Records_Test, What_Is_Saved_After_The_Set_Was_Committed_Is_Owed_A_Run_Of_Its_Own) {
  const std::string job = call(1);
  EXPECT_EQ(call(2), job);
  EXPECT_EQ(save(job, 1, last).status, 201U);
  commit_set(501, {1});
  EXPECT_EQ(entries(), 0);
  // The other call goes on with the record that it was given.
  const Answer saved = save(job, 2, last);
  ASSERT_EQ(saved.status, 201U) << saved.text;
  EXPECT_EQ(entries(), 1);
  EXPECT_EQ(set_of(2), 0);
  const std::string successor = text(owed().at(0), "backint_job_uuid");
  EXPECT_NE(successor, job);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + successor + "/files").number_of("total"), 1);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + successor).number_of("database_backup_id"), backup_id);
  // Its answer was lost.
  EXPECT_EQ(save(job, 2, last).status, 200U);
  commit_set(502, {2});
  EXPECT_EQ(entries(), 0);
  EXPECT_EQ(save(job, 2, last).status, 200U);
  EXPECT_EQ(entries(), 0);
  EXPECT_NE(set_of(1), set_of(2));
}

TEST_F(Ondemand_Records_Test, What_Was_Saved_While_The_Set_Was_Made_Is_Owed_A_Run_Of_Its_Own) {
  const std::string job = call(1);
  EXPECT_EQ(save(job, 1, last).status, 201U);
  // The run has read the list of objects and takes the record; the set comes later.
  EXPECT_EQ(save(job, 2, last).status, 201U);
  EXPECT_EQ(server.agent("DELETE", "/backint/jobs/" + job).status, 200U);
  EXPECT_EQ(save(job, 3, not_last).status, 201U);
  commit_set(501, {1});
  ASSERT_EQ(entries(), 1);
  const std::string successor = text(owed().at(0), "backint_job_uuid");
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + successor + "/files").number_of("total"), 2);
  commit_set(502, {2, 3});
  EXPECT_EQ(entries(), 0);
  EXPECT_EQ(set_of(2), set_of(3));
  EXPECT_NE(set_of(1), set_of(2));
}

TEST_F(Ondemand_Records_Test, What_Was_Saved_By_A_Call_That_Broke_Off_Is_Recorded_An_Hour_Later) {
  const std::string job = call(1);
  EXPECT_EQ(save(job, 1, not_last).status, 201U);
  server.clock.pass_wall(std::chrono::seconds(backupd::abandoned_seconds));
  sweep();
  EXPECT_EQ(entries(), 0) << "a writer may still be at work";
  EXPECT_EQ(save(job, 2, not_last).status, 201U);
  server.clock.pass_wall(std::chrono::seconds(backupd::abandoned_seconds));
  sweep();
  EXPECT_EQ(entries(), 0) << "it was, just now";
  server.clock.pass_wall(std::chrono::seconds(1));
  sweep();
  EXPECT_EQ(entries(), 1);
  sweep();
  EXPECT_EQ(entries(), 1);
  commit_set(501, {1, 2});
  sweep();
  EXPECT_EQ(entries(), 0);
  EXPECT_GT(set_of(1), 0);
}

TEST_F(Ondemand_Records_Test, A_Record_Without_Any_Object_Goes_After_A_Day) {
  const std::string dataset = std::string("/pool/") + host_a + "/land-1/TN1/" + std::to_string(backup_id);
  const std::string job = call(1);
  server.root.write(dataset + "/half", "data");
  server.clock.pass_wall(std::chrono::seconds(backupd::empty_seconds));
  sweep();
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + job).status, 200U);
  EXPECT_TRUE(server.root.exists(dataset + "/half"));
  server.clock.pass_wall(std::chrono::seconds(1));
  sweep();
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + job).status, 404U);
  EXPECT_FALSE(server.root.exists(dataset));
  EXPECT_EQ(save(job, 1, last).status, 404U) << "such a late writer is told that nothing was saved";
}

TEST_F(Ondemand_Records_Test, The_Record_Of_A_Data_Backup_Is_Nobody_Elses_To_Clean_Up) {
  server.add_object(uuid_of(1), "e-1", "", "TN1", backup_id);
  server.clock.pass_wall(std::chrono::seconds(10 * backupd::empty_seconds));
  sweep();
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(1)).status, 200U);
  EXPECT_EQ(entries(), 0);
}

TEST_F(Ondemand_Records_Test, The_Queue_Shows_What_Waits_And_Why) {
  back_up(1);
  back_up(2);
  back_up(3, "TN2");
  json_spirit::Array rows = owed();
  ASSERT_EQ(rows.size(), 3U);
  EXPECT_EQ(text(rows[0], "state"), "waiting");
  EXPECT_EQ(text(rows[0], "message"), "");
  EXPECT_EQ(text(rows[0], "definition_uuid"), definition);
  EXPECT_EQ(text(rows[1], "message"), "waits until the earlier log backups of the database are recorded");
  EXPECT_EQ(owed("?database=TN2").size(), 1U);
  EXPECT_EQ(owed("?sid=XYZ").size(), 0U);
  EXPECT_EQ(owed(std::string("?host_uuid=") + host_b).size(), 0U);
  come();
  static_cast<void>(run(2));
  EXPECT_EQ(text(owed("?database=TN2").at(0), "state"), "running");
}

TEST_F(Ondemand_Records_Test, A_Drained_Database_Does_Not_Wait_For_Its_Pause) {
  come();
  back_up(1);
  fail(run(1), 1);
  back_up(2);
  EXPECT_EQ(runs_after_a_look(), 1U);
  EXPECT_TRUE(drain("TN2").empty());
  EXPECT_EQ(runs_after_a_look(), 1U);
  EXPECT_EQ(drain().size(), 2U);
  const Started again = run(2);
  EXPECT_EQ(again.job, uuid_of(1));
  commit(1, again.run);
  report(again.run, completed);
  const Started next = run(3);
  EXPECT_EQ(next.job, uuid_of(2));
  commit(2, next.run);
  EXPECT_TRUE(drain().empty());
}

TEST_F(Ondemand_Records_Test, Another_Host_Cannot_Drain) {
  const Answer answer = server.request("POST", "/backint/ondemand-runs/drain",
                                       std::string(R"({"host_uuid":")") + host_a + R"(","sid":"HDB","database":"TN1"})",
                                       server.other_agent_key);
  EXPECT_EQ(answer.status, 403U) << answer.text;
  EXPECT_EQ(server.agent("POST", "/backint/ondemand-runs/drain", "{}").status, 400U);
}

TEST_F(Ondemand_Records_Test, Without_A_Definition_A_Backup_Waits_Until_There_Is_One) {
  back_up(1);
  back_up(2);
  remove_definitions();
  come();
  wait_for_no_definition(0);
  wait_for_no_definition(1);
  EXPECT_EQ(server.log.claim_containing("was removed, and no other one backs up the logs", LM_WARNING), 2U);
  pass(minute * 600);
  EXPECT_EQ(runs_after_a_look(), 0U) << "it is not tried again and again";
  EXPECT_EQ(server.request("GET", "/jobs").number_of("total"), 0);

  // One for another database is of no use.
  const auto enable = [&](const char* entry) {
    std::string body = definition_json("", entry);
    body.replace(body.find("\"full\""), 6, "\"log\"");
    body.replace(body.find(resource_uuid), std::string(resource_uuid).size(), server.add_instance(host_a));
    const Answer answer = server.request("POST", "/job-definitions", body);
    EXPECT_EQ(answer.status, 201U) << answer.text;
    return answer.text_of("id");
  };
  static_cast<void>(enable("hana/HDB00/TN2"));
  wait_for_no_definition(0);
  wait_for_no_definition(1);
  EXPECT_EQ(runs_after_a_look(), 0U);
  const std::string instance = enable("hana/HDB00");
  const Started first = run(1);
  EXPECT_EQ(first.job, uuid_of(1));
  EXPECT_EQ(first.definition, instance);
  server.log.claim_containing("was removed, and no other one backs up the logs", LM_WARNING);
}

TEST_F(Ondemand_Records_Test, Another_Definition_Of_The_Database_Takes_Over_At_Once) {
  back_up(1);
  remove_definitions();
  std::string body = definition_json();
  body.replace(body.find("\"full\""), 6, "\"log\"");
  body.replace(body.find(resource_uuid), std::string(resource_uuid).size(), server.add_instance(host_a));
  const std::string other = server.request("POST", "/job-definitions", body).text_of("id");
  come();
  EXPECT_EQ(run(1).definition, other);
  EXPECT_EQ(text(owed().at(0), "definition_uuid"), other);
}

}  // namespace
