#include "backupd/restore/restore_definition_check.h"

#include <gtest/gtest.h>

#include "unit/backupd/memory_server.h"

using namespace backupd_test;

namespace {

std::string restore_json(const std::string& target, const std::string& entry = "",
                         const std::string& options = R"({"ignore_delta":true})") {
  const std::string usual = R"({"original":{"sid":"HDB","database":"TN1"},)"
                            R"("restore_as":{"database":"TN2","timepoint":"2026-11-20 10:00:00"}})";
  return R"({"name":"restore TN1","type":"restore","subtype":"point-in-time","module":"hana","host_uuid":")" +
         std::string(host_a) + R"(","source":{"id":")" + resource_uuid + R"(","name":"HDB_HDB00","entries":[)" +
         (entry.empty() ? usual : entry) + R"(]},"options":)" + options + R"(,"target":{"resource_uuid":")" + target +
         R"("}})";
}

TEST(Restore_Definition, Keeps_The_System_That_Is_Restored_Into) {
  Memory_Server server;
  const std::string target = server.add_instance(host_a);
  const Answer stored = server.request("POST", "/job-definitions", restore_json(target));
  ASSERT_EQ(stored.status, 201U) << stored.text;
  json_spirit::Object kept;
  json_spirit::object_get(stored.body, "target", kept);
  EXPECT_EQ(json_spirit::dump_json(kept), R"({"resource_uuid":")" + target + "\"}");
}

TEST(Restore_Definition, Hands_The_System_To_The_Agent) {
  Memory_Server server;
  const std::string target = server.add_instance(host_a);
  json_spirit::Object definition;
  const std::string id = server.request("POST", "/job-definitions", restore_json(target)).text_of("id");
  ASSERT_TRUE(server.core->definitions.get(id, definition).ok());
  ASSERT_TRUE(server.core->definitions.for_agent(definition).ok());
  json_spirit::Object handed;
  json_spirit::object_get(definition, "target", handed);
  EXPECT_EQ(json_spirit::dump_json(handed), R"({"resource_uuid":")" + target + "\"}");
}

TEST(Restore_Definition, Refuses_An_Entry_That_Would_Take_The_Time_Or_Lifeline_Of_The_One_Before) {
  Memory_Server server;
  const std::string target = server.add_instance(host_a);
  const std::string timed =
      R"({"original":{"sid":"HDB","database":"TN1"},"restore_as":{"timepoint":"2026-11-20 10:00:00"}})";
  const std::string life = R"("lifeline":"6f9619ff-8b86-4d01-b42d-00cf4fc964ff")";
  const std::string in_life =
      R"({"original":{"sid":"HDB","database":"TN2"},"restore_as":{"timepoint":"2026-11-20 11:00:00",)" + life + "}}";
  const std::string by_set =
      R"({"original":{"sid":"HDB","database":"TN3"},"catalog_uuid":"6f9619ff-8b86-4d01-b42d-00cf4fc964f0"})";
  const auto status = [&](const std::string& entries) {
    return server.request("POST", "/job-definitions", restore_json(target, entries)).status;
  };
  EXPECT_EQ(status(by_set + "," + timed + "," + in_life), 201U) << "nothing is left to inherit";
  EXPECT_EQ(status(timed + "," + by_set), 422U);
  EXPECT_EQ(status(in_life + "," + timed), 422U);
  const Answer refused = server.request("POST", "/job-definitions", restore_json(target, timed + "," + by_set));
  EXPECT_NE(refused.error_message().find("has no \"timepoint\" behind one that has"), std::string::npos)
      << refused.text;
}

TEST(Restore_Definition, Refuses_A_System_That_Nobody_Registered) {
  Memory_Server server;
  const Answer answer = server.request("POST", "/job-definitions", restore_json(resource_uuid));
  EXPECT_EQ(answer.status, 422U);
  EXPECT_NE(answer.error_message().find("is not registered"), std::string::npos) << answer.text;
}

TEST(Restore_Definition, Refuses_A_Host_That_Is_None_Of_The_System) {
  Memory_Server server;
  const std::string target = server.add_instance(host_b);
  const Answer refused = server.request("POST", "/job-definitions", restore_json(target));
  EXPECT_EQ(refused.status, 422U);
  EXPECT_NE(refused.error_message().find(std::string("name one of its hosts: ") + host_b), std::string::npos)
      << refused.text;
  ASSERT_EQ(server.add_instance(host_a), target);
  EXPECT_EQ(server.request("POST", "/job-definitions", restore_json(target)).status, 201U);
}

TEST(Restore_Definition, Refuses_What_Could_Bend_A_Statement_Or_Names_Nothing) {
  Memory_Server server;
  const std::string target = server.add_instance(host_a);
  struct Row {
    const char* name;
    std::string entry;
    unsigned status;
  };
  const std::string from = R"({"original":{"sid":"HDB","database":"TN1"})";
  for (const Row& row :
       {Row{"a quote in the target's name",
            from + R"(,"restore_as":{"database":"T';X","timepoint":"2026-11-20 10:00:00"}})", 422},
        Row{"a time in another form", from + R"(,"restore_as":{"timepoint":"2026-11-20T10:00:00Z"}})", 422},
        Row{"a quote in a time", from + R"(,"restore_as":{"timepoint":"2026-11-20 10:00:0'"}})", 422},
        Row{"neither set nor time", from + R"(,"restore_as":{"database":"TN2"}})", 422},
        Row{"a set that is no uuid", from + R"(,"catalog_uuid":"newest"})", 400},
        Row{"no origin", R"({"catalog_uuid":")" + uuid_of(1) + "\"}", 400},
        Row{"a long system id", R"({"original":{"sid":"HDBX","database":"TN1"},"catalog_uuid":")" + uuid_of(1) + "\"}",
            422},
        Row{"a blank in the origin",
            R"({"original":{"sid":"HDB","database":"T 1"},"catalog_uuid":")" + uuid_of(1) + "\"}", 422},
        Row{"an unknown key", from + R"(,"catalog_uuid":")" + uuid_of(1) + R"(","when":1})", 400},
        Row{"an entry that is a text", "\"TN1\"", 400},
        Row{"a whole one", from + R"(,"catalog_uuid":")" + uuid_of(1) + "\"}", 201}})
    EXPECT_EQ(server.request("POST", "/job-definitions", restore_json(target, row.entry)).status, row.status)
        << row.name;
  EXPECT_EQ(server.request("POST", "/job-definitions", restore_json(target, "", R"({"ignore_delta":"yes"})")).status,
            400U);
}

TEST(Restore_Definition, Knows_System_Ids) {
  for (const char* good : {"HDB", "H00", "ABC"}) EXPECT_TRUE(backupd::is_system_id(good)) << good;
  for (const char* bad : {"", "HD", "HDBX", "0DB", "hdb", "H'B", "H/B"})
    EXPECT_FALSE(backupd::is_system_id(bad)) << bad;
}

}  // namespace
