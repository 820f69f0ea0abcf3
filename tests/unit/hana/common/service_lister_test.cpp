#include "hana/common/service_lister.h"

#include <gtest/gtest.h>

#include "support/log_capture.h"
#include "support/scripted_process_runner.h"

namespace {

using sap_hana::Service_Info;
using sap_hana::Service_Lister;

class Service_Lister_Test : public testing::Test {
 protected:
  Service_Lister_Test() {
    runner_.let_run({{10, "hdbadm", "/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint -f backup -s 1700 -u HDB"},
                     {11, "hdbadm", "/usr/sap/HDB/SYS/global/hdb/opt/hdbbackint -s17003"},
                     {12, "root", "/usr/sbin/cron"}});
  }
  [[nodiscard]] std::vector<pid_t> pids(const std::string& pattern) {
    std::list<Service_Info> services{{"of before", "nobody", 1}};
    EXPECT_FALSE(Service_Lister::list_service(pattern, services, false, "C")) << "false is success";
    std::vector<pid_t> found;
    for (const Service_Info& service : services) found.push_back(service.pid);
    return found;
  }
  support::Log_Capture log_;
  support::Scripted_Process_Runner runner_;
};

using Pids = std::vector<pid_t>;

TEST_F(Service_Lister_Test, Matches_Whole_Command_Lines) {
  EXPECT_EQ(pids(".*hdbbackint.*"), (Pids{10, 11}));
  EXPECT_EQ(pids("hdbbackint"), Pids{});
  EXPECT_EQ(pids(".*cron"), Pids{12});
}

TEST_F(Service_Lister_Test, Matches_An_Id_That_Is_The_Beginning_Of_Another_One) {
  EXPECT_EQ(pids(".*hdbbackint.*-s\\s*1700.*"), (Pids{10, 11}));
  EXPECT_EQ(pids(".*hdbbackint.*-s\\s*17003.*"), Pids{11});
}

TEST_F(Service_Lister_Test, Finds_Others_Beside_A_Command_Line_That_Is_Too_Hard_To_Compare) {
  const std::string hard(1000, 'x');
  runner_.let_run({{10, "nobody", hard}, {11, "hdbadm", "xxy"}});
  EXPECT_EQ(pids("(x+x+)+y"), Pids{11});
}

TEST_F(Service_Lister_Test, Looks_At_The_Beginning_Of_A_Long_Command_Line) {
  const std::string long_tail(100000, ' ');
  runner_.let_run({{10, "hdbadm", "hdbbackint -s 1700" + long_tail}, {11, "nobody", long_tail + "hdbbackint -s 1700"}});
  EXPECT_EQ(pids(".*hdbbackint.*-s\\s*1700.*"), Pids{10});
}

TEST_F(Service_Lister_Test, Gives_Command_User_And_Number) {
  std::list<Service_Info> services;
  ASSERT_FALSE(Service_Lister::list_service(".*cron", services, false, "C"));
  ASSERT_EQ(services.size(), 1U);
  EXPECT_EQ(services.front().cmd, "/usr/sbin/cron");
  EXPECT_EQ(services.front().user, "root");
}

TEST_F(Service_Lister_Test, Fails_With_True_When_Processes_Cannot_Be_Listed) {
  runner_.fail_to_list(true);
  std::list<Service_Info> services;
  EXPECT_TRUE(Service_Lister::list_service(".*", services, false, "C"));
  EXPECT_EQ(log_.claim_containing("Failed to list the processes of this host: "), 1U);
}

TEST_F(Service_Lister_Test, Fails_With_True_For_A_Pattern_That_Is_None) {
  std::list<Service_Info> services;
  EXPECT_TRUE(Service_Lister::list_service("(", services, false, "C"));
  EXPECT_EQ(log_.claim_containing("Failed to list processes by the pattern '('"), 1U);
}

}  // namespace
