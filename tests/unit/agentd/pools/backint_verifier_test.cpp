#include "agentd/pools/backint_verifier.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/scripted_process_runner.h"
#include "support/virtual_clock.h"

using namespace agentd;

namespace {

class Backint_Verifier_Test : public ::testing::Test {
 protected:
  Verify_Result verify(const support::Scripted_Child& child) {
    runner.clear_rules();
    runner.on_program("hdbbackint", child);
    return verify_object({"e-1", "/usr/sap/PRD/SYS/global/hdb/backint/DB_TN1/x_databackup_0_1", "TN1@PRD", 77});
  }

  support::Virtual_Clock clock;
  support::Log_Capture log;
  support::Scripted_Process_Runner runner;
};

}  // namespace

TEST_F(Backint_Verifier_Test, An_Object_That_Was_Restored_Is_Good) {
  support::Scripted_Child child;
  child.standard_output = "#SOFTWAREID \"backint 1.04\" \"x\"\n#RESTORED \"e-1\" \"/x\"\n";
  const Verify_Result result = verify(child);
  EXPECT_TRUE(result.ok) << result.message;
  EXPECT_EQ(result.bytes, 77U);
  const auto calls = runner.calls();
  ASSERT_EQ(calls.size(), 1U);
  EXPECT_EQ(calls[0].arguments, (std::vector<std::string>{"-f", "restore", "-u", "TN1@PRD"}));
  EXPECT_EQ(calls[0].input,
            "#SOFTWAREID \"backint 1.04\" \"dorsal3-agent\"\n"
            "#EBID \"e-1\" \"/usr/sap/PRD/SYS/global/hdb/backint/DB_TN1/x_databackup_0_1\" \"/dev/null\"\n");
}

TEST_F(Backint_Verifier_Test, Anything_Else_Is_Not_And_Says_Why) {
  struct Row {
    const char* name;
    support::Scripted_Child child;
    const char* message;
  };
  const Row rows[] = {
      {"error", {"#ERROR \"/x\"\n", "checksum differs\nmore\n", 1}, "checksum differs"},
      {"unknown", {"#NOTFOUND \"/x\"\n", "", 0}, "the object is not known any more"},
      {"silent", {"", "", 0}, "hdbbackint did not say that the object was restored"},
      {"says it in the middle of a line", {"x #RESTORED\n", "", 0}, "hdbbackint did not say"},
      {"restored but failed", {"#RESTORED \"e-1\" \"/x\"\n", "", 1}, "hdbbackint ended with exit code 1"},
      {"killed", {"", "", 0, 9}, "hdbbackint was killed by signal 9"},
      {"missing", {"", "", 0, 0, ENOENT}, "could not be started"}};
  for (const Row& row : rows) {
    const Verify_Result result = verify(row.child);
    EXPECT_FALSE(result.ok) << row.name;
    EXPECT_NE(result.message.find(row.message), std::string::npos) << row.name << ": " << result.message;
    EXPECT_EQ(log.claim_containing("Failed to verify"), 1U) << row.name;
  }
}

TEST_F(Backint_Verifier_Test, Requests_That_Would_Be_More_Than_One_Line_Are_Refused) {
  const auto request = [](const char* ebid, const char* name, const char* user) {
    return json_spirit::Object{{"objects", json_spirit::Array{json_spirit::Object{
                                               {"ebid", ebid}, {"name", name}, {"user", user}, {"size", 1}}}}};
  };
  std::vector<Verify_Object> objects;
  std::string error;
  EXPECT_TRUE(read_verify_request(request("e", "n", "u"), objects, error));
  EXPECT_EQ(objects.size(), 1U);
  EXPECT_FALSE(read_verify_request(request("e\n#NULL", "n", "u"), objects, error));
  EXPECT_FALSE(read_verify_request(request("e", "n\rx", "u"), objects, error));
  EXPECT_FALSE(read_verify_request(request("e", "n", "-o"), objects, error));
  EXPECT_FALSE(read_verify_request(request("e", "n", ""), objects, error));
  EXPECT_FALSE(read_verify_request({}, objects, error));
}

TEST(Backint_Quoting, Escapes_Quotes_And_Nothing_Else) {
  EXPECT_EQ(backint_quoted("a b"), "\"a b\"");
  EXPECT_EQ(backint_quoted("a\"b\\c"), "\"a\\\"b\\c\"");
}
