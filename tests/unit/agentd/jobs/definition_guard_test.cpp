#include "agentd/jobs/definition_guard.h"

#include <gtest/gtest.h>

namespace {

bool passes(const std::string& entry, std::string& refusal) {
  json_spirit::Value document;
  EXPECT_TRUE(json_spirit::load_json(R"({"source":{"entries":[)" + entry + "]}}", document)) << entry;
  return agentd::names_are_safe(document.get_obj(), refusal);
}

TEST(Definition_Guard, Lets_Plain_Names_And_Times_Through) {
  std::string refusal;
  for (const char* entry :
       {R"("hana/HDB00")", R"("hana/HDB00/TN_1")", R"({"original":{"sid":"HDB","database":"TN1"}})",
        R"({"original":{"sid":"H01","database":"_T"},"restore_as":{"database":"","timepoint":"2026-11-22 10:00:00"}})",
        R"({"original":{"sid":"HDB","database":7},"restore_as":"none"})", "7"})
    EXPECT_TRUE(passes(entry, refusal)) << entry << refusal;
}

TEST(Definition_Guard, Refuses_What_Would_Become_More_Than_A_Name) {
  const struct {
    const char* entry;
    const char* named;
  } rows[] = {{R"("hana/HDB00/TN1 x")", "TN1 x"},
              {R"({"original":{"sid":"../x","database":"TN1"}})", R"("sid" "../x")"},
              {R"({"original":{"sid":"HDB","database":"TN1'"}})", R"("database" "TN1'")"},
              {R"({"original":{"sid":"HDB","database":"TN1"},"restore_as":{"database":"tn1"}})", R"("database" "tn1")"},
              {R"({"original":{"sid":"HDB","database":"TN1"},"restore_as":{"timepoint":"2026-11-22' CLEAR LOG"}})",
               R"("timepoint" "2026-11-22' CLEAR LOG")"}};
  for (const auto& row : rows) {
    std::string refusal;
    EXPECT_FALSE(passes(row.entry, refusal)) << row.entry;
    EXPECT_NE(refusal.find(row.named), std::string::npos) << refusal;
  }
}

TEST(Definition_Guard, Refuses_An_Id_That_Leads_Elsewhere) {
  std::string refusal;
  EXPECT_FALSE(agentd::names_are_safe(json_spirit::Object{{"id", "../../srv"}}, refusal));
  EXPECT_NE(refusal.find("\"../../srv\""), std::string::npos) << refusal;
  EXPECT_TRUE(agentd::names_are_safe(json_spirit::Object{{"id", "logs of HDB"}}, refusal)) << refusal;
}

TEST(Definition_Guard, Refuses_Keys_Whose_Text_The_Module_Would_Take_For_A_Name) {
  const struct {
    const char* source;
    const char* named;
  } rows[] = {{R"({"entries":[{"original":{"sid":"HDB","database":"TN1","x":"TN1' ; DROP"}}]})", "\"x\""},
              {R"({"entries":[{"original":{"sid":"HDB","database":"TN1"},"restore_as":{"database":"TN2","y":"a b"}}]})",
               "\"y\""},
              {R"({"entries":[{"original":{"sid":"HDB","database":"TN1"},"catalog_uuid":"c","z":"../c"}]})", "\"z\""},
              {R"({"entries":[],"more":[{"original":{"sid":"../..","database":"TN1"}}]})", "\"more\""}};
  for (const auto& row : rows) {
    json_spirit::Value source;
    ASSERT_TRUE(json_spirit::load_json(row.source, source)) << row.source;
    std::string refusal;
    EXPECT_FALSE(agentd::names_are_safe(json_spirit::Object{{"source", source}}, refusal)) << row.source;
    EXPECT_NE(refusal.find(row.named), std::string::npos) << refusal;
  }
}

}  // namespace
