// More bad days: places, accounts, programs and files that go away, and what is asked for wrongly.

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "scrt/uuid.h"
#include "system_fixture.h"

using namespace system_tests;
namespace fs = std::filesystem;

namespace {

constexpr const char* module_path = "/opt/tarvex/dorsal3/lib/modules/hana.so";
constexpr const char* sid_path = "/usr/sap/HDB";
constexpr unsigned status_invalid = 422;

using Codes = std::vector<std::string>;

class More_Bad_Days : public System_Fixture {
 protected:
  /// A backup that ends in an error with this one alert; the operator is told of it, and the cause is in the
  /// agent's log. No set comes of it.
  void expect_failed_backup(const std::string& alert, const std::string& cause, std::vector<std::string> more = {}) {
    const Tool_Result result = backup(tenant(), std::move(more));
    EXPECT_EQ(result.code, 1) << result.out << result.err;
    EXPECT_EQ(text_of(result.json(), "state"), "error") << result.out;
    EXPECT_TRUE(text_of(result.json(), "result").starts_with("The backup FAILED: ")) << result.out;
    EXPECT_TRUE(eventually([&] { return alerts() == Codes{alert}; })) << ::testing::PrintToString(alerts());
    EXPECT_NE(agent_log().find(cause), std::string::npos) << cause;
    EXPECT_TRUE(sets().empty());
    EXPECT_TRUE(no_program_of_the_backup_runs());
  }

  void expect_empty_pool() const {
    EXPECT_TRUE(eventually([&] { return pool_files().empty(); })) << ::testing::PrintToString(pool_files());
  }

  void expect_good_backup() const {
    const Tool_Result result = backup(tenant());
    EXPECT_EQ(result.code, 0) << result.out << result.err;
    ASSERT_EQ(sets().size(), 1U);
    EXPECT_EQ(dorsal3({"verify", text_of(sets().front(), "uuid")}).code, 0);
  }

  [[nodiscard]] bool no_program_of_the_backup_runs() const {
    return eventually([&] {
      const auto lines = processes_below(real(""));
      return std::none_of(lines.begin(), lines.end(), [](const std::string& line) {
        return line.find("/hdbbackint ") != std::string::npos || line.find("/hdbsql ") != std::string::npos;
      });
    });
  }

  [[nodiscard]] static std::string tenant() { return std::string(instance) + "/TN1"; }

  static void expect_keys(const json_spirit::Object& object, const std::vector<std::string>& keys) {
    for (const std::string& key : keys) EXPECT_NE(object.find(key), nullptr) << key;
  }

  [[nodiscard]] static json_spirit::Object first_of(const json_spirit::Object& object, const std::string& key) {
    json_spirit::Array rows;
    EXPECT_TRUE(json_spirit::object_get(object, key, rows)) << key;
    EXPECT_FALSE(rows.empty()) << key;
    return rows.empty() ? json_spirit::Object() : rows.front().get_obj();
  }
};

}  // namespace

TEST_F(More_Bad_Days, A_Regular_File_Lies_In_The_Place_Of_A_Served_Pool) {
  start_all();
  fs::remove_all(real("/srv/pool"));
  std::ofstream(real("/srv/pool")) << "somebody's own";
  expect_failed_backup("7/8", "Backint exited with exit code 1 ");
  EXPECT_TRUE(fs::is_regular_file(real("/srv/pool"))) << "it was replaced";
  EXPECT_EQ(fs::file_size(real("/srv/pool")), 14U) << "it was changed";
}

TEST_F(More_Bad_Days, The_Directory_Of_A_File_Pool_Runs_Through_A_Regular_File) {
  start_all();
  std::ofstream(real("/srv/disk")) << "no directory";
  ASSERT_EQ(dorsal3({"pools", "--add", "disk", "--url", "file:///srv/disk/pool"}).code, 0);
  expect_failed_backup("7/8", "/srv/disk", {"--pool", "disk"});
  expect_empty_pool();
  EXPECT_TRUE(fs::is_regular_file(real("/srv/disk"))) << "it was replaced";
}

TEST_F(More_Bad_Days, The_Account_Is_Locked_After_The_Logon) {
  start_all();
  fault("lock_account = 1");
  expect_failed_backup("7/3", "as 'SYSTEM': * 416: user is locked");
  expect_empty_pool();
  no_faults();
  expect_good_backup();
}

TEST_F(More_Bad_Days, The_Installation_Is_Gone_At_Backup_Time) {
  start_all();
  fs::rename(real(sid_path), real(sid_path) + ".away");
  const Tool_Result result = backup(tenant());
  fs::rename(real(sid_path) + ".away", real(sid_path));  // the stand-in is stopped by its own tools
  EXPECT_EQ(result.code, 1) << result.out;
  EXPECT_EQ(text_of(result.json(), "state"), "skipped") << "a host without the instance is not the active one";
  EXPECT_EQ(text_of(result.json(), "message"), "HANA instance 'HDB00' of system 'HDB' is not installed on this host");
  EXPECT_TRUE(alerts().empty());
  EXPECT_TRUE(sets().empty());
  expect_empty_pool();
}

TEST_F(More_Bad_Days, Hdbbackint_Is_Killed_In_The_Middle_Of_A_Stream) {
  start_all({.data_mb = 8});
  fault("kill_hdbbackint_after_bytes = 1000000 | count=1");
  expect_failed_backup("7/8", "Backint exited with exit code 137");
  expect_good_backup();  // at once, while the pool may still hold what the killed one left
  ASSERT_FALSE(HasFatalFailure());
  json_spirit::Array files;
  ASSERT_TRUE(json_spirit::object_get(sets().front(), "files", files));
  EXPECT_TRUE(eventually([&] { return pool_files().size() == files.size(); }))
      << ::testing::PrintToString(pool_files());
}

TEST_F(More_Bad_Days, The_Server_Of_The_Database_Dies_In_The_Middle) {
  start_all({.data_mb = 8});
  fault("die_server_after_bytes = 1000000 | count=1");
  expect_failed_backup("7/8", "Connection down");
  expect_empty_pool();
  no_faults();
  start_hana();
  expect_good_backup();
}

TEST_F(More_Bad_Days, The_Module_Is_Missing) {
  start_all();
  (void)stop_agent();
  fs::remove(real(module_path));
  start_agent();
  EXPECT_TRUE(agent_says("Failed to load module 'hana'"));
  const Tool_Result check = dorsal3({"check"});
  EXPECT_EQ(check.code, 1) << check.out;
  EXPECT_NE(check.out.find("this agent has no module for instances of type"), std::string::npos) << check.out;
  const Tool_Result result = backup(tenant());
  EXPECT_NE(result.code, 0) << result.out;
  EXPECT_NE(result.out.find("this agent has no module"), std::string::npos) << result.out;
  EXPECT_TRUE(sets().empty());
  expect_empty_pool();
}

TEST_F(More_Bad_Days, An_Entry_Of_Another_Kind_Of_Database_Is_Refused) {
  start_all();
  json_spirit::Object pool = first_of(dorsal3({"pools"}).json(), "pools");
  const json_spirit::Object resource = first_of(dorsal3({"discover"}).json(), "resources");
  const json_spirit::Object definition{{"id", make_uuid()},
                                       {"name", "another kind"},
                                       {"type", "backup"},
                                       {"subtype", "full"},
                                       {"module", "hana"},
                                       {"host_uuid", host_uuid()},
                                       {"source", json_spirit::Object{{"id", text_of(resource, "uuid")},
                                                                      {"name", instance},
                                                                      {"entries", json_spirit::Array{"oracle/ORCL"}}}},
                                       {"target", json_spirit::Object{{"pool_uuid", text_of(pool, "uuid")}}}};
  const Rest_Answer answer = rest("POST", "/job-definitions", json_spirit::dump_json(definition));
  EXPECT_EQ(answer.status, status_invalid) << answer.body;
  EXPECT_NE(answer.body.find("oracle/ORCL"), std::string::npos) << answer.body;
  EXPECT_EQ(rest("GET", "/job-definitions/" + text_of(definition, "id")).status, 404U) << "it was stored";
}

TEST_F(More_Bad_Days, Every_Json_Answer_Has_Its_Keys) {
  start_all();
  expect_keys(first_of(dorsal3({"discover"}).json(), "resources"), {"uuid", "name", "type", "instances"});

  const json_spirit::Object result = backup(tenant()).json();
  expect_keys(result, {"instance", "job", "databases", "state", "message", "sets", "result"});
  EXPECT_EQ(text_of(result, "state"), "completed");

  const json_spirit::Object info = first_of(dorsal3({"info"}).json(), "instances");
  expect_keys(info, {"name", "type", "uuid", "databases", "sets"});
  expect_keys(first_of(info, "databases"), {"name", "active"});
  const json_spirit::Object set = first_of(info, "sets");
  expect_keys(set,
              {"uuid", "database", "type", "start_time", "source_size", "files", "database_backup_id", "lifeline"});

  const json_spirit::Object verified = dorsal3({"verify", text_of(set, "uuid")}).json();
  expect_keys(verified, {"set", "objects", "ok"});
  expect_keys(first_of(verified, "objects"), {"name", "size", "ok"});

  json_spirit::Object error;
  EXPECT_TRUE(json_spirit::object_get(dorsal3({"verify", make_uuid()}).json(), "error", error));
  expect_keys(error, {"code", "message"});
}
