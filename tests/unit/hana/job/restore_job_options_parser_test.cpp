#include "hana/job/restore_job_options_parser.h"

#include <gtest/gtest.h>

#include <cerrno>

#include "hana/job/restore_job_options.h"
#include "parser_drive.h"
#include "support/log_capture.h"
#include "unit/job/faults.h"

namespace {

using parser_drive::parse;
using sap_hana::Restore_Job_Options;
using sap_hana::Restore_Job_Options_Parser;

class Restore_Job_Options_Parser_Test : public testing::Test {
 protected:
  static bool ignore_delta(Restore_Job_Options_Parser& parser) {
    return dynamic_cast<Restore_Job_Options&>(*parser.result()).ignore_delta();
  }
  support::Log_Capture log_;
};

TEST_F(Restore_Job_Options_Parser_Test, Reads_Documents) {
  struct Row {
    const char* text;
    bool ignore_delta;
  };
  const Row rows[] = {
      {R"({})", false},
      {R"({"ignore_delta": true})", true},
      {R"({"ignore_delta": false})", false},
      {R"({"ignore_delta": true, "ignore_delta": false})", false},
      // An unknown key has the meaning of the key before it.
      {R"({"ignore_delta": false, "x": true})", true},
      {R"({"ignore_delta": true, "x": false})", false},
      {R"({"x": true})", false},
      {R"({"ignore_delt": true, "ignore_delta_": true})", false},
      // Numbers and null are taken and ignored.
      {R"({"ignore_delta": 1})", false},
      {R"({"ignore_delta": null, "x": {"y": {"z": 1}}})", false},
      {R"(7)", false},
  };
  for (const Row& row : rows) {
    Restore_Job_Options_Parser parser;
    const JSON_Parse_Result outcome = parse(parser, row.text);
    EXPECT_TRUE(outcome.ok) << row.text << outcome.message;
    EXPECT_EQ(ignore_delta(parser), row.ignore_delta) << row.text;
  }
}

TEST_F(Restore_Job_Options_Parser_Test, Refuses_Strings_And_Deep_Booleans) {
  struct Row {
    const char* text;
    int code;
  };
  const Row rows[] = {{R"({"ignore_delta": "yes"})", JSON_PARSER_E_INVALID_VALUE_TYPE},
                      {R"({"x": "yes"})", JSON_PARSER_E_INVALID_VALUE_TYPE},
                      {R"({"x": {"y": "yes"}})", JSON_PARSER_E_INVALID_VALUE_TYPE},
                      {R"("yes")", JSON_PARSER_E_OK},
                      {R"({"x": {"ignore_delta": true}})", JSON_PARSER_E_INVALID_VALUE_TYPE},
                      {R"(true)", JSON_PARSER_E_INVALID_VALUE_TYPE},
                      {R"({"ignore_delta": [true]})", JSON_PARSER_E_INVALID_VALUE_TYPE}};
  for (const Row& row : rows) {
    Restore_Job_Options_Parser parser;
    const JSON_Parse_Result outcome = parse(parser, row.text);
    EXPECT_FALSE(outcome.ok) << row.text;
    EXPECT_EQ(outcome.code, row.code) << row.text;
    EXPECT_FALSE(ignore_delta(parser)) << row.text;
  }
}

TEST_F(Restore_Job_Options_Parser_Test, Refuses_Keys_And_Ends_Outside_Of_An_Object) {
  Restore_Job_Options_Parser parser;
  EXPECT_FALSE(parser_drive::give_key(parser, "ignore_delta"));
  EXPECT_EQ(parser.error(), JSON_PARSER_E_INVALID_LEVEL);
  Restore_Job_Options_Parser other;
  EXPECT_FALSE(other.handle_end_map_i());
  EXPECT_EQ(other.error(), JSON_PARSER_E_INVALID_LEVEL);
}

TEST_F(Restore_Job_Options_Parser_Test, Is_Silent_Without_Memory) {
  errno = 0;
  const auto make = [] {
    const faults::No_Memory no_memory(1);  // behind the pointer's own record
    return std::make_unique<Restore_Job_Options_Parser>();
  };
  const auto parser = make();
  EXPECT_EQ(errno, ENOMEM);
  EXPECT_TRUE(log_.lines().empty());
  EXPECT_TRUE(parser->result().null());
  EXPECT_TRUE(parser->handle_start_map_i());
  EXPECT_TRUE(parser_drive::give_key(*parser, "ignore_delta"));
  EXPECT_TRUE(parser->handle_boolean_i(true));
}

TEST(Restore_Job_Options, Writes_An_Empty_Object) {
  Restore_Job_Options options;
  EXPECT_FALSE(options.ignore_delta());
  options.ignore_delta(true);
  EXPECT_EQ(parser_drive::generate(options), "{}");
}

}  // namespace
