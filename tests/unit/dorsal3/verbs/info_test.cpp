#include <gtest/gtest.h>

#include "dorsal3/server/resources.h"
#include "unit/dorsal3/command_fixture.h"
#include "unit/dorsal3/set_builder.h"

using namespace dorsal3;

namespace {

class Info_Test : public Command_Fixture {
 protected:
  Info_Test() { server.answer("POST /agents/h1/call", databases_answer); }

  /// The member of the only instance.
  std::vector<json_spirit::Object> rows(const char* key) {
    const auto instances = object_rows(json(), "instances");
    EXPECT_EQ(instances.size(), 1U);
    return instances.empty() ? std::vector<json_spirit::Object>() : object_rows(instances.front(), key);
  }

  std::size_t line_count(const std::string& part) {
    std::size_t count = 0;
    for (std::size_t at = out.str().find(part); at != std::string::npos; at = out.str().find(part, at + 1)) ++count;
    return count;
  }
};

}  // namespace

TEST_F(Info_Test, Shows_Every_Database_With_Its_Chains) {
  server.keep_sets({backup_set(1, "full", "11111111-f"), backup_set(2, "incremental", "22222222-i", "11111111-f"),
                    backup_set(3, "log", "33333333-l", "11111111-f"), backup_set(4, "log", "44444444-l", "11111111-f"),
                    backup_set(5, "full", "55555555-f", "", "life-9", "GONE")});
  EXPECT_EQ(run({"info", "PRD_HDB00"}), exit_ok) << error.str();
  const std::string text = out.str();
  EXPECT_NE(text.find("instance PRD_HDB00 (hana)\n"
                      "  database SYSTEMDB (active)\n"
                      "    no backup set yet\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("  database TN1 (active)\n"), std::string::npos) << text;
  EXPECT_NE(text.find("    beside these: 2 sets of log backups, 0 of HANA's backup catalog\n"
                      "    next incremental: based on 22222222 (to another pool than main: a full backup)\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find("  database GONE (not in the instance's list)\n"), std::string::npos) << text;
}

TEST_F(Info_Test, One_Database_Alone) {
  server.keep_sets({backup_set(1, "full", "f1"), backup_set(2, "full", "f2", "", "life-2", "SYSTEMDB")});
  EXPECT_EQ(run({"info", "PRD_HDB00/TN1", "--output", "json"}), exit_ok) << error.str();
  ASSERT_EQ(rows("databases").size(), 1U);
  EXPECT_EQ(text_member(rows("databases").front(), "name"), "TN1");
  ASSERT_EQ(rows("sets").size(), 1U);
  EXPECT_EQ(run({"info", "PRD_HDB00/TN9"}), exit_not_found);
  EXPECT_NE(error.str().find("has no database \"TN9\""), std::string::npos) << error.str();
  EXPECT_EQ(run({"info", "PRD_HDB00/"}), exit_usage);
}

TEST_F(Info_Test, All_Of_Thousands_Of_Sets_Are_Read) {
  std::vector<json_spirit::Object> sets{backup_set(1, "full", "full-of-all")};
  for (int i = 2; i <= 2500; ++i)
    sets.push_back(backup_set(i, "incremental", "delta-" + std::to_string(i), "full-of-all"));
  server.keep_sets(sets);
  EXPECT_EQ(run({"info", "PRD_HDB00", "--output", "json"}), exit_ok) << error.str();
  const auto shown = rows("sets");
  ASSERT_EQ(shown.size(), 2500U);
  EXPECT_EQ(text_member(shown.front(), "uuid"), "full-of-all");
  EXPECT_EQ(text_member(shown.back(), "uuid"), "delta-2500");

  EXPECT_EQ(run({"info", "PRD_HDB00"}), exit_ok);
  EXPECT_EQ(line_count("        incremental "), 2499U);
  EXPECT_EQ(out.str().find("left out"), std::string::npos);
}

TEST_F(Info_Test, What_Is_Left_Out_Is_Told) {
  std::vector<json_spirit::Object> sets{backup_set(1, "full", "full-of-all")};
  for (int i = 2; i <= 1300; ++i)
    sets.push_back(backup_set(i, "incremental", "delta-" + std::to_string(i), "full-of-all"));
  server.keep_sets(sets);
  EXPECT_EQ(run({"info", "PRD_HDB00", "--limit", "1200"}), exit_ok);
  EXPECT_EQ(line_count("        incremental "), 1200U);
  EXPECT_NE(out.str().find("  99 older incremental sets are left out; --limit shows more\n"), std::string::npos);
  EXPECT_NE(out.str().find("next incremental: based on delta-1300"), std::string::npos) << "the newest ones are shown";
}

TEST_F(Info_Test, The_Sets_Are_Shown_While_The_Agent_Is_Away) {
  server.forget("POST /agents/h1/call");
  server.answer("POST /agents/h1/call", R"({"error":{"code":"unavailable","message":"h1 is not connected"}})", 503);
  server.keep_sets({backup_set(1, "full", "f1")});
  EXPECT_EQ(run({"info"}), exit_ok);
  EXPECT_NE(out.str().find("  databases: not known: h1 is not connected\n  database TN1\n"), std::string::npos)
      << out.str();
  EXPECT_NE(out.str().find("      full f1 "), std::string::npos) << out.str();
}

TEST_F(Info_Test, A_Server_That_Fails_In_The_Middle_Is_A_Failure) {
  server.keep_sets({backup_set(1, "full", "f1")});
  server.answer(
      "GET /sets?resource_uuid=0d0c1a4e-16f3-4f0a-8d5c-2f9f0a5b7e21&type=full&sort=id&order=desc&limit=500"
      "&offset=0",
      R"({"error":{"code":"internal","message":"the store is away"}})", 500);
  EXPECT_EQ(run({"info"}), exit_failed);
  EXPECT_EQ(error.str(), "dorsal3: the store is away\n");
}
