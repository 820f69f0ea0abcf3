// Two runs that save after a recovery at the same moment.

#include <gtest/gtest.h>

#include <memory>
#include <thread>

#include "chains/chain_system.h"
#include "chains/meeting_transport.h"
#include "hana/job/backup_executor.h"
#include "job/job_mutex.h"
#include "support/log_capture.h"

namespace chains {
namespace {

constexpr std::time_t noon = 1'772'625'600;
constexpr std::time_t hour = 3600;
constexpr const char* tenant = "TN1";

/// A run of its own as far as HANA's backup goes; what comes behind it waits for save. Runs of a resource wait for each
/// other from beginning to end, but a log backup does not belong to that queue, and it saves in the same way.
class Unsaved_Run {
 public:
  Unsaved_Run(const Chain_System& system)
      : job_(new Job(system.read_definition(Kind::full, "first"))), executor_(*job_) {}

  void back_up() {
    std::string command;
    bool done = false;
    ASSERT_TRUE(executor_.init_system_info());
    ASSERT_TRUE(executor_.init_hdbsql());
    executor_.init_metadata(set_);
    ASSERT_TRUE(executor_.generate_backint_conf(set_.uuid, tenant));
    ASSERT_TRUE(executor_.generate_backup_cmd(JOB_DEFINITION_SUBTYPE_FULL, tenant, set_.uuid, command));
    ASSERT_TRUE(executor_.execute_backup_cmd(command.c_str(), done));
  }
  void save() {
    EXPECT_TRUE(executor_.update_metadata(set_, set_.uuid));
    EXPECT_TRUE(executor_.save_metadata(set_));
  }

 private:
  class Executor : public sap_hana::Backup_Executor {
   public:
    using Backup_Executor::Backup_Executor;
    using Backup_Executor::init_hdbsql;
    using Backup_Executor::init_system_info;
  };

  Job_Ptr job_;
  Executor executor_;
  sap_hana::HANA_Backup_Set set_;
};

TEST(Lifeline_Race, Two_Runs_That_Save_At_Once_After_A_Recovery_Open_One_Lifeline) {
  support::Log_Capture log;
  Chain_System system;
  system.move_to(noon);
  ASSERT_EQ(system.run(Kind::full, "first"), JOB_STATE_COMPLETED) << log.dump();
  log.claim_all();
  const std::size_t before = system.sets().size();
  const std::string old_lifeline = text_of(system.sets().front(), "lifeline");

  system.move_to(noon + hour);
  system.control({"recovery", tenant, std::to_string(noon + hour)});
  system.move_to(noon + 2 * hour);
  Unsaved_Run first(system);
  Unsaved_Run second(system);
  first.back_up();
  second.back_up();
  ASSERT_FALSE(testing::Test::HasFailure()) << log.dump();
  const auto lock = Job_Mutex::get(system.resource_uuid() + "/" + tenant);
  {
    const Meeting_Transport transport([&lock] { return lock->waiting() != 0; });
    std::thread one([&first] { first.save(); });
    std::thread other([&second] { second.save(); });
    one.join();
    other.join();
    EXPECT_FALSE(transport.met()) << "both have decided before either has saved";
  }

  const std::vector<json_spirit::Object> sets = system.sets(before);
  ASSERT_EQ(sets.size(), 2U);
  const std::string lifeline = text_of(sets[0], "lifeline");
  EXPECT_EQ(text_of(sets[1], "lifeline"), lifeline);
  EXPECT_NE(lifeline, old_lifeline);
  for (const json_spirit::Object& set : sets) EXPECT_EQ(text_of(set, "incarnation"), text_of(set, "uuid"));
  EXPECT_EQ(log.claim_containing("Update lifeline: restore time is", LM_INFO), 1U);
}

}  // namespace
}  // namespace chains
