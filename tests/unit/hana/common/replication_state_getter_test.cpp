#include "hana/common/replication_state_getter.h"

#include <cerrno>

#include "hana/common/replication_output.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;
using hana_test::child;
using hana_test::test_data;
using State = Replication_State_Getter::Replication_State;

class Replication_State_Test : public hana_test::HANA_System {
 protected:
  std::vector<std::string> questions() {
    std::vector<std::string> seen;
    for (const support::Seen_Call& call : runner_.calls()) seen.push_back(call.arguments.at(0));
    return seen;
  }
  Replication_State_Getter getter_{"HDB"};
};

TEST_F(Replication_State_Test, Reads_What_The_Tool_Prints) {
  const struct {
    const char* name;
    std::string text;
    bool wanted;
    const char* mode;
    const char* operation_mode;
  } rows[] = {
      {"primary", test_data("hdbnsutil/primary.txt"), true, "primary", "primary"},
      {"secondary", test_data("hdbnsutil/secondary.txt"), true, "syncmem", "logreplay"},
      {"offline", test_data("hdbnsutil/offline.txt"), true, "none", ""},
      {"old release", test_data("hdbnsutil/old_release.txt"), true, "sync", ""},
      {"machine readable", test_data("hdbnsutil/machine_readable.txt"), true, "primary", "primary"},
      {"starting", test_data("hdbnsutil/starting.txt"), false, "", ""},
      {"only an operation mode", "operation mode: logreplay\n", false, "", ""},
      {"not at the start", " mode: sync\nReplication mode of X: sync\n", false, "", ""},
      {"another key", "modes: sync\nmode\n", false, "", ""},
      {"line ends of another system", "mode: async\r\noperation mode: logreplay\r\n", true, "async", "logreplay"},
      {"nothing", "", false, "", ""},
  };
  for (const auto& row : rows) {
    State state;
    EXPECT_EQ(parse_replication_state(row.text, state), row.wanted) << row.name;
    EXPECT_EQ(state.mode, row.mode) << row.name;
    EXPECT_EQ(state.operation_mode, row.operation_mode) << row.name;
  }
}

TEST_F(Replication_State_Test, Asks_The_Tool_Of_The_Instance) {
  script("hdbnsutil", {child(test_data("hdbnsutil/secondary.txt"))});
  State state;
  EXPECT_TRUE(getter_.get_state(state));
  EXPECT_EQ(state.mode, "syncmem");
  EXPECT_EQ(questions(), (std::vector<std::string>{"-sr_state"}));
  EXPECT_EQ(runner_.calls().front().program, "/usr/sap/HDB/HDB00/exe/hdbnsutil");
  EXPECT_EQ(runner_.calls().front().user, "hdbadm");
}

TEST_F(Replication_State_Test, Does_Not_Look_At_The_Exit_Code) {
  script("hdbnsutil", {child(test_data("hdbnsutil/primary.txt"), 2)});
  State state;
  EXPECT_TRUE(getter_.get_state(state));
  EXPECT_EQ(state.mode, "primary");
}

TEST_F(Replication_State_Test, Asks_Again_While_There_Is_No_Mode) {
  script("hdbnsutil",
         {child(test_data("hdbnsutil/starting.txt")), child("", 1), child(test_data("hdbnsutil/secondary.txt"))});
  State state;
  EXPECT_TRUE(getter_.get_state(state));
  EXPECT_EQ(state.mode, "syncmem");
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{10, 10}));
}

TEST_F(Replication_State_Test, Asks_Without_The_Services_In_The_End) {
  runner_.on([](const support::Seen_Call& call, support::Scripted_Child& answer) {
    answer = child(call.arguments.at(0) == "-sr_stateConfiguration" ? "mode: async\nsite id: 2\n" : "mode: \n");
    return true;
  });
  State state;
  EXPECT_TRUE(getter_.get_state(state));
  EXPECT_EQ(state.mode, "async");
  EXPECT_EQ(questions(),
            (std::vector<std::string>{"-sr_state", "-sr_state", "-sr_state", "-sr_state", "-sr_stateConfiguration"}));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{10, 10, 10}));
}

TEST_F(Replication_State_Test, Reads_The_Configuration_Without_A_Tool) {
  const struct {
    const char* text;
    const char* mode;
    const char* operation_mode;
  } rows[] = {
      {"[system_replication]\nmode = primary\nactual_mode = syncmem\noperation_mode = logreplay\n", "syncmem",
       "logreplay"},
      {"[system_replication]\nmode = sync\nactual_mode =\n", "sync", ""},
      {"[system_replication]\nsite_id = 1\n", "none", ""},
      {"[multidb]\nmode = multidb\n", "none", ""},
  };
  script("hdbnsutil", {hana_test::not_started(ENOENT)});
  for (const auto& row : rows) {
    configure("global.ini", row.text);
    State state;
    EXPECT_TRUE(getter_.get_state(state)) << row.text;
    EXPECT_EQ(state.mode, row.mode) << row.text;
    EXPECT_EQ(state.operation_mode, row.operation_mode) << row.text;
  }
  EXPECT_TRUE(clock_.sleeps().empty()) << "a tool that is not there will not be there later";
}

TEST_F(Replication_State_Test, Fails_When_Nothing_Tells) {
  script("hdbnsutil", {hana_test::not_started(ENOENT)});
  install("XYZ", "HDB01", "hanahost", "2.00.059.00");
  State state{"sync", "logreplay"};
  EXPECT_FALSE(Replication_State_Getter("XYZ").get_state(state));
  EXPECT_TRUE(state.mode.empty());
  EXPECT_TRUE(state.operation_mode.empty());
  expect_error("Failed to read the configuration of HANA system XYZ");
  EXPECT_FALSE(Replication_State_Getter("ABC").get_state(state));
  expect_error("HANA system 'ABC' is not installed on this host\n");
}

TEST_F(Replication_State_Test, Does_Not_Wait_For_A_Tool_That_Hangs) {
  support::Scripted_Child hanging;
  hanging.hangs = true;
  hanging.before = [this] { clock_.advance(std::chrono::minutes(2)); };
  script("hdbnsutil", {hanging});
  State state;
  EXPECT_TRUE(getter_.get_state(state));
  EXPECT_EQ(state.mode, "none");
  EXPECT_EQ(questions(), (std::vector<std::string>{"-sr_state", "-sr_stateConfiguration"}));
}

}  // namespace
