// A restore creates the tenant it goes into: what is there in the end, who may know the password, and what stays when
// something goes wrong.

#include <signal.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <memory>

#include "restore_system.h"

using namespace system_tests;

namespace {

namespace fs = std::filesystem;

/// With what a statement and hdbsql's input line must not trip over.
constexpr const char* new_password = "New \"Secret's\\1;";
constexpr const char* searched_for = "Secret's";

class Restores_Into_New_Tenants : public Restore_System {
 protected:
  static constexpr const char* password_file = "/etc/opt/tarvex/dorsal3/qa1.pw";

  /// TN1 holds "a,1" in its newest full backup, and "a,2".
  void start_with_a_backup() {
    start_with_log_backup();
    put("TN1", "a", "1");
    const Tool_Result done = backup(std::string(instance) + "/TN1", {"--type", "full"});
    ASSERT_EQ(done.code, 0) << done.out << done.err << agent_log();
    set_ = text_of(newest_set("TN1", "full"), "uuid");
    put("TN1", "a", "2");
  }
  void write_password(const std::string& text, mode_t mode = 0600) const {
    Installed_Product(root()).write(password_file, text);
    ASSERT_EQ(::chmod(real(password_file).c_str(), mode), 0);
  }
  /// `more` behind a confirmed restore of that backup into QA1.
  [[nodiscard]] std::vector<std::string> restore_words(const std::vector<std::string>& more) const {
    std::vector<std::string> words{
        "restore", std::string(instance) + "/TN1", "--set", set_, "--as", "QA1", "--run", "--confirm", "QA1"};
    words.insert(words.end(), more.begin(), more.end());
    return words;
  }
  [[nodiscard]] Tool_Result create_and_restore() const {
    return dorsal3(restore_words({"--create"}), std::string(new_password) + "\n");
  }
  [[nodiscard]] bool exists(const std::string& name) const {
    const std::vector<std::string> all = databases();
    return std::find(all.begin(), all.end(), name) != all.end();
  }
  /// The rows of QA1, whose user has the new password.
  [[nodiscard]] std::string new_rows() const {
    const Tool_Result got = host_.hana_tool("hdbsql", {"-xCja", "-i", "00", "-d", "QA1", "-u", "SYSTEM", "-p",
                                                       new_password, "select K, V from KV order by K"});
    EXPECT_EQ(got.code, 0) << got.err;
    return got.out;
  }
  /// "result" of each creation in the audit log.
  [[nodiscard]] std::vector<std::string> creations() const {
    const json_spirit::Object log = dorsal3({"audit"}).json();
    json_spirit::Array entries;
    (void)json_spirit::object_get(log, "audit", entries);
    std::vector<std::string> results;
    for (const json_spirit::Value& entry : entries)
      if (text_of(entry.get_obj(), "method") == "hana.database.create") {
        EXPECT_EQ(text_of(entry.get_obj(), "database"), "QA1");
        results.push_back(text_of(entry.get_obj(), "result"));
      }
    return results;
  }
  /// Files below the root that hold a part of the new password. All is stopped for it, so that no file comes or goes.
  [[nodiscard]] std::vector<std::string> files_with_the_password() {
    EXPECT_EQ(stop_agent(), 0);
    stop_hana();
    stop_backupd(SIGTERM);
    std::vector<std::string> found;
    for (const auto& entry : fs::recursive_directory_iterator(root()))
      if (entry.is_regular_file() && slurp(entry.path()).find(searched_for) != std::string::npos)
        found.push_back(entry.path());
    return found;
  }
  /// The command with the password in a file, beside the test.
  [[nodiscard]] std::unique_ptr<Background_Process> start_create_and_restore() const {
    std::vector<std::string> command{Installed_Product(root()).program("dorsal3")};
    for (const std::string& word : restore_words({"--create", "--password-file", password_file}))
      command.push_back(word);
    return std::make_unique<Background_Process>(command, real("/log/restore.log"));
  }
  /// HANA holds the creation. A process that was killed meanwhile may have been at any point before it.
  void hold_creation() const { fault("hang_statement = 0 | match=CREATE DATABASE"); }
  [[nodiscard]] bool is_sent() const {
    return eventually([&] { return creations() == std::vector<std::string>{"sent"}; });
  }
  void expect_refused_as_it_exists() const {
    const Tool_Result again = create_and_restore();
    EXPECT_EQ(again.code, 1) << again.out << again.err;
    EXPECT_NE(again.out.find("target_exists"), std::string::npos) << again.out;
  }

  std::string set_;
};

TEST_F(Restores_Into_New_Tenants, Have_The_Content_Of_The_Backup_And_Tell_Nobody_The_Password) {
  start_with_a_backup();
  const Tool_Result plan =
      dorsal3({"restore", std::string(instance) + "/TN1", "--set", set_, "--as", "QA1", "--create"});
  EXPECT_EQ(plan.code, 0) << plan.out << plan.err;
  EXPECT_NE(plan.out.find("\"create\": true"), std::string::npos) << plan.out;
  EXPECT_FALSE(exists("QA1")) << "a plan changes nothing";
  EXPECT_TRUE(creations().empty());

  const Tool_Result done = create_and_restore();
  EXPECT_EQ(done.code, 0) << done.out << done.err << agent_log();
  EXPECT_NE(done.out.find("\"created\": true"), std::string::npos) << done.out;
  EXPECT_EQ(new_rows(), "a,1\n");
  EXPECT_TRUE(rows("TN1").starts_with("a,2\n")) << "the other one is what it was";
  EXPECT_EQ(creations(), std::vector<std::string>{"done"});
  EXPECT_EQ((done.out + done.err).find(searched_for), std::string::npos);
  EXPECT_EQ(files_with_the_password(), std::vector<std::string>());
}

TEST_F(Restores_Into_New_Tenants, Are_Not_Begun_When_HANA_Refuses_To_Create_One) {
  start_with_a_backup();
  fault("fail_statement = 412:invalid password layout: minimal password length:[80] | match=CREATE DATABASE");
  const Tool_Result refused = create_and_restore();
  EXPECT_EQ(refused.code, 1) << refused.out << refused.err;
  EXPECT_NE(refused.out.find("412: invalid password layout: minimal password length:[80]"), std::string::npos)
      << refused.out;
  EXPECT_FALSE(exists("QA1"));
  EXPECT_EQ(creations(), std::vector<std::string>{"failed"});
  no_faults();
  EXPECT_EQ(create_and_restore().code, 0) << agent_log();
  expect_refused_as_it_exists();
  EXPECT_EQ(creations().size(), 2U) << "what is there was not asked for again";
  EXPECT_EQ(files_with_the_password(), std::vector<std::string>());
}

TEST_F(Restores_Into_New_Tenants, Need_A_Password_That_Nobody_Else_Can_Read) {
  start_with_a_backup();
  const std::vector<std::string> words = restore_words({"--create", "--password-file", password_file});
  EXPECT_EQ(dorsal3(words).code, 3) << "there is no such file";
  write_password("");
  EXPECT_EQ(dorsal3(words).code, 3);
  write_password("Secret's1\n", 0640);
  const Tool_Result open = dorsal3(words);
  EXPECT_EQ(open.code, 3);
  EXPECT_NE(open.out.find("chmod 600"), std::string::npos) << open.out;
  EXPECT_EQ(dorsal3(restore_words({"--create"})).code, 2) << "nothing comes on standard input";
  EXPECT_FALSE(exists("QA1"));
  EXPECT_TRUE(creations().empty());
}

TEST_F(Restores_Into_New_Tenants, Are_Refused_Where_Nobody_Can_Create_One) {
  start_with_a_backup();
  fault("refuse_logon = 10");
  const Tool_Result no_logon = create_and_restore();
  EXPECT_EQ(no_logon.code, 1) << no_logon.out << no_logon.err;
  EXPECT_NE(no_logon.out.find("target_unknown"), std::string::npos) << no_logon.out;
  no_faults();
  ASSERT_EQ(stop_agent(), 0);
  const Tool_Result away = create_and_restore();
  EXPECT_EQ(away.code, 1) << away.out << away.err;
  EXPECT_NE(away.out.find("agent_away"), std::string::npos) << away.out;
  EXPECT_FALSE(exists("QA1"));
  EXPECT_TRUE(creations().empty());
}

TEST_F(Restores_Into_New_Tenants, Leave_It_There_When_They_Fail) {
  start_with_a_backup();
  fault("recovery_fails = not today | match=data");
  const Tool_Result failed = create_and_restore();
  EXPECT_EQ(failed.code, 1) << failed.out << failed.err;
  EXPECT_NE(failed.out.find("was created and stays"), std::string::npos) << failed.out;
  ASSERT_TRUE(exists("QA1"));
  no_faults();
  expect_refused_as_it_exists();
  const Tool_Result again = dorsal3(restore_words({}));
  EXPECT_EQ(again.code, 0) << again.out << again.err << agent_log();
  EXPECT_EQ(new_rows(), "a,1\n");
}

TEST_F(Restores_Into_New_Tenants, Whose_Command_Was_Killed_Are_Run_Again) {
  start_with_a_backup();
  write_password(std::string(new_password) + "\n");
  hold_creation();
  const auto command = start_create_and_restore();
  ASSERT_TRUE(is_sent()) << slurp(real("/log/restore.log"));
  command->signal(SIGKILL);
  EXPECT_EQ(command->wait(std::chrono::seconds(stop_limit_seconds)), 128 + SIGKILL);
  no_faults();
  ASSERT_TRUE(eventually([&] { return creations() == std::vector<std::string>{"done"}; })) << agent_log();
  expect_refused_as_it_exists();
  const Tool_Result again = dorsal3(restore_words({}));
  EXPECT_EQ(again.code, 0) << again.out << again.err << agent_log();
  EXPECT_EQ(new_rows(), "a,1\n");
}

TEST_F(Restores_Into_New_Tenants, Whose_Agent_Was_Killed_Are_Run_Again) {
  start_with_a_backup();
  write_password(std::string(new_password) + "\n");
  hold_creation();
  const auto command = start_create_and_restore();
  ASSERT_TRUE(is_sent()) << slurp(real("/log/restore.log"));
  (void)host_.stop_agent(SIGKILL);
  EXPECT_EQ(command->wait(std::chrono::seconds(stop_limit_seconds)), 4) << slurp(real("/log/restore.log"));
  const std::string said = slurp(real("/log/restore.log"));
  EXPECT_NE(said.find("should the database have been created all the same"), std::string::npos) << said;
  no_faults();
  // HANA may have it or not: that hangs on how far the agent had come.
  ASSERT_TRUE(eventually([&] { return pids_below(root(), "hdbsql").empty(); }));
  start_agent();
  const bool created = exists("QA1");
  if (created) expect_refused_as_it_exists();
  const Tool_Result again = created ? dorsal3(restore_words({})) : create_and_restore();
  EXPECT_EQ(again.code, 0) << created << again.out << again.err << agent_log();
  EXPECT_EQ(new_rows(), "a,1\n");
}

}  // namespace
