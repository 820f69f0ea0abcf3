#pragma once

#include <optional>
#include <string>
#include <vector>

#include "backupd/pools/pool_store.h"

namespace backupd {

/// Where the objects of a pool lie, to tell whether two pools meet in one directory: each of them would then take the
/// other's objects for its own, or for nobody's. What the server's own machine holds is compared by where it leads,
/// too; directories of other hosts by their names alone. Asks the file system when it is made. Any thread.
class Pool_Place {
 public:
  enum class Relation { apart, same, below, above };

  /// `own_host_uuid`: of the host this server runs on; may be empty.
  Pool_Place(const Pool& pool, const std::string& own_host_uuid);

  /// How this place lies to another one.
  [[nodiscard]] Relation to(const Pool_Place& other) const;

 private:
  [[nodiscard]] bool may_meet(const Pool_Place& other) const;

  bool here_ = false;      ///< on the server's own machine, perhaps among others
  bool anywhere_ = false;  ///< the same path on every host
  std::string host_uuid_;
  std::string named_;  ///< the directory without what means nothing ("//", "/./", a '/' at the end)
  std::string real_;   ///< where it leads on the server's machine; empty when it does not lie there or cannot be told
};

struct Pool_Overlap {
  Pool other;
  Pool_Place::Relation relation = Pool_Place::Relation::apart;

  /// "is that of the pool "main" (/srv/pool)", and the like.
  [[nodiscard]] std::string text() const;
};

/// The first of `pools` that meets `pool`; its own record and one of its name do not count.
[[nodiscard]] std::optional<Pool_Overlap> find_overlap(const Pool& pool, const std::vector<Pool>& pools,
                                                       const std::string& own_host_uuid);

}  // namespace backupd
