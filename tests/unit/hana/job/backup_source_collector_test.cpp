#include "hana/job/backup_source_collector.h"

#include <ace/Log_Priority.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "job/default_backup_job_source.h"
#include "support/log_capture.h"
#include "support/temp_root.h"

namespace {

using sap_hana::Backup_Source_Collector;

class Backup_Source_Collector_Test : public testing::Test {
 protected:
  void set_mode(const std::string& mode) {
    root_.write("/usr/sap/HDB/SYS/global/hdb/custom/config/global.ini", "[multidb]\nmode = " + mode + "\n");
  }

  /// "instance|database|systemdb" of each item that the entries give.
  std::vector<std::string> collect(const std::vector<std::string>& entries, bool wanted = true) {
    Default_Backup_Job_Source source;
    for (const std::string& entry : entries) source.add_entry(entry);
    Backup_Source_Collector collector("HDB");
    EXPECT_EQ(collector.collect(source), wanted);
    std::vector<std::string> items;
    for (const auto& item : collector.get())
      items.push_back(item.instance + "|" + item.database + "|" + (item.systemdb ? "system" : "other"));
    return items;
  }

  support::Temp_Root root_;
  support::Log_Capture log_;
};

using Items = std::vector<std::string>;

}  // namespace

TEST_F(Backup_Source_Collector_Test, Marks_The_System_Database_By_Name_On_A_System_With_Tenants) {
  set_mode("multidb");
  EXPECT_EQ(collect({"hana/HDB00/SYSTEMDB", "hana/HDB00/TN1", "hana/HDB00/systemdb"}),
            (Items{"HDB00|SYSTEMDB|system", "HDB00|TN1|other", "HDB00|systemdb|other"}));
}

TEST_F(Backup_Source_Collector_Test, Takes_Every_Named_Database_As_The_System_Database_Without_Tenants) {
  set_mode("singledb");
  EXPECT_EQ(collect({"hana/HDB00/SYSTEMDB", "hana/HDB00/TN1"}), (Items{"HDB00|SYSTEMDB|system", "HDB00|TN1|system"}));
}

TEST_F(Backup_Source_Collector_Test, Keeps_An_Entry_Without_Exactly_A_Database_With_An_Empty_Name) {
  set_mode("singledb");
  EXPECT_EQ(collect({"hana/HDB00", "hana/HDB00/TN1/x", "hana/HDB00/a/b/c"}),
            (Items{"HDB00||other", "HDB00||other", "HDB00||other"}));
}

TEST_F(Backup_Source_Collector_Test, Skips_An_Entry_Without_An_Instance_With_A_Message) {
  set_mode("multidb");
  EXPECT_EQ(collect({"hana", "hana/HDB00/TN1", "hana/"}), (Items{"HDB00|TN1|other"}));
  EXPECT_TRUE(log_.claim("Failed to handle source entry hana\n"));
  EXPECT_TRUE(log_.claim("Failed to handle source entry hana/\n"));
}

TEST_F(Backup_Source_Collector_Test, Stops_At_An_Entry_Of_Another_Kind_And_Keeps_What_Came_Before) {
  set_mode("multidb");
  EXPECT_EQ(collect({"hana/HDB00/TN1", "oracle/ORCL", "hana/HDB00/TN2"}, false), (Items{"HDB00|TN1|other"}));
  EXPECT_TRUE(log_.claim("Failed to collect oracle/ORCL for HANA\n"));
}

TEST_F(Backup_Source_Collector_Test, Takes_Every_Kind_That_Begins_With_The_Word_In_This_Letter_Case) {
  set_mode("multidb");
  EXPECT_EQ(collect({"hanax/HDB00/TN1"}), (Items{"HDB00|TN1|other"}));
  EXPECT_TRUE(collect({"HANA/HDB00/TN1"}, false).empty());
  EXPECT_TRUE(log_.claim("Failed to collect HANA/HDB00/TN1 for HANA\n"));
  EXPECT_TRUE(collect({"han/HDB00/TN1"}, false).empty());
  EXPECT_TRUE(log_.claim("Failed to collect han/HDB00/TN1 for HANA\n"));
}

TEST_F(Backup_Source_Collector_Test, Gives_An_Empty_List_For_No_Entries) {
  set_mode("multidb");
  EXPECT_TRUE(collect({}).empty());
}

TEST_F(Backup_Source_Collector_Test, Decodes_Percent_Encoded_Segments) {
  set_mode("multidb");
  EXPECT_EQ(collect({"hana/HDB00/A%20B%2fC", "hana//HDB00/TN1"}), (Items{"HDB00|A B/C|other", "HDB00|TN1|other"}));
}

TEST_F(Backup_Source_Collector_Test, Appends_To_What_It_Collected_Before) {
  set_mode("multidb");
  Default_Backup_Job_Source source;
  source.add_entry("hana/HDB00/TN1");
  Backup_Source_Collector collector("HDB");
  ASSERT_TRUE(collector.collect(source));
  ASSERT_TRUE(collector.collect(source));
  EXPECT_EQ(collector.get().size(), 2U);
}

TEST_F(Backup_Source_Collector_Test, Logs_Refused_Entries_As_Errors) {
  set_mode("multidb");
  EXPECT_TRUE(collect({"oracle/ORCL"}, false).empty());
  ASSERT_EQ(log_.lines().size(), 1U);
  EXPECT_EQ(log_.lines()[0].priority, LM_ERROR);
  EXPECT_TRUE(log_.claim("Failed to collect oracle/ORCL for HANA\n"));
}
