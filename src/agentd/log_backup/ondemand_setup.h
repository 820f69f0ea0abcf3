#pragma once

#include <mutex>
#include <string>

#include "agentd/jobs/job_maker.h"
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
  explicit Ondemand_Setup(const Job_Maker& maker) : maker_(maker) {}

  /// Once more is fine: what is set up stays as it is.
  [[nodiscard]] JSON_RPC_Answer setup(const json_spirit::Object& params);
  /// What is not there counts as removed. While the database system still hands its logs over although no definition of
  /// this host takes them, it is not removed.
  [[nodiscard]] JSON_RPC_Answer unsetup(const json_spirit::Object& params);

 private:
  [[nodiscard]] Job_Ptr make(const json_spirit::Object& params, JSON_RPC_Answer& refusal) const;

  const Job_Maker& maker_;
  std::mutex one_at_a_time_;
};

}  // namespace agentd
