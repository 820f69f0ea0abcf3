#include <algorithm>
#include <cstdint>
#include <ctime>
#include <sstream>
#include <string>

#include "agentd/restore/recovery_log.h"
#include "fuzz/small_host.h"
#include "hana/job/backup_executor.h"
#include "job/job.h"
#include "scrt/time_text.h"

// HANA's backup.log by its two readers: the agent, which tells of the last recovery, and the data backup, which wants
// to know when it began. Of the same recovery they tell the same time.

namespace {

constexpr const char* log_path = "/usr/sap/HDB/HDB00/hanahost/trace/backup.log";

class Executor : public sap_hana::Backup_Executor {
 public:
  explicit Executor(Job& job) : Backup_Executor(job) { sid_ = "HDB"; }
};

struct Host {
  fuzz::Small_Host files;
  Job_Ptr job{new Job(Job_Definition_Ptr(new Job_Definition))};
  Executor executor{*job};

  Host() { files.write(log_path, ""); }
};

bool is_time_or_empty(const std::string& text) {
  std::time_t time = 0;
  return text.empty() || iso8601_to_posix_time(text.c_str(), time);
}

/// Of several, the two readers may mean different ones: the agent looks for whole lines of HANA's.
bool has_one_begin(const std::string& text) {
  constexpr const char* begin = "RECOVER DATA started";
  const std::size_t first = text.find(begin);
  return first != std::string::npos && text.find(begin, first + 1) == std::string::npos;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Host host;
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::istringstream log(text);
  const auto recovery = agentd::last_recovery(log);
  if (recovery) {
    fuzz::require(is_time_or_empty(recovery->started) && is_time_or_empty(recovery->ended) &&
                  is_time_or_empty(recovery->reached_time));
    fuzz::require(recovery->id.find_first_of(" \n") == std::string::npos);
  }
  host.files.overwrite(log_path, text);
  std::time_t time = 0;
  const bool read = host.executor.get_last_restore("SYSTEMDB", time);
  if (!recovery || recovery->started.empty() || !has_one_begin(text)) return 0;
  std::time_t started = 0;
  fuzz::require(iso8601_to_posix_time(recovery->started.c_str(), started));
  fuzz::require(read && time == std::max<std::time_t>(started, 0));
  return 0;
}
