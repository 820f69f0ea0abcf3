// Logs are recorded while restores of their tenant are asked for, over all processes.

#include <algorithm>
#include <map>
#include <set>
#include <sstream>

#include "log_backup_trail.h"
#include "restore_system.h"

using namespace system_tests;

namespace {

class Restores_Beside_Log_Runs : public Restore_System {
 protected:
  using Ebids = std::set<std::string>;

  static constexpr const char* tenant = "HDB_HDB00/TN1";
  /// What HANA saves of the tenant behind a full backup, a catalog, and when its logs are closed: one of each service,
  /// each with a catalog.
  static constexpr std::size_t with_full = 1;
  static constexpr std::size_t with_logs = 4;
  static constexpr const char* checksums_file = "/usr/sap/HDB/HDB00/standin/backup_checksums.tsv";

  /// What HANA has written of its logs and catalogs and was told to be saved, "database backup-id external-id",
  /// ordered. Its catalog forgets what is newer than itself when an older one is brought back.
  [[nodiscard]] std::vector<std::string> ever_saved() const {
    std::vector<std::string> saved;
    std::istringstream lines(slurp(real(checksums_file)));
    for (std::string line; std::getline(lines, line);) {
      std::istringstream cells(line);
      std::string backup;
      std::string database;
      std::string service;
      std::string name;
      std::string ebid;
      for (std::string* cell : {&backup, &database, &service, &name, &ebid}) std::getline(cells, *cell, '\t');
      if (name.find("/log_backup_") != std::string::npos) saved.push_back(database + " " + backup + " " + ebid);
    }
    std::sort(saved.begin(), saved.end());
    return saved;
  }
  /// External ids of a database's logs and catalogs that HANA has saved.
  [[nodiscard]] Ebids saved_of(const std::string& database) const {
    Ebids found;
    for (const std::string& one : ever_saved())
      if (one.starts_with(database + " ")) found.insert(one.substr(one.rfind(' ') + 1));
    return found;
  }
  /// The lifeline of each object of a log or catalog in the sets of a database.
  [[nodiscard]] std::map<std::string, std::string> lifelines_of(const std::string& database) const {
    std::map<std::string, std::string> found;
    for (const char* type : {"log", "catalog"}) {
      json_spirit::Value answer;
      json_spirit::Array rows;
      const Rest_Answer got = rest("GET", "/sets?limit=10000&database=" + database + "&type=" + type);
      if (json_spirit::load_json(got.body, answer) && answer.is_object())
        (void)json_spirit::object_get(answer.get_obj(), "rows", rows);
      for (const json_spirit::Value& row : rows) {
        json_spirit::Array files;
        (void)json_spirit::object_get(row.get_obj(), "files", files);
        for (const json_spirit::Value& file : files)
          found[text_of(file.get_obj(), "extern_backup_id")] = text_of(row.get_obj(), "lifeline");
      }
    }
    return found;
  }
  [[nodiscard]] std::string lifeline_of_full() const { return text_of(newest_set("TN1", "full"), "lifeline"); }
  /// Waits until so many logs and catalogs of the tenant are saved; each is in its set, or a run is owed to it.
  [[nodiscard]] bool has_saved(std::size_t count) const {
    return eventually([&] {
      const std::size_t recorded = lifelines_of("TN1").size();
      return saved_of("TN1").size() >= count && recorded + trail_.queue("TN1").size() >= count;
    });
  }
  std::string start_wanted() { return start_restore({{.database = "TN1", .timepoint = wanted_}}); }
  /// How many restores have begun to wait for log backups.
  [[nodiscard]] std::size_t waiting_restores() const {
    return count_of("log backups of TN1 are recorded before it is restored", agent_log());
  }
  /// Recoveries that HANA has begun.
  [[nodiscard]] std::size_t recoveries() const {
    std::size_t count = 0;
    for (const std::string& path : files_below(real("/usr/sap/HDB")))
      if (path.ends_with("/DB_TN1/backup.log")) count += count_of("RECOVER DATA started", slurp(path));
    return count;
  }
  void expect_whole_chain() const {
    const Tool_Result chain = dorsal3({"info", "--logs", tenant});
    EXPECT_EQ(chain.code, 0) << chain.out << chain.err;
  }

 private:
  static std::size_t count_of(const std::string& mark, const std::string& text) {
    std::size_t count = 0;
    for (std::size_t at = text.find(mark); at != std::string::npos; at = text.find(mark, at + 1)) ++count;
    return count;
  }

  const Log_Backup_Trail trail_{host_, server_};
};

}  // namespace

TEST_F(Restores_Beside_Log_Runs, Come_When_All_Logs_Are_Recorded_And_One_After_The_Other) {
  start_with_a_past();
  const std::string before = lifeline_of_full();
  // The runs of the logs wait for HANA's answer.
  const std::string held = "hang_statement = 0 | match=STATE_NAME";
  fault(held);
  make_logs({"TN1"});
  ASSERT_TRUE(meets(held)) << agent_log();
  std::size_t count = with_full + 2 * with_logs;
  ASSERT_TRUE(has_saved(count)) << agent_log();
  const Ebids former = saved_of("TN1");
  const std::string first = start_wanted();
  const std::string second = start_wanted();
  EXPECT_TRUE(eventually([this] { return waiting_restores() == 2; })) << agent_log();
  EXPECT_EQ(recoveries(), 0);
  EXPECT_TRUE(rows("TN1").starts_with("a,2\n")) << "neither has stopped it";
  no_faults();
  EXPECT_EQ(wait_for_end(first), "completed") << agent_log();
  EXPECT_EQ(wait_for_end(second), "completed") << agent_log();
  EXPECT_EQ(recoveries(), 2);
  EXPECT_EQ(rows("TN1"), "a,1\n");
  EXPECT_EQ(lifelines_of("TN1").size(), former.size()) << "before the first one began";
  expect_whole_chain();

  ASSERT_EQ(backup(tenant, {"--type", "full"}).code, 0) << agent_log();
  const std::string after = lifeline_of_full();
  EXPECT_NE(after, before);
  ASSERT_TRUE(has_saved(count += with_full)) << agent_log();
  make_logs({"TN1"});
  ASSERT_TRUE(has_saved(count += with_logs)) << agent_log();
  EXPECT_TRUE(eventually([this] { return ever_saved() == recorded_sets() && waiting_runs() == 0; }))
      << ::testing::PrintToString(ever_saved()) << ::testing::PrintToString(recorded_sets());
  expect_whole_chain();
  const std::map<std::string, std::string> lifelines = lifelines_of("TN1");
  EXPECT_EQ(lifelines.size(), count);
  for (const auto& [ebid, lifeline] : lifelines) EXPECT_EQ(lifeline, former.contains(ebid) ? before : after) << ebid;
  EXPECT_TRUE(staged_files().empty());
  EXPECT_TRUE(alerts().empty()) << ::testing::PrintToString(alerts());
}
