#include <random>

#include "support/virtual_clock.h"
#include "unit/hdbbackint/agent_fixture.h"

namespace hdbbackint {
namespace {

using Backup = Agent_Fixture;

std::string text_of(const json_spirit::Object& object, const char* key) {
  std::string text;
  json_spirit::object_get(object, key, text);
  return text;
}

std::string noise(std::size_t size) {
  std::mt19937 random(11);
  std::string text(size, '\0');
  for (char& c : text) c = static_cast<char>(random());
  return text;
}

TEST_F(Backup, Object_Is_Stored_Recorded_And_Answered) {
  const std::string content = noise(3'000'000);
  const std::string name = object_name("1_1");
  const std::string ebid = save(name, content);
  const auto files = server_.files();
  ASSERT_EQ(files.size(), 1U);
  EXPECT_EQ(text_of(files[0], "extern_backup_id"), ebid);
  EXPECT_EQ(text_of(files[0], "filename"), name);
  EXPECT_EQ(text_of(files[0], "origin_path"), std::string(pipe_directory) + "/" + name);
  EXPECT_EQ(text_of(files[0], "info_uuid"), job_uuid);
  EXPECT_EQ(text_of(files[0], "source_type"), "PIPE");
  EXPECT_EQ(text_of(files[0], "compression"), "none");
  EXPECT_EQ(text_of(files[0], "checksum").size(), 32U);
  EXPECT_EQ(files[0].find("size")->get_uint64(), content.size());
  EXPECT_EQ(files[0].find("database_backup_id")->get_uint64(), 1707397841205U);
  EXPECT_EQ(server_.job(job_uuid).find("database_backup_id")->get_uint64(), 1707397841205U);
  ASSERT_EQ(stored().size(), 1U);
  EXPECT_EQ(stored()[0], "/pool/" + text_of(files[0], "storage_path"));
  EXPECT_TRUE(stored()[0].starts_with(
      "/pool/99999999-0b0a-4908-8706-050403020100/77777777-0b0a-4908-8706-050403020100/TN1/1707397841205/"))
      << stored()[0];
  EXPECT_TRUE(root_.read(stored()[0]) == content);
}

TEST_F(Backup, Answers_Give_Raw_Sizes_And_The_Version) {
  add_job("file:///pool", "zstd", {});
  const std::string pipe = make_pipe(object_name("0_1"));
  std::thread hana([&] { EXPECT_TRUE(write_pipe(pipe, std::string(1'000'001, 'x'))); });
  const Outcome outcome = call("backup", "#PIPE " + pipe + "\n", {"-s", "7"}, "HDB", "9.99");
  hana.join();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_TRUE(outcome.software_id.starts_with("#SOFTWAREID \"backint 1.50\" \"Dorsal3 hdbbackint "))
      << outcome.software_id;
  ASSERT_EQ(outcome.answers.size(), 1U);
  EXPECT_EQ(outcome.answers[0], "#SAVED \"" + ebid_of(outcome.answers[0]) + "\" \"" + pipe + "\" 1000001");
}

TEST_F(Backup, Every_Size_Comes_Back_With_Every_Method_Over_Every_Pool) {
  for (const std::string& pool : {std::string("file:///pool"), http_pool()}) {
    for (const char* method : {"none", "lzop", "zstd", "auto"}) {
      add_job(pool, method, {});
      for (const std::size_t size : {0, 1, 4096, 524288, 524289, 2621441}) {
        const std::string content = size % 2 == 0 ? noise(size) : std::string(size, 'y');
        const std::string name = object_name(std::to_string(size));
        const std::string ebid = save(name, content, {});
        const std::string path = std::string(pipe_directory) + "/" + name;
        std::string back;
        std::thread hana([&] { back = read_pipe(path); });
        const Outcome outcome = call("restore", "#EBID " + ebid + " " + path);
        hana.join();
        EXPECT_EQ(outcome.exit_code, 0);
        EXPECT_EQ(outcome.answers, std::vector<std::string>{"#RESTORED \"" + ebid + "\" \"" + path + "\""});
        EXPECT_TRUE(back == content) << pool << " " << method << " " << size;
      }
    }
  }
}

TEST_F(Backup, Pipes_That_Hana_Opens_In_Reverse_Order_Are_All_Served) {
  std::string input;
  std::vector<std::string> pipes;
  for (int i = 0; i < 32; ++i) {
    pipes.push_back(make_pipe(object_name("1_" + std::to_string(i))));
    input += "#PIPE " + pipes.back() + "\n";
  }
  std::thread hana([&] {
    for (auto pipe = pipes.rbegin(); pipe != pipes.rend(); ++pipe) EXPECT_TRUE(write_pipe(*pipe, *pipe));
  });
  const Outcome outcome = call("backup", input);
  hana.join();
  EXPECT_EQ(outcome.exit_code, 0);
  EXPECT_EQ(outcome.answers.size(), 32U);
  EXPECT_EQ(server_.files().size(), 32U);
}

TEST_F(Backup, Same_Name_Saved_Twice_Gives_Two_Versions) {
  const std::string name = object_name("1_1");
  const std::string first = save(name, "first");
  const std::string second = save(name, "second");
  EXPECT_NE(first, second);
  EXPECT_EQ(server_.files().size(), 2U);
}

TEST_F(Backup, Bad_Entries_Fail_Alone) {
  const std::string good = make_pipe(object_name("1_1"));
  root_.write(std::string(pipe_directory) + "/plain", "x");
  root_.write("/data/file with \"quotes\"", "content of a file");
  const std::string directory = pipe_directory;
  std::thread hana([&] { EXPECT_TRUE(write_pipe(good, "good")); });
  const Outcome outcome =
      call("backup", "#TOOLOPTION \"job_uuid=" + std::string(job_uuid) + ";\"\n" + "#PIPE " + directory +
                         "/missing\n#PIPE " + directory + "/plain 5\n#PIPE " + good +
                         "\n#FILE \"/data/file with \\\"quotes\\\"\"\n#FILE " + directory + "\n#PIPE relative\n");
  hana.join();
  EXPECT_EQ(outcome.exit_code, 1);
  std::size_t saved = 0;
  std::size_t failed = 0;
  for (const std::string& answer : outcome.answers) {
    saved += answer.starts_with("#SAVED ");
    failed += answer.starts_with("#ERROR ");
  }
  EXPECT_EQ(saved, 2U);
  EXPECT_EQ(failed, 4U);
  EXPECT_FALSE(root_.exists(directory + "/missing")) << "a pipe is never made by the agent";
  EXPECT_EQ(log_.claim_containing("No such file or directory"), 1U);
  EXPECT_EQ(log_.claim_containing("it is a plain file, not a named pipe"), 1U);
  EXPECT_EQ(log_.claim_containing("it is a directory"), 1U);
  EXPECT_EQ(log_.claim_containing("it is not an absolute path"), 1U);
}

TEST_F(Backup, Log_Backup_Is_Refused_With_One_Clear_Line) {
  const std::string one = make_pipe("log_backup_0_0_0_0");
  const std::string two = make_pipe("log_backup_2_0_1_9");
  const Outcome outcome = call("backup", "#PIPE " + one + "\n#PIPE " + two + "\n", {"-s", "1", "-l", "LOG"});
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.answers, (std::vector<std::string>{"#ERROR \"" + one + "\"", "#ERROR \"" + two + "\""}));
  EXPECT_EQ(log_.claim_containing("on-demand log backup is not set up for database TN1@HDB"), 1U);
}

TEST_F(Backup, Of_Another_Database_Than_That_Of_The_Record_Is_Refused_Before_Anything_Is_Stored) {
  const std::string pipe = make_pipe(object_name("1_1"));
  const std::string option = "#TOOLOPTION \"job_uuid=" + std::string(job_uuid) + ";\"\n";
  const std::string of_system = "/usr/sap/HDB/SYS/global/hdb/backint/SYSTEMDB/" + object_name("1_1");
  const struct {
    const char* user;
    std::string object;
    const char* other;
  } rows[] = {{"SYSTEMDB@HDB", pipe, "SYSTEMDB"}, {"TN2@HDB", pipe, "TN2"}, {"HDB", of_system, "SYSTEMDB"}};
  for (const auto& row : rows) {
    const Outcome outcome = call("backup", option + "#PIPE " + row.object, {"-s", "100"}, row.user);
    EXPECT_EQ(outcome.exit_code, 1) << row.user;
    EXPECT_EQ(outcome.answers, std::vector<std::string>{"#ERROR \"" + row.object + "\""});
    EXPECT_EQ(log_.claim_containing("is for database TN1, but HANA backs up " + std::string(row.other)), 1U);
  }
  EXPECT_TRUE(stored().empty());
  save(object_name("2_1"), "the record still knows no backup id", {"-s", "200"});
}

TEST_F(Backup, By_A_User_Without_A_Database_Goes_By_The_Place_Of_The_Pipes) {
  const std::string pipe = make_pipe(object_name("1_1"));
  const std::string option = "#TOOLOPTION \"job_uuid=" + std::string(job_uuid) + ";\"\n";
  std::thread hana([&] { EXPECT_TRUE(write_pipe(pipe, "x")); });
  EXPECT_EQ(call("backup", option + "#PIPE " + pipe, {"-s", "100"}, "HDB").exit_code, 0);
  hana.join();
}

TEST_F(Backup, In_A_System_Without_Tenants_Is_Of_The_Database_That_Is_Called_Like_It) {
  const std::string path = "/usr/sap/HDB/SYS/global/hdb/backint/" + object_name("1_1");
  ASSERT_EQ(::mkfifo(root_.real(path).c_str(), 0600), 0);
  const std::string option = "#TOOLOPTION \"job_uuid=" + std::string(job_uuid) + ";\"\n";
  EXPECT_EQ(call("backup", option + "#PIPE " + path, {"-s", "100"}, "HDB").exit_code, 1);
  EXPECT_EQ(log_.claim_containing("is for database TN1, but HANA backs up HDB: nothing is stored"), 1U);
  add_job("file:///pool", "none", {}, "HDB");
  std::thread hana([&] { EXPECT_TRUE(write_pipe(path, "x")); });
  EXPECT_EQ(call("backup", option + "#PIPE " + path, {"-s", "100"}, "HDB").exit_code, 0);
  hana.join();
}

TEST_F(Backup, Unknown_Job_Another_System_And_Another_Backup_Id_Are_Refused) {
  const std::string pipe = make_pipe(object_name("1_1"));
  const std::string unknown = "#TOOLOPTION \"job_uuid=12345678-0b0a-4908-8706-050403020100;\"\n#PIPE " + pipe;
  EXPECT_EQ(call("backup", unknown).answers, std::vector<std::string>{"#ERROR \"" + pipe + "\""});
  EXPECT_EQ(log_.claim_containing("cannot read the Backint job record 12345678"), 1U);
  EXPECT_EQ(call("backup", "#PIPE " + pipe, {}, "TN1@OTH").exit_code, 1);
  EXPECT_EQ(log_.claim_containing("belongs to system HDB, not to TN1@OTH"), 1U);
  save(object_name("2_1"), "x", {"-s", "100"});
  EXPECT_EQ(call("backup", "#PIPE " + pipe, {"-s", "101"}).exit_code, 1);
  EXPECT_EQ(log_.claim_containing("cannot set backup id 101"), 1U);
  log_.claim_all();
}

TEST_F(Backup, Record_That_Is_Refused_Leaves_No_Object) {
  server_.refuse_files(true);
  const std::string pipe = make_pipe(object_name("1_1"));
  std::thread hana([&] { write_pipe(pipe, "x"); });
  const Outcome outcome = call("backup", "#PIPE " + pipe);
  hana.join();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.answers, std::vector<std::string>{"#ERROR \"" + pipe + "\""});
  EXPECT_TRUE(stored().empty());
  EXPECT_EQ(log_.claim_containing("backupd did not take its record: "), 1U);
  log_.claim_all();
}

TEST_F(Backup, Full_Pool_Closes_The_Pipe_Early_And_Fails_The_Object) {
  add_job(http_pool(), "none", {{"max_seconds_retry", 600}, {"resumption_buffer_size", 1 << 20}});
  server_.fill_pool(true);
  const std::string pipe = make_pipe(object_name("1_1"));
  bool taken = true;
  std::thread hana([&] { taken = write_pipe(pipe, std::string(50'000'000, 'x')); });
  const Outcome outcome = call("backup", "#PIPE " + pipe);
  hana.join();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_FALSE(taken);
  EXPECT_EQ(log_.claim_containing("the storage pool is full"), 1U);
}

TEST_F(Backup, Missing_Pool_Fails_The_Object) {
  add_job("file:///nowhere", "none", {});
  const std::string pipe = make_pipe(object_name("1_1"));
  std::thread hana([&] { write_pipe(pipe, "x"); });
  EXPECT_EQ(call("backup", "#PIPE " + pipe).exit_code, 1);
  hana.join();
  EXPECT_EQ(log_.claim_containing("cannot use the storage pool /nowhere"), 1U);
}

TEST_F(Backup, Transfer_That_Breaks_Is_Begun_Again_From_The_Resumption_Buffer) {
  support::Virtual_Clock clock;
  add_job(http_pool(), "none", {{"max_seconds_retry", 60}, {"resumption_buffer_size", 8 << 20}});
  const std::string content = noise(3'000'000);
  const std::string pipe = make_pipe(object_name("1_1"));
  // Job, backup id and the pool's own questions come first: the body of the PUT breaks.
  transport_.fault({support::Http_Fault::cut_request, 100'000}, 1, 4);
  std::thread hana([&] { EXPECT_TRUE(write_pipe(pipe, content)); });
  const Outcome outcome = call("backup", "#PIPE " + pipe);
  hana.join();
  EXPECT_EQ(outcome.exit_code, 0) << log_.dump();
  ASSERT_EQ(server_.objects().size(), 1U);
  EXPECT_TRUE(server_.objects().begin()->second == content);
}

TEST_F(Backup, Lost_Answer_To_The_Commit_Is_Looked_Up) {
  support::Virtual_Clock clock;
  add_job(http_pool(), "none", {{"max_seconds_retry", 60}, {"resumption_buffer_size", 0}});
  const std::string pipe = make_pipe(object_name("1_1"));
  transport_.fault({support::Http_Fault::lose_reply}, 1, 4);
  std::thread hana([&] { EXPECT_TRUE(write_pipe(pipe, "content")); });
  const Outcome outcome = call("backup", "#PIPE " + pipe);
  hana.join();
  EXPECT_EQ(outcome.exit_code, 0) << log_.dump();
  EXPECT_EQ(server_.objects().size(), 1U);
  EXPECT_EQ(server_.files().size(), 1U);
}

TEST_F(Backup, Transfer_That_Outgrew_The_Buffer_Fails_Clearly) {
  support::Virtual_Clock clock;
  add_job(http_pool(), "none", {{"max_seconds_retry", 60}, {"resumption_buffer_size", 1000}});
  const std::string pipe = make_pipe(object_name("1_1"));
  transport_.fault({support::Http_Fault::cut_request, 2'000'000}, 1, 4);
  std::thread hana([&] { write_pipe(pipe, noise(5'000'000)); });
  const Outcome outcome = call("backup", "#PIPE " + pipe);
  hana.join();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(log_.claim_containing("the start of the stream is no longer in the resumption buffer of 1000 bytes"), 1U)
      << log_.dump();
  EXPECT_TRUE(server_.objects().empty());
}

TEST_F(Backup, Stop_Leaves_Nothing_Visible_And_Fails_What_Is_Open) {
  const std::string half = make_pipe(object_name("1_1"));
  const std::string idle = make_pipe(object_name("1_2"));
  std::thread hana([&] {
    const int fd = ::open(root_.real(half).c_str(), O_WRONLY | O_CLOEXEC);
    const std::string part = noise(2'000'000);
    EXPECT_EQ(::write(fd, part.data(), part.size()), static_cast<ssize_t>(part.size()));
    stop_.request();
    // The agent closes its end although ours is open.
    char byte = 'x';
    while (::write(fd, &byte, 1) == 1) std::this_thread::yield();
    ::close(fd);
  });
  const Outcome outcome = call("backup", "#PIPE " + half + "\n#PIPE " + idle + "\n");
  hana.join();
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(outcome.answers.size(), 2U);
  for (const std::string& answer : outcome.answers) EXPECT_TRUE(answer.starts_with("#ERROR ")) << answer;
  EXPECT_TRUE(stored().empty());
  EXPECT_TRUE(server_.files().empty());
  EXPECT_EQ(log_.claim_containing("stopped"), 2U);
}

TEST_F(Backup, Malformed_Input_Touches_Nothing) {
  const std::string pipe = make_pipe(object_name("1_1"));
  const Outcome outcome = call("backup", "#PIPE " + pipe + "\n#PIPE \"broken\n");
  EXPECT_EQ(outcome.exit_code, 2);
  EXPECT_EQ(outcome.answers, std::vector<std::string>{"#ERROR \"" + pipe + "\""});
  EXPECT_EQ(log_.claim_containing("the input file is malformed: line 3"), 1U);
}

TEST_F(Backup, Server_That_Is_Away_Fails_The_Call_With_Its_Address) {
  support::Virtual_Clock clock;
  transport_.refuse_connections(1000);
  const std::string pipe = make_pipe(object_name("1_1"));
  const Outcome outcome = call("backup", "#PIPE " + pipe);
  EXPECT_EQ(outcome.exit_code, 1);
  EXPECT_EQ(log_.claim_containing("cannot reach backupd at http://backupd:8443"), 1U) << log_.dump();
  log_.claim_all();
}

TEST_F(Backup, Host_That_Is_Not_Set_Up_Is_A_Usage_Failure) {
  ASSERT_TRUE(platform::remove_file("/etc/opt/tarvex/dorsal3/agent.toml"));
  const std::string pipe = make_pipe(object_name("1_1"));
  EXPECT_EQ(call("backup", "#PIPE " + pipe).exit_code, 2);
  EXPECT_EQ(log_.claim_containing("agent.toml"), 1U) << log_.dump();
}

}  // namespace
}  // namespace hdbbackint
