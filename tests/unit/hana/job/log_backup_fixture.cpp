#include "unit/hana/job/log_backup_fixture.h"

#include <unistd.h>

namespace backup_test {

Log_Backup_Test::Log_Backup_Test() {
  set_subtype(JOB_DEFINITION_SUBTYPE_ONDEMAND);
  // SAP's group: the one that the test itself may give files to.
  root_.write("/etc/group", "sapsys:x:" + std::to_string(::getgid()) + ":\n");
  runner_.on([this](const support::Seen_Call& call, support::Scripted_Child& child) {
    if (call.program.ends_with("/hdbnsutil"))
      child.standard_output = "online: true\n\nmode: " + mode_ + "\n";
    else if (call.program.ends_with("/sapcontrol"))
      child.code = static_cast<int>(state_);
    else
      return false;
    return true;
  });
}

Log_Executor& Log_Backup_Test::new_log_executor() {
  executors_.push_back(std::make_unique<Log_Executor>(job()));
  return *executors_.back();
}

Log_Executor& Log_Backup_Test::ready_log_executor() {
  Log_Executor& executor = new_log_executor();
  EXPECT_TRUE(executor.init_system_info());
  return executor;
}

}  // namespace backup_test
