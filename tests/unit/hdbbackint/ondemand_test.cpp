#include "hdbbackint/backup/ondemand_configuration.h"
#include "unit/hdbbackint/agent_fixture.h"

namespace hdbbackint {
namespace {

constexpr const char* host_uuid = "99999999-0b0a-4908-8706-050403020100";
constexpr const char* state = "/var/opt/tarvex/dorsal3/agent/hana/";
constexpr const char* catalog = "log_backup_0_0_0_0";
constexpr const char* definition = "12121212-0b0a-4908-8706-050403020100";

/// The file as docs/formats/log-backup-configuration.md says.
std::string configuration(const std::string& location = "file:///pool", const std::string& io_ctl = "{}",
                          const std::string& sid = "HDB", const std::string& host = host_uuid) {
  return std::string(R"({"job_definition_uuid":")") + definition + R"(","type":"log","sid":")" + sid +
         R"(","instance_name":"HDB00","instance_number":0,"pool_uuid":"11111111-2222-3333-4444-555555555555",)" +
         R"("location":")" + location + R"(","host_uuid":")" + host +
         R"(","resource_uuid":"44444444-4444-4444-8444-444444444444","uid":"u-1","compression":"none",)" +
         R"("compression_level":0,"io_ctl":)" + io_ctl + "}";
}

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  json_spirit::object_get(object, key, text);
  return text;
}

class Ondemand : public Agent_Fixture {
 protected:
  void SetUp() override {
    Agent_Fixture::SetUp();
    root_.make_directory("/pool2");
    root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini", "[landscape]\nid = land-1\n");
  }
  void configure(const std::string& name, const std::string& text) { root_.write(state + name, text); }

  /// HANA backs one object of a database up.
  Outcome back_up(const std::string& path, const std::string& content, const std::string& id,
                  const std::string& user = "TN1@HDB") {
    root_.make_directory(path.substr(0, path.rfind('/')));
    ::unlink(root_.real(path).c_str());
    EXPECT_EQ(::mkfifo(root_.real(path).c_str(), 0600), 0) << path;
    std::thread hana([&] { write_pipe(path, content); });
    const Outcome outcome = call("backup", "#PIPE " + path, {"-s", id, "-l", "LOG"}, user);
    // One that was refused was never opened.
    const int opened = ::open(root_.real(path).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    hana.join();
    ::close(opened);
    return outcome;
  }
  static std::string pipe(const std::string& name) { return std::string(pipe_directory) + "/" + name; }
  /// Record of HANA's own backup; there is one beside the fixture's.
  json_spirit::Object ondemand_record() {
    for (const json_spirit::Object& record : server_.jobs())
      if (text_of(record, "uuid") != job_uuid) return record;
    return {};
  }
  void expect_refused(const std::string& part) {
    const Outcome outcome = call("backup", "#PIPE " + make_pipe("log_backup_2_0_1_9"), {"-s", "5"});
    EXPECT_EQ(outcome.exit_code, 1);
    EXPECT_EQ(outcome.answers, std::vector<std::string>{"#ERROR \"" + pipe("log_backup_2_0_1_9") + "\""});
    EXPECT_EQ(log_.claim_containing(part), 1U) << "wanted: " << part << "\nlogged:\n" << log_.dump();
    ::unlink(root_.real(pipe("log_backup_2_0_1_9")).c_str());
    EXPECT_EQ(server_.jobs().size(), 1U) << "nothing is stored for a backup that is refused";
    EXPECT_TRUE(stored().empty());
  }
};

TEST_F(Ondemand, Log_Backup_Is_Stored_And_Recorded_By_The_File_Of_Its_Instance) {
  configure("log_backup_HDB_HDB00", configuration());
  const Outcome outcome = back_up(pipe("log_backup_2_0_1_9"), "the log", "1707397841205");
  EXPECT_EQ(outcome.exit_code, 0);
  ASSERT_EQ(outcome.answers.size(), 1U);
  EXPECT_TRUE(outcome.answers[0].starts_with("#SAVED ")) << outcome.answers[0];
  const json_spirit::Object record = ondemand_record();
  EXPECT_EQ(text_of(record, "type"), "log");
  EXPECT_EQ(text_of(record, "database"), "TN1");
  EXPECT_EQ(text_of(record, "sid"), "HDB");
  EXPECT_EQ(text_of(record, "host_uuid"), host_uuid);
  EXPECT_EQ(text_of(record, "landscape_id"), "land-1");
  EXPECT_EQ(text_of(record, "job_act_id"), "");
  EXPECT_EQ(record.find("database_backup_id")->get_uint64(), 1707397841205U);
  EXPECT_EQ(text_of(record.find("extended_attrs")->get_obj(), "job_definition_uuid"), definition);
  EXPECT_EQ(text_of(record.find("extended_attrs")->get_obj(), "resource_uuid"), "44444444-4444-4444-8444-444444444444");
  ASSERT_EQ(server_.files().size(), 1U);
  EXPECT_EQ(text_of(server_.files()[0], "info_uuid"), text_of(record, "uuid"));
  EXPECT_EQ(text_of(server_.files()[0], "extern_backup_id"), ebid_of(outcome.answers[0]));
  EXPECT_EQ(server_.files()[0].find("database_backup_id")->get_uint64(), 1707397841205U);
  ASSERT_EQ(stored().size(), 1U);
  EXPECT_TRUE(stored()[0].starts_with(std::string("/pool/") + host_uuid + "/land-1/TN1/1707397841205/")) << stored()[0];
  EXPECT_EQ(root_.read(stored()[0]), "the log");
}

TEST_F(Ondemand, File_Of_The_Database_Comes_Before_That_Of_The_Instance) {
  configure("log_backup_HDB_HDB00", configuration("file:///pool"));
  configure("log_backup_HDB_HDB00_TN1", configuration("file:///pool2"));
  EXPECT_EQ(back_up(pipe("log_backup_2_0_1_9"), "of TN1", "5").exit_code, 0);
  const std::string base = "/usr/sap/HDB/SYS/global/hdb/backint/";
  EXPECT_EQ(back_up(base + "DB_T_1/log_backup_2_0_1_9", "of T_1", "6", "T_1@HDB").exit_code, 0);
  EXPECT_EQ(back_up(base + "SYSTEMDB/log_backup_1_0_1_9", "of SYSTEMDB", "7", "SYSTEMDB@HDB").exit_code, 0);
  EXPECT_EQ(stored("/pool2").size(), 1U);
  EXPECT_EQ(stored("/pool").size(), 2U);
}

TEST_F(Ondemand, Copies_That_Were_Set_Aside_And_Other_Systems_Do_Not_Count) {
  configure("log_backup_HDB_HDB00_TN1.1700000000", configuration("file:///pool2"));
  configure("log_backup_HD_HDB00", "not ours");
  configure("log_backup_OTH_HDB00", "not ours");
  configure("log_backup_HDB_HDB00_TN", "another database's");
  configure(".log_backup_HDB_HDB00.tmp", "half");
  expect_refused("on-demand log backup is not set up for database TN1@HDB: /var/opt/tarvex/dorsal3/agent/hana has no");
  configure("log_backup_HDB_HDB00", configuration());
  EXPECT_EQ(back_up(pipe("log_backup_2_0_1_9"), "x", "5").exit_code, 0);
}

TEST_F(Ondemand, Calls_Of_One_Backup_Share_Its_Record) {
  configure("log_backup_HDB_HDB00", configuration());
  EXPECT_EQ(back_up(pipe("log_backup_2_0_1_9"), "a", "5").exit_code, 0);
  EXPECT_EQ(back_up(pipe("log_backup_3_0_1_9"), "b", "5").exit_code, 0);
  EXPECT_EQ(server_.jobs().size(), 2U);
  EXPECT_EQ(back_up(pipe("log_backup_3_0_9_9"), "c", "6").exit_code, 0);
  EXPECT_EQ(server_.jobs().size(), 3U);
  EXPECT_EQ(server_.files().size(), 3U);
}

TEST_F(Ondemand, Backupd_Is_Told_With_The_Last_Object_That_All_Are_Stored) {
  configure("log_backup_HDB_HDB00", configuration());
  std::string input;
  std::vector<std::string> pipes;
  for (int i = 0; i < 8; ++i) {
    pipes.push_back(make_pipe("log_backup_2_" + std::to_string(i) + "_1_9"));
    input += "#PIPE " + pipes.back() + "\n";
  }
  std::thread hana([&] {
    for (const std::string& path : pipes) EXPECT_TRUE(write_pipe(path, path));
  });
  const Outcome outcome = call("backup", input, {"-s", "5"});
  hana.join();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(server_.files().size(), 8U);
  EXPECT_EQ(server_.completed_jobs(), std::vector<std::string>{text_of(ondemand_record(), "uuid")});
}

TEST_F(Ondemand, Backup_That_Lacks_An_Object_Is_Never_Complete) {
  configure("log_backup_HDB_HDB00", configuration());
  const std::string good = make_pipe("log_backup_2_0_1_9");
  std::thread hana([&] { EXPECT_TRUE(write_pipe(good, "x")); });
  const Outcome outcome = call("backup", "#PIPE " + good + "\n#PIPE " + pipe("log_backup_3_0_1_9"), {"-s", "5"});
  hana.join();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(server_.files().size(), 1U);
  EXPECT_TRUE(server_.completed_jobs().empty());
  EXPECT_EQ(log_.claim_containing("No such file or directory"), 1U);
}

TEST_F(Ondemand, Data_Backup_Is_Completed_By_Its_Run) {
  save(object_name("1_1"), "the data");
  EXPECT_EQ(server_.files().size(), 1U);
  EXPECT_TRUE(server_.completed_jobs().empty());
}

TEST_F(Ondemand, Catalog_Has_A_Record_Of_Its_Own_Under_Whatever_Id) {
  configure("log_backup_HDB_HDB00", configuration());
  save(object_name("1_1"), "the data", {"-s", "5"});
  EXPECT_EQ(back_up(pipe("log_backup_2_0_1_9"), "the log", "5").exit_code, 0);
  EXPECT_EQ(back_up(pipe(catalog), "the catalog", "5").exit_code, 0);
  ASSERT_EQ(server_.jobs().size(), 3U);
  std::vector<std::string> types;
  for (const json_spirit::Object& record : server_.jobs()) types.push_back(text_of(record, "type"));
  std::sort(types.begin(), types.end());
  EXPECT_EQ(types, (std::vector<std::string>{"catalog", "full", "log"}));
  const auto files = server_.files();
  ASSERT_EQ(files.size(), 3U);
  EXPECT_EQ(text_of(files[0], "info_uuid"), job_uuid);
  EXPECT_NE(text_of(files[1], "info_uuid"), text_of(files[2], "info_uuid"));
}

TEST_F(Ondemand, System_Without_Tenants_Is_Named_By_Its_Sid) {
  configure("log_backup_HDB_HDB00", configuration());
  const std::string path = "/usr/sap/HDB/SYS/global/hdb/backint/log_backup_2_0_1_9";
  EXPECT_EQ(back_up(path, "x", "5", "HDB").exit_code, 0);
  EXPECT_EQ(text_of(ondemand_record(), "database"), "HDB");
}

TEST_F(Ondemand, Files_That_Are_No_Good_Are_Named_With_What_To_Do) {
  struct Row {
    std::string text;
    const char* part;
  };
  const std::string file = std::string("the log backup configuration ") + state + "log_backup_HDB_HDB00_TN1 ";
  const std::string whole = configuration();
  std::string of_full = whole;
  of_full.replace(of_full.find("\"log\""), 5, "\"full\"");
  std::string other_instance = whole;
  other_instance.replace(other_instance.find("HDB00"), 5, "HDB01");
  std::string no_pool = whole;
  no_pool.replace(no_pool.find("file:///pool"), 12, "");
  const Row rows[] = {
      {"", "is empty; remove the log backup"},
      {whole.substr(0, whole.size() / 2), "is not one whole JSON object: "},
      {"[1]", "is not one whole JSON object: it is no object; "},
      {"{}", "is not one of ours: lack of key 'job_definition_uuid'; remove it"},
      {"{\"job_definition_uuid\":5}", "is not one of ours: key 'job_definition_uuid'"},
      {configuration("file:///pool", "{}", "OTH"), "is of the system \"OTH\", not HDB; remove it"},
      {configuration("file:///pool", "{}", "HDB", "88888888"), "is of the host 88888888, this one is 99999999"},
      {of_full, "is of the type \"full\", not \"log\"; "},
      {other_instance, "is of the instance \"HDB01\", which its name does not say"},
      {no_pool, "has an empty \"location\""},
      {configuration("file:///pool", R"({"max_seconds_retry":"soon"})"), "cannot be used, remove it"},
      {configuration("file:///pool", "[]"), "is not one of ours: key 'io_ctl'"},
  };
  // The instance's own is good: it must not be taken instead.
  configure("log_backup_HDB_HDB00", configuration());
  for (const Row& row : rows) {
    configure("log_backup_HDB_HDB00_TN1", row.text);
    expect_refused(file + row.part);
  }
}

TEST_F(Ondemand, File_That_Cannot_Be_Read_Is_Named_With_Its_Cause) {
  root_.make_directory(std::string(state) + "log_backup_HDB_HDB00_TN1");
  expect_refused("log_backup_HDB_HDB00_TN1 cannot be read: Is a directory; it must be readable for the group sapsys");
}

TEST_F(Ondemand, State_Directory_That_Is_None_Is_Named) {
  root_.write("/var/opt/tarvex/dorsal3/agent/hana", "a file");
  expect_refused("the directory /var/opt/tarvex/dorsal3/agent/hana cannot be read: Not a directory");
}

TEST_F(Ondemand, Two_Files_For_One_Database_Are_Both_Named) {
  configure("log_backup_HDB_HDB00", configuration());
  configure("log_backup_HDB_HDB01", configuration());
  expect_refused("log_backup_HDB_HDB00 and /var/opt/tarvex/dorsal3/agent/hana/log_backup_HDB_HDB01 are both");
}

TEST_F(Ondemand, Landscape_That_Is_Not_Known_Is_Told) {
  configure("log_backup_HDB_HDB00", configuration());
  root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/nameserver.ini", "[landscape]\n");
  expect_refused("the landscape id of system HDB is not known: The landscape id of HANA system HDB");
  log_.claim_all();
}

TEST_F(Ondemand, Calls_That_Are_No_Log_Backup_Are_Refused) {
  configure("log_backup_HDB_HDB00", configuration());
  const std::string log = make_pipe("log_backup_2_0_1_9");
  struct Row {
    std::string input;
    std::vector<std::string> more;
    std::string user;
    const char* part;
  };
  const Row rows[] = {
      {"#PIPE " + pipe("COMPLETE_databackup_0_1"), {"-s", "5"}, "TN1@HDB", "begin data backups with a job definition"},
      {"#TOOLOPTION \"job_uuid=nonsense;\"\n#PIPE " + log, {"-s", "5"}, "TN1@HDB", "\"nonsense\", which is no uuid"},
      {"#PIPE " + log, {}, "TN1@HDB", "gave no backup id (option -s)"},
      {"#PIPE " + log, {"-s", "5"}, "TN1@OTH", "belong to system HDB, not to TN1@OTH"},
      {"#PIPE /tmp/log_backup_2_0_1_9", {"-s", "5"}, "TN1@HDB", "does not lie where HANA makes the pipes"},
      {"#PIPE " + log + "\n#PIPE /usr/sap/HDB/SYS/global/hdb/backint/DB_TN2/log_backup_2_0_1_9",
       {"-s", "5"},
       "TN1@HDB",
       "belong to TN1@HDB and to TN2@HDB"},
  };
  for (const Row& row : rows) {
    const Outcome outcome = call("backup", row.input, row.more, row.user);
    EXPECT_EQ(outcome.exit_code, 1) << row.part;
    for (const std::string& answer : outcome.answers) EXPECT_TRUE(answer.starts_with("#ERROR ")) << answer;
    EXPECT_EQ(log_.claim_containing(row.part), 1U) << row.part << "\nlogged:\n" << log_.dump();
  }
  EXPECT_EQ(server_.jobs().size(), 1U);
}

TEST(Object_Owner, Is_Read_From_The_Place_Of_The_Pipe) {
  struct Row {
    const char* path;
    const char* sid;
    const char* database;
  };
  const Row rows[] = {
      {"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/x", "HDB", "TN1"},
      {"/usr/sap/HDB/SYS/global/hdb/backint/DB_DB_A/x", "HDB", "DB_A"},
      {"/usr/sap/HDB/SYS/global/hdb/backint/SYSTEMDB/x", "HDB", "SYSTEMDB"},
      {"/usr/sap/H9B/SYS/global/hdb/backint/x", "H9B", "H9B"},
      {"/usr/sap/HDB/SYS/global/hdb/backint/DB_/x", nullptr, nullptr},
      {"/usr/sap/HDB/SYS/global/hdb/backint/TN1/x", nullptr, nullptr},
      {"/usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/y/x", nullptr, nullptr},
      {"/usr/sap/HDB/SYS/global/hdb/backint/", nullptr, nullptr},
      {"/usr/sap/HDB/SYS/global/hdb/backintx", nullptr, nullptr},
      {"/usr/sap/HDB", nullptr, nullptr},
      {"/usr/sap/hdb/SYS/global/hdb/backint/DB_TN1/x", nullptr, nullptr},
      {"usr/sap/HDB/SYS/global/hdb/backint/DB_TN1/x", nullptr, nullptr},
      {"", nullptr, nullptr},
  };
  for (const Row& row : rows) {
    Object_Owner owner;
    EXPECT_EQ(find_object_owner(row.path, owner), row.sid != nullptr) << row.path;
    const Object_Owner wanted = row.sid == nullptr ? Object_Owner{} : Object_Owner{row.sid, row.database};
    EXPECT_EQ(owner, wanted) << row.path;
  }
}

}  // namespace
}  // namespace hdbbackint
