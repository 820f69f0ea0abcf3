#include "agentd/restore/staged_restores.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <vector>

#include "platform/files.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

using namespace agentd;

namespace {

using Names = std::vector<std::string>;

constexpr const char* directory = "/var/opt/tarvex/dorsal3/agent/hana/catalog";

json_spirit::Object entry(const std::string& sid, const std::string& database) {
  return {{"original", json_spirit::Object{{"sid", sid}, {"database", database}}}};
}

json_spirit::Object definition(const json_spirit::Array& entries, const char* type = "restore") {
  return {{"type", type}, {"source", json_spirit::Object{{"id", "r"}, {"name", "n"}, {"entries", entries}}}};
}

class Next_Listener : public Activity_Listener {
 public:
  void activity_changed(const Job_Activity_Snapshot& activity) override { seen.push_back(activity.id); }
  Names seen;
};

class Staged_Restores_Test : public testing::Test {
 protected:
  void stage(const Names& names) {
    for (const std::string& name : names) root_.write(std::string(directory) + "/" + name, "{}");
  }
  static Names left() {
    Names names;
    (void)platform::list_directory(directory, names);
    return names;
  }

  support::Temp_Root root_;
  support::Log_Capture log_;
  Staged_Restores staged_;
};

}  // namespace

TEST_F(Staged_Restores_Test, Start_Of_The_Agent_Removes_What_Former_Restores_Left) {
  stage({"catalog_HDB_TN1_HDB_TN1.json", "restore_HDB_TN1.json", "somebody_elses.json"});
  staged_.remove_all();
  EXPECT_EQ(left(), Names{"somebody_elses.json"});
  EXPECT_TRUE(log_.has_containing("Removed '/var/opt/tarvex/dorsal3/agent/hana/catalog/restore_HDB_TN1.json'"));
}

TEST_F(Staged_Restores_Test, Start_Of_An_Agent_That_Never_Restored_Is_Silent) {
  staged_.remove_all();
  EXPECT_TRUE(log_.lines().empty());
}

TEST_F(Staged_Restores_Test, End_Of_A_Restore_Removes_The_Files_Of_Its_Entries) {
  staged_.begin("run", definition({entry("PRD", "T_1"), entry("HDB", "TN2")}));
  stage({"catalog_PRD_T%5F1_HDB_TN1.json", "restore_HDB_TN1.json", "catalog_HDB_TN2_HDB_TN2.json",
         "restore_HDB_TN2.json", "catalog_HDB_TN3_HDB_TN3.json", "restore_HDB_TN3.json",
         "catalog_PRD_T%5F1X_HDB_TN9.json"});
  staged_.end("run");
  EXPECT_EQ(left(), (Names{"catalog_HDB_TN3_HDB_TN3.json", "catalog_PRD_T%5F1X_HDB_TN9.json", "restore_HDB_TN3.json"}));
}

TEST_F(Staged_Restores_Test, Begin_Of_A_Restore_Removes_What_Is_Left_Of_Its_Origin) {
  stage({"catalog_HDB_TN1_HDB_TN7.json", "restore_HDB_TN7.json", "catalog_HDB_TN2_HDB_TN2.json"});
  staged_.begin("run", definition({entry("HDB", "TN1")}));
  EXPECT_EQ(left(), Names{"catalog_HDB_TN2_HDB_TN2.json"});
}

TEST_F(Staged_Restores_Test, Files_Stay_While_Another_Restore_Of_The_Origin_Goes_On) {
  staged_.begin("one", definition({entry("HDB", "TN1")}));
  stage({"catalog_HDB_TN1_HDB_TN1.json", "restore_HDB_TN1.json"});
  staged_.begin("two", definition({entry("HDB", "TN1")}));
  EXPECT_EQ(left().size(), 2U);
  staged_.end("two");
  EXPECT_EQ(left().size(), 2U);
  staged_.end("one");
  EXPECT_TRUE(left().empty());
}

TEST_F(Staged_Restores_Test, A_Start_That_Comes_Twice_Is_One_Run) {
  EXPECT_TRUE(staged_.begin("run", definition({entry("HDB", "TN1")})));
  stage({"catalog_HDB_TN1_HDB_TN1.json"});
  EXPECT_FALSE(staged_.begin("run", definition({entry("HDB", "TN1")})));
  EXPECT_EQ(left().size(), 1U);
  staged_.end("run");
  EXPECT_TRUE(left().empty());
  staged_.end("run");
  EXPECT_FALSE(staged_.begin("run", definition({entry("HDB", "TN1")}))) << "it has ended";
}

TEST_F(Staged_Restores_Test, Other_Jobs_And_Unsound_Documents_Touch_Nothing) {
  stage({"catalog_HDB_TN1_HDB_TN1.json"});
  EXPECT_FALSE(staged_.begin("backup", definition({entry("HDB", "TN1")}, "backup")));
  staged_.begin("no entries", json_spirit::Object{{"type", "restore"}});
  staged_.begin("no object", "restore");
  staged_.begin("no origin", definition({json_spirit::Object{}, "text"}));
  for (const char* run : {"backup", "no entries", "no object", "no origin"}) staged_.end(run);
  EXPECT_EQ(left().size(), 1U);
}

TEST_F(Staged_Restores_Test, A_File_That_Cannot_Be_Removed_Is_Named) {
  root_.make_directory(std::string(directory) + "/catalog_HDB_TN1_HDB_TN1.json/x");
  staged_.begin("run", definition({entry("HDB", "TN1")}));
  EXPECT_EQ(log_.claim_containing("Failed to remove '" + std::string(directory) + "/catalog_HDB_TN1_HDB_TN1.json'"),
            1U);
}

TEST_F(Staged_Restores_Test, A_Run_That_Has_Ended_Lets_Its_Files_Go_Before_Anybody_Is_Told) {
  const auto next = std::make_shared<Next_Listener>();
  Restore_End_Tap tap(staged_, next);
  Job_Activity_Snapshot activity;
  activity.id = "run";
  activity.type = JOB_DEFINITION_RESTORE;
  staged_.begin("run", definition({entry("HDB", "TN1")}));
  stage({"catalog_HDB_TN1_HDB_TN1.json"});
  for (const Job_State state : {JOB_STATE_RUNNING, JOB_STATE_CANCELING, JOB_STATE_COMPLETING}) {
    activity.state = state;
    tap.activity_changed(activity);
    EXPECT_EQ(left().size(), 1U) << state;
  }
  activity.state = JOB_STATE_ERROR;
  tap.activity_changed(activity);
  EXPECT_TRUE(left().empty());
  EXPECT_EQ(next->seen, Names(4, "run"));
}

TEST_F(Staged_Restores_Test, The_End_Tells_What_Was_Staged_And_A_Begin_Does_Not) {
  std::vector<Staged_Name> over;
  Staged_Restores telling([&](const std::vector<Staged_Name>& names) { over = names; });
  stage({"catalog_HDB_TN1_HDB_TN1.json"});
  telling.begin("run", definition({entry("HDB", "TN1"), entry("HDB", "T_2")}));
  EXPECT_TRUE(over.empty());
  stage({"catalog_HDB_TN1_HDB_TN1.json", "restore_HDB_TN1.json", "catalog_HDB_T%5F2_HDB_TN3.json",
         "catalog_HDB_TN1_odd.json"});
  telling.end("run");
  EXPECT_EQ(over, (std::vector<Staged_Name>{{"HDB", "TN1", "HDB", "TN1"}, {"HDB", "T_2", "HDB", "TN3"}}));
  over.clear();
  telling.end("run");
  EXPECT_TRUE(over.empty());
}

TEST_F(Staged_Restores_Test, The_Start_Tells_What_It_Has_Removed) {
  stage({"catalog_HDB_TN1_QAS_TN2.json", "restore_QAS_TN2.json", "catalog_odd.json"});
  EXPECT_EQ(staged_.remove_all(), (std::vector<Staged_Name>{{"HDB", "TN1", "QAS", "TN2"}}));
  EXPECT_TRUE(left().empty());
}

TEST_F(Staged_Restores_Test, Another_Host_Has_Its_Own_Files_Removed_And_No_Others) {
  const Names others{"catalog_HDB_TN1_HDB_TN9.json", "catalog_HDB_TN2_HDB_T%5F2.json", "restore_HDB_TN9.json"};
  stage(others);
  stage({"catalog_HDB_TN1_HDB_T%5F2.json", "restore_HDB_T%5F2.json"});
  int removed = 0;
  EXPECT_TRUE(staged_.remove({"HDB", "TN1", "HDB", "T_2"}, "h-2", removed));
  EXPECT_EQ(removed, 2);
  EXPECT_EQ(left(), others);
  EXPECT_TRUE(staged_.remove({"HDB", "TN1", "HDB", "T_2"}, "h-2", removed));
  EXPECT_EQ(removed, 0) << "the same again";
}

TEST_F(Staged_Restores_Test, What_A_Restore_Of_This_Host_Uses_Stays_For_Another_Host) {
  const Staged_Name name{"HDB", "TN1", "HDB", "TN1"};
  EXPECT_FALSE(staged_.in_use(name));
  staged_.begin("run", definition({entry("HDB", "TN1")}));
  EXPECT_TRUE(staged_.in_use(name));
  stage({"catalog_HDB_TN1_HDB_TN1.json"});
  int removed = 7;
  EXPECT_TRUE(staged_.remove(name, "h-2", removed));
  EXPECT_EQ(removed, 0);
  EXPECT_EQ(left().size(), 1U);
}

TEST_F(Staged_Restores_Test, What_Another_Host_Has_Staged_Since_Is_Its_Own_To_Have_Removed) {
  const Staged_Name name{"HDB", "TN1", "HDB", "TN2"};
  const Names both{"catalog_HDB_TN1_HDB_TN2.json", "restore_HDB_TN2.json"};
  int removed = 7;
  staged_.staged_by(name, "h-2");
  staged_.staged_by(name, "h-3");
  stage(both);
  EXPECT_TRUE(staged_.remove(name, "h-2", removed));
  EXPECT_EQ(removed, 0);
  EXPECT_EQ(left(), both);
  EXPECT_TRUE(log_.has_containing("The host h-3 stages 'catalog_HDB_TN1_HDB_TN2.json' here for its restore"));
  EXPECT_TRUE(log_.has_containing("'restore_HDB_TN2.json' stays: the host h-3 has staged it since"));
  EXPECT_TRUE(staged_.remove(name, "h-3", removed));
  EXPECT_EQ(removed, 2);
}

TEST_F(Staged_Restores_Test, A_Target_File_Belongs_To_Whose_Restore_Wrote_It_Last) {
  staged_.staged_by({"HDB", "TN1", "HDB", "TN9"}, "h-2");
  staged_.staged_by({"PRD", "TN5", "HDB", "TN9"}, "h-3");
  stage({"catalog_HDB_TN1_HDB_TN9.json", "catalog_PRD_TN5_HDB_TN9.json", "restore_HDB_TN9.json"});
  int removed = 0;
  EXPECT_TRUE(staged_.remove({"HDB", "TN1", "HDB", "TN9"}, "h-2", removed));
  EXPECT_EQ(left(), (Names{"catalog_PRD_TN5_HDB_TN9.json", "restore_HDB_TN9.json"}));
}

TEST_F(Staged_Restores_Test, End_Of_A_Restore_Leaves_What_Another_Host_Has_Staged_Meanwhile) {
  std::vector<Staged_Name> over;
  Staged_Restores telling([&](const std::vector<Staged_Name>& names) { over = names; });
  telling.begin("run", definition({entry("HDB", "TN1")}));
  telling.staged_by({"HDB", "TN1", "HDB", "TN2"}, "h-2");
  const Names others{"catalog_HDB_TN1_HDB_TN2.json", "restore_HDB_TN2.json"};
  stage({"catalog_HDB_TN1_HDB_TN1.json", "restore_HDB_TN1.json"});
  stage(others);
  telling.end("run");
  EXPECT_EQ(left(), others);
  EXPECT_EQ(over, (std::vector<Staged_Name>{{"HDB", "TN1", "HDB", "TN1"}})) << "its files alone are over elsewhere";
  telling.begin("next", definition({entry("HDB", "TN1")}));
  EXPECT_TRUE(left().empty()) << "it may be left over, and would decide what this one reads";
}

TEST_F(Staged_Restores_Test, What_Is_Over_While_It_Is_In_Use_Goes_With_The_Restore_That_Uses_It) {
  const Staged_Name name{"HDB", "TN1", "HDB", "TN2"};
  staged_.begin("run", definition({entry("HDB", "TN1")}));
  staged_.staged_by(name, "h-2");
  stage({"catalog_HDB_TN1_HDB_TN2.json", "restore_HDB_TN2.json"});
  int removed = 7;
  EXPECT_TRUE(staged_.remove(name, "h-2", removed));
  EXPECT_EQ(removed, 0);
  staged_.end("run");
  EXPECT_TRUE(left().empty());
}

TEST_F(Staged_Restores_Test, What_This_Host_Stages_Again_Is_Its_Own) {
  const Staged_Name name{"HDB", "TN1", "HDB", "TN1"};
  staged_.staged_by(name, "h-2");
  staged_.begin("run", definition({entry("HDB", "TN1")}));
  staged_.staged_by(name, "");
  stage({"catalog_HDB_TN1_HDB_TN1.json"});
  staged_.end("run");
  EXPECT_TRUE(left().empty());
}

TEST_F(Staged_Restores_Test, What_Another_Host_Announced_And_Never_Wrote_Is_This_Hosts_When_It_Restores) {
  staged_.staged_by({"HDB", "TN1", "HDB", "TN2"}, "h-2");
  staged_.begin("run", definition({entry("HDB", "TN1")}));
  stage({"catalog_HDB_TN1_HDB_TN2.json", "restore_HDB_TN2.json"});
  staged_.end("run");
  EXPECT_TRUE(left().empty());
}

TEST_F(Staged_Restores_Test, A_Begin_Forgets_Nothing_That_Other_Hosts_Announced_For_Other_Origins) {
  const Names others{"catalog_PRD_TN5_HDB_TN9.json", "restore_HDB_TN9.json"};
  staged_.staged_by({"HDB", "TN1", "HDB", "TN9"}, "h-2");
  staged_.staged_by({"PRD", "TN5", "HDB", "TN9"}, "h-3");
  staged_.begin("run", definition({entry("HDB", "TN1")}));
  stage({"catalog_HDB_TN1_HDB_TN9.json"});
  stage(others);
  int removed = 0;
  EXPECT_TRUE(staged_.remove({"PRD", "TN5", "HDB", "TN9"}, "h-2", removed));
  staged_.end("run");
  EXPECT_EQ(left(), others);
}

TEST_F(Staged_Restores_Test, A_Name_Of_Another_Host_Leaves_The_Directory_By_No_Way) {
  root_.write("/var/opt/tarvex/dorsal3/agent/hana/secret.json", "{}");
  int removed = 0;
  for (const char* part : {"../secret", "/../secret.json", "x/../../secret"}) {
    EXPECT_TRUE(staged_.remove({"HDB", "TN1", "HDB", part}, "h-2", removed)) << part;
    EXPECT_TRUE(staged_.remove({part, part, part, part}, "h-2", removed)) << part;
    EXPECT_EQ(removed, 0) << part;
  }
  EXPECT_TRUE(platform::is_regular_file("/var/opt/tarvex/dorsal3/agent/hana/secret.json"));
}

TEST_F(Staged_Restores_Test, Another_Host_Is_Told_When_A_File_Cannot_Be_Removed) {
  root_.make_directory(std::string(directory) + "/catalog_HDB_TN1_HDB_TN1.json/x");
  int removed = 7;
  EXPECT_FALSE(staged_.remove({"HDB", "TN1", "HDB", "TN1"}, "h-2", removed));
  EXPECT_EQ(removed, 0);
  EXPECT_EQ(log_.claim_containing("Failed to remove '"), 1U);
}
