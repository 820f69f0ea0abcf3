#pragma once

#include <mutex>
#include <string>

#include "agentd/jobs/job_maker.h"
#include "agentd/log_backup/log_backup_files.h"
#include "agentd/log_backup/log_backup_status.h"
#include "net/json_rpc_peer.h"

namespace agentd {

/// Sets definitions up at what they back up, so that it begins its backups by itself, and removes them there. One after
/// the other: a removal looks at what the other definitions left. Any thread.
///
/// Both take {"definition"} and answer {"code", "message", "alerts": [{"class", "code", "parameters"}]}. Code 0 says
/// that it is set up, or removed; what the message then holds still needs somebody's attention. Code -1: it is not, and
/// the message says why. A definition that cannot be used is refused as invalid params.
class Ondemand_Setup {
 public:
  Ondemand_Setup(const Job_Maker& maker, const Log_Backup_Service& log_backups)
      : maker_(maker), log_backups_(log_backups) {}

  /// Once more is fine: what is set up stays as it is. What a former set-up left half done is removed and set up anew,
  /// because the module takes it for set up.
  [[nodiscard]] JSON_RPC_Answer setup(const json_spirit::Object& params);
  /// What is not there counts as removed. While the database system still hands its logs over although no definition of
  /// this host takes them, it is not removed.
  [[nodiscard]] JSON_RPC_Answer unsetup(const json_spirit::Object& params);

 private:
  [[nodiscard]] Job_Ptr make(const json_spirit::Object& params, JSON_RPC_Answer& refusal) const;
  /// What keeps a configuration that is there from being used; empty when nothing does.
  [[nodiscard]] std::string find_fault(const std::string& type, const Job_Definition& definition,
                                       const Log_Backup_File& file) const;
  /// Removes what is there of the definition and cannot be used. Empty when nothing of that kind is left, else why.
  [[nodiscard]] std::string remove_half_done(const json_spirit::Object& params, const Job_Definition& definition) const;

  const Job_Maker& maker_;
  const Log_Backup_Service& log_backups_;
  std::mutex one_at_a_time_;
};

}  // namespace agentd
