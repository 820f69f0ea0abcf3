// The module's own time for one database: from the start request to the BACKUP statement reaching hdbsql, with every
// tool and the server answering at once. Budget: 50 ms.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

#include "job/default_job_t.h"
#include "unit/hana/job/executor_fixture.h"

namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr int rounds = 200;
constexpr double budget_ms = 50;
constexpr int all_services_run = 3;  // exit code of GetProcessList
constexpr const char* backup_sql = "BACKUP DATA   USING BACKINT('<uuid>') TOOLOPTION 'job_uuid=<uuid>;'";
constexpr const char* progress_sql =
    "select TO_VARCHAR(UTC_START_TIME, 'YYYY-MM-DD HH24:MI:SS') as START_TIME, BACKUP_SIZE,TRANSFERRED_SIZE "
    "from SYS_DATABASES.M_BACKUP_PROGRESS where DATABASE_NAME='SYSTEMDB'";

class Timed_Run : public backup_test::Executor_Test {
 public:
  Timed_Run() {
    set_multi_container(true);
    set_entries({"hana/HDB00/SYSTEMDB"});
    runner_.on_program("/hdbnsutil", {.standard_output = "mode: none\n"});
    runner_.on_program("/sapcontrol", {.code = all_services_run});
  }

  /// Milliseconds from the request to the statement.
  double measure() {
    std::atomic<Clock::rep> reached{0};
    // What comes after the statement is not measured: it is refused, and the run ends.
    support::Scripted_Child answer = backup_test::refused();
    answer.before = [&reached] { reached = Clock::now().time_since_epoch().count(); };
    hdbsql_.expect_backup(backup_sql, answer, progress_sql,
                          {backup_test::table("START_TIME,BACKUP_SIZE,TRANSFERRED_SIZE", {})});
    Job_Ptr job(new Default_Job_T<sap_hana::Backup_Executor>(definition_));
    const Clock::time_point begin = Clock::now();
    if (job->start(nullptr) != 0) return -1;
    job->completed().wait_real(std::chrono::seconds(60));
    log_.claim_all();
    if (reached == 0) return -1;
    return Milliseconds(Clock::time_point(Clock::duration(reached.load())) - begin).count();
  }

 private:
  void TestBody() override {}
};

}  // namespace

int main() {
  std::vector<double> times;
  for (int round = 0; round < rounds; ++round) {
    Timed_Run run;
    times.push_back(run.measure());
    if (times.back() < 0) {
      std::fprintf(stderr, "bench_module: the backup statement was never reached\n");
      return 1;
    }
  }
  ACE_Thread_Manager::instance()->wait();
  std::sort(times.begin(), times.end());
  const double median = times[times.size() / 2];
  std::printf("from start to BACKUP, one database: min %.2f ms, median %.2f ms, p99 %.2f ms, max %.2f ms (budget %g)\n",
              times.front(), median, times[times.size() * 99 / 100], times.back(), budget_ms);
  return median <= budget_ms ? 0 : 1;
}
