#include "unit/dorsal3/command_fixture.h"

using namespace dorsal3;

namespace {

constexpr const char* production = "aaaaaaaa-0000-4000-8000-000000000001";
constexpr const char* copy = "bbbbbbbb-0000-4000-8000-000000000002";

/// A system of one host.
std::string system_json(const char* uuid, const char* host_uuid, const char* host) {
  return std::string(R"({"uuid":")") + uuid +
         R"(","name":"PRD_HDB00","type":"hana","instances":[{"name":"PRD_HDB00","host_uuid":")" + host_uuid +
         R"(","extended_attrs":{"sid":"PRD","instance_name":"HDB00","localhost":")" + host + R"("}}]})";
}

/// Two systems have one name: a production system and its copy.
class Resource_Names_Test : public Command_Fixture {
 protected:
  Resource_Names_Test() {
    server.forget("GET /resources");
    server.answer("GET /resources", R"({"total":2,"rows":[)" + system_json(production, "h1", "hana01") + "," +
                                        system_json(copy, "h2", "hana02") + "]}");
    server.answer("GET /server", R"({"product":"x","version":"1","time":"t"})");
    server.answer("GET /hosts",
                  R"({"total":2,"rows":[{"uuid":"h1","name":"hana01.site"},{"uuid":"h2","name":"hana02.site"}]})");
    for (const char* host : {"h1", "h2"})
      server.answer(std::string("POST /agents/") + host + "/call", databases_answer);
  }
};

TEST_F(Resource_Names_Test, Every_Verb_Refuses_A_Name_That_Several_Systems_Have) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{"check", "PRD_HDB00"},
        {"databases", "PRD_HDB00"},
        {"instance", "stop", "PRD_HDB00"},
        {"logon", "PRD_HDB00", "--user", "U"},
        {"info", "PRD_HDB00/TN1"},
        {"info", "--logs", "PRD_HDB00"},
        {"backup", "PRD_HDB00/TN1"},
        {"log-backup", "enable", "PRD_HDB00"},
        {"log-backup", "status", "PRD_HDB00"},
        {"restore", "PRD_HDB00/TN1", "--to", "2026-11-20 08:15:00"},
        {"restore", std::string(production) + "/TN1", "--to", "2026-11-20 08:15:00", "--into", "PRD_HDB00"},
        {"databases", "PRD_HDB00", "--host", "hana09"}}) {
    EXPECT_EQ(run(arguments), exit_usage) << arguments.front();
    for (const char* wanted : {production, copy, "hana01 (h1)", "hana02 (h2)"})
      EXPECT_NE(error.str().find(wanted), std::string::npos) << arguments.front() << ": " << error.str();
  }
  EXPECT_EQ(server.count("POST /agents/h1/call") + server.count("POST /agents/h2/call"), 0U);
  EXPECT_EQ(server.count("POST /restore/plan"), 0U);
}

TEST_F(Resource_Names_Test, A_Uuid_Or_A_Host_Tells_Which_System_Is_Meant) {
  ASSERT_EQ(run({"databases", copy}), exit_ok) << error.str();
  EXPECT_EQ(server.count("POST /agents/h2/call"), 1U);
  for (const char* host : {"h2", "hana02", "hana02.site"}) {
    ASSERT_EQ(run({"databases", "PRD_HDB00", "--host", host}), exit_ok) << error.str();
    EXPECT_EQ(server.count("POST /agents/h1/call"), 0U) << host;
  }
  EXPECT_EQ(server.count("POST /agents/h2/call"), 4U);
}

TEST_F(Resource_Names_Test, A_Restore_Goes_Into_The_System_With_That_Uuid) {
  EXPECT_EQ(run({"restore", std::string(production) + "/TN1", "--to", "2026-11-20 08:15:00", "--into", copy}),
            exit_not_found);
  const auto asked = server.bodies("POST /restore/plan");
  ASSERT_EQ(asked.size(), 1U);
  EXPECT_NE(asked[0].find(std::string(R"({"resource_uuid":")") + production + R"(","database":"TN1","target":)" +
                          R"({"resource_uuid":")" + copy),
            std::string::npos)
      << asked[0];
}

}  // namespace
