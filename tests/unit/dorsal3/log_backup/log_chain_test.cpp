#include "dorsal3/log_backup/log_chain.h"

#include <gtest/gtest.h>

#include <sstream>

#include "dorsal3/log_backup/log_chain_text.h"
#include "dorsal3/server/resources.h"
#include "records/log_positions.h"
#include "unit/dorsal3/command_fixture.h"
#include "unit/dorsal3/set_builder.h"

using namespace dorsal3;

namespace {

constexpr const char* lifeline_1 = "life-1";
constexpr const char* lifeline_2 = "life-2";

json_spirit::Object with_files(json_spirit::Object set, const std::vector<std::string>& names) {
  json_spirit::Array files;
  for (const std::string& name : names) files.emplace_back(json_spirit::Object{{"filename", name}});
  set["files"] = files;
  return set;
}

/// Each backup begins in the minute of its id.
json_spirit::Object at_minute(json_spirit::Object set, int minute) {
  const std::string two = (minute < 10 ? "0" : "") + std::to_string(minute);
  set["start_time"] = "2026-11-21 08:" + two + ":01";
  set["last_time"] = "2026-11-21 08:" + two + ":05";
  return set;
}

/// A full backup of the volumes 2 and 3.
json_spirit::Object full(int id, const char* lifeline = lifeline_1) {
  return at_minute(with_files(backup_set(id, "full", "f" + std::to_string(id), "", lifeline),
                              {"x_databackup_0_1", "x_databackup_2_1", "x_databackup_3_1"}),
                   id);
}

json_spirit::Object log_set(int id, const std::vector<std::string>& positions, const char* lifeline = lifeline_1) {
  std::vector<std::string> names;
  for (const std::string& one : positions) names.push_back("log_backup_" + one);
  return at_minute(with_files(backup_set(id, "log", "l" + std::to_string(id), "f", lifeline), names), id);
}

json_spirit::Object chain_of(const std::vector<json_spirit::Object>& sets) {
  Log_Chain_Source source;
  for (const auto& set : sets) {
    const std::string type = text_member(set, "type");
    (type == "log" || type == "catalog" ? source.log_sets : source.data_sets).push_back(set);
  }
  return log_chain(source);
}

/// "complete 08:05:00 [2:joined 0-20, 3:none]": state, recoverable time, and of each branch its services, with gaps as
/// "!10-20(l3,l5)" and overlaps as "~10-20(l3,l5)"; a former branch in round brackets.
std::string shape(const json_spirit::Object& model) {
  constexpr std::size_t date_length = 11;
  const auto span = [](const json_spirit::Object& row, const char* left, const char* right) {
    json_spirit::Object first;
    json_spirit::Object second;
    EXPECT_TRUE(json_spirit::object_get(row, left, first) && json_spirit::object_get(row, right, second));
    return text_member(row, "from") + "-" + text_member(row, "to") + "(" + text_member(first, "uuid") + "," +
           text_member(second, "uuid") + ")";
  };
  const std::string time = text_member(model, "newest_recoverable_time");
  std::string text = text_member(model, "state") + (time.empty() ? "" : " " + time.substr(date_length));
  for (const auto& branch : object_rows(model, "branches")) {
    const bool current = flag_member(branch, "current");
    std::string services;
    for (const auto& service : object_rows(branch, "services")) {
      services += (services.empty() ? "" : ", ") + text_member(service, "volume") + ":" + text_member(service, "start");
      if (const std::string last = text_member(service, "last_position"); !last.empty())
        services += " " + text_member(service, "first_position") + "-" + last;
      for (const auto& gap : object_rows(service, "gaps")) services += " !" + span(gap, "after", "before");
      for (const auto& overlap : object_rows(service, "overlaps")) services += " ~" + span(overlap, "former", "set");
    }
    text += (current ? " [" : " (") + services + (current ? "]" : ")");
  }
  return text;
}

std::string text_of(json_spirit::Object model) {
  std::ostringstream out;
  model["name"] = "TN1";
  print_log_chain(model, out);
  return out.str();
}

struct Row {
  const char* what;
  std::vector<json_spirit::Object> sets;
  const char* shape;
};

void expect_shapes(const std::vector<Row>& rows) {
  for (const Row& row : rows) EXPECT_EQ(shape(chain_of(row.sets)), row.shape) << row.what;
}

}  // namespace

TEST(Log_Names, Tell_Volume_And_Positions) {
  struct Name_Row {
    const char* name;
    const char* wanted;
  };
  const Name_Row rows[] = {
      {"log_backup_3_0_538414336_538623872", "3/0 538414336-538623872"},
      {"log_backup_1_2_5_9.1415905765532", "1/2 5-9"},
      {"log_backup_3_0_9_9", "3/0 9-9"},
      {"log_backup_3_0_18446744073709551614_18446744073709551615", "3/0 18446744073709551614-18446744073709551615"},
      {"log_backup_0_0_0_0", ""},
      {"log_backup_0_0_0_0.1415905765532", ""},
      {"log_backup_3_0_9_8", ""},
      {"log_backup_3_0_9", ""},
      {"log_backup_3_0_9_", ""},
      {"log_backup_3_0_9_10_11", ""},
      {"log_backup_3_0_9_18446744073709551616", ""},
      {"log_backup_3_0_-9_10", ""},
      {"xlog_backup_3_0_9_10", ""},
      {"", ""}};
  for (const Name_Row& row : rows) {
    const auto name = Log_Name::parse(row.name);
    EXPECT_EQ(name ? std::to_string(name->volume) + "/" + std::to_string(name->partition) + " " +
                         std::to_string(name->first) + "-" + std::to_string(name->last)
                   : "",
              row.wanted)
        << row.name;
  }
  EXPECT_TRUE(is_catalog_name("log_backup_0_0_0_0"));
  EXPECT_TRUE(is_catalog_name("log_backup_0_0_0_0.1415905765532"));
  EXPECT_FALSE(is_catalog_name("log_backup_1_0_0_0"));
  EXPECT_EQ(data_volume("a_databackup_b_databackup_12_1"), 12U);
  EXPECT_EQ(data_volume("databackup_12_1"), std::nullopt);
}

TEST(Log_Chain, Gaps_Are_Found_And_Late_Logs_Fill_Them) {
  expect_shapes({
      {"nothing at all", {}, "no_full"},
      {"a full backup alone is recoverable", {full(1)}, "complete 08:01:05 [2:none, 3:none]"},
      {"logs of two services, the slower one limits",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"3_0_0_50"}), log_set(5, {"2_0_10_20"})},
       "complete 08:02:59 [2:unproven 0-20, 3:unproven 0-50]"},
      {"several services in one set",
       {full(1), log_set(2, {"2_0_0_10", "3_0_0_50"}), log_set(3, {"2_0_10_20", "3_0_50_60"})},
       "complete 08:02:59 [2:unproven 0-20, 3:unproven 0-60]"},
      {"the logs before the full backup prove the start",
       {log_set(1, {"2_0_0_10"}), full(2), log_set(3, {"2_0_10_20"})},
       "complete 08:02:59 [2:joined 10-20, 3:none]"},
      {"logs lost around the full backup",
       {log_set(1, {"2_0_0_10"}), full(2), log_set(3, {"2_0_15_20"}), log_set(4, {"2_0_20_30"})},
       "gap 08:02:05 [2:gap 15-30 !10-15(l1,l3), 3:none]"},
      {"a gap between two logs",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_20_30"}), log_set(4, {"2_0_30_40"})},
       "gap 08:01:59 [2:unproven 0-40 !10-20(l2,l3), 3:none]"},
      {"a gap before the newest full backup does not count any more",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_20_30"}), full(4), log_set(5, {"2_0_30_40"})},
       "complete 08:04:59 [2:joined 30-40, 3:none]"},
      {"a log that was tried again comes after later ones",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_20_30"}), log_set(4, {"2_0_10_20"})},
       "complete 08:02:59 [2:unproven 0-30, 3:none]"},
      {"the same log twice",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_0_10"}), log_set(4, {"2_0_10_20"})},
       "complete 08:03:59 [2:unproven 0-20, 3:none]"},
      {"an empty log covers nothing",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_10_10"}), log_set(4, {"2_0_12_20"})},
       "gap 08:01:59 [2:unproven 0-20 !10-12(l2,l4), 3:none]"},
      {"a log without its objects is a gap",
       {full(1), log_set(2, {"2_0_0_10"}), missing(log_set(3, {"2_0_10_20"})), log_set(4, {"2_0_20_30"})},
       "gap 08:01:59 [2:unproven 0-30 !10-20(l2,l4), 3:none]"},
      {"two partitions of a volume are two chains",
       {full(1), log_set(2, {"2_0_0_10", "2_1_0_10"}), log_set(3, {"2_0_10_20"})},
       "complete 08:01:59 [2:unproven 0-20, 2:unproven 0-10, 3:none]"},
      {"a log with the id of the full backup came after it",
       {full(1), with_files(backup_set(1, "log", "l1"), {"log_backup_2_0_0_10"})},
       "complete 08:01:05 [2:unproven 0-10, 3:none]"},
  });
}

TEST(Log_Chain, A_Service_That_Falls_Silent_Is_Shown) {
  const auto model = chain_of({log_set(1, {"2_0_0_10", "3_0_0_10"}), full(2), log_set(3, {"2_0_10_20"})});
  EXPECT_EQ(shape(model), "complete 08:02:59 [2:joined 10-20, 3:none]");
  EXPECT_NE(text_of(model).find("no log since the full backup; good if it had none to write"), std::string::npos);
}

TEST(Log_Chain, A_Recovery_Begins_A_Branch) {
  expect_shapes({
      {"within a lifeline what is written again takes the place of the former branch",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_10_30"}), log_set(4, {"2_0_30_40"}),
        log_set(5, {"2_0_15_25"}), log_set(6, {"2_0_25_35"})},
       "complete 08:05:59 [2:unproven 0-35 ~15-40(l3,l5), 3:none]"},
      {"a gap of the new branch is not filled by the former one",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_10_40"}), log_set(4, {"2_0_15_20"}),
        log_set(5, {"2_0_25_35"})},
       "gap 08:03:59 [2:unproven 0-35 !20-25(l4,l5) ~15-40(l3,l4), 3:none]"},
      {"a new lifeline without a full backup is no start",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_5_20"}, lifeline_2)},
       "no_full (2:unproven 0-10, 3:none) [2:no_full 5-20]"},
      {"the full backup after it is",
       {full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_5_20"}, lifeline_2), full(4, lifeline_2),
        log_set(5, {"2_0_20_30"}, lifeline_2)},
       "complete 08:04:59 [2:joined 20-30, 3:none]"},
      {"a log of the former lifeline that is recorded late does not fill a gap of the new one",
       {full(1), log_set(2, {"2_0_0_10"}), full(3, lifeline_2), log_set(4, {"2_0_10_20"}, lifeline_2),
        log_set(5, {"2_0_20_30"}), log_set(6, {"2_0_30_40"}, lifeline_2)},
       "gap 08:03:59 (2:no_full 20-30) [2:unproven 10-40 !20-30(l4,l6), 3:none]"},
  });
}

TEST(Log_Chain, A_Full_Backup_Gone_From_Its_Pool_Is_No_Start) {
  EXPECT_EQ(shape(chain_of({full(1), log_set(2, {"2_0_0_10"}), missing(full(3)), log_set(4, {"2_0_10_20"})})),
            "complete 08:03:59 [2:unproven 0-20, 3:none]");
  EXPECT_EQ(shape(chain_of({missing(full(1)), log_set(2, {"2_0_0_10"})})), "no_full [2:no_full 0-10]");
}

TEST(Log_Chain, Text_Names_The_Sets_Around_A_Gap) {
  const auto text = text_of(
      chain_of({full(1), log_set(2, {"2_0_0_10"}), missing(log_set(3, {"2_0_10_20"})), log_set(4, {"2_0_20_30"}),
                log_set(5, {"2_0_25_40"}), with_files(backup_set(6, "catalog", "c6"), {"log_backup_0_0_0_0"})}));
  EXPECT_NE(text.find("database TN1: THE CHAIN OF LOGS HAS A GAP\n"
                      "  newest full backup: f1, 2026-11-21 08:01:01 to 2026-11-21 08:01:05\n"
                      "  newest recoverable time (UTC): 2026-11-21 08:01:59\n"
                      "  HANA's catalog: c6, 2026-11-21 08:00:05\n"
                      "  lifeline life-1\n"),
            std::string::npos)
      << text;
  EXPECT_NE(
      text.find("    volume 2: positions 10 to 20 are missing, between the sets log l2 and log l4; log l3 is gone "
                "from its pool\n"),
      std::string::npos)
      << text;
  EXPECT_NE(
      text.find("    volume 2: positions from 25 to 30 were written again: the set log l5 goes on in place of log "
                "l4 (as after a recovery)\n"),
      std::string::npos)
      << text;
  EXPECT_NE(text.find("  make a full backup: "), std::string::npos) << text;
}

namespace {
class Info_Logs_Test : public Command_Fixture {
 protected:
  Info_Logs_Test() { server.answer("POST /agents/h1/call", databases_answer); }
};
}  // namespace

TEST_F(Info_Logs_Test, The_Exit_Status_Tells_Of_A_Gap) {
  server.keep_sets({full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_10_20"})});
  EXPECT_EQ(run({"info", "--logs", "PRD_HDB00/TN1"}), exit_ok) << error.str();
  EXPECT_NE(out.str().find("database TN1: the chain of logs is complete\n"), std::string::npos) << out.str();
  server.keep_sets({full(1), log_set(2, {"2_0_0_10"}), log_set(3, {"2_0_11_20"})});
  EXPECT_EQ(run({"info", "--logs", "PRD_HDB00/TN1", "--output", "json"}), exit_gap) << error.str();
  const auto databases = object_rows(json(), "databases");
  ASSERT_EQ(databases.size(), 1U);
  EXPECT_EQ(shape(databases.front()), "gap 08:01:59 [2:unproven 0-20 !10-11(l2,l3), 3:none]");
  EXPECT_EQ(run({"info", "--logs", "PRD_HDB00"}), exit_gap) << "SYSTEMDB has no full backup";
  EXPECT_NE(out.str().find("database SYSTEMDB: NO FULL BACKUP THAT THE LOGS BUILD ON\n"), std::string::npos);
  EXPECT_EQ(run({"info", "--logs", "PRD_HDB00/TN9"}), exit_not_found);
  EXPECT_EQ(run({"info", "--logs"}), exit_usage);
}

TEST_F(Info_Logs_Test, Thousands_Of_Logs_Are_Read_Back_To_The_Full_Backup_And_No_Further) {
  constexpr int before = 1400;
  constexpr int all = 2400;
  std::vector<json_spirit::Object> sets;
  for (int id = 1; id <= all; ++id) {
    const std::string positions = "2_0_" + std::to_string(id * 10) + "_" + std::to_string(id * 10 + 10);
    sets.push_back(id == before ? with_files(backup_set(id, "full", "the-full"), {"x_databackup_2_1"})
                                : with_files(backup_set(id, "log", "log-" + std::to_string(id)),
                                             {"log_backup_" + (id == before + 1 ? "2_0_14000_14020" : positions)}));
  }
  server.keep_sets(sets);
  EXPECT_EQ(run({"info", "--logs", "PRD_HDB00/TN1", "--output", "json"}), exit_ok) << error.str();
  EXPECT_EQ(shape(object_rows(json(), "databases").at(0)), "complete 08:00:05 [2:joined 14000-24010]");
  const std::string pages = std::string("GET /sets?resource_uuid=") + resource_uuid +
                            "&type=log&database=TN1&sort=id&order=desc&limit=500&offset=";
  EXPECT_EQ(server.count(pages + "1000"), 1U);
  EXPECT_EQ(server.count(pages + "1500"), 0U) << "the page before was older than the full backup";
}

TEST_F(Info_Logs_Test, Saved_Logs_That_No_Set_Holds_Yet_Are_Told) {
  server.keep_sets({full(1), log_set(2, {"2_0_0_10"})});
  server.answer(
      "GET /backint/ondemand-runs?sid=PRD&database=TN1",
      R"({"total":2,"rows":[{"id":7,"state":"waiting","message":"its definition was removed"},{"id":8,"state":"running","message":""}]})");
  EXPECT_EQ(run({"info", "--logs", "PRD_HDB00/TN1"}), exit_ok) << error.str();
  EXPECT_NE(out.str().find("  2 log backups are saved and wait to be recorded in a set\n"
                           "    its definition was removed\n"),
            std::string::npos)
      << out.str();
}
