#include "backupd/restore/restore_plan.h"

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <set>

#include "backupd/restore/restore_history.h"
#include "support/log_capture.h"
#include "support/temp_root.h"
#include "unit/backupd/memory_server.h"
#include "unit/backupd/set_history.h"

using namespace backupd_test;

namespace {

std::vector<std::string> data_files(const std::string& prefix) {
  return {prefix + "_databackup_0_1", prefix + "_databackup_2_1", prefix + "_databackup_3_1"};
}
Set_Line full(const std::string& name, const std::string& begin, const std::string& end) {
  return {name, "full", begin, end, data_files(name)};
}
Set_Line delta(const std::string& name, const char* type, const std::string& begin, const std::string& base) {
  return {name, type, begin, begin.substr(0, 6) + "30", data_files(name), "L1", base};
}
/// One log of both services, and the catalog behind it, which is called "C<name>".
void add_log(std::vector<Set_Line>& lines, const std::string& name, const std::string& hour_minute, int first,
             int last) {
  lines.push_back(
      {name, "log", hour_minute + ":00", hour_minute + ":01", {log_name(2, first, last), log_name(3, first, last)}});
  lines.push_back({"C" + name, "catalog", hour_minute + ":03", hour_minute + ":04", {catalog_name}});
}

/// F1 08:00, logs at each 10th minute, I1 08:35, D1 09:05, I2 09:35, logs up to 10:00, F2 11:00.
std::vector<Set_Line> busy_day() {
  std::vector<Set_Line> lines{full("F1", "08:00:00", "08:01:00"),
                              {"C0", "catalog", "08:01:03", "08:01:04", {catalog_name}}};
  const char* times[] = {"08:10", "08:20", "08:30", "08:40", "08:50", "09:00",
                         "09:10", "09:20", "09:30", "09:40", "09:50", "10:00"};
  int position = 100;
  for (const char* time : times) {
    add_log(lines, std::string("G") + time, time, position, position + 10);
    position += 10;
  }
  lines.push_back(delta("I1", "incremental", "08:35:00", "F1"));
  lines.push_back(delta("D1", "differential", "09:05:00", "F1"));
  lines.push_back(delta("I2", "incremental", "09:35:00", "F1"));
  lines.push_back(full("F2", "11:00:00", "11:01:00"));
  lines.push_back({"CF2", "catalog", "11:01:03", "11:01:04", {catalog_name}});
  return lines;
}

class Restore_Plan_Test : public ::testing::Test {
 protected:
  Restore_Plan_Test() {
    root_.make_directory("/var");
    std::string error;
    EXPECT_TRUE(database_.open("/var/backupd.db", error)) << error;
    wish_.resource_uuid = resource_uuid;
    wish_.database = "TN1";
    wish_.now = time_at("23:00:00");
  }

  void insert(const std::vector<Set_Line>& lines) {
    insert_sets(database_, lines);
    for (const Set_Line& line : lines) names_[uuid_named(line.name)] = line.name;
  }
  void with(std::vector<Set_Line> lines, const std::string& gone) {
    for (Set_Line& line : lines)
      if (line.name == gone) line.online = false;
    insert(lines);
  }
  void without(std::vector<Set_Line> lines, const std::string& name) {
    std::erase_if(lines, [&](const Set_Line& line) { return line.name == name || line.name == "C" + name; });
    insert(lines);
  }

  backupd::Restore_Plan& at(const std::string& clock) {
    wish_.time = time_at(clock);
    wish_.set.clear();
    return make();
  }
  backupd::Restore_Plan& of_set(const std::string& name) {
    wish_.time.clear();
    wish_.set = uuid_named(name);
    return make();
  }

  /// "F1 D1 I2 | 2:G09:40 3:G09:40 | CG09:50", or the codes of the refusals.
  [[nodiscard]] std::string text() const {
    if (!plan_.ok()) return codes(plan_.refusals);
    std::string text = name_of(plan_.full);
    for (const backupd::Plan_Set* set : plan_.deltas) text += " " + name_of(set);
    text += " |";
    for (const backupd::Plan_Log& log : plan_.logs) text += " " + std::to_string(log.volume) + ":" + name_of(log.set);
    return text + " | " + (plan_.catalog == nullptr ? "-" : name_of(plan_.catalog));
  }
  [[nodiscard]] static std::string codes(const std::vector<backupd::Plan_Remark>& remarks) {
    std::string text;
    for (const backupd::Plan_Remark& remark : remarks) text += (text.empty() ? "" : " ") + remark.code;
    return text;
  }
  [[nodiscard]] std::string near(const std::optional<backupd::Recoverable>& point) const {
    if (!point) return "none";
    return point->time.substr(11) + (point->set.empty() ? "" : " " + names_.at(point->set));
  }

  /// As if only what `has` names could be had: "08:09:59", "08:35:30 I1".
  void let_only(std::set<std::string> has) {
    can_be_had_ = [this, has = std::move(has)](const backupd::Recoverable& point) { return has.contains(near(point)); };
  }

  backupd::Restore_Wish wish_;
  backupd::Restore_Plan plan_;
  std::function<bool(const backupd::Recoverable&)> can_be_had_;

 private:
  [[nodiscard]] std::string name_of(const backupd::Plan_Set* set) const {
    return set == nullptr ? "?" : names_.at(set->uuid);
  }
  backupd::Restore_Plan& make() {
    history_ = std::make_unique<backupd::Restore_History>();
    const backupd::Outcome outcome = history_->load(database_, wish_);
    EXPECT_TRUE(outcome.ok()) << outcome.message;
    history_->question.can_be_had = can_be_had_;
    plan_ = backupd::plan_restore(history_->question);
    return plan_;
  }

  support::Log_Capture log_;
  support::Temp_Root root_;

 protected:
  backupd::Database database_;

 private:
  std::map<std::string, std::string> names_;
  std::unique_ptr<backupd::Restore_History> history_;
};

TEST_F(Restore_Plan_Test, Follows_The_Newest_Differential_And_The_Incrementals_Behind_It) {
  insert(busy_day());
  struct Row {
    const char* time;
    const char* wanted;
  };
  for (const Row& row :
       {Row{"08:05:00", "F1 | 2:G08:10 3:G08:10 | CG08:10"}, Row{"08:09:58", "F1 | 2:G08:10 3:G08:10 | CG08:10"},
        // The log of 08:10 does not hold all of its second.
        Row{"08:10:00", "F1 | 2:G08:10 2:G08:20 3:G08:10 3:G08:20 | CG08:20"},
        Row{"08:34:59", "F1 | 2:G08:10 2:G08:20 2:G08:30 2:G08:40 3:G08:10 3:G08:20 3:G08:30 3:G08:40 | CG08:40"},
        Row{"08:35:00", "F1 I1 | 2:G08:40 3:G08:40 | CG08:40"},
        Row{"09:04:59", "F1 I1 | 2:G08:40 2:G08:50 2:G09:00 2:G09:10 3:G08:40 3:G08:50 3:G09:00 3:G09:10 | CG09:10"},
        Row{"09:05:00", "F1 D1 | 2:G09:10 3:G09:10 | CG09:10"},
        Row{"09:36:00", "F1 D1 I2 | 2:G09:40 3:G09:40 | CG09:40"},
        Row{"09:59:59", "F1 D1 I2 | 2:G09:40 2:G09:50 2:G10:00 3:G09:40 3:G09:50 3:G10:00 | CG10:00"}}) {
    at(row.time);
    EXPECT_EQ(text(), row.wanted) << row.time;
    EXPECT_TRUE(plan_.staged);
    EXPECT_FALSE(plan_.full_only);
  }
}

TEST_F(Restore_Plan_Test, Takes_Logs_From_The_Full_When_Deltas_Are_Left_Out) {
  insert(busy_day());
  wish_.ignore_delta = true;
  at("08:36:00");
  EXPECT_EQ(text(), "F1 | 2:G08:10 2:G08:20 2:G08:30 2:G08:40 3:G08:10 3:G08:20 3:G08:30 3:G08:40 | CG08:40");
}

TEST_F(Restore_Plan_Test, Restores_A_Full_Alone_By_Its_Set_Or_At_Its_Begin) {
  insert(busy_day());
  of_set("F1");
  EXPECT_EQ(text(), "F1 | | -");
  EXPECT_TRUE(plan_.full_only);
  EXPECT_FALSE(plan_.staged);
  at("08:00:01");
  EXPECT_EQ(text(), "F1 | | CF2");
  EXPECT_TRUE(plan_.full_only);
  EXPECT_FALSE(plan_.staged);
}

TEST_F(Restore_Plan_Test, Goes_To_The_End_Of_A_Delta) {
  insert(busy_day());
  of_set("I1");
  EXPECT_EQ(text(), "F1 I1 | 2:G08:40 3:G08:40 | CG08:40");
  EXPECT_EQ(plan_.time, time_at("08:35:30"));
  of_set("I2");
  EXPECT_EQ(text(), "F1 D1 I2 | 2:G09:40 3:G09:40 | CG09:40");
}

TEST_F(Restore_Plan_Test, Needs_No_Logs_For_The_End_Of_A_Delta) {
  insert({full("F1", "08:00:00", "08:01:00"),
          {"C0", "catalog", "08:01:03", "08:01:04", {catalog_name}},
          delta("I1", "incremental", "09:00:00", "F1"),
          {"C1", "catalog", "09:00:33", "09:00:34", {catalog_name}}});
  of_set("I1");
  EXPECT_EQ(text(), "F1 I1 | | C1");
  at("09:00:30");
  EXPECT_EQ(text(), "logs_too_short");
  EXPECT_EQ(near(plan_.before), "09:00:30 I1");
  wish_.ignore_delta = true;
  of_set("I1");
  EXPECT_EQ(text(), "logs_too_short");
  EXPECT_EQ(near(plan_.before), "08:00:01 F1");
}

TEST_F(Restore_Plan_Test, Refuses_A_Delta_That_The_Catalog_Does_Not_List) {
  insert({full("F1", "08:00:00", "08:01:00"),
          {"C0", "catalog", "08:01:03", "08:01:04", {catalog_name}},
          delta("I1", "incremental", "09:00:00", "F1")});
  of_set("I1");
  EXPECT_EQ(codes(plan_.refusals), "catalog_too_old logs_too_short");
}

TEST_F(Restore_Plan_Test, Tells_The_Nearest_Times_When_The_Logs_End_Too_Early) {
  insert(busy_day());
  for (const char* time : {"09:59:59", "09:59:00"}) EXPECT_TRUE(at(time).ok()) << time;
  for (const char* time : {"10:00:00", "10:30:00", "11:00:00"}) {
    at(time);
    EXPECT_EQ(text(), "logs_too_short") << time;
    EXPECT_EQ(near(plan_.before), "09:59:59");
    EXPECT_EQ(near(plan_.after), "11:00:01 F2");
    EXPECT_EQ(plan_.refusals.at(0).message, "the logs of TN1 do not reach " + time_at(time) +
                                                " UTC; nearest before it: 2026-11-20 09:59:59, after it: "
                                                "2026-11-20 11:00:01 (set " +
                                                uuid_named("F2") + ")");
    EXPECT_TRUE(at(plan_.before->time.substr(11)).ok());
    EXPECT_TRUE(of_set("F2").ok());
  }
  at("12:00:00");
  EXPECT_EQ(near(plan_.before), "11:00:01 F2");
  EXPECT_EQ(near(plan_.after), "none");
}

TEST_F(Restore_Plan_Test, Names_As_Nearest_Only_What_Can_Be_Had) {
  insert(busy_day());
  struct Row {
    std::set<std::string> has;
    const char* before;
    const char* after;
  };
  for (const Row& row : {Row{{"09:59:59", "11:00:01 F2"}, "09:59:59", "11:00:01 F2"},
                         Row{{"09:35:30 I2", "09:05:30 D1", "08:00:01 F1"}, "09:35:30 I2", "none"},
                         Row{{"08:00:01 F1"}, "08:00:01 F1", "none"}, Row{{"11:00:01 F2"}, "none", "11:00:01 F2"},
                         Row{{}, "none", "none"}}) {
    let_only(row.has);
    at("10:30:00");
    EXPECT_EQ(text(), "logs_too_short");
    EXPECT_EQ(near(plan_.before), row.before);
    EXPECT_EQ(near(plan_.after), row.after);
    EXPECT_NE(plan_.refusals.at(0).message.find(std::string("after it: ") + (plan_.after ? "2026" : "none")),
              std::string::npos)
        << plan_.refusals.at(0).message;
  }
}

TEST_F(Restore_Plan_Test, Names_No_Full_Backup_Before_All_That_Cannot_Be_Had) {
  insert(busy_day());
  let_only({});
  at("07:00:00");
  EXPECT_EQ(text(), "no_full_backup");
  EXPECT_EQ(near(plan_.after), "none");
  let_only({"11:00:01 F2"});
  at("07:00:00");
  EXPECT_EQ(near(plan_.after), "11:00:01 F2");
}

TEST_F(Restore_Plan_Test, Tries_No_More_Than_Eight_Full_Backups_Of_A_Former_Branch) {
  std::vector<Set_Line> lines;
  for (int hour = 10; hour < 22; ++hour) {
    const std::string text = std::to_string(hour);
    lines.push_back(full("F" + text, text + ":00:00", text + ":01:00"));
  }
  lines.push_back({"H1", "log", "22:00:00", "22:00:01", {log_name(2, 150, 170)}, "L2"});
  insert(lines);
  std::set<std::string> tried;
  can_be_had_ = [&](const backupd::Recoverable& point) { return tried.insert(near(point)), false; };
  at("22:00:02");
  EXPECT_EQ(text(), "no_full_backup");
  EXPECT_EQ(near(plan_.before), "none");
  EXPECT_EQ(tried.size(), 8U);
  EXPECT_TRUE(tried.contains("14:00:01 F14")) << "the newest ones";
}

TEST_F(Restore_Plan_Test, Leaves_Out_A_Delta_Whose_Name_Tells_Another_Base) {
  const auto based_on = [](Set_Line line, const std::string& clock) {
    const std::string base = std::to_string(backup_id_at(clock));
    for (std::string& file : line.files)
      file.replace(file.find("_databackup_"), std::string("_databackup_").size(),
                   "_databackup_incremental_" + base + "_1_");
    return line;
  };
  std::vector<Set_Line> lines{full("F1", "08:00:00", "08:01:00")};
  lines.push_back(based_on(delta("I1", "incremental", "08:05:00", "F1"), "08:00:00"));
  add_log(lines, "G1", "08:10", 100, 110);
  // HANA made a full backup into files at 08:11, and its next deltas upon that.
  lines.push_back(based_on(delta("I2", "incremental", "08:12:00", "F1"), "08:11:00"));
  lines.push_back(based_on(delta("I3", "incremental", "08:14:00", "F1"), "08:12:00"));
  add_log(lines, "G2", "08:20", 110, 120);
  insert(lines);
  at("08:15:00");
  EXPECT_EQ(text(), "F1 I1 | 2:G1 2:G2 3:G1 3:G2 | CG2");
  EXPECT_EQ(codes(plan_.notes), "delta_without_base delta_without_base");
  at("08:30:00");
  EXPECT_EQ(text(), "logs_too_short");
}

TEST_F(Restore_Plan_Test, Is_Held_Back_By_The_Service_With_The_Shortest_Log) {
  std::vector<Set_Line> lines{full("F1", "08:00:00", "08:01:00")};
  add_log(lines, "G1", "08:10", 100, 110);
  lines.push_back({"G2", "log", "08:20:00", "08:20:01", {log_name(2, 110, 120)}});
  lines.push_back({"C2", "catalog", "08:20:03", "08:20:04", {catalog_name}});
  insert(lines);
  at("08:15:00");
  EXPECT_EQ(text(), "logs_too_short");
  EXPECT_EQ(near(plan_.before), "08:09:59");
  EXPECT_EQ(json_spirit::dump_json(plan_.refusals.at(0).details), R"({"volumes":[3]})");
}

TEST_F(Restore_Plan_Test, Counts_A_Service_Without_Any_Log_As_Short) {
  insert({full("F1", "08:00:00", "08:01:00"),
          {"G1", "log", "08:10:00", "08:10:01", {log_name(2, 100, 110)}},
          {"C1", "catalog", "08:10:03", "08:10:04", {catalog_name}}});
  at("08:05:00");
  EXPECT_EQ(text(), "logs_too_short");
  EXPECT_EQ(near(plan_.before), "08:00:01 F1");
}

TEST_F(Restore_Plan_Test, Names_The_Positions_And_Backups_Around_A_Gap) {
  without(busy_day(), "G08:20");
  at("08:25:00");
  EXPECT_EQ(text(), "log_gap log_gap logs_too_short");
  EXPECT_EQ(json_spirit::dump_json(plan_.refusals.at(0).details), R"({"volume":2,"partition":0,"from":110,"to":120})");
  EXPECT_EQ(
      plan_.refusals.at(0).message,
      "the logs of volume 2 have a gap: from position 110 to 120, between the log backup of 2026-11-20 08:10:01 (" +
          uuid_named("G08:10") + ") and the log backup of 2026-11-20 08:30:01 (" + uuid_named("G08:30") + ")");
  EXPECT_EQ(near(plan_.before), "08:09:59");
  EXPECT_EQ(near(plan_.after), "08:35:30 I1");
  // A delta behind the gap carries over it.
  at("08:36:00");
  EXPECT_EQ(text(), "F1 I1 | 2:G08:40 3:G08:40 | CG08:40");
  wish_.ignore_delta = true;
  at("08:36:00");
  EXPECT_EQ(near(plan_.after), "11:00:01 F2");
}

TEST_F(Restore_Plan_Test, Refuses_Positions_That_Come_Twice) {
  std::vector<Set_Line> lines{full("F1", "08:00:00", "08:01:00")};
  add_log(lines, "G1", "08:10", 100, 110);
  add_log(lines, "G2", "08:20", 105, 120);
  insert(lines);
  at("08:15:00");
  EXPECT_EQ(text(), "log_overlap log_overlap");
}

TEST_F(Restore_Plan_Test, Reads_A_Log_That_Was_Saved_Twice_Once) {
  std::vector<Set_Line> lines{full("F1", "08:00:00", "08:01:00")};
  add_log(lines, "G1", "08:10", 100, 110);
  add_log(lines, "G2", "08:11", 100, 110);
  add_log(lines, "G3", "08:20", 110, 120);
  insert(lines);
  at("08:15:00");
  EXPECT_EQ(text(), "F1 | 2:G1 2:G3 3:G1 3:G3 | CG3");
}

TEST_F(Restore_Plan_Test, Refuses_What_Lies_On_No_Pool_Any_More) {
  with(busy_day(), "I1");
  at("08:36:00");
  EXPECT_EQ(text(), "set_missing");
  EXPECT_NE(plan_.refusals.at(0).message.find("leave the deltas out"), std::string::npos);
  wish_.ignore_delta = true;
  EXPECT_TRUE(at("08:36:00").ok());
  EXPECT_TRUE(at("09:06:00").ok());
}

TEST_F(Restore_Plan_Test, Refuses_A_Log_Or_A_Catalog_That_Lies_On_No_Pool_Any_More) {
  with(busy_day(), "G08:40");
  at("08:36:00");
  EXPECT_EQ(text(), "set_missing set_missing");
}

TEST_F(Restore_Plan_Test, Goes_Back_To_The_Full_Before_When_The_Newest_Is_Gone) {
  with(busy_day(), "F2");
  at("11:30:00");
  EXPECT_EQ(text(), "logs_too_short");
  EXPECT_EQ(near(plan_.before), "09:59:59");
}

TEST_F(Restore_Plan_Test, Leaves_Out_A_Delta_On_A_Full_That_It_Does_Not_Restore) {
  std::vector<Set_Line> lines{full("F1", "08:00:00", "08:01:00")};
  add_log(lines, "G1", "08:10", 100, 110);
  // HANA made a full backup into files at 08:11: the delta's base is nowhere here.
  lines.push_back(delta("I1", "incremental", "08:12:00", ""));
  add_log(lines, "G2", "08:20", 110, 120);
  insert(lines);
  at("08:15:00");
  EXPECT_EQ(text(), "F1 | 2:G1 2:G2 3:G1 3:G2 | CG2");
  EXPECT_EQ(codes(plan_.notes), "delta_without_base");
}

TEST_F(Restore_Plan_Test, Refuses_A_Time_Before_The_First_Full) {
  insert(busy_day());
  at("07:59:00");
  EXPECT_EQ(text(), "no_full_backup");
  EXPECT_EQ(near(plan_.before), "none");
  EXPECT_EQ(near(plan_.after), "08:00:01 F1");
}

TEST_F(Restore_Plan_Test, Refuses_A_Time_To_Come) {
  insert(busy_day());
  wish_.now = time_at("10:30:00");
  at("10:31:00");
  EXPECT_EQ(codes(plan_.refusals), "time_in_future");
  EXPECT_EQ(near(plan_.before), "09:59:59");
  // This machine's clock is behind HANA's.
  wish_.now = time_at("08:00:00");
  EXPECT_TRUE(at("09:00:00").ok());
}

TEST_F(Restore_Plan_Test, Refuses_A_Branch_Without_A_Full_Of_Its_Own) {
  insert(busy_day());
  insert({{"H1", "log", "12:00:00", "12:00:01", {log_name(2, 150, 170)}, "L2"},
          {"CH1", "catalog", "12:00:03", "12:00:04", {catalog_name}, "L2"}});
  at("12:00:02");
  EXPECT_EQ(text(), "no_full_backup");
  EXPECT_EQ(near(plan_.before), "11:00:01 F2");
  // The newest catalog is one of that branch: it need not list a full of the former one.
  at("11:00:01");
  EXPECT_EQ(text(), "catalog_of_another_branch");
  EXPECT_EQ(near(plan_.before), "11:00:01 F2");
  EXPECT_TRUE(of_set("F2").ok());
  EXPECT_TRUE(at("09:36:00").ok());
}

TEST_F(Restore_Plan_Test, Refuses_A_Recovery_Without_A_Backup_Of_The_Catalog) {
  insert({full("F1", "08:00:00", "08:01:00"),
          {"G1", "log", "08:10:00", "08:10:01", {log_name(2, 1, 2), log_name(3, 1, 2)}}});
  at("08:05:00");
  EXPECT_EQ(text(), "no_catalog");
  at("08:00:01");
  EXPECT_EQ(text(), "no_catalog");
  EXPECT_TRUE(of_set("F1").ok());
}

TEST_F(Restore_Plan_Test, Refuses_A_Log_As_The_Start_Of_A_Restore) {
  insert(busy_day());
  of_set("G08:10");
  EXPECT_EQ(text(), "not_restorable");
}

TEST_F(Restore_Plan_Test, Replays_Logs_From_The_Full_In_An_Old_Version) {
  insert(busy_day());
  wish_.ancient = true;
  at("08:36:00");
  EXPECT_EQ(text(), "F1 | 2:G08:10 2:G08:20 2:G08:30 2:G08:40 3:G08:10 3:G08:20 3:G08:30 3:G08:40 | CG08:40");
  EXPECT_EQ(codes(plan_.notes), "no_deltas_in_this_version");
}

TEST_F(Restore_Plan_Test, Refuses_A_Copy_That_An_Old_Version_Would_Not_Find_In_Its_Own_Catalog) {
  insert(busy_day());
  wish_.copy = true;
  EXPECT_TRUE(at("08:36:00").ok());
  wish_.ancient = true;
  at("08:36:00");
  EXPECT_EQ(text(), "no_catalog");
  EXPECT_EQ(near(plan_.before), "08:00:01 F1");
  at("11:00:01");
  EXPECT_EQ(text(), "no_catalog");
  EXPECT_EQ(near(plan_.before), "11:00:01 F2");
  EXPECT_TRUE(of_set("F1").ok()) << text();
  wish_.copy = false;
  EXPECT_TRUE(at("11:00:01").ok()) << text();
}

TEST_F(Restore_Plan_Test, Tells_That_The_Start_Of_The_Logs_Is_Not_Proven) {
  std::vector<Set_Line> lines{full("F1", "08:00:00", "08:01:00")};
  add_log(lines, "G1", "08:10", 100, 110);
  lines.push_back(delta("I1", "incremental", "08:15:00", "F1"));
  add_log(lines, "G2", "08:20", 115, 120);
  insert(lines);
  at("08:16:00");
  EXPECT_EQ(text(), "F1 I1 | 2:G2 3:G2 | CG2");
  EXPECT_EQ(codes(plan_.notes), "log_start_unproven log_start_unproven");
}

TEST_F(Restore_Plan_Test, Tells_A_Gap_Right_Behind_The_Full_Backup) {
  struct Row {
    int end_before;  ///< of volume 2's last log before the full backup; 0: there is none
    const char* notes;
  };
  int hour = 8;
  for (const Row& row : {Row{100, ""}, Row{90, "log_start_unproven"}, Row{0, ""}}) {
    const std::string at_hour = (hour < 10 ? "0" : "") + std::to_string(hour);
    const std::string database = "TN" + std::to_string(hour++);
    std::vector<Set_Line> lines;
    if (row.end_before != 0) {
      lines.push_back({"G0" + database, "log", at_hour + ":00:00", at_hour + ":00:01", {log_name(2, 70, 80)}});
      lines.push_back({"C0" + database,
                       "catalog",
                       at_hour + ":01:00",
                       at_hour + ":01:01",
                       {catalog_name, log_name(2, 80, row.end_before), log_name(3, 80, 100), log_name(4, 1, 2)}});
    }
    lines.push_back(full("F" + database, at_hour + ":05:00", at_hour + ":06:00"));
    add_log(lines, "G1" + database, at_hour + ":10", 100, 110);
    for (Set_Line& line : lines) line.database = database;
    insert(lines);
    wish_.database = database;
    at(at_hour + ":07:00");
    EXPECT_EQ(text(), "F" + database + " | 2:G1" + database + " 3:G1" + database + " | CG1" + database);
    EXPECT_EQ(codes(plan_.notes), row.notes) << row.end_before;
    if (!plan_.notes.empty()) {
      EXPECT_EQ(plan_.notes[0].message.find("volume 2: no log on a pool joins the full backup of"), 0U)
          << plan_.notes[0].message;
    }
  }
}

TEST_F(Restore_Plan_Test, Refuses_What_Nobody_Knows) {
  insert(busy_day());
  backupd::Restore_History history;
  wish_.time = time_at("09:00:00");
  wish_.database = "TN9";
  const backupd::Outcome database = history.load(database_, wish_);
  EXPECT_EQ(database.kind, backupd::Outcome::not_found);
  EXPECT_NE(database.message.find("there are of: TN1"), std::string::npos) << database.message;
  wish_.set = uuid_named("nothing");
  EXPECT_EQ(history.load(database_, wish_).kind, backupd::Outcome::not_found);
  wish_.set = uuid_named("F1");
  EXPECT_EQ(history.load(database_, wish_).kind, backupd::Outcome::invalid);
}

}  // namespace
