#include "hana/job/backup_job_options_parser.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "hana/job/backup_job_options.h"
#include "parser_drive.h"
#include "support/log_capture.h"
#include "unit/job/faults.h"

namespace {

using parser_drive::parse;
using sap_hana::Backup_Job_Options;
using sap_hana::Backup_Job_Options_Parser;

class Backup_Job_Options_Parser_Test : public testing::Test {
 protected:
  static const Backup_Job_Options& options(Backup_Job_Options_Parser& parser) {
    return dynamic_cast<Backup_Job_Options&>(*parser.result());
  }
  support::Log_Capture log_;
};

TEST_F(Backup_Job_Options_Parser_Test, Reads_Documents) {
  struct Row {
    const char* text;
    Compression_Method compression;
    int level;
  };
  const Row rows[] = {
      {R"({})", COMPR_NONE, 1},
      {R"({"compression": "zstd", "compression_level": 3})", COMPR_ZSTD, 3},
      {R"({"compression_level": 3, "compression": "lzop"})", COMPR_LZOP, 3},
      {R"({"compression": "auto"})", COMPR_AUTO, 1},
      {R"({"compression_level": 5})", COMPR_NONE, 5},
      {R"({"compression_level": -2})", COMPR_NONE, -2},
      {R"({"compression_level": 3.9})", COMPR_NONE, 3},
      {R"({"compression_level": 99999999999999999999})", COMPR_NONE, 2147483647},
      // A number for the method is taken and means nothing.
      {R"({"compression": 3})", COMPR_NONE, 1},
      // An unknown key has the meaning of the key before it.
      {R"({"compression_level": 5, "other": 7})", COMPR_NONE, 7},
      {R"({"compression": "zstd", "other": "lzop"})", COMPR_LZOP, 1},
      {R"({"compression": "zstd", "other": 7})", COMPR_ZSTD, 1},
      {R"({"compression_level": 5, "a": 6, "b": 7, "compression": "auto", "c": "zstd"})", COMPR_ZSTD, 7},
      // Before the first known key there is nothing to inherit.
      {R"({"other": 7})", COMPR_NONE, 1},
      {R"({"other": "zstd"})", COMPR_NONE, 1},
      // The length of a key counts.
      {R"({"compression_": "zstd"})", COMPR_NONE, 1},
      {R"({"compressio": "zstd"})", COMPR_NONE, 1},
      {R"({"compression_level2": 9})", COMPR_NONE, 1},
      // The last of two wins.
      {R"({"compression": "zstd", "compression": "lzop"})", COMPR_LZOP, 1},
      // null and booleans are taken and ignored.
      {R"({"compression": null, "compression_level": true})", COMPR_NONE, 1},
      {R"({"a": {}})", COMPR_NONE, 1},
      {R"({"a": {"b": {"c": null}}})", COMPR_NONE, 1},
      {R"({"compression_level": 5, "a": {"compression": null}, "b": 6})", COMPR_NONE, 6},
      {R"(null)", COMPR_NONE, 1},
  };
  for (const Row& row : rows) {
    Backup_Job_Options_Parser parser;
    const JSON_Parse_Result outcome = parse(parser, row.text);
    EXPECT_TRUE(outcome.ok) << row.text << outcome.message;
    EXPECT_EQ(parser.error(), JSON_PARSER_E_OK) << row.text;
    EXPECT_EQ(options(parser).compression_, row.compression) << row.text;
    EXPECT_EQ(options(parser).compression_level_, row.level) << row.text;
  }
}

TEST_F(Backup_Job_Options_Parser_Test, Leaves_Unknown_Methods_To_Their_Table) {
  Backup_Job_Options_Parser parser;
  EXPECT_TRUE(parse(parser, R"({"compression": "gzip"})").ok);
  EXPECT_EQ(options(parser).compression_, COMPR_NONE);
}

TEST_F(Backup_Job_Options_Parser_Test, Refuses_Values_Out_Of_Place) {
  for (const char* text : {R"({"a": {"b": 1}})", R"({"a": {"b": "x"}})", R"({"compression": {"compression": "zstd"}})",
                           R"({"compression_level": "5"})", R"({"compression_level": 5, "other": "x"})", R"("zstd")",
                           R"(3)", R"({"compression": ["zstd"]})", R"([])"}) {
    Backup_Job_Options_Parser parser;
    const JSON_Parse_Result outcome = parse(parser, text);
    EXPECT_FALSE(outcome.ok) << text;
    EXPECT_EQ(outcome.code, JSON_PARSER_E_INVALID_VALUE_TYPE) << text;
    EXPECT_EQ(parser.error(), JSON_PARSER_E_INVALID_VALUE_TYPE) << text;
  }
}

TEST_F(Backup_Job_Options_Parser_Test, Refuses_Keys_And_Ends_Outside_Of_An_Object) {
  Backup_Job_Options_Parser parser;
  EXPECT_FALSE(parser_drive::give_key(parser, "compression"));
  EXPECT_EQ(parser.error(), JSON_PARSER_E_INVALID_LEVEL);
  Backup_Job_Options_Parser other;
  EXPECT_FALSE(other.handle_end_map_i());
  EXPECT_EQ(other.error(), JSON_PARSER_E_INVALID_LEVEL);
}

TEST_F(Backup_Job_Options_Parser_Test, Reads_Texts_Without_A_Terminator) {
  Backup_Job_Options_Parser parser;
  EXPECT_TRUE(parser.handle_start_map_i());
  EXPECT_TRUE(parser_drive::give_key(parser, "compression"));
  EXPECT_TRUE(parser_drive::give_string(parser, "zstd"));
  EXPECT_TRUE(parser_drive::give_key(parser, "compression_level"));
  EXPECT_TRUE(parser_drive::give_number(parser, "12"));
  EXPECT_TRUE(parser_drive::give_key(parser, ""));
  EXPECT_TRUE(parser_drive::give_number(parser, ""));
  EXPECT_TRUE(parser.handle_end_map_i());
  EXPECT_EQ(options(parser).compression_, COMPR_ZSTD);
  EXPECT_EQ(options(parser).compression_level_, 0);
}

TEST_F(Backup_Job_Options_Parser_Test, Fails_On_The_First_Value_Without_Memory) {
  errno = 0;
  const auto make = [] {
    const faults::No_Memory no_memory(1);  // behind the pointer's own record
    return std::make_unique<Backup_Job_Options_Parser>();
  };
  const auto parser = make();
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_EQ(log_.claim_containing("hana/job/backup_job_options_parser.cpp:", LM_EMERGENCY), 1U) << log_.dump();
  EXPECT_TRUE(log_.has_containing(", result_ is NULL:\n"));
  EXPECT_EQ(log_.lines().back().priority, LM_EMERGENCY);
  EXPECT_TRUE(parser->result().null());
  EXPECT_TRUE(parser->handle_start_map_i());
  EXPECT_TRUE(parser_drive::give_key(*parser, "compression"));
  EXPECT_FALSE(parser_drive::give_string(*parser, "zstd"));
  EXPECT_FALSE(parser_drive::give_number(*parser, "1"));
  EXPECT_EQ(log_.claim_containing(", result_ is NULL:\n", LM_EMERGENCY), 2U);
}

TEST_F(Backup_Job_Options_Parser_Test, Result_Is_Shared) {
  Backup_Job_Options_Parser::Result kept;
  {
    Backup_Job_Options_Parser parser;
    kept = parser.result();
    EXPECT_TRUE(parse(parser, R"({"compression_level": 8})").ok);
  }
  EXPECT_EQ(dynamic_cast<Backup_Job_Options&>(*kept).compression_level_, 8);
}

TEST(Backup_Job_Options, Writes_The_Method_Only_When_It_Has_A_Name) {
  struct Row {
    Compression_Method compression;
    int level;
    const char* text;
  };
  const Row rows[] = {{COMPR_NONE, 1, R"({"compression":"none","compression_level":1})"},
                      {COMPR_ZSTD, 5, R"({"compression":"zstd","compression_level":5})"},
                      {COMPR_MAX, -1, R"({"compression_level":-1})"}};
  for (const Row& row : rows) {
    Backup_Job_Options options;
    options.compression_ = row.compression;
    options.compression_level_ = row.level;
    EXPECT_EQ(parser_drive::generate(options), row.text);
  }
}

}  // namespace
