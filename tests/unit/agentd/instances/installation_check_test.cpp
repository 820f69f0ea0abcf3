#include "agentd/instances/installation_check.h"

#include <gtest/gtest.h>

#include "platform/files.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

constexpr const char* executables = "/usr/sap/PRD/HDB00/exe";
constexpr const char* link_path = "/usr/sap/PRD/SYS/global/hdb/opt/hdbbackint";
constexpr const char* link_directory = "/usr/sap/PRD/SYS/global/hdb/opt";

class Installation_Check : public testing::Test {
 protected:
  Installation_Check() { instance_.options = {{"sid", "PRD"}, {"dir_executable", executables}}; }

  [[nodiscard]] std::string checked() const { return json_spirit::dump_json(agentd::check_installation(instance_)); }
  void make_link_to(const char* target) {
    ASSERT_EQ(platform::mkdir_p(link_directory, platform::mode_directory), 0);
    ASSERT_EQ(platform::make_link(target, link_path), 0);
  }
  void expect(const std::string& row) { EXPECT_NE(checked().find(row), std::string::npos) << checked(); }

  support::Temp_Root root_;
  support::Log_Capture log_;
  Instance instance_;
};

TEST_F(Installation_Check, Names_An_Instance_That_Is_Not_Installed) {
  expect(R"({"name":"installation","ok":false,"message":"/usr/sap/PRD/HDB00/exe is missing: the instance is not )"
         R"(installed on this host; run discover again"})");
}

TEST_F(Installation_Check, Names_A_Missing_Client) {
  ASSERT_EQ(platform::mkdir_p(executables, platform::mode_directory), 0);
  expect("/usr/sap/PRD/HDB00/exe/hdbsql is missing; install the database's client again");
}

TEST_F(Installation_Check, Is_Content_With_What_A_First_Backup_Finds) {
  root_.write(std::string(executables) + "/hdbsql", "");
  EXPECT_EQ(checked(),
            std::string(R"([{"name":"installation","ok":true,"message":"/usr/sap/PRD/HDB00/exe/hdbsql is )") +
                R"(there"},{"name":"backint link","ok":true,"message":")" + link_path +
                R"( is made by the first backup"},{"name":"pending recovery","ok":true,"message":"no recovery waits )" +
                R"(for a start of the instance"}])");
}

TEST_F(Installation_Check, Knows_Its_Own_Link) {
  make_link_to("/opt/tarvex/dorsal3/bin/hdbbackint");
  expect(R"("backint link","ok":true,"message":")" + std::string(link_path) +
         " leads to /opt/tarvex/dorsal3/bin/hdbbackint");
}

TEST_F(Installation_Check, Names_Another_Backint_Agent) {
  make_link_to("/opt/other/backint");
  expect(R"("backint link","ok":false,"message":")" + std::string(link_path) +
         " leads to /opt/other/backint, another Backint agent");
  ASSERT_TRUE(platform::remove_file(link_path));
  root_.write(link_path, "");
  expect(R"("backint link","ok":false,"message":")" + std::string(link_path) + " is a file of another Backint agent");
}

TEST_F(Installation_Check, Names_A_Statement_That_Makes_The_Next_Start_A_Recovery) {
  root_.write("/usr/sap/PRD/HDB00/work/recoverInstance.sql", "RECOVER DATA");
  expect(R"({"name":"pending recovery","ok":false,"message":"/usr/sap/PRD/HDB00/work/recoverInstance.sql is there: )"
         "the next start of the instance is a recovery by it; if none is going on and none is wanted, remove it");
}

TEST_F(Installation_Check, Has_No_Row_For_An_Instance_That_Tells_Nothing) {
  instance_.options = {};
  EXPECT_EQ(checked(), "[]");
}

}  // namespace
