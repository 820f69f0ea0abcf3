#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "backupd/agents/agent_registry.h"
#include "backupd/outcome.h"
#include "backupd/pools/pool_storage.h"
#include "backupd/pools/pool_store.h"

namespace backupd {

/// Looks whether objects lie on their pools: in the directories themselves where this server reaches them, else through
/// an agent that does. Nothing is read but directories. Safe from any thread.
class Pool_Inspector {
 public:
  enum class State {
    present,
    missing,
    wrong_size,
    unknown  ///< nobody could look
  };
  struct Object {
    std::string path;              ///< within the pool
    std::int64_t stored_size = 0;  ///< bytes it should have
    State state = State::unknown;
    std::int64_t found_size = 0;  ///< bytes on the pool, when it is there
  };

  Pool_Inspector(Pool_Store& pools, Pool_Storage& storage, Agent_Registry& agents, std::string own_host_uuid)
      : pools_(pools), storage_(storage), agents_(agents), own_host_uuid_(std::move(own_host_uuid)) {}

  /// Looks all objects of one pool up. `reader_host`: whose agent is asked for a pool that every host reaches by the
  /// same path. A refusal says why nobody could look; the objects stay unknown then.
  [[nodiscard]] Outcome look(const std::string& pool_uuid, const std::string& reader_host,
                             std::vector<Object>& objects);

 private:
  struct Entries;
  [[nodiscard]] Outcome list_here(const Pool& pool, Entries& entries);
  [[nodiscard]] Outcome list_by_agent(const Pool& pool, const std::string& host, Entries& entries);

  Pool_Store& pools_;
  Pool_Storage& storage_;
  Agent_Registry& agents_;
  const std::string own_host_uuid_;
};

/// "present", "missing", "wrong size", "unknown".
[[nodiscard]] const char* to_text(Pool_Inspector::State state);

}  // namespace backupd
