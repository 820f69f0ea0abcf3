#include "unit/backupd/memory_server.h"

using namespace backupd_test;

namespace {

const std::string job = uuid_of(1);

TEST(Backint_Store, Keeps_A_Job_Record_As_It_Came) {
  Memory_Server server;
  server.add_pool();
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(job, "act")).status, 201U);
  const Answer answer = server.agent("GET", "/backint/jobs/" + job);
  EXPECT_EQ(answer.status, 200U);
  sap_hana::Backint_Backup_Job_Info record;
  std::string error;
  ASSERT_TRUE(record.from_json(answer.body, &error)) << error;
  EXPECT_EQ(record.uuid, job);
  EXPECT_EQ(record.database, "TN1");
  EXPECT_EQ(record.job_act_id, "act");
  EXPECT_EQ(record.compression, "zstd");
  EXPECT_EQ(json_spirit::dump_json(record.extended_attrs), R"({"io_ctl":{"max_seconds_retry":300}})");
  EXPECT_EQ(server.agent("GET", "/backint/jobs?database=TN1").number_of("total"), 1);
  EXPECT_EQ(server.agent("GET", "/backint/jobs?database=TN2").number_of("total"), 0);
}

TEST(Backint_Store, Refuses_Unsound_Job_Records) {
  Memory_Server server;
  server.add_pool();
  struct Row {
    const char* name;
    const char* from;
    const char* to;
    unsigned status;
  };
  for (const Row& row :
       {Row{"no uuid", "\"uuid\":\"aaaa", "\"uuid\":\"zzzz", 422}, Row{"an unknown compression", "zstd", "gzip", 422},
        Row{"a database that climbs", "\"database\":\"TN1\"", "\"database\":\"..\"", 422},
        Row{"a landscape with a slash", "land-1", "land/1", 422}, Row{"an unknown key", "\"type\"", "\"kind\"", 400},
        Row{"a wrong type", "\"sid\":\"HDB\"", "\"sid\":5", 400},
        Row{"an unknown pool", pool_uuid, "99999999-3333-4333-8333-333333333333", 422}}) {
    std::string body = job_json(job);
    const std::size_t at = body.find(row.from);
    ASSERT_NE(at, std::string::npos) << row.name;
    body.replace(at, std::string(row.from).size(), row.to);
    const Answer answer = server.agent("POST", "/backint/jobs", body);
    EXPECT_EQ(answer.status, row.status) << row.name << ": " << answer.text;
  }
  EXPECT_EQ(server.agent("GET", "/backint/jobs").number_of("total"), 0);
}

TEST(Backint_Store, Refuses_A_Second_Record_With_One_Uuid) {
  Memory_Server server;
  server.add_pool();
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(job)).status, 201U);
  const Answer second = server.agent("POST", "/backint/jobs", job_json(job, "", "TN2"));
  EXPECT_EQ(second.status, 409U);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + job).text_of("database"), "TN1");
}

std::string ondemand_json(int number, const std::string& type = "log", long backup_id = 100,
                          const std::string& database = "TN1") {
  std::string body = job_json(uuid_of(number), "", database, backup_id);
  const std::string kind = "\"type\":\"full\"";
  const std::size_t at = body.find(kind);
  EXPECT_NE(at, std::string::npos) << body;
  return body.replace(at, kind.size(), "\"type\":\"" + type + "\"");
}

TEST(Backint_Store, Answers_The_Record_Of_A_Log_Backup_That_Is_Asked_For_Again) {
  Memory_Server server;
  server.add_pool();
  // The data backup of the same id is another one.
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(uuid_of(1), "act", "TN1", 100)).status, 201U);
  const Answer first = server.agent("POST", "/backint/on-demand-jobs", ondemand_json(2));
  EXPECT_EQ(first.status, 201U) << first.text;
  EXPECT_EQ(first.text_of("uuid"), uuid_of(2));
  const Answer again = server.agent("POST", "/backint/on-demand-jobs", ondemand_json(3));
  EXPECT_EQ(again.status, 200U);
  EXPECT_EQ(again.text_of("uuid"), uuid_of(2));
  EXPECT_EQ(again.number_of("database_backup_id"), 100);
  server.restart();
  EXPECT_EQ(server.agent("POST", "/backint/on-demand-jobs", ondemand_json(3)).text_of("uuid"), uuid_of(2));
  EXPECT_EQ(server.agent("GET", "/backint/jobs").number_of("total"), 2);
}

TEST(Backint_Store, Keeps_Other_Log_Backups_Apart) {
  Memory_Server server;
  server.add_pool();
  ASSERT_EQ(server.agent("POST", "/backint/on-demand-jobs", ondemand_json(1)).status, 201U);
  EXPECT_EQ(server.agent("POST", "/backint/on-demand-jobs", ondemand_json(2, "catalog")).status, 201U);
  EXPECT_EQ(server.agent("POST", "/backint/on-demand-jobs", ondemand_json(3, "log", 101)).status, 201U);
  EXPECT_EQ(server.agent("POST", "/backint/on-demand-jobs", ondemand_json(4, "log", 100, "TN2")).status, 201U);
  // A record that its set has taken is closed.
  ASSERT_EQ(server.agent("DELETE", "/backint/jobs/" + uuid_of(1)).status, 200U);
  const Answer next = server.agent("POST", "/backint/on-demand-jobs", ondemand_json(5));
  EXPECT_EQ(next.status, 201U);
  EXPECT_EQ(next.text_of("uuid"), uuid_of(5));
}

TEST(Backint_Store, Refuses_Unsound_Records_Of_Log_Backups) {
  Memory_Server server;
  server.add_pool();
  struct Row {
    const char* name;
    std::string body;
    unsigned status;
  };
  const Row rows[] = {{"a full backup", ondemand_json(1, "full"), 422},
                      {"no backup id", ondemand_json(1, "log", 0), 422},
                      {"with a run", job_json(uuid_of(1), "act", "TN1", 100), 422},
                      {"no object", "[]", 400}};
  for (const Row& row : rows)
    EXPECT_EQ(server.agent("POST", "/backint/on-demand-jobs", row.body).status, row.status) << row.name;
  std::string no_pool = ondemand_json(1);
  no_pool.replace(no_pool.find(pool_uuid), 8, "99999999");
  EXPECT_EQ(server.agent("POST", "/backint/on-demand-jobs", no_pool).status, 422U);
  EXPECT_EQ(server.agent("GET", "/backint/jobs").number_of("total"), 0);
}

TEST(Backint_Store, Sets_The_Backup_Id_Once) {
  Memory_Server server;
  server.add_pool();
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(job)).status, 201U);
  const std::string path = "/backint/jobs/" + job;
  EXPECT_EQ(server.agent("PATCH", path, R"({"database_backup_id":0})").status, 422U);
  EXPECT_EQ(server.agent("PATCH", path, R"({"database_backup_id":1707397841205})").number_of("database_backup_id"),
            1707397841205);
  EXPECT_EQ(server.agent("PATCH", path, R"({"database_backup_id":1707397841205})").status, 200U);
  EXPECT_EQ(server.agent("PATCH", path, R"({"database_backup_id":1707397841206})").status, 409U);
  EXPECT_EQ(server.agent("GET", path).number_of("database_backup_id"), 1707397841205);
  EXPECT_EQ(server.agent("PATCH", "/backint/jobs/" + uuid_of(9), R"({"database_backup_id":1})").status, 404U);
}

TEST(Backint_Store, Keeps_A_Taken_Record_And_Its_Files_Readable) {
  Memory_Server server;
  server.add_pool();
  server.add_object(job, "ebid-1");
  const std::string path = "/backint/jobs/" + job;
  EXPECT_FALSE(server.agent("GET", path).body.contains("taken"));
  EXPECT_EQ(server.agent("DELETE", path).status, 200U);
  EXPECT_EQ(server.agent("DELETE", path).status, 200U);
  bool taken = false;
  json_spirit::object_get(server.agent("GET", path).body, "taken", taken);
  EXPECT_TRUE(taken);
  EXPECT_EQ(server.agent("GET", path + "/files").number_of("total"), 1);
  EXPECT_EQ(server.agent("GET", "/backint/jobs").number_of("total"), 0);
  EXPECT_EQ(server.agent("POST", path + "/files", R"({"files":[)" + file_json("ebid-2") + "]}").status, 409U);
  EXPECT_EQ(server.agent("POST", path + "/files", R"({"files":[)" + file_json("ebid-1") + "]}").status, 200U);
  EXPECT_EQ(server.agent("DELETE", "/backint/jobs/" + uuid_of(9)).status, 404U);
}

TEST(Backint_Store, Answers_The_Same_Files_Again_As_Done) {
  Memory_Server server;
  server.add_pool();
  server.add_object(job, "ebid-1");
  const std::string path = "/backint/jobs/" + job + "/files";
  EXPECT_EQ(server.agent("POST", path, R"({"files":[)" + file_json("ebid-1") + "]}").status, 200U);
  std::string other = file_json("ebid-1");
  other.replace(other.find("\"size\":1000"), 11, "\"size\":2000");
  EXPECT_EQ(server.agent("POST", path, R"({"files":[)" + other + "]}").status, 409U);
  EXPECT_EQ(server.agent("GET", path).number_of("total"), 1);
}

TEST(Backint_Store, Stores_All_Files_Or_None) {
  Memory_Server server;
  server.add_pool();
  server.add_object(job, "ebid-1");
  const std::string path = "/backint/jobs/" + job + "/files";
  std::string other = file_json("ebid-1");
  other.replace(other.find("\"size\":1000"), 11, "\"size\":2000");
  EXPECT_EQ(server.agent("POST", path, R"({"files":[)" + file_json("ebid-2") + "," + other + "]}").status, 409U);
  EXPECT_EQ(server.agent("GET", path).number_of("total"), 1);
  EXPECT_EQ(server.agent("POST", path, R"({"files":[]})").status, 422U);
  EXPECT_EQ(
      server.agent("POST", "/backint/jobs/" + uuid_of(9) + "/files", R"({"files":[)" + file_json("e") + "]}").status,
      404U);
}

TEST(Backint_Store, Refuses_Unsound_File_Records) {
  Memory_Server server;
  server.add_pool();
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(job)).status, 201U);
  struct Row {
    const char* name;
    std::string from;
    std::string to;
    unsigned status;
  };
  const std::string directory = std::string(host_a) + "/land-1";
  for (const Row& row :
       {Row{"no id", "\"extern_backup_id\":\"e\"", "\"extern_backup_id\":\"\"", 422},
        Row{"a path that climbs", directory, "../x", 422}, Row{"an absolute path", directory, "/x", 422},
        Row{"a short checksum", "00112233", "0011", 422}, Row{"an unknown key", "\"size\"", "\"bytes\"", 400},
        Row{"a foreign job", "{\"filename\"", "{\"info_uuid\":\"x\",\"filename\"", 422}}) {
    std::string file = file_json("e");
    const std::size_t at = file.find(row.from);
    ASSERT_NE(at, std::string::npos) << row.name;
    file.replace(at, row.from.size(), row.to);
    const Answer answer = server.agent("POST", "/backint/jobs/" + job + "/files", R"({"files":[)" + file + "]}");
    EXPECT_EQ(answer.status, row.status) << row.name << ": " << answer.text;
  }
}

TEST(Backint_Store, Finds_Files_Newest_First) {
  Memory_Server server;
  server.add_pool();
  server.add_object(uuid_of(1), "ebid-1");
  server.add_object(uuid_of(2), "ebid-2");
  const json_spirit::Array rows = server.agent("GET", "/backint/files?sid=HDB&database=TN1").rows();
  ASSERT_EQ(rows.size(), 2U);
  std::string ebid;
  std::string sid;
  std::string checksum;
  json_spirit::object_get(rows[0].get_obj(), "extern_backup_id", ebid);
  json_spirit::object_get(rows[0].get_obj(), "sid", sid);
  json_spirit::object_get(rows[0].get_obj(), "checksum", checksum);
  EXPECT_EQ(ebid, "ebid-2");
  EXPECT_EQ(sid, "HDB");
  EXPECT_EQ(checksum, "00112233445566778899aabbccddeeff");
  EXPECT_EQ(server.agent("GET", "/backint/files?extern_backup_id=ebid-1").number_of("total"), 1);
  EXPECT_EQ(server.agent("GET", "/backint/files?database=TN2").number_of("total"), 0);
}

TEST(Backint_Store, Removes_A_File_Record_Unless_A_Set_Holds_It) {
  Memory_Server server;
  server.add_pool();
  server.add_object(uuid_of(1), "ebid-1");
  server.add_object(uuid_of(2), "ebid-2");
  ASSERT_EQ(server.agent("POST", "/sets", set_json(uuid_of(21), "ebid-1")).status, 201U);
  EXPECT_EQ(server.agent("DELETE", "/backint/files/1").status, 409U);
  EXPECT_EQ(server.agent("DELETE", "/backint/files/1?force=2").status, 400U);
  EXPECT_EQ(server.agent("DELETE", "/backint/files/1?force=1").status, 200U);
  EXPECT_EQ(server.agent("DELETE", "/backint/files/2").status, 200U);
  EXPECT_EQ(server.agent("DELETE", "/backint/files/2").status, 404U);
  EXPECT_EQ(server.agent("DELETE", "/backint/files/x").status, 400U);
  EXPECT_EQ(server.agent("GET", "/backint/files").number_of("total"), 0);
}

}  // namespace
