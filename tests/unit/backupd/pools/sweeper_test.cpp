#include <fcntl.h>
#include <sys/file.h>

#include <filesystem>

#include "platform/unique_descriptor.h"
#include "unit/backupd/fake_agent.h"

using namespace backupd_test;

namespace {

const std::string run = uuid_of(70);
const std::string dataset = std::string("/pool/") + host_a + "/land-1/TN1/";

std::string report(int state) {
  return R"({"activities":[{"id":")" + run + R"(","state":)" + std::to_string(state) + "}]}";
}

TEST(Sweeper, Removes_What_A_Run_Left_That_Ended_Without_Its_Set) {
  Memory_Server server;
  server.add_pool();
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  // The first database got its set, the second did not, and its record was taken already.
  server.add_object(uuid_of(1), "ebid-1", run, "TN1", 100);
  server.add_object(uuid_of(2), "ebid-2", run, "TN1", 200);
  server.add_object(uuid_of(3), "ebid-3", uuid_of(71), "TN1", 300);
  ASSERT_EQ(
      server.agent("POST", "/sets", set_json(uuid_of(1), "ebid-1", "full", "2026-01-01 10:00:00", 100, run)).status,
      201U);
  ASSERT_EQ(server.agent("DELETE", "/backint/jobs/" + uuid_of(2)).status, 200U);
  for (const char* id : {"100", "200", "300"}) server.root.write(dataset + id + "/pipe_0", "data");
  ASSERT_TRUE(agent.call("job.report", report(10)).ok);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(1)).status, 200U);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(2)).status, 404U);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(3)).status, 200U);
  EXPECT_EQ(server.agent("GET", "/backint/files").number_of("total"), 2);
  EXPECT_TRUE(server.root.exists(dataset + "100/pipe_0"));
  EXPECT_FALSE(server.root.exists(dataset + "200"));
  EXPECT_TRUE(server.root.exists(dataset + "300/pipe_0"));
}

TEST(Sweeper, Removes_What_A_Canceled_Run_Left) {
  Memory_Server server;
  server.add_pool();
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(8)).ok);
  server.add_object(uuid_of(1), "ebid-1", run);
  server.root.write(dataset + "100/pipe_0", "data");
  ASSERT_TRUE(agent.call("job.report", report(9)).ok);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(1)).status, 404U);
  EXPECT_FALSE(server.root.exists(dataset + "100"));
}

TEST(Sweeper, Removes_What_A_Run_Left_Whose_Agent_Was_Killed_While_It_Stopped) {
  Memory_Server server;
  server.add_pool();
  {
    Fake_Agent agent(server, server.agent_key, obedient);
    ASSERT_TRUE(agent.hello(host_a).ok);
    ASSERT_TRUE(agent.call("job.report", report(8)).ok);
    server.add_object(uuid_of(1), "ebid-1", run);
    server.root.write(dataset + "100/pipe_0", "data");
  }
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a, R"(,"activities":[])").ok);
  EXPECT_EQ(server.request("GET", "/jobs/" + run).text_of("state_name"), "error");
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(1)).status, 404U);
  EXPECT_FALSE(server.root.exists(dataset + "100"));
}

TEST(Sweeper, Leaves_A_Dataset_That_Is_Written_To_For_The_Next_Run_That_Ends) {
  Memory_Server server;
  server.add_pool();
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  server.add_object(uuid_of(1), "ebid-1", run);
  server.root.write(dataset + "100/pipe_0", "data");
  server.root.write(dataset + "100/.pipe_1.part", "half");
  platform::Unique_Descriptor writer(
      ::open(server.root.real(dataset + "100/.pipe_1.part").c_str(), O_WRONLY | O_CLOEXEC));
  ASSERT_EQ(::flock(writer.get(), LOCK_EX | LOCK_NB), 0);
  ASSERT_TRUE(agent.call("job.report", report(10)).ok);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(1)).status, 404U);
  EXPECT_TRUE(server.root.exists(dataset + "100/pipe_0")) << "all of it or nothing";
  EXPECT_TRUE(server.root.exists(dataset + "100/.pipe_1.part"));
  EXPECT_EQ(server.request("POST", "/retention/sweep").number_of("datasets"), 0);
  writer.reset();
  ASSERT_TRUE(agent.call("job.report", R"({"activities":[{"id":")" + uuid_of(71) + R"(","state":7}]})").ok);
  EXPECT_FALSE(server.root.exists(dataset + "100"));
}

TEST(Sweeper, Leaves_A_Dataset_While_The_Record_Of_A_Run_That_Goes_On_Has_No_Backup_Id_Yet) {
  Memory_Server server;
  server.add_pool();
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(uuid_of(1), run, "TN1", 0)).status, 201U);
  const std::string other = std::string("/pool/") + host_a + "/land-1/TN2/200/pipe_0";
  server.root.write(dataset + "200/pipe_0", "data");
  server.root.write(other, "data");
  EXPECT_EQ(server.request("POST", "/retention/sweep").number_of("datasets"), 1);
  EXPECT_TRUE(server.root.exists(dataset + "200/pipe_0"));
  EXPECT_FALSE(server.root.exists(other)) << "of a database that no run backs up";
  ASSERT_TRUE(agent.call("job.report", report(9)).ok);
  EXPECT_EQ(server.request("POST", "/retention/sweep").number_of("datasets"), 1);
  EXPECT_FALSE(server.root.exists(dataset + "200"));
}

TEST(Sweeper, Touches_Nothing_When_A_Part_Of_The_Path_Is_Empty) {
  Memory_Server server;
  server.add_pool();
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  // A record as an agent stored it that did not know the landscape.
  ASSERT_TRUE(server.database.write([](backupd::Sql_Session& session) {
    session.execute(
        "INSERT INTO backint_jobs (id, uuid, host_uuid, job_act_id, sid, database_name, database_backup_id, "
        "landscape_id, pool_uuid, taken, document) VALUES (:a, :b, :c, :d, 'HDB', 'TN1', 100, '', :e, 0, '{}')",
        {session.next_number("backint_job"), uuid_of(1), std::string(host_a), run, std::string(pool_uuid)});
    return true;
  }));
  const std::vector<std::string> kept = {std::string("/pool/") + host_a + "/TN1/100/pipe_0", "/pool/TN1/100/pipe_0",
                                         "/TN1/100/pipe_0"};
  for (const std::string& path : kept) server.root.write(path, "data");
  ASSERT_TRUE(agent.call("job.report", report(10)).ok);
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(1)).status, 404U) << "the record goes";
  for (const std::string& path : kept) EXPECT_TRUE(server.root.exists(path)) << path;
}

TEST(Sweeper, Keeps_The_Records_Of_A_Run_That_Goes_On) {
  Memory_Server server;
  server.add_pool();
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  server.add_object(uuid_of(1), "ebid-1", run);
  server.root.write(dataset + "100/pipe_0", "data");
  EXPECT_EQ(server.request("POST", "/retention/sweep").text, R"({"jobs":0,"files":0,"datasets":0})");
  EXPECT_EQ(server.agent("GET", "/backint/jobs/" + uuid_of(1)).status, 200U);
}

TEST(Sweeper, Removes_Datasets_That_Nobody_Owns_And_Nothing_Else) {
  Memory_Server server;
  server.add_pool();
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  server.add_object(uuid_of(1), "ebid-1");
  // A backup that has begun: its record is there, its first object is not yet.
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(uuid_of(2), "", "TN1", 150)).status, 201U);
  const std::vector<std::string> kept = {
      dataset + "100/pipe_0",   dataset + "150/pipe_0",
      dataset + "notes/pipe_0", std::string("/pool/") + host_b + "/land-1/TN1/200/pipe_0",
      "/pool/README",           "/pool/other/land-1/TN1/200/pipe_0"};
  for (const std::string& path : kept) server.root.write(path, "data");
  server.root.write(dataset + "200/pipe_0", "data");
  server.root.write(dataset + "200/.pipe_1.part", "data");
  EXPECT_EQ(server.request("POST", "/retention/sweep").text, R"({"jobs":0,"files":0,"datasets":1})");
  for (const std::string& path : kept) EXPECT_TRUE(server.root.exists(path)) << path;
  EXPECT_FALSE(server.root.exists(dataset + "200"));
}

/// Registers the pool "/pool" once more under another name, as a server of a former version took it.
void add_second_name(Memory_Server& server, const std::string& directory) {
  ASSERT_TRUE(server.database.write([&](backupd::Sql_Session& session) {
    session.execute(
        "INSERT INTO pools (uuid, name, host_uuid, url, directory, max_bytes) VALUES (:a, 'MAIN', '', '', :b, 0)",
        {uuid_of(33), directory});
    return true;
  }));
}

TEST(Sweeper, Looks_Through_No_Pool_Whose_Directory_Meets_Another_Pools) {
  for (const char* directory : {"/pool", "/pool/", "//pool", "/link", "/pool/below"}) {
    Memory_Server server;
    server.add_pool();
    ASSERT_EQ(server.request("POST", "/pools", R"({"name":"apart","directory":"/apart"})").status, 201U);
    std::filesystem::create_directory_symlink(server.root.real("/pool"), server.root.real("/link"));
    add_second_name(server, directory);
    Fake_Agent agent(server, server.agent_key, obedient);
    ASSERT_TRUE(agent.hello(host_a).ok);
    server.add_object(uuid_of(1), "ebid-1");
    const std::vector<std::string> kept = {dataset + "100/pipe_0", dataset + "200/pipe_0"};
    const std::string apart = std::string("/apart/") + host_a + "/land-1/TN1/200/pipe_0";
    for (const std::string& path : kept) server.root.write(path, "data");
    server.root.write(apart, "nobody's");
    const Answer answer = server.request("POST", "/retention/sweep");
    EXPECT_EQ(answer.number_of("datasets"), 1) << answer.text;
    EXPECT_FALSE(server.root.exists(apart));
    for (const std::string& path : kept) EXPECT_TRUE(server.root.exists(path)) << directory << " " << path;
    json_spirit::Array skipped;
    ASSERT_TRUE(json_spirit::object_get(answer.body, "skipped", skipped)) << answer.text;
    ASSERT_EQ(skipped.size(), 2U) << "both of them";
    EXPECT_EQ(
        skipped[0].get_str().find(std::string("the pool \"MAIN\" is not swept: its directory ") + directory + " "), 0U)
        << answer.text;
    EXPECT_NE(skipped[1].get_str().find(std::string("the pool \"MAIN\" (") + directory + "); "), std::string::npos);
  }
}

TEST(Sweeper, Leaves_What_A_Record_Of_Any_Pool_Owns) {
  Memory_Server server;
  server.add_pool();
  // Another name of the same disk, which paths do not show.
  ASSERT_EQ(server.request("POST", "/pools", R"({"name":"mount","directory":"/mount"})").status, 201U);
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  server.add_object(uuid_of(1), "ebid-1");
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(uuid_of(2), "", "TN1", 150)).status, 201U);
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(uuid_of(3), run, "TN2", 0)).status, 201U);
  const std::string below = std::string("/mount/") + host_a + "/land-1/";
  const std::vector<std::string> kept = {below + "TN1/100/pipe_0", below + "TN1/150/pipe_0", below + "TN2/300/pipe_0"};
  for (const std::string& path : kept) server.root.write(path, "data");
  server.root.write(below + "TN1/200/pipe_0", "nobody's");
  EXPECT_EQ(server.request("POST", "/retention/sweep").text, R"({"jobs":0,"files":0,"datasets":1})");
  for (const std::string& path : kept) EXPECT_TRUE(server.root.exists(path)) << path;
}

TEST(Sweeper, Sweeps_File_Pools_Of_Its_Own_Host_Only) {
  Memory_Server server;
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_EQ(server
                .request("POST", "/pools",
                         std::string(R"({"name":"near","url":"file:///near","host_uuid":")") + host_a + "\"}")
                .status,
            201U);
  ASSERT_EQ(
      server
          .request("POST", "/pools", std::string(R"({"name":"far","url":"file:///far","host_uuid":")") + host_b + "\"}")
          .status,
      201U);
  const std::string below = std::string("/") + host_a + "/land-1/TN1/200/pipe_0";
  server.root.write("/near" + below, "data");
  server.root.write("/far" + below, "data");
  EXPECT_EQ(server.request("POST", "/retention/sweep").number_of("datasets"), 1);
  EXPECT_FALSE(server.root.exists("/near" + below));
  EXPECT_TRUE(server.root.exists("/far" + below));
}

/// Where the backups of T_1 lie, and where they lay while '_' was encoded in the names of directories.
const std::vector<std::string> places_of_t_1 = {std::string("/pool/") + host_a + "/land-1/T_1/",
                                                std::string("/pool/") + host_a + "/land-1/T%5F1/"};

TEST(Sweeper, Removes_What_A_Run_Left_Of_A_Database_Whose_Name_Holds_An_Underscore) {
  for (const std::string& place : places_of_t_1) {
    Memory_Server server;
    server.add_pool();
    Fake_Agent agent(server, server.agent_key, obedient);
    ASSERT_TRUE(agent.hello(host_a).ok);
    ASSERT_TRUE(agent.call("job.report", report(3)).ok);
    server.add_object(uuid_of(1), "ebid-1", run, "T_1");
    server.root.write(place + "100/pipe_0", "data");
    ASSERT_TRUE(agent.call("job.report", report(10)).ok);
    EXPECT_FALSE(server.root.exists(place + "100")) << place;
  }
}

TEST(Sweeper, Knows_Whose_Directory_It_Is_When_The_Name_Of_The_Database_Holds_An_Underscore) {
  Memory_Server server;
  server.add_pool();
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  ASSERT_TRUE(agent.call("job.report", report(3)).ok);
  // One that goes on without an id, one whose first object is still on its way; T_2 nobody backs up.
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(uuid_of(1), run, "T_1", 0)).status, 201U);
  ASSERT_EQ(server.agent("POST", "/backint/jobs", job_json(uuid_of(2), "", "T_3", 150)).status, 201U);
  std::vector<std::string> kept;
  std::vector<std::string> swept;
  for (const std::string name : {"T_", "T%5F"}) {
    const std::string beneath = std::string("/pool/") + host_a + "/land-1/" + name;
    kept.insert(kept.end(), {beneath + "1/200/pipe_0", beneath + "3/150/pipe_0"});
    swept.insert(swept.end(), {beneath + "2/200/pipe_0", beneath + "3/200/pipe_0"});
  }
  for (const auto* list : {&kept, &swept})
    for (const std::string& path : *list) server.root.write(path, "data");
  EXPECT_EQ(server.request("POST", "/retention/sweep").number_of("datasets"), 4);
  for (const std::string& path : kept) EXPECT_TRUE(server.root.exists(path)) << path;
  for (const std::string& path : swept) EXPECT_FALSE(server.root.exists(path)) << path;
}

TEST(Sweeper, Leaves_A_Directory_Whose_Name_Was_Cut) {
  Memory_Server server;
  server.add_pool();
  Fake_Agent agent(server, server.agent_key, obedient);
  ASSERT_TRUE(agent.hello(host_a).ok);
  const std::string path = std::string("/pool/") + host_a + "/land-1/" + std::string(160, 'T') + "/200/pipe_0";
  server.root.write(path, "data");
  EXPECT_EQ(server.request("POST", "/retention/sweep").number_of("datasets"), 0);
  EXPECT_TRUE(server.root.exists(path));
}

}  // namespace
