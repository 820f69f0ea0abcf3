#include "hana/common/instance_control.h"

#include <cerrno>

#include "hana/common/sap_control_output.h"
#include "unit/hana/common/hana_system.h"

namespace {

using namespace sap_hana;
using hana_test::child;
using hana_test::test_data;

constexpr int all_running = 3;
constexpr int all_stopped = 4;

class Instance_Controller_Test : public hana_test::HANA_System {
 protected:
  support::Scripted_Child running() { return child(test_data("sapcontrol/all_running.txt"), all_running); }
  support::Scripted_Child stopped() { return child(test_data("sapcontrol/all_stopped.txt"), all_stopped); }
  support::Scripted_Child starting() { return child(test_data("sapcontrol/starting.txt"), 0); }
  std::vector<std::string> actions() {
    std::vector<std::string> seen;
    for (const support::Seen_Call& call : runner_.calls())
      if (call.program.ends_with("/HDB")) seen.push_back(call.arguments.at(0));
    return seen;
  }

  Instance_Controller controller_{"HDB"};
};

TEST_F(Instance_Controller_Test, Tells_The_State_By_The_Exit_Code) {
  const struct {
    int code;
    bool wanted;
    Instance_Controller::Instance_State state;
  } rows[] = {{3, true, Instance_Controller::INSTANCE_STATE_RUNNING},
              {4, true, Instance_Controller::INSTANCE_STATE_STOPPED},
              {0, true, Instance_Controller::INSTANCE_STATE_UNKNOWN},
              {1, false, Instance_Controller::INSTANCE_STATE_UNKNOWN},
              {2, false, Instance_Controller::INSTANCE_STATE_UNKNOWN},
              {127, false, Instance_Controller::INSTANCE_STATE_UNKNOWN}};
  for (const auto& row : rows) {
    Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
    EXPECT_EQ(state_of_process_list(row.code, state), row.wanted) << row.code;
    EXPECT_EQ(state, row.state) << row.code;
  }
}

TEST_F(Instance_Controller_Test, Tells_The_State_By_The_Process_Tree) {
  const struct {
    const char* name;
    std::string text;
    Instance_Controller::Instance_State wanted;
  } rows[] = {
      {"running", test_data("sapcontrol/hdb_info_running.txt"), Instance_Controller::INSTANCE_STATE_RUNNING},
      {"stopped", test_data("sapcontrol/hdb_info_stopped.txt"), Instance_Controller::INSTANCE_STATE_STOPPED},
      {"nothing", "", Instance_Controller::INSTANCE_STATE_STOPPED},
      {"daemon alone", " \\_ hdb.sapHDB_HDB00 -d\n", Instance_Controller::INSTANCE_STATE_UNKNOWN},
      {"servers alone", " \\_ hdbindexserver -port 30003\n", Instance_Controller::INSTANCE_STATE_UNKNOWN},
      {"another system", " \\_ hdb.sapXYZ_HDB00 -d\n", Instance_Controller::INSTANCE_STATE_STOPPED},
  };
  for (const auto& row : rows) EXPECT_EQ(state_of_process_tree(row.text, "HDB", "HDB00"), row.wanted) << row.name;
}

TEST_F(Instance_Controller_Test, Asks_The_Start_Service) {
  script("sapcontrol", {running(), stopped(), starting()});
  Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
  EXPECT_TRUE(controller_.get_state(0, state));
  EXPECT_EQ(state, Instance_Controller::INSTANCE_STATE_RUNNING);
  EXPECT_TRUE(controller_.get_state("HDB00", state));
  EXPECT_EQ(state, Instance_Controller::INSTANCE_STATE_STOPPED);
  EXPECT_TRUE(controller_.get_state("HDB00", state));
  EXPECT_EQ(state, Instance_Controller::INSTANCE_STATE_UNKNOWN);
  const support::Seen_Call call = runner_.calls().front();
  EXPECT_EQ(call.program, "/usr/sap/HDB/HDB00/exe/sapcontrol");
  EXPECT_EQ(call.arguments, (std::vector<std::string>{"-nr", "00", "-function", "GetProcessList"}));
  EXPECT_EQ(call.user, "hdbadm");
}

TEST_F(Instance_Controller_Test, Asks_HDB_When_The_Start_Service_Is_Down) {
  script("sapcontrol", {child(test_data("sapcontrol/refused.txt"), 1), hana_test::not_started(ENOENT)});
  script("HDB",
         {child(test_data("sapcontrol/hdb_info_running.txt")), child(test_data("sapcontrol/hdb_info_stopped.txt"))});
  Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_UNKNOWN;
  EXPECT_TRUE(controller_.get_state("HDB00", state));
  EXPECT_EQ(state, Instance_Controller::INSTANCE_STATE_RUNNING);
  EXPECT_TRUE(controller_.get_state("HDB00", state));
  EXPECT_EQ(state, Instance_Controller::INSTANCE_STATE_STOPPED);
  EXPECT_EQ(actions(), (std::vector<std::string>{"info", "info"}));
  EXPECT_EQ(runner_.calls().back().program, "/usr/sap/HDB/HDB00/HDB");
}

TEST_F(Instance_Controller_Test, Fails_When_Neither_Tells) {
  script("sapcontrol", {child(test_data("sapcontrol/refused.txt"), 1)});
  script("HDB", {child("", 1, "HDB: not for you\n")});
  Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_RUNNING;
  EXPECT_FALSE(controller_.get_state("HDB00", state));
  EXPECT_EQ(state, Instance_Controller::INSTANCE_STATE_UNKNOWN);
  expect_error(
      "Failed to get the state of HANA instance HDB_HDB00: sapcontrol ended with exit code 1: FAIL: NIECONN_REFUSED "
      "(Connection refused), NiRawConnect failed in plugin_fopen(); HDB info ended with exit code 1: HDB: not for "
      "you\n");
}

TEST_F(Instance_Controller_Test, Refuses_What_Is_Not_Installed) {
  Instance_Controller::Instance_State state = Instance_Controller::INSTANCE_STATE_RUNNING;
  EXPECT_FALSE(controller_.get_state(42, state));
  EXPECT_FALSE(Instance_Controller("QQQ").get_state("HDB00", state));
  EXPECT_FALSE(Instance_Controller("../").start("HDB00"));
  EXPECT_FALSE(controller_.stop("HDB01"));
  EXPECT_FALSE(controller_.restart(""));
  EXPECT_EQ(log_.claim_containing("is not installed on this host\n"), 5U);
  EXPECT_TRUE(runner_.calls().empty());
}

TEST_F(Instance_Controller_Test, Starts_And_Waits_Until_All_Runs) {
  script("HDB", {child("StartService\nOK\n")});
  script("sapcontrol", {stopped(), starting(), running()});
  EXPECT_TRUE(controller_.start("HDB00"));
  EXPECT_EQ(actions(), (std::vector<std::string>{"start"}));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{10, 10}));
}

TEST_F(Instance_Controller_Test, Stops_And_Waits_Until_All_Is_Down) {
  script("HDB", {child("hdbdaemon is stopped.\n")});
  script("sapcontrol", {starting(), stopped()});
  EXPECT_TRUE(controller_.stop("HDB00"));
  EXPECT_EQ(actions(), (std::vector<std::string>{"stop"}));
  EXPECT_EQ(clock_.sleeps(), (std::vector<double>{10}));
}

TEST_F(Instance_Controller_Test, Restarts_By_Stop_And_Start) {
  script("HDB", {child("")});
  script("sapcontrol", {stopped(), running()});
  EXPECT_TRUE(controller_.restart("HDB00"));
  EXPECT_EQ(actions(), (std::vector<std::string>{"stop", "start"}));
}

TEST_F(Instance_Controller_Test, Does_Not_Start_What_It_Could_Not_Stop) {
  script("HDB", {child("", 2)});
  EXPECT_FALSE(controller_.restart("HDB00"));
  EXPECT_EQ(actions(), (std::vector<std::string>{"stop"}));
  expect_error("Failed to stop HANA instance HDB_HDB00: HDB stop ended with exit code 2\n");
}

TEST_F(Instance_Controller_Test, Gives_Up_When_The_State_Is_Not_Reached_In_Time) {
  script("HDB", {child("")});
  script("sapcontrol", {starting()});
  EXPECT_FALSE(controller_.stop("HDB00"));
  expect_error("HANA instance HDB_HDB00 did not stop within 600 seconds\n");
  EXPECT_EQ(clock_.sleeps().size(), 60U);
  EXPECT_FALSE(controller_.start("HDB00"));
  expect_error("HANA instance HDB_HDB00 did not start within 2700 seconds\n");
}

TEST_F(Instance_Controller_Test, Says_Only_That_The_State_Is_Not_Known_When_It_Cannot_Be_Had) {
  script("HDB", {child(""), child("", 1)});
  script("sapcontrol", {child("", 1)});
  EXPECT_FALSE(controller_.start("HDB00"));
  EXPECT_EQ(log_.claim_containing("Failed to get the state of HANA instance HDB_HDB00: "), 1U) << log_.dump();
  EXPECT_EQ(log_.claim_containing("did not start within"), 0U);
}

TEST_F(Instance_Controller_Test, Ends_A_Command_That_Does_Not_Return) {
  support::Scripted_Child hanging;
  hanging.standard_output = "StartService\n";
  hanging.hangs = true;
  hanging.before = [this] { clock_.advance(std::chrono::hours(1)); };
  script("HDB", {hanging});
  EXPECT_FALSE(controller_.start("HDB00"));
  expect_error("Failed to start HANA instance HDB_HDB00: HDB start did not end in time: StartService\n");
}

TEST_F(Instance_Controller_Test, Knows_No_Other_Action) {
  EXPECT_FALSE(controller_.hdb_action("HDB00", Instance_Controller::HDB_ACTION_UNKNOWN));
  expect_error("HANA instances have no action 0\n");
}

TEST_F(Instance_Controller_Test, Has_The_Values_That_Agents_Exchange) {
  EXPECT_EQ(Instance_Controller::INSTANCE_STATE_UNKNOWN, 0);
  EXPECT_EQ(Instance_Controller::INSTANCE_STATE_RUNNING, 1);
  EXPECT_EQ(Instance_Controller::INSTANCE_STATE_STOPPED, 2);
  EXPECT_EQ(Instance_Controller::HDB_ACTION_UNKNOWN, 0);
  EXPECT_EQ(Instance_Controller::HDB_ACTION_START, 1);
  EXPECT_EQ(Instance_Controller::HDB_ACTION_STOP, 2);
  EXPECT_EQ(Instance_Controller::HDB_ACTION_RESTART, 3);
}

TEST_F(Instance_Controller_Test, Tells_The_Directory_Of_An_Instance) {
  std::string directory = "kept";
  EXPECT_TRUE(controller_.get_instance_dir("HDB00", directory, true));
  EXPECT_EQ(directory, "/usr/sap/HDB/HDB00");
  EXPECT_TRUE(controller_.get_instance_dir("HDB05", directory, false));
  EXPECT_EQ(directory, "/usr/sap/HDB/HDB05");
  EXPECT_FALSE(controller_.get_instance_dir("HDB07", directory, true));
  EXPECT_FALSE(controller_.get_instance_dir("../HDB00", directory, false));
  EXPECT_EQ(directory, "/usr/sap/HDB/HDB05");
  expect_error("The directory '/usr/sap/HDB/HDB07' of HANA instance HDB07 does not exist\n");
  expect_error("'../HDB00' is not a HANA instance of a system 'HDB'\n");
}

}  // namespace
