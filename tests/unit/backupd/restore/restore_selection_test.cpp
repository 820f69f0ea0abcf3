#include "backupd/restore/restore_selection.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/temp_root.h"
#include "unit/backupd/memory_server.h"
#include "unit/backupd/set_history.h"

using namespace backupd_test;

namespace {

class Restore_Selection : public ::testing::Test {
 protected:
  Restore_Selection() {
    root_.make_directory("/var");
    std::string error;
    EXPECT_TRUE(database_.open("/var/backupd.db", error)) << error;
  }

  [[nodiscard]] static backupd::Restore_Point point(const std::string& clock, const std::string& lifeline,
                                                    const std::string& full_begin = "") {
    return {resource_uuid, lifeline.empty() ? "" : uuid_named(lifeline), "TN1", time_at(clock),
            full_begin.empty() ? 0 : backup_id_at(full_begin)};
  }
  /// The name of the set that is chosen; "" for none.
  std::string full(const std::string& clock, const std::string& lifeline = "") {
    return name_of(
        [&](backupd::Sql_Session& session) { return backupd::select_full(session, point(clock, lifeline)); });
  }
  std::string catalog(const std::string& clock, const std::string& full_begin, const std::string& lifeline = "L1") {
    return name_of([&](backupd::Sql_Session& session) {
      chosen_ = backupd::select_catalog(session, point(clock, lifeline, full_begin));
      return chosen_;
    });
  }
  void insert(const std::vector<Set_Line>& lines) {
    insert_sets(database_, lines);
    for (const Set_Line& line : lines) names_[uuid_named(line.name)] = line.name;
  }

  std::optional<json_spirit::Object> chosen_;

 private:
  template <typename Choose>
  std::string name_of(Choose choose) {
    std::optional<json_spirit::Object> set;
    EXPECT_TRUE(database_.read([&](backupd::Sql_Session& session) { set = choose(session); }));
    std::string uuid;
    if (set) json_spirit::object_get(*set, "uuid", uuid);
    return set ? names_[uuid] : "";
  }

  support::Log_Capture log_;
  support::Temp_Root root_;
  backupd::Database database_;
  std::map<std::string, std::string> names_;
};

TEST_F(Restore_Selection, Takes_The_Newest_Full_That_Began_By_The_Time) {
  insert({{"F1", "full", "08:00:00", "08:01:00", {}}, {"F2", "full", "09:00:00", "09:01:00", {}}});
  EXPECT_EQ(full("08:00:00"), "");
  EXPECT_EQ(full("08:00:01"), "F1");
  EXPECT_EQ(full("09:00:00"), "F1");
  EXPECT_EQ(full("09:00:01"), "F2");
  EXPECT_EQ(full("23:00:00", "L1"), "F2");
  EXPECT_EQ(full("23:00:00", "L9"), "");
}

TEST_F(Restore_Selection, Passes_Over_A_Full_That_Is_Gone_From_Its_Pool) {
  insert({{"F1", "full", "08:00:00", "08:01:00", {}}});
  std::vector<Set_Line> gone;
  for (int minute = 10; minute < 50; ++minute)
    gone.push_back({"G" + std::to_string(minute), "full", "09:" + std::to_string(minute) + ":00", "09:59:00", {}});
  for (Set_Line& line : gone) line.online = false;
  insert(gone);
  EXPECT_EQ(full("10:00:00"), "F1");
}

TEST_F(Restore_Selection, Never_Takes_A_Full_Of_Another_Branch) {
  insert({{"F1", "full", "08:00:00", "08:01:00", {}, "L1"},
          {"G1", "log", "08:30:00", "08:30:01", {log_name(2, 1, 2)}, "L1", "F1"},
          // Recovered here; nothing but logs since.
          {"G2", "log", "09:30:00", "09:30:01", {log_name(2, 1, 3)}, "L2"}});
  EXPECT_EQ(full("09:30:01"), "");
  EXPECT_EQ(full("09:30:00"), "F1");
  EXPECT_EQ(full("09:30:01", "L1"), "F1");
}

TEST_F(Restore_Selection, Keeps_To_The_Database) {
  insert({{"F1", "full", "08:00:00", "08:01:00", {}, "L1", "", true, "TN2"}});
  EXPECT_EQ(full("10:00:00"), "");
}

/// A full, then logs of two services, each with a catalog.
std::vector<Set_Line> two_services() {
  return {{"F1", "full", "08:00:00", "08:01:00", {}},
          {"C0", "catalog", "08:01:05", "08:01:06", {catalog_name}},
          {"A1", "log", "08:10:00", "08:10:01", {log_name(2, 1, 5)}},
          {"C1", "catalog", "08:10:04", "08:10:05", {catalog_name}},
          {"B1", "log", "08:12:00", "08:12:01", {log_name(3, 1, 5)}},
          {"C2", "catalog", "08:12:04", "08:12:05", {catalog_name}},
          {"A2", "log", "08:20:00", "08:20:01", {log_name(2, 5, 9)}},
          {"C3", "catalog", "08:20:04", "08:20:05", {catalog_name}},
          {"B2", "log", "08:25:00", "08:25:01", {log_name(3, 5, 9)}},
          {"C4", "catalog", "08:25:04", "08:25:05", {catalog_name}},
          {"C5", "catalog", "09:00:00", "09:00:01", {catalog_name}}};
}

TEST_F(Restore_Selection, Takes_The_First_Catalog_By_Which_Every_Service_Has_Its_Log) {
  insert(two_services());
  EXPECT_EQ(catalog("08:05:00", "08:00:00"), "C2");
  EXPECT_EQ(catalog("08:09:59", "08:00:00"), "C2");
  // The log of 08:10 does not hold all of the second in which it began.
  EXPECT_EQ(catalog("08:10:00", "08:00:00"), "C3");
  EXPECT_EQ(catalog("08:11:59", "08:00:00"), "C3");
  EXPECT_EQ(catalog("08:12:00", "08:00:00"), "C4");
  EXPECT_EQ(catalog("08:19:59", "08:00:00"), "C4");
}

TEST_F(Restore_Selection, Counts_A_Service_Of_The_Full_Backup_That_Has_No_Log_Yet) {
  insert({{"F1", "full", "08:00:00", "08:01:00", {"x_databackup_0_1", "x_databackup_2_1", "x_databackup_3_1"}},
          {"A1", "log", "08:10:00", "08:10:01", {log_name(2, 1, 5)}},
          {"C1", "catalog", "08:10:04", "08:10:05", {catalog_name}},
          {"C2", "catalog", "08:20:04", "08:20:05", {catalog_name}}});
  EXPECT_EQ(catalog("08:05:00", "08:00:00"), "C2");
}

TEST_F(Restore_Selection, Takes_The_Newest_Catalog_When_No_Log_Reaches_The_Time) {
  insert(two_services());
  EXPECT_EQ(catalog("08:20:00", "08:00:00"), "C5");
  EXPECT_EQ(catalog("20:00:00", "08:00:00"), "C5");
  EXPECT_EQ(catalog("08:05:00", "08:00:00", "L9"), "");
  EXPECT_EQ(catalog("08:05:00", "22:00:00"), "");
}

TEST_F(Restore_Selection, Takes_A_Catalog_That_Begins_After_The_Time_Where_No_Logs_Are_Kept) {
  insert({{"F1", "full", "08:00:00", "08:01:00", {}},
          {"C1", "catalog", "08:01:05", "08:01:06", {catalog_name}},
          {"I1", "incremental", "09:00:00", "09:01:00", {}, "L1", "F1"},
          {"C2", "catalog", "09:01:05", "09:01:06", {catalog_name}},
          {"C3", "catalog", "10:00:00", "10:00:01", {catalog_name}}});
  EXPECT_EQ(catalog("09:01:00", "08:00:00"), "C2");
}

TEST_F(Restore_Selection, Distrusts_A_Catalog_That_Begins_While_The_Log_Of_Another_Service_Is_Saved) {
  insert({{"F1", "full", "08:00:00", "08:01:00", {}},
          {"A1", "log", "08:10:00", "08:10:30", {log_name(2, 1, 5)}},
          {"B1", "log", "08:10:01", "08:10:02", {log_name(3, 1, 5)}},
          {"C1", "catalog", "08:10:04", "08:10:05", {catalog_name}},
          {"C2", "catalog", "08:10:32", "08:10:33", {catalog_name}},
          {"C3", "catalog", "08:20:00", "08:20:01", {catalog_name}}});
  EXPECT_EQ(catalog("08:05:00", "08:00:00"), "C2");
}

TEST_F(Restore_Selection, Finds_A_Service_That_Writes_Far_Less_Than_The_Others) {
  std::vector<Set_Line> lines{{"F1", "full", "08:00:00", "08:01:00", {}},
                              {"B0", "log", "08:59:59", "08:59:59", {log_name(3, 1, 2)}}};
  const auto two = [](int number) { return (number < 10 ? "0" : "") + std::to_string(number); };
  for (int i = 0; i < 500; ++i) {
    const std::string clock = two(9 + i / 60 / 60) + ":" + two(i / 60 % 60) + ":" + two(i % 60);
    lines.push_back({"A" + std::to_string(i), "log", clock, clock, {log_name(2, i, i + 1)}});
  }
  lines.push_back({"B1", "log", "09:30:00", "09:30:01", {log_name(3, 2, 3)}});
  lines.push_back({"C1", "catalog", "09:20:00", "09:20:01", {catalog_name}});
  lines.push_back({"C2", "catalog", "09:31:00", "09:31:01", {catalog_name}});
  lines.push_back({"C3", "catalog", "09:41:00", "09:41:01", {catalog_name}});
  insert(lines);
  EXPECT_EQ(catalog("09:00:05", "08:00:00"), "C2");
}

TEST_F(Restore_Selection, Puts_The_Catalogs_Object_First) {
  insert({{"F1", "full", "08:00:00", "08:01:00", {}},
          {"M1", "catalog", "08:10:00", "08:10:01", {log_name(2, 1, 5), catalog_name, log_name(3, 1, 5)}}});
  ASSERT_EQ(catalog("08:10:00", "08:00:00"), "M1");
  json_spirit::Array files;
  std::string first;
  json_spirit::object_get(*chosen_, "files", files);
  json_spirit::object_get(files.at(0).get_obj(), "filename", first);
  EXPECT_EQ(first, catalog_name);
  EXPECT_EQ(files.size(), 3U);
}

}  // namespace
