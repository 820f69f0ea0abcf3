// What an operator does on a good day, over all processes.

#include <algorithm>
#include <filesystem>

#include "system_fixture.h"

using namespace system_tests;

namespace {

class Backup_System : public System_Fixture {
 protected:
  /// "database type" of each set, in the order of committing.
  [[nodiscard]] std::vector<std::string> kinds() const {
    std::vector<std::string> list;
    for (const auto& set : sets()) list.push_back(text_of(set, "database") + " " + text_of(set, "type"));
    return list;
  }
};

using Kinds = std::vector<std::string>;

}  // namespace

TEST_F(Backup_System, Checks_Are_Good_Once_An_Account_Is_Stored) {
  start_all();
  const Tool_Result check = dorsal3({"check"});
  EXPECT_EQ(check.code, 0) << check.out;
}

TEST_F(Backup_System, Full_Of_The_System_And_Its_Tenants_Is_Stored_And_Verified) {
  start_all({.tenants = {"TN1", "TN2"}});
  const Tool_Result result = backup(instance, {"--compression", "zstd"});
  ASSERT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(kinds(), (Kinds{"SYSTEMDB full", "TN1 full", "TN2 full"}));
  for (const auto& set : sets()) {
    const Tool_Result verified = dorsal3({"verify", text_of(set, "uuid")});
    EXPECT_EQ(verified.code, 0) << verified.out << verified.err;
  }
  EXPECT_TRUE(alerts().empty());
  EXPECT_EQ(agent_log().find(password), std::string::npos) << "the password is in the log";
}

TEST_F(Backup_System, A_Damaged_Object_Is_Found_By_Verify) {
  start_all({.tenants = {}});
  ASSERT_EQ(backup(instance).code, 0);
  for (const std::string& file : pool_files()) {
    FILE* stream = std::fopen(file.c_str(), "r+");
    ASSERT_NE(stream, nullptr);
    std::fputs("damage", stream);
    std::fclose(stream);
  }
  const Tool_Result verified = dorsal3({"verify", text_of(sets().front(), "uuid")});
  EXPECT_EQ(verified.code, 1) << verified.out;
}

TEST_F(Backup_System, Incremental_And_Differential_Stand_On_A_Full) {
  start_all();
  for (const char* type : {"full", "incremental", "differential"}) {
    const Tool_Result result = backup(instance, {"--type", type});
    ASSERT_EQ(result.code, 0) << type << result.out << result.err;
  }
  EXPECT_EQ(kinds(), (Kinds{"SYSTEMDB full", "TN1 full", "SYSTEMDB incremental", "TN1 incremental",
                            "SYSTEMDB differential", "TN1 differential"}));
}

TEST_F(Backup_System, Falls_Back_To_Full_Without_A_Full_Before) {
  start_all();
  ASSERT_EQ(backup(instance, {"--type", "incremental"}).code, 0);
  EXPECT_EQ(kinds(), (Kinds{"SYSTEMDB full", "TN1 full"}));
  EXPECT_TRUE(agent_says("Failed to get full backup, set job type to full"));
}

TEST_F(Backup_System, Falls_Back_To_Full_When_The_Pool_Changed) {
  start_all();
  ASSERT_EQ(backup(std::string(instance) + "/TN1").code, 0);
  ASSERT_EQ(dorsal3({"pools", "--add", "other", "--directory", "/srv/other"}).code, 0);
  ASSERT_EQ(backup(std::string(instance) + "/TN1", {"--type", "incremental", "--pool", "other"}).code, 0);
  EXPECT_EQ(kinds(), (Kinds{"TN1 full", "TN1 full"}));
  EXPECT_TRUE(agent_says("Storage pool is changed, set job type to full"));
}

TEST_F(Backup_System, Two_Pools_In_One_Directory_Cost_No_Backup) {
  start_all();
  std::filesystem::create_directory_symlink(real("/srv/pool"), real("/srv/link"));
  for (const char* directory : {"/srv/pool", "/srv/pool/", "/srv//pool", "/srv/link", "/srv", "/srv/pool/more"}) {
    const Tool_Result refused = dorsal3({"pools", "--add", "MAIN", "--directory", directory});
    EXPECT_NE(refused.code, 0) << directory;
    EXPECT_NE((refused.out + refused.err).find("the pool \\\"main\\\" (/srv/pool)"), std::string::npos)
        << refused.out << refused.err;
  }
  // What no refusal can foresee: the directories become one later.
  ASSERT_EQ(dorsal3({"pools", "--add", "MAIN", "--directory", "/srv/other"}).code, 0);
  std::filesystem::remove(real("/srv/other"));
  std::filesystem::create_directory_symlink(real("/srv/pool"), real("/srv/other"));
  ASSERT_EQ(backup(std::string(instance) + "/TN1", {"--pool", "main"}).code, 0);
  ASSERT_EQ(backup(std::string(instance) + "/TN1", {"--pool", "MAIN"}).code, 0);
  const std::vector<std::string> stored = pool_files();
  ASSERT_FALSE(stored.empty());
  const Rest_Answer swept = rest("POST", "/retention/sweep", "{}");
  EXPECT_EQ(swept.status, 200U) << swept.body;
  EXPECT_NE(swept.body.find(R"("datasets":0)"), std::string::npos) << swept.body;
  EXPECT_NE(swept.body.find("is not swept: its directory /srv/pool is that of the pool"), std::string::npos)
      << swept.body;
  EXPECT_EQ(pool_files(), stored);
  for (const json_spirit::Object& set : sets()) {
    const Tool_Result verified = dorsal3({"verify", text_of(set, "uuid")});
    EXPECT_EQ(verified.code, 0) << verified.out << verified.err;
  }
}

TEST_F(Backup_System, Falls_Back_To_Full_After_A_Recovery) {
  start_all();
  ASSERT_EQ(backup(std::string(instance) + "/TN1").code, 0);
  pause_20_ms();
  const std::string later = std::to_string(
      std::chrono::duration_cast<std::chrono::seconds>(std::chrono::system_clock::now().time_since_epoch()).count() +
      60);
  ASSERT_EQ(control({"recovery", "TN1", later}).code, 0);
  ASSERT_EQ(backup(std::string(instance) + "/TN1", {"--type", "incremental"}).code, 0);
  EXPECT_EQ(kinds(), (Kinds{"TN1 full", "TN1 full"}));
  EXPECT_TRUE(agent_says("Database has been restored, set job type to full"));
}

TEST_F(Backup_System, A_System_Without_Tenants_Is_One_Database) {
  start_all({.single_container = true});
  const Tool_Result result = backup(instance);
  ASSERT_EQ(result.code, 0) << result.out << result.err;
  EXPECT_EQ(kinds(), Kinds{"HDB full"});
  EXPECT_EQ(agent_log().find("BACKUP DATA  FOR"), std::string::npos);
}

TEST_F(Backup_System, Two_Backups_Of_One_Resource_Wait_For_Each_Other) {
  start_all({.tenants = {"TN1", "TN2"}, .data_mb = 8});
  const std::string first = start_backup(std::string(instance) + "/TN1");
  const std::string second = start_backup(std::string(instance) + "/TN2");
  EXPECT_EQ(wait_for_end(first), "completed");
  EXPECT_EQ(wait_for_end(second), "completed");
  Kinds stored = kinds();
  std::sort(stored.begin(), stored.end());
  EXPECT_EQ(stored, (Kinds{"TN1 full", "TN2 full"}));
}

TEST_F(Backup_System, The_Same_Backup_Is_Not_Started_Twice) {
  start_all({.data_mb = 20});
  fault(held_backup);
  const std::string first = start_backup(std::string(instance) + "/TN1");
  EXPECT_EQ(backup(std::string(instance) + "/TN1").code, 7);
  no_faults();
  EXPECT_EQ(wait_for_end(first), "completed");
}
