#include "job/default_backup_job_source.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "faults.h"
#include "job/default_backup_job_source_parser.h"
#include "json/yajl_generator.h"
#include "support/log_capture.h"

namespace {

using Entries = Default_Backup_Job_Source::Entries;

class Default_Backup_Job_Source_Test : public testing::Test {
 protected:
  static std::string generate(const Job_Source& source) {
    const YAJL_Generator generator;
    EXPECT_EQ(source.generate(generator.handle()), 0);
    return generator.text();
  }
  support::Log_Capture log_;
};

TEST_F(Default_Backup_Job_Source_Test, Is_Read_And_Written_The_Same) {
  const std::string text = R"({"id":"r","name":"HDB_HDB00","entries":["hana/HDB00/SYSTEMDB","hana/HDB00/TN1"]})";
  Default_Backup_Job_Source_Parser parser;
  ASSERT_TRUE(parse_json(text, parser).ok);
  const auto* const source = dynamic_cast<Default_Backup_Job_Source*>(parser.result().get());
  ASSERT_NE(source, nullptr);
  EXPECT_EQ(source->id(), "r");
  EXPECT_EQ(source->name(), "HDB_HDB00");
  EXPECT_EQ(source->entries(), (Entries{"hana/HDB00/SYSTEMDB", "hana/HDB00/TN1"}));
  EXPECT_EQ(generate(*source), text);
}

TEST_F(Default_Backup_Job_Source_Test, Name_And_Entries_May_Be_Empty) {
  Default_Backup_Job_Source_Parser parser;
  ASSERT_TRUE(parse_json(R"({"entries":[],"id":""})", parser).ok);
  EXPECT_EQ(generate(*parser.result()), R"({"id":"","entries":[]})");
}

TEST_F(Default_Backup_Job_Source_Test, Refuses_What_Is_No_Source) {
  struct Row {
    const char* text;
    int code;
    const char* line;
  };
  const Row rows[] = {
      {R"({"entries":[]})", JSON_PARSER_E_EXPECT_KEY, "Failed to parse backup job definition source, lack of 'id'.\n"},
      {R"({"id":"r"})", JSON_PARSER_E_EXPECT_KEY, "Failed to parse backup job definition source, lack of 'entries'.\n"},
      {R"({"id":"r","entries":[],"x":1})", JSON_PARSER_E_UNKNOWN_KEY, nullptr},
      {R"({"id":1,"entries":[]})", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"({"id":null,"entries":[]})", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"({"id":true,"entries":[]})", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"({"id":"r","entries":"hana"})", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"({"id":"r","entries":[1]})", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"({"id":"r","entries":[["a"]]})", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"({"id":"r","entries":[{}]})", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"({"id":["r"],"entries":[]})", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"({"id":{},"entries":[]})", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"([])", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
      {R"("r")", JSON_PARSER_E_INVALID_VALUE_TYPE, nullptr},
  };
  for (const Row& row : rows) {
    Default_Backup_Job_Source_Parser parser;
    const JSON_Parse_Result outcome = parse_json(row.text, parser);
    EXPECT_FALSE(outcome.ok) << row.text;
    EXPECT_EQ(outcome.code, row.code) << row.text;
    if (row.line == nullptr) continue;
    EXPECT_TRUE(log_.claim(row.line)) << row.text << log_.dump();
  }
}

TEST_F(Default_Backup_Job_Source_Test, Refuses_Ends_Without_A_Beginning) {
  Default_Backup_Job_Source_Parser parser;
  EXPECT_FALSE(parser.handle_end_map_i());
  EXPECT_EQ(parser.error(), JSON_PARSER_E_INVALID_LEVEL);
  EXPECT_FALSE(parser.handle_end_array_i());
  EXPECT_FALSE(parser.handle_map_key_i("id", 2));
  EXPECT_EQ(parser.error(), JSON_PARSER_E_INVALID_LEVEL);
}

TEST_F(Default_Backup_Job_Source_Test, Says_When_There_Is_No_Memory) {
  errno = 0;
  const faults::No_Memory no_memory(1);  // behind the pointer's own record
  Default_Backup_Job_Source_Parser parser;
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(parser.result().null());
  EXPECT_FALSE(parser.handle_start_map_i());
  EXPECT_EQ(parser.error(), JSON_PARSER_E_NO_MEM);
}

}  // namespace
