// A restore on a system that spans several hosts.

#include <signal.h>

#include <ctime>
#include <filesystem>
#include <map>

#include "cluster_fixture.h"
#include "scrt/time_text.h"
#include "scrt/uuid.h"

using namespace system_tests;

namespace {

constexpr const char* staged_control = "/var/opt/tarvex/dorsal3/agent/hana/catalog/restore_HDB_TN1.json";
constexpr const char* staged_file = "/var/opt/tarvex/dorsal3/agent/hana/catalog/catalog_HDB_TN1_HDB_TN1.json";

json_spirit::Object object_in(const std::string& body) {
  json_spirit::Value value;
  return json_spirit::load_json(body, value) && value.is_object() ? value.get_obj() : json_spirit::Object();
}

json_spirit::Object first_row(const std::string& body) {
  json_spirit::Array rows;
  (void)json_spirit::object_get(object_in(body), "rows", rows);
  return rows.empty() ? json_spirit::Object() : rows.front().get_obj();
}

class Cluster_Restores : public Cluster_Fixture {
 protected:
  /// A log backup is set up, so that HANA's catalog goes through Backint; each database has a full backup.
  void start_with_backups(const std::vector<std::string>& databases) {
    start_scale_out(2);
    ASSERT_EQ(server().dorsal3({"log-backup", "enable", instance, "--host", "hana01", "--yes"}).code, 0);
    for (const std::string& database : databases) {
      put(database, "a", "1");
      ASSERT_EQ(server().backup(std::string(instance) + "/" + database, {"--host", "hana01"}).code, 0);
      put(database, "a", "2");
    }
  }
  [[nodiscard]] json_spirit::Object full_of(const std::string& database) const {
    return first_row(server().rest("GET", "/sets?sort=id&order=desc&limit=1&type=full&database=" + database).body);
  }
  /// A restore on hana01 of one database in place; the id of its run.
  [[nodiscard]] std::string start_restore(const std::string& database, const json_spirit::Object& restore_as,
                                          const std::string& set = {}) const {
    const std::string resource = text_of(first_row(server().rest("GET", "/resources").body), "uuid");
    json_spirit::Object entry{{"original", json_spirit::Object{{"sid", "HDB"}, {"database", database}}},
                              {"restore_as", restore_as}};
    if (!set.empty()) entry["catalog_uuid"] = set;
    const std::string id = make_uuid();
    const json_spirit::Object definition{
        {"id", id},
        {"name", "restore"},
        {"type", "restore"},
        {"subtype", "point-in-time"},
        {"module", "hana"},
        {"host_uuid", host("hana01").uuid()},
        {"source", json_spirit::Object{{"id", resource}, {"name", instance}, {"entries", json_spirit::Array{entry}}}},
        {"options", json_spirit::Object{}},
        {"target", json_spirit::Object{{"resource_uuid", resource}}}};
    const auto stored = server().rest("POST", "/job-definitions", json_spirit::dump_json(definition));
    EXPECT_TRUE(stored.status == 200 || stored.status == 201) << stored.body;
    return text_of(object_in(server().rest("POST", "/job-definitions/" + id + "/start", "{}").body), "job_act_id");
  }
  /// An agent that is slow to answer is not asked for long.
  void expect_planned(const std::string& wanted, const std::vector<std::string>& more = {}) const {
    EXPECT_TRUE(eventually([&] { return planned(more) == wanted; })) << planned(more);
  }
  /// Where the command would restore the system database from its full backup, and what happens to the other hosts; or
  /// the codes of the refusals.
  [[nodiscard]] std::string planned(const std::vector<std::string>& more = {}) const {
    std::vector<std::string> words{"restore", std::string(instance) + "/SYSTEMDB", "--set",
                                   text_of(full_of("SYSTEMDB"), "uuid")};
    words.insert(words.end(), more.begin(), more.end());
    json_spirit::Object plan;
    json_spirit::Object target;
    json_spirit::Array refusals;
    json_spirit::Array others;
    (void)json_spirit::object_get(object_in(server().dorsal3(words).out), "plan", plan);
    (void)json_spirit::object_get(plan, "target", target);
    (void)json_spirit::object_get(plan, "refusals", refusals);
    (void)json_spirit::object_get(target, "other_hosts", others);
    std::string text;
    for (const json_spirit::Value& row : refusals) text += text_of(row.get_obj(), "code");
    if (!text.empty()) return text;
    text = text_of(target, "host");
    for (const json_spirit::Value& row : others) text += ", " + text_of(row.get_obj(), "host") + " is restarted";
    return text;
  }
  [[nodiscard]] bool is_staged(const std::string& name, const char* file = staged_file) const {
    return std::filesystem::exists(host(name).real(file));
  }
  /// A restore of TN1 to a time, whose files are on both hosts and whose recovery HANA does not begin while the fault
  /// is there.
  [[nodiscard]] std::string start_held_restore() {
    const std::string held = "hang_statement = 0 | match=RECOVER";
    host("hana01").fault(held);
    // Behind the begin of the full backup, which would be restored alone.
    std::string wanted;
    const std::string begin = text_of(full_of("TN1"), "first_time");
    EXPECT_TRUE(eventually([&] { return (wanted = posix_time_to_utc_text(std::time(nullptr))) > begin; }));
    const std::string run = start_restore("TN1", {{"timepoint", wanted}});
    EXPECT_TRUE(eventually([this] {
      return is_staged("hana01") && is_staged("hana02") && is_staged("hana02", staged_control);
    })) << host("hana01").agent_log();
    EXPECT_TRUE(host("hana01").meets(held)) << host("hana01").agent_log();
    return run;
  }
  Tool_Result sql_of(const std::string& database, const std::string& statement,
                     const std::string& where = "hana01") const {
    return host(where).hana_tool(
        "hdbsql", {"-xCja", "-i", "00", "-d", database, "-u", "SYSTEM", "-p", Host::password, statement});
  }
  void put(const std::string& database, const std::string& key, const std::string& value) const {
    const Tool_Result done = sql_of(database, "UPSERT KV VALUES ('" + key + "','" + value + "')");
    ASSERT_EQ(done.code, 0) << done.err;
  }
  [[nodiscard]] std::string rows(const std::string& database) const { return sql_of(database, "select V from KV").out; }
};

}  // namespace

TEST_F(Cluster_Restores, The_Catalog_Is_Staged_On_Every_Host_For_The_Time_Of_The_Restore) {
  start_with_backups({"TN1"});
  const std::string run = start_held_restore();
  ASSERT_FALSE(HasFailure());
  const std::string staged = slurp(host("hana01").real(staged_file));
  EXPECT_EQ(slurp(host("hana02").real(staged_file)), staged);
  EXPECT_TRUE(
      host("hana02").agent_says("The host " + host("hana01").uuid() + " stages 'catalog_HDB_TN1_HDB_TN1.json'"));
  host("hana01").no_faults();
  EXPECT_EQ(server().wait_for_end(run), "completed") << host("hana01").agent_log();
  EXPECT_FALSE(is_staged("hana01"));
  EXPECT_TRUE(eventually([this] { return !is_staged("hana02"); })) << host("hana01").agent_log();
  EXPECT_TRUE(eventually([this] { return !is_staged("hana02", staged_control); }));
  EXPECT_TRUE(host("hana01").agent_says("The host " + host("hana02").uuid() + " has removed"));
  EXPECT_TRUE(server().alerts().empty());
  std::string key = object_in(staged).empty() ? "" : slurp(host("hana01").real("/etc/opt/tarvex/dorsal3/agent.key"));
  key.erase(key.find_last_not_of('\n') + 1);
  ASSERT_FALSE(key.empty());
  EXPECT_NE(staged.find(key), std::string::npos);
  for (const char* name : {"hana01", "hana02"})
    EXPECT_EQ(host(name).agent_log().find(key), std::string::npos) << "the access key is in a log";
  EXPECT_EQ(server().log().find(key), std::string::npos);
  const std::string audit = server().rest("GET", "/audit").body;
  EXPECT_EQ(audit.find(key), std::string::npos);
  EXPECT_NE(audit.find("staged.remove"), std::string::npos) << audit;
}

TEST_F(Cluster_Restores, A_Host_That_Is_Away_At_The_End_Is_Named_And_Removes_Its_Files_When_It_Starts) {
  start_with_backups({"TN1"});
  const std::string run = start_held_restore();
  ASSERT_FALSE(HasFailure());
  (void)host("hana02").stop_agent(SIGKILL);
  host("hana01").no_faults();
  EXPECT_EQ(server().wait_for_end(run), "completed") << host("hana01").agent_log();
  EXPECT_TRUE(
      host("hana01").agent_says("The host " + host("hana02").uuid() + " keeps what the restore of TN1 staged there"));
  EXPECT_TRUE(is_staged("hana02"));
  EXPECT_FALSE(is_staged("hana01"));
  host("hana02").start_agent(server());
  EXPECT_FALSE(is_staged("hana02"));
  EXPECT_FALSE(is_staged("hana02", staged_control));
}

TEST_F(Cluster_Restores, A_Restore_That_Was_Cut_Off_Leaves_Nothing_On_The_Other_Hosts_Either) {
  start_with_backups({"TN1"});
  const std::string run = start_held_restore();
  ASSERT_FALSE(HasFailure());
  (void)host("hana01").stop_agent(SIGKILL);
  EXPECT_TRUE(is_staged("hana01"));
  EXPECT_TRUE(is_staged("hana02"));
  host("hana01").start_agent(server());
  EXPECT_FALSE(is_staged("hana01"));
  EXPECT_TRUE(eventually([this] { return !is_staged("hana02") && !is_staged("hana02", staged_control); }))
      << host("hana01").agent_log();
  EXPECT_EQ(server().wait_for_end(run), "error");
  // HANA goes on with what it was told, and starts the tenant.
  host("hana01").no_faults();
  EXPECT_TRUE(eventually([this] { return sql_of("TN1", "select 1 as A from DUMMY").code == 0; }));
}

TEST_F(Cluster_Restores, The_Other_Hosts_Are_Restarted_After_The_System_Database) {
  start_with_backups({"SYSTEMDB"});
  host("hana01").fault("logon_after_recovery_ms = 500");
  host("hana02").fault("failover = no");
  const std::string set = text_of(full_of("SYSTEMDB"), "uuid");
  const std::string run = start_restore("SYSTEMDB", {}, set);
  EXPECT_EQ(server().wait_for_end(run), "completed") << host("hana01").agent_log();
  EXPECT_EQ(rows("SYSTEMDB"), "1\n");
  EXPECT_NE(server().rest("GET", "/audit").body.find("hana.instance.control"), std::string::npos);
  EXPECT_TRUE(server().alerts().empty()) << host("hana01").agent_log() << host("hana02").agent_log();
}

TEST_F(Cluster_Restores, Are_Planned_Where_The_Active_Master_Is_Or_Not_At_All) {
  start_with_backups({"SYSTEMDB"});
  expect_planned("hana01, hana02 is restarted");
  (void)host("hana01").stop_agent(SIGKILL);
  EXPECT_TRUE(eventually([this] { return planned() == "target_master_away"; })) << planned();
  host("hana01").start_agent(server());
  expect_planned("hana01, hana02 is restarted");
}

TEST_F(Cluster_Restores, Are_Planned_Where_The_Primary_Is) {
  start_pair();
  ASSERT_EQ(server().backup(std::string(instance) + "/SYSTEMDB", {"--host", "hana01"}).code, 0);
  expect_planned("hana01");
  EXPECT_EQ(planned({"--host", "hana02"}), "target_not_master");
  host("hana01").stop_hana();
  EXPECT_EQ(planned(), "target_master_unknown");
  expect_planned("hana01", {"--host", "hana01"});
  const Tool_Result taken = host("hana02").hana_tool("hdbnsutil", {"-sr_takeover"});
  ASSERT_EQ(taken.code, 0) << taken.out;
  ASSERT_TRUE(serves(host("hana02")));
  expect_planned("hana02");
}

TEST_F(Cluster_Restores, A_Full_Backup_Goes_By_Its_Time_Into_A_System_Of_The_Same_Names) {
  start_namesakes();
  log_on(host("hana02"));
  for (const char* name : {"hana01", "hana02"}) {
    ASSERT_EQ(server().dorsal3({"log-backup", "enable", instance, "--host", name, "--yes"}).code, 0);
    ASSERT_EQ(sql_of("TN1", std::string("UPSERT KV VALUES ('a','") + name + "')", name).code, 0);
    ASSERT_EQ(server().backup(tenant, {"--host", name}).code, 0);
  }
  EXPECT_EQ(server().dorsal3({"info", instance}).code, 2) << "two systems are called so";
  const auto rows = [this](const std::string& path) {
    json_spirit::Array found;
    (void)json_spirit::object_get(object_in(server().rest("GET", path).body), "rows", found);
    return found;
  };
  std::map<std::string, std::string> systems;  // by host
  for (const json_spirit::Value& resource : rows("/resources")) {
    json_spirit::Array instances;
    (void)json_spirit::object_get(resource.get_obj(), "instances", instances);
    ASSERT_EQ(instances.size(), 1U);
    systems[text_of(instances[0].get_obj(), "host_uuid")] = text_of(resource.get_obj(), "uuid");
  }
  const std::string from = systems[host("hana01").uuid()];
  const std::string into = systems[host("hana02").uuid()];
  const json_spirit::Array full = rows("/sets?type=full&database=TN1&resource_uuid=" + from);
  ASSERT_EQ(full.size(), 1U);
  const std::vector<std::string> plan{"restore", from + "/TN1", "--to", text_of(full[0].get_obj(), "first_time"),
                                      "--into",  into + "/TN1"};
  Tool_Result shown;
  EXPECT_TRUE(eventually([&] { return (shown = server().dorsal3(plan)).code == 0; }))
      << "HANA's catalog is backed up behind the full backup: " << shown.out << shown.err;
  EXPECT_NE(shown.out.find("USING CATALOG BACKINT"), std::string::npos) << shown.out;
  std::vector<std::string> run = plan;
  run.insert(run.end(), {"--run", "--confirm", "TN1"});
  const Tool_Result done = server().dorsal3(run);
  EXPECT_EQ(done.code, 0) << done.out << done.err << host("hana02").agent_log();
  EXPECT_EQ(sql_of("TN1", "select V from KV", "hana02").out, "hana01\n");
}
